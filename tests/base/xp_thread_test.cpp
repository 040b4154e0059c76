#include "base/xp_thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "base/xp_event.h"

namespace tarn {
namespace {

using namespace std::chrono_literals;

TEST(XpEvent, ManualLetsAllThroughAutomaticOne) {
    for (const auto reset : {XpEvent::Reset::kManual, XpEvent::Reset::kAutomatic}) {
        const bool manual = reset == XpEvent::Reset::kManual;
        SCOPED_TRACE(manual);
        XpEvent event(reset);
        EXPECT_FALSE(event.WaitFor(0ms));
        event.Set();
        event.Set();
        EXPECT_TRUE(event.WaitFor(0ms));
        EXPECT_EQ(event.WaitFor(0ms), manual);
        event.Set();
        event.Clear();
        EXPECT_FALSE(event.WaitFor(1ms));
    }
}

TEST(XpEvent, WakesWaitingThreads) {
    constexpr int kRounds = 1000;
    XpEvent ping(XpEvent::Reset::kAutomatic), pong(XpEvent::Reset::kAutomatic);
    int shared = 0;  // guarded by the events alone: the thread sanitizer watches
    const auto answer = [&](const std::stop_token&) {
        for (int i = 0; i < kRounds; ++i) {
            ping.Wait();
            ++shared;
            pong.Set();
        }
    };
    XpThread thread;
    ASSERT_EQ(thread.Start("ponger", answer), 0);
    for (int i = 0; i < kRounds; ++i) {
        ++shared;
        ping.Set();
        ASSERT_TRUE(pong.WaitFor(60s));
    }
    thread.Join();
    EXPECT_EQ(shared, 2 * kRounds);
}

TEST(XpThread, StopsWhenAskedAndAtTheEndOfItsOwner) {
    XpEvent started;
    bool ended = false;
    const auto body = [&](const std::stop_token& stop) {
        std::mutex mutex;
        std::condition_variable_any changed;
        std::unique_lock lock(mutex);
        started.Set();
        changed.wait(lock, stop, [] { return false; });
        ended = true;
    };
    {
        XpThread thread;
        EXPECT_FALSE(thread.IsRunning());
        thread.Join();
        ASSERT_EQ(thread.Start("a name longer than fifteen bytes", body), 0);
        started.Wait();
        EXPECT_TRUE(thread.IsRunning());
        EXPECT_EQ(thread.Start("second", body), EBUSY);
        thread.RequestStop();
        thread.Join();
        EXPECT_TRUE(ended);
        EXPECT_FALSE(thread.IsRunning());

        ended = false;
        ASSERT_EQ(thread.Start("again", body), 0);
    }
    EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace tarn
