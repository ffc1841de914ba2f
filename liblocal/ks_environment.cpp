#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <set>
#include <string>

#include "immortal.h"
#include "ks_clock.h"
#include "ks_errors.h"
#include "ks_wrappers.h"
#include "text_convert.h"

namespace qvr {

namespace {

struct converted_values_t {
  std::mutex lock;  // guards the set
  std::set<std::string, std::less<>> values;
};

converted_values_t &converted_values() {
  static immortal<converted_values_t> the_values;
  return *the_values;
}

}  // namespace

const char *ks_getenv(const char *name) {
  const char *value = std::getenv(name);
  if (value == nullptr) return nullptr;
  if (text_is_ascii(value)) return value;
  converted_values_t &kept = converted_values();
  std::lock_guard hold(kept.lock);
  return kept.values.insert(name_from_locale(value)).first->c_str();
}

int ks_putenv(const char *name, const char *value) {
  if (name == nullptr || value == nullptr) return ks_null_argument();
  if (setenv(name, value, 1) != 0) return ks_set_error(errno, KS_ERROR_ERRNO);
  return KS_OK;
}

std::int64_t ks_time() {
  constexpr std::int64_t forever = 0x7fffffff;
  std::int64_t now = ks_clock_now();
  return now == forever ? forever - 1 : now;
}

void ks_sleep_ms(std::uint32_t milliseconds) {
  struct timespec left;
  left.tv_sec = static_cast<time_t>(milliseconds / 1000);
  left.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

char *ks_strptime(const char *text, const char *format, struct tm *out) {
  return strptime(text, format, out);
}

int ks_once(ks_once_t &once, void (*function)()) {
  int rc = pthread_once(&once.control, function);
  return rc == 0 ? KS_OK : ks_set_error(rc, KS_ERROR_ERRNO);
}

int ks_gethostname(char *buffer, std::size_t size) {
  int rc = gethostname(buffer, size);
  if (rc != 0) {
    ks_set_error(errno, KS_ERROR_ERRNO);
  } else if (size != 0) {
    buffer[size - 1] = '\0';
  }
  return rc;
}

}  // namespace qvr
