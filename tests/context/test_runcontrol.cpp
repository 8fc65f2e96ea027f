// Run control on one thread: published state and held-back events,
// capability properties, the wait's immediate answers, the goto breakpoint,
// and how a layer connects to its low-level context.

#include "libcommon/context/devicecontext.h"
#include "libcommon/context/runcontrol.h"
#include "libcommon/core/status.h"
#include "libcommon/iprocesscontext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace js = json_spirit;
typedef GeneralRunControlContext W;

namespace {

class TestRunControl : public GeneralRunControlContext {
public:
    explicit TestRunControl(ITarnDebugger& dbg, const std::string& id = "rc")
        : GeneralRunControlContext(dbg, id) {}
    void detach() override { ++detaches; }
    int detaches = 0;
    using GeneralRunControlContext::gotoBreakpoint;
    using GeneralRunControlContext::isrStepInto;
    using GeneralRunControlContext::notifyResumed;
    using GeneralRunControlContext::notifySuspended;
    using GeneralRunControlContext::reconnect;
    using GeneralRunControlContext::runPhase;
};

struct FakeBreakpoint : IBreakpoint {
    explicit FakeBreakpoint(std::string id) : id(std::move(id)) {}
    std::string id;
};

// Logs each call as "<op> <id>" and keeps what is inserted on the target.
struct FakeDebugger : ITarnDebugger,
                      IBreakpointService,
                      boost::enable_shared_from_this<FakeDebugger> {
    boost::shared_ptr<IBreakpointService> getBreakpointService() override {
        return shared_from_this();
    }
    boost::shared_ptr<IBreakpoint> createBreakpoint(Status&,
                                                    const js::Object& properties) override {
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
    std::vector<std::string> calls, inserted;
    js::Object lastProperties;
};

class TestDevice : public GeneralDeviceContext {
public:
    TestDevice(ITarnDebugger& dbg, const std::string& id)
        : GeneralDeviceContext(dbg, id, {}, {}, {}) {}
    void deviceExtension() override {}
};

class FakeProcess : public ContextBase<IProcessContext> {
public:
    explicit FakeProcess(boost::shared_ptr<IDeviceContext> device)
        : ContextBase<IProcessContext>("proc1", {}), device(device) {}
    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return {}; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return {}; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string&) override { return {}; }
    boost::shared_ptr<IDeviceContext> getDevice() override { return device; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return {}; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return {}; }
    boost::shared_ptr<IDeviceContext> device;
};

struct Stop {
    boost::shared_ptr<IRunControlContext> from;
    std::uint64_t pc;
    StateChangeReason reason;
    js::Object properties;
};

IRunControlContext::SuspendedHandler recordStops(std::vector<Stop>& stops) {
    return [&stops](boost::shared_ptr<IRunControlContext> from, std::uint64_t pc,
                    StateChangeReason reason, const js::Object& p) {
        stops.push_back({from, pc, reason, p});
    };
}

js::Object hit(int id) {
    return js::Object{js::Pair(RUNCTRL_BREAKPOINT_ID, id)};
}

struct RunControlTest : ::testing::Test {
    boost::shared_ptr<FakeDebugger> dbg = boost::make_shared<FakeDebugger>();
    boost::shared_ptr<TestRunControl> rc = boost::make_shared<TestRunControl>(*dbg, "core0");
    std::vector<Stop> stops;
    int resumes = 0;
    void listen() {
        rc->addSuspendedHandler(recordStops(stops));
        rc->addResumedHandler([this](boost::shared_ptr<IRunControlContext>) { ++resumes; });
    }
    RunControlState state() {
        RunControlState s;
        rc->getState(s);
        return s;
    }
};

}  // namespace

TEST_F(RunControlTest, NewContextIsRunningWithEveryModeAndUnimplementedTargetOperations) {
    RunControlState s = state();
    EXPECT_FALSE(s.suspended);
    EXPECT_EQ(0u, s.pc);
    EXPECT_EQ(ReasonError, s.reason);
    EXPECT_TRUE(s.properties.empty());
    EXPECT_EQ(js::write(js::Object{js::Pair("ID", "core0"), js::Pair("CanSuspend", true),
                                   js::Pair("CanResume", 262143), js::Pair("CanCount", 262143),
                                   js::Pair("IsContainer", false), js::Pair("HasState", true),
                                   js::Pair("CanTerminate", true)}),
              js::write(rc->getProperties()));
    Status status;
    auto expectUnimplemented = [](const std::function<void()>& op) {
        try {
            op();
            ADD_FAILURE() << "no exception";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ("Not implemented!", e.what());
        }
    };
    expectUnimplemented([&] { rc->suspend(status); });
    expectUnimplemented([&] { rc->resume(status, IRunControlContext::RM_STEP_INTO, 1); });
    expectUnimplemented([&] { rc->terminate(); });
}

TEST_F(RunControlTest, SetPropertiesReadsItsTwoKeysWithoutSignalAndStopsAtAWrongKind) {
    int changes = 0;
    rc->addContextChangedHandler([&](boost::shared_ptr<IContextBase>) { ++changes; });
    js::Object list{js::Pair("Unknown", "x"), js::Pair(RUNCTRL_ISR_STEP_INTO, 1),
                    js::Pair(RUNCTRL_RECONNECT, 0x100000005LL)};
    rc->setProperties(list);
    EXPECT_EQ(1, rc->isrStepInto);
    EXPECT_EQ(5, rc->reconnect) << "cut to 32 bits";
    js::Object bad{js::Pair(RUNCTRL_ISR_STEP_INTO, 3), js::Pair(RUNCTRL_RECONNECT, "always")};
    EXPECT_THROW(rc->setProperties(bad), std::runtime_error);
    EXPECT_EQ(3, rc->isrStepInto) << "keys before the bad one stay applied";
    EXPECT_EQ(0, changes);
}

TEST_F(RunControlTest, StopsAreHeldBackUntilPublishingRestartsAndOnlyTheLastIsKept) {
    listen();
    rc->notifySuspended(0x100, ReasonBreakpoint, hit(1));
    EXPECT_TRUE(stops.empty());
    RunControlState s = state();
    EXPECT_FALSE(s.suspended) << "a held stop is not published";
    EXPECT_EQ(0x100u, s.pc);
    EXPECT_EQ(ReasonBreakpoint, s.reason);
    EXPECT_TRUE(rc->canSuspend());

    rc->notifySuspended(0x200, ReasonStep, hit(2));
    rc->notifyResumed();  // does not discard the pending stop
    rc->setEventSupression(false, false);
    EXPECT_TRUE(stops.empty()) << "ending the hold alone publishes nothing";
    rc->resendSupressedEventAndRestartPublishing();
    ASSERT_EQ(1u, stops.size());
    EXPECT_EQ(rc, stops[0].from);
    EXPECT_EQ(0x200u, stops[0].pc);
    EXPECT_EQ(ReasonStep, stops[0].reason);
    EXPECT_EQ(hit(2), stops[0].properties);
    EXPECT_TRUE(state().suspended);
    EXPECT_FALSE(rc->canSuspend());
    rc->resendSupressedEventAndRestartPublishing();
    EXPECT_EQ(1u, stops.size());

    rc->notifySuspended(0x300, ReasonError, js::Object());
    EXPECT_EQ(2u, stops.size()) << "the never-stopped reason is published like any other";
    EXPECT_EQ(0, rc->runPhase);

    rc->setEventSupression(true, true);
    rc->notifyResumed();
    EXPECT_EQ(1, resumes) << "held resumed events are dropped";
    EXPECT_EQ(1, rc->runPhase);
    EXPECT_TRUE(rc->waitForState(0, W::WaitForRunning));
    rc->notifySuspended(0x400, ReasonStep, js::Object());
    EXPECT_EQ(2, rc->runPhase);
    EXPECT_EQ(2u, stops.size());
    rc->resendSupressedEventAndRestartPublishing();
    EXPECT_EQ(3u, stops.size());
    rc->notifyResumed();
    EXPECT_EQ(1, resumes) << "restarting publishing leaves resumed events dropped";
}

TEST_F(RunControlTest, WaitAnswersAtOnceWhenThereIsNothingToAwait) {
    EXPECT_FALSE(rc->waitForState(0, W::WaitForSuspended));
    EXPECT_TRUE(rc->waitForState(0, W::WaitForRunning));
    EXPECT_TRUE(rc->waitForState(0, W::WaitForChange)) << "a running context has no pc to compare";
    EXPECT_TRUE(rc->waitForState(0, W::WaitForType(7)));
    rc->notifySuspended(0xFFFFFFFE, ReasonStep, js::Object());
    EXPECT_FALSE(rc->waitForState(20, W::WaitForChange)) << "the pc that stands for no pc";
    rc->resendSupressedEventAndRestartPublishing();
    EXPECT_TRUE(rc->waitForState(0, W::WaitForSuspended));
    EXPECT_FALSE(rc->waitForState(-5, W::WaitForChange));
}

TEST_F(RunControlTest, AStopOnAnUnownedContextThrowsAndReleasesTheLock) {
    TestRunControl unowned(*dbg);
    unowned.setEventSupression(false, false);
    EXPECT_THROW(unowned.notifySuspended(1, ReasonStep, js::Object()), boost::bad_weak_ptr);
    RunControlState s;
    unowned.getState(s);  // would hang with the lock still held
    EXPECT_EQ(1u, s.pc);
}

TEST_F(RunControlTest, GotoBreakpointIsReplacedClearedAndNeverLeftHalfPlaced) {
    auto process = boost::make_shared<FakeProcess>(boost::make_shared<TestDevice>(*dbg, "dev"));
    rc->addGotoBreakpoint(process, 4096);
    EXPECT_EQ(js::write(js::Object{js::Pair("Location", "4096"),
                                   js::Pair("ContextIds", js::Array{js::Value("proc1")}),
                                   js::Pair("ID", "devbp-4096"), js::Pair("Enabled", true),
                                   js::Pair("BreakpointType", 0), js::Pair("AccessMode", 4)}),
              js::write(dbg->lastProperties));
    rc->addGotoBreakpoint(process, 32);
    EXPECT_EQ((std::vector<std::string>{"create devbp-4096", "insert devbp-4096",
                                        "remove devbp-4096", "create devbp-32", "insert devbp-32"}),
              dbg->calls);
    EXPECT_THROW(rc->addGotoBreakpoint(nullptr, 16), std::invalid_argument);
    EXPECT_EQ(std::vector<std::string>{"devbp-32"}, dbg->inserted)
        << "a refused call changes nothing";

    rc->clearGotoBreakpoint();
    rc->clearGotoBreakpoint();
    EXPECT_EQ(6u, dbg->calls.size()) << "a second clear does not reach the service";
    EXPECT_TRUE(dbg->inserted.empty());

    dbg->failInsert = true;
    rc->addGotoBreakpoint(process, 8);
    EXPECT_EQ("remove devbp-8", dbg->calls.back());
    EXPECT_FALSE(rc->gotoBreakpoint);

    dbg->failInsert = false;
    rc->addGotoBreakpoint(process, 8);
    rc.reset();
    EXPECT_EQ(std::vector<std::string>{"devbp-8"}, dbg->inserted) << "destruction only lets go";
}

namespace {

class ListeningLayer : public LayeredRunControlContext {
public:
    ListeningLayer(ITarnDebugger& dbg, boost::shared_ptr<IRunControlContext> low)
        : LayeredRunControlContext(dbg, "layer", low) {}
    void lowLevelContextChanged(boost::shared_ptr<IContextBase>) override { ++changes; }
    void lowLevelSuspended(boost::shared_ptr<IRunControlContext> from, std::uint64_t pc,
                           StateChangeReason reason, const js::Object& p) override {
        stops.push_back({from, pc, reason, p});
    }
    void lowLevelResumed(boost::shared_ptr<IRunControlContext>) override { ++resumes; }
    std::vector<Stop> stops;
    int changes = 0, resumes = 0;
};

void everyEvent(TestRunControl& rc, std::uint64_t pc) {
    rc.notifySuspended(pc, ReasonWatchpoint, hit(9));
    rc.notifyResumed();
    rc.signalContextChanged();
}

}  // namespace

TEST_F(RunControlTest, LayerHearsItsCurrentLowLevelContextOnlyAndKeepsItsOwnState) {
    rc->setEventSupression(false, false);
    auto other = boost::make_shared<TestRunControl>(*dbg, "other");
    other->setEventSupression(false, false);
    auto layer = boost::make_shared<ListeningLayer>(*dbg, rc);
    EXPECT_EQ(rc, layer->getLowLevelContext());

    everyEvent(*rc, 0x1234);
    ASSERT_EQ(1u, layer->stops.size());
    EXPECT_EQ(rc, layer->stops[0].from);
    EXPECT_EQ(0x1234u, layer->stops[0].pc);
    EXPECT_EQ(ReasonWatchpoint, layer->stops[0].reason);
    EXPECT_EQ(hit(9), layer->stops[0].properties);
    EXPECT_EQ(1, layer->resumes);
    EXPECT_EQ(1, layer->changes);
    RunControlState s;
    layer->getState(s);
    EXPECT_EQ(0u, s.pc) << "an event from below changes nothing above by itself";

    layer->setLowLevelContext(other);
    everyEvent(*rc, 1);
    everyEvent(*other, 2);
    ASSERT_EQ(2u, layer->stops.size());
    EXPECT_EQ(2u, layer->stops[1].pc);
    EXPECT_EQ(2, layer->resumes);
    EXPECT_EQ(2, layer->changes);
    layer->detach();
    EXPECT_EQ(1, other->detaches);

    layer->setLowLevelContext(nullptr);
    everyEvent(*other, 3);
    EXPECT_EQ(2u, layer->stops.size());
    EXPECT_FALSE(layer->getLowLevelContext());
    EXPECT_THROW(layer->detach(), std::logic_error);

    layer->setLowLevelContext(other);
    layer.reset();
    everyEvent(*other, 4);  // reaches freed memory if the connections outlived the layer
}
