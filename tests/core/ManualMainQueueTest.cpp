#include <gtest/gtest.h>

#include <thread>

#include "support/ManualMainQueue.h"

using namespace lorvane;
using lorvane::test::ManualMainQueue;

TEST(ManualMainQueue, DelayedWorkAndTimersFireInTimeOrder) {
    ManualClock clock(100);
    ManualMainQueue queue(&clock);
    std::vector<std::string> log;
    auto timer = queue.startRepeating(0.5, [&] { log.push_back("tick@" + std::to_string(queue.now())); });
    queue.postAfter(0.35, [&] { log.push_back("late@" + std::to_string(queue.now())); });
    queue.post([&] { log.push_back("now"); });
    queue.advance(1.0);
    EXPECT_EQ(log, (std::vector<std::string>{"now", "late@0.350000", "tick@0.500000", "tick@1.000000"}));
    EXPECT_DOUBLE_EQ(clock.now(), 101.0);
    timer.reset();
    queue.advance(1.0);
    EXPECT_EQ(log.size(), 4u);
}

TEST(ManualMainQueue, WorkPostedFromAnotherThreadRunsOnTheCaller) {
    ManualMainQueue queue;
    const auto mainId = std::this_thread::get_id();
    std::thread::id ranOn;
    std::thread worker([&] { queue.post([&] { ranOn = std::this_thread::get_id(); }); });
    EXPECT_TRUE(queue.runUntil([&] { return ranOn != std::thread::id(); }, std::chrono::seconds(5)));
    worker.join();
    EXPECT_EQ(ranOn, mainId);
}
