// A private host for tests: a network, mount and host-name namespace of its own, in which the
// loopback device is up and chosen files (/etc/hosts, /etc/services ...) say what the test wants.
//
// A holder process keeps the namespaces alive; programs enter them between fork and exec (see
// run_command.h). Nothing outside is touched, and everything goes with the object.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qvr::test {

struct private_host_options {
  std::string hostname = "vault";
  // Path and text of each file that is replaced. These defaults name only the host itself.
  std::vector<std::pair<std::string, std::string>> files = {
      {"/etc/hosts", "127.0.0.1 localhost\n127.0.1.1 vault\n::1 ip6-localhost\n"},
      {"/etc/nsswitch.conf",
       "passwd: files\ngroup: files\nhosts: files\nservices: files\nrpc: files\n"},
      {"/etc/resolv.conf", ""},
  };
  // Further IPv4 addresses of this host beside 127.0.0.0/8.
  std::vector<std::string> addresses;
  // Directories that get an empty file system of their own.
  std::vector<std::string> empty_directories;

  // Replaces the text of one file, or adds the file.
  private_host_options &set_file(const std::string &path, const std::string &text) {
    for (auto &[name, old] : files) {
      if (name == path) {
        old = text;
        return *this;
      }
    }
    files.emplace_back(path, text);
    return *this;
  }
};

class private_host {
 public:
  // Null when this machine gives no such namespaces to the user; `why` then holds the reason, with
  // which a test skips.
  static std::unique_ptr<private_host> make(const private_host_options &options, std::string &why) {
    std::unique_ptr<private_host> host(new private_host);
    if (!host->write_files(options, why) || !host->start_holder(options, why)) return nullptr;
    return host;
  }
  static std::unique_ptr<private_host> make(std::string &why) {
    return make(private_host_options(), why);
  }

  ~private_host() {
    if (holder_ > 0) {
      kill(holder_, SIGKILL);
      waitpid(holder_, nullptr, 0);
    }
    for (int fd : namespaces_) close(fd);
    for (const std::string &file : files_) unlink(file.c_str());
    if (!directory_.empty()) rmdir(directory_.c_str());
  }
  private_host(const private_host &) = delete;
  private_host &operator=(const private_host &) = delete;

  // Moves the calling process in. It must have one thread; made of calls that are allowed between
  // fork and exec.
  bool enter() const {
    // A sanitizer may have threads of its own here, which no mount namespace is shared with.
    unshare(CLONE_FS);
    for (int fd : namespaces_) {
      if (setns(fd, 0) != 0) return false;
    }
    return true;
  }

 private:
  private_host() = default;

  bool write_files(const private_host_options &options, std::string &why) {
    char name[] = "/tmp/private-host-XXXXXX";
    if (mkdtemp(name) == nullptr) {
      why = std::string("mkdtemp: ") + std::strerror(errno);
      return false;
    }
    directory_ = name;
    for (std::size_t i = 0; i < options.files.size(); i++) {
      files_.push_back(directory_ + "/" + std::to_string(i));
      std::FILE *file = std::fopen(files_.back().c_str(), "w");
      if (file == nullptr) {
        why = "cannot write " + files_.back();
        return false;
      }
      std::fputs(options.files[i].second.c_str(), file);
      std::fclose(file);
    }
    return true;
  }

  bool start_holder(const private_host_options &options, std::string &why) {
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) return false;
    const uid_t uid = getuid();
    const gid_t gid = getgid();
    holder_ = fork();
    if (holder_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      std::string trouble = set_up(options, uid, gid);
      (void)!write(ready[1], trouble.data(), trouble.size());
      close(ready[1]);
      if (!trouble.empty()) _exit(1);
      for (;;) pause();
    }
    close(ready[1]);
    char text[256];
    ssize_t got = holder_ < 0 ? -1 : read(ready[0], text, sizeof text);
    close(ready[0]);
    if (got != 0) {
      why = got > 0 ? std::string(text, static_cast<std::size_t>(got)) : "no holder process";
      return false;
    }
    return open_namespaces(uid != 0, why);
  }

  bool open_namespaces(bool own_users, std::string &why) {
    for (const char *kind : {"user", "uts", "net", "mnt"}) {
      if (kind[1] == 's' && !own_users) continue;
      std::string path = "/proc/" + std::to_string(holder_) + "/ns/" + kind;
      int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (fd < 0) {
        why = path + ": " + std::strerror(errno);
        return false;
      }
      namespaces_.push_back(fd);
    }
    return true;
  }

  static std::string trouble(const char *what) {
    return std::string(what) + ": " + std::strerror(errno);
  }

  static bool write_text(const char *path, const std::string &text) {
    int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool done = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return done;
  }

  std::string set_up(const private_host_options &options, uid_t uid, gid_t gid) const {
    int flags = CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS;
    if (uid != 0) flags |= CLONE_NEWUSER;
    if (unshare(flags) != 0) return trouble("unshare");
    if (uid != 0) {
      write_text("/proc/self/setgroups", "deny");
      if (!write_text("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
          !write_text("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n"))
        return trouble("uid_map");
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return trouble("mount /");
    for (std::size_t i = 0; i < files_.size(); i++) {
      const char *path = options.files[i].first.c_str();
      if (mount(files_[i].c_str(), path, nullptr, MS_BIND, nullptr) != 0) return trouble(path);
    }
    for (const std::string &path : options.empty_directories) {
      if (mount("tmpfs", path.c_str(), "tmpfs", 0, nullptr) != 0) return trouble(path.c_str());
    }
    if (sethostname(options.hostname.c_str(), options.hostname.size()) != 0)
      return trouble("sethostname");
    return set_up_loopback(options.addresses);
  }

  static std::string set_up_loopback(const std::vector<std::string> &addresses) {
    int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return trouble("socket");
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (ioctl(fd, SIOCSIFFLAGS, &request) != 0) return trouble("lo");
    for (std::size_t i = 0; i < addresses.size(); i++) {
      std::string label = "lo:" + std::to_string(i + 1);
      std::strcpy(request.ifr_name, label.c_str());
      sockaddr_in address{};
      address.sin_family = AF_INET;
      if (inet_pton(AF_INET, addresses[i].c_str(), &address.sin_addr) != 1)
        return "bad address " + addresses[i];
      std::memcpy(&request.ifr_addr, &address, sizeof address);
      if (ioctl(fd, SIOCSIFADDR, &request) != 0) return trouble(label.c_str());
    }
    close(fd);
    return {};
  }

  pid_t holder_ = -1;
  std::string directory_;
  std::vector<std::string> files_;
  std::vector<int> namespaces_;
};

}  // namespace qvr::test
