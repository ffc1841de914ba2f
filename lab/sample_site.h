// The site behind a sample: who is backed up, and on what it lands.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "catalogue_sink.h"
#include "lab_sample.h"
#include "sample_random.h"

namespace qvr {

constexpr std::int64_t SAMPLE_DAY = 86400;

enum class client_kind { unix_host, windows_host, virtual_machines, filer };

struct site_client {
  lab_client client;
  client_kind kind = client_kind::unix_host;
  std::vector<std::string> aliases;
  std::string os_type;
  std::vector<std::string> savesets;  // names that are saved every day
};

// A volume that owns its texts and counts what is put on it.
struct site_volume {
  vol_t record;
  std::string volume, family, type, location, pool, barcode;
  attrlist attrs;
  std::uint64_t bytes = 0;
  // The record with views of the texts and, for the time of the call, of `series`.
  vol_t view(std::string &series);
};

struct sample_site {
  std::int64_t midnight = 0;
  std::string server;
  std::vector<site_client> clients;  // the server first
  std::vector<site_volume> volumes;
  // Indexes of volumes by what they are for.
  std::vector<std::size_t> disks, tapes, archive_tapes, offsite_tapes;
  // The ".RO" twin of a disk volume, by its index.
  std::size_t read_only_twin(std::size_t disk) const { return disk + 1; }
};

sample_site make_site(const sample_options &options, sample_random &random);
// Clients, configuration and volumes of the site (once all is on them) go to the sink.
void give_clients(const sample_site &site, catalogue_sink &sink);
void give_resources(const sample_site &site, catalogue_sink &sink);
void give_volumes(sample_site &site, catalogue_sink &sink);

// A new identifier of this kind, made of the random numbers.
ksui sample_id(ksui_kind kind, std::uint32_t number, std::int64_t time, sample_random &random);

}  // namespace qvr
