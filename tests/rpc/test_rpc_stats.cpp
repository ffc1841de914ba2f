// Statistics files and the marker files that tune them, in directories of the test's own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "clnt_create.h"
#include "clnt_tcp.h"
#include "debug_markers.h"
#include "fake_resolver.h"
#include "pmap_cache.h"
#include "script_server.h"
#include "temp_dir.h"

namespace qvr {
namespace {

namespace fs = std::filesystem;

class rpc_stats_files : public testing::Test {
 protected:
  rpc_stats_files() {
    fs::create_directories(root_ / "debug");
    fs::create_directories(root_ / "checksums");
    setenv("QVR_DEBUG_DIR", (root_ / "debug").c_str(), 1);
    setenv("QVR_CHECKSUMS_DIR", (root_ / "checksums").c_str(), 1);
    rpc_dirs_reset();
  }
  ~rpc_stats_files() override {
    unsetenv("QVR_DEBUG_DIR");
    unsetenv("QVR_CHECKSUMS_DIR");
    rpc_dirs_reset();
  }
  void mark(const std::string &name, const std::string &text = {}) {
    std::ofstream(root_ / "debug" / name) << text;
    rpc_dirs_reset();
  }
  std::vector<std::string> files() {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator(root_ / "checksums")) {
      names.push_back(entry.path().filename());
    }
    return names;
  }
  std::string content() {
    std::ifstream in(root_ / "checksums" / files().at(0));
    return {std::istreambuf_iterator<char>(in), {}};
  }
  temp_dir directory_;
  fs::path root_ = directory_.path();
};

TEST_F(rpc_stats_files, checksums) {
  memory_transport transport;
  auto stream = make_stream(transport);
  rpc_stats stats;
  rpc_stats_start(stats, *stream, 9999, "plain", nullptr, nullptr);
  ASSERT_EQ(files(), std::vector<std::string>{"plain,pid_" + std::to_string(getpid()) + ",fd9999"});
  EXPECT_EQ(content(),
            "WROTE:\tcrc          0\tsum          0\tcnt          0\n"
            " READ:\tcrc          0\tsum          0\tcnt          0\n");
  rpc_stats_note(stats, stats.wrote, "\1\2\377", 3);
  rpc_stats_note(stats, stats.read, "ab", 2);
  stats.read.nblock = 7;
  rpc_stats_dump(stats);
  // 1; rotated right once 0x80000000 + 2; rotated 0x40000001 + 255.
  EXPECT_EQ(content(),
            "WROTE:\tcrc 1073742080\tsum        258\tcnt          3\n"
            " READ:\tcrc 2147483794\tsum        195\tcnt          2\tnblock   7\n");
  EXPECT_EQ(stream->fragmax(), 104857600u);
  rpc_stats_stop(stats, stream.get(), true);
  EXPECT_TRUE(files().empty());
  EXPECT_EQ(stream->fragmax(), 0u);
}

TEST_F(rpc_stats_files, a_connection_is_named_by_its_ends) {
  script_server server([](served_connection &, const served_call &) {});
  auto client = open_tcp(server);
  ASSERT_TRUE(client);
  ASSERT_TRUE(client->control(CLSET_STATS, const_cast<char *>("mmdb_clnt")));
  EXPECT_EQ(files(), std::vector<std::string>{"mmdb_clnt,pid_" + std::to_string(getpid()) +
                                              ",127.0.0.1-127.0.0.1"});
  ASSERT_TRUE(client->control(CLSET_STATS, nullptr));
  EXPECT_EQ(files().size(), 1u) << "the file outlives the connection";
  EXPECT_EQ(client->stream()->fragmax(), 104857600u) << "the limit stays with the handle";
}

TEST_F(rpc_stats_files, markers) {
  struct row {
    int line;
    std::string marker, text, stream;
    bool file, blocking;
    std::uint32_t fragmax;
    bool removed;
    std::string head;
  };
  const std::uint32_t usual = XDRREC_FRAGMAX_DEFAULT;
  const std::string crc = "WROTE:\tcrc", mmdb = "mmdb_clnt";
  const row rows[] = {
      {__LINE__, "", "", mmdb, true, false, usual, true, crc},
      {__LINE__, "nommdb_clnt", "", mmdb, false, false, usual, true, ""},
      {__LINE__, "nommdb", "", mmdb, false, false, usual, true, ""},
      {__LINE__, "nommdb", "", "mmdb_serv", false, false, usual, true, ""},
      {__LINE__, "nommdb", "", "mmdb", false, false, usual, true, ""},
      {__LINE__, "nommdb", "", "mmdb_other", true, false, usual, true, crc},
      {__LINE__, "cntonly", "", mmdb, true, false, usual, true, "WROTE:\tcnt"},
      {__LINE__, "noremove", "", mmdb, true, false, usual, false, crc},
      {__LINE__, "blockingonly", "", mmdb, true, true, usual, true, crc},
      {__LINE__, "fragmax", " 5000\n", mmdb, true, false, 5000, true, crc},
      {__LINE__, "fragmax", "0", mmdb, true, false, usual, true, crc},
      {__LINE__, "fragmax", "many", mmdb, true, false, usual, true, crc},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    if (!r.marker.empty()) mark(r.marker, r.text);
    memory_transport transport;
    auto stream = make_stream(transport);
    rpc_stats stats;
    rpc_stats_start(stats, *stream, -1, r.stream, nullptr, nullptr);
    EXPECT_EQ(files().size(), r.file ? 1u : 0u);
    EXPECT_TRUE(!r.file || content().substr(0, r.head.size()) == r.head);
    EXPECT_EQ(stats.blocking_only, r.blocking);
    EXPECT_EQ(stream->fragmax(), r.fragmax);
    rpc_stats_stop(stats, stream.get(), true);
    EXPECT_EQ(files().empty(), r.removed || !r.file);
    for (const std::string &name : files()) fs::remove(root_ / "checksums" / name);
    fs::remove_all(root_ / "debug");
    fs::create_directories(root_ / "debug");
    rpc_dirs_reset();
  }
}

TEST_F(rpc_stats_files, only_regular_files_are_written) {
  fs::path victim = root_ / "victim";
  std::ofstream(victim) << "precious";
  std::string name = "plain,pid_" + std::to_string(getpid()) + ",fd-1";
  // A link, a pipe, a directory; and last the directory itself is missing, and bytes are only
  // counted.
  for (int kind = 0; kind < 4; kind++) {
    SCOPED_TRACE(kind);
    fs::path at = root_ / "checksums" / name;
    if (kind == 0) fs::create_symlink(victim, at);
    ASSERT_TRUE(kind != 1 || mkfifo(at.c_str(), 0600) == 0);
    if (kind == 2) fs::create_directory(at);
    if (kind == 3) fs::remove_all(root_ / "checksums");
    mark("blockingonly");
    memory_transport transport;
    auto stream = make_stream(transport);
    rpc_stats stats;
    rpc_stats_start(stats, *stream, -1, "plain", nullptr, nullptr);
    EXPECT_EQ(stats.blocking_only, kind != 3);
    rpc_stats_note(stats, stats.read, "abc", 3);
    rpc_stats_dump(stats);
    EXPECT_EQ(stats.read.count, 3u);
    EXPECT_EQ(stats.read.crc == 0, kind == 3);
    rpc_stats_stop(stats, stream.get(), true);
    EXPECT_EQ(fs::file_size(victim), 8u);
    fs::remove(at);
  }
}

TEST_F(rpc_stats_files, noabortconn_lets_a_long_fragment_pass) {
  for (bool marked : {false, true}) {
    if (marked) mark("noabortconn");
    memory_transport transport;
    transport.incoming = record(payload_of(100));
    auto stream = make_stream(transport);
    int calls = 0;
    stream->set_fragmax(
        8, [](void *to, std::uint64_t) { ++*static_cast<int *>(to); }, &calls);
    ASSERT_TRUE(stream->skiprecord(true));
    std::uint32_t value;
    test::caught_messages caught;
    EXPECT_EQ(stream->get_u32(value), marked);
    EXPECT_EQ(calls, marked ? 0 : 1);
    EXPECT_EQ(caught.text().find(" got record frag of 100 bytes\n") != std::string::npos, marked);
  }
}

TEST_F(rpc_stats_files, nodelayeor_sends_an_empty_end_at_once) {
  for (bool marked : {false, true}) {
    if (marked) mark("nodelayeor");
    memory_transport transport;
    auto stream = make_stream(transport, XDRREC_VECTORED, 100);
    std::string full(96, 'x');
    std::uint64_t before = xdrrec_delayed_ends();
    ASSERT_TRUE(stream->put_bytes(full.data(), full.size()));
    ASSERT_TRUE(stream->endofrecord(false));
    EXPECT_EQ(transport.writes.size(), marked ? 2u : 1u);
    EXPECT_EQ(xdrrec_delayed_ends() - before, marked ? 0u : 1u);
  }
}

TEST_F(rpc_stats_files, qvrportcachedisable_turns_the_list_of_the_process_off) {
  for (bool marked : {false, true}) {
    if (marked) mark("qvrportcachedisable");
    pmap_cache_forget();
    std::thread([] { pmap_cache_add({390113, 1, 6, 7937}); }).join();
    EXPECT_EQ(pmap_cache_find(390113, 1, 6), marked ? 0 : 7937);
  }
  fs::remove_all(root_ / "debug");
  pmap_cache_forget();
}

}  // namespace
}  // namespace qvr
