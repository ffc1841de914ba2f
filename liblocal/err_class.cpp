#include "err_class.h"

#include <cerrno>

#include "errobj.h"
#include "ks_wrappers.h"

namespace qvr {

namespace {

constexpr err_number_t rpc_texts[] = {
    {340, 1, "Success"},
    {80301, 5, "Can't encode arguments"},
    {342, 5, "Can't decode result"},
    {80795, 4, "RPC send operation failed"},
    {80796, 4, "RPC receive operation failed"},
    {345, 3, "Timed out"},
    {346, 4, "Incompatible versions of RPC"},
    {347, 4, "Authentication error"},
    {348, 4, "Program unavailable"},
    {349, 5, "RPC program or version mismatch"},
    {350, 5, "RPC server is unavailable"},
    {351, 5, "Server can't decode arguments"},
    {352, 4, "Remote system error"},
    {353, 5, "Unknown host"},
    {354, 4, "Port mapper failure"},
    {355, 4, "Program not registered"},
    {356, 5, "Failed (unspecified error)"},
    {357, 5, "Unknown protocol"},
    {358, 4, "Call interrupted"},
    {359, 5, "Remote address unknown"},
    {360, 5, "TLI error"},
    {361, 5, "Broadcasting not supported"},
    {362, 5, "Name to address translation failed"},
    {363, 5, "Recv got uderr indication"},
    {80304, 3, "Asynchronous RPC in progress"},
    {80305, 5, "Stale asynchronous RPC handle"},
    {80306, 5, "Couldn't make connection"},
    {80307, 5, "Received disconnect from remote host"},
    {80308, 5, "Can't push RPC module"},
    {80309, 4, "Can't store request"},
};

constexpr err_number_t rap_texts[] = {
    {307, 1, ""},
    {308, 5, "Operation not supported"},
    {309, 5, "Bad getids arguments"},
    {310, 5, "Bad create arguments"},
    {311, 5, "Bad delete arguments"},
    {312, 5, "Bad update arguments"},
    {313, 5, "Bad retrieve arguments"},
    {314, 5, "Bad or missing hostname"},
    {315, 5, "Bad or missing version number"},
    {316, 5, "Bad or missing program number"},
    {317, 5, "Bad or missing attribute name"},
    {318, 5, "No such type"},
    {319, 5, "Resource does not exist"},
    {320, 5, "Permission denied"},
    {321, 5, "Create permission denied"},
    {322, 5, "Unknown area"},
    {200956, 5, "Unknown parent"},
    {324, 5, "system error"},
    {325, 5, "sequence number mismatch"},
    {326, 5, "Resource already exists"},
    {327, 5, "Resource database failure"},
    {328, 5, "Resource parse error"},
    {329, 5, "Illegal values selection"},
    {330, 5, "Illegal numeric value"},
    {331, 5, "Too many values"},
    {332, 5, "Read-only attribute"},
    {333, 5, "No such attribute in this type"},
    {334, 5, "No type attribute specified"},
    {335, 5, "No such host"},
    {336, 5, "No such netgroup"},
    {337, 5, "No such attribute"},
    {338, 5, "Bad resource database pointer"},
    {339, 5, "Resource database busy"},
    {84560, 2, "Application ID is not recognized"},
};

constexpr err_number_t jobs_texts[] = {
    {0, 1, ""},
    {0, 4, "Invalid arguments"},
    {0, 5, "Unable to find job record"},
    {0, 4, "Invalid or NULL session channel"},
    {0, 5, "System error"},
};

constexpr err_number_t gss_texts[] = {
    {0, 1, ""},
    {77500, 5, "An unsupported mechanism was requested"},
    {77501, 5, "An invalid name was supplied"},
    {77502, 5, "A supplied name was of an unsupported type"},
    {77503, 5, "Incorrect channel bindings were supplied"},
    {77504, 5, "An invalid status code was supplied"},
    {77505, 5, "A token had an invalid MIC"},
    {77506, 5, "No credentials were supplied, or the credentials were unavailable or inaccessible"},
    {77507, 5, "No context has been established"},
    {77508, 5, "A token was invalid"},
    {77509, 5, "A credential was invalid"},
    {77510, 3, "The referenced credentials have expired"},
    {77511, 3, "The context has expired"},
    {77512, 5, "Miscellaneous failure"},
    {77513, 5, "The quality-of-protection requested could not be provided"},
    {77514, 5, "The operation is forbidden by local security policy"},
    {77515, 5, "The operation or option is unavailable"},
    {77516, 5, "The requested credential element already exists"},
    {77517, 5, "The provided name was not a mechanism name"},
};

constexpr err_number_t ssl_texts[] = {
    {0, 1, "The operation completed successfully"},
    {79335, 1, "The operation completed successfully"},
    {79336, 5, "The SSL connection has been closed."},
    {79337, 3, "The SSL read operation did not complete"},
    {79338, 3, "The SSL write operation did not complete"},
    {79339, 3, "The SSL connect operation did not complete"},
    {79340, 3, "The SSL accept operation did not complete"},
    {79341, 3, "The SSL X509 lookup operation did not complete"},
    {79342, 5, "An I/O error occured"},
    {79343, 5, "An error occurred as a result of an SSL protocol failure"},
};

constexpr err_number_t authc_texts[] = {
    {0, 1, ""},
    {33720, 5, "Unknown error."},
    {142692, 4, "The security context is invalid."},
    {142693, 5, "The security token had an invalid signature"},
    {142694, 5, "The security token is invalid"},
    {142695, 5, "Unable to determine the security token status"},
    {142696, 5, "The security token had an invalid stauts"},
    {142697, 5, "The security token is outside validity window"},
    {142698, 5, "The security token has expired"},
    {142699, 3, "The security token is not yet valid"},
};

constexpr err_number_t msgbus_texts[] = {
    {0, 1, ""},
    {1435, 5, "Unknown error"},
    {8120, 3, "Out of memory"},
    {144518, 5, "Decode error"},
    {144519, 5, "Encode error"},
    {144520, 3, "Database query error"},
};

constexpr err_class_row_t class_rows[] = {
    {ERR_SYSTEM, "SYSTEM", 1, {}},
    {ERR_RPC, "RPC", 29, rpc_texts},
    {ERR_RAP, "RAP", 33, rap_texts},
    {ERR_QVR, "QVR", 1, {}},
    {ERR_MDB, "MDB", 1, {}},
    {ERR_JOBS, "JOBS", 4, jobs_texts},
    {ERR_GSS, "GSS", 18, gss_texts},
    {ERR_SSL, "SSL", 9, ssl_texts},
    {ERR_OPENSSL, "OpenSSL", 1, {}},
    {ERR_CRYPKIT, "CRYPKIT", 1, {}},
    {ERR_SSNCHNL, "SSNCHNL", 29, rpc_texts},
    {ERR_SYSTEM2, "SYSTEM", 1, {}},
    {ERR_SYSTEM_VSS, "SYSTEM_VSS", 1, {}},
    {ERR_AUTHC, "AUTHC", 9, authc_texts},
    {ERR_MSGBUS, "MSGBUS", 5, msgbus_texts},
    {ERR_SQLITE, "SQLITE", 1, {}},
};

constexpr int UNKNOWN_NUMBER_SEVERITY = 5;

constexpr const char *severity_names[] = {"info",  "notice", "warning",
                                          "error", "severe", "critical"};

const err_number_t *number_row(int cls, int number) {
  const err_class_row_t *row = err_class_row(cls);
  if (row == nullptr || number < 0 || static_cast<std::size_t>(number) >= row->numbers.size()) {
    return nullptr;
  }
  return &row->numbers[static_cast<std::size_t>(number)];
}

// What a caller can put right by trying again or elsewhere is an error, the rest is critical.
int system_severity(int number) {
  switch (number) {
    case 0:
      return 1;
    case EINTR:
    case ENETDOWN:
    case ENETRESET:
    case ECONNRESET:
    case ETIMEDOUT:
      return 3;
    default:
      return 5;
  }
}

}  // namespace

const err_class_row_t *err_class_row(int cls) {
  if (cls < 0 || cls > ERR_CLASS_MAX) return nullptr;
  for (const err_class_row_t &row : class_rows) {
    if (row.cls == cls) return &row;
  }
  return nullptr;
}

const char *err_class_name(int cls) {
  const err_class_row_t *row = err_class_row(cls);
  return row != nullptr ? row->name : "QVR";
}

const char *err_severity_name(int severity) {
  return severity_names[severity >= 1 && severity <= 5 ? severity : 0];
}

int err_default_severity(int cls, int number) {
  if (cls == ERR_SYSTEM) return system_severity(number);
  if (const err_number_t *row = number_row(cls, number)) return row->severity;
  const err_class_row_t *row = err_class_row(cls);
  return row != nullptr && !row->numbers.empty() ? UNKNOWN_NUMBER_SEVERITY : 0;
}

std::int32_t err_fill_severity(std::int32_t code) {
  if (code <= 0 || err_severity(code) != 0) return code;
  return code + 1000 * err_default_severity(err_class(code), err_number(code));
}

std::string err_number_text(int cls, int number) {
  if (cls == ERR_SYSTEM) return number == 0 ? "Success" : ks_strerror(number);
  if (const err_number_t *row = number_row(cls, number)) return row->text;
  const err_class_row_t *row = err_class_row(cls);
  if (row == nullptr || row->numbers.empty()) return "Unknown error";
  return "Unknown error code: " + std::to_string(number);
}

std::string err_number_entry(int cls, int number, bool &has_id) {
  const err_number_t *row = number_row(cls, number);
  has_id = row != nullptr && row->id != 0;
  if (!has_id) return err_number_text(cls, number);
  return std::to_string(row->id) + ":" + row->text;
}

std::span<const err_number_t> rpc_status_texts() {
  return rpc_texts;
}

}  // namespace qvr
