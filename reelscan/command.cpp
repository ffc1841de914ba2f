#include "command.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "app_identity.h"
#include "atexit_list.h"
#include "attr_spec.h"
#include "canonical_host.h"
#include "client_constraints.h"
#include "client_identity.h"
#include "client_start.h"
#include "debug_words.h"
#include "default_report.h"
#include "field_catalogue.h"
#include "gss_install.h"
#include "history_report.h"
#include "hosts.h"
#include "inventory.h"
#include "ks_wrappers.h"
#include "kstr_auth.h"
#include "msg.h"
#include "options.h"
#include "out_of_memory.h"
#include "progname.h"
#include "query_spec.h"
#include "report_spec.h"
#include "request.h"
#include "run_report.h"
#include "session.h"
#include "settings.h"
#include "spec_reader.h"
#include "summary_report.h"
#include "text_convert.h"
#include "usage.h"

namespace qvr {

namespace {

constexpr std::int32_t REFUSED = 13022;
constexpr std::uint32_t PLAIN_ERROR = MSG_STDERR | MSG_NO_PREFIX;

using ended = std::optional<int>;  // the exit status of a run that ends here

// What stands once the options are read, and the steps that lead from there to the report. A step
// that ends the run gives its exit status.
class command_t {
 public:
  command_t(const settings_t &settings, request_t &&request, std::string local_host)
      : settings_(settings), request_(std::move(request)), local_host_(std::move(local_host)) {
    request_.sort_order = settings.sort_order;
  }
  ~command_t();
  command_t(const command_t &) = delete;
  command_t &operator=(const command_t &) = delete;

  ended connect();
  ended print_inventory();
  ended parse_names();
  ended parse_queries();
  ended parse_attributes();
  ended answer_help();
  ended check_history();
  ended check_report();
  ended check_one_report();
  ended add_default_time();
  ended add_bootstrap_query();
  ended add_volumes();
  ended add_default_report();
  ended add_virtual_machines();
  ended choose_server();
  ended open_resources();
  ended publish_resources();
  ended add_clients();
  int dispatch();

 private:
  ended show_usage(const char *refusal = nullptr) { return usage(settings_.program, refusal); }
  ended parsed(const char *refusal) { return refusal != nullptr ? show_usage(refusal) : ended(); }
  const char *parse_shortcut(char option, std::string_view value) {
    return parse_query_shortcut(option, value, request_.query_constraints, index_name_to_id);
  }
  const char *parse_query(std::string_view text) {
    return parse_query_spec(text, request_.query_constraints, index_name_to_id);
  }

  const settings_t &settings_;
  request_t request_;
  std::string local_host_;
  resdb_ptr resources_;
};

command_t::~command_t() {
  request_.resources = nullptr;
  set_client_rap(nullptr);
  resources_.reset();
  mif_set_server({});
}

// A server that cannot be reached is the first thing that a user hears of, before any refusal of a
// query.
ended command_t::connect() {
  mif_set_noretry(true);
  mif_set_server(settings_.server_name ? std::string_view(*settings_.server_name)
                                       : std::string_view());
  if (mif_connect() == MIF_CONNECTED) return {};
  msg_print(
      167325, REFUSED, MSG_STDERR, "Unable to connect to media database server on host %s: %s\n",
      {{MSG_ARG_HOST, settings_.server_name.value_or(local_host_)}, msg_pair_t(mif_last_error())});
  return 2;
}

ended command_t::print_inventory() {
  const settings_t &s = settings_;
  if (s.volume_id_count == 0 && s.client_id_count == 0) return {};
  // -k and -q stand in two of the counters; what stands in none may stand beside an inventory.
  int others = s.client_id_count + s.volume_id_count + s.all_count + s.client_count +
               s.attr_spec_count + s.bootstrap_count + s.plain_count + s.summary_count +
               s.vm_count + s.media_count + s.history + s.end_time_count + s.report_given +
               s.query_spec_count + s.query_count;
  if (others >= 2) {
    if (s.volume_id_count != 0) {
      msg_print(203963, REFUSED, PLAIN_ERROR,
                "O option cannot be combined with any other options.\n");
    } else {
      msg_print(203964, REFUSED, PLAIN_ERROR,
                "C option cannot be combined with any other options.\n");
    }
    return show_usage();
  }
  return s.volume_id_count != 0 ? volume_inventory() : client_inventory();
}

ended command_t::parse_names() {
  for (std::string_view name : settings_.name_texts) {
    if (const char *refusal = parse_shortcut('N', name)) return show_usage(refusal);
  }
  return {};
}

ended command_t::parse_queries() {
  for (std::string_view text : settings_.query_texts) {
    if (const char *refusal = parse_query(text)) return show_usage(refusal);
    if (request_.old_forever_shown || !holds_word(text, "*qvr_old_forever_time")) continue;
    request_.old_forever_shown = true;
    KS_DEBUG(1, "Enabling the display of the old forever retention time as absolute value.\n");
  }
  return {};
}

ended command_t::parse_attributes() {
  for (std::string_view text : settings_.attr_texts) {
    if (const char *refusal = parse_attr_spec(text, request_.attr_constraints)) {
      return show_usage(refusal);
    }
  }
  return {};
}

ended command_t::answer_help() {
  bool asked = settings_.operands.empty() && settings_.last_argument == "--help";
  return asked ? show_usage() : ended();
}

ended command_t::check_history() {
  const settings_t &s = settings_;
  if (s.history == 0) return {};
  if (s.attr_spec_count + s.all_count + s.bootstrap_count + s.plain_count + s.summary_count +
          s.media_count !=
      0) {
    msg_print(198538, REFUSED, PLAIN_ERROR,
              "only -t, -T, -q, -c, -N, -r, and -v may be specified together with -h\n");
    return show_usage();
  }
  if (!s.operands.empty()) return show_usage();
  if (validate_fields(true, request_.query_constraints, request_.report_columns)) return {};
  msg_print(198539, REFUSED, MSG_STDERR, "Invalid query or report specifiers for history query.\n");
  return 1;
}

ended command_t::check_report() {
  if (settings_.history != 0) return {};
  if (settings_.end_time_count != 0) {
    msg_print(208086, REFUSED, PLAIN_ERROR, "Usage of -T without -h is not allowed.\n");
    return show_usage();
  }
  if (validate_fields(false, request_.query_constraints, request_.report_columns)) return {};
  msg_print(198540, REFUSED, MSG_STDERR, "Invalid query or report specifiers.\n");
  return 1;
}

ended command_t::check_one_report() {
  const settings_t &s = settings_;
  if (s.bootstrap_count + s.media_count + s.linear_count + s.plain_count + s.report_given +
          s.summary_count <
      2) {
    return {};
  }
  msg_print(203009, REFUSED, PLAIN_ERROR,
            "only one of -m, -p, -B, -S, -L, -X or -r may be specified\n");
  return show_usage();
}

ended command_t::add_default_time() {
  return settings_.query_count == 0 ? parsed(parse_shortcut('t', "yesterday")) : ended();
}

ended command_t::add_bootstrap_query() {
  if (settings_.bootstrap_count == 0) return {};
  // A time that was given stands: these two may be refused.
  parse_shortcut('N', "bootstrap");
  if (settings_.all_count == 0) parse_shortcut('t', "5 weeks ago");
  if (!request_.sort_order) request_.sort_order = "t";
  return parsed(parse_query("!incomplete"));
}

ended command_t::add_volumes() {
  for (std::string_view volume : settings_.operands) {
    if (!volume.starts_with('-') && parse_shortcut(' ', volume) == nullptr) continue;
    msg_print(164237, REFUSED, PLAIN_ERROR, "invalid volume name `%.60s'\n",
              {{MSG_ARG_VOLUME, volume}});
    return show_usage();
  }
  return {};
}

ended command_t::add_default_report() {
  for (std::string_view spec : default_report(settings_)) {
    if (const char *refusal = parse_report_spec(spec, request_.report_columns)) {
      return show_usage(refusal);
    }
  }
  return {};
}

ended command_t::add_virtual_machines() {
  return settings_.vm_count != 0 ? parsed(parse_query("vmname=ALL_VM")) : ended();
}

ended command_t::choose_server() {
  request_.server = settings_.server_name.value_or(local_host_);
  return {};
}

ended command_t::open_resources() {
  errobj_t *error = server_rap_open(request_.server, resources_);
  if (error == nullptr) return {};
  err_print(error);
  return 2;
}

ended command_t::publish_resources() {
  set_client_rap(resources_.get());
  return {};
}

ended command_t::add_clients() {
  client_outcome_t outcome =
      add_client_constraints(settings_, get_client_by_name, index_name_to_id, request_);
  if (outcome.unknown) {
    msg_print(23734, REFUSED, MSG_STDERR, "invalid client name: %s\n",
              {{MSG_ARG_HOST, *outcome.unknown}});
    return 2;
  }
  return parsed(outcome.refusal);
}

int command_t::dispatch() {
  if (settings_.summary_count != 0) {
    request_.resources = resources_.get();
    std::string canonical = canonical_host(request_.server);
    return summary_report(settings_, request_, canonical.empty() ? request_.server : canonical);
  }
  if (settings_.history != 0) return history_report(settings_, request_);
  if (!settings_.linear()) close_report(request_.report_columns);
  request_.resources = resources_.get();
  return run_report(settings_, request_);
}

// The base name, up to its first ".".
std::string program_of(const char *path) {
  std::string_view name = path != nullptr ? path : "reelscan";
  name.remove_prefix(name.rfind('/') + 1);
  return std::string(name.substr(0, name.find('.')));
}

std::string start_runtime(int argc, char **argv) {
  ks_runtime_start();
  std::string program = program_of(argc > 0 ? argv[0] : nullptr);
  ks_set_progname(program);
  kstr_set_application(REELSCAN_APPLICATION, REELSCAN_PROCESS_KEY);
  gss_install();
  return program;
}

std::string start_client_library() {
  std::array<char, 256> host{};
  ks_getlocalhost(host.data(), host.size());
  qvr_client_init(host.data(), true);
  return host.data();
}

void build_texts() {
  translate_out_of_memory();
  field_catalogue();
  linear_catalogue();
}

// What a newcomer types: answered before any daemon is asked.
bool is_lone_help(int argc, char **argv) {
  return argc == 2 && std::string_view(argv[1]) == "--help";
}

}  // namespace

int run_command(int argc, char **argv) {
  text_converts_fd(STDOUT_FILENO);  // reads QVR_CATCH_CHILD_STDOUT, once for all
  settings_t scanned;
  scanned.program = start_runtime(argc, argv);
  if (is_lone_help(argc, argv)) return usage(scanned.program);
  std::string local_host = start_client_library();
  build_texts();

  request_t request;
  const char *refusal = nullptr;
  option_services_t services{index_name_to_id, canonical_host};
  if (!scan_options(argc, argv, services, scanned, request, refusal)) {
    return usage(scanned.program, refusal);
  }
  if (!unescape_export_spec(scanned)) return usage(scanned.program);
  const settings_t settings = std::move(scanned);

  command_t command(settings, std::move(request), std::move(local_host));
  static constexpr ended (command_t::*steps[])() = {
      &command_t::connect,
      &command_t::print_inventory,
      &command_t::parse_names,
      &command_t::parse_queries,
      &command_t::parse_attributes,
      &command_t::answer_help,
      &command_t::check_history,
      &command_t::check_report,
      &command_t::check_one_report,
      &command_t::add_default_time,
      &command_t::add_bootstrap_query,
      &command_t::add_volumes,
      &command_t::add_default_report,
      &command_t::add_virtual_machines,
      &command_t::choose_server,
      &command_t::open_resources,
      &command_t::publish_resources,
      &command_t::add_clients,
  };
  for (auto step : steps) {
    if (ended status = (command.*step)()) return *status;
  }
  return command.dispatch();
}

void keep_standard_descriptors() {
  // Opened for reading, so that what is written there fails and is told.
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
    if (fcntl(fd, F_GETFD) < 0 && open("/dev/null", O_RDONLY) < 0) return;
  }
}

void widen_output() {
  // A report is long: a write for each of the file system's small blocks would be a hundred for
  // one.
  static char buffer[64 * 1024];
  if (isatty(STDOUT_FILENO) == 0) std::setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
}

void keep_freed_memory() {
  // Sorting a large report takes and gives back one block of megabytes after the other. Given back
  // to the system, each would come again page by page.
  constexpr int LARGEST = 32 << 20;  // the most that is allowed
  mallopt(M_MMAP_THRESHOLD, LARGEST);
  mallopt(M_TRIM_THRESHOLD, 4 * LARGEST);
}

int finish_output(int status) {
  errno = 0;
  bool failed = std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
  // Some file systems tell only at the close that there was no room.
  int copy = failed ? -1 : dup(STDOUT_FILENO);
  if (!failed && copy >= 0 && close(copy) == 0) return status;
  int error = errno != 0 ? errno : EIO;
  msg_print(0, 15000 + error, MSG_STDERR, "reelscan: cannot write to the standard output: %s\n",
            {{MSG_ARG_ERRTEXT, ks_strerror(error)}});
  return 1;
}

}  // namespace qvr
