// A lab with a small sample on ports of its own, one for all tests of a suite.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "installation.h"
#include "lab_catalogue.h"
#include "raw_rpc.h"

namespace qvr::test {

constexpr std::int64_t LAB_NOW = 1767225600;  // 2026-01-01 00:00:00 UTC

inline lab_options test_options() {
  lab_options options;
  options.sample = "3:6:15";
  options.now = LAB_NOW;
  options.port = 0;
  options.host = "localhost";
  options.keep_log = true;
  options.logins = {{"lea", "secret"}};
  return options;
}

class lab_test : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    std::string why;
    lab = new lab_installation;
    ASSERT_TRUE(lab->start(test_options(), why)) << why;
  }
  static void TearDownTestSuite() {
    delete lab;
    lab = nullptr;
  }
  void SetUp() override {
    lab->set_faults({});
    lab->clear_events();
  }

  static raw_client mmdb() { return raw_client(lab->port("qvrmmdbd"), 390107, 6); }
  static raw_client execd() { return raw_client(lab->port("qvrexecd"), 390113, 1); }
  static raw_client rap() { return raw_client(lab->port("qvrd"), 390109, 2); }
  static raw_client pmap(bool udp = false) {
    return raw_client(lab->port("pmap"), 100000, 2, "127.0.0.1", udp);
  }
  static void misbehave(const std::string &spec) {
    std::string why;
    auto fault = parse_fault(spec, why);
    ASSERT_TRUE(fault) << why;
    lab->set_faults({*fault});
  }

  static inline lab_installation *lab = nullptr;
};

}  // namespace qvr::test
