#include "pages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "installation.h"
#include "lab_catalogue.h"
#include "processes.h"
#include "xdr.h"

namespace qvr::bench {

namespace {

constexpr std::size_t PAGE_RECORDS = 8192;
constexpr std::uint32_t GOOD = 2;
constexpr std::size_t HEAD = 8;  // bytes and records of the page that follows

void put_word(std::string &to, std::uint32_t value) {
  std::uint8_t word[4];
  XDR::store32(word, value);
  to.append(reinterpret_cast<const char *>(word), 4);
}

}  // namespace

bool write_pages(const std::string &file, const std::string &sample, std::uint64_t savesets,
                 std::int64_t now) {
  lab_options options;
  options.sample = sample;
  options.scale = savesets;
  options.now = now;
  options.serve = false;
  lab_installation lab;
  std::string why;
  if (!lab.start(options, why)) return false;
  std::ofstream out(file, std::ios::binary);
  std::span<const ss_row> rows = lab.catalogue().savesets();
  for (std::size_t first = 0; first < rows.size(); first += PAGE_RECORDS) {
    std::span<const ss_row> part = rows.subspan(first, std::min(PAGE_RECORDS, rows.size() - first));
    std::string body, head;
    put_word(body, GOOD);
    for (const ss_row &row : part) body += row.encoded.full();
    put_word(body, 0);
    put_word(body, first + PAGE_RECORDS < rows.size() ? 2 : 0);
    put_word(head, static_cast<std::uint32_t>(body.size()));
    put_word(head, static_cast<std::uint32_t>(part.size()));
    out << head << body;
  }
  return static_cast<bool>(out.flush());
}

pages_t::pages_t(const std::string &file) {
  int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat facts {};
  if (fd < 0 || fstat(fd, &facts) != 0) give_up("cannot read " + file);
  auto size = static_cast<std::size_t>(facts.st_size);
  void *at = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  close(fd);
  if (at == MAP_FAILED) give_up("cannot map " + file);
  std::string_view left(static_cast<const char *>(at), size);
  while (left.size() >= HEAD) {
    auto *head = reinterpret_cast<const std::uint8_t *>(left.data());
    std::size_t body = XDR::load32(head);
    pages_.push_back(left.substr(HEAD, body));
    bytes_ += body;
    records_ += XDR::load32(head + 4);
    left.remove_prefix(HEAD + body);
  }
}

}  // namespace qvr::bench
