// A client of libtirpc talks to the lab, whatever the fragments that its records come in.
#include <gtest/gtest.h>

#include <optional>

#include "fragment_proxy.h"
#include "installation.h"
#include "lab_catalogue.h"
#include "tirpc_lab_client.h"

namespace qvr::test {
namespace {

class tirpc_peer : public testing::Test {
 protected:
  void SetUp() override {
    lab_options options;
    options.sample = "2:4:10";
    options.port = 0;
    options.host = "localhost";
    options.keep_log = true;
    std::string why;
    ASSERT_TRUE(lab_.start(options, why)) << why;
  }
  void fragments_of(unsigned bytes) {
    std::string why;
    auto fault = parse_fault("fragment=" + std::to_string(bytes), why);
    ASSERT_TRUE(fault) << why;
    lab_.set_faults({*fault});
  }
  // What the catalogue holds, in the client's words.
  std::vector<tirpc_volume> wanted(bool full) {
    std::vector<tirpc_volume> list;
    for (const vol_row &row : lab_.catalogue().volumes()) {
      const vol_t &vol = row.record;
      tirpc_volume &one = list.emplace_back();
      one.volume = vol.volume;
      one.family = vol.family;
      one.type = vol.type;
      one.location = vol.location;
      one.pool = vol.pool;
      one.barcode = vol.barcode;
      one.capacity = vol.capacity;
      for (const attr_t &attr : vol.volattrs.unpack()) one.attributes.push_back(attr.name);
      if (full) one.savesets = (row.encoded.full_size - row.encoded.head_size - 4) / 20;
    }
    return list;
  }

  lab_installation lab_;
};

TEST_F(tirpc_peer, finds_the_daemons_over_both_transports) {
  for (bool udp : {false, true}) {
    SCOPED_TRACE(udp ? "udp" : "tcp");
    tirpc_lab_client mapper(lab_.port(), 100000, 2, udp);
    EXPECT_EQ(mapper.null(), 0);
    std::vector<std::array<unsigned long, 4>> rows;
    EXPECT_EQ(mapper.pmap_dump(rows), 0);
    EXPECT_EQ(rows.size(), 6u);
    std::uint16_t port = 0;
    EXPECT_EQ(mapper.pmap_getport(390107, 6, 6, port), 0);
    EXPECT_EQ(port, lab_.port("qvrmmdbd"));
    tirpc_lab_client wrong(lab_.port(), 100000, 3, udp);
    EXPECT_EQ(wrong.null(), 9);  // version mismatch
  }
}

// Replies in fragments that the lab makes, and both ways through a proxy that makes them.
TEST_F(tirpc_peer, exchanges_records_in_fragments_of_any_size) {
  std::uint16_t daemon = lab_.port("qvrmmdbd");
  for (unsigned bytes : {0u, 1u, 2u, 3u, 7u, 4096u, 1u << 20}) {
    for (bool proxied : {false, true}) {
      SCOPED_TRACE(testing::Message() << bytes << " proxy " << proxied);
      lab_.set_faults({});
      if (bytes != 0 && !proxied) fragments_of(bytes);
      std::optional<fragment_proxy> proxy;
      if (proxied) proxy.emplace(daemon, bytes != 0 ? bytes : SIZE_MAX);
      tirpc_lab_client client(proxied ? proxy->port() : daemon, 390107, 6, false);
      EXPECT_EQ(client.null(), 0);
      for (bool full : {false, true}) {
        std::vector<tirpc_volume> list;
        EXPECT_EQ(client.volumes_by_name("", full, list), 0);
        EXPECT_TRUE(list == wanted(full));
        list.clear();
        EXPECT_EQ(client.volumes_by_name("vault.001", full, list), 0);
        ASSERT_EQ(list.size(), 1u);
        EXPECT_EQ(list[0].volume, "vault.001");
      }
    }
  }
  for (const lab_event &event : lab_.events()) {
    if (event.event == "call") {
      EXPECT_EQ(event.auth, "AUTH_UNIX");
    }
  }
}

}  // namespace
}  // namespace qvr::test
