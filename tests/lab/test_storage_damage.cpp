// Record files that are none or hold what they should not, and what fails while one is loaded.
#include "ks_mutex.h"
#include "sqlite_handle.h"
#include "storage_fixture.h"

namespace qvr::test {
namespace {

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

// What is no record costs only itself and is named; what a record holds wrong ends the pass.
TEST_F(storage_test, what_is_no_record) {
  idx_set_appid(19);
  const std::string good = record_bytes(200),
                    others = whole("100 rec=2:100 ver=2.0 | 300 rec=2:300 ver=2.0"),
                    all = whole(
                        "100 rec=2:100 ver=2.0 | 200 rec=2:200 ver=2.0 | 300 rec=2:300 ver=2.0");
  constexpr char NO_TABLE[] = "no such table: tbl_ss_records (1).",
                 DAMAGED[] = "SQL error occurred...";
  auto truncated = [&](std::size_t size) { return good.substr(0, size); };
  auto with = [](const char *sql) { return record_bytes(200, sql); };
  const struct {
    int line;
    std::string bytes;
    const char *why = nullptr;  // null: it is a record all the same
    std::string answer = {};    // empty: its neighbours, and itself if it is a record
  } rows[] = {
      {__LINE__, good},
      {__LINE__, record_bytes(200, nullptr, 512)},
      {__LINE__, record_bytes(200, nullptr, 65536)},
      {__LINE__, with("DROP TABLE tbl_idx_records")},
      {__LINE__,
       with("ALTER TABLE tbl_ss_records ADD later TEXT; ALTER TABLE tbl_idx_records RENAME fid TO "
            "f")},
      {__LINE__, with("CREATE TRIGGER t AFTER INSERT ON tbl_ss_records BEGIN SELECT 1; END")},
      {__LINE__, truncated(1), DAMAGED},
      {__LINE__, truncated(50), DAMAGED},
      {__LINE__, truncated(5000), DAMAGED},
      {__LINE__, truncated(good.size() - 10),
       "Unable to complete backup step due to an SQL error: database "
       "disk image is malformed (11)."},
      {__LINE__, std::string(9000, 'x'), DAMAGED},
      {__LINE__, std::string(good).replace(18, 2, "\2\2"), DAMAGED},  // with a log beside it
      {__LINE__, endless(record_bytes(200, nullptr, 512)), "lookup operation due to an error 9."},
      {__LINE__, good.substr(0, good.size() - 4096) + std::string(4096, '\0'),
       "lookup operation due to an error 11."},
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
       "no such table: tbl_idx_records (1)."},
      {__LINE__, with("UPDATE tbl_ss_records SET ss_time = 5"), nullptr, others},
      {__LINE__, with("UPDATE tbl_ss_records SET ss_name = '/other'"), nullptr, others},
      {__LINE__, with("DELETE FROM tbl_ss_records"), nullptr, others},
      {__LINE__, with("INSERT INTO tbl_ss_records SELECT * FROM tbl_ss_records"), nullptr,
       "error The save set has multiple entries in the index. There should only be a single "
       "entry.\n"},
      {__LINE__, with("UPDATE tbl_ss_records SET xdr = x'00000001'"), nullptr,
       "error Unable to perform save set lookup operation due to an error in data decoding.\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    for (const char *cache : {"index_cache_enabled=True", "index_cache_enabled=False"}) {
      put("2:100 2:300");
      put("2:200", row.bytes);
      open(cache);
      std::string answer, log = log_of(1, [&] { answer = range("", {}, "/home"); });
      EXPECT_EQ(answer, !row.answer.empty() ? row.answer : row.why != nullptr ? others : all);
      EXPECT_EQ(session->inconsistent, row.why != nullptr) << log;
      if (row.why != nullptr)
        expect_logged(log,
                      "Detected an inconsistency in the index record '~2/_ts10k_0/200.rec' with "
                      "save time '200'.\n" +
                          std::string(row.why));
    }
  }
}

// Rows of one file beside those of another, whatever the size of their pages.
TEST_F(storage_test, merging) {
  storage->put("/1.rec");
  storage->put("/2.rec", record_bytes(2, nullptr, 512));
  storage->put("/3.rec", record_bytes(3, "DROP TABLE tbl_ss_records"));
  open();
  memory_database memory;
  ASSERT_EQ(memory.open(), nullptr);
  ASSERT_EQ(load_save_sqldb(*session, memory, "/1.rec", false), nullptr);
  ASSERT_EQ(load_save_sqldb(*session, memory, "/2.rec", true), nullptr);
  EXPECT_EQ(told(load_save_sqldb(*session, memory, "/3.rec", true)),
            "106787 55000 SQL error occurred during an execute operation: no such table: "
            "backupdb.tbl_ss_records.\n");
  arena page;
  for (std::int64_t time : {1, 2, 3}) {
    ss_t *record = nullptr;
    ASSERT_EQ(lookup_ss_db(memory, {}, time, {}, page, record), nullptr);
    EXPECT_EQ(record != nullptr, time != 3);
  }
  EXPECT_EQ(told(load_record(*session, memory, {}, true)),
            "155513 55000 Unable to verify the file due to a missing pathname.\n");
}

sqlite3_stmt *statement = nullptr;

// Called by SQLite for each connection that it opens.
int hold_file(sqlite3 *database, char **, const sqlite3_api_routines *) {
  bool file = *sqlite3_db_filename(database, "main") != '\0';
  return file ? sqlite3_prepare_v2(database, "SELECT 1", -1, &statement, nullptr) : SQLITE_OK;
}
int refuse(sqlite3 *, char **, const sqlite3_api_routines *) {
  return SQLITE_PERM;
}
void extend(int (*entry)(sqlite3 *, char **, const sqlite3_api_routines *)) {
  sqlite3_auto_extension(reinterpret_cast<void (*)()>(entry));
}

// In the place of the load lock: one that tells errors, held by this thread or by none.
void break_lock(bool held) {
  pthread_mutex_t telling = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
  if (held) pthread_mutex_lock(&telling);
  storage_load_lock()->mutex = telling;
  if (held) pthread_mutex_unlock(&telling);
}
void mend_lock() {
  storage_load_lock()->pid = 0;  // made anew, as after fork
}

// What the machine and SQLite refuse is told, and nothing of it stays.
TEST_F(storage_test, what_fails_around_a_record) {
  memory_database memory;
  ASSERT_EQ(memory.open(), nullptr);
  put("2:100");
  open();
  const std::string path = path_of("2:100");
  auto load = [&] { return told(load_save_sqldb(*session, memory, path, false)); };

  break_lock(true);
  std::string locking = load();
  mend_lock();
  EXPECT_EQ(locking,
            "106788 55000 Unable to obtain a lock during index database load due to the error: "
            "Resource deadlock avoided (18).\n");
  auto make = std::exchange(storage->make, [](const std::string &) {
    break_lock(false);
    return record_bytes(100);
  });
  std::string unlocking = load();
  mend_lock();
  EXPECT_EQ(unlocking,
            "106792 55170 Unable to remove a lock during index database load due to the error: "
            "Operation not permitted (67).\n");
  storage->make = make;
  EXPECT_EQ(load(), "");

  extend(hold_file);
  EXPECT_EQ(load(), "115058 55000 Unable to close SQL database '" + path +
                        "' due to an error: unable to close due to unfinalized statements or "
                        "unfinished backups (5).\n");
  sqlite3_reset_auto_extension();
  sqlite3_finalize(statement);
  EXPECT_EQ(load(), "");
  extend(refuse);
  EXPECT_EQ(range(""), "error Unable to open the database: automatic extension loading failed: \n");
  EXPECT_EQ(told(memory_database().open()).substr(0, 13), "106798 55000 ");
  sqlite3_reset_auto_extension();

  arena page;
  ss_t *record = nullptr;
  const std::string name(101, 'x');
  sqlite3_limit(memory.get(), SQLITE_LIMIT_LENGTH, 100);
  EXPECT_EQ(told(lookup_ss_db(memory, name, 100, {}, page, record)),
            "115060 55000 Error occurred in an SQL query save set name bind: string or blob too "
            "big save set name: " +
                name + " (18).\n");
  EXPECT_EQ(told(session->paths().subspace_of(storage_layout::second, path, nullptr)),
            "151974 55000 The record file '" + path + "' has an invalid output pathname.");
}

}  // namespace
}  // namespace qvr::test
