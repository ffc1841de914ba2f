#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "ks_clock.h"
#include "ks_errors.h"
#include "ks_list.h"

namespace qvr {
namespace {

std::int64_t clock_now = 1000;
std::int64_t test_clock() {
  return clock_now;
}

std::vector<std::string> freed;
void free_text(void *value) {
  freed.push_back(static_cast<char *>(value));
}
void free_key(void *key) {
  freed.push_back(std::string("key ") + static_cast<char *>(key));
}
void *copy_text(const void *value) {
  return std::strcmp(static_cast<const char *>(value), "uncopied") == 0
             ? nullptr
             : const_cast<char *>(static_cast<const char *>(value)) + 1;
}
int compare_text(const void *a, const void *b) {
  return std::strcmp(static_cast<const char *>(a), static_cast<const char *>(b));
}

void *text(const char *value) {
  return const_cast<char *>(value);
}

class kslist_test : public testing::Test {
 protected:
  void SetUp() override {
    clock_now = 1000;
    freed.clear();
    ks_set_clock(test_clock);
  }
  void TearDown() override { ks_set_clock(nullptr); }

  static ks_list_ptr make(std::uint32_t option = 0, bool keyed = true) {
    return ks_list_ptr(ks_list_create(
        {free_text, copy_text, keyed ? compare_text : nullptr, keyed ? free_key : nullptr},
        option));
  }
  // The values in order, without blanks: "abc".
  static std::string order(KSList *list) {
    std::string all;
    ks_list_each(
        list,
        [](void *value, void *out) {
          *static_cast<std::string *>(out) += static_cast<char *>(value);
        },
        &all);
    return all;
  }
};

TEST_F(kslist_test, insertion_places_an_entry_at_its_position) {
  struct row_t {
    int line;
    std::uint32_t position;
    const char *order;
  } rows[] = {
      {__LINE__, 0, "xabc"}, {__LINE__, 1, "xabc"}, {__LINE__, 2, "axbc"},
      {__LINE__, 3, "abxc"}, {__LINE__, 4, "abcx"}, {__LINE__, 900, "abcx"},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    ks_list_ptr list = make();
    for (const char *value : {"b", "c"}) ASSERT_EQ(KS_OK, ks_list_append(list.get(), text(value)));
    ASSERT_EQ(KS_OK, ks_list_prepend(list.get(), text("a")));
    ASSERT_EQ(KS_OK, ks_list_insert(list.get(), row.position, text("x"), text("k")));
    EXPECT_EQ(row.order, order(list.get()));
    EXPECT_EQ(4u, ks_list_count(list.get()));
    EXPECT_EQ(std::string(row.order).find('x') + 1, ks_list_position(list.get(), "k"));
  }
}

TEST_F(kslist_test, expiry) {
  struct row_t {
    int line;
    std::int64_t ttl;
    std::int64_t later;
    int append_again;  // of the same key, with a time to live of 5
    int find;          // before that
  } rows[] = {
      {__LINE__, 10, 9, KS_EEXIST, KS_OK},
      {__LINE__, 10, 10, KS_OK, KS_ETIME},
      {__LINE__, 10, 11, KS_OK, KS_ETIME},
      {__LINE__, KS_LIST_NEVER, 1000000, KS_EEXIST, KS_OK},
      {__LINE__, KS_LIST_NEVER - 1, 1000000, KS_EEXIST, KS_OK},  // beyond the range: never
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    clock_now = 1000;
    ks_list_ptr list = make();
    ASSERT_EQ(KS_OK, ks_list_append(list.get(), text("v"), text("k"), row.ttl));
    clock_now += row.later;
    EXPECT_EQ(row.append_again, ks_list_append(list.get(), text("w"), text("k"), 5));
    EXPECT_EQ(1u, ks_list_count(list.get()));

    ks_list_ptr other = make();
    clock_now = 1000;
    ASSERT_EQ(KS_OK, ks_list_append(other.get(), text("v"), text("k"), row.ttl));
    clock_now += row.later;
    void *found = text("?");
    EXPECT_EQ(row.find, ks_list_find(other.get(), "k", &found));
    EXPECT_STREQ(row.find == KS_OK ? "v" : nullptr, static_cast<char *>(found));
    // What expired is gone with the find.
    EXPECT_EQ(row.find == KS_OK ? 1u : 0u, ks_list_count(other.get()));
    if (row.find != KS_OK) {
      EXPECT_EQ(KS_ENOENT, ks_list_find(other.get(), "k", &found));
    }
  }
  // Entries that never expire may share a key.
  ks_list_ptr list = make();
  EXPECT_EQ(KS_OK, ks_list_append(list.get(), text("a"), text("k")));
  EXPECT_EQ(KS_OK, ks_list_append(list.get(), text("b"), text("k")));
}

TEST_F(kslist_test, who_gets_a_removed_value) {
  struct row_t {
    int line;
    std::uint32_t option;
    bool wants_value;
    std::vector<std::string> freed;
    const char *value;
  } rows[] = {
      {__LINE__, 0, true, {"key k"}, "v"},
      {__LINE__, 0, false, {"key k", "v"}, nullptr},
      {__LINE__, KS_LIST_OWNS, true, {"key k", "v"}, nullptr},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    for (bool by_key : {true, false}) {
      freed.clear();
      ks_list_ptr list = make(row.option);
      ASSERT_EQ(KS_OK, ks_list_append(list.get(), text("v"), text("k")));
      void *value = text("?");
      void **out = row.wants_value ? &value : nullptr;
      EXPECT_EQ(KS_OK, by_key ? ks_list_remove(list.get(), "k", out)
                              : ks_list_remove_at(list.get(), 1, out));
      if (row.wants_value) {
        EXPECT_STREQ(row.value, static_cast<char *>(value));
      }
      EXPECT_EQ(row.freed, freed);
    }
  }
  // The end of the list frees what is left.
  freed.clear();
  ks_list_ptr list = make();
  ks_list_append(list.get(), text("v"), text("k"));
  list.reset();
  EXPECT_EQ((std::vector<std::string>{"key k", "v"}), freed);
}

TEST_F(kslist_test, replacement) {
  ks_list_ptr list = make();
  void *old_key = text("?"), *old_value = text("?");
  char first[] = "k", second[] = "k", third[] = "k";
  EXPECT_EQ(KS_OK, ks_list_replace(list.get(), first, text("a"), 10, &old_key, &old_value));
  EXPECT_EQ(nullptr, old_key);
  EXPECT_EQ(nullptr, old_value);
  EXPECT_EQ(KS_OK, ks_list_replace(list.get(), second, text("b"), 10, &old_key, &old_value));
  EXPECT_EQ(first, old_key);
  EXPECT_STREQ("a", static_cast<char *>(old_value));
  EXPECT_EQ(KS_OK, ks_list_find_pin(list.get(), "k", nullptr));
  EXPECT_EQ(KS_EBUSY, ks_list_replace(list.get(), third, text("c"), 10, nullptr, nullptr));
  EXPECT_EQ(KS_OK, ks_list_find_unpin(list.get(), "k", nullptr));
  EXPECT_TRUE(freed.empty());
  EXPECT_EQ(KS_OK, ks_list_replace(list.get(), third, text("c"), 10, nullptr, nullptr));
  EXPECT_EQ((std::vector<std::string>{"key k", "b"}), freed);
  EXPECT_EQ("c", order(list.get()));
}

TEST_F(kslist_test, pins_keep_an_entry_from_guarded_removal) {
  ks_list_ptr list = make();
  ks_list_append(list.get(), text("v"), text("k"));
  void *value;
  EXPECT_EQ(KS_OK, ks_list_find_unpin(list.get(), "k", nullptr));  // never below 0
  EXPECT_EQ(KS_OK, ks_list_find_pin(list.get(), "k", &value));
  EXPECT_EQ(KS_OK, ks_list_find_pin(list.get(), "k", &value));
  EXPECT_EQ(KS_EBUSY, ks_list_remove_guarded(list.get(), "k", &value));
  EXPECT_EQ(nullptr, value);
  ks_list_find_unpin(list.get(), "k", nullptr);
  EXPECT_EQ(KS_EBUSY, ks_list_remove_at_guarded(list.get(), 1, &value));
  ks_list_find_unpin(list.get(), "k", nullptr);
  EXPECT_EQ(KS_OK, ks_list_remove_guarded(list.get(), "k", &value));
  EXPECT_STREQ("v", static_cast<char *>(value));
}

TEST_F(kslist_test, found_copies_and_null_arguments) {
  ks_list_ptr list = make();
  ks_list_append(list.get(), text("xvalue"), text("k"));
  ks_list_append(list.get(), text("uncopied"), text("u"));
  void *value;
  EXPECT_EQ(KS_OK, ks_list_find_copy(list.get(), "k", &value));
  EXPECT_STREQ("value", static_cast<char *>(value));
  EXPECT_EQ(KS_ENOMEM, ks_list_find_copy(list.get(), "u", &value));
  EXPECT_EQ(nullptr, value);

  EXPECT_EQ(KS_NULL_ARGUMENT, ks_list_append(list.get(), nullptr));
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_list_append(nullptr, text("v")));
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_list_find(list.get(), nullptr, &value));
  EXPECT_EQ(EINVAL, ks_last_error_value());
  EXPECT_EQ(KS_ENOENT, ks_list_remove_at(list.get(), 3, &value));
  EXPECT_EQ(0u, ks_list_position(list.get(), "nobody"));
  ks_list_ptr unkeyed = make(0, false);
  ks_list_append(unkeyed.get(), text("v"), text("k"));
  EXPECT_EQ(KS_ENOENT, ks_list_find(unkeyed.get(), "k", &value));
}

// Each row walks the list "abcde" by the letters: f first, l last, n next, p previous, c current,
// 1 to 5 a plain removal of that position. The answers: the value read, "-" for the end with 49.
TEST_F(kslist_test, iterator_walks) {
  struct row_t {
    int line;
    const char *walk;
    const char *seen;
  } rows[] = {
      {__LINE__, "fnnnnnn", "abcde--"},
      {__LINE__, "lpppppp", "edcba--"},
      {__LINE__, "nnpc", "abaa"},
      {__LINE__, "p", "e"},
      {__LINE__, "c", "-"},
      {__LINE__, "fn2n", "abc"},  // on the next entry, and the step does not skip it
      {__LINE__, "fn2nn", "abcd"},
      {__LINE__, "lp4p", "edc"},  // backward, to the one in front
      {__LINE__, "l5n", "ed"},    // last is a step forward: no neighbour there, so the other
      {__LINE__, "f1p", "ab"},
      {__LINE__, "fn2cn", "abcd"},    // reading where it stands is a step as well
      {__LINE__, "fn2f", "aba"},      // a step to an end goes there
      {__LINE__, "fn22n", "abd"},     // moved twice
      {__LINE__, "f11111nc", "a--"},  // nothing left to stand on
      {__LINE__, "f3nn", "abd"},      // a removal elsewhere moves nobody
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(testing::Message() << row.line << ": " << row.walk);
    ks_list_ptr list = make();
    for (const char *value : {"a", "b", "c", "d", "e"}) ks_list_append(list.get(), text(value));
    ks_iter_ptr it(ks_iter_create(list.get()));
    std::string seen;
    for (const char *at = row.walk; *at != '\0'; at++) {
      if (*at >= '1' && *at <= '5') {
        void *value;
        ASSERT_EQ(KS_OK,
                  ks_list_remove_at(list.get(), static_cast<std::uint32_t>(*at - '0'), &value));
        continue;
      }
      auto step = *at == 'f'   ? ks_iter_first
                  : *at == 'l' ? ks_iter_last
                  : *at == 'n' ? ks_iter_next
                  : *at == 'p' ? ks_iter_previous
                               : ks_iter_current;
      void *value = text("?");
      int rc = step(it.get(), &value, nullptr);
      EXPECT_EQ(value != nullptr ? KS_OK : KS_ENOENT, rc);
      seen += value != nullptr ? static_cast<char *>(value) : "-";
    }
    EXPECT_EQ(row.seen, seen);
  }
}

TEST_F(kslist_test, a_live_iterator_guards_its_entry_and_its_list) {
  KSList *list = ks_list_create({free_text, nullptr, compare_text, nullptr}, 0);
  ks_list_append(list, text("a"), text("1"));
  ks_list_append(list, text("b"), text("2"));
  KSIterator *it = ks_iter_create(list);
  void *value, *key;
  ASSERT_EQ(KS_OK, ks_iter_first(it, &value, &key));
  EXPECT_STREQ("1", static_cast<char *>(key));
  EXPECT_EQ(KS_EBUSY, ks_list_remove_guarded(list, "1", &value));
  EXPECT_EQ(KS_OK, ks_list_remove_guarded(list, "2", &value));
  EXPECT_EQ(KS_EBUSY, ks_list_destroy(list));
  EXPECT_EQ(1u, ks_list_count(list));
  EXPECT_TRUE(freed.empty());
  EXPECT_EQ(KS_OK, ks_iter_destroy(it));
  // Two owners: the first to go leaves everything as it was.
  EXPECT_EQ(2, ks_list_share(list));
  EXPECT_EQ(KS_OK, ks_list_destroy(list));
  EXPECT_TRUE(freed.empty());
  EXPECT_EQ(KS_OK, ks_list_destroy(list));
  EXPECT_EQ(std::vector<std::string>{"a"}, freed);
}

}  // namespace
}  // namespace qvr
