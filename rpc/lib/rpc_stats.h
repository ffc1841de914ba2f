// What a connection has moved, and the file that shows it while it lasts. The presence of the
// checksums directory switches the files on; marker files tune them (debug_markers.h).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "record_stream.h"

namespace qvr {

struct rpc_stats_counters {
  std::uint64_t count = 0;   // bytes moved
  std::uint32_t crc = 0;     // for each byte: rotate right by 1, add the byte
  std::uint32_t sum = 0;     // plain sum of the bytes
  std::uint32_t nblock = 0;  // transfers that would have blocked
};

// Belongs to one connection and its thread.
class rpc_stats {
 public:
  rpc_stats() = default;
  ~rpc_stats() { close_file(); }
  rpc_stats(const rpc_stats &) = delete;
  rpc_stats &operator=(const rpc_stats &) = delete;

  rpc_stats_counters wrote, read;
  bool blocking_only = false;

 private:
  friend void rpc_stats_note(rpc_stats &stats, rpc_stats_counters &counters, const void *bytes,
                             std::size_t size);
  friend void rpc_stats_dump(rpc_stats &stats);
  friend void rpc_stats_start(rpc_stats &stats, xdr_record_stream &stream, int socket,
                              std::string_view name, xdrrec_fragmax_callback callback,
                              void *argument);
  friend void rpc_stats_stop(rpc_stats &stats, xdr_record_stream *stream, bool remove);
  void close_file();

  bool count_only_ = true;
  int file_ = -1;
  std::string path_;
};

// The fragment limit of a stream: 100 MiB unless the marker "fragmax" holds another.
std::uint32_t rpc_stats_fragmax();

// Counts bytes that were read or written.
void rpc_stats_note(rpc_stats &stats, rpc_stats_counters &counters, const void *bytes,
                    std::size_t size);
// Writes both lines to the file, if there is one.
void rpc_stats_dump(rpc_stats &stats);
// Begins: the fragment limit and its callback on the stream in every case, the file where the
// directories ask for it. `name` is the stream's, as "mmdb_clnt".
void rpc_stats_start(rpc_stats &stats, xdr_record_stream &stream, int socket, std::string_view name,
                     xdrrec_fragmax_callback callback, void *argument);
// Ends: the file is closed, and deleted with `remove`; the stream (may be null) loses its limit.
void rpc_stats_stop(rpc_stats &stats, xdr_record_stream *stream, bool remove);

}  // namespace qvr
