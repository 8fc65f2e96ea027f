// Run control contexts on one thread: published state, held-back events,
// capability properties, the wait's immediate answers, the goto breakpoint,
// and how a layer connects to its low-level context.

#include "libcommon/context/devicecontext.h"
#include "libcommon/context/runcontrol.h"
#include "libcommon/core/status.h"
#include "libcommon/idevicecontext.h"
#include "libcommon/iprocesscontext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace js = json_spirit;

namespace {

// Exposes the plug-in side of the base class.
class TestRunControl : public GeneralRunControlContext {
public:
    explicit TestRunControl(ITarnDebugger& debugger, const std::string& id = "rc")
        : GeneralRunControlContext(debugger, id) {}
    using GeneralRunControlContext::countModes;
    using GeneralRunControlContext::gotoBreakpoint;
    using GeneralRunControlContext::isrStepInto;
    using GeneralRunControlContext::notifyResumed;
    using GeneralRunControlContext::notifySuspended;
    using GeneralRunControlContext::reconnect;
    using GeneralRunControlContext::resumeModes;
    using GeneralRunControlContext::runPhase;
};

struct FakeBreakpoint : IBreakpoint {
    explicit FakeBreakpoint(std::string id) : id(std::move(id)) {}
    std::string id;
};

// Records every call as "<op> <breakpoint id>" and keeps the set of
// inserted breakpoints, so a test sees what is left on the target.
struct FakeBreakpointService : IBreakpointService {
    boost::shared_ptr<IBreakpoint> createBreakpoint(Status&, const js::Object& properties) override {
        lastProperties = properties;
        js::Value id;
        findProperty(properties, BP_ID, id);
        calls.push_back("create " + id.get_str());
        return boost::make_shared<FakeBreakpoint>(id.get_str());
    }
    void insertBreakpoint(Status& status, boost::shared_ptr<IBreakpoint> bp) override {
        calls.push_back("insert " + idOf(bp));
        if (failInsert)
            status.setError(ERR_OPERATION_FAILED, "no free comparator");
        else
            inserted.push_back(idOf(bp));
    }
    void removeBreakpoint(Status&, boost::shared_ptr<IBreakpoint> bp) override {
        calls.push_back("remove " + idOf(bp));
        inserted.erase(std::remove(inserted.begin(), inserted.end(), idOf(bp)), inserted.end());
    }
    static std::string idOf(const boost::shared_ptr<IBreakpoint>& bp) {
        return boost::static_pointer_cast<FakeBreakpoint>(bp)->id;
    }
    bool failInsert = false;
    std::vector<std::string> calls;
    std::vector<std::string> inserted;
    js::Object lastProperties;
};

struct FakeDebugger : ITarnDebugger {
    boost::shared_ptr<IBreakpointService> getBreakpointService() override { return service; }
    boost::shared_ptr<FakeBreakpointService> service = boost::make_shared<FakeBreakpointService>();
};

struct SuspendedEvent {
    std::uint64_t pc;
    StateChangeReason reason;
    js::Object properties;
};

struct Recorder {
    void connect(const IRunControlContext& rc) {
        suspendedConnection = rc.addSuspendedHandler(
            [this](boost::shared_ptr<IRunControlContext>, std::uint64_t pc, StateChangeReason reason,
                   const js::Object& properties) { suspended.push_back({pc, reason, properties}); });
        resumedConnection =
            rc.addResumedHandler([this](boost::shared_ptr<IRunControlContext>) { ++resumed; });
    }
    std::vector<SuspendedEvent> suspended;
    int resumed = 0;
    boost::signals2::scoped_connection suspendedConnection, resumedConnection;
};

// The device only lends its id to the breakpoint.
class TestDevice : public GeneralDeviceContext {
public:
    TestDevice(ITarnDebugger& dbg, const std::string& id)
        : GeneralDeviceContext(dbg, id, boost::shared_ptr<IDeviceContext>(),
                               boost::shared_ptr<DIDevice>(), boost::shared_ptr<IPhysicalInterface>()) {}
    void deviceExtension() override {}
};

class FakeProcess : public ContextBase<IProcessContext> {
public:
    explicit FakeProcess(boost::shared_ptr<IDeviceContext> device)
        : ContextBase<IProcessContext>("proc1", boost::shared_ptr<IContextBase>()), device(device) {}
    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return {}; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return {}; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string&) override { return {}; }
    boost::shared_ptr<IDeviceContext> getDevice() override { return device; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return {}; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return {}; }
    boost::shared_ptr<IDeviceContext> device;
};

js::Object bpHit(int id) {
    return js::Object{js::Pair(RUNCTRL_BREAKPOINT_ID, id)};
}

}  // namespace

TEST(GeneralRunControl, NewContextIsUnsuspendedWithEveryModeAndPluginPointsUnimplemented) {
    FakeDebugger dbg;
    auto rc = boost::make_shared<TestRunControl>(dbg, "core0");
    RunControlState s;
    s.suspended = true;
    s.pc = 7;
    rc->getState(s);
    EXPECT_FALSE(s.suspended);
    EXPECT_EQ(0u, s.pc);
    EXPECT_EQ(ReasonError, s.reason);
    EXPECT_TRUE(s.properties.empty());
    EXPECT_TRUE(rc->canSuspend());
    for (int m = 0; m < IRunControlContext::ResumeModeCount; ++m) {
        EXPECT_TRUE(rc->canResume(IRunControlContext::ResumeMode(m))) << m;
        EXPECT_TRUE(rc->canCount(IRunControlContext::ResumeMode(m))) << m;
    }
    EXPECT_EQ(js::write(js::Object{js::Pair("ID", "core0"), js::Pair("CanSuspend", true),
                                   js::Pair("CanResume", 262143), js::Pair("CanCount", 262143),
                                   js::Pair("IsContainer", false), js::Pair("HasState", true),
                                   js::Pair("CanTerminate", true)}),
              js::write(rc->getProperties()));

    Status status;
    for (auto op : {+[](TestRunControl& r, Status& st) { r.suspend(st); },
                    +[](TestRunControl& r, Status& st) { r.resume(st, IRunControlContext::RM_STEP_INTO, 1); },
                    +[](TestRunControl& r, Status&) { r.terminate(); }}) {
        try {
            op(*rc, status);
            ADD_FAILURE() << "plug-in point did not throw";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ("Not implemented!", e.what());
        }
    }
    EXPECT_NO_THROW(rc->attach());
    EXPECT_NO_THROW(rc->detach());
}

TEST(GeneralRunControl, MasksFollowTheModeFlagsAPluginClears) {
    FakeDebugger dbg;
    auto rc = boost::make_shared<TestRunControl>(dbg);
    rc->resumeModes.reset(IRunControlContext::RM_REVERSE_UNTIL_ACTIVE);
    rc->countModes.reset();
    rc->countModes.set(IRunControlContext::RM_STEP_OVER);
    EXPECT_FALSE(rc->canResume(IRunControlContext::RM_REVERSE_UNTIL_ACTIVE));
    js::Value v;
    ASSERT_TRUE(findProperty(rc->getProperties(), RUNCTRL_CAN_RESUME, v));
    EXPECT_EQ(0x1FFFF, v.get_int64());
    ASSERT_TRUE(findProperty(rc->getProperties(), RUNCTRL_CAN_COUNT, v));
    EXPECT_EQ(2, v.get_int64());
}

TEST(GeneralRunControl, SetPropertiesReadsItsTwoKeysSilentlyAndStopsAtAWrongKind) {
    FakeDebugger dbg;
    auto rc = boost::make_shared<TestRunControl>(dbg);
    int changes = 0;
    rc->addContextChangedHandler([&](boost::shared_ptr<IContextBase>) { ++changes; });

    js::Object list{js::Pair("Unknown", "x"), js::Pair(RUNCTRL_ISR_STEP_INTO, 1),
                    js::Pair(RUNCTRL_RECONNECT, 0x100000005LL)};
    rc->setProperties(list);
    EXPECT_EQ(1, rc->isrStepInto);
    EXPECT_EQ(5, rc->reconnect) << "the value is cut to 32 bits";

    js::Object bad{js::Pair(RUNCTRL_ISR_STEP_INTO, 3), js::Pair(RUNCTRL_RECONNECT, "always")};
    EXPECT_THROW(rc->setProperties(bad), std::runtime_error);
    EXPECT_EQ(3, rc->isrStepInto) << "keys before the bad one stay applied";
    EXPECT_EQ(5, rc->reconnect);
    EXPECT_EQ(0, changes);
}

TEST(GeneralRunControl, FirstStopIsHeldBackUntilPublishingStarts) {
    FakeDebugger dbg;
    auto rc = boost::make_shared<TestRunControl>(dbg);
    Recorder rec;
    rec.connect(*rc);

    rc->notifySuspended(0x100, ReasonBreakpoint, bpHit(1));
    EXPECT_TRUE(rec.suspended.empty());
    RunControlState s;
    rc->getState(s);
    EXPECT_FALSE(s.suspended) << "a held stop is not published";
    EXPECT_EQ(0x100u, s.pc);
    EXPECT_EQ(ReasonBreakpoint, s.reason);
    EXPECT_TRUE(rc->canSuspend());
    EXPECT_EQ(2, rc->runPhase);

    // Only the last held stop is kept, and a resume does not discard it.
    rc->notifySuspended(0x200, ReasonStep, bpHit(2));
    rc->notifyResumed();
    EXPECT_EQ(1, rec.resumed);
    // Ending the hold alone does not publish what is pending.
    rc->setEventSupression(false, false);
    EXPECT_TRUE(rec.suspended.empty());

    rc->resendSupressedEventAndRestartPublishing();
    ASSERT_EQ(1u, rec.suspended.size());
    EXPECT_EQ(0x200u, rec.suspended[0].pc);
    EXPECT_EQ(ReasonStep, rec.suspended[0].reason);
    EXPECT_EQ(bpHit(2), rec.suspended[0].properties);
    rc->getState(s);
    EXPECT_TRUE(s.suspended);
    EXPECT_FALSE(rc->canSuspend());

    rc->resendSupressedEventAndRestartPublishing();
    EXPECT_EQ(1u, rec.suspended.size()) << "nothing left to publish";

    // Publishing: each stop goes straight out; reason 8 is no exception.
    rc->notifySuspended(0x300, ReasonError, js::Object());
    ASSERT_EQ(2u, rec.suspended.size());
    EXPECT_EQ(ReasonError, rec.suspended[1].reason);
    EXPECT_EQ(0, rc->runPhase);
    rc->notifyResumed();
    EXPECT_EQ(1, rc->runPhase);
}

TEST(GeneralRunControl, HoldingAgainKeepsStopsUnpublishedAndDroppedResumesAreGone) {
    FakeDebugger dbg;
    auto rc = boost::make_shared<TestRunControl>(dbg);
    Recorder rec;
    rec.connect(*rc);
    rc->resendSupressedEventAndRestartPublishing();
    rc->notifySuspended(0x10, ReasonSuspended, js::Object());
    ASSERT_EQ(1u, rec.suspended.size());

    rc->setEventSupression(true, true);
    rc->notifyResumed();
    EXPECT_EQ(0, rec.resumed) << "resumed events are dropped, not stored";
    EXPECT_TRUE(rc->waitForState(0, GeneralRunControlContext::WaitForRunning));

    rc->notifySuspended(0x20, ReasonStep, js::Object());
    EXPECT_EQ(1u, rec.suspended.size());
    rc->resendSupressedEventAndRestartPublishing();
    ASSERT_EQ(2u, rec.suspended.size());
    EXPECT_EQ(0x20u, rec.suspended[1].pc);
    rc->notifyResumed();
    EXPECT_EQ(0, rec.resumed) << "restarting publishing leaves resumed events dropped";
}

TEST(GeneralRunControl, WaitAnswersAtOnceWhenNothingIsToBeAwaited) {
    FakeDebugger dbg;
    auto rc = boost::make_shared<TestRunControl>(dbg);
    typedef GeneralRunControlContext W;
    EXPECT_FALSE(rc->waitForState(0, W::WaitForSuspended));
    EXPECT_TRUE(rc->waitForState(0, W::WaitForRunning));
    EXPECT_TRUE(rc->waitForState(0, W::WaitForChange)) << "a running context has no pc to compare";
    EXPECT_TRUE(rc->waitForState(0, W::WaitForType(7)));

    // The one pc that stands for "no pc" keeps a change wait waiting.
    rc->notifySuspended(0xFFFFFFFE, ReasonStep, js::Object());
    EXPECT_FALSE(rc->waitForState(20, W::WaitForChange));

    rc->resendSupressedEventAndRestartPublishing();
    EXPECT_TRUE(rc->waitForState(0, W::WaitForSuspended));
    EXPECT_FALSE(rc->waitForState(0, W::WaitForRunning));
    EXPECT_FALSE(rc->waitForState(0, W::WaitForChange));
    EXPECT_FALSE(rc->waitForState(-5, W::WaitForChange)) << "a deadline in the past times out";
}

TEST(GeneralRunControl, SignallingRequiresSharedOwnership) {
    FakeDebugger dbg;
    TestRunControl rc(dbg);
    rc.setEventSupression(false, false);
    EXPECT_THROW(rc.notifySuspended(1, ReasonStep, js::Object()), boost::bad_weak_ptr);
    RunControlState s;
    EXPECT_NO_THROW(rc.getState(s)) << "the lock was released";
    EXPECT_EQ(1u, s.pc);
}

namespace {

struct GotoFixture : ::testing::Test {
    FakeDebugger dbg;
    boost::shared_ptr<TestRunControl> rc = boost::make_shared<TestRunControl>(dbg);
    boost::shared_ptr<IProcessContext> process =
        boost::make_shared<FakeProcess>(boost::make_shared<TestDevice>(dbg, "dev"));
    std::vector<std::string>& calls = dbg.service->calls;
};

}  // namespace

TEST_F(GotoFixture, PlacesOneBreakpointDescribedForTheProcess) {
    rc->addGotoBreakpoint(process, 4096);
    EXPECT_EQ(js::write(js::Object{js::Pair("Location", "4096"),
                                   js::Pair("ContextIds", js::Array{js::Value("proc1")}),
                                   js::Pair("ID", "devbp-4096"), js::Pair("Enabled", true),
                                   js::Pair("BreakpointType", 0), js::Pair("AccessMode", 4)}),
              js::write(dbg.service->lastProperties));
    EXPECT_EQ(std::vector<std::string>{"devbp-4096"}, dbg.service->inserted);

    rc->addGotoBreakpoint(process, 32);
    EXPECT_EQ((std::vector<std::string>{"create devbp-4096", "insert devbp-4096", "remove devbp-4096",
                                        "create devbp-32", "insert devbp-32"}),
              calls);
    EXPECT_EQ(std::vector<std::string>{"devbp-32"}, dbg.service->inserted);

    rc->clearGotoBreakpoint();
    rc->clearGotoBreakpoint();
    EXPECT_EQ("remove devbp-32", calls.back());
    EXPECT_EQ(6u, calls.size()) << "a second clear does not reach the service";
    EXPECT_TRUE(dbg.service->inserted.empty());
}

TEST_F(GotoFixture, AFailedInsertionLeavesNothingBehind) {
    dbg.service->failInsert = true;
    rc->addGotoBreakpoint(process, 8);
    EXPECT_EQ("remove devbp-8", calls.back());
    EXPECT_FALSE(rc->gotoBreakpoint);
    calls.clear();
    rc->clearGotoBreakpoint();
    EXPECT_TRUE(calls.empty());
}

TEST_F(GotoFixture, WithoutAProcessNothingChangesAndDestructionLeavesTheTargetAlone) {
    rc->addGotoBreakpoint(process, 8);
    EXPECT_THROW(rc->addGotoBreakpoint(boost::shared_ptr<IProcessContext>(), 16),
                 std::invalid_argument);
    EXPECT_EQ(2u, calls.size());
    EXPECT_TRUE(rc->gotoBreakpoint);
    rc.reset();
    EXPECT_EQ(std::vector<std::string>{"devbp-8"}, dbg.service->inserted);
}

namespace {

// Records what arrives from below without publishing it.
class ListeningLayer : public LayeredRunControlContext {
public:
    ListeningLayer(ITarnDebugger& dbg, boost::shared_ptr<IRunControlContext> low)
        : LayeredRunControlContext(dbg, "layer", low) {}
    void lowLevelContextChanged(boost::shared_ptr<IContextBase> ctx) override {
        changedFrom.push_back(ctx);
    }
    void lowLevelSuspended(boost::shared_ptr<IRunControlContext> ctx, std::uint64_t pc,
                           StateChangeReason reason, const js::Object& properties) override {
        suspendedFrom.push_back(ctx);
        events.push_back({pc, reason, properties});
    }
    void lowLevelResumed(boost::shared_ptr<IRunControlContext> ctx) override {
        resumedFrom.push_back(ctx);
    }
    std::vector<boost::shared_ptr<IContextBase>> changedFrom;
    std::vector<boost::shared_ptr<IRunControlContext>> suspendedFrom, resumedFrom;
    std::vector<SuspendedEvent> events;
};

class DetachCounter : public TestRunControl {
public:
    using TestRunControl::TestRunControl;
    void detach() override { ++detaches; }
    int detaches = 0;
};

boost::shared_ptr<TestRunControl> publishing(FakeDebugger& dbg, const std::string& id) {
    auto rc = boost::make_shared<TestRunControl>(dbg, id);
    rc->setEventSupression(false, false);
    return rc;
}

}  // namespace

TEST(LayeredRunControl, EventsFromBelowArriveUnchangedAndLeaveTheLayersStateAlone) {
    FakeDebugger dbg;
    auto low = publishing(dbg, "low");
    auto layer = boost::make_shared<ListeningLayer>(dbg, low);
    EXPECT_EQ(low, layer->getLowLevelContext());

    low->notifySuspended(0x1234, ReasonWatchpoint, bpHit(9));
    low->notifyResumed();
    low->signalContextChanged();
    ASSERT_EQ(1u, layer->events.size());
    EXPECT_EQ(low, layer->suspendedFrom[0]);
    EXPECT_EQ(0x1234u, layer->events[0].pc);
    EXPECT_EQ(ReasonWatchpoint, layer->events[0].reason);
    EXPECT_EQ(bpHit(9), layer->events[0].properties);
    ASSERT_EQ(1u, layer->resumedFrom.size());
    EXPECT_EQ(low, layer->resumedFrom[0]);
    ASSERT_EQ(1u, layer->changedFrom.size());
    EXPECT_EQ(low->getId(), layer->changedFrom[0]->getId());

    RunControlState s;
    layer->getState(s);
    EXPECT_EQ(0u, s.pc);
    EXPECT_EQ(ReasonError, s.reason);
}

TEST(LayeredRunControl, ReplacingOrClearingTheLowLevelContextMovesTheConnections) {
    FakeDebugger dbg;
    auto first = publishing(dbg, "first");
    auto second = publishing(dbg, "second");
    auto layer = boost::make_shared<ListeningLayer>(dbg, first);

    layer->setLowLevelContext(second);
    first->notifySuspended(1, ReasonStep, js::Object());
    first->notifyResumed();
    first->signalContextChanged();
    second->notifySuspended(2, ReasonStep, js::Object());
    ASSERT_EQ(1u, layer->events.size());
    EXPECT_EQ(2u, layer->events[0].pc);
    EXPECT_TRUE(layer->resumedFrom.empty());
    EXPECT_TRUE(layer->changedFrom.empty());

    layer->setLowLevelContext(boost::shared_ptr<IRunControlContext>());
    second->notifySuspended(3, ReasonStep, js::Object());
    EXPECT_EQ(1u, layer->events.size());
    EXPECT_FALSE(layer->getLowLevelContext());
    EXPECT_THROW(layer->detach(), std::logic_error);
}

TEST(LayeredRunControl, DetachGoesDownAndADestroyedLayerHearsNothing) {
    FakeDebugger dbg;
    auto low = boost::make_shared<DetachCounter>(dbg, "low");
    low->setEventSupression(false, false);
    auto layer = boost::make_shared<ListeningLayer>(dbg, low);
    layer->detach();
    EXPECT_EQ(1, low->detaches);

    layer.reset();
    // Would run a handler of the freed layer if the connections outlived it.
    low->notifySuspended(5, ReasonStep, js::Object());
    low->notifyResumed();
    low->signalContextChanged();
}
