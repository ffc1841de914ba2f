// Which record files a question finds, and which directories it opens for them.
#include "storage_fixture.h"

namespace qvr::test {
namespace {

TEST_F(storage_test, walks) {
  std::string deep;
  for (int i = 0; i < 70; i++) deep += "d/";
  const question_t rows[] = {
      {__LINE__, "2:100 1:150 2:a/b/200 2:10000", "", "",
       "150 rec=1:150 | 100 rec=2:100 ver=2.0 | 200 rec=2:a/b/200 ver=2.0 sub=a/b | "
       "10000 rec=2:10000 ver=2.0"},
      // The newest are kept; a limit that is reached leaves the first layout alone.
      {__LINE__, "2:100 2:9999 2:10000 1:150", "", "0-10000#2",
       "9999 rec=2:9999 ver=2.0 | 10000 rec=2:10000 ver=2.0", "", "", "opendir index 55000"},
      {__LINE__, "2:100 1:150", "", "0-200#-1", "150 rec=1:150 | 100 rec=2:100 ver=2.0"},
      {__LINE__, "2:100 2:9999 1:150", "", "101-9998", "150 rec=1:150"},
      {__LINE__, "", "", "", "none",
       "bh_get_ts10k_dir_entries: opening directory '~/2.0/meta_rec' failed with error: ...\n"
       "get_dir_entries_v1: directory '~/index' was not found, err = '..."},
      // A subspace narrows both walks; nested look-ups widen the first layout's.
      {__LINE__, "2:100 2:a/b/200 1:150 1:a/160 1:a/b/170", "index_subspace=a", "",
       "160 rec=1:a/160 sub=a | 170 rec=1:a/b/170 sub=a/b | 200 rec=2:a/b/200 ver=2.0 sub=a/b"},
      {__LINE__, "2:./a/200", "index_subspace=./a", "", "200 rec=2:./a/200 ver=2.0 sub=a"},
      {__LINE__, "1:150 1:a/160 2.0/160.rec index/keys/1.rec index/1.ss",
       "index_subspace_lookup_nested=TRUE", "", "150 rec=1:150 | 160 rec=1:a/160 sub=a"},
      {__LINE__, "1:a/b/170", "index_subspace_lookup_nested=True", "170-170#1",
       "170 rec=1:a/b/170 sub=a/b"},
      {__LINE__, "1:a/b/170", "", "170-170#1", "none",
       "Detected an inconsistency in the index record '~2/_ts10k_0/170.rec' with save time '170'.\n"
       "report_index_inconsistency: loading of '~/index/170.rec' with save time '170' failed with "
       "error: Unable to open SQL database '~/index/170.rec' due to an error: unable to open "
       "database file (14)."},
      // One save time: the places where its record may be, in turn.
      {__LINE__, "2:y/100", "mmdb_bh_subspaces=x mmdb_bh_subspaces=y mmdb_bh_subspaces=z",
       "100-100#1", "100 rec=2:y/100 ver=2.0 sub=y", "", "", "test 2:z/100 15013"},
      {__LINE__, "2:100", "mmdb_bh_subspaces=x", "100", "error The appliance fails.",
       "m_iface_bh::bh_fetchss_range: ...\n returning error The appliance fails.", "",
       "test 2:100 15013"},
      {__LINE__, "2:100", "", "100", "error The appliance fails.", "", "", "test 2:100+ 15013"},
      // What a walk meets that is none of it.
      {__LINE__, "2:100 2.0/meta_rec/_ts10k_0/x.rec 2.0/meta_rec/_ts10k_0/5.tmp", "", "",
       "100 rec=2:100 ver=2.0",
       "is_rec_in_range2: processing rec 'x.rec' error: 'Unable to decode name due to incorrect "
       "epoch time format 'x.rec'.\n"
       "bh_get_dir_rec_entries_range: unexpected file type '~2/_ts10k_0/5.tmp'."},
      {__LINE__, "2:100 2.0/meta_rec/_ts10k_0/99999999999999999999.rec", "", "",
       "100 rec=2:100 ver=2.0", "is_rec_in_range2: processing rec '99999999999999999999.rec' ..."},
      {__LINE__, "2:100 2.0/meta_rec/_ts10k_x/1.rec", "", "",
       "error Unable to decode name due to incorrect epoch time format 'x'.\n"},
      {__LINE__, "2:100 2:0100", "", "",
       "error Unable to decode metadata '~2/_ts10k_0/0100.rec' due an unexpected entry "
       "'100.rec'.\n",
       "add_rec_to_list: file '100.rec' already exists '~2/_ts10k_0/0100.rec' in directory "
       "'~2/_ts10k_0'."},
      {__LINE__, "2:100", "", "",
       "error Unable to decode metadata directory '~/2.0/meta_rec' due an unexpected entry "
       "'_ts10k_0'.\n",
       "add_ts10k_to_list: file '_ts10k_0' already exists '~2/_ts10k_0' in directory "
       "'~/2.0/meta_rec'.",
       "", "twice 2.0/meta_rec 1"},
      {__LINE__, "2:100", "", "", "error The appliance fails.", "", "",
       "opendir 2.0/meta_rec/_ts10k_0 15013"},
      {__LINE__, "2:100 2:a/b/200", "", "", "error The appliance fails.", "", "",
       "opendir 2.0/meta_rec/a 15013"},
      // The first layout's failure counts only when there is nothing else.
      {__LINE__, "1:150 1:0150", "", "",
       "error Unable to decode metadata record '~/index/0150.rec' due an unexpected entry "
       "'~/index/150.rec'.\n"},
      {__LINE__, "2:100 1:150 1:0150", "", "", "100 rec=2:100 ver=2.0",
       " returning not fatal error Unable to decode metadata record..."},
      {__LINE__, "1:150 index/notes/1.txt", "", "", "150 rec=1:150",
       "get_dir_entries_v1: reading directory '~/index/notes/1.txt' failed: ..."},
      // Walks end, and so does what leads deeper.
      {__LINE__, "1:150 index/" + deep + "1.rec", "", "", "150 rec=1:150",
       "/d: more than 64 directories deep"},
      {__LINE__, "2:100 2:" + deep + "1", "", "",
       "error ~2/" + deep.substr(0, 127) + ": more than 64 directories deep"},
      // A record beside the directories of records has no subspace to tell.
      {__LINE__, "1:150 160.rec", "index_subspace_lookup_nested=True", "", "150 rec=1:150",
       "bh_fetchss_range: add_subspace_to_ss for ('~/160.rec', '160') failed: 'The record file "
       "'~/160.rec' has an invalid pathname.'"},
  };
  for (const question_t &row : rows) ask(row);
}

// The tree does the indexing.
TEST_F(storage_test, a_range_reads_its_buckets_alone) {
  constexpr std::int64_t BUCKETS = 1000, EACH = 100;
  for (std::int64_t i = 0; i < BUCKETS * EACH; i++)
    put("2:" + std::to_string(i / EACH * 10000 + i % EACH));
  open();
  const std::string bucket = "5000000-5009999", answer = range(bucket);
  EXPECT_EQ(std::ranges::count(answer, '|'), EACH - 1);
  std::vector<std::string> opened = storage->calls;
  std::erase_if(opened, [](const std::string &call) { return !call.starts_with("opendir "); });
  EXPECT_THAT(opened,
              testing::ElementsAre(whole("opendir ~/2.0/meta_rec"), whole("opendir ~2/_ts10k_500"),
                                   whole("opendir ~/index")));
  EXPECT_EQ(storage->count("next"), BUCKETS + 1 + EACH + 1);
  EXPECT_EQ(storage->count("open"), EACH);
  const std::ptrdiff_t buffered = storage->count("read");
  EXPECT_LE(buffered, 2 * EACH);

  storage->calls.clear();
  EXPECT_THAT(range("5000042"), HasSubstr("5000042"));
  EXPECT_EQ(storage->count("opendir"), 0);
  EXPECT_EQ(storage->count("open"), 2);  // the first layout has its say

  storage->calls.clear();
  open("index_cache_enabled=False");
  EXPECT_EQ(range(bucket), answer);
  EXPECT_GT(storage->count("read"), buffered);
}

}  // namespace
}  // namespace qvr::test
