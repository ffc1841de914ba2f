#include <charconv>
#include <span>

#include "lab_faults.h"

namespace qvr {

const char *const LAB_FAULT_HELP =
    "A fault SPEC is a list of words, \"key=value,key,...\": what to strike, and how.\n"
    "What to strike (default: everything):\n"
    "  daemon=NAME        pmap, qvrexecd, qvrd or qvrmmdbd\n"
    "  proc=N             calls of this procedure\n"
    "  flavour=N          calls with a credential of this flavour\n"
    "  conn=N             the N-th connection of the daemon\n"
    "  call=N             from the N-th such call on\n"
    "  times=N            at most N times\n"
    "How, on connections:\n"
    "  refuse             close a new connection at once\n"
    "  close=N            close after N bytes of replies on the connection\n"
    "  cut=N              close after N bytes of replies over all such connections; a further\n"
    "                     strike closes the next connection after as many bytes of its own\n"
    "                     (with refuse: and no other connection is taken or answered from then)\n"
    "  cut-in=N           the same after N bytes of requests, before the answer\n"
    "  reset              closes become resets\n"
    "  spoil=N:MASK       byte N of the replies over all such connections, by these bits\n"
    "  spoil-in=N:MASK    the same of the requests\n"
    "  trickle=MS         one byte a segment, MS milliseconds between them\n"
    "How, on calls:\n"
    "  delay=MS           answer late; random-delay=MS by up to that\n"
    "  silence            never answer\n"
    "  fragment=N         records in fragments of N bytes\n"
    "  mark=WORD          the record mark that goes out in place of the right one\n"
    "  garbage=N          N bytes of noise in place of the reply\n"
    "  xid                another call's transaction id\n"
    "  truncate=N, pad=N  the record ends N bytes early, or late\n"
    "  patch=AT:WORD      the word at byte AT of the reply (below 0: from its end)\n"
    "  flip=BIT           one bit of the reply\n"
    "  accept=STATUS      accepted with this status: 1 program unavailable, 2 version mismatch,\n"
    "                     3 procedure unavailable, 4 garbage arguments, 5 system error\n"
    "  deny=WHY           denied for an authentication error; rpcvers: for the RPC version\n"
    "  error=CODE[:TEXT]  the procedure's own failure; busy: code 33000\n"
    "  structured         the failure travels as a whole error object\n"
    "  auth=FORM          of credentials: partial (error and credential), none, notarget, badsum,\n"
    "                     nosum, unnamed, long, challenge1\n"
    "  redirect=HOST:PROGRAM:VERSION   of credentials: ask there\n"
    "  verifier=FORM      none, same (tag 0), short (1), lost (2), noexpiry (4), login (3),\n"
    "                     challenge (5), unix (a short AUTH_UNIX credential)\n"
    "  gss=FORM           of handshakes: nohandle, major (2), continue, done, notoken, badtoken; "
    "of\n"
    "                     verifiers: badmic, nomic, flavour\n"
    "  lose               the connection's security contexts are forgotten before the call\n"
    "  tamper=BIT         one bit of the reply's first fragment on the encrypted channel\n"
    "  more=N             what a range reply says about further records\n"
    "  repeat             a range reply always gives the first page\n"
    "  nodes=N            a list of N nodes without records\n"
    "Numbers may be hexadecimal with 0x.\n";

namespace {

bool number(std::string_view text, std::int64_t &value) {
  bool minus = !text.empty() && text[0] == '-';
  if (minus) text.remove_prefix(1);
  int base = 10;
  if (text.starts_with("0x")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t size = 0;
  auto [end, trouble] = std::from_chars(text.data(), text.data() + text.size(), size, base);
  if (trouble != std::errc() || end != text.data() + text.size() || size > INT64_MAX) return false;
  value = static_cast<std::int64_t>(size);
  if (minus) value = -value;
  return true;
}

bool word(std::string_view text, std::uint32_t &value) {
  std::int64_t wide;
  if (!number(text, wide) || wide < INT32_MIN || wide > UINT32_MAX) return false;
  value = static_cast<std::uint32_t>(wide);
  return true;
}

template <auto Member>
bool set_word(lab_fault &fault, std::string_view text) {
  std::uint32_t value;
  if (!word(text, value)) return false;
  fault.*Member = static_cast<std::remove_cvref_t<decltype(fault.*Member)>>(value);
  return true;
}

template <auto Member>
bool set_bytes(lab_fault &fault, std::string_view text) {
  std::int64_t value;
  if (!number(text, value) || value < 0) return false;
  fault.*Member = static_cast<std::uint64_t>(value);
  return true;
}

template <auto Member>
bool set_flag(lab_fault &fault, std::string_view text) {
  fault.*Member = true;
  return text.empty();
}

template <auto Member>
bool set_text(lab_fault &fault, std::string_view text) {
  fault.*Member = std::string(text);
  return !text.empty();
}

bool set_daemon(lab_fault &fault, std::string_view text) {
  fault.daemon = std::string(text);
  return text == "pmap" || text == "qvrexecd" || text == "qvrd" || text == "qvrmmdbd";
}

bool add_patch(lab_fault &fault, std::string_view text) {
  std::size_t colon = text.find(':');
  std::int64_t at;
  std::uint32_t value;
  if (colon == std::string_view::npos || !number(text.substr(0, colon), at) ||
      !word(text.substr(colon + 1), value))
    return false;
  fault.patches.emplace_back(at, value);
  return true;
}

bool add_flip(lab_fault &fault, std::string_view text) {
  std::int64_t bit;
  if (!number(text, bit) || bit < 0) return false;
  fault.flips.push_back(static_cast<std::uint64_t>(bit));
  return true;
}

template <auto Member>
bool set_spoil(lab_fault &fault, std::string_view text) {
  std::size_t colon = text.find(':');
  std::int64_t at;
  std::uint32_t mask;
  if (colon == std::string_view::npos || !number(text.substr(0, colon), at) || at < 0 ||
      !word(text.substr(colon + 1), mask) || mask > UINT8_MAX)
    return false;
  fault.*Member = {static_cast<std::uint64_t>(at), static_cast<std::uint8_t>(mask)};
  return true;
}

bool set_error(lab_fault &fault, std::string_view text) {
  std::size_t colon = text.find(':');
  std::uint32_t code;
  if (!word(text.substr(0, colon), code)) return false;
  fault.error = static_cast<std::int32_t>(code);
  fault.error_text =
      colon == std::string_view::npos ? "the lab was told to fail" : text.substr(colon + 1);
  return true;
}

bool set_busy(lab_fault &fault, std::string_view text) {
  return text.empty() && set_error(fault, "33000:Resource database busy");
}

struct key_row_t {
  std::string_view key;
  bool (*read)(lab_fault &, std::string_view);
};

constexpr key_row_t KEYS[] = {
    {"daemon", set_daemon},
    {"proc", set_word<&lab_fault::procedure>},
    {"flavour", set_word<&lab_fault::flavour>},
    {"conn", set_word<&lab_fault::connection>},
    {"call", set_word<&lab_fault::first_call>},
    {"times", set_word<&lab_fault::times>},
    {"refuse", set_flag<&lab_fault::refuse>},
    {"close", set_bytes<&lab_fault::close_after>},
    {"cut", set_bytes<&lab_fault::cut_after>},
    {"reset", set_flag<&lab_fault::reset>},
    {"cut-in", set_bytes<&lab_fault::cut_in>},
    {"spoil", set_spoil<&lab_fault::spoil>},
    {"spoil-in", set_spoil<&lab_fault::spoil_in>},
    {"trickle", set_word<&lab_fault::trickle_ms>},
    {"delay", set_word<&lab_fault::delay_ms>},
    {"random-delay", set_word<&lab_fault::random_delay_ms>},
    {"silence", set_flag<&lab_fault::silence>},
    {"fragment", set_word<&lab_fault::fragment>},
    {"mark", set_word<&lab_fault::mark>},
    {"garbage", set_word<&lab_fault::garbage>},
    {"xid", set_flag<&lab_fault::wrong_xid>},
    {"truncate", set_word<&lab_fault::truncate>},
    {"pad", set_word<&lab_fault::pad>},
    {"patch", add_patch},
    {"flip", add_flip},
    {"accept", set_word<&lab_fault::accept>},
    {"deny", set_word<&lab_fault::deny>},
    {"rpcvers", set_flag<&lab_fault::rpc_mismatch>},
    {"error", set_error},
    {"busy", set_busy},
    {"structured", set_flag<&lab_fault::structured>},
    {"auth", set_text<&lab_fault::auth>},
    {"redirect", set_text<&lab_fault::redirect>},
    {"verifier", set_text<&lab_fault::verifier>},
    {"gss", set_text<&lab_fault::gss>},
    {"lose", set_flag<&lab_fault::lose>},
    {"tamper", set_bytes<&lab_fault::tamper>},
    {"more", set_word<&lab_fault::more>},
    {"repeat", set_flag<&lab_fault::repeat>},
    {"nodes", set_word<&lab_fault::nodes>},
};

bool known_form(std::string_view form, std::span<const std::string_view> forms) {
  for (std::string_view known : forms) {
    if (form == known) return true;
  }
  return form.empty();
}

constexpr std::string_view AUTH_FORMS[] = {"partial", "none",    "notarget", "badsum",
                                           "nosum",   "unnamed", "long",     "challenge1"};
constexpr std::string_view VERIFIER_FORMS[] = {"none",     "same",  "short",     "lost",
                                               "noexpiry", "login", "challenge", "unix"};
constexpr std::string_view GSS_FORMS[] = {"nohandle", "major",  "continue", "done",   "notoken",
                                          "badtoken", "badmic", "nomic",    "flavour"};

}  // namespace

std::optional<lab_fault> parse_fault(std::string_view spec, std::string &why) {
  lab_fault fault;
  fault.spec = std::string(spec);
  for (std::string_view rest = spec; !rest.empty();) {
    std::size_t comma = rest.find(',');
    // The text of an error may hold commas: it is the last word of its rule.
    if (rest.starts_with("error=") && rest.find(':') < comma) comma = std::string_view::npos;
    std::string_view item = rest.substr(0, comma);
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    std::size_t equals = item.find('=');
    std::string_view key = item.substr(0, equals);
    std::string_view value =
        equals == std::string_view::npos ? std::string_view() : item.substr(equals + 1);
    const key_row_t *found = nullptr;
    for (const key_row_t &row : KEYS) {
      if (row.key == key) found = &row;
    }
    if (found == nullptr || !found->read(fault, value)) {
      why = (found == nullptr ? "unknown fault word: " : "bad value of a fault word: ") +
            std::string(item);
      return std::nullopt;
    }
  }
  if (!known_form(fault.auth, AUTH_FORMS) || !known_form(fault.verifier, VERIFIER_FORMS) ||
      !known_form(fault.gss, GSS_FORMS)) {
    why = "unknown form in fault: " + fault.spec;
    return std::nullopt;
  }
  if (fault.fragment == 0u) {
    why = "a fragment needs bytes";
    return std::nullopt;
  }
  return fault;
}

}  // namespace qvr
