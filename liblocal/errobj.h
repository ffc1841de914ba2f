// Structured texts and error objects: what every fallible operation of the house returns.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

// What a message argument is. Only ATTR, CHAR, ENCODED and ERROBJ are rendered in a way of their
// own.
enum msg_arg_type : int {
  MSG_ARG_TEXT = 0,
  MSG_ARG_INT = 1,
  MSG_ARG_LONG = 2,
  MSG_ARG_UINT = 5,
  MSG_ARG_FIELD = 10,
  MSG_ARG_ATTR = 11,
  MSG_ARG_HOST = 12,
  MSG_ARG_USER = 13,
  MSG_ARG_ADDRESS = 14,
  MSG_ARG_PROGRAM = 20,
  MSG_ARG_DEVICE = 21,
  MSG_ARG_VOLUME = 22,
  MSG_ARG_PATH = 23,
  MSG_ARG_ERRTEXT = 24,
  MSG_ARG_RESOURCE = 25,
  MSG_ARG_GROUP = 26,
  MSG_ARG_POOL = 27,
  MSG_ARG_CHAR = 29,
  MSG_ARG_SAVETIME = 34,
  MSG_ARG_TIMETEXT = 35,
  MSG_ARG_TIME = 36,
  MSG_ARG_NAME = 42,
  MSG_ARG_PORTRANGE = 46,
  MSG_ARG_ENCODED = 49,
  MSG_ARG_SAVESET = 51,
  MSG_ARG_ERROBJ = 52,
};

// An argument that a structured text owns: its type and its value as text.
struct msg_arg_t {
  int type = MSG_ARG_TEXT;
  std::string text;
};

struct strtxt_t {
  std::int32_t id = 0;  // 0: no id, never translated
  std::string format;   // in English
  std::vector<msg_arg_t> args;
};

struct errobj_t {
  std::int32_t code = 0;  // class * 10000 + severity * 1000 + number
  std::string text;       // rendered at creation in the default language
  std::int64_t time = 0;  // seconds since 1970
  std::uint32_t thread = 0;
  std::int32_t process = 0;
  std::int32_t tag = 0;
  std::string host;  // at most 255 bytes
  std::string program;
  strtxt_t message;
};

// An argument as a call passes it: it borrows. A null value (data() == nullptr) prints "null".
struct msg_pair_t {
  msg_pair_t(int type_, std::string_view value_) : type(type_), value(value_) {}
  msg_pair_t(int type_, const char *value_)
      : type(type_), value(value_ ? std::string_view(value_) : std::string_view()) {}
  msg_pair_t(int type_, const std::string &value_) : type(type_), value(value_) {}
  explicit msg_pair_t(const errobj_t *error) : type(MSG_ARG_ERROBJ), err(error) {}

  int type;
  std::string_view value;
  const errobj_t *err = nullptr;  // with MSG_ARG_ERROBJ
};
using msg_pairs = std::initializer_list<msg_pair_t>;

constexpr int err_class(std::int32_t code) {
  return code / 10000;
}
constexpr int err_severity(std::int32_t code) {
  return code / 1000 % 10;
}
constexpr int err_number(std::int32_t code) {
  return code % 1000;
}
// True when `code` is of this class and number, whatever its severity.
constexpr bool err_is(std::int32_t code, int cls, int number) {
  return err_class(code) == cls && err_number(code) == number;
}

// Makers. The result lies in the calling thread's ring of 32 error objects: it is valid until 32
// more have been made in this thread, and nobody frees it. Null stands for success everywhere.
// A severity of 0 in `code` is filled from the class table.
errobj_t *err_create(std::int32_t id, std::int32_t code, const char *format, msg_pairs args = {});
errobj_t *err_from_table(int cls, int number);
errobj_t *err_from_text(int cls, int number, std::string_view text);
// A copy in the ring, independent of its source; null for null.
errobj_t *err_dup(const errobj_t *error);
// Empties the object and releases what its members hold; it stays in its ring.
void err_clear(errobj_t *error);
// Prints to the standard error stream, with a newline.
void err_print(const errobj_t *error);

// A whole error object as one text: rendered text, time, thread, process, tag, host, length of the
// program name, program name and the encoded message, each separated by a blank.
std::string err_encode(const errobj_t &error);

// The form in a reply: the plain text and, for a structured message, one NUL byte and the rest of
// the encoded form behind its first field. Reading gives an error object in the ring: with the
// fields of the encoded form, or of `code` and the plain text when there is no such rest or it does
// not parse. Null for code 0.
std::string err_to_wire(const errobj_t &error);
errobj_t *err_from_wire(std::int32_t code, std::string_view text);

}  // namespace qvr
