// Sessions on the catalogue on storage over an appliance in memory, and a short hand for what lies
// there: "2:a/b/200" is the record file of save time 200 in subspace "a/b" of the second layout,
// "1:150" one of the first layout, a "+" behind it its lock marker; other words are paths below the
// directory of the client's application.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cinttypes>
#include <sstream>

#include "debug_words.h"
#include "fake_storage.h"
#include "record_file_writer.h"
#include "storage_load.h"

namespace qvr::test {

using testing::HasSubstr;

// A record of this save time; every other one is a snapshot.
inline ss_t record_of(std::int64_t time) {
  static const std::string series = packed_attrs::pack(attrlist_build({{"group", {"a", "b"}}}));
  ss_t ss;
  ss.client = "mars";
  ss.name = "/home";
  ss.savetime = time;
  ss.ssflags = time % 2 == 0 ? 0x4000000 : 0;
  ss.attrs = packed_attrs(series);
  return ss;
}

inline std::string record_bytes(std::int64_t time, const char *more = nullptr,
                                int page_size = 4096) {
  return record_file_bytes(record_of(time), "save." + std::to_string(time), page_size, more);
}

inline std::vector<std::string> words(const std::string &text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), {}};
}

// "NAME=VALUE" a word, with "_" for the blanks of names.
inline void add_attrs(attrlist &attrs, const std::string &text) {
  for (const std::string &word : words(text)) {
    std::string name = word.substr(0, word.find('='));
    std::ranges::replace(name, '_', ' ');
    attrlist_add(attrs, name, word.substr(name.size() + 1));
  }
}

// What is written to standard error at this debug level.
template <class Run>
std::string log_of(int level, Run run) {
  debug_set_level(level);
  testing::internal::CaptureStderr();
  run();
  debug_set_level(0);
  return testing::internal::GetCapturedStderr();
}

// What lies on the appliance, each record file with the record of its name, what is asked and what
// comes of it.
struct question_t {
  int line;
  std::string files;
  std::string settings;
  std::string range;   // "FROM-TO", "FROM-TO#COUNT", "TIME"; empty for all
  std::string answer;  // "TIME attributes", a record after the other, or "none", or "error TEXT"
  std::string logged = {};  // lines; one that ends in "..." may go on
  std::string filter = {};
  std::string faults = {};  // "OPERATION FILE CODE ..."
  int level = 1;            // at which it is logged
};

class storage_test : public testing::Test {
 protected:
  storage_test() {
    storage->make = [](const std::string &path) {
      return record_bytes(std::stoll(path.substr(path.rfind('/') + 1)));
    };
    storage_register(storage);
    debug_words.time_stamps = 0;
  }
  ~storage_test() override {
    session.reset();
    idx_set_appid(0);
    debug_words.time_stamps = 1;
    storage_unregister(storage.get());
  }

  static std::string root() { return "/dev/mars/" + std::to_string(idx_appid()); }
  static std::string path_of(std::string word) {
    if (word.size() < 2 || word[1] != ':') return root() + '/' + word;
    const bool second = word[0] == '2', marker = word.back() == '+';
    word.erase(0, 2);
    if (marker) word.pop_back();
    std::size_t slash = word.rfind('/');
    std::string path = root() + (second ? "/2.0/meta_rec" : ""), time = word.substr(slash + 1);
    if (slash != std::string::npos) path += '/' + word.substr(0, slash);
    path += second ? "/_ts10k_" + std::to_string(std::stoll(time) / 10000) : "/index";
    return path + '/' + time + ".rec" + (marker ? ".lck" : "");
  }
  void put(const std::string &files, const std::string &bytes = {}) {
    for (const std::string &word : words(files)) storage->put(path_of(word), bytes);
  }

  void open(const std::string &settings = {}) {
    session.reset();
    attrs = attrlist_build({{"Server independent device path", {"dev"}},
                            {"hosts", {"appliance"}},
                            {"username", {"u"}},
                            {"password", {storage_hide("p")}},
                            {"Disable DFA-BH", {"False"}},
                            {"auth index", {"Mars"}}});
    add_attrs(attrs, settings);
    const errobj_t *error = clntbh_create_client_handle(attrs, session);
    ASSERT_EQ(error, nullptr) << error->text;
  }

  // "ID CODE TEXT"; empty without an error.
  static std::string told(const errobj_t *error) {
    if (error == nullptr) return {};
    return std::to_string(error->message.id) + ' ' + std::to_string(error->code) + ' ' +
           error->text;
  }
  // The answer as rows tell it, with whole paths.
  static std::string told(const ss_list &list) {
    constexpr struct {
      const char *name, *key;
    } attributes[] = {{"record file name", "rec"},
                      {"index record version", "ver"},
                      {"index subspace", "sub"},
                      {"index record cloud tier location", "tier"},
                      {"save file name", "save"}};
    std::string text;
    for (const ss_t *ss : list.rows) {
      if (!text.empty()) text += " | ";
      text += std::to_string(ss->savetime);
      if (ss->ssflags == 0x10000) text += " incomplete " + std::string(ss->client);
      if (ss->ssflags == 0x2000000) text += " cover";
      for (const auto &[name, key] : attributes)
        if (ss->attrs.has(name))
          text.append(" ").append(key).append("=").append(ss->attrs.first(name));
    }
    return text;
  }
  // A row's text with "~2/" for the second layout's records and "~/" for the root spelt out, and
  // "rec=FILE" of a file in short hand.
  static std::string whole(std::string text) {
    for (std::size_t at; (at = text.find("~2/")) != std::string::npos;)
      text.replace(at, 3, "~/2.0/meta_rec/");
    for (std::size_t at; (at = text.find("~/")) != std::string::npos;) text.replace(at, 1, root());
    for (std::size_t at = 0; (at = text.find("rec=", at)) != std::string::npos;) {
      at += 4;
      std::string file = text.substr(at, text.find(' ', at) - at);
      if (file[1] == ':') text.replace(at, file.size(), path_of(file));
    }
    return text;
  }

  std::string range(const std::string &text, const attrlist &filter = {},
                    std::string_view name = {}) {
    mr_range mr{0, INT64_MAX, 0};
    int read = std::sscanf(text.c_str(), "%" SCNu64 "-%" SCNu64 "#%" SCNd64, &mr.mr_start_time,
                           &mr.mr_end_time, &mr.mr_count);
    if (read == 1) mr.mr_end_time = mr.mr_start_time;
    ss_reply reply = bh_fetchss_range(session.get(), "MARS", name, filter, &mr);
    if (reply.status == MMDB_NO_ENTRY && reply.error == nullptr) return "none";
    if (reply.status == MMDB_OK && reply.error == nullptr) return told(reply.list);
    return reply.status == MMDB_LOCAL_ERROR ? "error " + reply.error->text : "?";
  }

  static void expect_logged(const std::string &log, const std::string &lines, bool logged = true) {
    std::istringstream in(whole(lines));
    for (std::string line; std::getline(in, line);) {
      bool goes_on = line.ends_with("...");
      line = goes_on ? line.substr(0, line.size() - 3) : line + '\n';
      EXPECT_EQ(log.find(line) != std::string::npos, logged) << line << "in: " << log;
    }
  }

  void ask(const question_t &row) {
    SCOPED_TRACE(row.line);
    storage->files.clear();
    storage->directories.clear();
    storage->faults.clear();
    put(row.files);
    std::istringstream faults(row.faults);
    int code;
    for (std::string call, file; faults >> call >> file >> code;)
      storage->faults[call + ' ' + path_of(file)] = code;
    open(row.settings);
    attrlist filter;
    add_attrs(filter, row.filter);
    std::string log;
    for (int level : {row.level - 1, row.level}) {
      std::string answer;
      log = log_of(level, [&] { answer = range(row.range, filter); });
      EXPECT_EQ(answer, whole(row.answer));
      expect_logged(log, row.logged, level == row.level);
    }
    EXPECT_EQ(session->inconsistent, log.find("inconsistency") != std::string::npos);
  }

  std::shared_ptr<fake_storage> storage = std::make_shared<fake_storage>();
  attrlist attrs;
  std::unique_ptr<cat_session> session;
};

}  // namespace qvr::test
