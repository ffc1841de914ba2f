// Decoding replies of save sets: this project's decoder beside one that rpcgen made for the
// published library, over the same 200,000 records in pages of 8192. "wire" is bytes a record on
// the wire, "held" bytes of memory for each of them.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "mmdb_replies.h"
#include "xdr_records.h"

#ifdef RECORDS_PEER
#include "records_peer.h"
#endif

namespace {

using namespace qvr;

constexpr int RECORDS = 200000;
constexpr int PAGE = 8192;

ss_t *make_record(arena &page, std::mt19937_64 &random, int number) {
  auto *ss = page.make<ss_t>();
  ss->ssid = ksui_from_number(static_cast<std::uint32_t>(number));
  ss->ssid.set_word(0, KSUI_SAVESET);
  ss->savetime = 1700000000 + number;
  ss->sscreate = ss->ssinsert = ss->sscomp = ss->savetime;
  ss->ssflags = 0x304;
  ss->client = page.copy("client-" + std::to_string(random() % 50) + ".example.com");
  ss->name = page.copy("/export/home/" + std::to_string(random() % 1000));
  ss->totalsize = random();
  ss->nfiles = random() % 100000;
  ss->ssretent = 86400 * 30;
  std::string series =
      packed_attrs::pack({{"*policy action name", {"backup:" + std::to_string(ss->savetime)}},
                          {"*policy name", {"Gold:" + std::to_string(ss->savetime)}},
                          {"*policy workflow name", {"Servers:" + std::to_string(ss->savetime)}},
                          {"*ss clone retention", {std::to_string(ss->savetime) + ":0:2592000"}},
                          {"group", {"Default"}}});
  ss->attrs = packed_attrs(page.copy(series));
  auto clones = page.make_array<clone_t>(1 + random() % 2);
  for (clone_t &clone : clones) {
    clone.cloneid = ss->savetime;
    auto frags = page.make_array<frag_t>(1);
    frags[0].volid = ksui_from_number(static_cast<std::uint32_t>(random() % 500));
    clone.nfrags = 1;
    clone.frags = frags.data();
  }
  ss->ncopies = static_cast<std::uint32_t>(clones.size());
  ss->clones = clones.data();
  return ss;
}

const std::vector<std::string> &pages() {
  static const std::vector<std::string> made = [] {
    std::mt19937_64 random(1);
    std::vector<std::string> out;
    for (int first = 0; first < RECORDS; first += PAGE) {
      arena memory;
      ss_reply reply;
      reply.status = MMDB_OK;
      for (int i = first; i < std::min(RECORDS, first + PAGE); i++)
        reply.list.rows.push_back(make_record(memory, random, i));
      xdr_memory_writer writer;
      xdr_put_reply(writer, reply);
      out.push_back(writer.take());
    }
    return out;
  }();
  return made;
}

void count(benchmark::State &state, std::size_t held) {
  std::size_t wire = 0;
  for (const std::string &page : pages()) wire += page.size();
  state.SetItemsProcessed(state.iterations() * RECORDS);
  state.counters["wire"] = static_cast<double>(wire) / RECORDS;
  if (held != 0) state.counters["held"] = static_cast<double>(held) / static_cast<double>(wire);
}

void decode_pages(benchmark::State &state) {
  pages();
  std::size_t held = 0;
  for (auto _ : state) {
    ss_list all;
    held = 0;
    for (const std::string &bytes : pages()) {
      xdr_memory_reader in(bytes);
      ss_reply reply;
      if (!xdr_get_reply(in, reply)) state.SkipWithError("refused");
      held += reply.list.rows.capacity() * sizeof(ss_t *);
      for (const auto &page : reply.list.pages) held += page->held();
      all.append(std::move(reply.list));
    }
    benchmark::DoNotOptimize(all.rows.data());
  }
  count(state, held);
}
BENCHMARK(decode_pages)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

#ifdef RECORDS_PEER
void decode_rpcgen(benchmark::State &state) {
  pages();
  for (auto _ : state) {
    std::vector<peer_ss_reply> all(pages().size());
    for (std::size_t i = 0; i < all.size(); i++) {
      ::XDR in;
      std::string &bytes = const_cast<std::string &>(pages()[i]);
      xdrmem_create(&in, bytes.data(), static_cast<unsigned>(bytes.size()), XDR_DECODE);
      if (!xdr_peer_ss_reply(&in, &all[i])) state.SkipWithError("refused");
    }
    benchmark::DoNotOptimize(all.data());
    for (peer_ss_reply &reply : all)
      xdr_free(reinterpret_cast<xdrproc_t>(xdr_peer_ss_reply), reinterpret_cast<char *>(&reply));
  }
  count(state, 0);
}
BENCHMARK(decode_rpcgen)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();
#endif

}  // namespace
