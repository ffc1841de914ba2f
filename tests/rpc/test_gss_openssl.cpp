// Setting OpenSSL up: each row in a process of its own, with an installation of its own.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "debug_words.h"
#include "gss_fixture.h"
#include "gss_openssl.h"

namespace qvr {
namespace {

class gss_openssl : public testing::Test {
 protected:
  // A row's process begins anew and comes by here too: it takes what its parent has made.
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    char name[] = "/tmp/btls-XXXXXX";
    if (getenv(variable) == nullptr) setenv(variable, mkdtemp(name), 1);
    directory = getenv(variable);
    for (const char *below : {"/ssl", "/debug"}) {
      std::filesystem::create_directory(directory + below);
    }
  }
  void TearDown() override {
    unsetenv(variable);
    std::filesystem::remove_all(directory);
  }
  static constexpr const char *variable = "QVR_TEST_BTLS";
  std::string directory;
};

// Says on standard error how it went.
void set_up_twice(const std::string &directory, const char *environment, bool skip) {
  setenv("QVR_DIR_PATH", directory.c_str(), 1);
  if (*environment != '\0') setenv(environment, "1", 1);
  debug_set_level(5);
  if (skip) btls_skip_fips();
  for (int turn = 0; turn < 2; turn++) {
    errobj_t *error = btls_init();
    std::string text = error != nullptr ? std::to_string(error->message.id) + " " +
                                              std::to_string(error->code) + " " + error->text
                                        : "ready\n";
    fputs(text.c_str(), stderr);
  }
  gss_test_context context;
  fputs(context.wrap("data").size() == 60 ? "works\n" : "fails\n", stderr);
  fflush(stderr);
  _exit(0);
}

TEST_F(gss_openssl, is_set_up_once) {
  const std::string bad = "no value\n", nothing = "x = y\n", head = "openssl_conf = init\n[init]\n";
  const std::string provider =
      head + "providers = list\n[list]\nfips = fips\n[fips]\nmodule = " + directory + "/none.so\n";
  const std::string enabled = head + "alg_section = evp\n[evp]\ndefault_properties = fips=yes\n";
  const std::string good = "^ready\nready\nworks\n$";
  const std::string failed =
      "89616 15022 An error was encountered while initializing the BaseTLS library\n";
  const std::string bad_told =
      "209439:.*: Error loading OpenSSL config file\n.*missing equal sign.*\n"
      "89613:.*: Unable to initialize SSL library: .*missing equal sign\n" +
      failed + failed;
  const std::string provider_told =
      "209440:.*: Failed to load FIPS provider\n(.*\n)*89613:.*: Unable to initialize SSL "
      "library: .*could not load the shared library\n" +
      failed + failed;
  const struct {
    int line;
    std::string config;
    bool marker;
    const char *environment;
    bool skip;
    std::string told;
  } rows[] = {
      {__LINE__, "", false, "", false, good},
      {__LINE__, nothing, true, "", true, good},
      {__LINE__, bad, false, "", false, bad_told},
      {__LINE__, bad, true, "BTLS_NOOP", false, good},
      {__LINE__, provider, true, "", false, provider_told},
      {__LINE__, nothing, true, "PURIFY_IS_RUNNING", false,
       "170619:.*: Running as a purified binary; Bypassing fips mode set...\nready\n"},
      // Without a provider of that property there is not even a random number.
      {__LINE__, enabled, true, "", false,
       "FIPS mode is already initialized, skipping fips mode reinit\n"
       "89615:.*: Unable to initialize RNG framework: .*unsupported\n" +
           failed + failed + "fails\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::string config = directory + "/ssl/openssl.cnf", marker = directory + "/debug/fipsenable";
    std::filesystem::remove(config);
    std::filesystem::remove(marker);
    if (!row.config.empty()) std::ofstream(config) << row.config;
    if (row.marker) std::ofstream(marker) << "";
    EXPECT_EXIT(set_up_twice(directory, row.environment, row.skip), testing::ExitedWithCode(0),
                row.told);
  }
}

}  // namespace
}  // namespace qvr
