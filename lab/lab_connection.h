// One TCP connection of a daemon: record marking (RFC 5531, section 11) on the lab's side.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#include "lab_faults.h"
#include "lab_gss.h"
#include "lab_reply.h"
#include "lab_sockets.h"

namespace qvr {

struct lab_state;
struct lab_program;

class lab_connection {
 public:
  // `number` counts over all daemons, `daemon_number` over the program's own.
  lab_connection(lab_state &lab, const lab_program &program, lab_socket socket,
                 std::uint64_t number, unsigned daemon_number);

  // Answers calls until either side ends. The connection's own thread.
  void serve();
  // Makes serve() end soon. Any thread.
  void interrupt();

 private:
  // Reads the next record into record_. False at the end, or when it is no good.
  bool read_record();
  bool fill();
  bool append_fragment(std::size_t size);
  bool send_reply(const lab_reply &reply, const lab_fault &fault);
  void count_sent(ssize_t put);
  bool send_plain(const lab_reply &reply);
  bool send_wrapped(const lab_reply &reply, const lab_fault &fault);
  bool send_bytes(std::string bytes, std::optional<unsigned> trickle_ms);
  // Lets the close be seen as a reset by the peer.
  void reset();
  void close_socket();

  lab_state &lab_;
  const lab_program &program_;
  std::mutex closing_;  // guards the closing of socket_ against interrupt()
  lab_socket socket_;
  bool hard_ = false;  // no orderly end
  std::uint64_t number_;
  fault_connection place_;
  lab_gss gss_;
  std::string input_;  // bytes that have come, from input_at_ on
  std::size_t input_at_ = 0;
  std::string record_;
  std::uint64_t sent_ = 0, heard_ = 0;  // bytes of replies, of requests
};

// The bytes of a reply message after what a fault rule does to it, with its record marks when
// `marked`.
std::string spoil_reply(const lab_reply &reply, const lab_fault &fault, bool marked);
// True when the rule changes the bytes.
bool spoils(const lab_fault &fault);

}  // namespace qvr
