// A private directory that goes when its owner goes.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qvr {

// Lies under TMPDIR. One owner; not for use by two threads at once.
class temp_dir {
 public:
  temp_dir() {
    std::string name = (std::filesystem::temp_directory_path() / "reelscan.XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = name;
  }
  ~temp_dir() {
    // A forked child that ends through exit() must leave its parent's files alone.
    std::error_code ignored;
    if (owner_ == getpid()) std::filesystem::remove_all(path_, ignored);
  }
  temp_dir(const temp_dir &) = delete;
  temp_dir &operator=(const temp_dir &) = delete;

  const std::string &path() const { return path_; }
  std::string file(std::string_view name) const { return path_ + '/' + std::string(name); }
  // Writes a whole file in it and gives its path.
  std::string write(std::string_view name, std::string_view bytes) const {
    std::ofstream(file(name), std::ios::binary) << bytes;
    return file(name);
  }

 private:
  std::string path_;
  pid_t owner_ = getpid();
};

}  // namespace qvr
