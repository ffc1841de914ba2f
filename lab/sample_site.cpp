#include "sample_site.h"

#include <algorithm>

#include "packed_attrs.h"
#include "ss_flags.h"

namespace qvr {

namespace {

struct client_row_t {
  const char *name;
  client_kind kind;
  const char *os_type;
  std::vector<std::string> aliases;
  std::vector<std::string> savesets;
};

// The first clients of every sample; further ones are numbered.
const std::vector<client_row_t> &client_rows() {
  static const std::vector<client_row_t> rows = {
      {"mars",
       client_kind::unix_host,
       "Linux",
       {"mars", "mars.example", "ares"},
       {"/", "/home", "/var/lib/data", "/srv/Bilder Straßenfest"}},
      {"venus.example",
       client_kind::windows_host,
       "Windows NT Server on Intel",
       {"venus", "venus.example"},
       {"C:\\", "D:\\Eigene Dateien", "DISASTER_RECOVERY:\\", "WINDOWS ROLES AND FEATURES:\\"}},
      {"saturn",
       client_kind::virtual_machines,
       "Linux",
       {"saturn", "vcenter.example"},
       {"vm:5006f1c2-8a1e:vcenter.example", "vm:5006f1c2-9b77:vcenter.example"}},
      {"filer1", client_kind::filer, "NetApp", {"filer1"}, {"/vol/vol0", "/vol/projets été"}},
      {"jupiter", client_kind::unix_host, "Solaris", {"jupiter", "zeus"}, {"/", "/export/home"}},
      {"pluto.example",
       client_kind::windows_host,
       "Windows NT Workstation on Intel",
       {"pluto.example", "pluto", "hades"},
       {"C:\\", "C:\\Users\\Zoë\\Documents"}},
      {"neptune", client_kind::unix_host, "AIX", {"neptune"}, {"/", "/oracle", "/opt/My Apps"}},
  };
  return rows;
}

site_client make_client(const std::string &name, const client_row_t &row, std::uint32_t number,
                        const sample_options &options, sample_random &random) {
  site_client client;
  client.client.name = name;
  client.client.clientid =
      sample_id(KSUI_CLIENT, random.word(), options.midnight - 400 * SAMPLE_DAY + number, random);
  client.kind = row.kind;
  client.aliases = row.aliases;
  client.os_type = row.os_type;
  client.savesets = row.savesets;
  return client;
}

// What a kind of volume looks like.
struct volume_row_t {
  const char *name;  // with %03u for its number
  const char *family, *type, *location, *pool;
  const char *barcode;         // with %04u, or empty
  std::uint64_t capacity;      // kilobytes
  std::uint32_t flags, avail;  // of the first of its kind
  std::int64_t retent_days;    // 0: forever
};

constexpr volume_row_t DISK = {"vault.%03u", "disk",     "adv_file", "", "Default",
                               "",           4000000000, 0,          0,  0};
constexpr volume_row_t TAPE = {"B%05u",   "tape",      "LTO Ultrium-8", "Library 1", "Default",
                               "B%05uL8", 12000000000, VOL_FULL,        VOL_NEAR,    365};
constexpr volume_row_t ARCHIVE = {"Archiv Köln.%03u",
                                  "tape",
                                  "LTO Ultrium-8",
                                  "Keller Süd",
                                  "Archive",
                                  "AK%04uL8",
                                  12000000000,
                                  VOL_WORM,
                                  0,
                                  0};
constexpr volume_row_t OFFSITE = {"offsite.%03u",  "tape",    "LTO Ultrium-7", "Iron vault 7",
                                  "Offsite clone", "X%05uL7", 6000000000,      VOL_READONLY,
                                  VOL_SMARTMEDIA,  730};
// Volumes that hold nothing, for the states that a report shows.
constexpr volume_row_t EMPTIES[] = {
    {"blank.%03u", "tape", "LTO Ultrium-8", "Library 1", "Default", "C%05uL8", 12000000000, 0,
     VOL_NEAR, 365},
    {"scratch.%03u", "tape", "LTO Ultrium-8", "Library 1", "Default", "S%05uL8", 12000000000,
     VOL_RECYCLE, VOL_NEAR, -3},
    {"manual.%03u", "tape", "LTO Ultrium-7", "Schrank 2", "Archive", "", 6000000000, VOL_MANUAL, 0,
     0},
    {"recycle me.%03u", "tape", "LTO Ultrium-7", "Schrank 2", "Archive", "D%05uL7", 6000000000,
     VOL_MANUAL | VOL_RECYCLE, 0, -30},
    {"scan.%03u", "tape", "LTO Ultrium-7", "", "Default", "E%05uL7", 6000000000,
     VOL_SCAN | VOL_INUSE, 0, 90},
    {"vaultlin.001.ladder.%03u", "disk", "BH Upper Rung", "", "Ladder", "", 0, 0, 0, 0},
};

std::string numbered(const char *format, unsigned number) {
  char text[64];
  std::string pattern(format);
  std::size_t percent = pattern.find('%');
  if (percent == std::string::npos) return pattern;
  // The format is one of the rows above: digits between "%0" and "u" are its width.
  int width = pattern[percent + 2] - '0';
  std::snprintf(text, sizeof text, "%0*u", width, number);
  return pattern.replace(percent, 4, text);
}

site_volume make_volume(const volume_row_t &row, unsigned number, const sample_options &options,
                        sample_random &random) {
  site_volume vol;
  vol.volume = numbered(row.name, number);
  vol.family = row.family;
  vol.type = row.type;
  vol.location = row.location;
  vol.pool = row.pool;
  vol.barcode = numbered(row.barcode, number);
  vol_t &record = vol.record;
  std::int64_t labelled =
      options.midnight - (300 + static_cast<std::int64_t>(random.below(60))) * SAMPLE_DAY + 36000;
  record.volid = sample_id(KSUI_VOLUME, random.word(), labelled, random);
  record.capacity = row.capacity;
  record.next = 2 + static_cast<std::uint32_t>(random.below(60));
  record.nrec = static_cast<std::uint32_t>(random.below(5000));
  record.olabel = labelled;
  record.labeled = labelled + static_cast<std::int64_t>(random.below(20)) * SAMPLE_DAY;
  record.volaccess = record.labeled;
  record.volretent =
      row.retent_days == 0 ? INT64_MAX : options.midnight + row.retent_days * SAMPLE_DAY;
  record.volflags = number == 1 ? row.flags : 0;
  record.avail = row.avail;
  record.mounts = static_cast<std::uint32_t>(random.below(200));
  record.recycled = static_cast<std::uint32_t>(random.below(5));
  record.metric = static_cast<std::uint32_t>(random.below(100));
  return vol;
}

void add_disks(sample_site &site, unsigned count, const sample_options &options,
               sample_random &random) {
  for (unsigned i = 1; i <= count; i++) {
    site_volume disk = make_volume(DISK, i, options, random);
    attrlist_set(disk.attrs, "device", "/backup/" + disk.volume);
    attrlist_set(disk.attrs, "device access information", site.server + ":/backup/" + disk.volume);
    site_volume twin = disk;
    twin.volume += ".RO";
    twin.record.volid = sample_id(KSUI_VOLUME, random.word(), disk.record.labeled, random);
    twin.record.volflags = VOL_READONLY;
    site.disks.push_back(site.volumes.size());
    site.volumes.push_back(std::move(disk));
    site.volumes.push_back(std::move(twin));
  }
}

void add_volumes(sample_site &site, const volume_row_t &row, unsigned count,
                 std::vector<std::size_t> *to, const sample_options &options,
                 sample_random &random) {
  for (unsigned i = 1; i <= count; i++) {
    if (to != nullptr) to->push_back(site.volumes.size());
    site.volumes.push_back(make_volume(row, i, options, random));
  }
}

}  // namespace

ksui sample_id(ksui_kind kind, std::uint32_t number, std::int64_t time, sample_random &random) {
  ksui id;
  id.set_word(0, static_cast<std::uint32_t>(kind));
  id.set_word(1, number);
  id.set_word(2, static_cast<std::uint32_t>(time));
  id.set_word(3, random.word());
  id.set_word(4, 0x1a2b3c4d);
  return id;
}

vol_t site_volume::view(std::string &series) {
  vol_t vol = record;
  vol.volume = volume;
  vol.family = family;
  vol.type = type;
  vol.location = location;
  vol.pool = pool;
  vol.barcode = barcode;
  vol.written = bytes / 1024;
  vol.read = bytes / 10240;
  if (vol.written > vol.capacity) vol.capacity = vol.written + vol.written / 8;
  series = packed_attrs::pack(attrs);
  vol.volattrs = packed_attrs(series);
  return vol;
}

sample_site make_site(const sample_options &options, sample_random &random) {
  sample_site site;
  site.midnight = options.midnight;
  site.server = options.server;
  static const client_row_t server_row = {
      "", client_kind::unix_host, "Linux", {}, {"/", "/etc", "/var"}};
  site.clients.push_back(make_client(options.server, server_row, 0, options, random));
  site.clients.back().aliases = {options.server};
  for (unsigned i = 1; i < std::max(options.clients, 1u); i++) {
    const auto &rows = client_rows();
    const client_row_t &row = rows[(i - 1) % rows.size()];
    std::string name = row.name;
    if (i > rows.size()) name = "client" + std::to_string(i);
    site.clients.push_back(make_client(name, row, i, options, random));
    if (i > rows.size()) site.clients.back().aliases = {name, name + ".example"};
  }
  // About 5000 save sets a volume in a large sample.
  auto scale = static_cast<unsigned>(options.savesets / 20000);
  add_disks(site, 3 + scale, options, random);
  add_volumes(site, TAPE, 4 + 2 * scale, &site.tapes, options, random);
  add_volumes(site, ARCHIVE, 2, &site.archive_tapes, options, random);
  add_volumes(site, OFFSITE, 3 + scale, &site.offsite_tapes, options, random);
  for (const volume_row_t &row : EMPTIES) add_volumes(site, row, 1, nullptr, options, random);
  site.volumes[site.tapes.back()].record.volflags |= VOL_INUSE;
  site.volumes[site.tapes.front()].record.volhold = VOL_HELD;
  return site;
}

void give_clients(const sample_site &site, catalogue_sink &sink) {
  for (const site_client &client : site.clients) sink.add_client(client.client);
}

void give_volumes(sample_site &site, catalogue_sink &sink) {
  for (std::size_t disk : site.disks) {
    site_volume &twin = site.volumes[site.read_only_twin(disk)];
    twin.record.volaccess = site.volumes[disk].record.volaccess;
  }
  for (site_volume &vol : site.volumes) {
    std::string series;
    sink.add_vol(vol.view(series));
  }
}

void give_resources(const sample_site &site, catalogue_sink &sink) {
  for (const site_client &client : site.clients) {
    attrlist attrs;
    attrlist_set(attrs, "type", "QVR client");
    attrlist_set(attrs, "name", client.client.name);
    attrlist_setv(attrs, "aliases", client.aliases);
    attrlist_set(attrs, "client OS type", client.os_type);
    attrlist_set(attrs, "client id", ksui_text(client.client.clientid, ksui_form::long_form));
    attrlist_add(attrs, "index path");
    sink.add_resource({"qvrd", std::move(attrs)});
  }
  struct {
    const char *type, *name;
    std::vector<std::pair<const char *, std::vector<std::string>>> attrs;
  } rows[] = {
      {"QVRLA",
       site.server.c_str(),
       {{"auth methods", {"0.0.0.0/0,oldauth", "::/0,oldauth"}},
        {"max auth attempts", {"8"}},
        {"positive DNS cache TTL", {"1800"}},
        {"negative DNS cache TTL", {"600"}},
        {"servers", {site.server}},
        {"connection encrypted", {"Disabled"}},
        {"TCP Retry", {"3"}},
        {"Multi-subnet state", {"Disabled"}},
        {"reverse DNS state", {"cached"}}}},
      {"QVR system port ranges",
       site.server.c_str(),
       {{"service ports", {"7937-9936"}},
        {"connection ports", {"0-0"}},
        {"excluded service ports", {"lab:7940"}}}},
      {"QVR log",
       "daemon.raw",
       {{"log path", {"/qvr/logs/daemon.raw"}},
        {"runtime rollover by time", {""}},
        {"runtime rollover by size", {""}},
        {"runtime rendered log", {""}},
        {"maximum versions", {"10"}},
        {"maximum size MB", {"2"}}}},
  };
  for (const auto &row : rows) {
    attrlist attrs;
    attrlist_set(attrs, "type", row.type);
    attrlist_set(attrs, "name", row.name);
    for (const auto &[name, values] : row.attrs) attrlist_setv(attrs, name, values);
    sink.add_resource({"qvrexecd", std::move(attrs)});
  }
}

}  // namespace qvr
