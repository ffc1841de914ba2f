// What the catalogue on storage asks of an appliance's client library: a handful of operations on a
// connection, behind which any storage can stand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "errobj.h"

namespace qvr {

inline constexpr int STORAGE_DESCRIPTOR_TYPE = 1;
inline constexpr std::uint32_t STORAGE_START_SIZE = 0x1000000;
inline constexpr std::uint32_t STORAGE_START_LIMIT = 255;
inline constexpr int STORAGE_TIER_CLOUD = 2;
inline constexpr unsigned STORAGE_NEW_FILE_MODE = 0640;

// How a connection is made.
struct storage_params {
  int type = STORAGE_DESCRIPTOR_TYPE;
  std::string host;
  std::string device_path;  // begins with "/"
  std::string user;
  std::string password;  // in clear
  bool fibre_channel = false;
  std::string fibre_channel_name;
  std::string client_information;
  bool auto_recall = false;
  int max_idle_connections = 1;
};

enum storage_open_flag : unsigned {
  STORAGE_READ_WRITE = 1,  // else for reading alone
  STORAGE_CREATE = 2,
  STORAGE_EXCLUSIVE = 4,
};

// An open file. One thread at a time; the destructor closes what is still open.
class storage_file {
 public:
  virtual ~storage_file() = default;
  // Reads from `offset`; `got` is the count of bytes read, less than wanted at the end of the file
  // and with an error.
  virtual errobj_t *read(std::int64_t offset, std::span<char> to, std::size_t &got) = 0;
  virtual errobj_t *write(std::int64_t offset, std::string_view bytes, std::size_t &put) = 0;
  virtual errobj_t *size(std::int64_t &bytes) = 0;
  virtual errobj_t *close() = 0;
};

// An open directory; the destructor closes it.
class storage_directory {
 public:
  virtual ~storage_directory() = default;
  // Gives one name, "." and ".." among them, in no order; `end` instead when there are no more.
  virtual errobj_t *next(std::string &name, bool &end) = 0;
};

// An open connection. Paths begin with "/" and are those of the appliance. An error of the class of
// system errors with the number 2 (ENOENT) means that there is no such file; see
// storage_is_missing(). One thread at a time.
class storage_connection {
 public:
  virtual ~storage_connection() = default;
  virtual errobj_t *open_directory(const std::string &path,
                                   std::unique_ptr<storage_directory> &directory) = 0;
  // Null when the file exists.
  virtual errobj_t *test(const std::string &path) = 0;
  virtual errobj_t *open_file(const std::string &path, unsigned flags, unsigned mode,
                              std::unique_ptr<storage_file> &file) = 0;
  virtual errobj_t *tier(const std::string &path, int &state) = 0;
};

// A kind of storage. Any thread may use one.
class storage_library {
 public:
  virtual ~storage_library() = default;
  // Whether the appliance `host` is reached through this library.
  virtual bool serves(const std::string &host) = 0;
  // Runs start() once for the process, before any connection; later calls give the same result.
  errobj_t *start_once(const storage_params &params);
  virtual errobj_t *connect(const storage_params &params,
                            std::unique_ptr<storage_connection> &connection) = 0;

 protected:
  virtual errobj_t *start(const storage_params &params, std::uint32_t size, std::uint32_t limit,
                          int max_idle_connections) = 0;

 private:
  std::once_flag started_;
  std::optional<errobj_t> start_error_;
};

// The code of an error that says that a file does not exist: a system error of number 2.
constexpr bool storage_is_missing(std::int32_t code) {
  return code >= 10000 && code <= 19999 && code % 1000 == 2;
}
inline bool storage_is_missing(const errobj_t *error) {
  return error != nullptr && storage_is_missing(error->code);
}

// The storage's answer that a file lies on the cloud tier.
inline bool storage_is_on_cloud_tier(const errobj_t *error) {
  return error != nullptr && error->code >= 290000 && error->code <= 299999 &&
         error->code % 1000 == 34;
}

// Existence as a value: `there` is false without an error when the file is missing.
errobj_t *storage_exists(storage_connection &connection, const std::string &path, bool &there);

// Libraries are asked in turn, the last registered first; behind all of them stands the directory
// tree "/" of this machine, for values of "hosts" that name it. Any thread.
void storage_register(std::shared_ptr<storage_library> library);
void storage_unregister(const storage_library *library);
std::shared_ptr<storage_library> storage_find(const std::string &host);

// The directory `root` of this machine as an appliance that goes by this host's names. It knows
// users and passwords of nobody and has one tier. Paths with a ".." in them and symbolic links in
// the last place are refused.
std::shared_ptr<storage_library> storage_directory_library(std::string root);

}  // namespace qvr
