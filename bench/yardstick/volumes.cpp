#include "volumes.h"

#include "catalogue_file.h"
#include "lab_sample.h"
#include "processes.h"
#include "ss_flags.h"
#include "ss_levels.h"

namespace qvr::bench {

namespace {

// Takes clients and configuration from a sample and drops its records.
class site_only final : public catalogue_sink {
 public:
  explicit site_only(catalogue_sink &next) : next_(next) {}
  void add_client(const lab_client &one) override {
    client = one;
    next_.add_client(one);
  }
  void add_resource(const lab_resource &one) override { next_.add_resource(one); }
  void add_vol(const vol_t &) override {}
  void add_ss(const ss_t &) override {}
  void add_history(const lab_history &) override {}

  lab_client client;  // the last of them

 private:
  catalogue_sink &next_;
};

ksui id_of(ksui_kind kind, std::uint32_t number) {
  ksui id = ksui_from_number(number);
  id.set_word(0, kind);
  id.set_word(2, number * 2654435761u);
  return id;
}

void add_volume(catalogue_sink &sink, unsigned number, std::int64_t now) {
  vol_t vol;
  std::string name = "tape." + std::to_string(number), barcode = "B" + std::to_string(number);
  vol.volid = id_of(KSUI_VOLUME, number + 1);
  vol.volume = name;
  vol.family = "tape";
  vol.type = "LTO Ultrium-8";
  vol.location = "Library 1";
  vol.pool = "Default";
  vol.barcode = barcode;
  vol.capacity = 12000000000;
  vol.written = number * 1000003ull;
  vol.volaccess = vol.olabel = vol.labeled = now - 1000;
  sink.add_vol(vol);
}

void add_save_set(catalogue_sink &sink, const lab_client &client, unsigned number, unsigned volume,
                  std::int64_t now) {
  ss_t ss;
  std::string name = "/export/home/" + std::to_string(number % 977);
  ss.ssid = id_of(KSUI_SAVESET, number + 1);
  ss.clientid = client.clientid;
  ss.client = client.name;
  ss.name = name;
  ss.level = LEVEL_FULL;
  ss.savetime = ss.sscreate = ss.ssinsert = ss.sscomp = now - 1000 - number % 80000;
  ss.ssflags = SS_VALID | SS_COMPLETE;
  ss.totalsize = number * 7919ull;
  ss.nfiles = number % 5000;
  ss.ssbrowse = ss.ssretent = 30 * 86400;
  frag_t frag;
  frag.volid = id_of(KSUI_VOLUME, volume + 1);
  clone_t clone{ss.savetime, SS_VALID | SS_COMPLETE, 1, &frag};
  ss.ncopies = 1;
  ss.clones = &clone;
  sink.add_ss(ss);
}

}  // namespace

bool write_volumes(const std::string &file, unsigned volumes, unsigned savesets, std::int64_t now) {
  catalogue_writer writer(file);
  site_only site(writer);
  sample_options options;
  options.midnight = local_midnight(now);
  options.days = 1;
  make_sample(options, site);
  for (unsigned vol = 0; vol < volumes; vol++) add_volume(writer, vol, now);
  for (unsigned i = 0; i < volumes * savesets; i++)
    add_save_set(writer, site.client, i, i % volumes, now);
  std::string why;
  return writer.close(why);
}

}  // namespace qvr::bench
