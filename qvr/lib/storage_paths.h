// Where records, data stubs and save files lie on the device.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "errobj.h"

namespace qvr {

enum class storage_layout { second, first };

inline constexpr std::string_view REC_SUFFIX = ".rec";
inline constexpr std::string_view LCK_SUFFIX = ".lck";
inline constexpr std::string_view SS_SUFFIX = ".ss";
inline constexpr std::string_view TS10K_PREFIX = "_ts10k_";
inline constexpr std::int64_t TS10K_SECONDS = 10000;

// The paths of one client's and application's records. Subspaces are relative directory paths,
// empty for none; times are seconds since 1970. A path that is too long for the storage is refused
// there.
class storage_paths {
 public:
  // `client` as storage_client_name() gives it.
  storage_paths(std::string_view device, std::string_view client, std::int64_t appid);

  const std::string &root() const { return root_; }
  std::string base(storage_layout layout, std::string_view subspace) const;
  // Second layout: the directory of records. First layout: the same with "/index".
  std::string records(storage_layout layout, std::string_view subspace) const;
  std::string record_file(storage_layout layout, std::string_view subspace,
                          std::int64_t time) const;
  std::string data_stub(storage_layout layout, std::string_view subspace, std::int64_t time) const;
  std::string save_file(storage_layout layout, std::string_view subspace,
                        std::string_view name) const;

  // The subspace that the path of a record file shows. A path that is none of this place is message
  // 151975, no place for the result message 151974.
  errobj_t *subspace_of(storage_layout layout, const std::string &path, std::string *out) const;

 private:
  std::string root_;
};

// A client's name as it stands in paths.
std::string storage_client_name(std::string_view client);

// Reads the digits at the head of a name as a time. Message 149178 when there are none, or too many
// for 64 bits.
errobj_t *storage_name_time(std::string_view name, std::int64_t &time);

}  // namespace qvr
