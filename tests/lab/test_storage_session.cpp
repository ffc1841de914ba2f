// How a session on the catalogue on storage is opened, and what it refuses to be asked.
#include "fake_resolver.h"
#include "storage_fixture.h"

namespace qvr::test {
namespace {

TEST_F(storage_test, what_cannot_be_opened) {
  fake_resolver world;  // tells which host this one is
  auto refusing = std::make_shared<fake_storage>();
  refusing->host = "refusing";
  refusing->start_fault = 15013;
  storage_register(refusing);
  const struct {
    int line;
    std::string name, value;  // empty: the attribute is missing
    std::string error;
  } rows[] = {
      {__LINE__, "Disable DFA-BH", "True",
       "115061 55000 Unable to connect to index. The 'Disable DFA-BH' parameter must be set to "
       "false.\n"},
      {__LINE__, "Server independent device path", "",
       "106852 55000 The device path on the Bulk Harbor host was not specified during a server "
       "independent "
       "operation.\n"},
      {__LINE__, "hosts", "",
       "106838 55000 The name of the Bulk Harbor host was not specified during a server "
       "independent "
       "operation.\n"},
      {__LINE__, "hosts", "other.invalid",
       "106845 55000 Unable to initialize the Bulk Harbor session interface.\n"},
      {__LINE__, "hosts", "refusing",
       "106846 55000 Unable to register the Bulk Harbor Quay interface: 15013\n"},
      {__LINE__, "username", "",
       "106839 55000 The username of the Bulk Harbor host was not specified during a server "
       "independent "
       "operation.\n"},
      {__LINE__, "password", "",
       "106840 55000 The password for the Bulk Harbor host was not specified during a server "
       "independent "
       "operation.\n"},
      {__LINE__, "enable fibre channel", "yes",
       "115062 15022 A Fibre Channel connection was requested but the Fibre Channel service name "
       "was not "
       "specified.\n"},
      {__LINE__, "Server independent device path", "..",
       "140947 55000 Unable to set up a connection due to invalid device path '/..'.\n"},
      {__LINE__, "Server independent device path", "/x.lck",
       "140947 55000 Unable to set up a connection due to invalid device path '/x.lck'.\n"},
  };
  open();
  session.reset();
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    attrlist changed = attrs;
    attrlist_remove(changed, row.name);
    if (!row.value.empty()) attrlist_set(changed, row.name, row.value);
    for (int again = 0; again < 2; again++) {
      EXPECT_EQ(told(clntbh_create_client_handle(changed, session)), row.error);
      EXPECT_EQ(session, nullptr);
    }
  }
  storage_unregister(refusing.get());
}

TEST_F(storage_test, what_a_connection_is_told) {
  storage_set_unhide([](std::string_view stored, std::string_view key) {
    return std::string(stored).append("+").append(key);
  });
  open();
  EXPECT_EQ(storage->connects.back().password, storage_hide("p") + "+qvrhide");
  EXPECT_EQ(storage->connects.back().max_idle_connections, 1);
  storage_set_unhide(nullptr);

  for (int level : {1, 2, 3}) {
    std::string log = log_of(level, [&] {
      open(
          "enable_fibre_channel=YES fibre_channel_hostname=dfc-1 "
          "bulk_harbor_client_information=told enable_auto_recall=Yes bh_quay_max_idle_conns=7");
    });
    expect_logged(log, "get_max_idle_conns: The max idle conns (7) is set to 7.", level >= 2);
    expect_logged(log, ") created for client mars.", level >= 3);
  }
  const storage_params &params = storage->connects.back();
  EXPECT_EQ(params.device_path + ' ' + params.host + ' ' + params.user + ' ' + params.password +
                ' ' + params.fibre_channel_name + ' ' + params.client_information,
            "/dev appliance u p dfc-1 told");
  EXPECT_TRUE(params.fibre_channel && params.auto_recall);
  EXPECT_EQ(params.max_idle_connections, 7);

  EXPECT_EQ(bh_fetchss_range(nullptr, "mars", {}, {}, nullptr).status, MMDB_LOCAL_ERROR);
  EXPECT_EQ(told(bh_fetchss_range(session.get(), "mars", {}, {}, nullptr).error),
            "149183 55000 The 'Server independent device path' range parameter was not specified "
            "for this Bulk "
            "Harbor query session.\n");
  const mr_range mr;
  EXPECT_EQ(told(bh_fetchss_range(session.get(), "venus", {}, {}, &mr).error),
            "149184 55000 The 'venus' client host name parameter was specified incorrectly for "
            "this Bulk Harbor "
            "range query session.\n");
}

}  // namespace
}  // namespace qvr::test
