#include "query_maker.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <set>

namespace qvr::test {

enum class form { TIME, DURATION, NUMBER, LEVEL, TEXT, ID, FLAG, TRUTH, SSATTR };

struct query_maker::field_row {
  const char *field;
  form kind;
  unsigned weight;
  bool list = false;      // takes alternatives
  const char *attr = "";  // of a save set, whose first value is asked for
  std::int64_t mask = 0;  // of a flag word
  const char *word = "";  // the flag's, where `field` names the flag word
};

const std::vector<query_maker::field_row> &query_maker::fields() {
  static const std::vector<field_row> rows = {
      {"savetime", form::TIME, 14},
      {"client", form::TEXT, 14, true},
      {"name", form::TEXT, 10, true},
      {"group", form::TEXT, 6, true, "group"},
      {"level", form::LEVEL, 10},
      {"annotation", form::TEXT, 5, true, "annotation"},
      {"ssbundle", form::TEXT, 2, true, "save set bundle"},
      {"ssid", form::ID, 3},
      {"pssid", form::ID, 1},
      {"clientid", form::ID, 2},
      {"checkpoint_id", form::TEXT, 2, false, "*checkpoint_id"},
      {"checkpoint_seq", form::TEXT, 2, false, "*checkpoint_seq"},
      {"vmname", form::TEXT, 2, true, "*vm_name"},
      {"totalvmdiskutil", form::TEXT, 1, true, "*totalvmdiskutil"},
      {"occupiedvmdiskutil", form::TEXT, 1, true, "*occupiedvmdiskutil"},
      {"rdz", form::TEXT, 1, true, "*restricted data zone"},
      {"policy", form::TEXT, 3, true, "*policy name"},
      {"workflow", form::TEXT, 3, true, "*policy workflow name"},
      {"action", form::TEXT, 1, true, "*policy action name"},
      {"ssattr", form::SSATTR, 3},
      {"totalsize", form::NUMBER, 4},
      {"nfiles", form::NUMBER, 3},
      {"copies", form::NUMBER, 3},
      {"validcopies", form::NUMBER, 3},
      {"ssexp", form::TIME, 2},
      {"ssbrowse", form::TIME, 2},
      {"ssretent", form::TIME, 3},
      {"ssinsert", form::TIME, 2},
      {"sscreate", form::TIME, 2},
      {"sscomp", form::TIME, 2},
      {"clretent", form::TIME, 3},
      {"ssretentdur", form::DURATION, 3},
      {"clretentdur", form::DURATION, 2},
      {"ssflags", form::FLAG, 2, false, "", 0x10000, "incomplete"},
      {"ssflags", form::FLAG, 2, false, "", 0x200, "recoverable"},
      {"ssflags", form::FLAG, 1, false, "", 0x4000000, "snap"},
      {"ssflags", form::FLAG, 1, false, "", 0x200000, "ndmp"},
      {"ssflags", form::FLAG, 1, false, "", 0x800, "checkpoint-restart"},
      {"dedupe", form::TRUTH, 1},
      {"rehydrated", form::TRUTH, 1},
      {"syntheticfull", form::TRUTH, 1},
      {"deviceless", form::TRUTH, 2},
      {"clflags", form::FLAG, 2, false, "", 0x20000, "suspect"},
      {"clflags", form::FLAG, 1, false, "", 0x8000000, "transit"},
      {"cloneid", form::ID, 2},
      {"clonetime", form::TIME, 2},
      {"first", form::NUMBER, 2},
      {"mediafile", form::NUMBER, 2},
      {"mediarec", form::NUMBER, 2},
      {"mediamark", form::NUMBER, 1},
      {"ssaccess", form::TIME, 2},
      {"volume", form::TEXT, 6, true},
      {"pool", form::TEXT, 4, true},
      {"family", form::TEXT, 3, true},
      {"type", form::TEXT, 3, true},
      {"location", form::TEXT, 4, true},
      {"barcode", form::TEXT, 3, true},
      {"volid", form::ID, 3},
      {"capacity", form::NUMBER, 2},
      {"written", form::NUMBER, 2},
      {"read", form::NUMBER, 1},
      {"next", form::NUMBER, 1},
      {"nrec", form::NUMBER, 1},
      {"%used", form::NUMBER, 2},
      {"mounts", form::NUMBER, 2},
      {"recycled", form::NUMBER, 1},
      {"olabel", form::TIME, 1},
      {"labeled", form::TIME, 1},
      {"volaccess", form::TIME, 2},
      {"volretent", form::TIME, 2},
      {"volflags", form::FLAG, 2, false, "", 0x1, "full"},
      {"volflags", form::FLAG, 2, false, "", 0x20, "readonly"},
      {"avail", form::FLAG, 1, false, "", 0x1, "near"},
  };
  return rows;
}

namespace {

constexpr std::int64_t DAY = 86400;

std::string date_text(std::int64_t time) {
  if (time == 0x7fffffff || time == INT64_MAX) return "forever";
  std::time_t seconds = time;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[64];
  std::strftime(text, sizeof text, "%m/%d/%Y %H:%M:%S", &utc);
  return text;
}

std::string level_text(std::int64_t level) {
  switch (level) {
    case 0:
      return "full";
    case 10:
      return "incr";
    case 12:
      return "txnlog";
    case -2:
      return "manual";
    case -3:
      return "migration";
    case -9:
      return "synth_full";
    case -10:
      return "incr_synth_full";
    case -11:
      return "exec";
    default:
      return level >= 1 && level <= 9 ? std::to_string(level) : "";
  }
}

std::string quoted(const std::string &text) {
  std::string out = "\"";
  for (char c : text) out.append(c == '"' ? 2 : 1, c);
  return out + "\"";
}

bool is_unsigned(form kind) {
  return kind == form::NUMBER;
}

}  // namespace

bool query_maker::value_of(const field_row &row, std::int64_t &value) {
  const std::string field = row.field;
  const slow_save_set &ss = any_save_set();
  auto word = ss.numbers.find(field);
  if (field == "ssbrowse" || field == "ssretent" || field == "ssexp" || field == "clretent") {
    std::int64_t delta = ss.numbers.at(field == "ssbrowse" ? "ssbrowse" : "ssretent");
    value = delta == 0xffffffff ? INT64_MAX : ss.numbers.at("ssinsert") + delta;
  } else if (row.kind == form::DURATION) {
    value = ss.numbers.at("ssretent");
    if (value == 0xffffffff) return false;
    if (one_in(3)) value = value / DAY * DAY + DAY * static_cast<std::int64_t>(below(3));
  } else if (word != ss.numbers.end()) {
    value = word->second;
  } else if (field == "copies" || field == "validcopies") {
    value = static_cast<std::int64_t>(below(4));
  } else if (field == "%used") {
    value = static_cast<std::int64_t>(below(101));
  } else if (any_volume().numbers.count(field) != 0) {
    value = any_volume().numbers.at(field);
  } else {
    if (ss.clones.empty() || ss.clones[0].fragments.empty()) return false;
    const slow_clone &clone = ss.clones[below(ss.clones.size())];
    const slow_fragment &at = clone.fragments[below(clone.fragments.size())];
    value = field == "first"       ? at.offset
            : field == "mediafile" ? at.mediafile
            : field == "mediarec"  ? at.mediarec
            : field == "mediamark" ? at.mediamark
            : field == "ssaccess"  ? at.ssaccess
                                   : clone.cloneid;
  }
  // Dates before the epoch's second day are not told well in words.
  return row.kind != form::TIME || value >= DAY;
}

bool query_maker::text_of(const field_row &row, std::string &text) {
  const std::string field = row.field;
  if (any_volume().texts.count(field) != 0) {
    text = any_volume().texts.at(field);
    return !text.empty();
  }
  const slow_save_set &ss = any_save_set();
  if (field == "client") {
    text = ss.client;
  } else if (field == "name") {
    text = ss.name;
  } else if (field == "annotation") {
    static constexpr const char *patterns[] = {"box",    "migrated", "^Year-end", "KEEP",
                                               "box 1*", "by hand$", "nowhere",   "hall: \"keep\""};
    text = patterns[below(std::size(patterns))];
  } else {
    const std::string *value = nullptr;
    for (int i = 0; i < 300 && value == nullptr; i++) value = any_save_set().attr(row.attr);
    if (value == nullptr) return false;
    text = *value;
    if (field == "policy" || field == "workflow" || field == "action")
      text = text.substr(0, text.find(':'));
    if (field == "vmname" && one_in(3)) text = "ALL_VM";
  }
  if (one_in(25)) text += "x";
  return true;
}

void query_maker::add_bounds(const field_row &row, made_query &query) {
  slow_constraint c;
  c.field = row.field;
  std::int64_t value, other;
  if (!value_of(row, value)) return;
  auto told = [&](std::int64_t number) {
    if (row.kind == form::TIME) return date_text(number);
    if (row.kind == form::LEVEL) return level_text(number);
    if (row.kind == form::DURATION && number % DAY == 0)
      return std::to_string(number / DAY) + " days";
    if (row.kind == form::DURATION) return std::to_string(number) + " seconds";
    return std::to_string(number);
  };
  const std::string field = std::string(row.field);
  std::string text = told(value), words;
  if (text.empty()) return;
  switch (below(value == INT64_MAX || row.kind == form::LEVEL ? 4 : 6)) {
    case 0:
      c.single = true, c.low = value;
      words = field + "=" + text;
      break;
    case 1:
      c.has_low = true, c.low = value;
      words = field + ">=" + text;
      break;
    case 2:
      c.has_high = true, c.high = value;
      words = field + "<=" + text;
      break;
    case 3:
      if (!value_of(row, other) || told(other).empty()) return;
      if (is_unsigned(row.kind)
              ? static_cast<std::uint64_t>(other) < static_cast<std::uint64_t>(value)
              : other < value)
        std::swap(value, other);
      c.has_low = c.has_high = true, c.low = value, c.high = other;
      words = field + ">=" + told(value) + "," + field + "<=" + told(other);
      break;
    case 4:
      c.has_low = true, c.low = value + 1;
      words = field + ">" + text;
      break;
    default:
      if (value == 0) return;
      c.has_high = true, c.high = value - 1;
      words = field + "<" + text;
  }
  query.meaning.constraints.push_back(c);
  query.words.insert(query.words.end(), {"-q", words});
}

void query_maker::add_texts(const field_row &row, made_query &query) {
  slow_constraint c;
  c.field = row.field;
  std::string words;
  for (std::size_t i = row.list && one_in(3) ? 2 + below(2) : 1; i > 0; i--) {
    std::string text;
    if (!text_of(row, text)) return;
    c.texts.push_back(text);
    words += (words.empty() ? "" : ",") + c.field + "=" + quoted(text);
  }
  // An empty value asks for a save set without the attribute.
  if ((c.field == "group" || c.field == "policy" || c.field == "workflow") && one_in(8)) {
    c.texts = {""};
    words = c.field + "=\"\"";
  }
  c.single = c.texts.size() == 1;
  query.meaning.constraints.push_back(c);
  query.words.insert(query.words.end(), {"-q", words});
}

void query_maker::add_ssattr(made_query &query) {
  static constexpr const char *patterns[] = {"TICK*",        "anno*",   "\\*vm_name",
                                             "*policy name", "group",   "*[cC]heck*",
                                             "?roup",        "nothing", "*forever*"};
  slow_constraint c;
  c.field = "ssattr";
  std::string words;
  for (std::size_t i = 1 + below(2); i > 0; i--) {
    c.texts.push_back(patterns[below(std::size(patterns))]);
    c.equal.push_back(one_in(2));
    words += (words.empty() ? "ssattr" : ",ssattr");
    words += (c.equal.back() ? "=" : "!=") + quoted(c.texts.back());
  }
  query.meaning.constraints.push_back(c);
  query.words.insert(query.words.end(), {"-q", words});
}

void query_maker::add_attr(made_query &query) {
  static constexpr struct {
    const char *name, *value;
  } rows[] = {{"ticket", ""},           {"annotation", ""},    {"vm_name", ""},
              {"group", "default"},     {"group", "NDMP"},     {"vm_name", "WEB SERVER 1"},
              {"*Rehydrated", "yes"},   {"no such thing", ""}, {"save set bundle", "night shift"},
              {"group", "Windows Büro"}};
  const auto &row = rows[below(std::size(rows))];
  slow_attr_constraint c;
  c.name = row.name;
  c.negated = one_in(3);
  std::string words = (c.negated ? "!" : "") + c.name;
  if (row.value[0] != 0) {
    c.values = {row.value};
    words += "=" + quoted(row.value);
  }
  query.meaning.attrs.push_back(c);
  query.words.insert(query.words.end(), {"-A", words});
}

void query_maker::add(const field_row &row, made_query &query) {
  slow_constraint c;
  c.field = row.field;
  std::string words;
  switch (row.kind) {
    case form::TIME:
    case form::DURATION:
    case form::NUMBER:
    case form::LEVEL:
      return add_bounds(row, query);
    case form::TEXT:
      return add_texts(row, query);
    case form::SSATTR:
      return add_ssattr(query);
    case form::FLAG:
      c.truth = one_in(2);
      c.mask = row.mask, c.bits = c.truth ? row.mask : 0;
      words = (c.truth ? "" : "!") + std::string(row.word);
      break;
    case form::TRUTH:
      c.truth = one_in(2);
      words = (c.truth ? "" : "!") + c.field;
      break;
    case form::ID: {
      const slow_save_set &ss = any_save_set();
      c.single = true;
      if (c.field == "cloneid") {
        if (ss.clones.empty()) return;
        c.low = ss.clones[below(ss.clones.size())].cloneid;
        words = "cloneid=" + std::to_string(c.low);
        break;
      }
      std::string id = c.field == "volid"      ? any_volume().volid
                       : c.field == "clientid" ? ss.clientid
                       : c.field == "pssid"    ? ss.pssid
                                               : ss.ssid;
      if (id.size() != 53) return;
      if (c.field != "clientid" && one_in(2))
        id = std::to_string(std::strtoull(id.substr(18, 8).c_str(), nullptr, 16));
      c.texts = {id};
      words = c.field + "=" + id;
      break;
    }
  }
  query.meaning.constraints.push_back(c);
  query.words.insert(query.words.end(), {"-q", words});
}

made_query query_maker::make() {
  unsigned total = 0;
  for (const field_row &row : fields()) total += row.weight;
  made_query query;
  query.words = {"-a"};
  std::set<std::string> taken;
  for (std::size_t i = below(4) + (one_in(10) ? 0 : 1); i > 0; i--) {
    auto at = static_cast<unsigned>(below(total));
    const field_row *row = fields().data();
    for (; at >= row->weight; row++) at -= row->weight;
    if (taken.insert(row->field).second) add(*row, query);
  }
  if (one_in(6)) add_attr(query);
  return query;
}

bool made_query::speaks_of_save_sets() const {
  static const std::set<std::string> of_volumes = {
      "volume",    "pool",     "family",   "type",           "location", "barcode",
      "volid",     "capacity", "written",  "read",           "next",     "nrec",
      "%used",     "mounts",   "recycled", "olabel",         "labeled",  "volaccess",
      "volretent", "volflags", "avail",    "totalvmdiskutil"};
  return std::any_of(meaning.constraints.begin(), meaning.constraints.end(),
                     [](const slow_constraint &c) { return of_volumes.count(c.field) == 0; });
}

}  // namespace qvr::test
