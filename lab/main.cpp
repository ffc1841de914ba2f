// qvrlabd: serves until it is told to stop.
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>

#include "installation.h"

namespace {

std::string ready_line(const qvr::lab_installation &lab) {
  std::string line = "ready " + lab.host() + " " + std::to_string(lab.port());
  for (const std::string &address : lab.addresses()) line += " " + address;
  return line + "\n";
}

bool announce(const qvr::lab_installation &lab, int fd) {
  std::string line = ready_line(lab);
  return write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

}  // namespace

int main(int argc, char **argv) {
  std::setlocale(LC_ALL, "");
  qvr::lab_options options;
  int status = 0;
  if (!qvr::parse_lab_options(argc, argv, options, status)) return status;

  // Blocked before any thread starts, so that only sigwait below gets them.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGTERM);
  sigaddset(&ends, SIGINT);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  signal(SIGPIPE, SIG_IGN);

  // A delay that is asked for should be that long, not by what the system rounds up to.
  prctl(PR_SET_TIMERSLACK, 1);

  qvr::lab_installation lab;
  std::string why;
  if (!lab.start(options, why)) {
    std::fprintf(stderr, "qvrlabd: %s\n", why.c_str());
    return 1;
  }
  if (!options.serve) return 0;
  if (!announce(lab, options.ready_fd.value_or(STDOUT_FILENO)))
    std::fprintf(stderr, "qvrlabd: cannot say that it is ready\n");
  if (options.ready_fd.value_or(STDOUT_FILENO) > STDERR_FILENO) close(*options.ready_fd);
  int signal = 0;
  sigwait(&ends, &signal);
  lab.stop();
  return 0;
}
