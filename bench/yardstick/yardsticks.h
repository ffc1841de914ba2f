// What the command is held against. Each gives processor seconds and runs in a process of its own
// (yardstick NAME FILE).
#pragma once

#include <span>

#include "pages.h"

namespace qvr::bench {

struct yardstick_t {
  const char *name;
  double (*seconds)(const pages_t &pages);
};

// The rows:
//   tirpc   the pages decoded by an rpcgen decoder of the published library, all held
//   decode  the pages decoded by this project's decoder, all held
//   drain   the pages' bytes read off a connection by a bare readv loop
//   crypt   the pages' bytes verified and deciphered by the crypto library
//   strcoll as many rows as records sorted by volume with qsort and strcoll
//   sort    the same rows sorted by this project
std::span<const yardstick_t> yardsticks();

}  // namespace qvr::bench
