// Attribute lists on the wire.
#include <gtest/gtest.h>

#include <string>

#include "raw_rpc.h"
#include "record_fixture.h"
#include "short_writer.h"
#include "xdr_shared.h"

namespace qvr {
namespace {

std::string text(std::string_view value) {
  return test::raw_out().text(value).bytes;
}

bool decodes(std::string_view bytes, attrlist &list) {
  xdr_memory_reader reader(bytes);
  return xdr_get_attrlist(reader, list) && reader.remaining() == 0;
}

TEST(xdr_attrlist, bytes_of_each_shape) {
  struct {
    int line;
    attrlist list;
    std::string bytes;
  } rows[] = {
      {__LINE__, {}, text("") + word(0) + word(0)},
      {__LINE__, {{"a", {}}}, text("a") + word(0) + word(0)},
      {__LINE__, {{"a", {"x"}}}, text("a") + word(1) + text("x") + word(0) + word(0)},
      {__LINE__,
       {{"a", {"x", "", "yyyyy"}}, {"b", {}}},
       text("a") + word(1) + text("x") + word(1) + text("") + word(1) + text("yyyyy") + word(0) +
           word(1) + text("b") + word(0) + word(0)},
      {__LINE__,
       {{std::string(64, 'n'), {"v"}}},
       text(std::string(64, 'n')) + word(1) + text("v") + word(0) + word(0)},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    xdr_memory_writer writer;
    ASSERT_TRUE(xdr_put_attrlist(writer, row.list));
    EXPECT_EQ(writer.bytes(), row.bytes);
    attrlist list = {{"old", {"value"}}};
    EXPECT_TRUE(decodes(row.bytes, list));
    EXPECT_EQ(list, row.list);
    // Every truncation fails, and none takes memory for what did not come.
    for (std::size_t size = 0; size < row.bytes.size(); size++) {
      EXPECT_FALSE(decodes(std::string_view(row.bytes).substr(0, size), list)) << size;
    }
    // The optional form is one word more; an empty list is absent.
    xdr_memory_writer optional;
    ASSERT_TRUE(xdr_put_optional_attrlist(optional, row.list));
    EXPECT_EQ(optional.bytes(), row.list.empty() ? word(0) : word(1) + row.bytes);
    xdr_memory_reader reader(optional.bytes());
    EXPECT_TRUE(xdr_get_optional_attrlist(reader, list));
    EXPECT_EQ(list, row.list);
    EXPECT_TRUE(tells_short_streams(optional.bytes().size(), [&](XDR &full) {
      return xdr_put_optional_attrlist(full, row.list);
    }));
  }
}

TEST(xdr_attrlist, what_a_peer_may_send) {
  const std::string end = word(0) + word(0), v = word(1) + text("v");
  struct {
    int line;
    std::string bytes;
    bool good;
    attrlist list;
  } rows[] = {
      {__LINE__, text(std::string(65, 'n')) + end, false, {}},
      {__LINE__, word(0xfffffff0) + end, false, {}},
      {__LINE__, text("a") + word(1) + word(0x7fffffff) + "abcd", false, {}},
      // Any non-zero word is true.
      {__LINE__, text("a") + word(7) + text("v") + end, true, {{"a", {"v"}}}},
      // A text ends at its first NUL.
      {__LINE__, text({"a\0x", 3}) + word(1) + text({"v\0", 2}) + end, true, {{"a", {"v"}}}},
      // Names out of order are put into order; of a name that comes twice the first holds.
      {__LINE__,
       text("b") + word(0) + word(1) + text("A") + word(0) + word(1) + text("a") + v + end,
       true,
       {{"A", {}}, {"b", {}}}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.line);
    attrlist list;
    EXPECT_EQ(decodes(row.bytes, list), row.good);
    EXPECT_TRUE(!row.good || list == row.list);
  }
  xdr_memory_writer writer;
  EXPECT_FALSE(xdr_put_attrlist(writer, {{std::string(65, 'n'), {}}}));

  // A long series needs no stack; nameless attributes stand for no attribute.
  std::string series;
  constexpr int count = 50000;
  for (int i = 0; i < count; i++) series += text("") + word(0) + word(i + 1 < count);
  attrlist list;
  EXPECT_TRUE(decodes(series, list));
  EXPECT_TRUE(list.empty());
}

}  // namespace
}  // namespace qvr
