// What the record files that were found answer.
#include "storage_fixture.h"

namespace qvr::test {
namespace {

using times_t = std::vector<std::int64_t>;

TEST_F(storage_test, records_that_are_being_written_or_elsewhere) {
  const question_t rows[] = {
      {__LINE__, "2:100 2.0/meta_rec/_ts10k_0/100.lck 2:9999", "", "", "9999 rec=2:9999 ver=2.0",
       "bh_get_dir_rec_entries_range: incomplete record found '~2/_ts10k_0/100.lck'."},
      {__LINE__, "2:100 2:100+ 2:a/b/200", "index_enable_get_uncommitted_rec=True", "",
       "100 incomplete mars ver=2.0 | 200 rec=2:a/b/200 ver=2.0 sub=a/b"},
      {__LINE__, "2:100+",
       "index_enable_get_uncommitted_rec=True index_get_tier_location_for_record=yes", "1-100",
       "100 incomplete mars ver=2.0"},
      {__LINE__, "2:100 2:100+", "index_enable_get_uncommitted_rec=True", "100",
       "100 incomplete mars ver=2.0"},
      {__LINE__, "2:100 2:100+", "", "100", "none",
       "report_index_inconsistency: loading of '~/index/100.rec'..."},
      // The first layout asks for the marker when it loads.
      {__LINE__, "1:150 1:150+", "", "", "150 incomplete mars"},
      {__LINE__, "1:150 1:150+ 1:160+", "index_enable_get_uncommitted_rec=True", "",
       "150 incomplete mars | 160 incomplete mars"},
      {__LINE__, "1:150", "", "", "none",
       "report_index_inconsistency: loading of '~/index/150.rec' with save time '150' failed with "
       "error: The appliance fails.",
       "", "test 1:150+ 15013"},
      // On the cloud tier: the file tells so when it is read.
      {__LINE__, "2:100", "", "", "100 cover rec=2:100 ver=2.0", "", "", "read 2:100 295034"},
      {__LINE__, "2:100", "", "", "none", "", "group=a", "read 2:100 295034"},
      {__LINE__, "2:100", "", "", "none",
       "failed with error: SQL error occurred during an execute operation: ...", "",
       "read 2:100 15005"},
      {__LINE__, "2:100", "", "", "none",
       "bhClose: close sqlite3_file '~2/_ts10k_0/100.rec' failed with error: The appliance fails.\n"
       "report_index_inconsistency: loading of '~2/_ts10k_0/100.rec' with save time '100' failed "
       "with error: The appliance fails.",
       "", "close 2:100 15005"},
  };
  for (const question_t &row : rows) ask(row);
}

TEST_F(storage_test, tiers_filters_and_save_files) {
  const question_t rows[] = {
      {__LINE__, "2:a/b/200 2.0/data_ss/a/b/_ts10k_0/200.ss 1:a/160 a/160.ss 2:100",
       "index_get_tier_location_for_record=yes index_subspace_lookup_nested=True", "",
       "160 rec=1:a/160 sub=a tier=False | 200 rec=2:a/b/200 ver=2.0 sub=a/b tier=True",
       "bh_fetchss_range: add_subspace_to_ss for ('~2/_ts10k_0/100.rec', '100') failed: '..."},
      {__LINE__, "2:100 2:9999", "", "", "100 rec=2:100 ver=2.0",
       "m_iface_bh::is_record_filtered: no match for ssname '/home', savetime '9999', attrname "
       "'Fetch snapshots only', attrvalue ''\n"
       "m_iface_bh::get_ss_lst: filtered ssname '/home', savetime '9999', filename "
       "'~2/_ts10k_0/9999.rec'",
       "Fetch_snapshots_only=", "", 9},
      {__LINE__, "2:100", "", "", "100 rec=2:100 ver=2.0", "", "group=x group=B"},
      {__LINE__, "2:100", "", "", "none", " attrname 'group', attrvalue 'x'", "group=x", "", 9},
      // A filtered record does not count against the limit.
      {__LINE__, "2:100 2:9999", "", "0-99999#1", "100 rec=2:100 ver=2.0", "",
       "Fetch_snapshots_only=True"},
      // Two applications keep the names of their save files.
      {__LINE__, "2:a/b/200 1:a/160 1:150 2:100 2:100+",
       "index_subspace_lookup_nested=True index_enable_get_uncommitted_rec=True", "",
       "150 rec=1:150 save=~/index/keys/savefilename/save.150 | "
       "160 rec=1:a/160 sub=a save=~/a/index/keys/savefilename/save.160 | "
       "100 incomplete mars ver=2.0 | 200 rec=2:a/b/200 ver=2.0 sub=a/b "
       "save=~/2.0/meta_keys/a/b/savefilename/save.200"},
      {__LINE__, "2:9999", "index_enable_get_uncommitted_rec=True", "",
       "9999 rec=2:9999 ver=2.0 save=~/2.0/meta_keys/savefilename/save.9999"},
      {__LINE__, "2:9999", "", "", "9999 rec=2:9999 ver=2.0"},
  };
  for (std::int64_t appid : {19, 25}) {
    idx_set_appid(appid);
    storage->tiers = {{path_of("2.0/data_ss/a/b/_ts10k_0/200.ss"), 2}};
    for (const question_t &row : rows) ask(row);
  }
}

TEST_F(storage_test, times_and_ids) {
  put("2:100 1:150 1:170 1:170+ 2:9999 2:100+");
  put("2:60", "x");
  put("2:70", record_bytes(70, "INSERT INTO tbl_ss_records SELECT * FROM tbl_ss_records"));
  open();
  const times_t asked = {150, 5, 9999, 170, 60, 70, 100};
  ss_list list;
  std::string log = log_of(1, [&] {
    list = bh_fetchss_times(session.get(), "mArs", asked);
    EXPECT_TRUE(bh_fetchss_times(session.get(), "venus", asked).empty());
  });
  EXPECT_EQ(told(list), whole("100 rec=2:100 | 9999 rec=2:9999 | 150 rec=1:150"));
  EXPECT_TRUE(session->inconsistent);
  expect_logged(
      log,
      "lookup_index_eq: loading of '~2/_ts10k_0/5.rec' failed with error: ...\n"
      "lookup_index_eq: loading of '~/index/5.rec' failed with error: ...\n"
      "loading of '~/index/170.rec' with save time '170' failed with error: Unable to load record "
      "'~/index/170.rec'. This record is incomplete.\n"
      "Detected an inconsistency in the index record '~2/_ts10k_0/60.rec' with save time '60'.\n"
      "bh_fetchss_times: lookup_ss_db for (~2/_ts10k_0/70.rec) failed: The save set has multiple "
      "entries in the index. There should only be a single entry.\n"
      "m_iface_bh::bh_fetchss_times: failed with error : The 'venus' client host name parameter "
      "was specified incorrectly for this Bulk Harbor time query session.");

  ksui ids[2];
  ids[0].set_word(3, 9999);
  ids[1].set_word(1, 1);
  ids[1].set_word(3, 5);
  put("2:4294967301");
  EXPECT_EQ(told(bh_fetchss_ids(session.get(), ids)),
            whole("4294967301 rec=2:4294967301 | 9999 rec=2:9999"));

  // A place that cannot be looked at is no damage of one record.
  open("mmdb_bh_subspaces=x");
  storage->faults["test " + path_of("2:5")] = 15013;
  log = log_of(1, [&] { list = bh_fetchss_times(session.get(), "mars", asked); });
  EXPECT_EQ(told(list), "");
  expect_logged(log, "m_iface_bh::bh_fetchss_times: failed with error : The appliance fails...");

  // With a subspace a record that is not at its place is asked for by a range.
  put("2:a/b/200 2:a/40");
  open("index_subspace=a index_subspace_lookup_nested=True");
  const times_t below = {200, 40, 7};
  EXPECT_EQ(told(bh_fetchss_times(session.get(), "mars", below)),
            whole("40 rec=2:a/40 sub=a | 200 rec=2:a/b/200 ver=2.0 sub=a"));
  storage->faults["opendir " + path_of("2.0/meta_rec/a/b")] = 15013;
  log = log_of(1, [&] { list = bh_fetchss_times(session.get(), "mars", below); });
  EXPECT_EQ(told(list), whole("40 rec=2:a/40 sub=a"));
  expect_logged(log,
                "bh_get_ss_by_ts: retrieving of savetime '200' failed with error: 'The appliance "
                "fails.'.");
}

}  // namespace
}  // namespace qvr::test
