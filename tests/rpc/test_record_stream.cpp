// The record stream in plain: what lies on the wire, and what is read from it.
#include <gtest/gtest.h>

#include "record_fixture.h"

namespace qvr {
namespace {

TEST(record_stream, buffer_sizes_and_types) {
  struct {
    std::uint32_t requested, size;
  } rows[] = {{0, 4000},  {99, 4000},     {100, 100},        {101, 104},
              {104, 104}, {65536, 65536}, {0xffffffff, 4000}};
  for (const auto &row : rows) EXPECT_EQ(xdrrec_buffer_size(row.requested), row.size);
  xdrrec_params params;
  params.send_type = 2;
  EXPECT_EQ(xdrrec2_create(params), nullptr);
  params.send_type = XDRREC_SIMPLE, params.receive_type = 2;
  EXPECT_EQ(xdrrec2_create(params), nullptr);
}

// What one or two records of given sizes become on the wire.
TEST(record_stream, ends_of_records) {
  struct row {
    int line;
    std::uint32_t send_size;
    std::vector<std::size_t> records;  // ended lazily
    bool send_now;                     // of the last one
    std::vector<std::string> writes;
  };
  auto filled = [](std::size_t size) { return std::string(size, 'x'); };
  const std::string full = word(96) + filled(96);  // of a buffer of 100
  const row rows[] = {
      // Stays behind its closed header; the next record shares the write.
      {__LINE__, 0, {5}, false, {}},
      {__LINE__, 0, {5, 8}, true, {record(filled(5)) + record(filled(8))}},
      {__LINE__, 0, {0}, true, {word(0x80000000)}},
      // 4000 / 16 = 250 bytes free are too few, 251 are not.
      {__LINE__, 0, {4000 - 4 - 250}, false, {record(filled(4000 - 4 - 250))}},
      {__LINE__, 0, {4000 - 4 - 251}, false, {}},
      // A buffer that is full to the last byte goes out without the mark; the empty last fragment
      // stays behind and shares the next write.
      {__LINE__, 100, {96}, false, {full}},
      {__LINE__, 100, {96, 4}, true, {full, word(0x80000000) + record(filled(4))}},
      // A fragment that has begun behind a sent one goes out at once.
      {__LINE__, 100, {97}, false, {full, record(filled(1))}},
      {__LINE__, 100, {200}, true, {full, full, record(filled(8))}},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    memory_transport transport;
    auto stream = make_stream(transport, XDRREC_VECTORED, r.send_size);
    for (std::size_t i = 0; i < r.records.size(); i++) {
      ASSERT_TRUE(stream->put_bytes(filled(r.records[i]).data(), r.records[i]));
      ASSERT_TRUE(xdrrec_endofrecord(*stream, r.send_now && i + 1 == r.records.size()));
    }
    EXPECT_EQ(transport.writes, r.writes);
  }
}

TEST(record_stream, large_writes) {
  struct row {
    int line;
    std::uint32_t send_size;
    std::size_t before, size;
    bool single;
    std::vector<std::size_t> headers;  // of the writes, with the mark
  };
  const row rows[] = {
      {__LINE__, 0, 4, 9000, false, {9004, 0x80000000}},
      {__LINE__, 0, 4, 9001, false, {9004, 0x80000001}},
      {__LINE__, 0, 4, 9003, false, {9004, 0x80000003}},
      {__LINE__, 0, 0, 8000, false, {8000, 0x80000000}},
      {__LINE__, 0, 0, 7999, false, {3996, 3996, 0x80000007}},
      {__LINE__, 0, 4, 9001, true, {0x80000000 + 9005}},
      // A buffer with room for it makes no difference.
      {__LINE__, 65536, 4, 8000, false, {8004, 0x80000000}},
      {__LINE__, 65536, 4, 7999, false, {0x80000000 + 8003}},
  };
  for (const row &r : rows) {
    for (std::uint32_t type : {XDRREC_SIMPLE, XDRREC_VECTORED}) {
      SCOPED_TRACE(testing::Message() << r.line << " type " << type);
      memory_transport transport;
      auto stream = make_stream(transport, type, r.send_size);
      xdrrec_set_single_fragment(*stream, r.single);
      std::string head = payload_of(r.before, 7), body = payload_of(r.size);
      ASSERT_TRUE(stream->put_bytes(head.data(), head.size()));
      ASSERT_TRUE(stream->put_bytes(body.data(), body.size()));
      ASSERT_TRUE(stream->endofrecord(true));
      std::string wire = transport.written(), payload;
      std::vector<std::size_t> headers;
      for (std::size_t at = 0; at < wire.size();) {
        std::uint32_t header = XDR::load32(reinterpret_cast<const std::uint8_t *>(&wire[at]));
        headers.push_back(header);
        payload += wire.substr(at + 4, header & 0x7fffffff);
        at += 4 + (header & 0x7fffffff);
      }
      EXPECT_EQ(headers, r.headers);
      EXPECT_EQ(payload, head + body);
      EXPECT_TRUE(type == XDRREC_SIMPLE || transport.writes.size() == r.headers.size());
    }
  }
}

// Every way to cut the same records into fragments and reads gives the same content.
TEST(record_stream, any_fragments_and_any_reads) {
  const std::string payload = payload_of(3 * 4096);
  for (std::uint32_t type : {XDRREC_SIMPLE, XDRREC_VECTORED}) {
    for (std::size_t fragment :
         std::initializer_list<std::size_t>{1, 3, 4, 7, 200, 201, 4096, 20000}) {
      for (std::vector<std::size_t> pieces :
           {std::vector<std::size_t>{1}, {3}, {4, 1}, {5, 64}, {997}, {SIZE_MAX}}) {
        for (std::uint32_t receive : {100u, 4000u, 65536u}) {
          SCOPED_TRACE(testing::Message() << type << " fragment " << fragment << " piece "
                                          << pieces.front() << " buffer " << receive);
          memory_transport transport;
          transport.pieces = pieces;
          transport.incoming = record(payload, fragment) + record(payload, fragment);
          auto stream = make_stream(transport, type, 0, receive);
          for (int i = 0; i < 2; i++) {
            ASSERT_TRUE(xdrrec_skiprecord(*stream, true));
            std::string got(payload.size() - 12, '\0');
            std::uint32_t first = 0;
            std::uint64_t second = 0;
            ASSERT_TRUE(stream->get_u32(first) && stream->get_u64(second));
            xdr_memory_writer again;
            again.put_u32(first);
            again.put_u64(second);
            ASSERT_TRUE(stream->get_bytes(got.data(), 1000));
            ASSERT_TRUE(stream->get_bytes(got.data() + 1000, got.size() - 1000));
            EXPECT_EQ(again.bytes() + got, payload);
            EXPECT_FALSE(stream->get_u32(first)) << "a record ends where it ends";
          }
        }
      }
    }
  }
}

TEST(record_stream, skipping) {
  struct row {
    int line;
    std::string wire;
    std::size_t read_first;  // words taken from the first record
    bool good;
    std::uint64_t skipped;
  };
  const std::string next = record(word(42));
  const row rows[] = {
      {__LINE__, record(payload_of(400), 100) + next, 1, true, 396},
      {__LINE__, record(payload_of(4)) + next, 1, true, 0},
      {__LINE__, record(payload_of(4)) + next, 0, true, 4},
      // The last mark may stand on an empty fragment.
      {__LINE__, word(4) + word(1) + word(0) + word(0) + word(0x80000000) + next, 1, true, 0},
      // A record that is no multiple of 4 long puts the stream out of step.
      {__LINE__, record(payload_of(6)) + next, 1, false, 2},
      {__LINE__, record(payload_of(400), 100).substr(0, 300), 1, false, 0},
  };
  for (const row &r : rows) {
    for (bool wait : {true, false}) {
      for (std::size_t piece : {std::size_t{1}, std::size_t{50}, SIZE_MAX}) {
        SCOPED_TRACE(testing::Message() << r.line << " wait " << wait << " piece " << piece);
        memory_transport transport;
        transport.pieces = {piece};
        transport.incoming = r.wire;
        auto stream = make_stream(transport, XDRREC_VECTORED, 0, 100);
        std::uint32_t value = 0;
        EXPECT_FALSE(stream->get_u32(value)) << "a record begins with a skip";
        ASSERT_TRUE(stream->skiprecord(true));
        for (std::size_t i = 0; i < r.read_first; i++) ASSERT_TRUE(stream->get_u32(value));
        ASSERT_TRUE(r.read_first != 0 || stream->inline_get(0) != nullptr);
        ASSERT_EQ(stream->skiprecord(wait), r.good);
        if (!r.good) continue;
        EXPECT_EQ(stream->skipped(), r.skipped);
        ASSERT_TRUE(stream->get_u32(value));
        EXPECT_EQ(value, 42u);
      }
    }
  }
  // Without waiting no byte too many is read.
  memory_transport transport;
  transport.incoming = record(payload_of(400)) + next;
  transport.pieces = {8, SIZE_MAX};
  auto stream = make_stream(transport, XDRREC_VECTORED, 0, 100);
  std::uint32_t value;
  ASSERT_TRUE(stream->skiprecord(true) && stream->get_u32(value) && stream->skiprecord(false));
  EXPECT_EQ(transport.at, 404u);
}

TEST(record_stream, a_large_payload_goes_straight_to_the_caller) {
  memory_transport transport;
  std::string payload = payload_of(100000), got(payload.size(), '\0');
  transport.incoming = record(payload);
  transport.pieces = {4, SIZE_MAX};
  auto stream = make_stream(transport, XDRREC_VECTORED, 0, 4000);
  ASSERT_TRUE(stream->skiprecord(true) && stream->get_bytes(got.data(), got.size()));
  EXPECT_EQ(got, payload);
  EXPECT_EQ(transport.reads.size(), 2u) << "the header, and all of the rest";
}

TEST(record_stream, fragment_limit) {
  struct row {
    int line;
    std::uint32_t limit;
    std::string wire;
    bool callback, good;
    std::uint64_t told;
  };
  const std::uint32_t usual = XDRREC_FRAGMAX_DEFAULT;
  const row rows[] = {
      {__LINE__, 8, record(payload_of(8)), true, true, 0},
      {__LINE__, 8, record(payload_of(12)), true, false, 12},
      {__LINE__, 8, record(payload_of(12)), false, true, 0},
      {__LINE__, 0, record(payload_of(12)), true, true, 0},
      // Bit 30 is a length like any other here.
      {__LINE__, usual, word(0x40000000) + payload_of(12), true, false, 0x40000000},
      {__LINE__, usual, word(0xffffffff) + payload_of(12), true, false, 0x7fffffff},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    memory_transport transport;
    transport.incoming = r.wire;
    auto stream = make_stream(transport);
    std::uint64_t told = 0;
    xdrrec_fragmax_callback note = [](void *to, std::uint64_t length) {
      *static_cast<std::uint64_t *>(to) = length;
    };
    xdrrec_set_fragmax(*stream, r.limit, r.callback ? note : nullptr, &told);
    ASSERT_TRUE(stream->skiprecord(true));
    std::uint32_t value;
    EXPECT_EQ(stream->get_u32(value), r.good);
    EXPECT_EQ(told, r.told);
  }
}

TEST(record_stream, positions_while_encoding) {
  memory_transport transport;
  auto stream = make_stream(transport, XDRREC_VECTORED, 100);
  ASSERT_TRUE(stream->put_u32(1) && stream->put_u32(2));
  std::uint32_t here = stream->get_position(xdr_op::encode);
  EXPECT_EQ(here, 12u);
  ASSERT_TRUE(stream->put_u32(3));
  EXPECT_FALSE(stream->set_position(xdr_op::encode, 3)) << "that is the header";
  EXPECT_FALSE(stream->set_position(xdr_op::encode, 101));
  ASSERT_TRUE(stream->set_position(xdr_op::encode, here - 4));
  ASSERT_TRUE(stream->put_u32(9) && stream->endofrecord(true));
  EXPECT_EQ(transport.written(), record(word(1) + word(9)));
  EXPECT_FALSE(stream->set_position(xdr_op::encode, here)) << "a flush lies between";
}

TEST(record_stream, positions_and_inline_while_decoding) {
  memory_transport transport;
  transport.incoming = record(payload_of(64), 32) + record(payload_of(8));
  auto stream = make_stream(transport, XDRREC_VECTORED, 0, 200);
  ASSERT_TRUE(stream->skiprecord(true));
  const std::uint8_t *at = stream->inline_get(8);
  ASSERT_NE(at, nullptr);
  EXPECT_EQ(std::memcmp(at, transport.incoming.data() + 4, 8), 0);
  EXPECT_EQ(stream->inline_get(32), nullptr) << "the fragment holds 24 more bytes";
  std::uint32_t here = stream->get_position(xdr_op::decode), first = 0, again = 0;
  ASSERT_TRUE(stream->get_u32(first) && stream->set_position(xdr_op::decode, here));
  ASSERT_TRUE(stream->get_u32(again));
  EXPECT_EQ(first, again);
  EXPECT_FALSE(stream->set_position(xdr_op::decode, here + 25)) << "beyond the fragment";
  std::uint8_t bytes[19];
  ASSERT_TRUE(stream->get_bytes(bytes, 1));
  EXPECT_EQ(stream->inline_get(4), nullptr) << "out of phase";
  ASSERT_TRUE(stream->get_bytes(bytes, sizeof bytes));
  EXPECT_NE(stream->inline_get(32), nullptr) << "reads the next header by itself";
  EXPECT_FALSE(stream->set_position(xdr_op::decode, here)) << "a header lies between";
  EXPECT_EQ(stream->inline_get(4), nullptr) << "the record is over";
}

TEST(record_stream, the_counter_of_the_caller_sees_each_byte) {
  memory_transport transport;
  transport.incoming = record(payload_of(1000));
  auto stream = make_stream(transport);
  std::uint64_t count = 0;
  std::uint32_t value;
  std::string bytes(9001, '\0');
  ASSERT_TRUE(stream->skiprecord(true));
  ASSERT_TRUE(stream->control(XDRREC_SET_POS_COUNTER, &count));
  ASSERT_TRUE(stream->get_u32(value));
  EXPECT_EQ(count, 4u);
  ASSERT_TRUE(stream->put_u64(1));
  EXPECT_EQ(count, 12u);
  ASSERT_NE(stream->inline_put(4), nullptr);
  EXPECT_EQ(stream->inline_put(4000), nullptr);
  EXPECT_EQ(count, 16u);
  ASSERT_TRUE(stream->get_bytes(bytes.data(), 300));
  EXPECT_EQ(count, 316u);
  ASSERT_TRUE(stream->put_bytes(bytes.data(), bytes.size()));
  EXPECT_EQ(count, 9317u);
  ASSERT_NE(stream->inline_get(4), nullptr);
  EXPECT_EQ(count, 9321u);
  ASSERT_TRUE(stream->control(XDRREC_SET_POS_COUNTER, nullptr));
  ASSERT_TRUE(stream->get_u32(value));
  EXPECT_EQ(count, 9321u);
}

TEST(record_stream, control_numbers_and_the_single_fragment) {
  memory_transport transport;
  auto stream = make_stream(transport, XDRREC_VECTORED, 100);
  std::uint32_t state = 7;
  EXPECT_TRUE(xdrrec_control(*stream, XDRREC_CRYPT_STATE, &state));
  EXPECT_EQ(state, 0u);
  EXPECT_FALSE(xdrrec_control(*stream, XDRREC_CRYPT_OFF, nullptr)) << "a plain stream";
  for (unsigned command : {XDRREC_CRYPT_ON, XDRREC_CRYPT_STATE, XDRREC_SEND_RAW, XDRREC_RECV_RAW})
    EXPECT_FALSE(xdrrec_control(*stream, command, nullptr)) << command;
  EXPECT_FALSE(xdrrec_control(*stream, 7, nullptr));
  ASSERT_TRUE(stream->put_u32(5));
  EXPECT_TRUE(xdrrec_control(*stream, XDRREC_FLUSH, nullptr));
  EXPECT_EQ(transport.written(), word(4) + word(5));
  xdr_memory_reader other("");
  EXPECT_FALSE(xdrrec_control(other, XDRREC_CRYPT_STATE, &state));
  EXPECT_FALSE(xdrrec_skiprecord(other, true) || xdrrec_endofrecord(other, true));
  xdrrec_set_fragmax(other, 8, nullptr, nullptr);
  xdrrec_set_single_fragment(other, true);
  stream->set_single_fragment(true);
  EXPECT_TRUE(stream->endofrecord(false)) << "nothing buffered is nothing to send";
  EXPECT_EQ(transport.writes.size(), 1u);
  EXPECT_FALSE(stream->put_bytes(std::string(97, 'x').data(), 97));
  EXPECT_FALSE(stream->control(XDRREC_FLUSH, nullptr));
}

}  // namespace
}  // namespace qvr
