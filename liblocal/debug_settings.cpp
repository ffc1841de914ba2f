#include "debug_settings.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string>

#include "debug_words.h"
#include "install_paths.h"
#include "msg_process.h"

namespace qvr {

debug_flags_t debug_flags;

namespace {

using number_t = long long;

// Each row gives the value that it stores for a number, and stores it.
struct setting_row_t {
  std::string_view name;
  std::string_view label;
  number_t (*get)();
  void (*set)(number_t value);
  number_t lowest = INT32_MIN;
  number_t highest = INT32_MAX;
  int base = 10;
};

template <auto word>
number_t flag_value() {
  return debug_flags.*word;
}

template <auto word>
void store_flag(number_t value) {
  debug_flags.*word = static_cast<int>(value);
}

constexpr number_t DEBUG_LEVEL_MAX = 15;
constexpr number_t DNS_THRESHOLD_MIN = 5;
constexpr number_t STEAL_EXCLUSION_DEFAULT = 30;

constexpr setting_row_t setting_rows[] = {
    {"Debug", "Debug level", [] { return number_t{debug_words.level}; },
     [](number_t value) { debug_set_level(static_cast<int>(std::min(value, DEBUG_LEVEL_MAX))); }},
    {"Trace", "Trace level", [] { return number_t{debug_words.mask}; },
     [](number_t value) { debug_set_mask(static_cast<std::uint32_t>(value)); }, 0, UINT32_MAX, 16},
    {"Vflag", "Vflag level", [] { return number_t{debug_words.verbosity}; },
     [](number_t value) { debug_words.verbosity = static_cast<int>(value); }},
    {"MsgID", "msgID print state", [] { return number_t{msg_outlets().force_id}; },
     [](number_t value) { msg_outlets().force_id = static_cast<int>(value); }},
    {"PrintDevInfo", "PrintDevInfo", flag_value<&debug_flags_t::print_dev_info>,
     store_flag<&debug_flags_t::print_dev_info>},
    {"PrintQvrAuthInfo", "PrintQvrAuthInfo", flag_value<&debug_flags_t::print_auth_info>,
     store_flag<&debug_flags_t::print_auth_info>},
    {"FlushDnsCache", "FlushDnsCache", flag_value<&debug_flags_t::flush_dns_cache>,
     store_flag<&debug_flags_t::flush_dns_cache>},
    {"PrintDnsCache", "PrintDnsCache", flag_value<&debug_flags_t::print_dns_cache>,
     store_flag<&debug_flags_t::print_dns_cache>},
    {"PrintInactiveClients", "PrintInactiveClientsCache",
     flag_value<&debug_flags_t::print_inactive_clients>,
     store_flag<&debug_flags_t::print_inactive_clients>},
    {"LogDnsThreshold", "LogDnsThreshold", flag_value<&debug_flags_t::log_dns_threshold>,
     [](number_t value) {
       bool too_low = value >= 1 && value < DNS_THRESHOLD_MIN;
       store_flag<&debug_flags_t::log_dns_threshold>(too_low ? DNS_THRESHOLD_MIN : value);
     }},
    {"JukeboxThrottle", "Jukebox Throttle", flag_value<&debug_flags_t::jukebox_throttle>,
     [](number_t value) {
       store_flag<&debug_flags_t::jukebox_throttle>(std::max(value, number_t{0}));
     }},
    {"DriveStealExclusion", "Drive Steal Exclusion",
     flag_value<&debug_flags_t::drive_steal_exclusion>,
     [](number_t value) {
       store_flag<&debug_flags_t::drive_steal_exclusion>(value < 0 ? STEAL_EXCLUSION_DEFAULT
                                                                   : value);
     }},
    {"PatchDebug", "Patch Debug", flag_value<&debug_flags_t::patch_debug>,
     store_flag<&debug_flags_t::patch_debug>},
    {"PrintDeviceSelection", "Print Device Selection",
     flag_value<&debug_flags_t::print_device_selection>,
     [](number_t) {
       int now = debug_flags.print_device_selection;
       store_flag<&debug_flags_t::print_device_selection>(now == 0 ? 1 : 0);
     }},
    {"JobsdbFullPurge", "JobsdbFullPurge", flag_value<&debug_flags_t::jobsdb_full_purge>,
     store_flag<&debug_flags_t::jobsdb_full_purge>},
};

// A line made and written with what a signal handler may call.
class plain_line {
 public:
  plain_line &add(std::string_view text) {
    used_ += text.copy(line_.data() + used_, line_.size() - used_);
    return *this;
  }
  plain_line &add(number_t number, int base = 10) {
    std::array<char, 24> digits;
    char *end = std::to_chars(digits.data(), digits.data() + digits.size(), number, base).ptr;
    return add({digits.data(), static_cast<std::size_t>(end - digits.data())});
  }
  void write_to_stderr() const {
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, line_.data(), used_);
  }

 private:
  std::array<char, 1536> line_;
  std::size_t used_ = 0;
};

constexpr std::string_view BLANKS = " \t\n";

std::string_view without_blanks(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(BLANKS), text.size()));
  return text.substr(0, text.find_last_not_of(BLANKS) + 1);
}

bool read_number(const setting_row_t &row, std::string_view text, number_t &number) {
  if (row.base == 16 && (text.starts_with("0x") || text.starts_with("0X"))) text.remove_prefix(2);
  const char *end = text.data() + text.size();
  auto [stop, error] = std::from_chars(text.data(), end, number, row.base);
  return error == std::errc() && stop == end && number >= row.lowest && number <= row.highest;
}

// Written once, before the handler is installed.
std::array<char, 4096> settings_path;

void act_on_file() {
  int file = open(settings_path.data(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (file < 0) return;
  std::array<char, 1024> text;
  ssize_t size = read(file, text.data(), text.size());
  if (size > 1) debug_settings_act({text.data(), static_cast<std::size_t>(size) - 1});
  close(file);
  unlink(settings_path.data());
}

void on_sigusr2(int) {
  int kept = errno;
  sigset_t signals, earlier;
  sigemptyset(&signals);
  sigaddset(&signals, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &signals, &earlier);
  act_on_file();
  pthread_sigmask(SIG_SETMASK, &earlier, nullptr);
  errno = kept;
}

}  // namespace

void debug_settings_act(std::string_view text) {
  std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return;
  std::string_view name = text.substr(0, equals);
  const setting_row_t *row =
      std::find_if(std::begin(setting_rows), std::end(setting_rows),
                   [&](const setting_row_t &candidate) { return candidate.name == name; });
  if (row == std::end(setting_rows)) return;
  std::string_view value = without_blanks(text.substr(equals + 1));
  number_t number = 0;
  if (!read_number(*row, value, number)) {
    plain_line().add(value).add(" is an invalid value for ").add(name).add("\n").write_to_stderr();
    return;
  }
  number_t before = row->get();
  row->set(number);
  plain_line()
      .add(static_cast<number_t>(text.size()))
      .add(" Changing ")
      .add(row->label)
      .add(" from ")
      .add(before, row->base)
      .add(" to ")
      .add(row->get(), row->base)
      .add(" 0\n")
      .write_to_stderr();
}

bool debug_settings_install() {
  std::string path = install_path(INSTALL_TMP, "ksdbg.tmp");
  if (path.size() >= settings_path.size()) return false;
  settings_path[path.copy(settings_path.data(), path.size())] = '\0';
  msg_outlets();  // made now: the handler must not be the first to ask for it
  struct sigaction action {};
  action.sa_handler = on_sigusr2;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  return sigaction(SIGUSR2, &action, nullptr) == 0;
}

}  // namespace qvr
