// The transport against its yardsticks: draining records off a connection beside a bare readv loop,
// and NULL calls beside the published RPC library, with that library's server at the other end.
// The two take turns within a benchmark, so that what else the machine does falls on both; the
// counters are the medians of the turns' ratios, of the CPU time of this thread and of the time on
// the clock.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
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

constexpr std::size_t turn_bytes = 10 * (1 << 20);
constexpr std::size_t record_size = 1 << 20;
constexpr std::size_t turns = 48;  // in which 500 MB are drained, or 100,000 calls made

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

std::int64_t now(clockid_t clock) {
  timespec time;
  clock_gettime(clock, &time);
  return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

// What the transport took of a yardstick's time, turn by turn.
class comparison {
 public:
  template <class Yardstick, class Transport>
  void turn(Yardstick yardstick, Transport transport) {
    moment_t before = time();
    yardstick();
    moment_t between = time();
    transport();
    moment_t after = time();
    cpu_.push_back(ratio(after.cpu - between.cpu, between.cpu - before.cpu));
    clock_.push_back(ratio(after.clock - between.clock, between.clock - before.clock));
  }
  void report(benchmark::State &state) {
    state.counters["cpu_ratio"] = median(cpu_);
    state.counters["clock_ratio"] = median(clock_);
  }

 private:
  struct moment_t {
    std::int64_t cpu, clock;
  };
  static moment_t time() { return {now(CLOCK_THREAD_CPUTIME_ID), now(CLOCK_MONOTONIC)}; }
  static double ratio(std::int64_t a, std::int64_t b) {
    return static_cast<double>(a) / static_cast<double>(b);
  }
  static double median(std::vector<double> &all) {
    if (all.empty()) return 0;
    auto middle = all.begin() + static_cast<std::ptrdiff_t>(all.size() / 2);
    std::nth_element(all.begin(), middle, all.end());
    return *middle;
  }
  std::vector<double> cpu_, clock_;
};

std::uint32_t sum_of(const std::uint8_t *at, std::size_t size) {
  std::uint32_t sum = 0;
  for (std::size_t i = 0; i + 4 <= size; i += 4) sum += XDR::load32(at + i);
  return sum;
}

bool drain_bare(int fd, std::vector<std::uint8_t> &buffer, std::uint32_t &sum) {
  for (std::size_t got = 0; got < turn_bytes;) {
    iovec part = {buffer.data(), buffer.size()};
    ssize_t size = readv(fd, &part, 1);
    if (size <= 0) return false;
    got += static_cast<std::size_t>(size);
    sum += sum_of(buffer.data(), static_cast<std::size_t>(size));
  }
  return true;
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
void drain(benchmark::State &state) {
  flood bare(static_cast<std::size_t>(state.range(0)));
  flood source(static_cast<std::size_t>(state.range(0)));
  std::vector<std::uint8_t> buffer(64 * 1024);
  auto handle = clnt_tcp::make(source.fd, loopback(0), 1, 1, 0, 0);
  handle->set_no_timeout();
  XDR &xdr = *handle->stream();
  std::uint32_t sum = 0;
  bool good = true;
  comparison compared;
  for (auto _ : state) {
    for (std::size_t i = 0; i < turns; i++) {
      compared.turn([&] { good = good && drain_bare(bare.fd, buffer, sum); },
                    [&] {
                      for (std::size_t got = 0; good && got < turn_bytes; got += record_size) {
                        good = xdrrec_skiprecord(xdr, true) && take(xdr, sum);
                      }
                    });
    }
    if (!good) return state.SkipWithError("the connection ended");
    benchmark::DoNotOptimize(sum);
  }
  compared.report(state);
}

BENCHMARK(drain<take_words>)->Arg(8192)->Arg(1 << 20)->Unit(benchmark::kMillisecond);
BENCHMARK(drain<take_pieces>)->Arg(8192)->Arg(1 << 20)->Unit(benchmark::kMillisecond);

#ifdef TIRPC_PEER

void null_calls(benchmark::State &state) {
  constexpr std::size_t calls = 100'000 / turns;
  test::tirpc_server server, other;
  test::tirpc_client published(server.port());
  int socket = -1;
  auto client = clnt_tcp_create(loopback(other.port()), test::TIRPC_PROGRAM, test::TIRPC_VERSION,
                                socket, 0, 0);
  bool good = published.good() && client != nullptr;
  comparison compared;
  for (auto _ : state) {
    for (std::size_t i = 0; good && i < turns; i++) {
      compared.turn([&] { good = published.null_calls(calls) == calls; },
                    [&] {
                      for (std::size_t call = 0; good && call < calls; call++) {
                        good = client->call(test::TIRPC_NULL, {}, {}, std::chrono::seconds{25}) ==
                               RPC_SUCCESS;
                      }
                    });
    }
    if (!good) return state.SkipWithError("a call failed");
  }
  compared.report(state);
}

BENCHMARK(null_calls)->Unit(benchmark::kMillisecond)->UseRealTime();

#endif

}  // namespace
