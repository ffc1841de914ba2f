#include "errobj.h"

#include <unistd.h>

#include <charconv>
#include <cstring>
#include <ctime>

#include "err_class.h"
#include "msg.h"
#include "msg_format.h"
#include "msg_process.h"
#include "msg_rings.h"
#include "strtxt_parts.h"

namespace qvr {

namespace {

constexpr std::size_t HOST_MAX = 255;

// An error that says one text, which `type` describes.
errobj_t *one_text_error(int cls, int number, int severity, int type, std::string_view text) {
  errobj_t *error = msg_next_error();
  errobj_stamp(*error);
  error->code = cls * 10000 + severity * 1000 + number;
  error->message.format = "%s";
  error->message.args.push_back({type, std::string(text)});
  error->text = msg_render_nested("C", error->message, 0);
  return error;
}

// The encoded form from behind the rendered text.
std::string encode_rest(const errobj_t &error) {
  std::string out = std::to_string(error.time);
  for (std::int64_t number : {std::int64_t{static_cast<std::int32_t>(error.thread)},
                              std::int64_t{error.process}, std::int64_t{error.tag}}) {
    out += ' ';
    out += std::to_string(number);
  }
  out += ' ';
  out += error.host.empty() ? "unknown" : error.host;
  out += ' ';
  out += std::to_string(error.program.size());
  out += ' ';
  out += error.program;
  out += ' ';
  out += strtxt_encode(error.message);
  return out;
}

template <class Number>
bool take_field(std::string_view &text, Number &number) {
  auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (problem != std::errc() || end == text.data() + text.size() || *end != ' ') return false;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
  return true;
}

bool take_word(std::string_view &text, std::string &word) {
  std::size_t end = text.find(' ');
  if (end == std::string_view::npos || end == 0 || end > HOST_MAX) return false;
  word.assign(text.substr(0, end));
  text.remove_prefix(end + 1);
  return true;
}

bool decode_rest(std::string_view text, errobj_t &error) {
  std::int64_t thread = 0;  // written signed, read either way
  std::size_t program = 0;
  if (!take_field(text, error.time) || !take_field(text, thread) ||
      !take_field(text, error.process) || !take_field(text, error.tag) ||
      !take_word(text, error.host) || !take_field(text, program)) {
    return false;
  }
  if (thread < INT32_MIN || thread > UINT32_MAX) return false;
  error.thread = static_cast<std::uint32_t>(thread);
  if (program >= text.size() || text[program] != ' ') return false;
  error.program.assign(text.substr(0, program));
  return strtxt_decode(text.substr(program + 1), error.message);
}

}  // namespace

void errobj_stamp(errobj_t &error) {
  error.time = std::time(nullptr);
  error.thread = msg_thread_id();
  error.process = getpid();
  error.tag = msg_outlets().tag;
  error.host = msg_host();
  error.program = msg_program();
}

errobj_t *err_create(std::int32_t id, std::int32_t code, const char *format, msg_pairs args) {
  if (format == nullptr) return nullptr;
  // Filled before the ring's next slot is emptied: an argument may lie there.
  strtxt_t message;
  strtxt_fill(message, id, format, args);
  errobj_t *error = msg_next_error();
  errobj_stamp(*error);
  error->code = err_fill_severity(code);
  error->message = std::move(message);
  error->text = msg_render_nested("C", error->message, 0);
  return error;
}

errobj_t *err_from_table(int cls, int number) {
  bool has_id = false;
  std::string entry = err_number_entry(cls, number, has_id);
  constexpr int resource_in_use = 16;  // EBUSY, which only here counts as an error
  int severity =
      cls == ERR_SYSTEM && number == resource_in_use ? 3 : err_default_severity(cls, number);
  return one_text_error(cls, number, severity, has_id ? MSG_ARG_ATTR : MSG_ARG_ERRTEXT, entry);
}

errobj_t *err_from_text(int cls, int number, std::string_view text) {
  std::string kept(text);
  return one_text_error(cls, number, err_default_severity(cls, number), MSG_ARG_ERRTEXT, kept);
}

errobj_t *err_dup(const errobj_t *error) {
  if (error == nullptr) return nullptr;
  errobj_t kept = *error;
  errobj_t *copy = msg_next_error();
  *copy = std::move(kept);
  return copy;
}

void err_clear(errobj_t *error) {
  if (error != nullptr) *error = errobj_t();
}

void err_print(const errobj_t *error) {
  msg_deliver(error, MSG_STDERR);
}

std::string err_encode(const errobj_t &error) {
  return error.text + " " + encode_rest(error);
}

std::string err_to_wire(const errobj_t &error) {
  std::string out = error.text;
  if (error.message.format.empty()) return out;
  out += '\0';
  out += encode_rest(error);
  return out;
}

errobj_t *err_from_wire(std::int32_t code, std::string_view text) {
  if (code == 0) return nullptr;
  std::size_t plain = std::min(text.find('\0'), text.size());
  errobj_t error;
  if (plain < text.size() && decode_rest(text.substr(plain + 1), error)) {
    error.text.assign(text.substr(0, plain));
  } else {
    error = errobj_t();
    errobj_stamp(error);
    error.text.assign(text.substr(0, plain));
    error.message.format = "%s";
    error.message.args.push_back({MSG_ARG_ERRTEXT, error.text});
  }
  error.code = err_fill_severity(code);
  errobj_t *made = msg_next_error();
  *made = std::move(error);
  return made;
}

}  // namespace qvr
