#include "msg_console.h"

#include <array>
#include <cstring>

#include "msg_rings.h"
#include "progname.h"
#include "text_convert.h"

namespace qvr {

void console_write(std::FILE *stream, std::string_view text) {
  if (stream == stderr) std::fflush(stdout);
  text_to_file(stream, text);
}

void console_write_headed(std::FILE *stream, std::int32_t id, std::string_view separator,
                          std::string_view text, std::string_view end) {
  constexpr std::size_t head_room = 512;
  std::array<char, head_room + MSG_LARGE_BYTES> line;
  std::size_t size = 0;
  auto append = [&](std::string_view part) {
    size += part.copy(line.data() + size, line.size() - size);
  };
  std::array<char, 16> number;
  int digits = std::snprintf(number.data(), number.size(), "%d:", id);
  append({number.data(), static_cast<std::size_t>(digits)});
  size += std::strlen(ks_get_progname(line.data() + size, head_room / 2));
  append(separator);
  append(text);
  append(end);
  console_write(stream, {line.data(), size});
}

}  // namespace qvr
