#include "lab_connection.h"

#include <limits.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "lab_dispatch.h"
#include "lab_exchange.h"
#include "lab_state.h"
#include "sample_random.h"

namespace qvr {

namespace {

constexpr std::uint32_t LAST_FRAGMENT = 0x80000000, CONTROL_HEADER = 0x40000000;
// Plain bytes of a fragment on the channel, and wrapped bytes of one write.
constexpr std::size_t WRAPPED_STEP = 64 * 1024, WRAPPED_WRITE = 1 << 20;
// More than any call needs.
constexpr std::size_t RECORD_MAX = 16 << 20;

std::string mark_of(std::uint32_t word) {
  char mark[4];
  XDR::store32(reinterpret_cast<std::uint8_t *>(mark), word);
  return std::string(mark, 4);
}

std::string peer_of(const lab_socket &socket) {
  lab_address address;
  address.size = sizeof address.storage;
  getpeername(socket.fd(), reinterpret_cast<sockaddr *>(&address.storage), &address.size);
  std::string text = address.text();
  return text.substr(0, text.rfind(':'));
}

void wait_before(lab_state &lab, const lab_fault &fault) {
  unsigned delay = fault.delay_ms;
  static std::atomic<std::uint64_t> turn{1};
  if (fault.random_delay_ms != 0)
    delay += static_cast<unsigned>(sample_random(turn++).below(fault.random_delay_ms + 1));
  if (delay != 0) lab.pause(delay);
}

}  // namespace

bool spoils(const lab_fault &fault) {
  return fault.fragment || fault.mark || fault.garbage || fault.truncate != 0 || fault.pad != 0 ||
         !fault.patches.empty() || !fault.flips.empty();
}

std::string spoil_reply(const lab_reply &reply, const lab_fault &fault, bool marked) {
  if (fault.garbage) {
    std::string noise;
    sample_random random(*fault.garbage);
    for (std::uint32_t i = 0; i < *fault.garbage; i++) noise += static_cast<char>(random.word());
    return noise;
  }
  std::string bytes = reply.flat();
  for (auto [at, word] : fault.patches) {
    std::int64_t from = at < 0 ? static_cast<std::int64_t>(bytes.size()) + at : at;
    if (from < 0 || from + 4 > static_cast<std::int64_t>(bytes.size())) continue;
    bytes.replace(static_cast<std::size_t>(from), 4, mark_of(word));
  }
  for (std::uint64_t bit : fault.flips) {
    if (bit / 8 < bytes.size())
      bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (0x80 >> (bit % 8)));
  }
  bytes.resize(bytes.size() - std::min<std::size_t>(fault.truncate, bytes.size()));
  bytes.append(fault.pad, '\0');
  if (!marked) return bytes;
  std::string out;
  std::size_t step = fault.fragment ? *fault.fragment : std::max<std::size_t>(bytes.size(), 1);
  for (std::size_t at = 0; at == 0 || at < bytes.size(); at += step) {
    std::size_t size = std::min(step, bytes.size() - at);
    bool last = at + size >= bytes.size();
    auto mark = static_cast<std::uint32_t>(size) | (last ? LAST_FRAGMENT : 0);
    out += mark_of(fault.mark && at == 0 ? *fault.mark : mark);
    out.append(bytes, at, size);
  }
  return out;
}

lab_connection::lab_connection(lab_state &lab, const lab_program &program, lab_socket socket,
                               std::uint64_t number, unsigned daemon_number)
    : lab_(lab),
      program_(program),
      socket_(std::move(socket)),
      number_(number),
      gss_(lab, &program == &GSS_PROGRAM, peer_of(socket_)) {
  place_.daemon = program.daemon;
  place_.number = daemon_number;
}

void lab_connection::interrupt() {
  std::lock_guard lock(closing_);
  shutdown(socket_.fd(), SHUT_RDWR);
}

void lab_connection::reset() {
  hard_ = true;
  linger hard{1, 0};
  setsockopt(socket_.fd(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
}

void lab_connection::close_socket() {
  std::lock_guard lock(closing_);
  if (!hard_) shutdown(socket_.fd(), SHUT_RDWR);
  socket_ = lab_socket();
}

void lab_connection::serve() {
  lab_event event;
  event.event = "open";
  event.conn = number_;
  event.daemon = program_.daemon;
  if (lab_.log.wanted()) {
    lab_address address;
    address.size = sizeof address.storage;
    getsockname(socket_.fd(), reinterpret_cast<sockaddr *>(&address.storage), &address.size);
    event.address = address.text();
    lab_.log.add(event);
  }
  lab_fault fault = lab_.faults.on_connect(place_);
  if (fault.reset) reset();
  lab_reply reply;
  while (!fault.refuse && read_record()) {
    // A switch of the channel leaves an empty record behind.
    if (record_.empty()) continue;
    reply.clear();
    lab_fault struck;
    lab_outcome outcome =
        dispatch_call(lab_, program_, place_, number_, record_, &gss_, reply, struck);
    if (outcome == lab_outcome::hang_up) break;
    if (outcome == lab_outcome::reply) {
      wait_before(lab_, struck);
      if (lab_.stopping || !send_reply(reply, struck)) break;
    }
    gss_.settle();
  }
  close_socket();
  event.event = "close";
  if (lab_.log.wanted()) lab_.log.add(event);
}

bool lab_connection::fill() {
  input_.erase(0, input_at_);
  input_at_ = 0;
  constexpr std::size_t step = 64 * 1024;
  std::size_t have = input_.size();
  input_.resize(have + step);
  ssize_t got;
  do {
    got = recv(socket_.fd(), input_.data() + have, step, 0);
  } while (got < 0 && errno == EINTR);
  auto size = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  input_.resize(have + size);
  heard_ += size;
  lab_.traffic.requests += size;
  if (size == 0 || lab_.faults.unbounded()) return size > 0;
  lab_.faults.spoil(place_, lab_way::requests, input_.data() + have, size);
  bool hard = false;
  bool whole = lab_.faults.allowed(place_, lab_way::requests, heard_ - size, size, hard) >= size;
  if (!whole && hard) reset();
  return whole;
}

// Appends the next fragment, of `size` bytes, to the record.
bool lab_connection::append_fragment(std::size_t size) {
  std::string wrapped;
  std::string &to = gss_.encrypted() ? wrapped : record_;
  for (std::size_t left = size; left > 0;) {
    if (input_at_ == input_.size() && !fill()) return false;
    std::size_t take = std::min(left, input_.size() - input_at_);
    to.append(input_, input_at_, take);
    input_at_ += take;
    left -= take;
  }
  return size == 0 || !gss_.encrypted() || gss_.unwrap(wrapped, record_);
}

bool lab_connection::read_record() {
  record_.clear();
  bool last = false;
  while (!last) {
    while (input_.size() - input_at_ < 4) {
      if (!fill()) return false;
    }
    std::uint32_t mark =
        XDR::load32(reinterpret_cast<const std::uint8_t *>(input_.data()) + input_at_);
    input_at_ += 4;
    last = (mark & LAST_FRAGMENT) != 0;
    std::size_t left = mark & ~LAST_FRAGMENT;
    if (left > RECORD_MAX || record_.size() + left > RECORD_MAX) return false;
    if (!append_fragment(left)) return false;
  }
  return true;
}

bool lab_connection::send_reply(const lab_reply &reply, const lab_fault &fault) {
  if (gss_.take_loss()) {
    // A control message of no bytes, and what follows is in plain.
    if (!send_bytes(mark_of(CONTROL_HEADER) + mark_of(0), std::nullopt)) return false;
  }
  if (gss_.encrypted()) return send_wrapped(reply, fault);
  if (!spoils(fault) && !fault.trickle_ms && lab_.faults.unbounded()) return send_plain(reply);
  return send_bytes(spoil_reply(reply, fault, true), fault.trickle_ms);
}

bool lab_connection::send_wrapped(const lab_reply &reply, const lab_fault &fault) {
  std::string bytes = spoil_reply(reply, fault, false), out, fragment;
  std::size_t step = fault.fragment.value_or(WRAPPED_STEP);
  for (std::size_t at = 0; at == 0 || at < bytes.size(); at += step) {
    std::string_view part = std::string_view(bytes).substr(at, step);
    bool last = at + part.size() >= bytes.size();
    fragment.clear();
    if (!part.empty() && !gss_.wrap(part, fragment)) return false;
    if (at == 0 && fault.tamper && *fault.tamper / 8 < fragment.size()) {
      char &byte = fragment[*fault.tamper / 8];
      byte = static_cast<char>(byte ^ (0x80 >> (*fault.tamper % 8)));
    }
    auto mark = static_cast<std::uint32_t>(fragment.size()) | (last ? LAST_FRAGMENT : 0);
    out += mark_of(fault.mark && at == 0 ? *fault.mark : mark);
    out += fragment;
    if (out.size() >= WRAPPED_WRITE && !last) {
      if (!send_bytes(std::move(out), fault.trickle_ms)) return false;
      out.clear();
    }
  }
  return send_bytes(std::move(out), fault.trickle_ms);
}

void lab_connection::count_sent(ssize_t put) {
  sent_ += static_cast<std::uint64_t>(put);
  lab_.traffic.replies += static_cast<std::uint64_t>(put);
}

bool lab_connection::send_plain(const lab_reply &reply) {
  std::string mark = mark_of(static_cast<std::uint32_t>(reply.size()) | LAST_FRAGMENT);
  std::vector<iovec> parts;
  parts.push_back({mark.data(), mark.size()});
  for (std::string_view piece : reply.pieces())
    parts.push_back({const_cast<char *>(piece.data()), piece.size()});
  for (std::size_t at = 0; at < parts.size();) {
    msghdr message{};
    message.msg_iov = parts.data() + at;
    message.msg_iovlen = std::min<std::size_t>(parts.size() - at, IOV_MAX);
    int more = at + message.msg_iovlen < parts.size() ? MSG_MORE : 0;
    ssize_t put = sendmsg(socket_.fd(), &message, MSG_NOSIGNAL | more);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    count_sent(put);
    auto left = static_cast<std::size_t>(put);
    while (at < parts.size() && left >= parts[at].iov_len) left -= parts[at++].iov_len;
    if (left > 0) {
      parts[at].iov_base = static_cast<char *>(parts[at].iov_base) + left;
      parts[at].iov_len -= left;
    }
  }
  return true;
}

bool lab_connection::send_bytes(std::string bytes, std::optional<unsigned> trickle_ms) {
  bool hard = false;
  lab_.faults.spoil(place_, lab_way::replies, bytes.data(), bytes.size());
  std::uint64_t allowed = lab_.faults.allowed(place_, lab_way::replies, sent_, bytes.size(), hard);
  bool whole = allowed >= bytes.size();
  bytes.resize(std::min<std::size_t>(bytes.size(), allowed));
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t size = trickle_ms ? 1 : bytes.size() - at;
    ssize_t put = send(socket_.fd(), bytes.data() + at, size, MSG_NOSIGNAL);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    count_sent(put);
    at += static_cast<std::size_t>(put);
    if (trickle_ms && *trickle_ms != 0 && at < bytes.size() && !lab_.pause(*trickle_ms))
      return false;
  }
  if (!whole && hard) reset();
  return whole;
}

}  // namespace qvr
