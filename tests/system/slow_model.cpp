#include "slow_model.h"

#include <fnmatch.h>
#include <regex.h>
#include <sqlite3.h>
#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <set>

namespace qvr::test {

namespace {

constexpr std::int64_t FOREVER = INT64_MAX, FOREVER_32 = 0x7fffffff, NO_END = 0xffffffff;

// The columns of each row by name.
using columns = std::map<std::string, std::string>;

bool each_row(sqlite3 *db, const std::string &sql,
              const std::function<void(const columns &)> &use) {
  auto take = [](void *context, int count, char **values, char **names) {
    columns row;
    for (int i = 0; i < count; i++) {
      if (values[i] != nullptr) row[names[i]] = values[i];
    }
    (*static_cast<const std::function<void(const columns &)> *>(context))(row);
    return 0;
  };
  auto *context = const_cast<std::function<void(const columns &)> *>(&use);
  return sqlite3_exec(db, sql.c_str(), take, context, nullptr) == SQLITE_OK;
}

std::int64_t number(const columns &row, const std::string &name) {
  return std::strtoll(row.at(name).c_str(), nullptr, 10);
}

bool same_text(const std::string &a, const std::string &b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

verdict sure(bool passes) {
  return passes ? verdict::YES : verdict::NO;
}
// Of answers that may each be right.
verdict either(const std::set<bool> &answers) {
  return answers.size() == 1 ? sure(*answers.begin()) : verdict::MAY;
}

bool is_forever(std::int64_t time) {
  return time == FOREVER || time == FOREVER_32;
}

bool time_fits(const slow_constraint &c, std::int64_t time) {
  if (c.single) return time == c.low || (is_forever(time) && is_forever(c.low));
  if (c.has_low && !is_forever(time) && (is_forever(c.low) || time < c.low)) return false;
  return !c.has_high || is_forever(c.high) || (!is_forever(time) && time <= c.high);
}

std::int64_t granularity(std::int64_t value) {
  if (value == 0) return 1;
  for (std::int64_t unit : {86400, 3600}) {
    if (value >= unit && value % unit == 0) return unit;
  }
  return value >= 60 && value % 60 == 0 ? 60 : 1;
}

bool duration_fits(const slow_constraint &c, std::int64_t span) {
  auto parts = [&](std::int64_t value, std::int64_t bound) { return value / granularity(bound); };
  if (is_forever(span) || (c.single && is_forever(c.low))) return time_fits(c, span);
  if (c.single) return parts(span, c.low) == parts(c.low, c.low);
  if (c.has_low && (is_forever(c.low) || parts(span, c.low) < parts(c.low, c.low))) return false;
  return !c.has_high || is_forever(c.high) || parts(span, c.high) <= parts(c.high, c.high);
}

bool number_fits(const slow_constraint &c, std::uint64_t value) {
  auto low = static_cast<std::uint64_t>(c.low), high = static_cast<std::uint64_t>(c.high);
  if (c.single) return value == low;
  return (!c.has_low || value >= low) && (!c.has_high || value <= high);
}

bool signed_fits(const slow_constraint &c, std::int64_t value) {
  if (c.single) return value == c.low;
  return (!c.has_low || value >= c.low) && (!c.has_high || value <= c.high);
}

bool text_fits(const slow_constraint &c, const std::string &text, bool any_case) {
  return std::any_of(c.texts.begin(), c.texts.end(), [&](const std::string &wanted) {
    return any_case ? same_text(wanted, text) : wanted == text;
  });
}

bool text_or_empty_fits(const slow_constraint &c, const std::string *text) {
  if (text == nullptr || text->empty())
    return std::find(c.texts.begin(), c.texts.end(), "") != c.texts.end();
  return text_fits(c, *text, true);
}

bool annotation_fits(const slow_constraint &c, const std::string *text) {
  if (text == nullptr) return false;
  return std::any_of(c.texts.begin(), c.texts.end(), [&](const std::string &pattern) {
    regex_t regex;
    if (regcomp(&regex, pattern.c_str(), REG_ICASE | REG_NOSUB) != 0) return false;
    bool found = regexec(&regex, text->c_str(), 0, nullptr, 0) == 0;
    regfree(&regex);
    return found;
  });
}

bool ssattr_fits(const slow_constraint &c, const slow_save_set &ss) {
  auto upper = [](std::string text) {
    for (char &ch : text) {
      if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 32);
    }
    return text;
  };
  for (std::size_t i = 0; i < c.texts.size(); i++) {
    bool present = false;
    for (const auto &[name, values] : ss.attrs) {
      present |= !values.empty() && fnmatch(upper(c.texts[i]).c_str(), upper(name).c_str(),
                                            FNM_PATHNAME | FNM_PERIOD) == 0;
    }
    if (present != c.equal[i]) return false;
  }
  return true;
}

// "value:cloneid cloneid ...". Without a copy the first value counts.
struct per_clone_value {
  std::string text;
  std::vector<std::string> clones;
};

std::vector<per_clone_value> per_clone_values(const slow_save_set &ss, const std::string &name) {
  std::vector<per_clone_value> list;
  auto found = ss.attrs.find(name);
  if (found == ss.attrs.end()) return list;
  for (const std::string &value : found->second) {
    per_clone_value one;
    std::size_t colon = value.find(':');
    one.text = value.substr(0, colon);
    one.clones.push_back(one.text);
    std::string rest = colon == std::string::npos ? "" : value.substr(colon + 1) + " ";
    for (std::size_t end; (end = rest.find(' ')) != std::string::npos; rest.erase(0, end + 1))
      one.clones.push_back(rest.substr(0, end));
    list.push_back(one);
  }
  return list;
}

const std::string *clone_value(const std::vector<per_clone_value> &list, const slow_clone *clone) {
  if (clone == nullptr) return list.empty() ? nullptr : &list.front().text;
  for (const per_clone_value &value : list) {
    if (std::find(value.clones.begin(), value.clones.end(), std::to_string(clone->cloneid)) !=
        value.clones.end())
      return &value.text;
  }
  return nullptr;
}

// Base and delta of a copy's retention.
std::pair<std::int64_t, std::int64_t> clone_retention(const slow_save_set &ss,
                                                      const slow_clone *clone) {
  auto found = ss.attrs.find("*ss clone retention");
  if (clone != nullptr && found != ss.attrs.end()) {
    for (const std::string &value : found->second) {
      long long id = 0, base = 0, delta = 0;
      if (std::sscanf(value.c_str(), "%lld:%lld:%lld", &id, &base, &delta) == 3 &&
          id == clone->cloneid)
        return {base, delta};
    }
  }
  return {ss.numbers.at("ssinsert"), ss.numbers.at("ssretent")};
}

std::int64_t limit(std::int64_t delta, std::int64_t base) {
  return delta == 0 ? 0 : slow_time_add(delta, base);
}

std::int64_t valid_copies(const slow_save_set &ss) {
  if ((ss.numbers.at("ssflags") & 0x11004) != 4) return 0;
  return std::count_if(ss.clones.begin(), ss.clones.end(), [](const slow_clone &clone) {
    return (clone.flags & 4) != 0 && (clone.flags & 0x31000) == 0;
  });
}

bool is_yes(const std::string *text) {
  return text != nullptr && same_text(*text, "yes");
}

std::int64_t number_of(const std::string *text) {
  return text == nullptr ? 0 : std::strtoll(text->c_str(), nullptr, 10);
}

// ---- The fields of a save set, with the copy that a value is asked of.

using ss_test = bool (*)(const slow_constraint &, const slow_save_set &, const slow_clone *);

template <auto Fits>
bool ss_column(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return Fits(c, ss.numbers.at(c.field));
}
bool ss_number(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return number_fits(c, static_cast<std::uint64_t>(ss.numbers.at(c.field)));
}
bool ss_limit(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  std::int64_t delta = ss.numbers.at(c.field);
  return time_fits(c, delta == NO_END ? FOREVER_32 : ss.numbers.at("ssinsert") + delta);
}
bool ss_flags(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return (ss.numbers.at("ssflags") & c.mask) == c.bits;
}
bool ss_client(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return text_fits(c, ss.client, false);
}
bool ss_name(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  std::string name = ss.name;
  while (!name.empty() && name.back() == ' ') name.pop_back();
  return text_fits(c, name, false);
}

struct attr_field {
  const char *field, *attr;
};
constexpr attr_field ATTR_FIELDS[] = {{"group", "group"},
                                      {"annotation", "annotation"},
                                      {"ssbundle", "save set bundle"},
                                      {"dedupe", "*De-duplication"},
                                      {"Zirrel", "*De-duplication"},
                                      {"rehydrated", "*Rehydrated"},
                                      {"syntheticfull", "*Synthetic full"},
                                      {"deviceless", "Deviceless backup"},
                                      {"checkpoint_id", "*checkpoint_id"},
                                      {"checkpoint_seq", "*checkpoint_seq"},
                                      {"vmname", "*vm_name"},
                                      {"totalvmdiskutil", "*totalvmdiskutil"},
                                      {"occupiedvmdiskutil", "*occupiedvmdiskutil"},
                                      {"rdz", "*restricted data zone"},
                                      {"ssprotect", "*policy protection period"},
                                      {"bhrltime", "*policy action BH retention time"},
                                      {"policy", "*policy name"},
                                      {"action", "*policy action name"},
                                      {"workflow", "*policy workflow name"}};

const char *attr_of(const slow_constraint &c) {
  for (const attr_field &row : ATTR_FIELDS) {
    if (c.field == row.field) return row.attr;
  }
  return "";
}
bool ss_group(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return text_or_empty_fits(c, ss.attr(attr_of(c)));
}
template <bool AnyCase>
bool ss_attr_text(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  const std::string *text = ss.attr(attr_of(c));
  return text != nullptr && text_fits(c, *text, AnyCase);
}
bool ss_annotation(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return annotation_fits(c, ss.attr("annotation"));
}
bool ss_vm(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  const std::string *text = ss.attr(attr_of(c));
  if (text == nullptr) return false;
  return (c.texts.size() == 1 && c.texts[0] == "ALL_VM") || text_fits(c, *text, true);
}
bool ss_keyword(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return is_yes(ss.attr(attr_of(c))) == c.truth;
}
bool ss_deviceless(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  const std::string *text = ss.attr(attr_of(c));
  return text != nullptr && (!c.truth || is_yes(text));
}
bool ss_protect(const slow_constraint &c, const slow_save_set &ss, const slow_clone *) {
  return time_fits(c, number_of(ss.attr(attr_of(c))));
}
bool ss_policy(const slow_constraint &c, const slow_save_set &ss, const slow_clone *clone) {
  return text_or_empty_fits(c, clone_value(per_clone_values(ss, attr_of(c)), clone));
}
bool ss_workflow(const slow_constraint &c, const slow_save_set &ss, const slow_clone *clone) {
  std::vector<per_clone_value> list = per_clone_values(ss, attr_of(c));
  std::set<std::string> names;
  for (const per_clone_value &value : list) names.insert(value.text);
  if (names.size() < 2) return ss_policy(c, ss, clone);
  return std::any_of(list.begin(), list.end(),
                     [&](const per_clone_value &value) { return text_fits(c, value.text, true); });
}

constexpr struct {
  const char *field;
  ss_test test;
} SS_TESTS[] = {
    {"ssid",
     [](const auto &c, const auto &ss, auto *) { return slow_same_id(ss.ssid, c.texts[0]); }},
    {"pssid",
     [](const auto &c, const auto &ss, auto *) { return slow_same_id(ss.pssid, c.texts[0]); }},
    {"clientid", [](const auto &c, const auto &ss, auto *) { return ss.clientid == c.texts[0]; }},
    {"ssflags", ss_flags},
    {"totalsize", ss_number},
    {"nfiles", ss_number},
    {"ssexp",
     [](const auto &c, const auto &ss, auto *) {
       return time_fits(c, limit(ss.numbers.at("ssretent"), ss.numbers.at("ssinsert")));
     }},
    {"copies",
     [](const auto &c, const auto &ss, auto *) { return number_fits(c, ss.clones.size()); }},
    {"ssbrowse", ss_limit},
    {"ssretent", ss_limit},
    {"ssinsert", ss_column<time_fits>},
    {"sscreate", ss_column<time_fits>},
    {"sscomp", ss_column<time_fits>},
    {"savetime", ss_column<time_fits>},
    {"group", ss_group},
    {"level", ss_column<signed_fits>},
    {"client", ss_client},
    {"name", ss_name},
    {"annotation", ss_annotation},
    {"clretent",
     [](const auto &c, const auto &ss, auto *clone) {
       auto [base, delta] = clone_retention(ss, clone);
       return time_fits(c, limit(delta, base));
     }},
    {"ssbundle", ss_attr_text<false>},
    {"dedupe", ss_keyword},
    {"Zirrel", ss_keyword},
    {"rehydrated", ss_keyword},
    {"syntheticfull", ss_keyword},
    {"deviceless", ss_deviceless},
    {"validcopies",
     [](const auto &c, const auto &ss, auto *) {
       return number_fits(c, static_cast<std::uint64_t>(valid_copies(ss)));
     }},
    {"checkpoint_id", ss_attr_text<false>},
    {"checkpoint_seq", ss_attr_text<false>},
    {"vmname", ss_vm},
    {"totalvmdiskutil", ss_vm},
    {"occupiedvmdiskutil", ss_vm},
    {"rdz", ss_attr_text<true>},
    {"ssattr", [](const auto &c, const auto &ss, auto *) { return ssattr_fits(c, ss); }},
    {"ssretentdur",
     [](const auto &c, const auto &ss, auto *) {
       std::int64_t span = ss.numbers.at("ssretent");
       return duration_fits(c, span == NO_END ? FOREVER_32 : span);
     }},
    {"clretentdur",
     [](const auto &c, const auto &ss, auto *clone) {
       std::int64_t span = clone_retention(ss, clone).second;
       return duration_fits(c, span == NO_END ? FOREVER_32 : span);
     }},
    {"bhrltime",
     [](const auto &c, const auto &ss, auto *clone) {
       return time_fits(c, number_of(clone_value(per_clone_values(ss, attr_of(c)), clone)));
     }},
    {"ssprotect", ss_protect},
    {"policy", ss_policy},
    {"action", ss_policy},
    {"workflow", ss_workflow},
};

ss_test ss_test_of(const std::string &field) {
  for (const auto &row : SS_TESTS) {
    if (field == row.field) return row.test;
  }
  return nullptr;
}

// ---- The fields of a volume. Two tests know them, and tell percentages and the figures of a
// read-only twin in two ways.

std::set<bool> percent_answers(const slow_constraint &c, const slow_volume &vol,
                               std::uint64_t written) {
  auto capacity = static_cast<std::uint64_t>(vol.numbers.at("capacity"));
  if ((vol.numbers.at("volflags") & 1) != 0) return {number_fits(c, 101)};
  auto held = [&](std::uint64_t value) {
    return number_fits(c, std::min<std::uint64_t>(value, 100));
  };
  if (capacity < 1000) return {held(written < capacity ? written * 100 / capacity : 100)};
  double exact = static_cast<double>(written) / (static_cast<double>(capacity) / 100);
  bool walked = held(static_cast<std::uint64_t>(exact));
  if (c.has_low && c.low == 1 && exact > 0 && exact < 1 && (!c.has_high || c.high >= 1))
    walked = true;
  return {held(written / (capacity / 100)), walked};
}

verdict of_volume_field(const slow_constraint &c, const slow_volume &vol) {
  static const std::set<std::string> times = {"volaccess", "olabel", "labeled", "volretent"};
  static const std::set<std::string> any_case = {"family", "type", "pool"};
  if (c.field == "volid") return sure(slow_same_id(vol.volid, c.texts[0]));
  if (vol.texts.count(c.field) != 0)
    return sure(text_fits(c, vol.texts.at(c.field), any_case.count(c.field) != 0));
  std::set<std::int64_t> written = {vol.numbers.at("written")};
  if (vol.twin_written >= 0) written.insert(vol.twin_written);
  std::set<bool> answers;
  if (c.field == "%used") {
    for (std::int64_t kilobytes : written)
      answers.merge(percent_answers(c, vol, static_cast<std::uint64_t>(kilobytes)));
    return either(answers);
  }
  if (c.field == "written") {
    for (std::int64_t kilobytes : written)
      answers.insert(number_fits(c, static_cast<std::uint64_t>(kilobytes)));
    return either(answers);
  }
  std::int64_t value = vol.numbers.at(c.field);
  if (c.field == "volflags" || c.field == "avail") return sure((value & c.mask) == c.bits);
  if (times.count(c.field) != 0) return sure(time_fits(c, value));
  return sure(number_fits(c, static_cast<std::uint64_t>(value)));
}

// Fields of copies and fragments; null for others.
using fragment_test = bool (*)(const slow_constraint &, const slow_clone &, const slow_fragment &);

constexpr struct {
  const char *field;
  fragment_test test;
} FRAGMENT_TESTS[] = {
    {"cloneid",
     [](const auto &c, const auto &clone, const auto &) { return signed_fits(c, clone.cloneid); }},
    {"clflags", [](const auto &c, const auto &clone,
                   const auto &) { return (clone.flags & c.mask) == c.bits; }},
    {"clonetime",
     [](const auto &c, const auto &clone, const auto &) { return signed_fits(c, clone.cloneid); }},
    {"first",
     [](const auto &c, const auto &, const auto &at) { return signed_fits(c, at.offset); }},
    {"mediafile",
     [](const auto &c, const auto &, const auto &at) { return signed_fits(c, at.mediafile); }},
    {"mediarec",
     [](const auto &c, const auto &, const auto &at) { return signed_fits(c, at.mediarec); }},
    {"mediamark",
     [](const auto &c, const auto &, const auto &at) { return signed_fits(c, at.mediamark); }},
    {"ssaccess",
     [](const auto &c, const auto &, const auto &at) { return signed_fits(c, at.ssaccess); }},
};

fragment_test fragment_test_of(const std::string &field) {
  for (const auto &row : FRAGMENT_TESTS) {
    if (field == row.field) return row.test;
  }
  return nullptr;
}

bool is_volume_field(const std::string &field) {
  return ss_test_of(field) == nullptr && fragment_test_of(field) == nullptr;
}

const std::vector<std::string> *find_attr(const slow_save_set &ss, const std::string &name) {
  for (const auto &[key, values] : ss.attrs) {
    if (same_text(key, name)) return &values;
  }
  return nullptr;
}

bool attr_constraint_fits(const slow_attr_constraint &c, const slow_save_set &ss) {
  const std::vector<std::string> *values = find_attr(ss, c.name);
  if (values == nullptr && c.name[0] != '*') values = find_attr(ss, "*" + c.name);
  if (values == nullptr) return c.negated;
  if (c.values.empty()) return !c.negated;
  for (const std::string &wanted : c.values) {
    for (const std::string &value : *values) {
      if (same_text(wanted, value)) return !c.negated;
    }
  }
  return c.negated;
}

bool lies_on(const slow_save_set &ss, const slow_volume &vol) {
  for (const slow_clone &clone : ss.clones) {
    for (const slow_fragment &at : clone.fragments) {
      if (at.volume == &vol) return true;
    }
  }
  return false;
}

// True for a fragment of the first unbroken run on its volume.
bool in_first_run(const slow_save_set &ss, const slow_fragment &fragment) {
  for (const slow_clone &clone : ss.clones) {
    bool inside = false;
    for (const slow_fragment &at : clone.fragments) {
      if (at.volume != fragment.volume && inside) return false;
      if (at.volume != fragment.volume) continue;
      if (&at == &fragment) return true;
      inside = true;
    }
    if (inside) return false;
  }
  return false;
}

}  // namespace

const std::string *slow_save_set::attr(const std::string &key) const {
  auto found = attrs.find(key);
  return found == attrs.end() || found->second.empty() ? nullptr : &found->second.front();
}

bool slow_same_id(const std::string &long_form, const std::string &typed) {
  if (typed.size() == 53) return long_form == typed;
  // The second word behind the checksum is the short form.
  std::uint64_t short_form =
      long_form.size() == 53 ? std::strtoull(long_form.substr(18, 8).c_str(), nullptr, 16) : 0;
  return std::to_string(short_form) == typed;
}

std::int64_t slow_time_add(std::int64_t delta, std::int64_t base) {
  if (delta == 0xffffffff || base == FOREVER_32) return FOREVER;
  if (delta == 0xfffffffe || delta == 0xfffffffd || base == 0x7ffffffe) return 5748491471;
  return base + delta == FOREVER_32 ? FOREVER_32 - 1 : base + delta;
}

bool slow_catalogue::read(const std::string &file, slow_catalogue &catalogue) {
  sqlite3 *db = nullptr;
  if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) return false;
  bool good = each_row(db, "SELECT * FROM volume ORDER BY id", [&](const columns &row) {
    slow_volume vol;
    vol.volid = row.at("volid");
    for (const char *text : {"volume", "family", "type", "location", "pool", "barcode"})
      vol.texts[text] = row.at(text);
    for (const char *name :
         {"capacity", "written", "read", "next", "nrec", "volaccess", "olabel", "labeled",
          "volretent", "volflags", "mounts", "recycled", "avail", "metric"})
      vol.numbers[name] = number(row, name);
    catalogue.volumes.push_back(vol);
  });
  std::map<std::string, const slow_volume *> by_id;
  for (slow_volume &vol : catalogue.volumes) {
    by_id[vol.volid] = &vol;
    for (const slow_volume &base : catalogue.volumes) {
      if (base.texts.at("volume") + ".RO" == vol.texts.at("volume"))
        vol.twin_written = base.numbers.at("written");
    }
  }
  good &= each_row(db, "SELECT * FROM saveset ORDER BY id", [&](const columns &row) {
    slow_save_set ss;
    ss.ssid = row.at("ssid"), ss.pssid = row.at("pssid"), ss.clientid = row.at("clientid");
    ss.client = row.at("client"), ss.name = row.at("name");
    for (const char *name : {"level", "savetime", "sscreate", "ssinsert", "sscomp", "ssflags",
                             "totalsize", "nfiles", "ssbrowse", "ssretent"})
      ss.numbers[name] = number(row, name);
    catalogue.save_sets.push_back(ss);
  });
  // Ids of the file count from 1.
  auto owner = [&](const columns &row) -> slow_save_set & {
    return catalogue.save_sets.at(static_cast<std::size_t>(number(row, "saveset") - 1));
  };
  good &= each_row(db, "SELECT * FROM saveset_attribute ORDER BY saveset, name, position",
                   [&](const columns &row) {
                     auto &values = owner(row).attrs[row.at("name")];
                     if (row.count("value") != 0) values.push_back(row.at("value"));
                   });
  good &= each_row(db, "SELECT * FROM clone ORDER BY saveset, position", [&](const columns &row) {
    owner(row).clones.push_back({number(row, "cloneid"), number(row, "clflags"), {}});
  });
  good &= each_row(
      db, "SELECT * FROM fragment ORDER BY saveset, clone, position", [&](const columns &row) {
        slow_fragment at{number(row, "fragoffset"), number(row, "mediafile"),
                         number(row, "mediarec"),   number(row, "mediamark"),
                         number(row, "ssaccess"),   by_id[row.at("volid")]};
        owner(row).clones[static_cast<std::size_t>(number(row, "clone"))].fragments.push_back(at);
      });
  sqlite3_close(db);
  return good;
}

bool slow_model::asks(std::string_view field) const {
  return std::any_of(query_.constraints.begin(), query_.constraints.end(),
                     [&](const slow_constraint &c) { return c.field == field; });
}

bool slow_model::fits_volume(const slow_volume &vol) const {
  return std::all_of(query_.constraints.begin(), query_.constraints.end(), [&](const auto &c) {
    return !is_volume_field(c.field) || of_volume_field(c, vol) != verdict::NO;
  });
}

bool slow_model::asks_fragments() const {
  return std::any_of(query_.constraints.begin(), query_.constraints.end(),
                     [](const slow_constraint &c) { return ss_test_of(c.field) == nullptr; });
}

bool slow_model::asks_save_sets() const {
  return std::any_of(query_.constraints.begin(), query_.constraints.end(),
                     [](const slow_constraint &c) { return !is_volume_field(c.field); });
}

// False for a copy that a workflow's value does not name, where the values name two workflows. Rows
// are then formed of the named copies, where rows are formed of copies.
bool slow_model::is_chosen(const slow_save_set &ss, const slow_clone &clone) const {
  for (const slow_constraint &c : query_.constraints) {
    if (c.field != "workflow") continue;
    for (const per_clone_value &value : per_clone_values(ss, attr_of(c))) {
      if (!text_fits(c, value.text, true)) continue;
      return std::find(value.clones.begin(), value.clones.end(), std::to_string(clone.cloneid)) !=
             value.clones.end();
    }
  }
  return true;
}

verdict slow_model::of_save_set(const slow_save_set &ss, const slow_volume *vol) const {
  for (const slow_attr_constraint &c : query_.attrs) {
    if (!attr_constraint_fits(c, ss)) return verdict::NO;
  }
  verdict result = verdict::YES;
  for (const slow_constraint &c : query_.constraints) {
    // A request for full save sets brings all levels up to it, and then they are kept.
    if (c.field == "level" && c.single && c.low == 0 && ss.numbers.at("level") < 0) {
      result = std::min(result, verdict::MAY);
      continue;
    }
    ss_test test = ss_test_of(c.field);
    if (test == nullptr) continue;
    // Asked of the save set itself, or of a copy.
    std::set<bool> answers = {test(c, ss, nullptr)};
    for (const slow_clone &clone : ss.clones) {
      bool there = vol == nullptr;
      for (const slow_fragment &at : clone.fragments) there |= at.volume == vol;
      if (there) answers.insert(test(c, ss, &clone));
    }
    result = std::min(result, either(answers));
  }
  return result;
}

verdict slow_model::of_fragment(const slow_clone &clone, const slow_fragment &fragment) const {
  verdict result = fragment.volume == nullptr ? verdict::NO : verdict::YES;
  for (const slow_constraint &c : query_.constraints) {
    if (result == verdict::NO) break;
    if (fragment_test test = fragment_test_of(c.field))
      result = std::min(result, sure(test(c, clone, fragment)));
    else if (is_volume_field(c.field))
      result = std::min(result, of_volume_field(c, *fragment.volume));
  }
  return result;
}

verdict slow_model::keeps(const slow_save_set &ss) const {
  verdict best = verdict::NO;
  bool placed = false;
  for (const slow_clone &clone : ss.clones) {
    for (const slow_fragment &at : clone.fragments) {
      placed = true;
      verdict fits = of_fragment(clone, at);
      best = std::max(best, is_chosen(ss, clone) ? fits : std::min(fits, verdict::MAY));
    }
  }
  // A walk through volumes does not come upon a save set that lies on none.
  if (!placed) best = asks_fragments() ? verdict::NO : verdict::MAY;
  return std::min(best, of_save_set(ss, nullptr));
}

verdict slow_model::keeps(const slow_save_set &ss, const slow_volume &vol) const {
  verdict best = verdict::NO;
  for (const slow_clone &clone : ss.clones) {
    for (const slow_fragment &at : clone.fragments) {
      if (at.volume != &vol) continue;
      verdict fits = of_fragment(clone, at);
      best = std::max(best, is_chosen(ss, clone) ? fits : std::min(fits, verdict::MAY));
    }
  }
  // An incomplete save set is left out of rows with volumes, and listed by a walk through them.
  if ((ss.numbers.at("ssflags") & 0x10000) != 0) best = std::min(best, verdict::MAY);
  return best == verdict::NO ? best : std::min(best, of_save_set(ss, &vol));
}

verdict slow_model::keeps(const slow_save_set &ss, const slow_clone &clone,
                          const slow_fragment &fragment) const {
  verdict fits = of_fragment(clone, fragment);
  // Of a save set that fits by one fragment on a volume, rows may show its others there.
  if (fits == verdict::NO) return std::min(verdict::MAY, keeps(ss, *fragment.volume));
  // On a given volume a save set is taken by its first run of fragments.
  if (!in_first_run(ss, fragment) || !is_chosen(ss, clone)) fits = std::min(fits, verdict::MAY);
  return std::min(fits, of_save_set(ss, fragment.volume));
}

verdict slow_model::keeps(const slow_volume &vol) const {
  if (!asks_save_sets()) {
    verdict result = verdict::YES;
    for (const slow_constraint &c : query_.constraints)
      result = std::min(result, of_volume_field(c, vol));
    return result;
  }
  verdict best = verdict::NO;
  bool incomplete = false;
  for (const slow_save_set &ss : catalogue_.save_sets) {
    verdict kept = keeps(ss, vol);
    // Alone in its report, a volume may be told for a save set that fits by another volume.
    if (kept == verdict::NO && lies_on(ss, vol) && fits_volume(vol))
      kept = std::min(keeps(ss), verdict::MAY);
    best = std::max(best, kept);
    incomplete |= kept != verdict::NO && (ss.numbers.at("ssflags") & 0x10000) != 0;
  }
  // A row that is left out takes its volume's place.
  return incomplete ? std::min(best, verdict::MAY) : best;
}

}  // namespace qvr::test
