#include "storage_paths.h"

#include <cctype>
#include <charconv>

namespace qvr {

namespace {

std::string with_subspace(std::string path, std::string_view subspace) {
  if (!subspace.empty()) path.append("/").append(subspace);
  return path;
}

std::string bucket_file(std::string directory, std::int64_t time, std::string_view suffix) {
  return directory.append("/")
      .append(TS10K_PREFIX)
      .append(std::to_string(time / TS10K_SECONDS))
      .append("/")
      .append(std::to_string(time))
      .append(suffix);
}

}  // namespace

storage_paths::storage_paths(std::string_view device, std::string_view client, std::int64_t appid)
    : root_(device) {
  root_.append("/").append(client).append("/").append(std::to_string(appid));
}

std::string storage_paths::base(storage_layout layout, std::string_view subspace) const {
  return layout == storage_layout::second ? root_ + "/2.0" : with_subspace(root_, subspace);
}

std::string storage_paths::records(storage_layout layout, std::string_view subspace) const {
  std::string path = base(layout, subspace);
  return layout == storage_layout::second ? with_subspace(path + "/meta_rec", subspace)
                                          : path + "/index";
}

std::string storage_paths::record_file(storage_layout layout, std::string_view subspace,
                                       std::int64_t time) const {
  std::string path = records(layout, subspace);
  if (layout == storage_layout::second) return bucket_file(std::move(path), time, REC_SUFFIX);
  return path.append("/").append(std::to_string(time)).append(REC_SUFFIX);
}

std::string storage_paths::data_stub(storage_layout layout, std::string_view subspace,
                                     std::int64_t time) const {
  std::string path = base(layout, subspace);
  if (layout == storage_layout::second)
    return bucket_file(with_subspace(path + "/data_ss", subspace), time, SS_SUFFIX);
  return path.append("/").append(std::to_string(time)).append(SS_SUFFIX);
}

std::string storage_paths::save_file(storage_layout layout, std::string_view subspace,
                                     std::string_view name) const {
  std::string path = layout == storage_layout::second
                         ? with_subspace(base(layout, subspace) + "/meta_keys", subspace)
                         : records(layout, subspace) + "/keys";
  return path.append("/savefilename/").append(name);
}

errobj_t *storage_paths::subspace_of(storage_layout layout, const std::string &path,
                                     std::string *out) const {
  if (out == nullptr)
    return err_create(151974, 55000, "The record file '%s' has an invalid output pathname.",
                      {{MSG_ARG_PATH, path}});
  std::string_view rest = path;
  while (layout == storage_layout::first && rest.ends_with('/')) rest.remove_suffix(1);
  std::string above = layout == storage_layout::second ? records(layout, {}) : root_;
  bool inside = rest.starts_with(above);
  if (inside) rest.remove_prefix(above.size());
  if (rest.starts_with('/')) rest.remove_prefix(1);
  if (rest.starts_with("./")) rest.remove_prefix(2);
  std::size_t slash = rest.rfind('/');
  if (!inside || slash == std::string_view::npos)
    return err_create(151975, 55000, "The record file '%s' has an invalid pathname.",
                      {{MSG_ARG_PATH, path}});
  rest = rest.substr(0, slash);
  slash = rest.rfind('/');
  *out = slash == std::string_view::npos ? std::string_view() : rest.substr(0, slash);
  return nullptr;
}

std::string storage_client_name(std::string_view client) {
  std::string name(client);
  for (char &c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return name;
}

errobj_t *storage_name_time(std::string_view name, std::int64_t &time) {
  bool digit = !name.empty() && name[0] >= '0' && name[0] <= '9';
  if (digit && std::from_chars(name.data(), name.data() + name.size(), time).ec == std::errc())
    return nullptr;
  return err_create(149178, 55000,
                    "Unable to decode name due to incorrect epoch time format '%s'.\n",
                    {{MSG_ARG_NAME, name}});
}

}  // namespace qvr
