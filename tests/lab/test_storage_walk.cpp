// The catalogue on storage over an appliance in memory: what each tree answers, to the byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "debug_words.h"
#include "fake_resolver.h"
#include "fake_storage.h"
#include "record_file_writer.h"
#include "sqlite_handle.h"
#include "storage_load.h"

namespace qvr {
namespace {

using test::fake_storage;
using testing::HasSubstr;
using times_t = std::vector<std::int64_t>;

// A record of the save time that its file's name begins with, or of another.
ss_t record_of(std::int64_t time) {
  static const std::string series = packed_attrs::pack(attrlist_build({{"group", {"a", "b"}}}));
  ss_t ss;
  ss.client = "mars";
  ss.name = "/home";
  ss.savetime = time;
  ss.ssflags = time % 2 == 0 ? 0x4000000 : 0;  // every other one is a snapshot
  ss.attrs = packed_attrs(series);
  return ss;
}

std::int64_t time_of(const std::string &path) {
  return std::stoll(path.substr(path.rfind('/') + 1));
}

std::string record_bytes(std::int64_t time, const char *more = nullptr, int page_size = 4096) {
  return record_file_bytes(record_of(time), "save." + std::to_string(time), page_size, more);
}

// "TIME flags key=value...", a record after the other.
std::string told(const ss_list &list) {
  constexpr struct {
    const char *name, *key;
  } attributes[] = {{"record file name", "rec"},
                    {"index record version", "ver"},
                    {"index subspace", "sub"},
                    {"index record cloud tier location", "tier"},
                    {"save file name", "save"}};
  std::string text;
  for (const ss_t *ss : list.rows) {
    if (!text.empty()) text += " | ";
    text += std::to_string(ss->savetime);
    if (ss->ssflags == 0x10000) text += " incomplete " + std::string(ss->client);
    if (ss->ssflags == 0x2000000) text += " cover";
    for (const auto &[name, key] : attributes)
      if (ss->attrs.has(name))
        text.append(" ").append(key).append("=").append(ss->attrs.first(name));
  }
  return text;
}

struct setting_t {
  const char *name, *value;
};

// What lies on the appliance below /dev/mars/0/, with its content (none: that of the name), and
// what it answers.
struct question_t {
  int line;
  std::vector<const char *> files;
  std::vector<setting_t> settings;
  mr_range range;
  std::string answer;  // with "~/" for the root, "~2/" for the second layout's records
  std::vector<const char *> logged = {};
  std::vector<setting_t> filter = {};
  std::map<std::string, std::int32_t> faults = {};
};

constexpr mr_range ALL{0, INT64_MAX, 0};
constexpr mr_range AT_100{100, 100, 0};

std::string whole(std::string text, const std::string &root) {
  for (const auto &[from, to] : {std::pair<std::string, std::string>("~2/", "~/2.0/meta_rec/"),
                                 std::pair<std::string, std::string>("~/", root + "/")})
    for (std::size_t at; (at = text.find(from)) != std::string::npos;)
      text.replace(at, from.size(), to);
  return text;
}

class storage_catalogue_test : public testing::Test {
 protected:
  storage_catalogue_test() {
    storage->make = [](const std::string &path) { return record_bytes(time_of(path)); };
    storage_register(storage);
    debug_words.time_stamps = 0;
  }
  ~storage_catalogue_test() override {
    session.reset();
    idx_set_appid(0);
    debug_set_level(0);
    debug_words.time_stamps = 1;
    storage_unregister(storage.get());
  }

  void open(const std::vector<setting_t> &settings = {}) {
    session.reset();
    attrs = attrlist_build({{"Server independent device path", {"dev"}},
                            {"hosts", {"appliance"}},
                            {"username", {"u"}},
                            {"password", {storage_hide("p")}},
                            {"Disable DFA-BH", {"False"}},
                            {"auth index", {"Mars"}}});
    for (const setting_t &setting : settings) attrlist_add(attrs, setting.name, setting.value);
    const errobj_t *error = clntbh_create_client_handle(attrs, session);
    ASSERT_EQ(error, nullptr) << error->text;
  }
  std::string range(const mr_range &mr, const attrlist &filter = {}, std::string_view name = {}) {
    ss_reply reply = bh_fetchss_range(session.get(), "MARS", name, filter, &mr);
    if (reply.status == MMDB_NO_ENTRY && reply.error == nullptr) return "none";
    if (reply.status == MMDB_OK && reply.error == nullptr) return told(reply.list);
    return reply.status == MMDB_LOCAL_ERROR ? "error " + reply.error->text : "?";
  }

  void ask(const question_t &row) {
    SCOPED_TRACE(row.line);
    const std::string root = "/dev/mars/" + std::to_string(idx_appid());
    storage->files.clear();
    storage->directories.clear();
    storage->faults.clear();
    for (const char *file : row.files) storage->put(root + '/' + file);
    for (const auto &[call, code] : row.faults) storage->faults[whole(call, root)] = code;
    open(row.settings);
    attrlist filter;
    for (const setting_t &each : row.filter) attrlist_add(filter, each.name, each.value);
    debug_set_level(9);
    testing::internal::CaptureStderr();
    std::string answer = range(row.range, filter);
    std::string log = testing::internal::GetCapturedStderr();
    debug_set_level(0);
    EXPECT_EQ(answer, whole(row.answer, root));
    for (const char *line : row.logged) EXPECT_THAT(log, HasSubstr(whole(line, root)));
    EXPECT_EQ(session->inconsistent, log.find("inconsistency") != std::string::npos);
  }

  std::shared_ptr<fake_storage> storage = std::make_shared<fake_storage>();
  attrlist attrs;
  std::unique_ptr<cat_session> session;
};

constexpr char R100[] = "2.0/meta_rec/_ts10k_0/100.rec", L100[] = "2.0/meta_rec/_ts10k_0/100.lck",
               RL100[] = "2.0/meta_rec/_ts10k_0/100.rec.lck",
               R9999[] = "2.0/meta_rec/_ts10k_0/9999.rec",
               R10000[] = "2.0/meta_rec/_ts10k_1/10000.rec",
               A200[] = "2.0/meta_rec/a/b/_ts10k_0/200.rec", F150[] = "index/150.rec",
               FA160[] = "a/index/160.rec", FAB170[] = "a/b/index/170.rec";
constexpr setting_t SUBSPACE{"index subspace", "a"}, NESTED{"index subspace lookup nested", "TRUE"},
    SHOWN{"index enable get uncommitted rec", "True"},
    TIER{"index get tier location for record", "yes"};

TEST_F(storage_catalogue_test, walks) {
  const question_t rows[] = {
      {__LINE__,
       {R100, F150, A200, R10000},
       {},
       ALL,
       "150 rec=~/index/150.rec | 100 rec=~2/_ts10k_0/100.rec ver=2.0 | "
       "200 rec=~2/a/b/_ts10k_0/200.rec ver=2.0 sub=a/b | "
       "10000 rec=~2/_ts10k_1/10000.rec ver=2.0"},
      // The newest are kept; a limit that is reached leaves the first layout alone.
      {__LINE__,
       {R100, R9999, R10000, F150},
       {},
       {0, 10000, 2},
       "9999 rec=~2/_ts10k_0/9999.rec ver=2.0 | 10000 rec=~2/_ts10k_1/10000.rec ver=2.0",
       {},
       {},
       {{"opendir ~/index", 55000}}},
      {__LINE__, {R100, R9999, F150}, {}, {101, 9998, 0}, "150 rec=~/index/150.rec"},
      {__LINE__,
       {},
       {},
       ALL,
       "none",
       {"bh_get_ts10k_dir_entries: opening directory '~/2.0/meta_rec' failed with error: ",
        "get_dir_entries_v1: directory '~/index' was not found, err = '"}},
      // A subspace narrows both walks; nested look-ups widen the first layout's.
      {__LINE__,
       {R100, A200, F150, FA160, FAB170},
       {SUBSPACE},
       ALL,
       "160 rec=~/a/index/160.rec sub=a | 170 rec=~/a/b/index/170.rec sub=a/b | "
       "200 rec=~2/a/b/_ts10k_0/200.rec ver=2.0 sub=a/b"},
      {__LINE__,
       {F150, FA160, "2.0/160.rec", "index/keys/1.rec", "index/1.ss"},
       {NESTED},
       ALL,
       "150 rec=~/index/150.rec | 160 rec=~/a/index/160.rec sub=a"},
      {__LINE__, {FAB170}, {NESTED}, {170, 170, 1}, "170 rec=~/a/b/index/170.rec sub=a/b"},
      {__LINE__,
       {FAB170},
       {},
       {170, 170, 1},
       "none",
       {"Detected an inconsistency in the index record '~2/_ts10k_0/170.rec' with save time '170'.",
        "report_index_inconsistency: loading of '~/index/170.rec' with save time '170' failed with "
        "error: Unable to open SQL database '~/index/170.rec' due to an error: unable to open "
        "database file (14)."}},
      // One save time: the places where its record may be, in turn.
      {__LINE__,
       {"2.0/meta_rec/y/_ts10k_0/100.rec"},
       {{"mmdb bh subspaces", "x"}, {"mmdb bh subspaces", "y"}, {"mmdb bh subspaces", "z"}},
       {100, 100, 1},
       "100 rec=~2/y/_ts10k_0/100.rec ver=2.0 sub=y",
       {},
       {},
       {{"test ~2/z/_ts10k_0/100.rec", 15013}}},
      {__LINE__,
       {R100},
       {{"mmdb bh subspaces", "x"}},
       AT_100,
       "error The appliance fails.",
       {"m_iface_bh::bh_fetchss_range: "},
       {},
       {{"test ~2/_ts10k_0/100.rec", 15013}}},
      // What a walk meets that is none of it.
      {__LINE__,
       {R100, "2.0/meta_rec/_ts10k_0/x.rec", "2.0/meta_rec/_ts10k_0/5.tmp"},
       {},
       ALL,
       "100 rec=~2/_ts10k_0/100.rec ver=2.0",
       {"is_rec_in_range2: processing rec 'x.rec' error: 'Unable to decode name due to incorrect "
        "epoch time format 'x.rec'.\n'",
        "bh_get_dir_rec_entries_range: unexpected file type '~2/_ts10k_0/5.tmp'.\n"}},
      {__LINE__,
       {R100, "2.0/meta_rec/_ts10k_x/1.rec"},
       {},
       ALL,
       "error Unable to decode name due to incorrect epoch time format 'x'.\n"},
      {__LINE__,
       {R100, "2.0/meta_rec/_ts10k_0/0100.rec"},
       {},
       ALL,
       "error Unable to decode metadata '~2/_ts10k_0/0100.rec' due an unexpected entry "
       "'100.rec'.\n",
       {"add_rec_to_list: file '100.rec' already exists '~2/_ts10k_0/0100.rec' in directory "
        "'~2/_ts10k_0'.\n"}},
      {__LINE__,
       {R100},
       {},
       ALL,
       "error The appliance fails.",
       {},
       {},
       {{"opendir ~2/_ts10k_0", 15013}}},
      {__LINE__,
       {R100, A200},
       {},
       ALL,
       "error The appliance fails.",
       {},
       {},
       {{"opendir ~2/a", 15013}}},
      // The first layout's failure counts only when there is nothing else.
      {__LINE__,
       {F150, "index/0150.rec"},
       {},
       ALL,
       "error Unable to decode metadata record '~/index/0150.rec' due an unexpected entry "
       "'~/index/150.rec'.\n"},
      {__LINE__,
       {R100, F150, "index/0150.rec"},
       {},
       ALL,
       "100 rec=~2/_ts10k_0/100.rec ver=2.0",
       {" returning not fatal error Unable to decode metadata record"}},
      {__LINE__,
       {F150, "index/notes/1.txt"},
       {},
       ALL,
       "150 rec=~/index/150.rec",
       {"get_dir_entries_v1: reading directory '~/index/notes/1.txt' failed: "}},
  };
  for (const question_t &row : rows) ask(row);
}

TEST_F(storage_catalogue_test, deep_walks_end) {
  std::string deep;
  for (int i = 0; i < 70; i++) deep += "/d";
  storage->put("/dev/mars/0/index" + deep + "/1.rec");
  storage->put("/dev/mars/0/index/150.rec");
  open();
  EXPECT_EQ(range(ALL), "150 rec=/dev/mars/0/index/150.rec");
  storage->put("/dev/mars/0/2.0/meta_rec" + deep + "/_ts10k_0/1.rec");
  EXPECT_THAT(range(ALL), HasSubstr("error "));
  EXPECT_LT(storage->count("opendir"), 140);
}

TEST_F(storage_catalogue_test, records_that_are_being_written) {
  const question_t rows[] = {
      {__LINE__,
       {R100, L100, R9999},
       {},
       ALL,
       "9999 rec=~2/_ts10k_0/9999.rec ver=2.0",
       {"bh_get_dir_rec_entries_range: incomplete record found '~2/_ts10k_0/100.lck'.\n"}},
      {__LINE__,
       {R100, RL100, A200},
       {SHOWN},
       ALL,
       "100 incomplete mars ver=2.0 | 200 rec=~2/a/b/_ts10k_0/200.rec ver=2.0 sub=a/b"},
      {__LINE__, {RL100}, {SHOWN, TIER}, {1, 100, 0}, "100 incomplete mars ver=2.0"},
      {__LINE__, {R100, RL100}, {SHOWN}, AT_100, "100 incomplete mars ver=2.0"},
      {__LINE__,
       {R100, RL100},
       {},
       AT_100,
       "none",
       {"report_index_inconsistency: loading of '~/index/100.rec'"}},
      // The first layout asks for the marker when it loads.
      {__LINE__, {F150, "index/150.rec.lck"}, {}, ALL, "150 incomplete mars"},
      {__LINE__,
       {F150, "index/150.rec.lck", "index/160.rec.lck"},
       {SHOWN},
       ALL,
       "150 incomplete mars | 160 incomplete mars"},
      {__LINE__,
       {F150},
       {},
       ALL,
       "none",
       {"report_index_inconsistency: loading of '~/index/150.rec' with save time '150' failed with "
        "error: The appliance fails."},
       {},
       {{"test ~/index/150.rec.lck", 15013}}},
      // On the cloud tier: the file tells so when it is read.
      {__LINE__,
       {R100},
       {},
       ALL,
       "100 cover rec=~2/_ts10k_0/100.rec ver=2.0",
       {},
       {},
       {{"read ~2/_ts10k_0/100.rec", 295034}}},
      {__LINE__,
       {R100},
       {},
       ALL,
       "none",
       {},
       {{"group", "a"}},
       {{"read ~2/_ts10k_0/100.rec", 295034}}},
      {__LINE__,
       {R100},
       {},
       ALL,
       "none",
       {"failed with error: SQL error occurred during an execute operation: "},
       {},
       {{"read ~2/_ts10k_0/100.rec", 15005}}},
      {__LINE__,
       {R100},
       {},
       ALL,
       "none",
       {"bhClose: close sqlite3_file '~2/_ts10k_0/100.rec' failed with error: The appliance fails.",
        "failed with error: The appliance fails."},
       {},
       {{"close ~2/_ts10k_0/100.rec", 15005}}},
  };
  for (const question_t &row : rows) ask(row);
}

TEST_F(storage_catalogue_test, tier_filters_and_save_files) {
  constexpr char STUB[] = "2.0/data_ss/a/b/_ts10k_0/200.ss", FSTUB[] = "a/160.ss";
  storage->tiers = {{"/dev/mars/0/2.0/data_ss/a/b/_ts10k_0/200.ss", 2}};
  const question_t rows[] = {
      {__LINE__,
       {A200, STUB, FA160, FSTUB, R100},
       {TIER, NESTED},
       ALL,
       "160 rec=~/a/index/160.rec sub=a tier=False | "
       "200 rec=~2/a/b/_ts10k_0/200.rec ver=2.0 sub=a/b tier=True",
       {"bh_fetchss_range: add_subspace_to_ss for ('~2/_ts10k_0/100.rec', '100') failed: '"}},
      {__LINE__,
       {R100, R9999},
       {},
       ALL,
       "100 rec=~2/_ts10k_0/100.rec ver=2.0",
       {"m_iface_bh::is_record_filtered: no match for ssname '/home', savetime '9999', attrname "
        "'Fetch snapshots only', attrvalue ''\n",
        "m_iface_bh::get_ss_lst: filtered ssname '/home', savetime '9999', filename "
        "'~2/_ts10k_0/9999.rec'\n"},
       {{"Fetch snapshots only", ""}}},
      {__LINE__,
       {R100},
       {},
       ALL,
       "100 rec=~2/_ts10k_0/100.rec ver=2.0",
       {},
       {{"group", "x"}, {"group", "B"}}},
      {__LINE__, {R100}, {}, ALL, "none", {" attrname 'group', attrvalue 'x'\n"}, {{"group", "x"}}},
      // A filtered record does not count against the limit.
      {__LINE__,
       {R100, R9999},
       {},
       {0, INT64_MAX, 1},
       "100 rec=~2/_ts10k_0/100.rec ver=2.0",
       {},
       {{"fetch snapshots only", "True"}}},
  };
  for (const question_t &row : rows) ask(row);

  const question_t named[] = {
      {__LINE__,
       {A200, FA160, F150, R100, RL100},
       {NESTED, SHOWN},
       ALL,
       "150 rec=~/index/150.rec save=~/index/keys/savefilename/save.150 | "
       "160 rec=~/a/index/160.rec sub=a save=~/a/index/keys/savefilename/save.160 | "
       "100 incomplete mars ver=2.0 | 200 rec=~2/a/b/_ts10k_0/200.rec ver=2.0 sub=a/b "
       "save=~/2.0/meta_keys/a/b/savefilename/save.200"},
      {__LINE__,
       {R9999},
       {SHOWN},
       ALL,
       "9999 rec=~2/_ts10k_0/9999.rec ver=2.0 save=~/2.0/meta_keys/savefilename/save.9999"},
      {__LINE__, {R9999}, {}, ALL, "9999 rec=~2/_ts10k_0/9999.rec ver=2.0"},
  };
  for (std::int64_t appid : {19, 25}) {
    idx_set_appid(appid);
    for (const question_t &row : named) ask(row);
  }
}

// The table of save sets as eight storeys of pages, each of which has the next one below it many
// times: more rows than can ever be read (SQLite database file format, 1.6).
std::string endless(std::string file) {
  constexpr unsigned PAGE = 512, ROOT = 3, CELLS = 60, STOREYS = 8;
  auto word = [](std::uint32_t value) {
    return std::string{char(value >> 24), char(value >> 16), char(value >> 8), char(value)};
  };
  const std::string leaf = file.substr((ROOT - 1) * PAGE, PAGE);
  auto pages = static_cast<std::uint32_t>(file.size() / PAGE);
  for (unsigned storey = 0; storey < STOREYS; storey++) {
    const std::string below = word(storey == 0 ? pages + 1 : pages + 2);
    std::string page("\5\0\0\0", 4), cells;
    page += char(CELLS);
    page += word((PAGE - 5 * CELLS) << 8).substr(1, 2) + '\0' + below;
    for (unsigned i = 0; i < CELLS; i++) {
      page += word((PAGE - 5 * CELLS + 5 * i) << 16).substr(0, 2);
      cells += below + '\1';
    }
    page.resize(PAGE - cells.size());
    page += cells;
    if (storey == 0)
      file.replace((ROOT - 1) * PAGE, PAGE, page);
    else
      file += page, pages++;
  }
  file += leaf;
  return file.replace(28, 4, word(pages + 1));
}

// A record that is none costs only itself and is named. Its neighbours stand.
TEST_F(storage_catalogue_test, what_is_no_record) {
  const std::string good = record_bytes(200);
  constexpr char NO_TABLE[] = "no such table: tbl_ss_records (1)", DAMAGED[] = "SQL error occurred";
  auto truncated = [&](std::size_t size) { return good.substr(0, size); };
  auto with = [](const char *sql) { return record_bytes(200, sql); };
  const struct {
    int line;
    std::string bytes;
    const char *why;  // null: it is a record all the same
  } rows[] = {
      {__LINE__, good, nullptr},
      {__LINE__, record_bytes(200, nullptr, 512), nullptr},
      {__LINE__, record_bytes(200, nullptr, 65536), nullptr},
      {__LINE__, with("DROP TABLE tbl_idx_records"), nullptr},
      {__LINE__,
       with("ALTER TABLE tbl_ss_records ADD later TEXT; ALTER TABLE tbl_idx_records RENAME fid TO "
            "f"),
       nullptr},
      {__LINE__, with("CREATE TRIGGER t AFTER INSERT ON tbl_ss_records BEGIN SELECT 1; END"),
       nullptr},
      {__LINE__, truncated(1), DAMAGED},
      {__LINE__, truncated(50), DAMAGED},
      {__LINE__, truncated(5000), DAMAGED},
      {__LINE__, truncated(good.size() - 10),
       "Unable to complete backup step due to an SQL error: database "
       "disk image is malformed (11).\n"},
      {__LINE__, std::string(9000, 'x'), DAMAGED},
      {__LINE__, std::string(good).replace(18, 2, "\2\2"), DAMAGED},  // with a log beside it
      {__LINE__, endless(record_bytes(200, nullptr, 512)), "lookup operation due to an error 9.\n"},
      {__LINE__, good.substr(0, good.size() - 4096) + std::string(4096, '\0'),
       "lookup operation due to an error 11.\n"},
      {__LINE__, with("DROP TABLE tbl_ss_records"), NO_TABLE},
      {__LINE__, with("ALTER TABLE tbl_ss_records RENAME xdr TO record"), NO_TABLE},
      {__LINE__,
       with("DROP TABLE tbl_ss_records; CREATE VIEW tbl_ss_records AS WITH RECURSIVE "
            "n(xdr, ss_time, ss_name) AS (SELECT 1, 2, 3 UNION ALL SELECT xdr + 1, 2, 3 FROM n) "
            "SELECT * FROM n"),
       NO_TABLE},
      {__LINE__,
       with("DROP TABLE tbl_ss_records; CREATE VIRTUAL TABLE tbl_ss_records USING "
            "fts5(ss_name, ss_time, xdr)"),
       NO_TABLE},
      {__LINE__,
       with("DROP TABLE tbl_ss_records; CREATE TABLE tbl_ss_records (ss_name, ss_time, xdr AS "
            "(zeroblob(200000000))); INSERT INTO tbl_ss_records VALUES ('/home', 200)"),
       NO_TABLE},
      {__LINE__,
       with("DROP TABLE tbl_idx_records; CREATE VIEW tbl_idx_records AS SELECT 1 AS filename"),
       "no such table: tbl_idx_records (1)"},
  };
  idx_set_appid(19);
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    for (const char *cached : {"True", "False"}) {
      for (std::int64_t time : {100, 200, 300})
        storage->put("/dev/mars/19/2.0/meta_rec/_ts10k_0/" + std::to_string(time) + ".rec",
                     time == 200 ? row.bytes : std::string());
      open({{"index cache enabled", cached}});
      debug_set_level(1);
      testing::internal::CaptureStderr();
      mr_range mr = ALL;
      ss_reply reply = bh_fetchss_range(session.get(), "mars", "/home", {}, &mr);
      std::string log = testing::internal::GetCapturedStderr();
      debug_set_level(0);
      EXPECT_EQ(reply.list.size(), row.why == nullptr ? 3u : 2u) << told(reply.list);
      EXPECT_EQ(session->inconsistent, row.why != nullptr) << log;
      if (row.why == nullptr) continue;
      EXPECT_THAT(log, HasSubstr("Detected an inconsistency in the index record "
                                 "'/dev/mars/19/2.0/meta_rec/_ts10k_0/200.rec' with save time "
                                 "'200'.\n"));
      EXPECT_THAT(log, HasSubstr(row.why));
    }
  }
}

// What a record that did load holds wrong ends the pass.
TEST_F(storage_catalogue_test, records_that_cannot_be_told) {
  const struct {
    int line;
    const char *sql;
    const char *answer;
  } rows[] = {
      {__LINE__, "INSERT INTO tbl_ss_records SELECT * FROM tbl_ss_records",
       "error The save set has multiple entries in the index. There should only be a single "
       "entry.\n"},
      {__LINE__, "UPDATE tbl_ss_records SET xdr = x'00000001'",
       "error Unable to perform save set lookup operation due to an error in data decoding.\n"},
      {__LINE__, "UPDATE tbl_ss_records SET ss_time = 5", "none"},
      {__LINE__, "UPDATE tbl_ss_records SET ss_name = '/other'", "none"},
      {__LINE__, "DELETE FROM tbl_ss_records", "none"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    storage->put("/dev/mars/0/2.0/meta_rec/_ts10k_0/100.rec", record_bytes(100, row.sql));
    open();
    EXPECT_EQ(range(ALL, {}, "/home"), row.answer);
    EXPECT_FALSE(session->inconsistent);
  }
}

TEST_F(storage_catalogue_test, times_and_ids) {
  const std::string root = "/dev/mars/0/";
  for (const char *file : {R100, F150, "index/170.rec", "index/170.rec.lck", R9999, RL100})
    storage->put(root + file);
  storage->put(root + "2.0/meta_rec/_ts10k_0/60.rec", "x");
  open();
  const times_t asked = {150, 5, 9999, 170, 60, 100};
  debug_set_level(1);
  testing::internal::CaptureStderr();
  ss_list list = bh_fetchss_times(session.get(), "mArs", asked);
  EXPECT_TRUE(bh_fetchss_times(session.get(), "venus", asked).empty());
  std::string log = testing::internal::GetCapturedStderr();
  debug_set_level(0);
  EXPECT_EQ(told(list),
            "100 rec=/dev/mars/0/2.0/meta_rec/_ts10k_0/100.rec | "
            "9999 rec=/dev/mars/0/2.0/meta_rec/_ts10k_0/9999.rec | "
            "150 rec=/dev/mars/0/index/150.rec");
  EXPECT_TRUE(session->inconsistent);
  for (const char *line :
       {"lookup_index_eq: loading of '/dev/mars/0/2.0/meta_rec/_ts10k_0/5.rec' failed with error: ",
        "lookup_index_eq: loading of '/dev/mars/0/index/5.rec' failed with error: ",
        "loading of '/dev/mars/0/index/170.rec' with save time '170' failed with error: Unable to "
        "load record '/dev/mars/0/index/170.rec'. This record is incomplete.\n",
        "inconsistency in the index record '/dev/mars/0/2.0/meta_rec/_ts10k_0/60.rec'",
        "m_iface_bh::bh_fetchss_times: failed with error : The 'venus' client host name parameter "
        "was specified incorrectly for this Bulk Harbor time query session.\n.\n"})
    EXPECT_THAT(log, HasSubstr(line));

  ksui ids[2];
  ids[0].set_word(3, 9999);
  ids[1].set_word(1, 1);
  ids[1].set_word(3, 5);
  storage->put(root + "2.0/meta_rec/_ts10k_429496/4294967301.rec");
  EXPECT_EQ(told(bh_fetchss_ids(session.get(), ids)),
            "4294967301 rec=/dev/mars/0/2.0/meta_rec/_ts10k_429496/4294967301.rec | "
            "9999 rec=/dev/mars/0/2.0/meta_rec/_ts10k_0/9999.rec");

  // With a subspace a record that is not at its place is asked for by a range.
  storage->put(root + A200);
  storage->put(root + "2.0/meta_rec/a/_ts10k_0/40.rec");
  open({SUBSPACE, NESTED});
  const times_t below = {200, 40, 7};
  EXPECT_EQ(told(bh_fetchss_times(session.get(), "mars", below)),
            "40 rec=/dev/mars/0/2.0/meta_rec/a/_ts10k_0/40.rec sub=a | "
            "200 rec=/dev/mars/0/2.0/meta_rec/a/b/_ts10k_0/200.rec ver=2.0 sub=a");
}

// The tree does the indexing.
TEST_F(storage_catalogue_test, a_range_reads_its_buckets_alone) {
  constexpr std::int64_t BUCKETS = 1000, EACH = 100;
  for (std::int64_t i = 0; i < BUCKETS * EACH; i++)
    storage->put("/dev/mars/0/2.0/meta_rec/_ts10k_" + std::to_string(i / EACH) + '/' +
                 std::to_string(i / EACH * 10000 + i % EACH) + ".rec");
  open();
  mr_range bucket{5000000, 5009999, 0};
  ss_reply reply = bh_fetchss_range(session.get(), "mars", {}, {}, &bucket);
  EXPECT_EQ(reply.list.size(), std::size_t{EACH});
  std::vector<std::string> opened;
  for (const std::string &call : storage->calls)
    if (call.starts_with("opendir ")) opened.push_back(call.substr(8));
  EXPECT_THAT(opened,
              testing::ElementsAre("/dev/mars/0/2.0/meta_rec",
                                   "/dev/mars/0/2.0/meta_rec/_ts10k_500", "/dev/mars/0/index"));
  EXPECT_EQ(storage->count("next"), BUCKETS + 1 + EACH + 1);
  EXPECT_EQ(storage->count("open"), EACH);
  const std::ptrdiff_t buffered = storage->count("read");
  EXPECT_LE(buffered, 2 * EACH);

  storage->calls.clear();
  EXPECT_THAT(range({5000042, 5000042, 0}), HasSubstr("5000042"));
  EXPECT_EQ(storage->count("opendir"), 0);
  EXPECT_EQ(storage->count("open"), 2);  // the first layout has its say

  storage->calls.clear();
  open({{"index cache enabled", "False"}});
  EXPECT_EQ(bh_fetchss_range(session.get(), "mars", {}, {}, &bucket).list.size(),
            std::size_t{EACH});
  EXPECT_GT(storage->count("read"), buffered);
}

TEST_F(storage_catalogue_test, opening) {
  test::fake_resolver world;  // tells which host this one is
  struct {
    int line;
    std::string name, value;
    std::int32_t code;
    const char *text;
  } rows[] = {
      {__LINE__, "Disable DFA-BH", "True", 55000,
       "Unable to connect to index. The 'Disable DFA-BH' parameter must be set to false.\n"},
      {__LINE__, "Server independent device path", "", 55000,
       "The device path on the Bulk Harbor host was not specified during a server independent "
       "operation.\n"},
      {__LINE__, "hosts", "", 55000,
       "The name of the Bulk Harbor host was not specified during a server independent "
       "operation.\n"},
      {__LINE__, "hosts", "other.invalid", 55000,
       "Unable to initialize the Bulk Harbor session interface.\n"},
      {__LINE__, "username", "", 55000,
       "The username of the Bulk Harbor host was not specified during a server independent "
       "operation.\n"},
      {__LINE__, "password", "", 55000,
       "The password for the Bulk Harbor host was not specified during a server independent "
       "operation.\n"},
      {__LINE__, "enable fibre channel", "yes", 15022,
       "A Fibre Channel connection was requested but the Fibre Channel service name was not "
       "specified.\n"},
      {__LINE__, "Server independent device path", "..", 55000,
       "Unable to set up a connection due to invalid device path '/..'.\n"},
      {__LINE__, "Server independent device path", "/x.lck", 55000,
       "Unable to set up a connection due to invalid device path '/x.lck'.\n"},
  };
  open();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    attrlist changed = attrs;
    if (row.value.empty())
      attrlist_remove(changed, row.name);
    else
      attrlist_set(changed, row.name, row.value);
    session.reset();
    const errobj_t *error = clntbh_create_client_handle(changed, session);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->code, row.code);
    EXPECT_EQ(error->text, row.text);
    EXPECT_EQ(session, nullptr);
  }

  auto refusing = std::make_shared<fake_storage>();
  refusing->host = "refusing";
  refusing->start_fault = 15013;
  storage_register(refusing);
  attrlist changed = attrs;
  attrlist_set(changed, "hosts", "refusing");
  for (int again = 0; again < 2; again++)
    EXPECT_EQ(clntbh_create_client_handle(changed, session)->text,
              "Unable to register the Bulk Harbor Quay interface: 15013\n");
  storage_unregister(refusing.get());

  storage_set_unhide([](std::string_view stored, std::string_view key) {
    return std::string(stored).append("+").append(key);
  });
  open();
  EXPECT_EQ(storage->connects.back().password, storage_hide("p") + "+qvrhide");
  storage_set_unhide(nullptr);

  debug_set_level(3);
  testing::internal::CaptureStderr();
  open({{"enable fibre channel", "YES"},
        {"fibre channel hostname", "dfc-1"},
        {"bulk harbor client information", "told"},
        {"enable auto recall", "Yes"},
        {"bh quay max idle conns", "7"}});
  std::string log = testing::internal::GetCapturedStderr();
  debug_set_level(0);
  const storage_params &params = storage->connects.back();
  EXPECT_EQ(params.device_path + ' ' + params.host + ' ' + params.user + ' ' + params.password +
                ' ' + params.fibre_channel_name + ' ' + params.client_information,
            "/dev appliance u p dfc-1 told");
  EXPECT_TRUE(params.fibre_channel && params.auto_recall);
  EXPECT_EQ(params.max_idle_connections, 7);
  EXPECT_THAT(log, HasSubstr("get_max_idle_conns: The max idle conns (7) is set to 7.\n"));
  EXPECT_THAT(log, HasSubstr(") created for client mars.\n"));

  EXPECT_EQ(bh_fetchss_range(nullptr, "mars", {}, {}, nullptr).status, MMDB_LOCAL_ERROR);
  EXPECT_EQ(bh_fetchss_range(session.get(), "mars", {}, {}, nullptr).error->text,
            "The 'Server independent device path' range parameter was not specified for this Bulk "
            "Harbor query session.\n");
  mr_range mr = ALL;
  EXPECT_EQ(bh_fetchss_range(session.get(), "venus", {}, {}, &mr).error->text,
            "The 'venus' client host name parameter was specified incorrectly for this Bulk Harbor "
            "range query session.\n");
}

// Rows of one file beside those of another, whatever the size of their pages.
TEST_F(storage_catalogue_test, merging) {
  storage->put("/1.rec");
  storage->put("/2.rec", record_bytes(2, nullptr, 512));
  storage->put("/3.rec", record_bytes(3, "DROP TABLE tbl_ss_records"));
  open();
  memory_database memory;
  ASSERT_EQ(memory.open(), nullptr);
  ASSERT_EQ(load_save_sqldb(*session, memory, "/1.rec", false), nullptr);
  ASSERT_EQ(load_save_sqldb(*session, memory, "/2.rec", true), nullptr);
  EXPECT_EQ(load_save_sqldb(*session, memory, "/3.rec", true)->text,
            "SQL error occurred during an execute operation: no such table: "
            "backupdb.tbl_ss_records.\n");
  arena page;
  for (std::int64_t time : {1, 2, 3}) {
    ss_t *record = nullptr;
    ASSERT_EQ(lookup_ss_db(memory, {}, time, {}, page, record), nullptr);
    EXPECT_EQ(record != nullptr, time != 3);
  }
  EXPECT_EQ(load_record(*session, memory, {}, true)->text,
            "Unable to verify the file due to a missing pathname.\n");
}

}  // namespace
}  // namespace qvr
