// The classes of error codes: names, texts and severities as constant rows.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace qvr {

enum err_class_t : int {
  ERR_SYSTEM = 1,
  ERR_RPC = 2,
  ERR_RAP = 3,
  ERR_QVR = 5,
  ERR_MDB = 8,
  ERR_JOBS = 9,
  ERR_GSS = 12,
  ERR_SSL = 13,
  ERR_OPENSSL = 14,
  ERR_CRYPKIT = 15,
  ERR_SSNCHNL = 16,
  ERR_SYSTEM2 = 18,
  ERR_SYSTEM_VSS = 19,
  ERR_AUTHC = 24,
  ERR_MSGBUS = 25,
  ERR_SQLITE = 27,
};

inline constexpr int ERR_CLASS_MAX = 35;

// The text of one number of a class. `id` 0: the text has no message id and is not translated.
struct err_number_t {
  std::int32_t id;
  std::int8_t severity;
  const char *text;
};

struct err_class_row_t {
  int cls;
  const char *name;
  int entries;                            // the highest number
  std::span<const err_number_t> numbers;  // indexed by number; empty: the class has no texts
};

// Null for a class without a row.
const err_class_row_t *err_class_row(int cls);
// "QVR" for a class without a row.
const char *err_class_name(int cls);
// "info" for anything but 1 to 5.
const char *err_severity_name(int severity);

// The severity that the table gives a code made with severity 0; 0 when the class has no
// severities.
int err_default_severity(int cls, int number);
// `code` with a severity of 0 filled from the table.
std::int32_t err_fill_severity(std::int32_t code);

// The text of a number in English, without its id. A number outside the class's texts gives
// "Unknown error code: %d", a class without texts "Unknown error".
std::string err_number_text(int cls, int number);
// The same in the form `id:text` when the text has an id; `has_id` tells.
std::string err_number_entry(int cls, int number, bool &has_id);

// The texts of the RPC status numbers 0 to 29, which messages and client handles share.
std::span<const err_number_t> rpc_status_texts();

}  // namespace qvr
