// The encrypted mode of the record stream, and control messages, with a cipher that shows through.
#include <gtest/gtest.h>

#include "record_fixture.h"

namespace qvr {
namespace {

struct crypt_stream {
  memory_transport transport;
  test_cipher cipher;
  std::unique_ptr<xdr_record_stream> stream;

  explicit crypt_stream(std::string incoming = {}, std::uint32_t send_size = 0) {
    transport.incoming = std::move(incoming);
    stream = make_stream(transport, XDRREC_VECTORED, send_size);
    cipher.stream = stream.get();
  }
  bool turn_on() {
    xdrrec_crypt_ops ops = cipher.ops();
    std::uint32_t state = 0;
    return xdrrec_control(*stream, XDRREC_CRYPT_ON, &ops) &&
           xdrrec_control(*stream, XDRREC_CRYPT_STATE, &state) && state == 1;
  }
};

TEST(record_crypt, incomplete_tables_are_refused) {
  using spoiler = void (*)(xdrrec_crypt_ops & ops);
  for (spoiler spoil : {spoiler([](xdrrec_crypt_ops &o) { o.context = nullptr; }),
                        spoiler([](xdrrec_crypt_ops &o) { o.encrypt = nullptr; }),
                        spoiler([](xdrrec_crypt_ops &o) { o.decrypt = nullptr; }),
                        spoiler([](xdrrec_crypt_ops &o) { o.release = nullptr; })}) {
    crypt_stream s;
    xdrrec_crypt_ops ops = s.cipher.ops();
    spoil(ops);
    EXPECT_FALSE(xdrrec_control(*s.stream, XDRREC_CRYPT_ON, &ops));
    EXPECT_FALSE(s.stream->encrypted());
  }
  crypt_stream s;
  xdrrec_crypt_ops ops = s.cipher.ops();
  ops.needs_refresh = nullptr;
  ops.refresh = nullptr;
  ops.reauth = nullptr;
  EXPECT_TRUE(s.stream->crypt_on(ops));
  EXPECT_FALSE(s.stream->crypt_on(ops)) << "twice";
}

TEST(record_crypt, what_goes_out) {
  crypt_stream s;
  ASSERT_TRUE(s.turn_on());
  ASSERT_TRUE(s.stream->put_u32(1));
  ASSERT_TRUE(s.stream->endofrecord(false));
  EXPECT_TRUE(s.transport.writes.empty());
  ASSERT_TRUE(s.stream->put_u32(2));
  ASSERT_TRUE(s.stream->endofrecord(true));
  std::string wire = test_cipher::fragment(word(1), true) + test_cipher::fragment(word(2), true);
  EXPECT_EQ(s.transport.written(), wire) << "one ciphertext a fragment, header in clear";
  EXPECT_EQ(s.transport.writes.size(), 2u) << "header and ciphertext in one write";

  s.transport.writes.clear();
  std::string body = payload_of(9001);
  ASSERT_TRUE(s.stream->put_u32(3));
  ASSERT_TRUE(s.stream->put_bytes(body.data(), body.size()));
  ASSERT_TRUE(s.stream->endofrecord(true));
  wire = test_cipher::fragment(word(3), false) +
         test_cipher::fragment(body.substr(0, 9000), false) +
         test_cipher::fragment(body.substr(9000), true);
  EXPECT_EQ(s.transport.written(), wire);

  s.transport.writes.clear();
  ASSERT_TRUE(s.stream->endofrecord(true));
  EXPECT_EQ(s.transport.written(), word(0x80000000)) << "nothing is not enciphered";
  EXPECT_EQ(s.cipher.released, s.cipher.encrypted);

  // A record that waits in the buffer goes out in its own mode, with no empty one behind it.
  crypt_stream t;
  ASSERT_TRUE(t.stream->put_u32(4) && t.stream->endofrecord(false) && t.turn_on());
  ASSERT_TRUE(t.stream->put_u32(5) && t.stream->endofrecord(false));
  ASSERT_TRUE(t.stream->crypt_off(nullptr));
  EXPECT_EQ(t.transport.written(),
            word(0x80000004) + word(4) + test_cipher::fragment(word(5), true));
}

TEST(record_crypt, expiring_keys) {
  struct row {
    int line;
    bool wants;
    int failing;
    bool refresh_fails;
    bool good;
    int refreshed;
  };
  const row rows[] = {
      {__LINE__, false, 0, false, true, 0},  {__LINE__, true, 0, false, true, 1},
      {__LINE__, true, 0, true, false, 1},   {__LINE__, false, 1, false, true, 1},
      {__LINE__, false, 2, false, false, 1}, {__LINE__, false, 1, true, false, 1},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    crypt_stream s;
    ASSERT_TRUE(s.turn_on());
    s.cipher.wants_refresh = r.wants;
    s.cipher.failing_encrypts = r.failing;
    s.cipher.refresh_fails = r.refresh_fails;
    ASSERT_TRUE(s.stream->put_u32(1));
    EXPECT_EQ(s.stream->endofrecord(true), r.good);
    EXPECT_EQ(s.cipher.refreshed, r.refreshed);
    EXPECT_EQ(s.transport.written().empty(), !r.good) << "no plain byte escapes";
  }
}

TEST(record_crypt, any_fragments_and_any_reads) {
  const std::string payload = payload_of(1200);
  for (std::size_t fragment : std::initializer_list<std::size_t>{1, 4, 7, 36, 399, 400, 1200}) {
    for (std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{500}, SIZE_MAX}) {
      SCOPED_TRACE(testing::Message() << fragment << " piece " << piece);
      std::string wire;
      bool odd = fragment % 4 != 0;  // these end with the last bytes, the others with nothing
      for (std::size_t at = 0; at < payload.size(); at += fragment) {
        wire += test_cipher::fragment(payload.substr(at, fragment),
                                      odd && at + fragment >= payload.size());
      }
      if (!odd) wire += word(0x80000000);
      crypt_stream s(wire + test_cipher::fragment(word(42), true));
      s.transport.pieces = {piece};
      ASSERT_TRUE(s.turn_on());
      ASSERT_TRUE(s.stream->skiprecord(true));
      std::string got(payload.size(), '\0');
      ASSERT_TRUE(s.stream->get_bytes(got.data(), got.size()));
      EXPECT_EQ(got, payload);
      ASSERT_TRUE(s.stream->skiprecord(true));
      std::uint32_t value = 0;
      ASSERT_TRUE(s.stream->get_u32(value));
      EXPECT_EQ(value, 42u);
      EXPECT_TRUE(s.stream->crypt_off(nullptr));
      EXPECT_EQ(s.cipher.released, s.cipher.decrypted);
    }
  }
}

// The peer's first ciphertext may lie behind its last plain record in one read, and the other way.
TEST(record_crypt, bytes_behind_the_last_record_belong_to_the_new_mode) {
  crypt_stream s(record(word(1) + word(2)) + test_cipher::fragment(word(3), true) +
                 test_cipher::fragment(word(4), true) + record(word(5)));
  std::uint32_t value;
  ASSERT_TRUE(s.stream->skiprecord(true) && s.stream->get_u32(value));
  ASSERT_TRUE(s.stream->put_u32(9));
  ASSERT_TRUE(s.turn_on());
  EXPECT_EQ(s.transport.written(), record(word(9))) << "what was begun in plain is ended in plain";
  for (std::uint32_t wanted : {3u, 4u, 5u}) {
    xdrrec_crypt_ops table;
    if (wanted == 5) {
      ASSERT_TRUE(xdrrec_control(*s.stream, XDRREC_CRYPT_OFF, &table));
      EXPECT_EQ(table.context, &s.cipher);
    }
    ASSERT_TRUE(s.stream->skiprecord(true) && s.stream->get_u32(value));
    EXPECT_EQ(value, wanted);
  }
}

// Every truncation, and damage that the cipher sees.
TEST(record_crypt, damage_fails_the_read) {
  const std::string payload = payload_of(300);
  const std::string plain = record(payload, 64), secret = test_cipher::fragment(payload, true);
  std::string wrong = secret;
  wrong[7] = static_cast<char>(wrong[7] + 1);
  for (bool encrypted : {false, true}) {
    const std::string &whole = encrypted ? secret : plain;
    for (std::size_t cut = 0; cut <= whole.size(); cut++) {
      SCOPED_TRACE(testing::Message() << cut << " encrypted " << encrypted);
      crypt_stream s(cut < whole.size() ? whole.substr(0, cut) : encrypted ? wrong : "");
      ASSERT_TRUE(!encrypted || s.turn_on());
      std::string got(payload.size(), '\0');
      EXPECT_FALSE(s.stream->skiprecord(true) && s.stream->get_bytes(got.data(), got.size()));
    }
  }
}

TEST(record_crypt, a_control_header_asks_for_reauthentication) {
  struct row {
    int line;
    bool fails, turns_off;
    std::string behind;
    bool good;
  };
  const row rows[] = {
      {__LINE__, false, false, test_cipher::fragment(word(42), true), true},
      {__LINE__, false, true, record(word(42)), true},
      {__LINE__, true, false, test_cipher::fragment(word(42), true), false},
      // A second control header has no meaning: it is a length beyond the limit.
      {__LINE__, false, false, word(0x40000000) + word(0), false},
  };
  for (const row &r : rows) {
    SCOPED_TRACE(r.line);
    crypt_stream s(word(0x40000000) + word(0) + r.behind);
    s.stream->set_fragmax(
        XDRREC_FRAGMAX_DEFAULT, [](void *, std::uint64_t) {}, nullptr);
    s.cipher.reauth_fails = r.fails;
    s.cipher.reauth_turns_off = r.turns_off;
    ASSERT_TRUE(s.turn_on());
    ASSERT_TRUE(s.stream->skiprecord(true));
    std::uint32_t value = 0;
    EXPECT_EQ(s.stream->get_u32(value), r.good);
    EXPECT_EQ(value, r.good ? 42u : 0u);
    EXPECT_EQ(s.cipher.reauths, 1);
    EXPECT_EQ(s.stream->encrypted(), !r.turns_off);
  }
}

// A peer that takes no more ends the operation that needs it, whichever write fails.
TEST(record_crypt, writes_that_fail_are_told) {
  const std::string almost = payload_of(94), large = payload_of(9001);
  int left;  // writes, before one fails
  auto count = [](void *handle, std::size_t size) {
    return (*static_cast<int *>(handle))-- > 0 ? static_cast<std::int64_t>(size) : -1;
  };
  static const auto take = +count;
  for (bool simple : {false, true}) {
    for (bool encrypted : {false, true}) {
      int writes = 1000;
      for (int takes = writes; takes > -1; takes = std::min(takes, writes) - 1) {
        SCOPED_TRACE(testing::Message() << simple << encrypted << " takes " << takes);
        left = takes;
        auto stream =
            simple ? xdrrec2_create_simple(
                         &left, 100, 100,
                         [](void *, std::uint8_t *, std::size_t) { return std::int64_t{-1}; },
                         [](void *h, const std::uint8_t *, std::size_t s) { return take(h, s); })
                   : xdrrec2_create_vectored(
                         &left, 100, 100,
                         [](void *, std::uint8_t *, std::size_t, std::uint8_t *, std::size_t) {
                           return std::int64_t{-1};
                         },
                         [](void *h, const std::uint8_t *, std::size_t s1, const std::uint8_t *,
                            std::size_t s2) { return take(h, s1 + s2); });
        test_cipher cipher;
        ASSERT_TRUE(!encrypted || stream->crypt_on(cipher.ops()));
        std::uint8_t bytes[] = {1, 2, 3};
        xdrrec_raw_t raw[3];
        raw[0].data = bytes, raw[0].size = 3;
        raw[1].data = bytes, raw[1].size = 1;
        bool done = stream->put_bytes(almost.data(), almost.size()) && stream->put_u32(1) &&
                    stream->endofrecord(false) && stream->put_u64(1) && stream->endofrecord(true) &&
                    stream->put_bytes(large.data(), large.size()) && stream->endofrecord(true) &&
                    stream->send_raw(raw) && stream->put_u32(1) && stream->flush();
        EXPECT_EQ(done, takes == 1000);
        if (takes == 1000) writes -= left;
      }
    }
  }
}

TEST(record_raw, sending) {
  crypt_stream s;
  ASSERT_TRUE(s.turn_on());
  std::uint8_t a[] = {1, 2, 3}, b[] = {4}, c[] = {5, 6};
  xdrrec_raw_t entries[4];
  entries[0].data = a, entries[0].size = 3;
  entries[1].data = b, entries[1].size = 1;
  entries[2].data = c, entries[2].size = 2;
  ASSERT_TRUE(xdrrec_control(*s.stream, XDRREC_SEND_RAW, entries));
  std::vector<std::string> writes = {word(0x40000000) + word(6), "\1\2\3\4", "\5\6"};
  EXPECT_EQ(s.transport.writes, writes) << "in clear, two buffers at a time";
}

TEST(record_raw, receiving) {
  struct row {
    int line;
    std::string wire;
    std::vector<std::uint32_t> sizes;
    bool good;
    std::string got;
  };
  const std::string head = word(0x40000000);
  const row rows[] = {
      {__LINE__, head + word(0), {}, true, ""},
      {__LINE__, head + word(5) + "abcde", {2, 3}, true, "abcde"},
      {__LINE__, head + word(5) + "abcde", {2}, true, "ab"},
      {__LINE__, head + word(5) + "abcde", {2, XDRREC_RAW_REST}, true, "abcde"},
      {__LINE__, head + word(0), {XDRREC_RAW_REST}, true, ""},
      {__LINE__, head + word(5) + "abcde", {6}, false, ""},
      {__LINE__, head + word(5) + "abcde", {XDRREC_RAW_REST, 2}, false, ""},
      {__LINE__, word(0x80000000) + word(5) + "abcde", {5}, false, ""},
      {__LINE__, head + word(0xfffffff0) + "abcde", {XDRREC_RAW_REST}, false, ""},
      {__LINE__, head + word(5) + "abcd", {5}, false, ""},
  };
  for (const row &r : rows) {
    for (bool encrypted : {false, true}) {
      SCOPED_TRACE(testing::Message() << r.line << " encrypted " << encrypted);
      crypt_stream s(r.wire);
      ASSERT_TRUE(!encrypted || s.turn_on());
      std::vector<xdrrec_raw_t> entries(r.sizes.size() + 1);
      std::uint8_t memory[64];
      for (std::size_t i = 0; i < r.sizes.size(); i++) {
        entries[i].size = r.sizes[i];
        entries[i].data = memory + 8 * i;
      }
      ASSERT_EQ(xdrrec_control(*s.stream, XDRREC_RECV_RAW, entries.data()), r.good);
      if (!r.good) continue;
      std::string got;
      for (std::size_t i = 0; i < r.sizes.size(); i++) {
        if (entries[i].size != 0) {
          got.append(reinterpret_cast<const char *>(entries[i].data), entries[i].size);
        }
      }
      EXPECT_EQ(got, r.got);
    }
  }
}

}  // namespace
}  // namespace qvr
