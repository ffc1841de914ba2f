#include "client_start.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <map>

#include "auth_methods.h"
#include "err_class.h"
#include "fake_resolver.h"
#include "host_settings.h"
#include "kstr_auth.h"
#include "port_ranges.h"
#include "port_settings.h"
#include "qvrports.h"
#include "rpc_state.h"
#include "start_env.h"
#include "temp_dir.h"

namespace qvr {
namespace {

using test::caught_messages;
using test::fake_resolver;
using testing::HasSubstr;

// The resources of an installation, by their types; "fails" names a type whose queries fail.
struct installation_t {
  std::map<std::string, attrlist> resources;
  std::string fails;
  int opened = 0, queries = 0, refusals = 0, sessions = 0;
  unsigned slept = 0;
  bool broken = false;  // the failure is no refusal
  bool local_refused = false;
  bool last_own = false;
};

class fake_resdb final : public resdb_t {
 public:
  explicit fake_resdb(installation_t &site) : site_(site) {}
  errobj_t *rap_query(const attrlist &query, std::uint32_t limit,
                      std::vector<resid_t> &ids) override {
    site_.queries++;
    EXPECT_EQ(1u, limit);
    const std::string *type = attrlist_first(query, "type");
    asked_ = type != nullptr ? *type : "";
    if (asked_ == site_.fails) return err_create(0, 33012, "no answer to %s", {{0, asked_}});
    if (site_.resources.count(asked_) != 0) ids.resize(1);
    return nullptr;
  }
  errobj_t *rap_retrieve(const std::vector<resid_t> &, const attrlist &wanted,
                         reslist_t &found) override {
    found.resize(1);
    for (const attr_t &attr : site_.resources[asked_]) {
      if (attrlist_find(wanted, attr.name) != nullptr) {
        attrlist_setv(found[0].attrs, attr.name, attr.values);
      }
    }
    return nullptr;
  }

 private:
  installation_t &site_;
  std::string asked_;
};

class fake_start final : public start_env_t {
 public:
  explicit fake_start(installation_t &site) : site_(site) { set_start_env(this); }
  ~fake_start() override { set_start_env(nullptr); }
  errobj_t *open_execd(const std::string &, bool own, resdb_ptr &handle, bool &not_yet) override {
    site_.opened++;
    site_.last_own = own;
    not_yet = !site_.broken;
    if (site_.broken || site_.refusals-- > 0) return err_create(42503, 22012, "refused");
    handle = resdb_ptr(std::make_unique<fake_resdb>(site_).release());
    return nullptr;
  }
  errobj_t *open_local(resdb_ptr &handle) override {
    if (site_.local_refused) return err_create(42503, 22012, "refused");
    handle = resdb_ptr(std::make_unique<fake_resdb>(site_).release());
    return nullptr;
  }
  void sleep_seconds(unsigned seconds) override { site_.slept += seconds; }
  void start_session() override { site_.sessions++; }

 private:
  installation_t &site_;
};

attrlist resource(std::initializer_list<std::pair<const char *, vallist>> attrs) {
  attrlist list;
  for (const auto &[name, values] : attrs) attrlist_setv(list, name, values);
  return list;
}

class client_start_test : public testing::Test {
 protected:
  client_start_test() {
    clear();
    site.resources["QVRLA"] = resource({{"Multi-subnet state", {"enabled"}},
                                        {"TCP Retry", {"3"}},
                                        {"reverse DNS state", {"Cached"}},
                                        {"auth methods", {"10.0.0.0/8,oldauth"}},
                                        {"max auth attempts", {"2"}},
                                        {"positive DNS cache TTL", {"60"}},
                                        {"negative DNS cache TTL", {"30"}},
                                        {"connection encrypted", {"Enabled"}}});
    site.resources["QVR system port ranges"] = resource({{"service ports", {"7937-8000", "9000"}},
                                                         {"connection ports", {"500-2000"}},
                                                         {"excluded service ports", {"lab:7940"}}});
  }
  ~client_start_test() override { clear(); }
  static void clear() {
    unsetenv(SERVICE_PORTS_VARIABLE);
    unsetenv(CONNECTION_PORTS_VARIABLE);
    port_ranges_reset();
    set_auth_methods(nullptr);
    rpc_set_multi_subnet(false, 0);
    kstr_set_connection_encrypted(false);
  }

  fake_resolver world;
  installation_t site;
  fake_start env{site};
};

TEST_F(client_start_test, a_good_start_hands_everything_down) {
  caught_messages caught;
  EXPECT_TRUE(qvr_client_init("vault.example.com", true));
  EXPECT_EQ("", caught.text());
  EXPECT_TRUE(site.last_own);
  EXPECT_EQ(1, site.opened);
  EXPECT_EQ(1, site.sessions);
  EXPECT_EQ(0u, site.slept);
  EXPECT_TRUE(rpc_global().multi_subnet);
  EXPECT_EQ(3, rpc_global().tcp_retry);
  EXPECT_EQ(KS_RDNS_CACHED, ks_get_rdns_state());
  EXPECT_TRUE(kstr_connection_encrypted());
  EXPECT_EQ(65u, port_range_count(PORTS_SERVICE));
  EXPECT_EQ("1024-2000  ", port_range_text(PORTS_CONNECTION));
  EXPECT_TRUE(port_is_excluded(7940));
  EXPECT_STREQ("7937-8000,9000,", getenv(SERVICE_PORTS_VARIABLE));
  EXPECT_STREQ("500-2000,", getenv(CONNECTION_PORTS_VARIABLE));
  EXPECT_EQ(15u, auth_mask_for(fake_resolver::address("10.1.1.1")));
  // A second start reads the methods no more.
  int queries = site.queries;
  EXPECT_TRUE(qvr_client_init("vault.example.com", true));
  EXPECT_EQ(queries - 1, site.queries - queries);
}

TEST_F(client_start_test, how_often_a_daemon_is_waited_for) {
  struct row_t {
    int line;
    const char *host;
    bool wait;
    int refusals;
    bool broken;
    bool good;
    int opened;
    unsigned slept;
    std::int32_t id;  // of what is told
  } rows[] = {
      {__LINE__, "vault", true, 14, false, true, 15, 14, 0},
      {__LINE__, "vault.example.com", true, 15, false, false, 15, 14, 145072},
      {__LINE__, "mars", true, 99, false, false, 15, 14, 145073},
      {__LINE__, "mars", false, 1, false, false, 1, 0, 145073},
      {__LINE__, "mars", true, 99, true, false, 1, 0, 145073},
      {__LINE__, nullptr, true, 99, false, true, 0, 0, 0},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    clear();
    site.opened = 0;
    site.slept = 0;
    site.sessions = 0;
    site.refusals = row.refusals;
    site.broken = row.broken;
    caught_messages caught;
    EXPECT_EQ(row.good, qvr_client_init(row.host, row.wait));
    EXPECT_EQ(row.opened, site.opened);
    EXPECT_EQ(row.slept, site.slept);
    EXPECT_EQ(row.good ? 1 : 0, site.sessions);
    std::vector<errobj_t> said = caught.taken();
    ASSERT_EQ(row.id != 0 ? 1u : 0u, said.size());
    if (row.id == 0) continue;
    EXPECT_EQ(row.id, said[0].message.id);
    EXPECT_THAT(said[0].text,
                HasSubstr(std::string("qvrexecd: Failed to initialize ports using qvrexecd on ") +
                          row.host + ": refused\n"));
  }
}

TEST_F(client_start_test, what_fails_and_how_far_the_start_comes) {
  struct row_t {
    int line;
    std::function<void(installation_t &)> spoil;
    bool good;
    int sessions;
    const char *said;
  } rows[] = {
      {__LINE__, [](installation_t &s) { s.fails = "QVR system port ranges"; }, false, 0,
       "no answer to QVR system port ranges"},
      {__LINE__, [](installation_t &s) { s.resources.erase("QVR system port ranges"); }, true, 1,
       "System does not support restricted port ranges."},
      {__LINE__,
       [](installation_t &s) {
         attrlist_remove(s.resources["QVR system port ranges"], "connection ports");
       },
       true, 1, "System does not support restricted port ranges."},
      {__LINE__, [](installation_t &s) { s.fails = "QVRLA"; }, false, 1,
       "unable to initialize multisubnet state: no answer to QVRLA\n"},
      {__LINE__, [](installation_t &s) { s.fails = "QVRLA"; }, false, 1,
       "Failed to get reverse DNS settings: no answer to QVRLA\n"},
      {__LINE__, [](installation_t &s) { s.resources.erase("QVRLA"); }, true, 1, ""},
      {__LINE__,
       [](installation_t &s) {
         attrlist_setv(s.resources["QVR system port ranges"], "service ports",
                       {"9-5", "-7", "70000", "4000-4001"});
       },
       true, 1, "Invalid range of ports configured on system."},
      {__LINE__,
       [](installation_t &s) {
         attrlist_setv(s.resources["QVR system port ranges"], "excluded service ports", {"7940"});
       },
       true, 1,
       "Unable to exclude port (7940) from RPC port ranges: The string must be in the following "
       "format, <id>:<port>.\n"},
      {__LINE__,
       [](installation_t &s) {
         attrlist_setv(s.resources["QVRLA"], "reverse DNS state", {"Enabled"});
       },
       true, 1, "Invalid Reverse DNS state 'Enabled' selected.\n"},
  };
  installation_t whole = site;
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    clear();
    site = whole;
    row.spoil(site);
    caught_messages caught;
    EXPECT_EQ(row.good, qvr_client_init("vault", false));
    EXPECT_EQ(row.sessions, site.sessions);
    EXPECT_THAT(caught.text(), HasSubstr(row.said));
  }
}

TEST_F(client_start_test, without_a_daemon_the_ranges_of_the_parent_serve) {
  struct row_t {
    int line;
    const char *service, *connection;
    bool good;
    const char *text;
    const char *said;
  } rows[] = {
      {__LINE__, "7937-8000,9000,", "3000-4000,", true, "3000-4000  ", ""},
      {__LINE__, "7937-8000,x9,,", "5000,", true, "5000-5000  ", ""},
      {__LINE__, "7937-8000,", "", false, "0-0",
       "Could not get the list of ports from environment: System does not support restricted port "
       "ranges.\n"},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    clear();
    setenv(SERVICE_PORTS_VARIABLE, row.service, 1);
    setenv(CONNECTION_PORTS_VARIABLE, row.connection, 1);
    site.broken = true;
    caught_messages caught;
    EXPECT_EQ(row.good, qvr_client_init("vault", false));
    EXPECT_EQ(row.text, port_range_text(PORTS_CONNECTION));
    EXPECT_THAT(caught.text(), HasSubstr(row.said));
  }
}

TEST_F(client_start_test, encryption_is_not_asked_by_every_program) {
  for (int application : {3, 4, 9}) {
    SCOPED_TRACE(application);
    clear();
    kstr_set_application(application, "");
    site.broken = false;
    EXPECT_TRUE(qvr_client_init("vault", false));
    EXPECT_EQ(application == 3, kstr_connection_encrypted());
  }
  kstr_set_application(-1, "");
  // Another host's settings say nothing of this one's encryption.
  clear();
  site.local_refused = true;
  caught_messages caught;
  debug_set_level(4);
  EXPECT_FALSE(qvr_client_init("mars", false));
  EXPECT_FALSE(site.last_own);
  EXPECT_THAT(caught.text(),
              HasSubstr("Unable to query the connection encrypted flag from qvrexecd: refused\n"));
}

TEST_F(client_start_test, markers_and_logs) {
  temp_dir directory;
  std::string marker = directory.write("fipsenable", ""), log = directory.file("rendered");
  setenv("QVR_ROOT_DEBUG_DIR", directory.path().c_str(), 1);
  {
    caught_messages caught;
    EXPECT_TRUE(qvr_client_init("vault", false));
    EXPECT_EQ("FIPS mode is enabled\n", caught.text());
    setenv("PURIFY_IS_RUNNING", "1", 1);
    EXPECT_TRUE(qvr_client_init("vault", false));
    EXPECT_EQ("", caught.text());
    unsetenv("PURIFY_IS_RUNNING");
    // A rendered log that cannot be opened does not stop the start.
    setenv("QVR_RENDERED_PATH", (log + "/no/such").c_str(), 1);
    debug_set_level(1);
    EXPECT_TRUE(qvr_client_init("vault", false));
    EXPECT_THAT(caught.text(), HasSubstr("Could not open " + log + "/no/such for log rendering."));
  }
  setenv("QVR_RENDERED_PATH", log.c_str(), 1);
  unlink(marker.c_str());
  EXPECT_TRUE(qvr_client_init("vault", false));
  EXPECT_NE(nullptr, msg_outlets().rendered_log.load());
  std::FILE *opened = msg_outlets().rendered_log.exchange(nullptr);
  std::fclose(opened);
  msg_outlets().mode_source = nullptr;
  unsetenv("QVR_RENDERED_PATH");
  unsetenv("QVR_ROOT_DEBUG_DIR");
}

TEST(port_settings, exclusions) {
  struct row_t {
    int line;
    std::string text;
    std::int32_t id;
  } rows[] = {
      {__LINE__, "lab:7940", 0},
      {__LINE__, ":0", 0},
      {__LINE__, "a:65535", 0},
      {__LINE__, "7940", 101202},
      {__LINE__, std::string(256, 'x') + ":1", 0},
      {__LINE__, std::string(257, 'x') + ":1", 101200},
      {__LINE__, "a:65536", 101201},
      {__LINE__, "a:-1", 101201},
      {__LINE__, "a:", 101201},
      {__LINE__, "a:12x", 101201},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    errobj_t *error = port_exclude_text(row.text);
    EXPECT_EQ(row.id, error != nullptr ? error->message.id : 0);
    if (error != nullptr) {
      EXPECT_EQ(54000, error->code);
    }
  }
  port_ranges_reset();
}

TEST_F(client_start_test, the_export_ends_behind_6144_characters) {
  vallist many(2000, "40000-40001");
  attrlist_setv(site.resources["QVR system port ranges"], "service ports", many);
  EXPECT_TRUE(qvr_client_init("vault", false));
  std::string text = getenv(SERVICE_PORTS_VARIABLE);
  EXPECT_EQ(',', text.back());
  EXPECT_GT(text.size(), 6144u);
  EXPECT_LE(text.size(), 6144u + 12);
  EXPECT_EQ(2u, port_range_count(PORTS_SERVICE));
}

}  // namespace
}  // namespace qvr
