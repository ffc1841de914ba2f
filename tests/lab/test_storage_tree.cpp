// The catalogue on storage over trees of this machine, beside the same catalogue on a server.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>

#include "clnt_create.h"
#include "ksui_new.h"
#include "lab_fixture.h"
#include "mif_env.h"
#include "queries.h"
#include "session.h"
#include "storage_session.h"
#include "temp_dir.h"
#include "xdr_records.h"

namespace qvr::test {
namespace {

namespace fs = std::filesystem;

// Connects to the lab's daemon without a credential.
struct direct_env final : mif_env_t {
  std::uint16_t port = 0;
  errobj_t *connect(std::string_view, std::unique_ptr<CLIENT> &client,
                    kstr_target &target) override {
    sockaddr_storage address = {};
    auto &in = reinterpret_cast<sockaddr_in &>(address);
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    in.sin_port = htons(port);
    int socket = -1;
    target.host = "localhost";
    client = clnt_tcp_create(address, 390107, 6, socket, 0, 0);
    return nullptr;
  }
  std::string local_host() override { return "localhost"; }
};

class storage_tree_test : public lab_test {
 protected:
  static void SetUpTestSuite() {
    root.emplace();
    std::string why;
    for (int layout : {1, 2}) {
      lab_options options = test_options();
      options.tree = root->path();
      options.device = "/device" + std::to_string(layout);
      options.layout = layout;
      options.serve = layout == 2;
      testing::internal::CaptureStderr();
      delete lab;
      lab = new lab_installation;
      ASSERT_TRUE(lab->start(options, why)) << why;
      EXPECT_NE(testing::internal::GetCapturedStderr().find(" save sets have no record file"),
                std::string::npos);
    }
    env.port = lab->port("qvrmmdbd");
    mif_set_env(&env);
    library = storage_directory_library(root->path());
    storage_register(library);
  }
  static void TearDownTestSuite() {
    storage_unregister(library.get());
    mif_set_env(nullptr);
    root.reset();
    lab_test::TearDownTestSuite();
  }
  void TearDown() override { mif_reset(); }

  static attrlist storage_attrs(const std::string &client, int layout) {
    return attrlist_build({{"Server independent device path", {"device" + std::to_string(layout)}},
                           {"hosts", {"localhost"}},
                           {"username", {"u"}},
                           {"password", {storage_hide("p")}},
                           {"Disable DFA-BH", {"False"}},
                           {"auth index", {client}}});
  }

  // The whole of each record without what the storage says of it, by save time.
  using records_t = std::map<std::int64_t, std::string>;
  static records_t records_of(const ss_list &list) {
    records_t records;
    for (const ss_t *each : list.rows) {
      ss_t ss = *each;
      attrlist attrs = ss.attrs.unpack();
      attrlist_remove(attrs, "record file name");
      attrlist_remove(attrs, "index record version");
      std::string series = packed_attrs::pack(attrs);
      ss.attrs = packed_attrs(series);
      xdr_memory_writer out;
      EXPECT_TRUE(xdr_put_ss(out, ss));
      records[ss.savetime] = out.bytes();
    }
    return records;
  }

  static inline std::optional<temp_dir> root;
  static inline direct_env env;
  static inline std::shared_ptr<storage_library> library;
};

TEST_F(storage_tree_test, a_server_and_its_record_files_say_the_same) {
  std::size_t compared = 0;
  int layout = 1;
  for (const lab_client &client : lab->catalogue().clients()) {
    layout = 3 - layout;
    SCOPED_TRACE(client.name + ' ' + std::to_string(layout));
    constexpr std::uint64_t DAY = 86400, NOW = LAB_NOW;
    ss_page_t page;
    page.client = client.name;
    page.full = true;
    ss_list all = get_ss_page(page);
    ASSERT_FALSE(all.empty());
    // A client has one record file for a save time; others have no part in this.
    std::map<std::int64_t, int> alike;
    for (const ss_t *ss : all.rows) alike[ss->savetime]++;
    auto same = [&](const ss_list &server, const ss_list &storage) {
      records_t there = records_of(server), here = records_of(storage);
      for (records_t *records : {&there, &here})
        std::erase_if(*records, [&](const auto &each) { return alike[each.first] > 1; });
      EXPECT_EQ(there == here, true) << there.size() << " and " << here.size();
      compared += here.size();
    };
    auto on_storage = [&](auto ask) {
      mif_use_storage(true, storage_attrs(client.name, layout));
      ss_list list = ask();
      EXPECT_EQ(mif_last_error(), nullptr);
      mif_use_storage(false, {});
      mif_close();
      return list;
    };
    const struct {
      mr_range range;
      std::string_view name;
    } ranges[] = {{{0, 0, 0}, {}},
                  {{NOW - 5 * DAY, NOW - 2 * DAY, 0}, {}},
                  {{NOW - 5 * DAY, NOW, 0}, all.rows.front()->name},
                  {{1, 2, 0}, {}}};
    for (const auto &[range, name] : ranges) {
      page.range = range;
      page.name = name;
      same(get_ss_page(page), on_storage([&] { return get_ss_page(page); }));
    }
    std::vector<std::int64_t> times = {5};
    std::vector<ksui> ids, storage_ids;
    for (const ss_t *ss : all.rows) {
      times.push_back(ss->savetime);
      ids.push_back(ss->ssid);
      storage_ids.push_back(ksui_new_storage(ss->savetime, LAB_NOW));
    }
    same(fetchss_times(client.name, times, true),
         on_storage([&] { return fetchss_times(client.name, times, true); }));
    same(fetchss_ids(ids, true), on_storage([&] { return fetchss_ids(storage_ids, true); }));
  }
  EXPECT_GT(compared, 900u);
}

// Each thread has its session; half of them read without a buffer.
TEST_F(storage_tree_test, sessions_of_many_threads) {
  std::vector<std::thread> threads;
  std::vector<std::string> found(6);
  for (std::size_t i = 0; i < found.size(); i++)
    threads.emplace_back([&, i] {
      attrlist attrs = storage_attrs("mars", 1 + static_cast<int>(i % 2));
      attrlist_set(attrs, "index cache enabled", i < 3 ? "True" : "False");
      mif_use_storage(true, attrs);
      for (int round = 0; round < 3; round++) {
        ss_page_t page;
        page.client = "mars";
        ss_list list = get_ss_page(page);
        found[i] += std::to_string(list.size()) + ' ';
        if (list.empty()) continue;
        std::int64_t time = list.rows.back()->savetime;
        found[i] += std::to_string(fetchss_times("mars", {&time, 1}, true).size()) + ' ';
      }
      mif_close();
    });
  for (std::thread &thread : threads) thread.join();
  for (const std::string &each : found) EXPECT_EQ(each, found.front());
  EXPECT_NE(found.front().substr(0, 2), "0 ");
}

TEST_F(storage_tree_test, the_session_around_it) {
  mif_use_storage(true, storage_attrs("mars", 2));
  // What only a server knows is an error, with the catalogue closed or open.
  for (bool open : {false, true}) {
    SCOPED_TRACE(open);
    EXPECT_TRUE(get_vols_name({}, true).empty());
    ASSERT_NE(mif_last_error(), nullptr);
    EXPECT_EQ(mif_last_error()->text, "The catalogue on storage cannot answer this request.");
    EXPECT_EQ(mif_connect(), MIF_CONNECTED);
  }
  ss_page_t page;
  page.client = "mars";
  EXPECT_FALSE(get_ss_page(page).empty());
  EXPECT_EQ(mif_last_error(), nullptr);

  // Another subspace, of the session that is open and of one that is not.
  attrlist attrs = storage_attrs("mars", 2);
  attrlist_set(attrs, "index subspace", "nowhere");
  EXPECT_EQ(mif_set_index_subspace(attrs), MIF_CONNECTED);
  EXPECT_TRUE(get_ss_page(page).empty());
  EXPECT_EQ(mif_last_error(), nullptr);
  mif_close();
  EXPECT_EQ(mif_set_index_subspace(attrs), MIF_CONNECTED);
  EXPECT_TRUE(get_ss_page(page).empty());
  EXPECT_EQ(mif_set_index_subspace(storage_attrs("mars", 2)), MIF_CONNECTED);
  EXPECT_FALSE(get_ss_page(page).empty());

  mif_close();
  mif_use_storage(true, {});
  EXPECT_EQ(mif_connect(), -1);
  EXPECT_EQ(mif_last_error()->message.id, 115061);
}

// What of a tree is no appliance's.
TEST_F(storage_tree_test, paths_that_are_refused) {
  const std::string odd = root->file("odd");
  fs::create_directories(odd + "/directory");
  fs::create_symlink("/etc/passwd", odd + "/link");
  ASSERT_EQ(mkfifo((odd + "/fifo").c_str(), 0600), 0);
  std::unique_ptr<storage_connection> connection;
  ASSERT_EQ(library->connect({}, connection), nullptr);
  const struct {
    int line;
    std::string path;
    int number;
  } rows[] = {
      {__LINE__, "/odd/none", ENOENT},
      {__LINE__, "/odd/link", ELOOP},
      {__LINE__, "/odd/fifo", EINVAL},
      {__LINE__, "/odd/directory", EISDIR},
      {__LINE__, "/odd/../../etc/passwd", EINVAL},
      {__LINE__, "/" + std::string(4095, 'x'), ENAMETOOLONG},
      {__LINE__, std::string("/odd/none\0/..", 13), EINVAL},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::unique_ptr<storage_file> file;
    const errobj_t *error = connection->open_file(row.path, 0, 0, file);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(err_number(error->code), row.number);
    EXPECT_EQ(storage_is_missing(error), row.number == ENOENT);
  }
}

}  // namespace
}  // namespace qvr::test
