// The prepared records that the lab serves, in a file of reply bodies: what yardsticks work on.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qvr::bench {

// Writes the pages of the lab's sample to a file; false when that fails. Run in a process of its
// own, which holds the whole catalogue for that time.
bool write_pages(const std::string &file, const std::string &sample, std::uint64_t savesets,
                 std::int64_t now);

// A file of pages, mapped and read once, so that no yardstick pays for the first touch.
class pages_t {
 public:
  explicit pages_t(const std::string &file);
  std::span<const std::string_view> pages() const { return pages_; }
  std::size_t bytes() const { return bytes_; }
  std::size_t records() const { return records_; }

 private:
  std::vector<std::string_view> pages_;
  std::size_t bytes_ = 0, records_ = 0;
};

}  // namespace qvr::bench
