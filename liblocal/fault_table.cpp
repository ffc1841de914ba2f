#include "fault_table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>

#include "debug_words.h"
#include "host_parts.h"
#include "immortal.h"
#include "install_paths.h"

namespace qvr {

namespace {

constexpr const char *forward_kind = "dnslu";
constexpr const char *reverse_kind = "rdnslu";
constexpr std::size_t file_max = FAULT_LINES_MAX * FAULT_LINE_MAX;

struct table_t {
  std::mutex lock;  // guards the table until it is loaded; it never changes after
  std::optional<std::vector<fault_t>> faults;
};

table_t &table() {
  static immortal<table_t> the_table;
  return *the_table;
}

std::string_view take_line(std::string_view &text) {
  std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

// The fields between blanks, up to one more than a line may have.
std::size_t split(std::string_view line, std::array<std::string_view, 4> &fields) {
  constexpr std::string_view blanks = " \t\r\v\f";
  std::size_t count = 0;
  while (count < fields.size()) {
    std::size_t start = line.find_first_not_of(blanks);
    if (start == std::string_view::npos) break;
    line.remove_prefix(start);
    std::size_t end = std::min(line.find_first_of(blanks), line.size());
    fields[count++] = line.substr(0, end);
    line.remove_prefix(end);
  }
  return count;
}

int size_of(std::string_view text) {
  return static_cast<int>(text.size());
}

std::string_view cut_line(std::string_view line) {
  if (line.size() <= FAULT_LINE_MAX) return line;
  line = line.substr(0, FAULT_LINE_MAX);
  KS_DEBUG(7,
           "ks_inet_rdlr_load_config_file(): line '%s...' exceeds max %d characters ... ignoring "
           "excess characters\n",
           std::string(line).c_str(), static_cast<int>(FAULT_LINE_MAX));
  return line;
}

void dump(const std::vector<fault_t> &faults) {
  KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): cache dump:\n");
  for (std::size_t i = 0; i < faults.size(); i++) {
    KS_DEBUG(7, "\tfc[%d]: f1='%s' f2='%s' f3='%s'\n", static_cast<int>(i), faults[i].kind.c_str(),
             faults[i].what.c_str(), faults[i].effect.c_str());
  }
}

std::vector<fault_t> load() {
  KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): ENTER\n");
  std::vector<fault_t> faults;
  std::string path = install_fault_table();
  std::unique_ptr<std::FILE, int (*)(std::FILE *)> file(std::fopen(path.c_str(), "re"),
                                                        std::fclose);
  if (file == nullptr) {
    KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): open file error ... ignoring file\n");
  } else {
    KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): detected %s\n", path.c_str());
    std::string text;
    char block[4096];
    for (std::size_t got;
         text.size() < file_max && (got = std::fread(block, 1, sizeof block, file.get())) != 0;) {
      text.append(block, got);
    }
    faults = fault_table_parse(text);
  }
  KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): EXIT\n");
  return faults;
}

const std::vector<fault_t> &loaded() {
  table_t &all = table();
  std::lock_guard hold(all.lock);
  if (!all.faults) all.faults = load();
  return *all.faults;
}

}  // namespace

std::vector<fault_t> fault_table_parse(std::string_view text) {
  std::vector<fault_t> faults;
  auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  if (!text.empty() && text.back() != '\n') lines++;
  std::size_t room = std::min(lines, FAULT_LINES_MAX);
  KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): fc_est_cnt number lines = %d\n",
           static_cast<int>(lines));
  while (!text.empty()) {
    std::string_view line = cut_line(take_line(text));
    std::array<std::string_view, 4> fields;
    std::size_t count = split(line, fields);
    if (count != 3 || (fields[0] != forward_kind && fields[0] != reverse_kind)) {
      KS_DEBUG(7, "ks_inet_rdlr_load_config_file(): non-configuration line ... ignoring '%.*s'\n",
               size_of(line), line.data());
      continue;
    }
    if (faults.size() >= room) {
      KS_DEBUG(7,
               "ks_inet_rdlr_load_config_file(): line is above maximum number cached lines %d "
               "allocated ... ignoring '%.*s'\n",
               static_cast<int>(room), size_of(line), line.data());
      continue;
    }
    faults.push_back({std::string(fields[0]), std::string(fields[1]), std::string(fields[2])});
    KS_DEBUG(7,
             "ks_inet_rdlr_load_config_file(): Caching line field1='%s' field2='%s' field3='%s'\n",
             faults.back().kind.c_str(), faults.back().what.c_str(), faults.back().effect.c_str());
  }
  dump(faults);
  return faults;
}

const fault_t *fault_of_host(const char *host) {
  for (const fault_t &fault : loaded()) {
    if (fault.kind == forward_kind && host_same_text(fault.what.c_str(), host) &&
        host_same_text(fault.effect.c_str(), "sim_error")) {
      return &fault;
    }
  }
  return nullptr;
}

const fault_t *fault_of_address(const char *address) {
  for (const fault_t &fault : loaded()) {
    if (fault.kind == reverse_kind &&
        (fault.what == "*" || host_same_text(fault.what.c_str(), address))) {
      return &fault;
    }
  }
  return nullptr;
}

void host_forget_faults() {
  std::lock_guard hold(table().lock);
  table().faults.reset();
}

}  // namespace qvr
