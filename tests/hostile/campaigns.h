// The campaigns: which faults strike which scenes.
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "session.h"

namespace qvr::test {

struct campaign_t {
  const char *name;
  std::span<const scene_t> scenes;
  // How many strikes a session of the site's scene gets; what it needs to know is in `text`.
  std::size_t (*count)(site_t &site, std::string &text);
  strike_t (*make)(const site_t &site, const std::string &text, std::size_t number);
  std::size_t short_runs;  // of a scene, evenly spread
  bool on_sanitized;       // works beside the sanitizers' own runtime
};

std::span<const campaign_t> campaigns();

}  // namespace qvr::test
