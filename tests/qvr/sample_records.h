// Records made by seed.
#pragma once

#include <random>
#include <string>

#include "arena.h"
#include "mmdb_replies.h"
#include "packed_attrs.h"
#include "piece_reader.h"
#include "records.h"
#include "xdr.h"

namespace qvr {

class sampler {
 public:
  explicit sampler(unsigned seed) : random_(seed) {}

  std::uint32_t below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  std::uint64_t word() { return random_(); }
  std::string text(std::uint32_t longest) {
    std::string out(below(longest + 1), ' ');
    for (char &c : out) c = static_cast<char>(below(256));
    return out;
  }
  ksui id() {
    ksui out;
    for (auto &byte : out.bytes) byte = static_cast<std::uint8_t>(random_());
    return out;
  }
  packed_attrs attrs(arena &page) {
    attrlist list;
    for (std::uint32_t i = below(4); i > 0; i--) {
      attr_t attr{text(20), {}};
      for (std::uint32_t v = below(3); v > 0; v--) attr.values.push_back(text(12));
      list.push_back(std::move(attr));
    }
    std::string series = packed_attrs::pack(list);
    return packed_attrs(page.copy(series));
  }

  ss_t *ss(arena &page) {
    auto *ss = page.make<ss_t>();
    ss->ss_head = static_cast<std::uint32_t>(word());
    ss->ssid = id();
    ss->pssid = id();
    ss->level = static_cast<std::int32_t>(word());
    ss->savetime = static_cast<std::int64_t>(word());
    ss->sscreate = static_cast<std::int64_t>(word());
    ss->ssinsert = static_cast<std::int64_t>(word());
    ss->sscomp = static_cast<std::int64_t>(word());
    ss->clientid = id();
    ss->ssflags = static_cast<std::uint32_t>(word());
    ss->client = page.copy(text(9));
    ss->name = page.copy(text(30));
    ss->totalsize = word();
    ss->nfiles = word();
    ss->ssbrowse = static_cast<std::uint32_t>(word());
    ss->ssretent = static_cast<std::uint32_t>(word());
    ss->attrs = attrs(page);
    auto clones = page.make_array<clone_t>(below(4));
    for (clone_t &clone : clones) {
      clone.cloneid = static_cast<std::int64_t>(word());
      clone.clflags = static_cast<std::uint32_t>(word());
      auto frags = page.make_array<frag_t>(below(4));
      for (frag_t &frag : frags) {
        frag.fragoffset = static_cast<std::int64_t>(word());
        frag.volid = id();
        frag.mediafile = static_cast<std::uint32_t>(word());
        frag.mediarec = static_cast<std::uint32_t>(word());
        frag.mediamark = static_cast<std::uint32_t>(word());
        frag.ssaccess = static_cast<std::int64_t>(word());
      }
      clone.nfrags = static_cast<std::uint32_t>(frags.size());
      clone.frags = frags.data();
    }
    ss->ncopies = static_cast<std::uint32_t>(clones.size());
    ss->clones = clones.data();
    return ss;
  }

  vol_t *vol(arena &page) {
    auto *vol = page.make<vol_t>();
    vol->vol_head = static_cast<std::uint32_t>(word());
    vol->volid = id();
    for (std::string_view *to :
         {&vol->volume, &vol->family, &vol->type, &vol->location, &vol->pool, &vol->barcode})
      *to = page.copy(text(15));
    vol->capacity = word();
    vol->written = word();
    vol->read = word();
    vol->next = static_cast<std::uint32_t>(word());
    vol->nrec = static_cast<std::uint32_t>(word());
    for (std::int64_t *to :
         {&vol->volaccess, &vol->volhold, &vol->olabel, &vol->labeled, &vol->volretent})
      *to = static_cast<std::int64_t>(word());
    for (std::uint32_t *to :
         {&vol->volflags, &vol->mounts, &vol->recycled, &vol->avail, &vol->metric})
      *to = static_cast<std::uint32_t>(word());
    vol->volattrs = attrs(page);
    auto ids = page.make_array<ksui>(below(5));
    for (ksui &each : ids) each = id();
    vol->nssids = static_cast<std::uint32_t>(ids.size());
    vol->ssids = ids.data();
    return vol;
  }

  hist *change(arena &page) {
    auto *out = page.make<hist>();
    out->hist_id = id();
    out->hist_clone = static_cast<std::int64_t>(word());
    out->operation = static_cast<std::int32_t>(below(4));
    out->timestamp = static_cast<std::int64_t>(word());
    for (std::string_view *to : {&out->user, &out->property, &out->oldvalue, &out->newvalue})
      *to = page.copy(text(10));
    out->validity = static_cast<std::int64_t>(word());
    out->changes = word();
    return out;
  }

  // A reply with `count` records of the kind that it carries.
  template <class Reply>
  Reply reply(std::uint32_t count) {
    Reply out;
    out.status = MMDB_OK;
    auto page = std::make_shared<arena>();
    for (std::uint32_t i = 0; i < count; i++) add(out.list, *page);
    out.list.pages.push_back(std::move(page));
    return out;
  }

 private:
  void add(ss_list &list, arena &page) { list.rows.push_back(ss(page)); }
  void add(vol_list &list, arena &page) { list.rows.push_back(vol(page)); }
  void add(hist_list &list, arena &page) { list.rows.push_back(change(page)); }

  std::mt19937_64 random_;
};

template <class Reply>
std::string encoded(const Reply &reply) {
  xdr_memory_writer out;
  xdr_put_reply(out, reply);
  return out.take();
}

}  // namespace qvr
