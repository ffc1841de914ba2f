// Files of the source tree and of the build, as texts.
#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace qvr::test {

inline std::string file_text(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0, end; at < text.size(); at = end + 1) {
    end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
  }
  return lines;
}

// What the first group of the expression matches, throughout the text.
inline std::set<std::string> found(const std::string &text, const std::string &expression) {
  std::regex pattern(expression);
  std::set<std::string> all;
  for (std::sregex_iterator at(text.begin(), text.end(), pattern), end; at != end; ++at)
    all.insert((*at)[1].str());
  return all;
}

// The sources of the command and of what it stands on.
inline std::string all_sources() {
  std::string text;
  for (const char *folder : {"liblocal", "rpc/lib", "qvr/lib", "report", "reelscan"}) {
    for (const auto &entry :
         std::filesystem::directory_iterator(std::string(SOURCE_DIRECTORY) + "/" + folder)) {
      if (entry.is_regular_file()) text += file_text(entry.path());
    }
  }
  return text;
}

}  // namespace qvr::test
