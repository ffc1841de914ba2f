#include "installation.h"

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <list>
#include <optional>
#include <thread>

#include "catalogue_file.h"
#include "lab_connection.h"
#include "lab_dispatch.h"
#include "lab_exchange.h"
#include "lab_sample.h"
#include "lab_sockets.h"
#include "lab_state.h"
#include "record_file_writer.h"

namespace qvr {

namespace {

constexpr std::uint32_t PROTOCOL_TCP = 6, PROTOCOL_UDP = 17;
constexpr std::size_t CONNECTIONS_MAX = 1024;

// Gives each record to all its sinks.
class tee_sink final : public catalogue_sink {
 public:
  void add_sink(catalogue_sink &sink) { sinks_.push_back(&sink); }
  void add_client(const lab_client &one) override { give(&catalogue_sink::add_client, one); }
  void add_resource(const lab_resource &one) override { give(&catalogue_sink::add_resource, one); }
  void add_vol(const vol_t &one) override { give(&catalogue_sink::add_vol, one); }
  void add_ss(const ss_t &one) override { give(&catalogue_sink::add_ss, one); }
  void add_history(const lab_history &one) override { give(&catalogue_sink::add_history, one); }

 private:
  template <class Record>
  void give(void (catalogue_sink::*add)(const Record &), const Record &record) {
    for (catalogue_sink *sink : sinks_) (sink->*add)(record);
  }
  std::vector<catalogue_sink *> sinks_;
};

// Gives the records on, with the security settings that the options ask for.
class security_sink final : public catalogue_sink {
 public:
  security_sink(const lab_options &options, catalogue_sink &next)
      : options_(options), next_(next) {}
  void add_client(const lab_client &client) override { next_.add_client(client); }
  void add_resource(const lab_resource &one) override {
    lab_resource changed = one;
    const std::string *type = attrlist_first(one.attrs, "type");
    if (one.database == "qvrexecd" && type != nullptr && *type == "QVRLA") set(changed.attrs);
    next_.add_resource(changed);
  }
  void add_vol(const vol_t &vol) override { next_.add_vol(vol); }
  void add_ss(const ss_t &ss) override { next_.add_ss(ss); }
  void add_history(const lab_history &one) override { next_.add_history(one); }

 private:
  void set(attrlist &attrs) const {
    if (options_.auth_methods == std::vector<std::string>{"none"}) {
      std::erase_if(attrs, [](const attr_t &attr) { return attr.name == "auth methods"; });
    } else if (!options_.auth_methods.empty()) {
      attrlist_setv(attrs, "auth methods", options_.auth_methods);
    }
    if (options_.encrypted) attrlist_set(attrs, "connection encrypted", "Enabled");
  }

  const lab_options &options_;
  catalogue_sink &next_;
};

std::string own_host_name() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

std::string choose_host(const std::string &wanted) {
  if (!wanted.empty()) return wanted;
  std::string own = own_host_name();
  return !own.empty() && !loopback_addresses({own}).empty() ? own : "localhost";
}

bool give_catalogue(const lab_options &options, catalogue_sink &to, std::string &why) {
  security_sink sink(options, to);
  if (!options.catalogue.empty()) return read_catalogue_file(options.catalogue, sink, why);
  sample_options sample;
  if (!parse_sample(options.sample, sample)) {
    why = "bad sample, SEED[:CLIENTS[:DAYS]] is wanted: " + options.sample;
    return false;
  }
  sample.savesets = options.scale;
  sample.server = options.host;
  sample.midnight = local_midnight(options.now != 0 ? options.now : std::time(nullptr));
  make_sample(sample, sink);
  return true;
}

bool fill_catalogue(const lab_options &options, lab_catalogue &catalogue, std::string &why) {
  tee_sink all;
  all.add_sink(catalogue);
  std::optional<catalogue_writer> writer;
  if (!options.store.empty()) {
    writer.emplace(options.store);
    writer->set_meta("source",
                     options.catalogue.empty() ? "sample " + options.sample : options.catalogue);
    all.add_sink(*writer);
  }
  record_file_sink tree(
      {.root = options.tree,
       .device = options.device,
       .layout = options.layout == 1 ? storage_layout::first : storage_layout::second});
  if (!options.tree.empty()) all.add_sink(tree);
  if (!give_catalogue(options, all, why)) return false;
  if (writer && !writer->close(why)) {
    why = options.store + ": " + why;
    return false;
  }
  if (!tree.why().empty()) {
    why = tree.why();
    return false;
  }
  if (tree.doubles() != 0)
    std::fprintf(stderr,
                 "qvrlabd: %zu save sets have no record file: another of their client has their "
                 "save time\n",
                 tree.doubles());
  catalogue.finish();
  return true;
}

}  // namespace

// The sockets and threads.
class lab_installation::daemons_t {
 public:
  lab_state lab;

  bool open(std::string &why) {
    std::vector<lab_address> addresses =
        loopback_addresses({lab.options.host, own_host_name(), "localhost"});
    std::uint16_t pmap_port = lab.options.port;
    if (!open_daemon(PMAP_PROGRAM, addresses, pmap_port, why) || !open_udp(addresses, why))
      return false;
    if (!lab.sessions.open(lab.options.qop, why)) return false;
    for (const lab_program *program : {&EXECD_PROGRAM, &GSS_PROGRAM, &RAP_PROGRAM, &MMDB_PROGRAM}) {
      if (program == &GSS_PROGRAM && !lab.options.gss) continue;
      if (!open_daemon(*program, addresses, 0, why)) return false;
    }
    for (const lab_address &address : addresses) addresses_.push_back(address.text());
    wake_ = lab_socket(eventfd(0, EFD_CLOEXEC));
    acceptor_ = std::thread([this] { accept_all(); });
    return true;
  }

  void stop() {
    if (!acceptor_.joinable()) return;
    {
      std::lock_guard lock(lab.stop_mutex);
      lab.stopping = true;
    }
    lab.stop_wake.notify_all();
    std::uint64_t one = 1;
    (void)!write(wake_.fd(), &one, sizeof one);
    acceptor_.join();
    for (auto &served : connections_) served->connection.interrupt();
    for (auto &served : connections_) served->thread.join();
    connections_.clear();
    listeners_.clear();
  }

  std::uint16_t port(const std::string &daemon) const {
    for (const listener_t &listener : listeners_) {
      if (listener.program->daemon == daemon) return listener.port;
    }
    return 0;
  }

  std::vector<std::string> addresses() const {
    std::vector<std::string> list;
    for (const std::string &text : addresses_)
      list.push_back(text.substr(0, text.rfind(':') + 1) + std::to_string(port("pmap")));
    return list;
  }

 private:
  struct listener_t {
    const lab_program *program;
    lab_socket socket;
    std::uint16_t port;
    bool udp;
  };
  struct served_t {
    served_t(lab_state &lab, const lab_program &program, lab_socket socket, std::uint64_t number,
             unsigned daemon_number)
        : connection(lab, program, std::move(socket), number, daemon_number) {}
    lab_connection connection;
    std::atomic<bool> done{false};
    std::thread thread;
  };

  bool open_daemon(const lab_program &program, const std::vector<lab_address> &addresses,
                   std::uint16_t port, std::string &why) {
    std::vector<lab_socket> sockets = bind_all(addresses, SOCK_STREAM, port, why);
    for (lab_socket &socket : sockets)
      listeners_.push_back({&program, std::move(socket), port, false});
    lab.pmap.push_back({program.number, program.version, PROTOCOL_TCP, port, true});
    return !sockets.empty();
  }

  bool open_udp(const std::vector<lab_address> &addresses, std::string &why) {
    std::uint16_t port = this->port("pmap");
    std::vector<lab_socket> sockets = bind_all(addresses, SOCK_DGRAM, port, why);
    for (lab_socket &socket : sockets)
      listeners_.push_back({&PMAP_PROGRAM, std::move(socket), port, true});
    lab.pmap.push_back({PMAP_PROGRAM.number, PMAP_PROGRAM.version, PROTOCOL_UDP, port, true});
    return !sockets.empty();
  }

  void accept_all() {
    std::vector<pollfd> fds;
    for (const listener_t &listener : listeners_) fds.push_back({listener.socket.fd(), POLLIN, 0});
    fds.push_back({wake_.fd(), POLLIN, 0});
    while (!lab.stopping) {
      if (poll(fds.data(), fds.size(), -1) < 0) continue;
      for (std::size_t i = 0; i < listeners_.size() && !lab.stopping; i++) {
        if (fds[i].revents == 0) continue;
        if (listeners_[i].udp)
          answer_datagram(listeners_[i]);
        else
          accept_one(listeners_[i]);
      }
    }
  }

  void accept_one(const listener_t &listener) {
    lab_socket socket(accept4(listener.socket.fd(), nullptr, nullptr, SOCK_CLOEXEC));
    if (socket.fd() < 0) return;
    connections_.remove_if([](const std::unique_ptr<served_t> &served) {
      if (!served->done) return false;
      served->thread.join();
      return true;
    });
    if (connections_.size() >= CONNECTIONS_MAX) return;
    int on = 1;
    setsockopt(socket.fd(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    auto served = std::make_unique<served_t>(lab, *listener.program, std::move(socket),
                                             ++lab.connections, ++counts_[listener.program]);
    served_t *raw = served.get();
    connections_.push_back(std::move(served));
    raw->thread = std::thread([raw] {
      raw->connection.serve();
      raw->done = true;
    });
  }

  void answer_datagram(const listener_t &listener) {
    char buffer[65536];
    lab_address peer;
    peer.size = sizeof peer.storage;
    auto *address = reinterpret_cast<sockaddr *>(&peer.storage);
    ssize_t got =
        recvfrom(listener.socket.fd(), buffer, sizeof buffer, MSG_DONTWAIT, address, &peer.size);
    if (got < 0) return;
    lab_reply reply;
    lab_fault fault;
    fault_connection place{listener.program->daemon, 0};
    lab_outcome outcome =
        dispatch_call(lab, *listener.program, place, 0, {buffer, static_cast<std::size_t>(got)},
                      nullptr, reply, fault);
    if (outcome != lab_outcome::reply) return;
    if (fault.delay_ms != 0) lab.pause(fault.delay_ms);
    std::string bytes = spoil_reply(reply, fault, false);
    sendto(listener.socket.fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL, address, peer.size);
  }

  std::vector<listener_t> listeners_;
  std::vector<std::string> addresses_;
  lab_socket wake_;
  std::thread acceptor_;
  // The acceptor's alone, until it has ended.
  std::list<std::unique_ptr<served_t>> connections_;
  std::map<const lab_program *, unsigned> counts_;
};

lab_installation::lab_installation() = default;

lab_installation::~lab_installation() {
  stop();
}

bool lab_installation::start(const lab_options &options, std::string &why) {
  stop();
  daemons_ = std::make_unique<daemons_t>();
  lab_state &lab = daemons_->lab;
  lab.options = options;
  lab.options.host = choose_host(options.host);
  lab.faults.set(options.faults);
  for (const lab_login &login : options.logins)
    lab.credentials.add_login(login.user, login.password);
  lab.log.keep(options.keep_log);
  if (!options.log.empty() && !lab.log.open(options.log)) {
    why = "cannot write " + options.log;
    return false;
  }
  return fill_catalogue(lab.options, lab.catalogue, why) && (!options.serve || daemons_->open(why));
}

void lab_installation::stop() {
  if (daemons_ != nullptr) daemons_->stop();
}

const std::string &lab_installation::host() const {
  return daemons_->lab.options.host;
}

std::uint16_t lab_installation::port(const std::string &daemon) const {
  return daemons_->port(daemon);
}

std::vector<std::string> lab_installation::addresses() const {
  return daemons_->addresses();
}

const lab_catalogue &lab_installation::catalogue() const {
  return daemons_->lab.catalogue;
}

std::vector<lab_event> lab_installation::events() const {
  return daemons_->lab.log.events();
}

void lab_installation::clear_events() {
  daemons_->lab.log.clear();
}

lab_installation::traffic_t lab_installation::traffic() const {
  const auto &traffic = daemons_->lab.traffic;
  return {traffic.replies, traffic.requests, traffic.in_clear};
}

std::string lab_installation::first_struck() const {
  return daemons_->lab.faults.first_struck();
}

void lab_installation::set_faults(std::vector<lab_fault> faults) {
  daemons_->lab.faults.set(std::move(faults));
}

}  // namespace qvr
