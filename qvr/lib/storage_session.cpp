#include "storage_session.h"

#include <cerrno>
#include <charconv>

#include "bhquay.h"
#include "debug_words.h"
#include "ks_mutex.h"
#include "mif_env.h"
#include "mif_state.h"
#include "thread_key.h"

namespace qvr {

namespace {

constexpr std::string_view HIDING_KEY = "qvrhide";

thread_key<std::int64_t> appid_key("create_thread_key_index");

std::string exclusive_or(std::string bytes, std::string_view key) {
  for (std::size_t i = 0; i < bytes.size(); i++)
    bytes[i] = static_cast<char>(bytes[i] ^ key[i % key.size()]);
  return bytes;
}

std::string unhide_default(std::string_view stored, std::string_view key) {
  std::string bytes;
  for (std::size_t at = 0; at < stored.size(); at += 2) {
    unsigned byte = 0;
    std::string_view pair = stored.substr(at, 2);
    auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
    if (error != std::errc() || pair.size() != 2 || end != pair.data() + 2)
      return std::string(stored);
    bytes += static_cast<char>(byte);
  }
  return exclusive_or(std::move(bytes), key);
}

storage_unhide_fn unhide = unhide_default;

std::string first_value(const attrlist &attrs, std::string_view name) {
  const std::string *value = attrlist_first(attrs, name);
  return value == nullptr ? std::string() : *value;
}

// What a connection cannot do without, with what is said when it is missing.
constexpr struct {
  const char *name;
  std::string storage_params::*to;
  std::int32_t id;
  const char *missing;
} required[] = {
    {"Server independent device path", &storage_params::device_path, 106852,
     "The device path on the Bulk Harbor host was not specified during a server independent "
     "operation.\n"},
    {"hosts", &storage_params::host, 106838,
     "The name of the Bulk Harbor host was not specified during a server independent "
     "operation.\n"},
    {"username", &storage_params::user, 106839,
     "The username of the Bulk Harbor host was not specified during a server independent "
     "operation.\n"},
    {"password", &storage_params::password, 106840,
     "The password for the Bulk Harbor host was not specified during a server independent "
     "operation.\n"},
};

int get_max_idle_conns(const attrlist &attrs) {
  const std::string *value = attrlist_first(attrs, "bh quay max idle conns");
  if (value == nullptr) return 1;
  int limit = 0;
  std::from_chars(value->data(), value->data() + value->size(), limit);
  KS_DEBUG(2, "get_max_idle_conns: The max idle conns (%s) is set to %d.\n", value->c_str(), limit);
  return limit;
}

errobj_t *read_params(const attrlist &attrs, storage_params &params) {
  for (const auto &row : required) {
    const std::string *value = attrlist_first(attrs, row.name);
    if (value == nullptr) return err_create(row.id, 55000, row.missing);
    params.*row.to = *value;
  }
  params.password = unhide(params.password, HIDING_KEY);
  if (!params.device_path.starts_with('/'))
    params.device_path.insert(params.device_path.begin(), '/');
  params.fibre_channel = attrlist_has(attrs, "enable fibre channel", "Yes");
  if (params.fibre_channel) {
    params.fibre_channel_name = first_value(attrs, "fibre channel hostname");
    if (params.fibre_channel_name.empty())
      return err_create(115062, 15000 + EINVAL,
                        "A Fibre Channel connection was requested but the Fibre Channel service "
                        "name was not specified.\n");
  }
  params.client_information = first_value(attrs, "bulk harbor client information");
  params.auto_recall = attrlist_has(attrs, "enable auto recall", "Yes");
  params.max_idle_connections = get_max_idle_conns(attrs);
  return nullptr;
}

errobj_t *start_library(storage_library &library, const storage_params &params) {
  const errobj_t *error = library.start_once(params);
  int number = error != nullptr ? error->code : bhquay_register();
  if (number == 0) return nullptr;
  return err_create(106846, 55000, "Unable to register the Bulk Harbor Quay interface: %d\n",
                    {{MSG_ARG_INT, std::to_string(number)}});
}

errobj_t *connect(cat_session &session) {
  const std::string &path = session.params.device_path;
  if (path == "/." || path == "/.." || path.ends_with(LCK_SUFFIX))
    return err_create(140947, 55000,
                      "Unable to set up a connection due to invalid device path '%s'.\n",
                      {{MSG_ARG_PATH, path}});
  return session.library->connect(session.params, session.connection);
}

// What the session of the media database holds.
class storage_catalogue final : public mif_catalogue {
 public:
  explicit storage_catalogue(std::unique_ptr<cat_session> session) : session_(std::move(session)) {}

  ss_reply range(std::string_view client, std::string_view name, const attrlist &filter,
                 const mr_range &range) override {
    return bh_fetchss_range(session_.get(), client, name, filter, &range);
  }
  ss_list times(std::string_view client, std::span<const std::int64_t> times) override {
    return bh_fetchss_times(session_.get(), client, times);
  }
  ss_list ids(std::span<const ksui> ids) override { return bh_fetchss_ids(session_.get(), ids); }
  void set_subspace(const attrlist &attrs) override {
    const attr_t *subspace = attrlist_find(attrs, "index subspace");
    if (subspace != nullptr)
      attrlist_setv(session_->attributes, "index subspace", subspace->values);
    else
      attrlist_remove(session_->attributes, "index subspace");
  }

 private:
  std::unique_ptr<cat_session> session_;
};

}  // namespace

std::string cat_session::client() const {
  const std::string *index = attrlist_first(attributes, "auth index");
  return index != nullptr && !index->empty() ? *index : storage_client_name(mif_env().local_host());
}

std::string cat_session::subspace() const {
  return first_value(attributes, "index subspace");
}

storage_paths cat_session::paths() const {
  return {params.device_path, client(), idx_appid()};
}

errobj_t *clntbh_create_client_handle(const attrlist &attrs,
                                      std::unique_ptr<cat_session> &session) {
  if (storage_load_lock() == nullptr)
    return err_create(106844, 55000, "Unable to initialize the index interface.\n");
  if (!attrlist_has(attrs, "Disable DFA-BH", "False"))
    return err_create(115061, 55000,
                      "Unable to connect to index. The '%s' parameter must be set to false.\n",
                      {{MSG_ARG_ATTR, "Disable DFA-BH"}});
  auto opened = std::make_unique<cat_session>();
  // Without a host there is nobody to ask; the parameters tell what is missing.
  if (const std::string *host = attrlist_first(attrs, "hosts")) {
    opened->library = storage_find(*host);
    if (opened->library == nullptr)
      return err_create(106845, 55000, "Unable to initialize the Bulk Harbor session interface.\n");
  }
  if (errobj_t *error = read_params(attrs, opened->params)) return error;
  if (errobj_t *error = start_library(*opened->library, opened->params)) return error;
  opened->attributes = attrs;
  if (const std::string *index = attrlist_first(attrs, "auth index"))
    attrlist_set(opened->attributes, "auth index", storage_client_name(*index));
  if (errobj_t *error = connect(*opened)) return error;
  KS_DEBUG(3, "clntbh_create_client_handle: client handle(%p) created for client %s.\n",
           static_cast<void *>(opened.get()), opened->client().c_str());
  session = std::move(opened);
  return nullptr;
}

errobj_t *storage_open_catalogue(const attrlist &attrs, std::unique_ptr<mif_catalogue> &catalogue) {
  std::unique_ptr<cat_session> session;
  if (errobj_t *error = clntbh_create_client_handle(attrs, session)) return error;
  catalogue = std::make_unique<storage_catalogue>(std::move(session));
  return nullptr;
}

void mif_use_storage(bool flag, const attrlist &attrs) {
  mif_t &mif = mif_get();
  mif.mif_storage = flag;
  mif.mif_open_catalogue = storage_open_catalogue;
  if (flag)
    mif.mif_storage_attrs = attrs;
  else
    mif.mif_storage_attrs.clear();
}

std::int64_t idx_appid() {
  return appid_key.get();
}

void idx_set_appid(std::int64_t appid) {
  appid_key.get() = appid;
}

void storage_set_unhide(storage_unhide_fn given) {
  unhide = given != nullptr ? given : unhide_default;
}

std::string storage_hide(std::string_view clear) {
  std::string text;
  for (char c : exclusive_or(std::string(clear), HIDING_KEY)) {
    constexpr char digits[] = "0123456789abcdef";
    auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

KSMutex *storage_load_lock() {
  static KSMutex *const lock = ks_mutex_create();
  return lock;
}

}  // namespace qvr
