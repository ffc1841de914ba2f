// Puts the process into a time zone for the life of the guard.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>

namespace qvr_test {

class zone_guard {
 public:
  explicit zone_guard(const char *zone) {
    if (const char *old = std::getenv("TZ")) old_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  ~zone_guard() {
    if (old_)
      setenv("TZ", old_->c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }
  zone_guard(const zone_guard &) = delete;
  zone_guard &operator=(const zone_guard &) = delete;

 private:
  std::optional<std::string> old_;
};

// "2024-07-17 10:25:30" as local time, by the system library.
inline std::int64_t local_time_of(const char *text) {
  std::tm fields{};
  const char *rest = strptime(text, "%Y-%m-%d %H:%M:%S", &fields);
  if (rest == nullptr || *rest != '\0') throw std::invalid_argument(text);
  fields.tm_isdst = -1;
  return std::mktime(&fields);
}

inline std::string local_text_of(std::int64_t time) {
  std::time_t native = time;
  std::tm fields{};
  if (localtime_r(&native, &fields) == nullptr) return "?";
  char text[64];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
  return text;
}

}  // namespace qvr_test
