// The encrypted channel beside the bare primitives: the same fragments through gss_unwrap, and
// through HMAC-SHA-1 and AES-256-CBC of the crypto library with contexts that are reused.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "gss_channel.h"
#include "gss_context.h"
#include "yardstick/evp_opener.h"

namespace {

std::uint64_t allocations = 0;

}  // namespace

// Not inline, for the optimiser would see new go with free.
[[gnu::noinline]] void *operator new(std::size_t size) {
  allocations++;
  if (void *memory = std::malloc(size != 0 ? size : 1)) return memory;
  std::abort();
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
  std::free(memory);
}

namespace {

using namespace qvr;

struct channel_t {
  gss_ctx context;
  std::string key = std::string(GSS_SECURE_KEY_SIZE, 'k');
  std::vector<std::string> fragments;  // wrapped
  explicit channel_t(std::size_t size) {
    context.qop = qop_find(QOP_SECURE);
    context.session = 7;
    context.set_key(key);
    for (int i = 0; i < 16; i++) {
      gss_buffer out;
      if (gss_wrap(context, std::string(size, static_cast<char>(i)), out) == nullptr) {
        fragments.emplace_back(out.view());
      }
    }
  }
};

void set_bytes(benchmark::State &state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}

void unwrap(benchmark::State &state) {
  channel_t channel(static_cast<std::size_t>(state.range(0)));
  std::size_t at = 0;
  for (auto _ : state) {
    gss_buffer out;
    if (gss_unwrap(channel.context, channel.fragments[at++ % 16], out) != nullptr) std::abort();
    benchmark::DoNotOptimize(out.data.get());
  }
  set_bytes(state);
}

void wrap(benchmark::State &state) {
  channel_t channel(static_cast<std::size_t>(state.range(0)));
  std::string plain(static_cast<std::size_t>(state.range(0)), 'p');
  for (auto _ : state) {
    gss_buffer out;
    if (gss_wrap(channel.context, plain, out) != nullptr) std::abort();
    benchmark::DoNotOptimize(out.data.get());
  }
  set_bytes(state);
}

// The least that verifying and deciphering takes.
void evp_open(benchmark::State &state) {
  channel_t channel(static_cast<std::size_t>(state.range(0)));
  bench::evp_opener opener(channel.key, channel.fragments[0].size());
  std::size_t at = 0;
  for (auto _ : state) {
    std::string_view fragment = channel.fragments[at++ % 16];
    auto *bytes = reinterpret_cast<const unsigned char *>(fragment.data());
    benchmark::DoNotOptimize(opener.open(fragment.substr(0, fragment.size() - 24), bytes + 4,
                                         fragment.substr(20, fragment.size() - 44)));
  }
  set_bytes(state);
}

// The same fragments off a wire, through the record stream to the caller's memory. What a fragment
// allocates is counted: its plaintext, and nothing else.
void read_stream(benchmark::State &state) {
  auto size = static_cast<std::size_t>(state.range(0));
  channel_t channel(size);
  struct wire_t {
    std::string bytes;
    std::size_t at = 0;
    std::size_t take(std::uint8_t *to, std::size_t most) {
      std::size_t part = std::min(most, bytes.size() - at);
      if (part != 0) std::memcpy(to, bytes.data() + at, part);
      at = at + part == bytes.size() ? 0 : at + part;
      return part;
    }
  } wire;
  for (const std::string &fragment : channel.fragments) {
    std::uint8_t head[4];
    XDR::store32(head, static_cast<std::uint32_t>(fragment.size()));
    wire.bytes.append(reinterpret_cast<const char *>(head), 4).append(fragment);
  }
  auto stream = xdrrec2_create_vectored(
      &wire, 0, 128 * 1024,  // as a handle has them
      [](void *from, std::uint8_t *b1, std::size_t s1, std::uint8_t *b2, std::size_t s2) {
        auto &bytes = *static_cast<wire_t *>(from);
        std::size_t first = bytes.take(b1, s1);
        if (first == s1) first += bytes.take(b2, s2);
        return static_cast<std::int64_t>(first);
      },
      nullptr);
  auto shared = std::make_shared<gss_channel>();
  shared->context = std::shared_ptr<gss_ctx>(&channel.context, [](gss_ctx *) {});
  std::string plain(size, '\0');
  if (!stream->crypt_on(gss_channel_ops(shared)) || !stream->skiprecord(true) ||
      !stream->get_bytes(plain.data(), size)) {
    std::abort();
  }
  std::uint64_t before = allocations;
  for (auto _ : state) {
    if (!stream->get_bytes(plain.data(), size)) std::abort();
    benchmark::DoNotOptimize(plain.data());
  }
  state.counters["allocations"] = benchmark::Counter(static_cast<double>(allocations - before),
                                                     benchmark::Counter::kAvgIterations);
  set_bytes(state);
}

BENCHMARK(evp_open)->Arg(400)->Arg(65536);
BENCHMARK(unwrap)->Arg(400)->Arg(65536);
BENCHMARK(read_stream)->Arg(400)->Arg(65536);
BENCHMARK(wrap)->Arg(400)->Arg(65536);

}  // namespace
