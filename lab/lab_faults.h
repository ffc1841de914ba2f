// Misbehaviour on demand: rules that say which connections and calls are treated badly, and how.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qvr {

// What a rule matches (empty: anything) and what it does. All actions of a rule strike together.
struct lab_fault {
  // Matching.
  std::string daemon;
  std::optional<std::uint32_t> procedure;
  std::optional<std::uint32_t> flavour;
  std::optional<unsigned> connection;  // of the daemon, counted from 1
  unsigned first_call = 1;             // strikes from the n-th matching call on
  std::optional<unsigned> times;       // strikes at most so often

  // Of connections.
  bool refuse = false;
  bool reset = false;                        // a close becomes a reset
  std::optional<std::uint64_t> close_after;  // bytes of replies on the connection
  std::optional<std::uint64_t> cut_after;    // bytes of replies on all matching connections
  std::optional<std::uint64_t> cut_in;       // the same of requests
  std::optional<unsigned> trickle_ms;        // one byte a segment, this pause between
  // Which byte of replies over all matching connections is changed, and the bits that change.
  std::optional<std::pair<std::uint64_t, std::uint8_t>> spoil;
  std::optional<std::pair<std::uint64_t, std::uint8_t>> spoil_in;  // the same of requests

  // Of calls.
  unsigned delay_ms = 0;
  unsigned random_delay_ms = 0;
  bool silence = false;
  std::optional<std::uint32_t> fragment;  // bytes a fragment
  std::optional<std::uint32_t> mark;      // the record mark of the reply
  std::optional<std::uint32_t> garbage;   // bytes of noise in place of the reply
  bool wrong_xid = false;
  std::uint32_t truncate = 0;
  std::uint32_t pad = 0;
  std::vector<std::pair<std::int64_t, std::uint32_t>> patches;  // at byte (from the end below 0)
  std::vector<std::uint64_t> flips;                             // bits of the reply
  std::optional<std::uint32_t> accept;                          // accept_stat (RFC 5531)
  std::optional<std::uint32_t> deny;                            // auth_stat (RFC 5531)
  bool rpc_mismatch = false;
  std::optional<std::int32_t> error;  // the procedure's own failure
  std::string error_text;
  bool structured = false;  // the failure travels as a whole error object
  std::string auth;         // form of the answer of the auth server
  std::string redirect;     // host:program:version
  std::string verifier;
  std::string gss;                      // form of the answer of RPCSEC_GSS
  bool lose = false;                    // the connection's contexts are forgotten
  std::optional<std::uint64_t> tamper;  // bit of the first wrapped fragment of the reply
  std::optional<std::int32_t> more;
  bool repeat = false;
  std::optional<std::uint32_t> nodes;

  std::string spec;  // as it was told
};

// Reads a rule, "key=value,key=value". On failure `why` says what is wrong with it.
std::optional<lab_fault> parse_fault(std::string_view spec, std::string &why);
// What the rules may say, for a help text.
extern const char *const LAB_FAULT_HELP;

enum class lab_way { replies, requests };

// Which connection a question is about.
struct fault_connection {
  std::string_view daemon;
  unsigned number = 0;  // of the daemon, from 1
};

// The rules and their counters. Any thread.
class lab_faults {
 public:
  // Replaces all rules; counters start anew.
  void set(std::vector<lab_fault> rules);

  // The rules that strike a new connection / a call, merged into one.
  lab_fault on_connect(const fault_connection &connection);
  lab_fault on_call(const fault_connection &connection, std::uint32_t procedure,
                    std::uint32_t flavour);

  // How many of the next `size` bytes may pass on a connection where `done` have passed that way.
  // Less than `size` means that the connection is closed behind them (`reset` then says how).
  std::uint64_t allowed(const fault_connection &connection, lab_way way, std::uint64_t done,
                        std::uint64_t size, bool &reset);
  // Changes what rules want changed in the bytes that pass on a connection.
  void spoil(const fault_connection &connection, lab_way way, char *bytes, std::size_t size);
  // True when no rule looks at the bytes that pass.
  bool unbounded() const;
  // The daemon that the rules struck first; empty while there was none.
  std::string first_struck() const;

 private:
  struct rule_t {
    lab_fault fault;
    unsigned calls = 0;
    unsigned strikes = 0;
    std::uint64_t bytes = 0;                 // counted for the cuts and spoils
    std::optional<std::uint64_t> struck_at;  // bytes that the first cut connection had sent
  };
  static bool matches(const rule_t &rule, const fault_connection &connection);
  static bool spent(const rule_t &rule);
  static std::uint64_t room_of_cut(rule_t &rule, std::uint64_t after, std::uint64_t done,
                                   std::uint64_t size);
  void strike(rule_t &rule, const fault_connection &connection);

  mutable std::mutex mutex_;  // guards the rest
  std::vector<rule_t> rules_;
  std::string first_struck_;
};

}  // namespace qvr
