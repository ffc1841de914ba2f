#include "call_log.h"

#include <charconv>
#include <fstream>
#include <span>

#include "json_line.h"

namespace qvr {

namespace {

struct number_row_t {
  std::string_view name;
  std::uint64_t (*get)(const lab_event &);
  void (*set)(lab_event &, std::uint64_t);
};

template <auto Member>
constexpr number_row_t number_row(std::string_view name) {
  return {name, [](const lab_event &event) -> std::uint64_t { return event.*Member; },
          [](lab_event &event, std::uint64_t value) {
            event.*Member = static_cast<std::remove_cvref_t<decltype(event.*Member)>>(value);
          }};
}

struct text_row_t {
  std::string_view name;
  std::string lab_event::*member;
};

constexpr text_row_t HEAD_TEXTS[] = {
    {"event", &lab_event::event}, {"daemon", &lab_event::daemon}, {"address", &lab_event::address}};
constexpr number_row_t CALL_NUMBERS[] = {number_row<&lab_event::prog>("prog"),
                                         number_row<&lab_event::vers>("vers"),
                                         number_row<&lab_event::proc>("proc")};
constexpr text_row_t CALL_TEXTS[] = {{"name", &lab_event::name},
                                     {"auth", &lab_event::auth},
                                     {"status", &lab_event::status},
                                     {"fault", &lab_event::fault}};
constexpr number_row_t REPLY_NUMBERS[] = {number_row<&lab_event::records>("records"),
                                          number_row<&lab_event::bytes>("bytes")};

void put_texts(json_line &line, const lab_event &event, std::span<const text_row_t> rows) {
  for (const text_row_t &row : rows) {
    if (!(event.*row.member).empty()) line.add(row.name, event.*row.member);
  }
}

void put_numbers(json_line &line, const lab_event &event, std::span<const number_row_t> rows) {
  for (const number_row_t &row : rows) line.add(row.name, row.get(event));
}

// A cursor over one object as json_line writes it.
class line_reader {
 public:
  explicit line_reader(std::string_view text) : rest_(text) { skip('{'); }

  bool member(std::string &name, std::string_view &value) {
    skip(',');
    if (!string(name) || !skip(':')) return false;
    std::string_view from = rest_;
    pass_value();
    value = from.substr(0, from.size() - rest_.size());
    return !value.empty();
  }

  static std::string unquote(std::string_view value) {
    line_reader reader(value);
    std::string text;
    reader.string(text);
    return text;
  }

 private:
  bool skip(char c) {
    if (rest_.empty() || rest_[0] != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  bool string(std::string &text) {
    text.clear();
    if (!skip('"')) return false;
    while (!rest_.empty() && rest_[0] != '"') {
      if (rest_[0] == '\\' && rest_.starts_with("\\u") && rest_.size() >= 6) {
        unsigned code = 0;
        std::from_chars(rest_.data() + 2, rest_.data() + 6, code, 16);
        text += static_cast<char>(code);
        rest_.remove_prefix(6);
        continue;
      }
      if (rest_[0] == '\\') rest_.remove_prefix(1);
      if (rest_.empty()) return false;
      text += rest_[0];
      rest_.remove_prefix(1);
    }
    return skip('"');
  }

  void pass_value() {
    int depth = 0;
    std::string text;
    while (!rest_.empty()) {
      char c = rest_[0];
      if (c == '"') {
        if (!string(text)) return;
        if (depth == 0) return;
        continue;
      }
      if ((c == ',' || c == '}') && depth == 0) return;
      if (c == '{' || c == '[') depth++;
      if (c == '}' || c == ']') depth--;
      rest_.remove_prefix(1);
      if ((c == '}' || c == ']') && depth == 0) return;
    }
  }

  std::string_view rest_;
};

void take_member(lab_event &event, std::string_view name, std::string_view value) {
  for (std::span<const text_row_t> rows :
       {std::span<const text_row_t>(HEAD_TEXTS), std::span<const text_row_t>(CALL_TEXTS)}) {
    for (const text_row_t &row : rows) {
      if (row.name == name) event.*row.member = line_reader::unquote(value);
    }
  }
  std::uint64_t number = 0;
  std::from_chars(value.data(), value.data() + value.size(), number);
  if (name == "conn") event.conn = number;
  for (std::span<const number_row_t> rows : {std::span<const number_row_t>(CALL_NUMBERS),
                                             std::span<const number_row_t>(REPLY_NUMBERS)}) {
    for (const number_row_t &row : rows) {
      if (row.name == name) row.set(event, number);
    }
  }
  if (name == "args") event.args = std::string(value);
}

}  // namespace

std::string lab_event::line() const {
  json_line line;
  line.add("conn", conn);
  put_texts(line, *this, HEAD_TEXTS);
  if (event != "call") return line.text();
  put_numbers(line, *this, CALL_NUMBERS);
  put_texts(line, *this, CALL_TEXTS);
  line.add_raw("args", args);
  put_numbers(line, *this, REPLY_NUMBERS);
  return line.text();
}

bool call_log::open(const std::string &path) {
  file_.reset(std::fopen(path.c_str(), "we"));
  return file_ != nullptr;
}

void call_log::add(const lab_event &event) {
  std::string line = file_ != nullptr ? event.line() + "\n" : std::string();
  std::lock_guard lock(mutex_);
  if (keep_) events_.push_back(event);
  if (file_ == nullptr) return;
  std::fwrite(line.data(), 1, line.size(), file_.get());
  // A reader may look at any time, and a lab that is killed leaves what happened.
  std::fflush(file_.get());
}

std::vector<lab_event> call_log::events() const {
  std::lock_guard lock(mutex_);
  return events_;
}

void call_log::clear() {
  std::lock_guard lock(mutex_);
  events_.clear();
}

std::vector<lab_event> read_call_log(const std::string &path) {
  std::vector<lab_event> events;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    lab_event event;
    line_reader reader(line);
    std::string name;
    std::string_view value;
    while (reader.member(name, value)) take_member(event, name, value);
    if (!event.event.empty()) events.push_back(std::move(event));
  }
  return events;
}

}  // namespace qvr
