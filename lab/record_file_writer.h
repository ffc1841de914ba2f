// Record files as a backup leaves them on storage: one SQLite database a save set.
#pragma once

#include <cstdint>
#include <string>

#include "catalogue_sink.h"
#include "storage_paths.h"

namespace qvr {

struct record_place {
  std::string root;    // the directory that stands for the appliance
  std::string device;  // path of the device on it, beginning with "/"
  std::int64_t appid = 0;
  storage_layout layout = storage_layout::second;
  std::string subspace;
  int page_size = 4096;  // of the database, in bytes
};

// Writes the record file of `ss` below the directory of its client (in lower case), with one index
// entry of the name `filename`, and its empty data stub. Gives the file's path on this machine;
// empty with the reason in `why` on failure. Directories that are missing are made.
std::string write_record_file(const record_place &place, const ss_t &ss,
                              const std::string &filename, std::string &why);

// Takes the save sets of a catalogue to record files. What else a catalogue holds has no place
// there. Failures are kept: `why` tells the first.
class record_file_sink final : public catalogue_sink {
 public:
  explicit record_file_sink(record_place place) : place_(std::move(place)) {}
  void add_client(const lab_client &) override {}
  void add_resource(const lab_resource &) override {}
  void add_vol(const vol_t &) override {}
  void add_ss(const ss_t &ss) override;
  void add_history(const lab_history &) override {}

  const std::string &why() const { return why_; }
  std::size_t written() const { return written_; }

 private:
  record_place place_;
  std::string why_;
  std::size_t written_ = 0;
};

}  // namespace qvr
