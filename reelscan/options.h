// The command line: options in the POSIX form, then volume names.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "query_spec.h"
#include "request.h"
#include "settings.h"

namespace qvr {

inline constexpr int WAITING_TEXTS_MAX = 1000;        // of -A, -N and -q each
inline constexpr std::size_t EXPORT_TEXT_MAX = 1023;  // bytes behind -x

inline constexpr std::string_view SORT_LETTERS = "celmnotR";  // of -o

// One option, as manuals and completions tell it.
struct option_form_t {
  char letter;
  const char *argument;  // what it is called; null: the option takes none
  const char *summary;
};
std::vector<option_form_t> option_forms();

// One form of -x.
struct export_form_t {
  char letter;
  const char *parameter;  // what stands behind the letter; null: nothing has to
  const char *summary;
};
std::vector<export_form_t> export_forms();

// What an option asks of other floors.
struct option_services_t {
  name_to_id_t name_to_id;
  // The canonical name of a host; empty when it does not resolve.
  std::string (*canonical_host)(std::string_view name);
};

// Reads all options. -t, -T and -r are parsed as they come and go into `request`; -A, -N and -q
// wait in `settings`. False when the usage text has to follow: a message has told why, or `refusal`
// points to the text of a parser, or an option is unknown and there is nothing to tell. Uses the
// process-wide state of getopt(3): main thread, and `argv` outlives the settings.
bool scan_options(int argc, char **argv, const option_services_t &services, settings_t &settings,
                  request_t &request, const char *&refusal);

// Works out the text behind the letter of -x: control characters in place, and no conversion but
// "%s". False, after a message, when there is another one.
bool unescape_export_spec(settings_t &settings);

}  // namespace qvr
