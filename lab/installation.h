// A small installation in one process: port mapper, qvrexecd, qvrd and qvrmmdbd on loopback
// addresses. It speaks the protocols and serves a catalogue; it holds no report logic.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "call_log.h"
#include "lab_faults.h"
#include "lab_options.h"

namespace qvr {

class lab_catalogue;

// Started and stopped by one thread; the rest by any.
class lab_installation {
 public:
  lab_installation();
  ~lab_installation();
  lab_installation(const lab_installation &) = delete;
  lab_installation &operator=(const lab_installation &) = delete;

  // Makes or reads the catalogue, listens, and answers from then on. False on failure, with the
  // reason in `why`.
  bool start(const lab_options &options, std::string &why);
  // Ends all connections and threads. The catalogue and the log stay readable.
  void stop();

  // The host that the installation answers for, and ports of its daemons ("pmap", "qvrexecd",
  // "qvrd", "qvrmmdbd") on its addresses.
  const std::string &host() const;
  std::uint16_t port(const std::string &daemon = "pmap") const;
  // Where it listens, as "127.0.0.1:7938".
  std::vector<std::string> addresses() const;

  const lab_catalogue &catalogue() const;
  // What happened so far (with keep_log), and a new beginning.
  std::vector<lab_event> events() const;
  void clear_events();
  struct traffic_t {
    std::uint64_t replies, requests;  // bytes over TCP
    // Calls to qvrd and qvrmmdbd outside of the encrypted channel, but for those that establish who
    // calls.
    std::uint64_t in_clear;
  };
  // So far.
  traffic_t traffic() const;
  // The daemon that the present rules struck first; empty while there was none.
  std::string first_struck() const;
  // New rules in place of all; their counters start anew.
  void set_faults(std::vector<lab_fault> faults);

 private:
  class daemons_t;
  std::unique_ptr<daemons_t> daemons_;
};

}  // namespace qvr
