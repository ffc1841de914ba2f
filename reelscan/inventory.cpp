#include "inventory.h"

#include <cstdio>
#include <string>
#include <string_view>

#include "format.h"
#include "msg.h"
#include "queries.h"
#include "session.h"

namespace qvr {

namespace {

constexpr std::size_t LINE_SIZE = 32768;      // with its terminating NUL
constexpr std::size_t ATTRIBUTE_SIZE = 1024;  // of one "name:value;", with its NUL
constexpr std::size_t FLAGS_SIZE = 10;        // of "0x%x", with its NUL

// One line, cut at the size of the line buffer.
class line_t {
 public:
  void add(std::string_view text) { text_.append(text.substr(0, LINE_SIZE - 1 - text_.size())); }
  void print() {
    if (text_.size() == LINE_SIZE - 1) text_.pop_back();
    text_ += '\n';
    fmt_to_stdout("%s", text_.c_str());
    text_.clear();
  }

 private:
  std::string text_;
};

void add_volume(line_t &line, const vol_t &volume) {
  line.add(volume.volume);
  line.add("\t");
  line.add(ksui_text(volume.volid, ksui_form::short_form));
  line.add("\t");
  line.add(ksui_text(volume.volid, ksui_form::long_form));
  line.add("\t");
  line.add(volume.type);
  line.add("\t");
  char flags[FLAGS_SIZE];
  std::snprintf(flags, sizeof flags, "0x%x", volume.volflags);
  line.add(flags);
  line.add("\t");

  packed_attrs::cursor_t at = volume.volattrs.cursor();
  packed_attrs::values_t values = packed_attrs::no_values();
  std::string_view name, value;
  while (at.next(name, values)) {
    if (!values.next(value) || value.empty()) continue;
    std::string text;
    text.append(name).append(":").append(value).append(";");
    line.add(std::string_view(text).substr(0, ATTRIBUTE_SIZE - 1));
  }
}

// An empty inventory may be a failure of the session: standard output stays that of an empty one,
// the reason goes to the error stream and into the status.
int empty_status() {
  errobj_t *error = mif_last_error();
  if (error == nullptr) return 0;
  std::fflush(stdout);
  err_print(error);
  return 1;
}

}  // namespace

int client_inventory() {
  attrlist clients = get_client_names();
  if (clients.empty()) {
    fmt_to_stdout("%s", "No clients.\n");
    return empty_status();
  }
  fmt_to_stdout("%s", "name\t\tid\n");
  line_t line;
  for (const attr_t &client : clients) {
    line.add(client.name);
    if (!client.values.empty() && !client.values.front().empty()) {
      line.add("\t");
      line.add(client.values.front());
    }
    line.print();
  }
  return 0;
}

int volume_inventory() {
  vol_list volumes = get_vols_name({}, false);
  if (volumes.empty()) {
    fmt_to_stdout("%s", "No volumes.\n");
    return empty_status();
  }
  fmt_to_stdout("%s", "name\t\tvol id\t\tlong id\t\t\t\t\t\ttype\tflags\t\t\tattributes\n");
  line_t line;
  for (const vol_t *volume : volumes.rows) {
    add_volume(line, *volume);
    line.print();
  }
  return 0;
}

}  // namespace qvr
