// Record files as a backup leaves them on storage: one SQLite database a save set.
#pragma once

#include <cstdint>
#include <string>

#include "catalogue_sink.h"
#include "storage_paths.h"

namespace qvr {

// The record file of `ss`, with one index entry of the name `filename`; `more`, unless null, is SQL
// that is run last. Empty on failure.
std::string record_file_bytes(const ss_t &ss, const std::string &filename, int page_size = 4096,
                              const char *more = nullptr);

struct record_place {
  std::string root;    // the directory that stands for the appliance
  std::string device;  // path of the device on it, beginning with "/"
  std::int64_t appid = 0;
  storage_layout layout = storage_layout::second;
  std::string subspace{};
  int page_size = 4096;  // of the databases, in bytes
};

// Takes the save sets of a catalogue to record files below the directories of their clients, each
// with its empty data stub; directories that are missing are made. What else a catalogue holds has
// no place there. A failure is kept: `why` tells the first.
class record_file_sink final : public catalogue_sink {
 public:
  explicit record_file_sink(record_place place) : place_(std::move(place)) {}
  void add_client(const lab_client &) override {}
  void add_resource(const lab_resource &) override {}
  void add_vol(const vol_t &) override {}
  void add_ss(const ss_t &ss) override;
  void add_history(const lab_history &) override {}

  const std::string &why() const { return why_; }
  // Save sets whose place was taken: a client has one record file for a save time.
  std::size_t doubles() const { return doubles_; }

 private:
  record_place place_;
  std::string why_;
  std::size_t doubles_ = 0;
};

}  // namespace qvr
