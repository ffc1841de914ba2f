// What an installation holds, as it passes from its source (sample, file) to its holders (the
// served catalogue, a file).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "attrlist.h"
#include "records.h"

namespace qvr {

// A client of the media database: one pair of the client id map.
struct lab_client {
  ksui clientid;
  std::string name;
};

// A resource of one of the two resource databases.
struct lab_resource {
  std::string database;  // "qvrd" or "qvrexecd"
  attrlist attrs;        // with "type" and "name"
};

// A change record and what is known of the save set that it is about, which may be gone.
struct lab_history {
  hist record;
  std::string client;
  std::string name;
  ksui clientid;
};

// Records are borrowed for the time of the call. Clients come before what belongs to them.
class catalogue_sink {
 public:
  virtual ~catalogue_sink() = default;
  virtual void add_client(const lab_client &client) = 0;
  virtual void add_resource(const lab_resource &resource) = 0;
  // The save sets of a volume are those that have a fragment there; `ssids` is not read.
  virtual void add_vol(const vol_t &vol) = 0;
  virtual void add_ss(const ss_t &ss) = 0;
  virtual void add_history(const lab_history &history) = 0;
};

}  // namespace qvr
