// Which virtual host owns a path on cluster software. Outside a cluster, as here, this host owns
// them all.
#pragma once

#include <string>
#include <string_view>

namespace qvr {

inline constexpr std::size_t CLUS_HOST_MAX = 255;  // bytes of a host name

// Sets up the list of the paths that virtual hosts own; the first call makes it. Any thread.
void clus_make_path_list();
// The host that serves the path to a client (none: any), of at most CLUS_HOST_MAX bytes.
std::string clus_get_hostname(std::string_view client, std::string_view path);

}  // namespace qvr
