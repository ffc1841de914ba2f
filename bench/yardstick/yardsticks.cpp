#include "yardsticks.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <thread>

#include "evp_opener.h"
#include "mmdb_replies.h"
#include "processes.h"
#include "row_sort.h"
#ifdef RECORDS_PEER
#include "records_peer.h"
#endif

namespace qvr::bench {

namespace {

// Processor seconds of the calling thread in `work`.
double seconds_of(const std::function<void()> &work) {
  auto used = [] {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
  };
  double before = used();
  work();
  return used() - before;
}

#ifdef RECORDS_PEER
double tirpc(const pages_t &pages) {
  std::vector<peer_ss_reply> all(pages.pages().size());
  return seconds_of([&] {
    for (std::size_t i = 0; i < all.size(); i++) {
      ::XDR in;
      std::string_view page = pages.pages()[i];
      xdrmem_create(&in, const_cast<char *>(page.data()), static_cast<unsigned>(page.size()),
                    XDR_DECODE);
      if (!xdr_peer_ss_reply(&in, &all[i])) give_up("the peer refuses a page");
    }
  });
}
#endif

double decode(const pages_t &pages) {
  ss_list all;
  return seconds_of([&] {
    for (std::string_view page : pages.pages()) {
      xdr_memory_reader in(page);
      ssr_reply reply;
      if (!xdr_get_reply(in, reply)) give_up("a page is refused");
      all.append(std::move(reply.list));
    }
  });
}

// A connection to a thread that sends all pages.
double drain(const pages_t &pages) {
  int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *plain = reinterpret_cast<sockaddr *>(&address);
  if (bind(listener, plain, size) != 0 || listen(listener, 1) != 0) give_up("cannot listen");
  getsockname(listener, plain, &size);
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (connect(fd, plain, size) != 0) give_up("cannot connect");
  int peer = accept(listener, nullptr, nullptr);
  std::thread sender([&] {
    for (std::string_view page : pages.pages()) {
      while (!page.empty()) {
        ssize_t put = send(peer, page.data(), page.size(), MSG_NOSIGNAL);
        if (put <= 0) return;
        page.remove_prefix(static_cast<std::size_t>(put));
      }
    }
    shutdown(peer, SHUT_WR);
  });
  std::vector<char> buffer(128 * 1024);
  double seconds = seconds_of([&] {
    iovec part = {buffer.data(), buffer.size()};
    while (readv(fd, &part, 1) > 0) {
    }
  });
  sender.join();
  for (int each : {fd, peer, listener}) close(each);
  return seconds;
}

// In pieces of the size that the lab wraps, with contexts that are reused.
double crypt(const pages_t &pages) {
  constexpr std::size_t FRAGMENT = 64 * 1024;
  constexpr unsigned char IV[16] = {2};
  std::string key(32, '\1');
  evp_opener opener(key, FRAGMENT);
  return seconds_of([&] {
    for (std::string_view page : pages.pages()) {
      for (; !page.empty(); page.remove_prefix(std::min(FRAGMENT, page.size()))) {
        std::string_view fragment = page.substr(0, FRAGMENT);
        opener.open(fragment, IV, fragment.substr(0, fragment.size() & ~std::size_t{15}));
      }
    }
  });
}

// As many rows as records, over 2000 volumes.
struct many_rows_t {
  std::vector<std::string> names;
  std::vector<vol_t> volumes;
  ss_t ss;
  rows_t rows;

  explicit many_rows_t(std::size_t count) : names(2000), volumes(names.size()), rows(count) {
    for (std::size_t i = 0; i < names.size(); i++) {
      names[i] = (i % 3 == 0 ? "Archiv Köln." : i % 3 == 1 ? "vault." : "B") + std::to_string(i);
      volumes[i].volume = names[i];
    }
    std::mt19937_64 random(1);
    for (row_t &row : rows) {
      row.row_vol = &volumes[random() % volumes.size()];
      row.row_ss = &ss;
    }
  }
};

int by_volume_name(const void *a, const void *b) {
  return std::strcoll(static_cast<const row_t *>(a)->row_vol->volume.data(),
                      static_cast<const row_t *>(b)->row_vol->volume.data());
}

double sort_with_strcoll(const pages_t &pages) {
  many_rows_t many(pages.records());
  return seconds_of(
      [&] { std::qsort(many.rows.data(), many.rows.size(), sizeof(row_t), by_volume_name); });
}

double sort(const pages_t &pages) {
  many_rows_t many(pages.records());
  return seconds_of([&] { sort_rows("m", many.rows); });
}

constexpr yardstick_t all[] = {
#ifdef RECORDS_PEER
    {"tirpc", tirpc},
#endif
    {"decode", decode}, {"drain", drain}, {"crypt", crypt}, {"strcoll", sort_with_strcoll},
    {"sort", sort},
};

}  // namespace

std::span<const yardstick_t> yardsticks() {
  return all;
}

}  // namespace qvr::bench
