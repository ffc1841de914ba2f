// A catalogue that fits on a page, so that whole reports over it can be worked out by hand.
//
//   volume  pool     type      location  barcode  what lies on it
//   TAPE.A  Default  LTO       Shelf 1   A00001   11, 12 (first part), 13 (second copy), 14
//   TAPE.B  Offsite  LTO       Vault     TAPE.B   12 (second part), 13 (first copy)
//   disk.C  Default  adv_file            -        nothing
//
//   save set  client  name       level  saved on January         size     kept
//   11        vault   /          full   1st 01:00           1000000 bytes  365 days
//   12        vault   /home      incr   2nd 01:00           3000000        30 days
//   13        mars    /          full   3rd 01:00             50000        forever, a machine
//   "web1" 14        vault   bootstrap  9      4th 01:00             20000        365 days 15 mars
//   /tmp       incr   5th 01:00               700        30 days, no copies
//
// "moon" is another name of the client "mars".
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ksui.h"
#include "system_fixture.h"
#include "temp_dir.h"

namespace qvr::test {

constexpr std::int64_t JANUARY_1 = 1767225600, DAY = 86400, HOUR = 3600;  // 2026, UTC

inline std::string sql_id(std::int32_t kind, std::uint32_t number) {
  ksui id;
  id.set_word(0, static_cast<std::uint32_t>(kind));
  id.set_word(1, number);
  return "'" + ksui_text(id, ksui_form::long_form) + "'";
}
inline std::string sql_volume(std::uint32_t number) {
  return sql_id(KSUI_VOLUME, number);
}

// What replaces the records of a generated catalogue, for the sqlite3 shell.
class small_catalogue {
 public:
  std::string sql() {
    text_ =
        "begin;delete from volume;delete from volume_attribute;delete from saveset;"
        "delete from saveset_attribute;delete from clone;delete from fragment;delete from history;";
    volume(1, "TAPE.A", "LTO", "Shelf 1", "Default", "A00001", "1000000, 500000", 0, 4);
    volume(2, "TAPE.B", "LTO", "Vault", "Offsite", "TAPE.B", "1000000, 999999", 1, 3);
    volume(3, "disk.C", "adv_file", "", "Default", "", "20000000, 0", 32, 0);
    save_set(11, "vault", "/", 0, 1, 1000000, 365 * DAY);
    clone(11, 0, 1, 0, {{1, 0, 2, 10}});
    save_set(12, "vault", "/home", 10, 2, 3000000, 30 * DAY);
    clone(12, 0, 2, 0, {{1, 0, 3, 0}, {2, 2000000, 1, 0}});
    save_set(13, "mars", "/", 0, 3, 50000, 4294967295);
    clone(13, 0, 3, 0, {{2, 0, 2, 7}});
    clone(13, 1, 4, 0x20000, {{1, 0, 4, 0}});
    save_set(14, "vault", "bootstrap", 9, 4, 20000, 365 * DAY);
    clone(14, 0, 4, 0, {{1, 0, 5, 3}});
    save_set(15, "mars", "/tmp", 10, 5, 700, 30 * DAY);
    client("mars", "moon");
    attribute(11, "group", "Default");
    attribute(13, "group", "Weekly");
    attribute(13, "*vm_name", "web1");
    attribute(13, "annotation", "before the great move");
    return text_ + "commit;";
  }

 private:
  struct frag_t_ {
    std::uint32_t volume;
    std::int64_t offset;
    int file, rec;
  };

  void volume(std::uint32_t id, std::string name, std::string type, std::string location,
              std::string pool, std::string barcode, std::string sizes, int flags, int day) {
    std::string access = std::to_string(day == 0 ? 0 : JANUARY_1 + day * DAY);
    text_ += "insert into volume values(" + std::to_string(id) + "," + sql_volume(id) + ",0,'" +
             name + "','tape','" + type + "','" + location + "','" + pool + "','" + barcode + "'," +
             sizes + ",0,6,1," + access + ",0," + std::to_string(JANUARY_1) + "," +
             std::to_string(JANUARY_1) + "," + std::to_string(JANUARY_1 + 365 * DAY) + "," +
             std::to_string(flags) + ",3,1,0,0);";
  }
  void save_set(std::uint32_t id, std::string client, std::string name, int level, int day,
                int size, std::int64_t kept) {
    std::string time = std::to_string(JANUARY_1 + (day - 1) * DAY + HOUR);
    text_ += "insert into saveset values(" + std::to_string(id) + "," + sql_id(KSUI_SAVESET, id) +
             ",'0',0," + std::to_string(level) + "," + time + "," + time + "," + time + "," + time +
             ",'0'," + std::to_string(0x304) + ",'" + client + "','" + name + "'," +
             std::to_string(size) + "," + std::to_string(size / 1000) + "," +
             std::to_string(10 * DAY) + "," + std::to_string(kept) + ");";
  }
  void clone(std::uint32_t ss, int position, int day, int flags, std::vector<frag_t_> frags) {
    std::string key = std::to_string(ss) + "," + std::to_string(position) + ",";
    text_ += "insert into clone values(" + key +
             std::to_string(JANUARY_1 + (day - 1) * DAY + HOUR) + "," + std::to_string(flags) +
             ");";
    for (std::size_t i = 0; i < frags.size(); i++) {
      text_ += "insert into fragment values(" + key + std::to_string(i) + "," +
               std::to_string(frags[i].offset) + "," + sql_volume(frags[i].volume) + "," +
               std::to_string(frags[i].file) + "," + std::to_string(frags[i].rec) + ",0," +
               std::to_string(JANUARY_1 + day * DAY) + ");";
    }
  }
  // The resource of a client, with another name of it.
  void client(std::string name, std::string alias) {
    text_ += "insert into resource values(9000,'qvrd');";
    const std::string values[][2] = {{"type", "QVR client"}, {"name", name}, {"aliases", alias}};
    for (const auto &[key, value] : values) {
      text_ += "insert into resource_attribute values(9000,'" + key + "',0,'" + value + "');";
    }
  }
  void attribute(std::uint32_t ss, std::string name, std::string value) {
    text_ += "insert into saveset_attribute values(" + std::to_string(ss) + ",'" + name + "',0,'" +
             value + "');";
  }

  std::string text_;
};

// Writes the catalogue to a new file for the lab, changed by `more`. Empty, or what went wrong.
inline std::string store_small_catalogue(const std::string &file, const std::string &more = "") {
  run_command({built_program("qvrlabd"), "--sample", "1:1:1", "--host", "vault", "--store", file,
               "--no-serve"});
  command_options shell;
  shell.input = small_catalogue().sql() + more;
  command_result made = run_command({"sqlite3", file}, shell);
  return made.status == 0 ? "" : "sqlite3: " + made.err;
}

// The small catalogue, changed by `more` and served, in a directory of its own.
struct small_site {
  explicit small_site(const std::string &more = "", std::vector<std::string> options = {}) {
    why = store_small_catalogue(file, more);
    options.insert(options.end(), {"--catalogue", file});
    if (why.empty()) site = installation::make(options, why);
  }

  temp_dir directory;
  std::string file = directory.file("catalogue"), why;
  std::unique_ptr<installation> site;  // null when there is none, and `why` says why
};

// Holds the text against golden/NAME.txt. With REELSCAN_GOLDEN_WRITE set, the file is written anew:
// read it before it is kept.
inline void expect_golden(const std::string &name, const std::string &text) {
  std::string file = std::string(GOLDEN_DIRECTORY) + "/" + name + ".txt";
  if (std::getenv("REELSCAN_GOLDEN_WRITE") != nullptr) std::ofstream(file) << text;
  std::stringstream golden;
  golden << std::ifstream(file).rdbuf();
  EXPECT_EQ(text, golden.str());
}

}  // namespace qvr::test
