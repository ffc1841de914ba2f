// A locale that the machine need not have installed: made by localedef in a private directory.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "run_command.h"

namespace qvr::test {

// Finds the locale through LOCPATH for as long as it lives.
class made_locale {
 public:
  made_locale(const std::string &source, const std::string &name) {
    char directory[] = "/tmp/made-locale-XXXXXX";
    if (mkdtemp(directory) == nullptr) return;
    directory_ = directory;
    run_command({"localedef", "-i", source, "-f", "UTF-8", directory_ + "/" + name});
    setenv("LOCPATH", directory_.c_str(), 1);
  }
  ~made_locale() {
    unsetenv("LOCPATH");
    if (!directory_.empty()) run_command({"rm", "-r", directory_});
  }
  made_locale(const made_locale &) = delete;
  made_locale &operator=(const made_locale &) = delete;

 private:
  std::string directory_;
};

}  // namespace qvr::test
