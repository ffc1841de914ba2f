// An appliance in memory. It tells what was asked of it and fails where it is told to.
#pragma once

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "err_class.h"
#include "storage_library.h"

namespace qvr::test {

// One thread at a time.
class fake_storage final : public storage_library {
 public:
  std::string host = "appliance";
  std::unordered_map<std::string, std::string> files;
  std::map<std::string, std::set<std::string>> directories;
  std::function<std::string(const std::string &)> make;  // what an empty file holds when opened
  // Codes, by call as in `calls`; "twice DIRECTORY" doubles the names in it instead.
  std::map<std::string, std::int32_t> faults;
  std::map<std::string, int> tiers;  // 1 where none is given
  std::vector<std::string> calls;    // "opendir PATH", "next PATH", "read ...
  std::vector<storage_params> connects;
  std::int32_t start_fault = 0;  // code of the library's start

  void put(const std::string &path, std::string bytes = {}) {
    files[path] = std::move(bytes);
    for (std::string at = path; at.size() > 1;) {
      std::size_t slash = at.rfind('/');
      if (!directories[at.substr(0, slash)].insert(at.substr(slash + 1)).second) return;
      at.resize(slash);
    }
  }
  std::ptrdiff_t count(const std::string &operation) const {
    return std::count_if(calls.begin(), calls.end(), [&](const std::string &call) {
      return call.starts_with(operation + ' ');
    });
  }

  bool serves(const std::string &name) override { return name == host; }
  errobj_t *connect(const storage_params &params,
                    std::unique_ptr<storage_connection> &connection) override {
    connects.push_back(params);
    connection = std::make_unique<connection_t>(*this);
    return nullptr;
  }

 protected:
  errobj_t *start(const storage_params &, std::uint32_t, std::uint32_t, int) override {
    return start_fault == 0 ? nullptr : err_create(0, start_fault, "The appliance fails.");
  }

 private:
  errobj_t *call(const std::string &operation, const std::string &path, bool there = true) {
    calls.push_back(operation + ' ' + path);
    if (auto fault = faults.find(calls.back()); fault != faults.end())
      return err_create(0, fault->second, "The appliance fails.");
    return there ? nullptr : err_from_table(ERR_SYSTEM, ENOENT);
  }

  struct file_t final : storage_file {
    file_t(fake_storage &of, std::string at, std::string content)
        : storage(of), path(std::move(at)), bytes(std::move(content)) {}
    errobj_t *read(std::int64_t offset, std::span<char> to, std::size_t &got) override {
      got = 0;
      if (errobj_t *error = storage.call("read", path)) return error;
      got = bytes.copy(to.data(), to.size(),
                       std::min(static_cast<std::size_t>(offset), bytes.size()));
      return nullptr;
    }
    errobj_t *write(std::int64_t, std::string_view, std::size_t &put) override {
      put = 0;
      return err_from_table(ERR_SYSTEM, EROFS);
    }
    errobj_t *size(std::int64_t &size) override {
      size = static_cast<std::int64_t>(bytes.size());
      return storage.call("size", path);
    }
    errobj_t *close() override { return storage.call("close", path); }
    fake_storage &storage;
    std::string path, bytes;
  };
  struct directory_t final : storage_directory {
    directory_t(fake_storage &of, std::string at, const std::set<std::string> &all)
        : storage(of), path(std::move(at)), names(all), next_name(all.begin()) {}
    errobj_t *next(std::string &name, bool &end) override {
      end = next_name == names.end();
      if (!end) name = *next_name;
      again = !again && storage.faults.contains("twice " + path);
      if (!end && !again) ++next_name;
      return storage.call("next", path);
    }
    fake_storage &storage;
    std::string path;
    const std::set<std::string> &names;
    std::set<std::string>::const_iterator next_name;
    bool again = false;
  };
  struct connection_t final : storage_connection {
    explicit connection_t(fake_storage &of) : storage(of) {}
    errobj_t *open_directory(const std::string &path,
                             std::unique_ptr<storage_directory> &directory) override {
      auto at = storage.directories.find(path);
      bool there = at != storage.directories.end();
      if (errobj_t *error = storage.call("opendir", path, there || storage.files.contains(path)))
        return error;
      if (!there) return err_from_table(ERR_SYSTEM, ENOTDIR);
      directory = std::make_unique<directory_t>(storage, path, at->second);
      return nullptr;
    }
    errobj_t *test(const std::string &path) override {
      return storage.call("test", path,
                          storage.files.contains(path) || storage.directories.contains(path));
    }
    errobj_t *open_file(const std::string &path, unsigned, unsigned,
                        std::unique_ptr<storage_file> &file) override {
      auto at = storage.files.find(path);
      if (errobj_t *error = storage.call("open", path, at != storage.files.end())) return error;
      file = std::make_unique<file_t>(
          storage, path, at->second.empty() && storage.make ? storage.make(path) : at->second);
      return nullptr;
    }
    errobj_t *tier(const std::string &path, int &state) override {
      auto at = storage.tiers.find(path);
      state = at != storage.tiers.end() ? at->second : 1;
      return storage.call("tier", path, storage.files.contains(path));
    }
    fake_storage &storage;
  };
};

}  // namespace qvr::test
