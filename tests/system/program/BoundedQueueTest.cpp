#include "tools/qxhost/pipeline/BoundedQueue.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace Qx::Program {

namespace {

TEST(BoundedQueue, keeps_the_order)
{
    BoundedQueue<int> queue(3);
    ASSERT_TRUE(queue.push(1));
    ASSERT_TRUE(queue.push(2));
    EXPECT_EQ(queue.pop(), 1);
    ASSERT_TRUE(queue.push(3));
    EXPECT_EQ(queue.pop(), 2);
    EXPECT_EQ(queue.pop(), 3);
}

TEST(BoundedQueue, what_is_inside_when_it_is_closed_can_still_be_taken)
{
    BoundedQueue<int> queue(3);
    ASSERT_TRUE(queue.push(1));
    queue.close();
    EXPECT_EQ(queue.pop(), 1);
    EXPECT_EQ(queue.pop(), std::nullopt);
}

TEST(BoundedQueue, what_is_inside_when_it_is_cancelled_is_released)
{
    BoundedQueue<std::shared_ptr<int>> queue(3);
    auto item = std::make_shared<int>(1);
    ASSERT_TRUE(queue.push(item));
    queue.cancel();
    EXPECT_EQ(item.use_count(), 1);
    EXPECT_EQ(queue.pop(), std::nullopt);
    EXPECT_FALSE(queue.push(item));
}

TEST(BoundedQueue, who_fills_it_waits_for_room)
{
    constexpr int items = 1000;
    BoundedQueue<int> queue(2);
    std::thread filler([&] {
        for (int i = 0; i < items; ++i) {
            queue.push(i);
        }
        queue.close();
    });
    int expected = 0;
    while (const std::optional<int> item = queue.pop()) {
        EXPECT_EQ(*item, expected++);
    }
    EXPECT_EQ(expected, items);
    filler.join();
}

TEST(BoundedQueue, cancelling_wakes_both_sides)
{
    BoundedQueue<int> full(1);
    BoundedQueue<int> empty(1);
    ASSERT_TRUE(full.push(1));
    std::thread filler([&] { EXPECT_FALSE(full.push(2)); });
    std::thread emptier([&] { EXPECT_EQ(empty.pop(), std::nullopt); });
    full.cancel();
    empty.cancel();
    filler.join();
    emptier.join();
}

} // namespace

} // namespace Qx::Program
