// The output sink: where the values of a report go, in the form that -x asked for.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "columns.h"
#include "row_text.h"

namespace qvr {

enum rpt_form : std::uint32_t {
  RPT_FORM_NONE = 0,       // plain text
  RPT_FORM_DELIMITED = 1,  // -xc
  RPT_FORM_PRINTF = 2,     // -xp
  RPT_FORM_QUIET = 3,      // -xq
  RPT_FORM_XML = 4,        // -xm
};

struct rptout_events_t;

// A sink belongs to one thread; its text reaches the stream when a row ends, in one piece, and at
// the latest when the sink goes. Open for the functions below and the sinks; nobody else writes to
// its members.
struct rptout_t {
  rptout_t(std::optional<std::string> spec_, rpt_form form_, bool through_messages_,
           std::FILE *stream_);
  ~rptout_t();
  rptout_t(const rptout_t &) = delete;
  rptout_t &operator=(const rptout_t &) = delete;

  std::optional<std::string> spec;  // there with -x: the delimiter or the printf string
  rpt_form form;
  const rptout_events_t *events;
  bool through_messages;  // plain text counts as messages, whose length is bounded
  std::FILE *stream;
  bool exempted = false;  // this sink has exempted the stream from conversion

  row_text row;                     // what the current row prints
  bool row_has_content = false;     // set by every value
  bool first = true;                // no value of this row yet
  bool result_open = false;         // an XML result is open
  bool any_value = false;           // a value of a delimited row is not empty
  std::uint32_t arguments = 0;      // values of a printf row
  std::vector<std::string> pieces;  // the printf string, cut behind each conversion
  std::uint32_t conversions = 0;    // how many of them end in one
};

// Makes a sink over a stream that outlives it. `spec` is null without -x. `through_messages`: plain
// text is cut as a message is. With RPT_FORM_XML the stream's descriptor gets its text unconverted
// for as long as the sink lives.
std::unique_ptr<rptout_t> rptout_create(std::optional<std::string> spec, rpt_form form,
                                        bool through_messages, std::FILE *stream = stdout);

// In all of these a view without data stands for null.

// A value; null takes the column's stored value. Plain text gets a newline.
void rptout_emit(rptout_t &out, std::string_view text, const report_column_t &column);
// A column's title in the header: its long name in an export form.
void rptout_emit_title(rptout_t &out, const report_column_t &column);
// A value between the texts that the linear catalogue puts around it.
void rptout_emit_linear(rptout_t &out, std::string_view text, const report_column_t &column);
// Text as it is.
void rptout_print(rptout_t &out, std::string_view text);
// Prints what the row has and is ready for the next. A printf string whose conversions do not
// match the values prints message 126 or 127 and ends the process with status 1 at once: nothing
// registered for the exit runs, since other threads may still be at work.
void rptout_end_row(rptout_t &out);
// Hands what is composed to the stream without ending a row.
void rptout_flush(rptout_t &out);

// What each form does; one constant table a form (sinks.cpp).
struct rptout_events_t {
  // The value is trimmed where -x is given, and valid UTF-8 for XML.
  void (*value)(rptout_t &out, std::string_view text, const report_column_t &column);
  // Composes the end of a row that has content.
  void (*end_row)(rptout_t &out);
  bool prints;  // false: values, titles and raw text alike come to nothing
  bool titles;  // false: a header row comes to nothing
};
const rptout_events_t &rptout_events(rpt_form form);

// A message's printed text is cut here, at the border of a character.
inline constexpr std::size_t RPT_MESSAGE_MAX = 18431;
inline std::string_view rptout_message_part(std::string_view text,
                                            std::size_t limit = RPT_MESSAGE_MAX) {
  if (text.size() <= limit) return text;
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) limit--;
  return text.substr(0, limit);
}

}  // namespace qvr
