// The transport against its yardsticks: draining records off a connection beside a bare readv loop,
// and NULL calls beside the published RPC library, with that library's server at the other end.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "clnt_create.h"
#include "clnt_tcp.h"
#include "record_fixture.h"
#include "tcp_transport.h"
#ifdef TIRPC_PEER
#include "tirpc_peer.h"
#endif

using namespace qvr;

namespace {

constexpr std::size_t drained = 500'000'000;
constexpr std::size_t record_size = 1 << 20;

sockaddr_storage loopback(std::uint16_t port) {
  sockaddr_storage address = {};
  auto &v4 = reinterpret_cast<sockaddr_in &>(address);
  v4.sin_family = AF_INET;
  v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  v4.sin_port = htons(port);
  return address;
}

// A connection whose other end sends records of 1 MiB in fragments of that size until it is closed.
struct flood {
  int fd = -1;
  std::thread writer;

  explicit flood(std::size_t fragment) {
    int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_storage address = loopback(0);
    socklen_t size = sizeof(sockaddr_in);
    auto *plain = reinterpret_cast<sockaddr *>(&address);
    bind(listener, plain, size);
    listen(listener, 1);
    getsockname(listener, plain, &size);
    fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connect(fd, plain, size);
    int peer = accept(listener, nullptr, nullptr);
    close(listener);
    writer = std::thread([peer, bytes = record(payload_of(record_size), fragment)] {
      for (std::size_t at = 0;;) {
        ssize_t sent = send(peer, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (sent <= 0) break;
        at = (at + static_cast<std::size_t>(sent)) % bytes.size();
      }
      close(peer);
    });
  }
  ~flood() {
    shutdown(fd, SHUT_RDWR);
    close(fd);
    writer.join();
  }
};

std::uint32_t sum_of(const std::uint8_t *at, std::size_t size) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i + 4 <= size; i += 4) sum += XDR::load32(at + i);
  return sum;
}

template <bool touch>
void bare_readv(benchmark::State &state) {
  flood source(static_cast<std::size_t>(state.range(0)));
  std::vector<std::uint8_t> buffer(64 * 1024);
  std::uint32_t sum = 0;
  for (auto _ : state) {
    for (std::size_t got = 0; got < drained;) {
      iovec part = {buffer.data(), buffer.size()};
      ssize_t size = readv(source.fd, &part, 1);
      if (size <= 0) return state.SkipWithError("the connection ended");
      got += static_cast<std::size_t>(size);
      if (touch) sum += sum_of(buffer.data(), static_cast<std::size_t>(size));
      benchmark::DoNotOptimize(buffer.data());
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * drained));
}

// Word by word, as a decoder of small fields does.
bool take_words(XDR &xdr, std::uint32_t &sum) {
  for (std::size_t i = 0; i < record_size; i += 4) {
    std::uint32_t value;
    if (!xdr.get_u32(value)) return false;
    sum += value;
  }
  return true;
}

// In place where the bytes lie in one piece, as a decoder of fixed records does.
bool take_pieces(XDR &xdr, std::uint32_t &sum) {
  constexpr std::size_t piece = 256;
  for (std::size_t i = 0; i < record_size; i += piece) {
    std::uint8_t copy[piece];
    const std::uint8_t *at = xdr.inline_get(piece);
    if (at == nullptr) {
      if (!xdr.get_bytes(copy, piece)) return false;
      at = copy;
    }
    sum += sum_of(at, piece);
  }
  return true;
}

template <bool (*take)(XDR &, std::uint32_t &)>
void record_stream(benchmark::State &state) {
  flood source(static_cast<std::size_t>(state.range(0)));
  auto handle = clnt_tcp::make(source.fd, loopback(0), 1, 1, 0, 0);
  handle->set_no_timeout();
  XDR &xdr = *handle->stream();
  std::uint32_t sum = 0;
  for (auto _ : state) {
    for (std::size_t got = 0; got < drained; got += record_size) {
      if (!xdrrec_skiprecord(xdr, true) || !take(xdr, sum)) {
        return state.SkipWithError("the connection ended");
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * drained));
}

BENCHMARK(bare_readv<false>)->Arg(8192)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(bare_readv<true>)->Arg(8192)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(record_stream<take_words>)->Arg(8192)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(record_stream<take_pieces>)->Arg(8192)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

#ifdef TIRPC_PEER

constexpr std::size_t null_calls = 100'000;

void published_null_calls(benchmark::State &state) {
  test::tirpc_server server;
  test::tirpc_client client(server.port());
  for (auto _ : state) {
    if (!client.good() || client.null_calls(null_calls) != null_calls) {
      return state.SkipWithError("a call failed");
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * null_calls));
}

void handle_null_calls(benchmark::State &state) {
  test::tirpc_server server;
  int socket = -1;
  auto client = clnt_tcp_create(loopback(server.port()), test::TIRPC_PROGRAM, test::TIRPC_VERSION,
                                socket, 0, 0);
  for (auto _ : state) {
    for (std::size_t i = 0; i < null_calls; i++) {
      if (!client || client->call(test::TIRPC_NULL, {}, {}, std::chrono::seconds{25}) != 0) {
        return state.SkipWithError("a call failed");
      }
    }
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * null_calls));
}

BENCHMARK(published_null_calls)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(handle_null_calls)->Unit(benchmark::kMillisecond)->UseRealTime();

#endif

}  // namespace
