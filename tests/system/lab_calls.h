// The calls on the media database that a lab's log tells of.
#pragma once

#include <fstream>
#include <map>
#include <string>
#include <vector>

namespace qvr::test {

class lab_calls {
 public:
  explicit lab_calls(std::string log) : log_(std::move(log)) {}

  // Numbers and counts of the procedures called since the last look, in the order of their first
  // call, as "65 64*3". Pings are not told.
  std::string next() {
    std::ifstream log(log_);
    log.seekg(static_cast<std::streamoff>(seen_));
    std::vector<std::string> order;
    std::map<std::string, int> counts;
    for (std::string line; std::getline(log, line);) {
      seen_ += line.size() + 1;
      std::size_t at = line.find("\"proc\":");
      if (at == line.npos || line.find("\"daemon\":\"qvrmmdbd\"") == line.npos) continue;
      std::string number = line.substr(at + 7, line.find(',', at) - at - 7);
      if (number != "0" && counts[number]++ == 0) order.push_back(number);
    }
    std::string text;
    for (const std::string &number : order) {
      text += (text.empty() ? "" : " ") + number;
      if (counts[number] > 1) text += "*" + std::to_string(counts[number]);
    }
    return text;
  }

 private:
  std::string log_;
  std::size_t seen_ = 0;
};

}  // namespace qvr::test
