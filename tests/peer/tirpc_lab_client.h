// Calls of the lab's daemons through libtirpc. Its headers and this project's share names, so that
// they meet nowhere but here.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace qvr::test {

struct tirpc_volume {
  std::string volume, family, type, location, pool, barcode;
  std::uint64_t capacity = 0;
  std::vector<std::string> attributes;  // names
  std::size_t savesets = 0;
  bool operator==(const tirpc_volume &) const = default;
};

// A client handle of libtirpc over TCP or UDP, with AUTH_UNIX.
class tirpc_lab_client {
 public:
  tirpc_lab_client(std::uint16_t port, std::uint32_t program, std::uint32_t version, bool udp);
  ~tirpc_lab_client();
  tirpc_lab_client(const tirpc_lab_client &) = delete;
  tirpc_lab_client &operator=(const tirpc_lab_client &) = delete;

  // Each answers with the status of the call, 0 for success.
  int null();
  int pmap_getport(std::uint32_t program, std::uint32_t version, std::uint32_t protocol,
                   std::uint16_t &port);
  // Program, version, protocol and port of each row.
  int pmap_dump(std::vector<std::array<unsigned long, 4>> &rows);
  int volumes_by_name(const std::string &name, bool full, std::vector<tirpc_volume> &list);

 private:
  void *client_ = nullptr;
};

}  // namespace qvr::test
