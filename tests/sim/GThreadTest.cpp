// The simulated host's thread object.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "host/GThread.h"
#include "sim/SimHost.h"

namespace {

using namespace std::chrono_literals;

// Waits (briefly) until done() holds.
template <typename Pred> bool waitFor(Pred done) {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

TEST(GThreadTest, EmptyFunReturnsZero) {
    EXPECT_EQ(0, GThread::emptyFun());
}

TEST(GThreadTest, StartRunsRoundsUntilStopped) {
    std::atomic<int> rounds{0};
    GThread thread(
        [&] {
            ++rounds;
            std::this_thread::sleep_for(100us);
            return 0;
        },
        "SensorThread", GThread::emptyFun, GThread::emptyFun);
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(sim::threadRunning(thread));
    EXPECT_TRUE(waitFor([&] { return rounds >= 3; }));
    ASSERT_TRUE(thread.stop());
    EXPECT_FALSE(sim::threadRunning(thread));
    const int after = rounds;
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(after, rounds);
}

TEST(GThreadTest, StartCallsOnStartAndStopCallsOnStop) {
    std::atomic<int> starts{0}, stops{0};
    GThread thread(
        [] {
            std::this_thread::sleep_for(100us);
            return 0;
        },
        "hooks", [&] { return ++starts, 0; }, [&] { return ++stops, 0; });
    ASSERT_TRUE(thread.start());
    EXPECT_EQ(1, starts);
    EXPECT_EQ(0, stops);
    ASSERT_TRUE(thread.stop());
    EXPECT_EQ(1, starts);
    EXPECT_EQ(1, stops);
}

TEST(GThreadTest, StartOnRunningThreadFails) {
    GThread thread(
        [] {
            std::this_thread::sleep_for(100us);
            return 0;
        },
        "twice", GThread::emptyFun, GThread::emptyFun);
    ASSERT_TRUE(thread.start());
    EXPECT_FALSE(thread.start());
    EXPECT_TRUE(thread.stop());
}

TEST(GThreadTest, StopOnStoppedThreadFails) {
    GThread thread([] { return 0; }, "idle", GThread::emptyFun, GThread::emptyFun);
    EXPECT_FALSE(thread.stop());
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(thread.stop());
    EXPECT_FALSE(thread.stop());
}

TEST(GThreadTest, StopWaitsForRoundInProgress) {
    std::atomic<bool> inRound{false};
    std::atomic<int> begun{0}, ended{0};
    GThread thread(
        [&] {
            ++begun;
            inRound = true;
            std::this_thread::sleep_for(20ms);
            inRound = false;
            ++ended;
            return 0;
        },
        "slow", GThread::emptyFun, GThread::emptyFun);
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(waitFor([&] { return inRound.load(); }));
    ASSERT_TRUE(thread.stop());
    EXPECT_FALSE(inRound);
    EXPECT_EQ(begun.load(), ended.load());
}

TEST(GThreadTest, NonZeroRoundResultKeepsLooping) {
    std::atomic<int> rounds{0};
    GThread thread(
        [&] {
            ++rounds;
            return -1;
        },
        "failing", GThread::emptyFun, GThread::emptyFun);
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(waitFor([&] { return rounds >= 5; }));
    thread.stop();
}

TEST(GThreadTest, RestartAfterStopRunsAgain) {
    std::atomic<int> rounds{0};
    GThread thread(
        [&] {
            ++rounds;
            std::this_thread::sleep_for(100us);
            return 0;
        },
        "again", GThread::emptyFun, GThread::emptyFun);
    ASSERT_TRUE(thread.start());
    ASSERT_TRUE(thread.stop());
    const int first = rounds;
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(waitFor([&] { return rounds > first; }));
    EXPECT_TRUE(thread.stop());
}

TEST(GThreadTest, DestructorStopsRunningThread) {
    std::atomic<int> stops{0};
    {
        GThread thread(
            [] {
                std::this_thread::sleep_for(100us);
                return 0;
            },
            "scoped", GThread::emptyFun, [&] { return ++stops, 0; });
        ASSERT_TRUE(thread.start());
    }
    EXPECT_EQ(1, stops);
}

TEST(GThreadTest, RoundMayStopItsOwnThread) {
    std::atomic<int> rounds{0};
    GThread* self = nullptr;
    GThread thread(
        [&] {
            if (++rounds == 2)
                self->stop();
            return 0;
        },
        "selfstop", GThread::emptyFun, GThread::emptyFun);
    self = &thread;
    ASSERT_TRUE(thread.start());
    EXPECT_TRUE(waitFor([&] { return !sim::threadRunning(thread); }));
    std::this_thread::sleep_for(5ms);
    EXPECT_EQ(2, rounds);
}

} // namespace

TEST(GThreadTest, PausedThreadsBeginNoRoundAndStillStop) {
    std::atomic<int> rounds{0};
    GThread thread(
        [&] {
            ++rounds;
            std::this_thread::sleep_for(100us);
            return 0;
        },
        "SensorThread", GThread::emptyFun, GThread::emptyFun);
    sim::pauseThreads(true);
    ASSERT_TRUE(thread.start());
    std::this_thread::sleep_for(10ms);
    EXPECT_EQ(0, rounds.load());
    sim::pauseThreads(false);
    EXPECT_TRUE(waitFor([&] { return rounds >= 2; }));
    sim::pauseThreads(true);
    EXPECT_TRUE(thread.stop());
    sim::pauseThreads(false);
}
