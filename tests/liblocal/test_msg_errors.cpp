#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "err_class.h"
#include "msg.h"
#include "msg_process.h"
#include "progname.h"

namespace qvr {
namespace {

// Texts with an id of 0 have none.
TEST(err, numbers_of_classes) {
  struct {
    int line, cls, number;
    std::int32_t code, id;
    const char *text;
  } rows[] = {
      {__LINE__, 1, 0, 11000, 0, "Success"},
      {__LINE__, 1, 2, 15002, 0, "No such file or directory"},
      {__LINE__, 1, 4, 13004, 0, "Interrupted system call"},
      {__LINE__, 1, 16, 13016, 0, "Device or resource busy"},
      {__LINE__, 1, 110, 13110, 0, "Connection timed out"},
      {__LINE__, 2, 0, 21000, 340, "Success"},
      {__LINE__, 2, 1, 25001, 80301, "Can't encode arguments"},
      {__LINE__, 2, 4, 24004, 80796, "RPC receive operation failed"},
      {__LINE__, 2, 23, 25023, 363, "Recv got uderr indication"},
      {__LINE__, 2, 24, 23024, 80304, "Asynchronous RPC in progress"},
      {__LINE__, 2, 29, 24029, 80309, "Can't store request"},
      {__LINE__, 2, 30, 25030, 0, "Unknown error code: 30"},
      {__LINE__, 3, 0, 31000, 307, ""},
      {__LINE__, 3, 16, 35016, 200956, "Unknown parent"},
      {__LINE__, 3, 32, 35032, 339, "Resource database busy"},
      {__LINE__, 3, 33, 32033, 84560, "Application ID is not recognized"},
      {__LINE__, 9, 3, 94003, 0, "Invalid or NULL session channel"},
      {__LINE__, 12, 0, 121000, 0, ""},
      {__LINE__, 12, 11, 123011, 77510, "The referenced credentials have expired"},
      {__LINE__, 12, 18, 125018, 77517, "The provided name was not a mechanism name"},
      {__LINE__, 13, 0, 131000, 0, "The operation completed successfully"},
      {__LINE__, 13, 9, 135009, 79343, "An error occurred as a result of an SSL protocol failure"},
      {__LINE__, 16, 10, 165010, 350, "RPC server is unavailable"},
      {__LINE__, 24, 1, 245001, 33720, "Unknown error."},
      {__LINE__, 24, 6, 245006, 142696, "The security token had an invalid stauts"},
      {__LINE__, 25, 2, 253002, 8120, "Out of memory"},
      {__LINE__, 25, 5, 253005, 144520, "Database query error"},
      {__LINE__, 5, 7, 50007, 0, "Unknown error"},
      {__LINE__, 33, 7, 330007, 0, "Unknown error"}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.line);
    errobj_t *error = err_from_table(r.cls, r.number);
    EXPECT_EQ(error->code, r.code);
    EXPECT_EQ(error->text, r.text);
    EXPECT_EQ(error->message.args[0].type, r.id != 0 ? MSG_ARG_ATTR : MSG_ARG_ERRTEXT);
    EXPECT_EQ(error->message.args[0].text,
              r.id != 0 ? std::to_string(r.id) + ":" + r.text : std::string(r.text));
  }
  for (int cls : {2, 3, 9, 12, 13, 16, 24, 25}) {
    const err_class_row_t *row = err_class_row(cls);
    EXPECT_EQ(row->numbers.size(), static_cast<std::size_t>(row->entries) + 1);
  }
  EXPECT_STREQ(err_class_name(19), "SYSTEM_VSS");
  EXPECT_STREQ(err_class_name(36), "QVR");
  EXPECT_STREQ(err_class_name(4), "QVR");
  EXPECT_STREQ(err_severity_name(5), "critical");
  EXPECT_STREQ(err_severity_name(6), "info");
}

TEST(err, create_fills_severity_and_stamps) {
  ks_set_progname("reelscan");
  msg_set_host("unknown");
  errobj_t *error = err_create(900, 20010, "%s", {{0, "x"}});
  EXPECT_EQ(error->code, 25010);
  EXPECT_EQ(err_create(900, 24010, "x")->code, 24010);
  EXPECT_EQ(err_create(900, 50000, "x")->code, 50000);
  EXPECT_EQ(err_create(900, 10016, "x")->code, 15016);
  EXPECT_EQ(error->process, getpid());
  EXPECT_EQ(error->program, "reelscan");
  EXPECT_EQ(error->host, "unknown");
  msg_set_host("mars.example");
  EXPECT_EQ(err_create(900, 3000, "x")->host, "mars.example");
  msg_set_host("unknown");
  EXPECT_TRUE(err_is(25010, 2, 10) && err_is(20010, 2, 10) && !err_is(25011, 2, 10));
}

TEST(err, ring_of_32) {
  errobj_t *first = err_create(1, 3000, "first");
  const errobj_t kept = *first;
  for (int i = 0; i < 31; i++) err_create(2, 3000, "x");
  EXPECT_EQ(first->text, "first");
  EXPECT_EQ(err_create(3, 3000, "33rd"), first);
  EXPECT_EQ(first->text, "33rd");
  // A copy of the object whose slot the copy itself takes.
  for (int i = 0; i < 31; i++) err_create(2, 3000, "x");
  EXPECT_EQ(err_dup(first)->text, "33rd");
  EXPECT_EQ(err_dup(nullptr), nullptr);
  errobj_t *copy = err_dup(&kept);
  EXPECT_EQ(copy->text, "first");
  err_clear(copy);
  EXPECT_EQ(copy->text, "");
  EXPECT_EQ(copy->code, 0);
}

TEST(err, an_error_inside_an_error_outlives_its_slot) {
  errobj_t *inner = err_create(1, 3000, "inner %s", {{12, "mars"}});
  for (int i = 0; i < 31; i++) err_create(2, 3000, "x");
  // This one takes the slot of its own argument.
  errobj_t *outer = err_create(3, 3000, "outer [%s]", {msg_pair_t(inner)});
  EXPECT_EQ(outer, inner);
  for (int i = 0; i < 5; i++) err_create(2, 3000, "x");
  EXPECT_EQ(outer->text, "outer [inner mars]");
  EXPECT_EQ(outer->message.args[0].type, MSG_ARG_ENCODED);
  EXPECT_EQ(outer->message.args[0].text, "1 8 inner %s 1 12 4 mars");
}

TEST(err, whole_objects_as_text_and_in_replies) {
  errobj_t error = *err_create(900, 23007, "at %s", {{12, "mars"}});
  error.time = 1700000000;
  error.thread = 4000000000u;
  error.process = 12;
  error.tag = -3;
  error.host = "venus";
  error.program = "my prog";
  const std::string rest = "1700000000 -294967296 12 -3 venus 7 my prog 900 5 at %s 1 12 4 mars";
  EXPECT_EQ(err_encode(error), "at mars " + rest);
  const std::string wire = err_to_wire(error);
  EXPECT_EQ(wire, std::string("at mars") + '\0' + rest);
  errobj_t *back = err_from_wire(23007, wire);
  EXPECT_EQ(err_encode(*back), err_encode(error));
  EXPECT_EQ(back->thread, 4000000000u);
  EXPECT_EQ(err_from_wire(0, wire), nullptr);
  EXPECT_EQ(err_from_wire(20007, wire)->code, 24007);
  // What does not parse is a plain text, whatever is missing.
  for (std::size_t size = 7; size < wire.size(); size++) {
    SCOPED_TRACE(size);
    back = err_from_wire(23007, std::string_view(wire).substr(0, size));
    EXPECT_EQ(back->text, "at mars");
    bool whole = size + std::string(" 1 12 4 mars").size() == wire.size();
    EXPECT_EQ(back->host, whole ? "venus" : "unknown");
  }
}

TEST(err, threads_have_rings_of_their_own) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) {
    threads.emplace_back([t] {
      errobj_t *first = err_create(t + 1, 3000, "%d", {{1, msg_arg_int(t)}});
      for (int i = 0; i < 31; i++) err_create(9, 3000, "x %s", {msg_pair_t(first)});
      EXPECT_EQ(first->text, std::to_string(t));
    });
  }
  for (std::thread &thread : threads) thread.join();
}

}  // namespace
}  // namespace qvr
