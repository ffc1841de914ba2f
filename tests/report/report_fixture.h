// Fields and a stream that holds what a report wrote.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "fields.h"

namespace qvr {

inline mr_t make_field(std::string_view key, rpt_type type, std::string title,
                       std::string long_name, std::string short_title, std::uint64_t width = 10) {
  mr_t field;
  field.mr_key = key;
  field.mr_type = type;
  field.mr_title = std::move(title);
  field.mr_longname = std::move(long_name);
  field.mr_short = std::move(short_title);
  field.has_short = true;
  field.mr_width = width;
  return field;
}

inline mr_t make_space_field() {
  mr_t field = make_field("space", RPT_STRING, "", "space", "", 1);
  field.mr_id = RPT_SPACE_ID;
  return field;
}

inline mr_t make_newline_field() {
  mr_t field = make_field("newline", RPT_STRING, "", "newline", "", 1);
  field.mr_id = RPT_NEWLINE_ID;
  return field;
}

// A stream in a file that goes with it.
class captured_stream {
 public:
  captured_stream() : file_(std::tmpfile()) {}
  ~captured_stream() { std::fclose(file_); }
  captured_stream(const captured_stream &) = delete;
  captured_stream &operator=(const captured_stream &) = delete;

  std::FILE *file() { return file_; }
  // What has been written since the last call.
  std::string take() {
    std::fflush(file_);
    std::string text;
    std::fseek(file_, from_, SEEK_SET);
    for (int c; (c = std::fgetc(file_)) != EOF;) text += static_cast<char>(c);
    from_ = std::ftell(file_);
    return text;
  }

 private:
  std::FILE *file_;
  long from_ = 0;
};

}  // namespace qvr
