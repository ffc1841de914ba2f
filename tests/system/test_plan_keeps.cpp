// The plan may never change the answer: generated queries over a generated catalogue, through the
// command and through the slow model.
//
// REELSCAN_PLAN_QUERIES and REELSCAN_PLAN_SEED give another number of queries and another
// beginning.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "query_maker.h"
#include "system_fixture.h"
#include "temp_dir.h"

namespace qvr::test {
namespace {

using rows_t = std::map<std::string, verdict>;

// What a report prints of a catalogue, by line.
void add(rows_t &rows, const std::string &line, verdict kept) {
  verdict &of_line = rows.emplace(line, verdict::NO).first->second;
  of_line = std::max(of_line, kept);
}

rows_t save_set_rows(const slow_catalogue &catalogue, const slow_model &model) {
  rows_t rows;
  for (const slow_save_set &ss : catalogue.save_sets) add(rows, ss.ssid, model.keeps(ss));
  return rows;
}

rows_t pair_rows(const slow_catalogue &catalogue, const slow_model &model) {
  rows_t rows;
  for (const slow_save_set &ss : catalogue.save_sets) {
    bool placed = false;
    for (const slow_clone &clone : ss.clones) {
      for (const slow_fragment &at : clone.fragments) {
        placed = true;
        add(rows, ss.ssid + "," + at.volume->volid, model.keeps(ss, *at.volume));
      }
    }
    if (!placed) add(rows, ss.ssid + ",", model.keeps(ss));
    // Where a workflow chose copies on other volumes alone, the save sets print by themselves.
    if (placed && model.asks("workflow")) add(rows, ss.ssid + ",", verdict::MAY);
  }
  return rows;
}

rows_t volume_rows(const slow_catalogue &catalogue, const slow_model &model) {
  rows_t rows;
  for (const slow_volume &vol : catalogue.volumes) add(rows, vol.volid, model.keeps(vol));
  return rows;
}

rows_t fragment_rows(const slow_catalogue &catalogue, const slow_model &model) {
  rows_t rows;
  for (const slow_save_set &ss : catalogue.save_sets) {
    for (const slow_clone &clone : ss.clones) {
      for (const slow_fragment &at : clone.fragments)
        add(rows,
            ss.ssid + "," + std::to_string(clone.cloneid) + "," + std::to_string(at.offset) + "," +
                std::to_string(at.mediafile) + "," + std::to_string(at.mediarec),
            model.keeps(ss, clone, at));
    }
    if (ss.clones.empty()) add(rows, ss.ssid + ",0,0,0,0", model.keeps(ss));
  }
  return rows;
}

constexpr struct {
  const char *columns;
  rows_t (*rows)(const slow_catalogue &, const slow_model &);
  bool save_sets;  // a line begins with a save set's id
  unsigned weight;
} REPORTS[] = {
    {"ssid(53)", save_set_rows, true, 4},
    {"ssid(53),volid(53)", pair_rows, true, 4},
    {"volid(53)", volume_rows, false, 2},
    {"ssid(53),cloneid,first(22),mediafile,mediarec", fragment_rows, true, 2},
};

// None by place: such an order tests the rows that it makes, a volume's first run of fragments
// each.
constexpr const char *ORDERS[] = {"", "", "t", "tR", "n", "c", "l", "lR", "e", "mcnt", "cnt", "mR"};

// The lines behind the header, which reports of one column do not have.
std::vector<std::string> lines_of(const std::string &out) {
  std::vector<std::string> lines;
  std::istringstream text(out);
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  if (!lines.empty() && (lines[0].starts_with("ssid") || lines[0].starts_with("volid")))
    lines.erase(lines.begin());
  return lines;
}

// Both forevers last.
std::int64_t in_order(std::int64_t time) {
  return time == 0x7fffffff ? INT64_MAX : time;
}

// Below, at or above 0 as a line's save set stands to the next one's under one letter.
int compare(char letter, const slow_save_set &a, const slow_save_set &b) {
  auto by = [](auto x, auto y) { return x < y ? -1 : x > y ? 1 : 0; };
  auto end = [](const slow_save_set &ss) {
    return in_order(slow_time_add(ss.numbers.at("ssretent"), ss.numbers.at("ssinsert")));
  };
  switch (letter) {
    case 't':
      return by(in_order(a.numbers.at("savetime")), in_order(b.numbers.at("savetime")));
    case 'n':
      return a.name.compare(b.name);
    case 'c':
      return strcasecmp(a.client.c_str(), b.client.c_str());
    case 'l':
      return by(static_cast<std::uint64_t>(a.numbers.at("totalsize")),
                static_cast<std::uint64_t>(b.numbers.at("totalsize")));
    case 'e':
      return by(end(a), end(b));
    default:
      return 0;
  }
}

class plan_keeps : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string file = directory.emplace().file("catalogue");
    // Nothing of it depends on the day on which the test runs.
    command_result made =
        run_command({built_program("qvrlabd"), "--sample", "5:8:24", "--now", "1767225600",
                     "--host", "vault", "--store", file, "--no-serve"});
    ASSERT_EQ(made.status, 0) << made.err;
    // A volume was in use at least until what lies on it was complete.
    made = run_command({"sqlite3", file,
                        "UPDATE volume SET volaccess = max(volaccess, (SELECT max(max(ssaccess, "
                        "sscomp, ssinsert)) FROM fragment JOIN saveset ON saveset = saveset.id "
                        "WHERE fragment.volid = volume.volid)) WHERE volid IN (SELECT volid FROM "
                        "fragment);"});
    ASSERT_EQ(made.status, 0) << made.err;
    ASSERT_TRUE(slow_catalogue::read(file, catalogue));
    for (const slow_save_set &ss : catalogue.save_sets) by_id[ss.ssid] = &ss;
    site = installation::make({"--catalogue", file}, why);
  }
  static void TearDownTestSuite() { site.reset(), directory.reset(); }

  // Empty when the command's answer is the model's.
  static std::string difference(std::uint32_t seed);
  static std::string misplaced(const std::vector<std::string> &lines, const std::string &order);

  static inline std::optional<temp_dir> directory;
  static inline std::string why;
  static inline slow_catalogue catalogue;
  static inline std::map<std::string, const slow_save_set *> by_id;
  static inline std::unique_ptr<installation> site;
};

std::string plan_keeps::misplaced(const std::vector<std::string> &lines, const std::string &order) {
  if (order.empty() || order[0] == 'm') return "";
  int sign = order.find('R') == std::string::npos ? 1 : -1;
  for (std::size_t i = 1; i < lines.size(); i++) {
    const slow_save_set &a = *by_id.at(lines[i - 1].substr(0, 53));
    const slow_save_set &b = *by_id.at(lines[i].substr(0, 53));
    int result = 0;
    for (char letter : order) {
      if (result == 0) result = compare(letter, a, b);
      // Behind the time stands the volume's name.
      if (letter == 't' && result == 0) break;
    }
    if (result * sign > 0) return "  out of order: " + lines[i] + "\n";
  }
  return "";
}

std::string plan_keeps::difference(std::uint32_t seed) {
  query_maker maker(catalogue, seed);
  made_query query = maker.make();
  std::size_t at = maker.below(12);
  const auto *report = REPORTS;
  for (; at >= report->weight; report++) at -= report->weight;
  // Attributes are of save sets: a report of volumes alone does not look at them.
  bool attributes =
      !query.meaning.attrs.empty() || slow_model(catalogue, query.meaning).asks("totalvmdiskutil");
  if (!report->save_sets && !query.speaks_of_save_sets() && attributes) return "";
  std::string order = ORDERS[maker.below(std::size(ORDERS))];
  std::vector<std::string> words = query.words;
  words.insert(words.end(), {"-xc,", "-r", report->columns});
  if (!order.empty()) words.insert(words.end(), {"-o", order});

  command_result result = site->run(words, {"LC_ALL=C.UTF-8"});
  std::string told;
  rows_t rows = report->rows(catalogue, slow_model(catalogue, query.meaning));
  std::vector<std::string> lines = lines_of(result.out);
  std::set<std::string> printed;
  for (std::string line : lines) {
    if (!line.empty() && line.back() == ' ') line.pop_back();
    printed.insert(line);
  }
  int missing = 0, extra = 0;
  for (const auto &[line, kept] : rows) {
    if (kept == verdict::YES && printed.count(line) == 0 && missing++ < 2)
      told += "  missing: " + line + "\n";
    if (kept == verdict::NO && printed.count(line) != 0 && extra++ < 2)
      told += "  not asked for: " + line + "\n";
  }
  for (const std::string &line : printed) {
    if (rows.count(line) == 0) told += "  unknown: " + line + "\n";
  }
  if (report->save_sets && told.empty()) told += misplaced(lines, order);
  // Save sets that lie on no volume may be all there is: rows without anything to export. And rows
  // by place may all fail behind their header.
  bool may_be_bare = !report->save_sets || (report->rows == fragment_rows && order.empty());
  bool found = !lines.empty() || (may_be_bare && result.status == 0);
  if (result.status != (found ? 0 : 1)) told += "  status " + std::to_string(result.status);
  if (result.err != (found ? "" : "6095:reelscan: no matches found for the query\n"))
    told += "  said: " + result.err;
  if (told.empty()) return "";
  std::string command = "seed " + std::to_string(seed) + ": reelscan";
  for (const std::string &word : words) command += " '" + word + "'";
  return command + "\n" + told + "  (" + std::to_string(printed.size()) + " printed, " +
         std::to_string(missing) + " missing, " + std::to_string(extra) + " too many)\n";
}

unsigned setting(const char *name, unsigned otherwise) {
  const char *text = std::getenv(name);
  return text == nullptr ? otherwise : static_cast<unsigned>(std::strtoul(text, nullptr, 10));
}

TEST_F(plan_keeps, what_the_slow_model_keeps) {
  if (!site) GTEST_SKIP() << why;
  unsigned wanted = setting("REELSCAN_PLAN_QUERIES", 0), seed = setting("REELSCAN_PLAN_SEED", 1);
  // Unless told otherwise, as many as half a minute allows.
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(wanted == 0 ? 30 : 36000);
  if (wanted == 0) wanted = 3000;
  std::atomic<unsigned> next = 0;
  std::vector<std::string> differences(wanted);
  auto work = [&] {
    for (unsigned i; std::chrono::steady_clock::now() < end && (i = next++) < wanted;)
      differences[i] = difference(seed + i);
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_GT(next, 50u);
  RecordProperty("queries", static_cast<int>(std::min<unsigned>(next, wanted)));
  for (const std::string &text : differences) EXPECT_EQ(text, "");
}

}  // namespace
}  // namespace qvr::test
