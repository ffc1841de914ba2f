// The catalogue on storage over trees of record files that the lab writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "record_file_writer.h"
#include "sqlite_handle.h"
#include "storage_session.h"

namespace qvr {
namespace {

namespace fs = std::filesystem;

class storage_catalogue_test : public testing::Test {
 protected:
  storage_catalogue_test() {
    char name[] = "/tmp/storage-test-XXXXXX";
    root = mkdtemp(name);
    library = storage_directory_library(root);
    storage_register(library);
    attrs = attrlist_build({{"Server independent device path", {"dev"}},
                            {"hosts", {"localhost"}},
                            {"username", {"u"}},
                            {"password", {storage_hide("p")}},
                            {"Disable DFA-BH", {"False"}},
                            {"auth index", {"Mars"}}});
  }
  ~storage_catalogue_test() override {
    session.reset();
    storage_unregister(library.get());
    fs::remove_all(root);
  }

  std::string write(std::int64_t time, storage_layout layout = storage_layout::second,
                    const std::string &subspace = {}, int page_size = 4096) {
    ss_t ss;
    ss.client = "mars";
    ss.name = "/home";
    ss.savetime = time;
    ss.totalsize = 7;
    std::string why;
    std::string path =
        write_record_file({root, "/dev", 0, layout, subspace, page_size}, ss, "f", why);
    EXPECT_EQ(why, "");
    return path;
  }
  void put(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  ss_reply range(std::uint64_t from, std::uint64_t to, std::int64_t count = 0,
                 std::string_view client = "MARS", std::string_view name = {}) {
    session.reset();
    EXPECT_EQ(clntbh_create_client_handle(attrs, session), nullptr);
    mr_range mr{from, to, count};
    return bh_fetchss_range(session.get(), client, name, {}, &mr);
  }
  static std::vector<std::int64_t> times_of(const ss_list &list) {
    std::vector<std::int64_t> times;
    for (const ss_t *ss : list.rows) times.push_back(ss->savetime);
    return times;
  }
  using times_t = std::vector<std::int64_t>;

  std::string root;
  std::shared_ptr<storage_library> library;
  attrlist attrs;
  std::unique_ptr<cat_session> session;
};

TEST_F(storage_catalogue_test, ranges_over_both_layouts) {
  for (std::int64_t time : {100, 9999, 10000, 20000}) write(time);
  write(10001, storage_layout::second, "a/b", 512);
  write(10002, storage_layout::first);
  struct {
    int line;
    std::uint64_t from, to;
    std::int64_t count;
    std::string name;
    times_t times;
  } rows[] = {
      {__LINE__, 0, INT64_MAX, 0, "", {10002, 100, 9999, 10000, 10001, 20000}},
      {__LINE__, 0, INT64_MAX, 1, "", {20000}},
      {__LINE__, 0, 10000, 2, "/home", {9999, 10000}},
      {__LINE__, 9999, 9999, 1, "", {9999}},
      {__LINE__, 101, 9998, 0, "", {}},
      {__LINE__, 0, INT64_MAX, 0, "/other", {}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    ss_reply reply = range(row.from, row.to, row.count, "MARS", row.name);
    EXPECT_EQ(reply.status, row.times.empty() ? MMDB_NO_ENTRY : MMDB_OK);
    EXPECT_EQ(reply.error, nullptr);
    EXPECT_EQ(times_of(reply.list), row.times);
    EXPECT_FALSE(session->inconsistent);
    for (const ss_t *ss : reply.list.rows) {
      EXPECT_EQ(ss->attrs.first("index record version"), ss->savetime == 10002 ? "" : "2.0");
      EXPECT_EQ(ss->attrs.first("index subspace"), ss->savetime == 10001 ? "a/b" : "");
    }
  }
  EXPECT_EQ(range(0, 1, 0, "venus").error->message.id, 149184);
  std::int64_t asked[] = {10002, 5, 9999};
  EXPECT_EQ(times_of(bh_fetchss_times(session.get(), "mars", asked)), (times_t{9999, 10002}));
}

TEST_F(storage_catalogue_test, a_record_that_is_no_record_costs_only_itself) {
  struct {
    int line;
    void (*harm)(const std::string &path);
  } rows[] = {
      {__LINE__, [](const std::string &path) { fs::resize_file(path, 0); }},
      {__LINE__, [](const std::string &path) { fs::resize_file(path, 5000); }},
      {__LINE__, [](const std::string &path) { std::ofstream(path) << std::string(9000, 'x'); }},
      {__LINE__,
       [](const std::string &path) {
         fs::remove(path);
         fs::create_directory(path);
       }},
      {__LINE__,
       [](const std::string &path) {
         sqlite3 *opened = nullptr;
         sqlite3_open(path.c_str(), &opened);
         sqlite_database database(opened);
         sqlite3_exec(opened,
                      "DROP TABLE tbl_ss_records; CREATE VIEW tbl_ss_records AS WITH RECURSIVE "
                      "n(xdr, ss_time, ss_name) AS (SELECT 1, 2, 3 UNION ALL SELECT xdr + 1, 2, 3 "
                      "FROM n) SELECT * FROM n",
                      nullptr, nullptr, nullptr);
       }},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fs::remove_all(root + "/dev");
    write(100);
    row.harm(write(200));
    write(300);
    ss_reply reply = range(0, 1000);
    EXPECT_EQ(reply.status, MMDB_OK);
    EXPECT_EQ(times_of(reply.list), (times_t{100, 300}));
    EXPECT_TRUE(session->inconsistent);
  }
}

TEST_F(storage_catalogue_test, records_that_are_being_written) {
  for (const char *uncommitted : {"False", "True"}) {
    SCOPED_TRACE(uncommitted);
    fs::remove_all(root + "/dev");
    attrlist_set(attrs, "index enable get uncommitted rec", uncommitted);
    put(write(100) + ".lck", "");
    write(200);
    ss_reply reply = range(0, 1000);
    bool shown = uncommitted == std::string("True");
    EXPECT_EQ(times_of(reply.list), shown ? (times_t{100, 200}) : (times_t{200}));
    EXPECT_EQ(reply.list.rows.front()->ssflags, shown ? 0x10000u : 0u);
  }
  put(root + "/dev/mars/0/2.0/meta_rec/_ts10k_0/0200.rec", "");
  EXPECT_EQ(range(0, 1000).error->message.id, 149179);
}

TEST_F(storage_catalogue_test, what_opening_refuses) {
  struct {
    int line;
    std::string name, value;
    std::int32_t id;
  } rows[] = {
      {__LINE__, "Disable DFA-BH", "True", 115061},
      {__LINE__, "Server independent device path", "", 106852},
      {__LINE__, "hosts", "", 106838},
      {__LINE__, "username", "", 106839},
      {__LINE__, "password", "", 106840},
      {__LINE__, "enable fibre channel", "yes", 115062},
      {__LINE__, "Server independent device path", "..", 140947},
      {__LINE__, "Server independent device path", "/x.lck", 140947},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    attrlist changed = attrs;
    if (row.value.empty())
      attrlist_remove(changed, row.name);
    else
      attrlist_set(changed, row.name, row.value);
    const errobj_t *error = clntbh_create_client_handle(changed, session);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->message.id, row.id);
    EXPECT_EQ(session, nullptr);
  }
}

}  // namespace
}  // namespace qvr
