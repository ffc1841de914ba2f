// Keyed look-ups: their words for what is missing, absent or failed, and how long they try.
#include <gtest/gtest.h>

#include "fake_server.h"
#include "keyed_lookups.h"

namespace qvr {
namespace {

const ksui save_set = [] {
  ksui id = ksui_from_number(7);
  id.set_word(0, KSUI_SAVESET);
  return id;
}();
const ksui bare = ksui_from_number(9);

// One look-up of each kind, over the server that the test has set up.
errobj_t *by_id(std::uint32_t seconds) {
  ss_list found;
  return get_ss(&save_set, true, &found, seconds);
}
errobj_t *by_time(std::uint32_t seconds) {
  ss_list found;
  return get_ss_bytime("mars", 5, true, &found, seconds);
}
errobj_t *by_name(std::uint32_t seconds) {
  ss_list found;
  return get_ss_byname({false, "mars", "/", {}, 0, 0, true}, &found, seconds);
}
errobj_t *by_client(std::uint32_t seconds) {
  ss_list found;
  return get_ss_byname({false, "mars", {}, {}, 0, 0, true}, &found, seconds);
}
errobj_t *by_nothing(std::uint32_t seconds) {
  ss_list found;
  return get_ss_byname({false, {}, {}, {}, 5, 0, true}, &found, seconds);
}
errobj_t *by_range(std::uint32_t seconds) {
  ssr_reply reply;
  ss_page_t page;
  errobj_t *error = get_ss_range(&page, &reply, seconds);
  EXPECT_EQ(reply.status, error == nullptr ? MMDB_OK : MMDB_LOCAL_ERROR);
  return error;
}
errobj_t *volume(std::uint32_t seconds) {
  vol_list found;
  return get_volume(&bare, true, &found, seconds);
}
errobj_t *volumes_by_name(std::uint32_t seconds) {
  vol_list found;
  return get_volumes_byname("v.1", true, &found, seconds);
}
errobj_t *volume_by_name(std::uint32_t seconds) {
  vol_list found;
  return get_volume_byname("v.1", true, &found, seconds);
}

const std::string id_text = ksui_text(save_set, ksui_form::long_form);

struct {
  int line;
  errobj_t *(*look_up)(std::uint32_t seconds);
  std::int32_t absent_id, absent_code;
  std::string absent;
  std::int32_t failed_id;
  std::string failed;
} const rows[] = {
    {__LINE__, by_id, 86875, 85004, "Save-set ID '" + id_text + "' is not in media database.",
     145345, "Unable to query save set " + id_text + ": busy"},
    {__LINE__, by_time, 31991, 85004, "savetime 5 not in media db", 145347,
     "Unable to query save set time 5: busy"},
    {__LINE__, by_name, 86887, 82004, "Save-set '/' is not in media database.", 145346,
     "Unable to query save set 'mars:/': busy"},
    {__LINE__, by_client, 101968, 82004, "Client 'mars' is not in media database.", 145346,
     "Unable to query save set 'mars:': busy"},
    {__LINE__, by_nothing, 101969, 82004, "Media database query returned no results.", 145346,
     "Unable to query save set ':': busy"},
    {__LINE__, by_range, 0, 0, "", 144505, "Unable to query save sets by range: busy"},
    {__LINE__, volume, 86898, 85005, "Volume ID '9' is not in media database.", 145348,
     "Unable to query volume 9: busy"},
    {__LINE__, volumes_by_name, 86901, 85005, "Volume 'v.1' is not in media database.", 145349,
     "Unable to query volume 'v.1': busy"},
    {__LINE__, volume_by_name, 86901, 85005, "Volume 'v.1' is not in media database.", 145349,
     "Unable to query volume 'v.1': busy"},
};

TEST(keyed_lookups, words) {
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    fake_server server;
    // A list of none has the same bytes for save sets and volumes; a page has a word behind it.
    server.answer = [](std::uint32_t procedure, const std::string &) {
      return fake_answer{RPC_SUCCESS, ss_bytes({}, procedure == MMDB_GET_SS_RANGE ? 0 : -1)};
    };
    errobj_t *absent = row.look_up(60);
    EXPECT_EQ(absent != nullptr ? absent->message.id : 0, row.absent_id);
    EXPECT_EQ(absent != nullptr ? absent->code : 0, row.absent_code);
    EXPECT_EQ(absent != nullptr ? absent->text : "", row.absent);
    EXPECT_EQ(server.log.size(), 3u);  // connect, ping, one call

    server.answer = [](std::uint32_t, const std::string &) {
      return fake_answer{RPC_SUCCESS, error_bytes(85002, "busy")};
    };
    errobj_t *failed = row.look_up(60);
    ASSERT_NE(failed, nullptr);
    EXPECT_EQ(failed->message.id, row.failed_id);
    EXPECT_EQ(failed->code, 85002);
    EXPECT_EQ(failed->text, row.failed);
  }
}

// A lost connection: with no period the call is made twice by the one-shot retry; with one it is
// made again every five seconds until the period is over.
TEST(keyed_lookups, periods) {
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    for (std::uint32_t seconds : {0u, 10u}) {
      fake_server server;
      server.answer = [](std::uint32_t, const std::string &) {
        return fake_answer{RPC_CANTRECV, {}};
      };
      errobj_t *error = row.look_up(seconds);
      ASSERT_NE(error, nullptr);
      EXPECT_EQ(err_number(error->code), RPC_CANTRECV);
      EXPECT_EQ(error->message.id, row.failed_id);
      auto sleeps = std::count(server.log.begin(), server.log.end(), "sleep 5000");
      EXPECT_EQ(sleeps, seconds == 0 ? 0 : 3);
    }
  }
}

TEST(keyed_lookups, missing_arguments) {
  fake_server server;
  ss_list sets;
  vol_list vols;
  ssr_reply reply;
  ksui null;
  struct {
    int line;
    errobj_t *error;
    std::int32_t id, code;
  } missing[] = {
      {__LINE__, get_ss(nullptr, true, &sets, 0), 86873, 13022},
      {__LINE__, get_ss(&null, true, &sets, 0), 86873, 13022},
      {__LINE__, get_ss(&save_set, true, nullptr, 0), 86874, 13022},
      {__LINE__, get_ss_bytime("mars", 5, true, nullptr, 0), 86888, 13022},
      {__LINE__, get_ss_byname({}, nullptr, 0), 86886, 13022},
      {__LINE__, get_ss_range(nullptr, &reply, 0), 144504, 13022},
      {__LINE__, get_ss_range(nullptr, nullptr, 0), 86884, 82002},
      {__LINE__, get_volume(nullptr, true, &vols, 0), 86896, 85002},
      {__LINE__, get_volume(&bare, true, nullptr, 0), 86897, 85002},
  };
  for (const auto &row : missing) {
    SCOPED_TRACE(row.line);
    ASSERT_NE(row.error, nullptr);
    EXPECT_EQ(row.error->message.id, row.id);
    EXPECT_EQ(row.error->code, row.code);
  }
  for (errobj_t *error :
       {get_volumes_byname({}, true, &vols, 0), get_volume_byname("v.1", true, nullptr, 0)})
    EXPECT_TRUE(error != nullptr && err_is(error->code, 1, 22));
  EXPECT_TRUE(server.log.empty());
}

TEST(keyed_lookups, volume_by_name_is_the_first) {
  fake_server server;
  server.answer = [](std::uint32_t, const std::string &) {
    vol_t a, b;
    a.volid = ksui_from_number(1);
    b.volid = ksui_from_number(2);
    vol_reply reply;
    reply.status = MMDB_OK;
    reply.list.rows = {&a, &b};
    return fake_answer{RPC_SUCCESS, encoded(reply)};
  };
  vol_list found;
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_volume_byname("v.1", true, &found, 0), nullptr);
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "Duplicate entries found for volume v.1, specify volume by volume id\n"),
            std::string::npos);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found.rows[0]->volid.word(1), 1u);
}

TEST(keyed_lookups, volume_of_a_process_that_ends) {
  fake_server server;
  server.ends = true;
  vol_list found;
  errobj_t *error = get_volume(&bare, true, &found, 60);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->message.id, 208140);
  EXPECT_TRUE(server.log.empty());
}

}  // namespace
}  // namespace qvr
