// The threading contract of run control: a target-event thread notifies
// while client threads wait and query, handlers run under the state lock,
// and a layer re-publishing a low-level context's events cannot deadlock
// with clients of either level. Every wait is bounded; a deadlock ends the
// program with a message instead of hanging the suite.

#include "libcommon/context/runcontrol.h"
#include "libcommon/core/status.h"

#include <gtest/gtest.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace js = json_spirit;
typedef GeneralRunControlContext W;

namespace {

const int kLongMs = 10000;  // a bound never reached when things work

struct NoDebugger : ITarnDebugger {
    boost::shared_ptr<IBreakpointService> getBreakpointService() override { return {}; }
};

class ThreadedRunControl : public GeneralRunControlContext {
public:
    explicit ThreadedRunControl(ITarnDebugger& dbg, const std::string& id = "rc")
        : GeneralRunControlContext(dbg, id) {}
    using GeneralRunControlContext::notifyResumed;
    using GeneralRunControlContext::notifySuspended;
    using GeneralRunControlContext::stateMutex;
};

// Runs body on its own thread. A body that does not end within the bound is
// taken for a deadlock: the thread cannot be recovered, so the program ends.
void runBounded(const char* what, std::function<void()> body, int seconds = 60) {
    std::packaged_task<void()> task(std::move(body));
    std::future<void> done = task.get_future();
    std::thread runner(std::move(task));
    if (done.wait_for(std::chrono::seconds(seconds)) != std::future_status::ready) {
        std::fprintf(stderr, "%s: no progress within %d s, deadlock suspected\n", what, seconds);
        std::fflush(stderr);
        std::_Exit(3);
    }
    runner.join();
    done.get();  // re-throws what the body threw
}

bool lockedByAnotherThread(boost::mutex& m) {
    return std::async(std::launch::async,
                      [&m] {
                          if (!m.try_lock()) return true;
                          m.unlock();
                          return false;
                      })
        .get();
}

}  // namespace

TEST(RunControlThreads, HandlersHoldTheStateLockSoOtherThreadsSeeTheStopOnlyAfterThem) {
    NoDebugger dbg;
    auto rc = boost::make_shared<ThreadedRunControl>(dbg);
    rc->setEventSupression(false, false);
    std::atomic<bool> handlerDone(false);
    std::atomic<int> lockedInHandler(0);
    rc->addSuspendedHandler([&](boost::shared_ptr<IRunControlContext>, std::uint64_t,
                                StateChangeReason, const js::Object&) {
        lockedInHandler += lockedByAnotherThread(rc->stateMutex);
        handlerDone = true;
    });
    rc->addResumedHandler([&](boost::shared_ptr<IRunControlContext>) {
        lockedInHandler += lockedByAnotherThread(rc->stateMutex);
    });

    runBounded("handlers under lock", [&] {
        auto waiter = std::async(std::launch::async, [&] {
            bool reached = rc->waitForState(kLongMs, W::WaitForSuspended);
            return reached && handlerDone.load();
        });
        std::thread target([&] {
            rc->notifySuspended(1, ReasonStep, js::Object());
            rc->notifyResumed();
        });
        target.join();
        // The waiter may also start after the resume; then it waits for a
        // stop that a second notification supplies.
        if (waiter.wait_for(std::chrono::seconds(0)) != std::future_status::ready)
            std::thread([&] { rc->notifySuspended(2, ReasonStep, js::Object()); }).join();
        EXPECT_TRUE(waiter.get()) << "a waiter saw the stop before its handler had returned";
    });
    EXPECT_GE(lockedInHandler.load(), 2) << "a handler ran without the state lock held";
}

TEST(RunControlThreads, ChangeWaitIgnoresStopsAtItsStartPcAndEndsOnAnotherOrAHeldStop) {
    NoDebugger dbg;
    auto rc = boost::make_shared<ThreadedRunControl>(dbg);
    rc->resendSupressedEventAndRestartPublishing();
    rc->notifySuspended(0x100, ReasonStep, js::Object());

    // Keeps notifying from a target thread until the wait in front returns.
    auto whileWaiting = [&](std::function<void(int)> notify, std::function<bool()> wait) {
        std::atomic<bool> done(false);
        bool result = false;
        runBounded("change wait", [&] {
            std::thread target([&] {
                for (int i = 0; !done; ++i) notify(i);
            });
            result = wait();
            done = true;
            target.join();
        });
        return result;
    };

    EXPECT_FALSE(whileWaiting([&](int) { rc->notifySuspended(0x100, ReasonStep, js::Object()); },
                              [&] { return rc->waitForState(100, W::WaitForChange); }))
        << "a stop at the same pc is no change";
    EXPECT_TRUE(whileWaiting(
        [&](int i) { rc->notifySuspended(i % 2 ? 0x100 : 0x200, ReasonStep, js::Object()); },
        [&] { return rc->waitForState(kLongMs, W::WaitForChange); }));

    rc->notifySuspended(0x100, ReasonStep, js::Object());
    rc->setEventSupression(true, false);
    EXPECT_TRUE(whileWaiting([&](int) { rc->notifySuspended(0x100, ReasonStep, js::Object()); },
                             [&] { return rc->waitForState(kLongMs, W::WaitForChange); }))
        << "a held stop reads as not suspended, which is a change";
}

namespace {

// A simulated target: client threads post run and stop requests, its own
// event thread carries them out and reports through the notifications.
class SimulatedRunControl : public GeneralRunControlContext {
public:
    explicit SimulatedRunControl(ITarnDebugger& dbg) : GeneralRunControlContext(dbg, "low") {
        events = std::thread([this] { eventLoop(); });
    }
    ~SimulatedRunControl() override { stop(); }

    bool suspend(Status&) override { return post(false); }
    bool resume(Status&, ResumeMode, std::uint64_t) override { return post(true); }

    void stop() {
        {
            std::lock_guard<std::mutex> lock(m);
            quit = true;
        }
        cv.notify_all();
        if (events.joinable()) events.join();
    }

private:
    bool post(bool run) {
        {
            std::lock_guard<std::mutex> lock(m);
            requests.push_back(run);
        }
        cv.notify_all();
        return true;
    }
    void eventLoop() {
        std::uint64_t pc = 0;
        for (;;) {
            std::unique_lock<std::mutex> lock(m);
            cv.wait(lock, [this] { return quit || !requests.empty(); });
            if (quit) return;
            bool run = requests.front();
            requests.pop_front();
            lock.unlock();
            if (run)
                notifyResumed();
            else {
                ++pc;
                notifySuspended(pc, ReasonSuspended,
                                js::Object{js::Pair(RUNCTRL_BREAKPOINT_ID, static_cast<int>(pc))});
            }
        }
    }

    std::mutex m;
    std::condition_variable cv;
    std::deque<bool> requests;
    bool quit = false;
    std::thread events;
};

// Publishes every event from below as its own and passes requests down.
class RelayRunControl : public LayeredRunControlContext {
public:
    RelayRunControl(ITarnDebugger& dbg, boost::shared_ptr<IRunControlContext> low)
        : LayeredRunControlContext(dbg, "relay", low) {}
    void lowLevelContextChanged(boost::shared_ptr<IContextBase>) override {
        signalContextChanged();
    }
    void lowLevelSuspended(boost::shared_ptr<IRunControlContext>, std::uint64_t pc,
                           StateChangeReason reason, const js::Object& properties) override {
        notifySuspended(pc, reason, properties);
    }
    void lowLevelResumed(boost::shared_ptr<IRunControlContext>) override { notifyResumed(); }
    bool suspend(Status& st) override { return lowLevelContext->suspend(st); }
    bool resume(Status& st, ResumeMode mode, std::uint64_t count) override {
        return lowLevelContext->resume(st, mode, count);
    }
};

}  // namespace

TEST(RunControlThreads, LayeredStopRunCyclesWithBusyClientsNeverDeadlock) {
    NoDebugger dbg;
    auto low = boost::make_shared<SimulatedRunControl>(dbg);
    auto relay = boost::make_shared<RelayRunControl>(dbg, low);
    low->resendSupressedEventAndRestartPublishing();
    relay->resendSupressedEventAndRestartPublishing();

    const int cycles = 1000;
    std::atomic<int> upperStops(0), upperRuns(0), contextChanges(0), outOfOrder(0);
    std::atomic<std::uint64_t> lastPc(0);
    relay->addSuspendedHandler([&](boost::shared_ptr<IRunControlContext> ctx, std::uint64_t pc,
                                   StateChangeReason, const js::Object& properties) {
        // Lock-free queries are allowed under the lock, on this thread.
        if (ctx != relay || ctx->canSuspend() || properties.size() != 1 || pc != lastPc + 1)
            ++outOfOrder;
        lastPc = pc;
        ++upperStops;
    });
    relay->addResumedHandler([&](boost::shared_ptr<IRunControlContext>) { ++upperRuns; });
    relay->addContextChangedHandler([&](boost::shared_ptr<IContextBase>) { ++contextChanges; });

    runBounded("layered stress", [&] {
        std::atomic<bool> done(false);
        std::vector<std::thread> clients;
        // Stops the clients also when an assertion leaves the cycle loop.
        struct Joiner {
            std::atomic<bool>& done;
            std::vector<std::thread>& clients;
            ~Joiner() {
                done = true;
                for (auto& c : clients) c.join();
            }
        } joiner{done, clients};
        // Query both levels; take and release connections on both.
        for (int q = 0; q < 2; ++q) {
            clients.emplace_back([&] {
                RunControlState s;
                while (!done) {
                    relay->getState(s);
                    low->getState(s);
                    relay->waitForState(1, W::WaitForChange);
                    boost::signals2::scoped_connection c = relay->addSuspendedHandler(
                        [](boost::shared_ptr<IRunControlContext>, std::uint64_t, StateChangeReason,
                           const js::Object&) {});
                    boost::signals2::scoped_connection d =
                        low->addResumedHandler([](boost::shared_ptr<IRunControlContext>) {});
                }
            });
        }
        clients.emplace_back([&] {
            while (!done) low->signalContextChanged();
        });

        Status st;
        RunControlState s;
        for (int i = 1; i <= cycles; ++i) {
            relay->resume(st, IRunControlContext::RM_RESUME, 0);
            ASSERT_TRUE(relay->waitForState(kLongMs, W::WaitForRunning)) << "cycle " << i;
            relay->suspend(st);
            ASSERT_TRUE(relay->waitForState(kLongMs, W::WaitForSuspended)) << "cycle " << i;
            relay->getState(s);
            ASSERT_EQ(static_cast<std::uint64_t>(i), s.pc);
        }
    });
    low->stop();
    EXPECT_EQ(cycles, upperStops.load());
    EXPECT_EQ(cycles, upperRuns.load());
    EXPECT_EQ(0, outOfOrder.load());
    EXPECT_GT(contextChanges.load(), 0);
}
