#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "ks_errors.h"
#include "ks_object.h"
#include "thread_queue.h"

namespace qvr {
namespace {

struct item_t {
  std::atomic<int> worked{0}, finished{0};
  int microseconds = 0;
};
void work(void *item) {
  auto &the_item = *static_cast<item_t *>(item);
  if (the_item.microseconds != 0) usleep(static_cast<useconds_t>(the_item.microseconds));
  the_item.worked++;
}
void finish(void *item) {
  static_cast<item_t *>(item)->finished++;
}

template <class Condition>
bool within_seconds(int seconds, Condition condition) {
  for (int i = 0; i < seconds * 1000; i++) {
    if (condition()) return true;
    usleep(1000);
  }
  return false;
}

TEST(thread_queue, every_item_is_worked_and_finished_before_destroy_returns) {
  struct row_t {
    int line;
    std::uint8_t minimum, maximum;
    int items;
    int microseconds;
    bool with_finish;
  } rows[] = {
      {__LINE__, 4, 4, 0, 0, false},     {__LINE__, 4, 4, 100, 1000, false},
      {__LINE__, 0, 1, 50, 100, true},   {__LINE__, 1, 255, 300, 500, true},
      {__LINE__, 4, 4, 20000, 0, false},
  };
  for (const row_t &row : rows) {
    SCOPED_TRACE(row.line);
    std::uint32_t objects = ks_registry_size().live;
    std::vector<item_t> items(static_cast<std::size_t>(row.items));
    ks_tq_ptr queue(
        ks_tq_create(work, row.with_finish ? finish : nullptr, row.minimum, row.maximum, true));
    ASSERT_NE(nullptr, queue);
    EXPECT_EQ(row.minimum, ks_tq_threads(queue.get()));
    for (item_t &item : items) {
      item.microseconds = row.microseconds;
      ASSERT_EQ(KS_OK, ks_tq_push(queue.get(), &item));
    }
    EXPECT_LE(ks_tq_threads(queue.get()), row.maximum);
    EXPECT_EQ(KS_OK, ks_tq_destroy(queue.release()));
    for (const item_t &item : items) {
      ASSERT_EQ(1, item.worked);
      ASSERT_EQ(row.with_finish ? 1 : 0, item.finished);
    }
    EXPECT_EQ(objects, ks_registry_size().live);
  }
}

TEST(thread_queue, destroy_does_not_sleep) {
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; i++) {
    item_t item;
    ks_tq_ptr queue(ks_tq_create(work, nullptr, 4, 4, true));
    item.microseconds = 100;
    ks_tq_push(queue.get(), &item);
    queue.reset();
    EXPECT_EQ(1, item.worked);
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(thread_queue, without_drain_the_rest_goes_to_finish_unworked) {
  std::vector<item_t> items(200);
  items[0].microseconds = 50000;
  ks_tq_ptr queue(ks_tq_create(work, finish, 1, 1, false));
  for (item_t &item : items) ks_tq_push(queue.get(), &item);
  queue.reset();
  int worked = 0;
  for (const item_t &item : items) {
    worked += item.worked;
    EXPECT_EQ(1, item.finished);
  }
  EXPECT_LT(worked, 200);
}

TEST(thread_queue, an_idle_worker_leaves_and_a_push_makes_a_new_one) {
  ks_tq_ptr queue(ks_tq_create(work, nullptr, 0, 2, true));
  item_t first, second;
  ks_tq_set_idle_limit(queue.get(), 5);
  ASSERT_EQ(KS_OK, ks_tq_push(queue.get(), &first));
  ASSERT_TRUE(within_seconds(10, [&] { return first.worked == 1; }));
  ASSERT_TRUE(within_seconds(10, [&] { return ks_tq_threads(queue.get()) == 0; }));
  ks_tq_set_idle_limit(queue.get(), 60000);
  ASSERT_EQ(KS_OK, ks_tq_push(queue.get(), &second));
  EXPECT_EQ(1, ks_tq_threads(queue.get()));
  EXPECT_TRUE(within_seconds(10, [&] { return second.worked == 1; }));
}

TEST(thread_queue, workers_of_the_minimum_stay) {
  ks_tq_ptr queue(ks_tq_create(work, nullptr, 2, 4, true));
  ks_tq_set_idle_limit(queue.get(), 1);
  usleep(20000);
  EXPECT_EQ(2, ks_tq_threads(queue.get()));
}

TEST(thread_queue, refusals) {
  EXPECT_EQ(nullptr, ks_tq_create(nullptr, nullptr, 1, 1, true));
  EXPECT_EQ(nullptr, ks_tq_create(work, nullptr, 2, 1, true));
  EXPECT_EQ(EINVAL, errno);
  ks_tq_ptr queue(ks_tq_create(work, nullptr, 1, 1, true));
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_tq_push(queue.get(), nullptr));
  EXPECT_EQ(KS_NULL_ARGUMENT, ks_tq_push(nullptr, &queue));
  // One item may wait twice.
  item_t item;
  ks_tq_push(queue.get(), &item);
  ks_tq_push(queue.get(), &item);
  queue.reset();
  EXPECT_EQ(2, item.worked);
}

TEST(thread_queue, one_of_two_owners_leaves_the_queue_alone) {
  item_t item;
  ks_thread_queue_t *queue = ks_tq_create(work, nullptr, 1, 1, true);
  EXPECT_EQ(2, ks_tq_share(queue));
  EXPECT_EQ(KS_OK, ks_tq_destroy(queue));
  EXPECT_EQ(KS_OK, ks_tq_push(queue, &item));
  EXPECT_EQ(KS_OK, ks_tq_destroy(queue));
  EXPECT_EQ(1, item.worked);
}

}  // namespace
}  // namespace qvr
