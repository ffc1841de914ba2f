#include "msg_log.h"

#include <array>
#include <cctype>
#include <ctime>

#include "dates.h"
#include "err_class.h"

namespace qvr {

namespace {

constexpr std::size_t LOGGED_TEXT_MAX = 8191;

void append_words(std::string &line, std::initializer_list<std::int64_t> numbers) {
  for (std::int64_t number : numbers) {
    line += std::to_string(number);
    line += ' ';
  }
}

std::string program_in_one_word(const std::string &program) {
  std::string word;
  for (char c : program) {
    if (std::isspace(static_cast<unsigned char>(c)) == 0) word += c;
  }
  return word;
}

// What stands behind the host: program, class and severity.
std::string head_names(const errobj_t &error) {
  return program_in_one_word(error.program) + ' ' + err_class_name(err_class(error.code)) + ' ' +
         err_severity_name(err_severity(error.code));
}

std::string format_on_one_line(std::string_view format) {
  if (format.ends_with('\n')) format.remove_suffix(1);
  std::string out;
  for (char c : format) {
    if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
  return out;
}

std::string value_on_one_line(const msg_arg_t &arg) {
  std::string value = arg.text;
  if (arg.type == MSG_ARG_TEXT || arg.type == MSG_ARG_ERRTEXT || arg.type == MSG_ARG_TIMETEXT) {
    std::erase(value, '\n');
  } else if (arg.type == MSG_ARG_ENCODED) {
    for (char &c : value) c = c == '\n' ? ' ' : c;
  }
  bool limited = arg.type == MSG_ARG_TEXT || arg.type == MSG_ARG_ERRTEXT;
  if (limited && value.size() > LOGGED_TEXT_MAX) value.resize(LOGGED_TEXT_MAX);
  return value;
}

std::string date_and_time(std::int64_t when) {
  std::time_t seconds = static_cast<std::time_t>(when);
  std::tm local{};
  std::array<char, 256> buffer{};
  if (localtime_r(&seconds, &local) == nullptr) return {};
  return {buffer.data(), ks_strftime(buffer, "%x %X ", local)};
}

std::string line_start(const errobj_t &error, bool identity) {
  std::string line = std::to_string(error.message.id) + ' ' + date_and_time(error.time);
  if (identity) {
    line += ' ' + std::to_string(error.thread) + ' ' + std::to_string(error.process) + ' ' +
            std::to_string(error.tag);
  }
  return line + ' ';
}

}  // namespace

std::string msg_raw_line(const errobj_t &error) {
  std::string line;
  append_words(line, {error.message.id, error.time, err_severity(error.code), err_class(error.code),
                      err_number(error.code), error.thread, error.process, error.tag});
  line += error.host + ' ' + head_names(error) + ' ';
  std::string format = format_on_one_line(error.message.format);
  line += std::to_string(format.size()) + ' ' + format + ' ' +
          std::to_string(error.message.args.size());
  if (line.size() > MSG_LOG_LINE_MAX) line.resize(MSG_LOG_LINE_MAX);
  for (const msg_arg_t &arg : error.message.args) {
    std::string value = value_on_one_line(arg);
    std::string part =
        ' ' + std::to_string(arg.type) + ' ' + std::to_string(value.size()) + ' ' + value;
    if (line.size() + part.size() > MSG_LOG_LINE_MAX) break;
    line += part;
  }
  return line;
}

std::string msg_rendered_line(const errobj_t &error, const char *text, bool identity) {
  return line_start(error, identity) + head_names(error) + ' ' + text + '\n';
}

std::string msg_further_line(const errobj_t &error, const char *text, bool identity) {
  return line_start(error, identity) + text + '\n';
}

}  // namespace qvr
