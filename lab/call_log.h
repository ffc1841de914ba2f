// What happened to an installation: each connection and each call, in the order in which they came.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace qvr {

// One line of the log. Its JSON form has the same names; members without meaning are left out.
struct lab_event {
  std::string event;       // "open", "close" of a connection, "call"
  std::uint64_t conn = 0;  // number of the connection, from 1 over all daemons; 0: UDP
  std::string daemon;      // pmap, qvrexecd, qvrd, qvrmmdbd
  std::string address;     // of the daemon's end, with open
  std::uint32_t prog = 0;
  std::uint32_t vers = 0;
  std::uint32_t proc = 0;
  std::string name;           // of the procedure
  std::string auth;           // AUTH_NONE, AUTH_UNIX, AUTH_KSTR, AUTH_KSTR short ...
  std::string args = "{}";    // decoded arguments, a JSON object
  std::string status;         // what was answered, or why nothing was
  std::uint64_t records = 0;  // of the list in the reply
  std::uint64_t bytes = 0;    // of the reply
  std::string fault;          // rules that struck

  std::string line() const;
};

// Any thread.
class call_log {
 public:
  // Lines also go to this file, which is made anew. False when it cannot be written.
  bool open(const std::string &path);
  // Events are kept in memory for events().
  void keep(bool on) { keep_ = on; }
  // False: nobody reads, and arguments need not be told.
  bool wanted() const { return keep_ || file_ != nullptr; }
  void add(const lab_event &event);
  std::vector<lab_event> events() const;
  void clear();

 private:
  struct file_closer {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };
  mutable std::mutex mutex_;  // guards events_ and the writing of lines
  bool keep_ = false;         // set before the daemons start
  std::unique_ptr<std::FILE, file_closer> file_;
  std::vector<lab_event> events_;
};

// Reads a log file's lines back. Lines that are no events are passed over.
std::vector<lab_event> read_call_log(const std::string &path);

}  // namespace qvr
