// A locale that the machine need not have installed: made by localedef in a private directory.
#pragma once

#include <cstdlib>
#include <string>

#include "run_command.h"
#include "temp_dir.h"

namespace qvr::test {

// Finds the locale through LOCPATH for as long as it lives.
class made_locale {
 public:
  made_locale(const std::string &source, const std::string &name) {
    run_command({"localedef", "-i", source, "-f", "UTF-8", directory_.file(name)});
    setenv("LOCPATH", directory_.path().c_str(), 1);
  }
  ~made_locale() { unsetenv("LOCPATH"); }

 private:
  temp_dir directory_;
};

}  // namespace qvr::test
