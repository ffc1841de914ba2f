// Records and replies on the wire: both ways, in pieces, cut and damaged.
#include <gtest/gtest.h>

#include "allocation_meter.h"
#include "mmdb_args.h"
#include "mmdb_procs.h"
#include "rap_protocol.h"
#include "sample_records.h"
#include "short_writer.h"
#include "xdr_records.h"

namespace qvr {
namespace {

std::string word(std::uint32_t value) {
  xdr_memory_writer out;
  out.put_u32(value);
  return out.take();
}

template <class Reply>
bool decode(XDR &in, Reply &reply) {
  return xdr_get_reply(in, reply);
}

template <class Reply>
std::string again(std::string_view bytes) {
  xdr_memory_reader in(bytes);
  Reply reply;
  return decode(in, reply) ? encoded(reply) : "refused";
}

// One reply of each shape, as bytes, with the way to decode and encode it again.
struct shape_t {
  int line;
  const char *name;
  std::string bytes;
  bool (*decode)(XDR &in, std::string &back);
};

template <class Reply>
bool round(XDR &in, std::string &back) {
  Reply reply;
  if (!xdr_get_reply(in, reply)) return false;
  back = encoded(reply);
  return true;
}

std::vector<shape_t> shapes() {
  sampler s(7);
  std::vector<shape_t> all;
  all.push_back({__LINE__, "ss", encoded(s.reply<ss_reply>(3)), round<ss_reply>});
  ssr_reply ssr = s.reply<ssr_reply>(2);
  ssr.ssr_more = 2;
  all.push_back({__LINE__, "ssr", encoded(ssr), round<ssr_reply>});
  all.push_back({__LINE__, "vol", encoded(s.reply<vol_reply>(3)), round<vol_reply>});
  all.push_back({__LINE__, "volr", encoded(s.reply<volr_reply>(1)), round<volr_reply>});
  all.push_back({__LINE__, "hist", encoded(s.reply<hist_reply>(4)), round<hist_reply>});
  all.push_back({__LINE__, "empty", encoded(s.reply<ss_reply>(0)), round<ss_reply>});
  ids_reply ids;
  ids.status = MMDB_OK;
  ids.ids = {s.id(), s.id()};
  all.push_back({__LINE__, "ids", encoded(ids), round<ids_reply>});
  clidmap_reply map;
  map.status = MMDB_OK;
  map.entry = clidmap{s.id(), "mars"};
  all.push_back({__LINE__, "clidmap", encoded(map), round<clidmap_reply>});
  clidmap_reply none;
  none.status = MMDB_NO_ENTRY;
  all.push_back({__LINE__, "no entry", encoded(none), round<clidmap_reply>});
  bools_reply bools;
  bools.status = MMDB_OK;
  bools.first = -1;
  all.push_back({__LINE__, "bools", encoded(bools), round<bools_reply>});
  volops_reply ops;
  ops.status = 7;
  ops.error = err_from_text(8, 5, "volume is busy");
  ops.failed = {s.id(), s.id()};
  all.push_back({__LINE__, "volops", encoded(ops), round<volops_reply>});
  ss_reply failed;
  failed.status = 3;
  failed.error =
      err_create(86875, 85004, "Save-set ID '%s' is not in media database.", {{0, "77"}});
  all.push_back({__LINE__, "error", encoded(failed), round<ss_reply>});
  ssop_reply op;
  op.status = MMDB_OK;
  for (int i = 0; i < 3; i++) op.failures.push_back({s.id(), *err_from_text(8, 4, "gone")});
  all.push_back({__LINE__, "ssop", encoded(op), round<ssop_reply>});
  return all;
}

TEST(xdr_replies, come_back_equal_whole_and_in_pieces) {
  for (const shape_t &shape : shapes()) {
    SCOPED_TRACE(shape.name);
    std::string back;
    xdr_memory_reader whole(shape.bytes);
    ASSERT_TRUE(shape.decode(whole, back));
    EXPECT_EQ(whole.remaining(), 0u);
    EXPECT_EQ(back, shape.bytes);
    for (std::size_t piece : {1, 3, 4, 7, 64, 100, 1000}) {
      for (bool knows : {false, true}) {
        xdr_piece_reader pieces(shape.bytes, piece, knows);
        ASSERT_TRUE(shape.decode(pieces, back)) << piece;
        EXPECT_EQ(back, shape.bytes);
      }
    }
  }
}

TEST(xdr_replies, every_cut_is_refused) {
  for (const shape_t &shape : shapes()) {
    SCOPED_TRACE(shape.name);
    std::string back;
    for (std::size_t size = 0; size < shape.bytes.size(); size++) {
      // A copy of its own, so that a read behind the end is seen.
      std::string cut = shape.bytes.substr(0, size);
      cut.shrink_to_fit();
      xdr_memory_reader in(cut);
      EXPECT_FALSE(shape.decode(in, back)) << size;
      xdr_piece_reader pieces(cut, 5);
      EXPECT_FALSE(shape.decode(pieces, back)) << size;
    }
  }
}

// A flipped bit is refused or gives a record that means what it says: encoding it and decoding that
// again changes nothing more, whichever way the bytes came in.
TEST(xdr_replies, every_flipped_bit_is_refused_or_stable) {
  for (const shape_t &shape : shapes()) {
    SCOPED_TRACE(shape.name);
    for (std::size_t bit = 0; bit < shape.bytes.size() * 8; bit++) {
      std::string bytes = shape.bytes, first, second, pieced;
      bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
      bool good = false, equal = false;
      // A damaged error object is made anew, with the time of that: a second may pass between.
      for (int attempt = 0; attempt < 3 && !equal; attempt++) {
        xdr_memory_reader in(bytes);
        xdr_piece_reader pieces(bytes, 13);
        good = shape.decode(in, first);
        ASSERT_EQ(shape.decode(pieces, pieced), good) << bit;
        equal = !good || first == pieced;
      }
      ASSERT_TRUE(equal) << bit;
      if (!good) continue;
      xdr_memory_reader behind(first);
      ASSERT_TRUE(shape.decode(behind, second)) << bit;
      ASSERT_TRUE(first == second) << bit;
    }
  }
}

TEST(xdr_replies, lists_without_records) {
  std::string yes = word(1), no = word(0), ok = word(MMDB_OK);
  sampler s(3);
  arena page;
  xdr_memory_writer record;
  xdr_put_ss(record, *s.ss(page));
  struct {
    int line;
    std::string bytes;
    std::size_t records;
  } rows[] = {
      {__LINE__, ok + no, 0},
      {__LINE__, ok + yes + no + no, 0},
      {__LINE__, ok + yes + no + yes + yes + record.bytes() + no, 0},
      {__LINE__, ok + yes + yes + record.bytes() + yes + no + no, 1},
      {__LINE__, ok + yes + yes + record.bytes() + word(9) + word(7) + record.bytes() + no, 2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    xdr_memory_reader in(row.bytes);
    ss_reply reply;
    ASSERT_TRUE(xdr_get_reply(in, reply));
    EXPECT_EQ(reply.list.size(), row.records);
    EXPECT_EQ(in.remaining(), 0u);
  }
}

// Else a line of an inventory would end in the middle, or a table show what no terminal does.
TEST(xdr_replies, texts_end_at_their_first_nul) {
  vol_t sent;
  sent.volume = {"vol\0one", 7};
  sent.type = {"\0x", 2};
  std::string series = packed_attrs::pack({{std::string("a\0b", 3), {std::string("c\0d", 3)}}});
  sent.volattrs = packed_attrs(series);
  xdr_memory_writer out;
  ASSERT_TRUE(xdr_put_vol(out, sent));
  xdr_memory_reader in(out.bytes());
  arena page;
  vol_t got;
  ASSERT_TRUE(xdr_get_vol(in, page, got));
  EXPECT_EQ(in.remaining(), 0u);
  EXPECT_EQ(got.volume, "vol");
  EXPECT_EQ(got.type, "");
  EXPECT_EQ(got.volattrs.first("a"), "c");
}

TEST(xdr_replies, errors_of_a_reply) {
  std::string text("save set 7 is gone\0", 18);
  ss_reply reply;
  xdr_memory_writer plain;
  plain.put_i32(5);
  plain.put_i32(85004);
  plain.put_counted(text);
  xdr_memory_reader in(plain.bytes());
  ASSERT_TRUE(xdr_get_reply(in, reply));
  ASSERT_NE(reply.error, nullptr);
  EXPECT_EQ(reply.error->code, 85004);
  EXPECT_EQ(reply.error->text, text);

  ss_reply structured;
  structured.status = 5;
  structured.error = err_create(86875, 85004, "Save-set ID '%s' is not in media database.",
                                {{MSG_ARG_SAVESET, "77"}});
  std::string bytes = encoded(structured);
  xdr_memory_reader second(bytes);
  ASSERT_TRUE(xdr_get_reply(second, reply));
  ASSERT_NE(reply.error, nullptr);
  EXPECT_EQ(reply.error->message.id, 86875);
  ASSERT_EQ(reply.error->message.args.size(), 1u);
  EXPECT_EQ(reply.error->message.args[0].text, "77");
}

TEST(xdr_replies, ten_million_empty_nodes_take_no_memory) {
  class nodes final : public XDR {
   public:
    std::uint64_t remaining() const override { return SIZE_MAX; }
    std::uint32_t get_position(xdr_op) override { return 0; }
    bool set_position(xdr_op, std::uint32_t) override { return false; }

   protected:
    bool slow_get_bytes(void *to, std::size_t size) override {
      static const std::uint8_t one[4] = {0, 0, 0, 1};
      if (size != 4 || ++words_ > 20000000) return false;
      std::memset(to, 0, 4);
      if (words_ == 1)
        static_cast<std::uint8_t *>(to)[3] = MMDB_OK;
      else if (words_ % 2 == 0)  // another follows, and has no record
        std::memcpy(to, one, 4);
      return true;
    }
    bool slow_put_bytes(const void *, std::size_t) override { return false; }

   private:
    std::uint64_t words_ = 0;
  } in;
  ss_reply reply;
  std::size_t before = test::meter_start();
  EXPECT_FALSE(xdr_get_reply(in, reply));
  EXPECT_TRUE(reply.list.empty());
  EXPECT_LT(test::meter_peak() - before, 1u << 20);
}

// What comes in small costs little whatever it claims, and what comes in large costs a bounded
// number of bytes for each of its own.
TEST(xdr_replies, memory_is_bounded_by_the_bytes_that_came) {
  std::string ok = word(MMDB_OK), yes = word(1), ones(48, '\1');
  std::string ss_head = ok + yes + yes + std::string(104, 'x');
  std::string to_attrs = ss_head + word(0) + word(0) + std::string(24, 'x');
  std::string to_clones = to_attrs + word(0);
  std::string vol_head = ok + yes + yes + std::string(24, 'x');
  std::string large(24u << 20, '\0');
  constexpr std::uint32_t all = 0xffffffff, longest = 0xfffffffb;
  auto count = [&](std::size_t item) {
    return word(static_cast<std::uint32_t>(large.size() / item));
  };
  struct {
    int line;
    bool (*decode)(XDR &in, std::string &back);
    std::string bytes;
    bool whole;
  } rows[] = {
      {__LINE__, round<ids_reply>, ok + word(all), false},
      {__LINE__, round<ids_reply>, ok + word(all) + ones, false},
      {__LINE__, round<ids_reply>, ok + word(0x10000000) + ones, false},
      {__LINE__, round<ids_reply>, ok + word(all) + large, false},
      {__LINE__, round<vol_reply>, vol_head + word(longest) + "ab", false},
      {__LINE__, round<vol_reply>, vol_head + word(longest) + large, false},
      {__LINE__, round<ss_reply>, ss_head + word(longest) + ones, false},
      {__LINE__, round<ss_reply>, to_attrs + yes + word(4) + "name" + yes + word(longest) + ones,
       false},
      {__LINE__, round<ss_reply>, to_attrs + yes + word(4) + "name" + yes + word(longest) + large,
       false},
      {__LINE__, round<ss_reply>, to_clones + word(all) + ones, false},
      {__LINE__, round<ss_reply>, to_clones + word(all) + large, false},
      {__LINE__, round<ss_reply>, to_clones + word(1) + ones.substr(0, 12) + word(all) + large,
       false},
      {__LINE__, round<ss_reply>, to_clones + count(16) + large + word(0), true},
      {__LINE__, round<ss_reply>,
       to_clones + word(1) + ones.substr(0, 12) + count(48) + large + word(0), true},
      {__LINE__, round<hist_reply>, ok + yes + std::string(40, 'x') + word(longest) + large, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    for (bool knows : {true, false}) {
      xdr_piece_reader in(row.bytes, 65536, knows);
      std::string back;
      std::size_t before = test::meter_start();
      EXPECT_EQ(row.decode(in, back), row.whole);
      // What was encoded again is the test's own: a string that grew by doubling.
      std::size_t own = row.whole ? 3 * row.bytes.size() : 0;
      EXPECT_LT(test::meter_peak() - before, 4 * row.bytes.size() + (1u << 20) + own);
    }
  }
}

// What a list holds in memory for what came over the wire.
TEST(xdr_replies, memory_a_wire_byte) {
  sampler s(11);
  ss_reply made = s.reply<ss_reply>(4096);
  std::string bytes = encoded(made);
  ss_reply reply;
  xdr_piece_reader in(bytes, 65536);
  ASSERT_TRUE(xdr_get_reply(in, reply));
  std::size_t held = reply.list.rows.capacity() * sizeof(ss_t *);
  for (const auto &page : reply.list.pages) held += page->held();
  EXPECT_LT(static_cast<double>(held) / static_cast<double>(bytes.size()), 1.5);
}

// Arguments of every procedure that a report calls: each encoding is read whole by the procedure's
// row, and by the decoder of the server's side.
template <class Args>
void check_args(int line, mmdb_proc number, const Args &args, const std::string &shown) {
  SCOPED_TRACE(line);
  xdr_memory_writer out, back;
  ASSERT_TRUE(xdr_put_args(out, args));
  const mmdb_proc_t *row = mmdb_find_proc(number);
  ASSERT_NE(row, nullptr);
  std::string text;
  xdr_memory_reader walked(out.bytes());
  EXPECT_TRUE(mmdb_walk_args(*row, walked, &text));
  EXPECT_EQ(walked.remaining(), 0u);
  EXPECT_EQ(text, shown);
  arena page;
  Args copy;
  xdr_memory_reader in(out.bytes());
  ASSERT_TRUE(xdr_get_args(in, page, copy));
  EXPECT_EQ(in.remaining(), 0u);
  ASSERT_TRUE(xdr_put_args(back, copy));
  EXPECT_EQ(back.bytes(), out.bytes());
  for (std::size_t size = 0; size < back.bytes().size(); size += 4) {
    std::string_view cut = std::string_view(back.bytes()).substr(0, size);
    xdr_memory_reader part(cut), seen(cut);
    EXPECT_FALSE(xdr_get_args(part, page, copy)) << size;
    EXPECT_FALSE(mmdb_walk_args(*row, seen, &text)) << size;
  }
  EXPECT_TRUE(tells_short_streams(back.bytes().size(),
                                  [&](XDR &full) { return xdr_put_args(full, args); }));
}

TEST(xdr_args, of_every_called_procedure) {
  ksui ids[] = {ksui_from_number(7), ksui_from_number(8)};
  std::int64_t times[] = {-1, 1700000000};
  mr_range range{1, 2, 3};
  attrlist group = {{"group", {"a", "b"}}};
  check_args(__LINE__, MMDB_FETCHSS_IDS, mmdb_ids_args{ids, true}, "ids=[7,8] full=1");
  check_args(__LINE__, MMDB_FETCHCVR_IDS, mmdb_ids_args{{}, false}, "ids=[] full=0");
  check_args(__LINE__, MMDB_GET_SS, ss_query_t{true, "mars", "/", {}, 9, 1, false},
             "all=1 client=\"mars\" name=\"/\" attrs=none time=9 level=1 full=0");
  check_args(__LINE__, MMDB_GET_SS_TIMES_CLIENT, mmdb_client_times_args{{}, times, true},
             "client=\"\" times=[-1,1700000000] full=1");
  check_args(__LINE__, MMDB_GET_SS_RANGE, ss_page_t{"mars", {}, group, range, 0, {}, ids[0], true},
             "client=\"mars\" name=\"\" attrs={group:\"a\":\"b\";} range=1..2/3 level=0 "
             "filter=none last=7 full=1");
  check_args(__LINE__, MMDB_GET_CLIENTS, mmdb_clients_args{}, "client=\"\" name=\"\"");
  check_args(__LINE__, MMDB_GET_VOLS_FAMILY, mmdb_family_args{"disk", "file", 3, 1, false},
             "family=\"disk\" type=\"file\" flagmask=3 flags=1 full=0");
  check_args(__LINE__, MMDB_GET_VOL_ID, mmdb_vol_id_args{ids[1], true}, "volid=8 full=1");
  check_args(__LINE__, MMDB_GET_VOLS_NAME, mmdb_vol_text_args{"v.1", true},
             "volume=\"v.1\" full=1");
  check_args(__LINE__, MMDB_GET_VOLS_POOL, mmdb_pool_args{"Default", 1, 1, true},
             "pool=\"Default\" flagmask=1 flags=1 full=1");
  check_args(__LINE__, MMDB_GET_VOLS_BARCODE, mmdb_vol_text_args{"B7", false},
             "barcode=\"B7\" full=0");
  check_args(__LINE__, MMDB_GET_VOLS_LOCATION, mmdb_location_args{"shelf", {}, true},
             "location=\"shelf\" range=0..0/0 full=1");
  check_args(__LINE__, MMDB_GET_CLIDMAP, mmdb_clidmap_args{{}, "mars"}, "entry=0/\"mars\"");
  check_args(__LINE__, MMDB_GET_SS_TIMES, mmdb_times_args{times, {}, false},
             "times=[-1,1700000000] attrs=none full=0");
  check_args(__LINE__, MMDB_GET_HISTORY, history_query_t{ids[0], 5, range, group, {}},
             "ssid=7 clone=5 range=1..2/3 attrs={group:\"a\":\"b\";} filter=none");
}

TEST(procedures, numbers_in_use) {
  std::uint32_t last = 0;
  std::size_t count = 0;
  for (const mmdb_proc_t &proc : mmdb_procs()) {
    EXPECT_TRUE(count == 0 || proc.number > last);
    count++;
    last = proc.number;
  }
  EXPECT_EQ(last, 100u);
  EXPECT_EQ(count, 1u + 51 - 4);
  for (std::uint32_t unused : {1u, 49u, 59u, 66u, 67u, 92u, 101u})
    EXPECT_EQ(mmdb_find_proc(unused), nullptr) << unused;
}

TEST(rap, messages_come_back_equal) {
  sampler s(5);
  rap_ids_reply ids;
  ids.rap_mark = -3;
  ids.ids.resize(2);
  ids.ids[1].sequence = 9;
  ids.ids[1].id[31] = 7;
  EXPECT_EQ(again<rap_ids_reply>(encoded(ids)), encoded(ids));
  rap_res_reply resources;
  resources.resources.push_back({{{"name", {"mars"}}, {"type", {"QVR client"}}}, ids.ids[1]});
  resources.resources.push_back({});
  EXPECT_EQ(again<rap_res_reply>(encoded(resources)), encoded(resources));
  resources.status = RAP_DATA_AND_ERROR;
  resources.error = err_from_text(3, 4, "part of it");
  EXPECT_EQ(again<rap_res_reply>(encoded(resources)), encoded(resources));
  resources.status = RAP_ERROR;
  EXPECT_EQ(again<rap_res_reply>(encoded(resources)), encoded(resources));
  std::string bytes = encoded(ids);
  for (std::size_t size = 0; size < bytes.size(); size++)
    EXPECT_EQ(again<rap_ids_reply>(bytes.substr(0, size)), "refused");
  resources.status = RAP_DATA_AND_ERROR;
  bytes = encoded(resources);
  for (std::size_t size = 0; size < bytes.size(); size++)
    EXPECT_EQ(again<rap_res_reply>(bytes.substr(0, size)), "refused");
}

}  // namespace
}  // namespace qvr
