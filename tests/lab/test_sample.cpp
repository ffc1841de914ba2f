#include <gtest/gtest.h>

#include <map>
#include <set>

#include "catalogue_file.h"
#include "lab_catalogue.h"
#include "lab_sample.h"
#include "run_command.h"
#include "ss_flags.h"
#include "temp_dir.h"
#include "xdr_records.h"

namespace qvr::test {
namespace {

constexpr std::int64_t MIDNIGHT = 1767225600;

// Keeps everything as text, in order.
class text_sink final : public catalogue_sink {
 public:
  void add_client(const lab_client &one) override { put(one.name, raw(one.clientid)); }
  void add_resource(const lab_resource &one) override {
    put(one.database, packed_attrs::pack(one.attrs));
  }
  void add_vol(const vol_t &vol) override {
    xdr_memory_writer writer;
    xdr_put_vol(writer, vol);
    put("vol", writer.bytes());
  }
  void add_ss(const ss_t &ss) override {
    xdr_memory_writer writer;
    xdr_put_ss(writer, ss);
    put("ss", writer.bytes());
    savesets++;
    first = std::min(first, ss.savetime);
    last = std::max(last, ss.savetime);
    levels.insert(ss.level);
    days.insert((ss.savetime - MIDNIGHT + 36500 * std::int64_t{86400}) / 86400 - 36500);
    short_ids.insert(ss.ssid.word(1));
    for (const flag_row_t &row : ss_flag_rows()) flags[row.bit] += (ss.ssflags & row.bit) != 0;
    for (const clone_t &clone : ss.copies()) {
      std::int64_t at = -1;
      for (const frag_t &frag : clone.fragments()) {
        unordered += frag.fragoffset <= at;
        at = frag.fragoffset;
      }
      unordered += at > static_cast<std::int64_t>(ss.totalsize);
      spanning += clone.nfrags > 1;
    }
    copied += ss.ncopies > 1;
    copyless += ss.ncopies == 0;
    continued += !ss.pssid.is_null();
  }
  void add_history(const lab_history &one) override {
    xdr_memory_writer writer;
    xdr_put_hist(writer, one.record);
    put(one.client + one.name + raw(one.clientid), writer.bytes());
  }

  std::string text;
  std::uint64_t savesets = 0, copied = 0, copyless = 0, spanning = 0, continued = 0, unordered = 0;
  std::int64_t first = INT64_MAX, last = 0;
  std::set<std::int32_t> levels;
  std::set<std::int64_t> days;
  std::set<std::uint32_t> short_ids;
  std::map<std::uint32_t, unsigned> flags;

 private:
  static std::string raw(const ksui &id) {
    return {reinterpret_cast<const char *>(id.bytes.data()), id.bytes.size()};
  }
  void put(const std::string &kind, const std::string &bytes) { text += kind + bytes; }
};

sample_options options_of(std::uint64_t seed, unsigned clients, unsigned days,
                          std::uint64_t savesets = 0) {
  sample_options options;
  options.seed = seed;
  options.clients = clients;
  options.days = days;
  options.savesets = savesets;
  options.server = "vault";
  options.midnight = MIDNIGHT;
  return options;
}

TEST(lab_sample, is_the_same_for_the_same_seed_and_no_other) {
  text_sink a, b, c, d;
  make_sample(options_of(5, 4, 9), a);
  make_sample(options_of(5, 4, 9), b);
  make_sample(options_of(6, 4, 9), c);
  sample_options later = options_of(5, 4, 9);
  later.midnight += 86400;
  make_sample(later, d);
  EXPECT_TRUE(a.text == b.text);
  EXPECT_FALSE(a.text == c.text);
  EXPECT_EQ(d.first - a.first, 86400);
}

TEST(lab_sample, every_size_has_its_days_and_ids_of_its_own) {
  struct {
    int line;
    sample_options options;
    std::uint64_t least;
  } rows[] = {
      {__LINE__, options_of(1, 1, 1), 5},
      {__LINE__, options_of(1, 8, 35), 1000},
      {__LINE__, options_of(2, 60, 3), 400},
      {__LINE__, options_of(1, 8, 35, 20000), 20000},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    text_sink sink;
    make_sample(row.options, sink);
    EXPECT_GE(sink.savesets, row.least);
    if (row.options.savesets != 0) {
      EXPECT_EQ(sink.savesets, row.least);
    }
    EXPECT_EQ(sink.short_ids.size(), sink.savesets);
    EXPECT_EQ(sink.unordered, 0u);
    // Yesterday and today are there, and nothing lies ahead of the first minute.
    EXPECT_TRUE(sink.days.contains(-1) && sink.days.contains(0));
    EXPECT_EQ(sink.days.size(), row.options.days + 1);
    EXPECT_LT(sink.last, MIDNIGHT + 60);
    EXPECT_GE(sink.first, MIDNIGHT - row.options.days * std::int64_t{86400});
  }
}

TEST(lab_sample, has_something_of_every_kind) {
  text_sink sink;
  make_sample(options_of(1, 8, 35), sink);
  for (std::int32_t level = -11; level <= 12; level++) {
    bool named = level >= -3 || level <= -8;
    EXPECT_EQ(sink.levels.contains(level), named) << level;
  }
  for (const auto &[bit, count] : sink.flags) EXPECT_GT(count, 0u) << std::hex << bit;
  EXPECT_GT(sink.copied, 100u);
  EXPECT_GT(sink.spanning, 20u);
  EXPECT_GT(sink.copyless, 0u);
  EXPECT_GT(sink.continued, 0u);
}

TEST(lab_sample, specs_are_read_whole_or_refused) {
  struct {
    int line;
    const char *text;
    bool good;
    std::uint64_t seed;
    unsigned clients, days;
  } rows[] = {
      {__LINE__, "7", true, 7, 8, 35},      {__LINE__, "7:2", true, 7, 2, 35},
      {__LINE__, "0:1:1", true, 0, 1, 1},   {__LINE__, "", false, 0, 0, 0},
      {__LINE__, "7:", false, 0, 0, 0},     {__LINE__, "7:0", false, 0, 0, 0},
      {__LINE__, "x", false, 0, 0, 0},      {__LINE__, "1:2:3:4", false, 0, 0, 0},
      {__LINE__, "1:2:3x", false, 0, 0, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    sample_options options;
    EXPECT_EQ(parse_sample(row.text, options), row.good);
    if (!row.good) continue;
    EXPECT_EQ(options.seed, row.seed);
    EXPECT_EQ(options.clients, row.clients);
    EXPECT_EQ(options.days, row.days);
  }
}

class catalogue_files : public testing::Test {
 protected:
  temp_dir directory;
};

TEST_F(catalogue_files, a_catalogue_comes_back_as_it_was_stored) {
  std::string path = directory.file("one"), why;
  text_sink before, after;
  catalogue_writer writer(path);
  make_sample(options_of(4, 8, 20), before);
  make_sample(options_of(4, 8, 20), writer);
  // What no sample has: identifiers without a long form, numbers at their ends.
  ss_t odd;
  odd.ssid.bytes.fill(0xff);
  odd.totalsize = UINT64_MAX;
  odd.savetime = INT64_MIN;
  odd.ssretent = UINT32_MAX;
  odd.client = "";
  odd.name = std::string_view("a'b\"\\\n", 6);
  for (catalogue_sink *sink :
       {static_cast<catalogue_sink *>(&before), static_cast<catalogue_sink *>(&writer)})
    sink->add_ss(odd);
  ASSERT_TRUE(writer.close(why)) << why;
  ASSERT_TRUE(read_catalogue_file(path, after, why)) << why;
  // Kinds come in an order of the file's own: compare them as sets of pieces.
  EXPECT_EQ(after.text.size(), before.text.size());
  EXPECT_EQ(after.savesets, before.savesets);
  lab_catalogue from_file, from_sample;
  ASSERT_TRUE(read_catalogue_file(path, from_file, why));
  make_sample(options_of(4, 8, 20), from_sample);
  from_sample.add_ss(odd);
  from_file.finish();
  from_sample.finish();
  ASSERT_EQ(from_file.savesets().size(), from_sample.savesets().size());
  for (std::size_t i = 0; i < from_file.savesets().size(); i++)
    ASSERT_EQ(from_file.savesets()[i].encoded.full(), from_sample.savesets()[i].encoded.full());
  ASSERT_EQ(from_file.volumes().size(), from_sample.volumes().size());
  for (std::size_t i = 0; i < from_file.volumes().size(); i++)
    ASSERT_EQ(from_file.volumes()[i].encoded.head(), from_sample.volumes()[i].encoded.head());
  ASSERT_EQ(from_file.history().size(), from_sample.history().size());
  ASSERT_EQ(from_file.resources().size(), from_sample.resources().size());
  for (std::size_t i = 0; i < from_file.resources().size(); i++)
    ASSERT_EQ(from_file.resources()[i].attrs, from_sample.resources()[i].attrs);
}

TEST_F(catalogue_files, bad_files_are_told) {
  std::string why;
  text_sink sink;
  EXPECT_FALSE(read_catalogue_file(directory.file("missing"), sink, why));
  EXPECT_EQ(why, directory.file("missing") + ": unable to open database file");
  std::string text = directory.file("text");
  run_command({"sh", "-c", "yes no database | head -c 8192 > " + text});
  EXPECT_FALSE(read_catalogue_file(text, sink, why));
  EXPECT_EQ(why, text + ": file is not a database");
  catalogue_writer writer(directory.file("no/such/place"));
  EXPECT_FALSE(writer.close(why));
}

class lab_program_run : public catalogue_files {
 protected:
  std::string program = built_program("qvrlabd");
};

TEST_F(lab_program_run, stops_cleanly_on_either_signal) {
  for (int signal : {SIGTERM, SIGINT}) {
    background_command lab(
        {program, "--sample", "1:2:3", "--port", "0", "--log", directory.file("log")});
    ASSERT_TRUE(lab.wait_for("\n"));
    EXPECT_TRUE(lab.result().out.starts_with("ready "));
    command_result result = lab.stop(signal);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
  }
}

TEST_F(lab_program_run, bad_arguments_end_it_with_a_reason) {
  struct {
    int line;
    std::vector<std::string> arguments;
    int status;
    const char *out, *err;
  } rows[] = {
      {__LINE__, {"--help"}, 0, "Usage: qvrlabd [option]...\n", ""},
      {__LINE__, {"--sample", "x"}, 1, "", "qvrlabd: bad value: x\n"},
      {__LINE__, {"--port", "65536"}, 1, "", "qvrlabd: bad value: 65536\n"},
      {__LINE__, {"--more", "3"}, 1, "", "qvrlabd: bad value: 3\n"},
      {__LINE__, {"--fault", "nonsense"}, 1, "", "qvrlabd: unknown fault word: nonsense\n"},
      {__LINE__, {"here"}, 1, "", "qvrlabd: unexpected argument: here\n"},
      {__LINE__,
       {"--catalogue", "/no/such"},
       1,
       "",
       "qvrlabd: /no/such: unable to open database file\n"},
      {__LINE__, {"--log", "/no/such/log"}, 1, "", "qvrlabd: cannot write /no/such/log\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    std::vector<std::string> argv = {program};
    argv.insert(argv.end(), row.arguments.begin(), row.arguments.end());
    command_result result = run_command(argv);
    EXPECT_EQ(result.status, row.status);
    EXPECT_TRUE(result.out.starts_with(row.out)) << result.out;
    EXPECT_EQ(result.err, row.err);
  }
}

TEST_F(lab_program_run, a_stored_sample_is_served_again) {
  std::string file = directory.file("file");
  EXPECT_EQ(run_command({program, "--sample", "1:2:3", "--store", file, "--no-serve"}).status, 0);
  command_result count = run_command({"sqlite3", file, "SELECT count(*) > 20 FROM saveset"});
  EXPECT_EQ(count.out, "1\n") << count.err;
  background_command lab({program, "--catalogue", file, "--port", "0"});
  EXPECT_TRUE(lab.wait_for("ready "));
  EXPECT_EQ(lab.stop().status, 0);
}

TEST_F(lab_program_run, listens_on_loopback_addresses_of_its_names_only) {
  private_host_options options;
  options.set_file("/etc/hosts",
                   "127.0.0.1 localhost\n127.0.1.1 vault\n192.0.2.7 vault\n::1 localhost\n");
  options.addresses = {"192.0.2.7"};
  std::string why;
  auto host = private_host::make(options, why);
  if (!host) GTEST_SKIP() << why;
  command_options inside;
  inside.host = host.get();
  background_command lab({program, "--sample", "1:2:3"}, inside);
  ASSERT_TRUE(lab.wait_for("\n")) << lab.result().err;
  EXPECT_EQ(lab.result().out, "ready vault 7938 127.0.1.1:7938 [::1]:7938 127.0.0.1:7938\n");
  EXPECT_EQ(lab.stop().status, 0);
}

}  // namespace
}  // namespace qvr::test
