// The date reader: any text, any base. The first byte chooses the base.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "dates.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace qvr;
  if (size == 0) return 0;
  static constexpr std::int64_t bases[] = {
      0, 1721211930, 1711875600, 2147483647, 253402300799, -86400, TIME_FOREVER};
  std::int64_t base = bases[data[0] % std::size(bases)];
  std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
  std::uint32_t flags = 0;
  std::int64_t result = qvr_getdate_from(text, base, &flags);
  if (flags > 63) std::abort();
  if (base >= 0 && base < (std::int64_t{1} << 60) && result > base + 0xffffffffLL &&
      text != "forever") {
    std::abort();
  }
  qvr_getdate_end_from(text, base);
  qvr_getdate_any(text, true);
  iso_getdate(text);
  return 0;
}
