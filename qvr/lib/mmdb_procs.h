// The procedures of the media database's program: their numbers, argument shapes and replies as
// constant rows, and a reader that walks any call's arguments by its row.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

#include "xdr.h"

namespace qvr {

inline constexpr std::uint32_t MMDB_PROGRAM = 390107;
inline constexpr std::uint32_t MMDB_VERSION = 6;  // the version whose numbers these are

enum mmdb_proc : std::uint32_t {
  MMDB_NULL = 0,
  MMDB_FETCHSS_IDS = 53,
  MMDB_GET_SS = 54,
  MMDB_GET_SS_TIMES_CLIENT = 55,
  MMDB_GET_SS_RANGE = 57,
  MMDB_GET_CLIENTS = 58,
  MMDB_GET_VOLS_FAMILY = 63,
  MMDB_GET_VOL_ID = 64,
  MMDB_GET_VOLS_NAME = 65,
  MMDB_GET_VOLS_POOL = 68,
  MMDB_GET_VOLS_BARCODE = 69,
  MMDB_GET_VOLS_LOCATION = 70,
  MMDB_GET_CLIDMAP = 76,
  MMDB_FETCHCVR_IDS = 78,
  MMDB_GET_SS_TIMES = 90,
  MMDB_FRAGMENT_OP = 91,  // the one that a session remembers to be refused
  MMDB_GET_HISTORY = 96,
};

// What one argument is on the wire. The first ones are single words.
enum class mmdb_type : std::uint8_t {
  int32,
  uint32,
  enumeration,
  boolean,
  char32,  // a character in a word
  int64,
  uint64,
  string,
  string128,  // at most 128 bytes
  id,
  attributes,
  values,
  range,
  frag,
  clidmap,
  ss,
  vol,
  resource,
  vol_filter,  // string, string, uint32, uint32, string, uint32, range, optional attributes, id,
               // int32
  ss_times,    // id, array of int64, array of ids
  ss_ids,      // id, optional list of ids
};

enum class mmdb_form : std::uint8_t {
  plain,
  optional,       // a presence word in front
  array,          // a count in front
  optional_list,  // presence, then items, each followed by "another follows"
  direct_list,    // the same without the presence word
  optional_array,
};

struct mmdb_arg_t {
  mmdb_type type = mmdb_type::int32;
  mmdb_form form = mmdb_form::plain;
  const char *name = "";  // empty where the protocol gives none
};

enum class mmdb_reply : std::uint8_t {
  none,
  errinfo,
  ss,
  ssr,
  vol,
  volr,
  ssop,
  ids,
  clidmap,
  volops,
  history,
  bools,
  attributes,  // the list itself, with no status
};

struct mmdb_proc_t {
  std::uint32_t number;
  const char *name;  // empty for those that a report never calls
  std::span<const mmdb_arg_t> args;
  mmdb_reply reply;
};

// All rows, by number. 59, 66, 67 and 92 are not in use.
std::span<const mmdb_proc_t> mmdb_procs();
// Null for a number that is not in use.
const mmdb_proc_t *mmdb_find_proc(std::uint32_t number);

// Reads the arguments of a call as its row says. `text` (when given) receives them as
// "name=value name=value ...", texts in quotes, at most the first 16 items of an array or list.
// False when they do not decode. Nothing is kept.
bool mmdb_walk_args(const mmdb_proc_t &proc, XDR &xdr, std::string *text);

}  // namespace qvr
