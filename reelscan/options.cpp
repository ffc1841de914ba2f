#include "options.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "debug_words.h"
#include "export_spec.h"
#include "msg.h"
#include "report_spec.h"
#include "spec_reader.h"

namespace qvr {

namespace {

constexpr std::int32_t REFUSED = 13022;
constexpr std::int32_t REFUSED_BOOTSTRAP = 15022;
constexpr std::uint32_t PLAIN_ERROR = MSG_STDERR | MSG_NO_PREFIX;

// What the option at hand works on. An option that is refused answers false.
struct scan_t {
  const option_services_t &services;
  settings_t &settings;
  request_t &request;
  const char *argument;
  const char *refusal = nullptr;  // the text of a parser

  bool parsed(const char *error) {
    refusal = error;
    return error == nullptr;
  }
};

bool second_report(std::int32_t code) {
  msg_print(203009, code, PLAIN_ERROR,
            "only one of -m, -p, -B, -S, -L, -X or -r may be specified\n");
  return false;
}

bool attributes(scan_t &scan) {
  if (scan.settings.attr_texts.size() >= WAITING_TEXTS_MAX) {
    msg_print(144307, REFUSED, PLAIN_ERROR, "Only %d -A options can be used.\n",
              {{MSG_ARG_INT, msg_arg_int(WAITING_TEXTS_MAX)}});
    return false;
  }
  scan.settings.attr_texts.push_back(scan.argument);
  scan.settings.attr_spec_count++;
  return true;
}

bool all(scan_t &scan) {
  scan.settings.query_count++;
  scan.settings.all_count++;
  return true;
}

bool bootstrap(scan_t &scan) {
  if (scan.settings.bootstrap_count++ > 0) return second_report(REFUSED_BOOTSTRAP);
  scan.settings.query_count++;
  return true;
}

bool client_inventory_asked(scan_t &scan) {
  scan.settings.client_id_count++;
  return true;
}

void add_name(std::vector<std::string> &names, std::string_view name) {
  auto same = [name](const std::string &other) { return same_word(other, name); };
  if (std::none_of(names.begin(), names.end(), same)) names.emplace_back(name);
}

bool client(scan_t &scan) {
  scan.settings.query_count++;
  scan.settings.client_count++;
  add_name(scan.settings.client_names, scan.argument);
  std::string canonical = scan.services.canonical_host(scan.argument);
  if (!canonical.empty()) add_name(scan.settings.client_names, canonical);
  return true;
}

bool debug(scan_t &scan) {
  scan.settings.debug_level = std::atoi(scan.argument);
  debug_set_level(scan.settings.debug_level);
  return true;
}

bool history(scan_t &scan) {
  scan.settings.history++;
  return true;
}

bool iso_times(scan_t &scan) {
  scan.settings.iso_times = true;
  return true;
}

bool virtual_machines(scan_t &scan) {
  scan.settings.vm_count++;
  scan.settings.all_count++;
  return true;
}

bool linear(scan_t &scan) {
  return scan.settings.linear_count++ == 0 || second_report(REFUSED);
}

bool long_linear(scan_t &scan) {
  scan.settings.long_linear = true;
  return linear(scan);
}

bool no_aliases(scan_t &scan) {
  if (scan.settings.client_count == 0) {
    msg_print(164228, REFUSED, PLAIN_ERROR,
              "-c <clientname> needs to be used before the -l option\n");
    return false;
  }
  scan.settings.client_alias_match = false;
  return true;
}

bool media(scan_t &scan) {
  if (scan.settings.media_count++ > 0) return second_report(REFUSED);
  scan.settings.query_count++;
  return true;
}

bool name(scan_t &scan) {
  if (scan.settings.name_texts.size() >= WAITING_TEXTS_MAX) {
    msg_print(144308, REFUSED, PLAIN_ERROR, "Only %d -N options can be used.\n",
              {{MSG_ARG_INT, msg_arg_int(WAITING_TEXTS_MAX)}});
    return false;
  }
  scan.settings.name_texts.push_back(scan.argument);
  scan.settings.query_count++;
  return true;
}

bool volume_inventory_asked(scan_t &scan) {
  scan.settings.volume_id_count++;
  return true;
}

bool order(scan_t &scan) {
  if (scan.settings.sort_order) {
    msg_print(164231, REFUSED, PLAIN_ERROR, "only one -o allowed\n");
    return false;
  }
  std::string_view letters = scan.argument;
  if (letters.find_first_not_of(SORT_LETTERS) != std::string_view::npos) {
    msg_print(164230, REFUSED, PLAIN_ERROR,
              "invalid sorting order specifier, choose from `celmnotR'\n");
    return false;
  }
  scan.settings.sort_order = letters;
  scan.settings.query_count++;
  return true;
}

bool plain(scan_t &scan) {
  scan.settings.plain_count++;
  return true;
}

bool query(scan_t &scan) {
  if (scan.settings.query_texts.size() >= WAITING_TEXTS_MAX) {
    msg_print(144309, REFUSED, PLAIN_ERROR, "Only %d -q options can be used.\n",
              {{MSG_ARG_INT, msg_arg_int(WAITING_TEXTS_MAX)}});
    return false;
  }
  scan.settings.query_texts.push_back(scan.argument);
  scan.settings.query_spec_count++;
  scan.settings.query_count++;
  return true;
}

bool report(scan_t &scan) {
  scan.settings.report_given = 1;
  if (holds_word(scan.argument, "mediafile") || holds_word(scan.argument, "mediarec")) {
    scan.settings.media_position_asked = true;
  }
  return scan.parsed(parse_report_spec(scan.argument, scan.request.report_columns));
}

bool server(scan_t &scan) {
  if (scan.settings.server_name) {
    msg_print(164232, REFUSED, PLAIN_ERROR, "only one -s allowed\n");
    return false;
  }
  scan.settings.server_name = scan.argument;
  return true;
}

bool since(scan_t &scan) {
  scan.settings.query_count++;
  return scan.parsed(parse_query_shortcut('t', scan.argument, scan.request.query_constraints,
                                          scan.services.name_to_id));
}

bool until(scan_t &scan) {
  scan.settings.end_time_count++;
  return scan.parsed(parse_query_shortcut('T', scan.argument, scan.request.query_constraints,
                                          scan.services.name_to_id));
}

bool very_verbose(scan_t &scan) {
  scan.settings.very_verbose_count++;
  return true;
}

bool verbose(scan_t &scan) {
  scan.settings.verbose_count++;
  return true;
}

bool summary(scan_t &scan) {
  scan.settings.summary_count++;
  return true;
}

struct export_row_t {
  export_form_t form;
  export_kind_t kind;
};

constexpr export_row_t export_rows[] = {
    {{'c', "delimiter", "delimited text"}, EXPORT_DELIMITED},
    {{'p', "printf-string", "a printf string"}, EXPORT_PRINTF},
    {{'m', nullptr, "XML"}, EXPORT_XML},
    {{'q', nullptr, "nothing: exit status and messages only"}, EXPORT_QUOTED},
};

// The kind by the first letter; none after a message.
export_kind_t export_kind_of(std::string_view text) {
  if (text.empty()) {
    msg_print(164234, REFUSED, PLAIN_ERROR, "no exportspec specified for -x\n");
    return EXPORT_NONE;
  }
  auto row = std::find_if(std::begin(export_rows), std::end(export_rows),
                          [&](const export_row_t &each) { return each.form.letter == text[0]; });
  if (row == std::end(export_rows)) {
    msg_print(164236, REFUSED, PLAIN_ERROR, "unknown exportspec for -x\n");
    return EXPORT_NONE;
  }
  if (row->form.parameter == nullptr || text.size() > 1) return row->kind;
  if (row->kind == EXPORT_DELIMITED) {
    msg_print(6138, REFUSED, PLAIN_ERROR, "no delimiter-char specified for -xc<delimiter-char>");
  } else {
    msg_print(164235, REFUSED, PLAIN_ERROR, "no printf-string specified for -xp<printf-string>\n");
  }
  return EXPORT_NONE;
}

bool export_form(scan_t &scan) {
  if (scan.settings.export_kind != EXPORT_NONE) {
    msg_print(164233, REFUSED, PLAIN_ERROR, "only one -x allowed\n");
    return false;
  }
  std::string_view text = scan.argument;
  scan.settings.export_kind = export_kind_of(text);
  if (scan.settings.export_kind == EXPORT_NONE) return false;
  if (text.size() > EXPORT_TEXT_MAX) {
    return scan.parsed(spec_error(6106, "value of `%s' is too long", {{MSG_ARG_TEXT, "-x"}}));
  }
  scan.settings.export_spec = text;
  return true;
}

struct option_row_t {
  option_form_t form;
  bool (*work)(scan_t &);
};

constexpr option_row_t option_rows[] = {
    {{'A', "attrspec", "attribute that a save set must or must not carry"}, attributes},
    {{'a', nullptr, "all: no default time"}, all},
    {{'B', nullptr, "bootstrap save sets"}, bootstrap},
    {{'C', nullptr, "clients and their identifiers"}, client_inventory_asked},
    {{'c', "client", "save sets of this client"}, client},
    {{'D', "level", "debug output up to this level"}, debug},
    {{'h', nullptr, "history of changes"}, history},
    {{'I', nullptr, "times in the form 2026-11-22T14:30:00"}, iso_times},
    {{'k', nullptr, "virtual machines"}, virtual_machines},
    {{'L', nullptr, "linear report with long identifiers"}, long_linear},
    {{'l', nullptr, "compare client names by their text alone"}, no_aliases},
    {{'m', nullptr, "volumes"}, media},
    {{'N', "name", "save sets of this name"}, name},
    {{'O', nullptr, "volumes and their identifiers"}, volume_inventory_asked},
    {{'o', "order", "sort order"}, order},
    {{'p', nullptr, "save times, browse and retention limits"}, plain},
    {{'q', "queryspec", "query"}, query},
    {{'r', "reportspec", "columns of the report"}, report},
    {{'S', nullptr, "linear report"}, linear},
    {{'s', "server", "server to ask"}, server},
    {{'t', "time", "save sets from this time on"}, since},
    {{'T', "time", "changes up to this time"}, until},
    {{'V', nullptr, "longest default report"}, very_verbose},
    {{'v', nullptr, "longer default report"}, verbose},
    {{'X', nullptr, "summary of what was saved"}, summary},
    {{'x', "exportspec", "export form"}, export_form},
};

// The rows as getopt takes them. The "+" stops it at the first operand, as POSIX has it.
std::string option_letters() {
  std::string letters = "+";
  for (const option_row_t &row : option_rows) {
    letters += row.form.letter;
    if (row.form.argument != nullptr) letters += ':';
  }
  return letters;
}

}  // namespace

std::vector<option_form_t> option_forms() {
  std::vector<option_form_t> forms;
  for (const option_row_t &row : option_rows) forms.push_back(row.form);
  return forms;
}

std::vector<export_form_t> export_forms() {
  std::vector<export_form_t> forms;
  for (const export_row_t &row : export_rows) forms.push_back(row.form);
  return forms;
}

bool scan_options(int argc, char **argv, const option_services_t &services, settings_t &settings,
                  request_t &request, const char *&refusal) {
  std::string letters = option_letters();
  refusal = nullptr;
  optind = 0;  // a scan may follow another one
  opterr = 0;
  for (int letter; (letter = getopt(argc, argv, letters.c_str())) != -1;) {
    auto row =
        std::find_if(std::begin(option_rows), std::end(option_rows),
                     [letter](const option_row_t &each) { return each.form.letter == letter; });
    if (row == std::end(option_rows)) return false;
    scan_t scan{services, settings, request, optarg};
    if (row->work(scan)) continue;
    refusal = scan.refusal;
    return false;
  }
  for (int i = optind; i < argc; i++) settings.operands.push_back(argv[i]);
  if (argc > 0) settings.last_argument = argv[argc - 1];
  return true;
}

bool unescape_export_spec(settings_t &settings) {
  if (settings.export_kind == EXPORT_NONE) return true;
  std::string argument = std::exchange(settings.export_spec, {});
  int bad = rpt_check_spec(argument, settings.export_spec);
  if (bad < 0) return true;
  char letter = argument[static_cast<std::size_t>(bad)];
  msg_print(38592, REFUSED, PLAIN_ERROR,
            "-x printf-spec contains %%%c[...], but only %%s is allowed\n",
            {{MSG_ARG_CHAR, msg_arg_char(letter)}});
  return false;
}

}  // namespace qvr
