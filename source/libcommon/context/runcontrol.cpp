#include "libcommon/context/runcontrol.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/idevicecontext.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/stringconstants.h"

#include <boost/bind/bind.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/thread/thread_time.hpp>
#include <stdexcept>

namespace {

const char* const kNotImplemented = "Not implemented!";

// Stands for "no pc" at the start of a change wait on a running context.
const std::uint32_t kNoPc = 0xFFFFFFFE;

template <std::size_t N>
std::int64_t maskOf(const std::bitset<N>& flags) {
    return static_cast<std::int64_t>(flags.to_ullong());
}

}  // namespace

// ---------------------------------------------------------------------------
// GeneralRunControlContext

GeneralRunControlContext::GeneralRunControlContext(ITarnDebugger& debugger_, std::string id)
    : ContextBase<IRunControlContext>(id, boost::shared_ptr<IContextBase>()),
      runPhase(0),
      suspendedEventsHeld(true),
      resumedEventsHeld(false),
      suspendedEventPending(false),
      debugger(debugger_),
      isContainerFlag(false),
      hasStateFlag(true),
      canTerminateFlag(true),
      isrStepInto(0),
      reconnect(2),
      evalMode(true) {
    resumeModes.set();
    countModes.set();
}

// The temporary breakpoint is only released here, not removed from the
// target: the breakpoint service may already be gone at this point.
GeneralRunControlContext::~GeneralRunControlContext() = default;

bool GeneralRunControlContext::isContainer() {
    return isContainerFlag;
}

bool GeneralRunControlContext::hasState() {
    return hasStateFlag;
}

bool GeneralRunControlContext::canSuspend() {
    return !state.suspended;
}

bool GeneralRunControlContext::canResume(ResumeMode mode) {
    return resumeModes.test(static_cast<std::size_t>(mode));
}

bool GeneralRunControlContext::canCount(ResumeMode mode) {
    return countModes.test(static_cast<std::size_t>(mode));
}

bool GeneralRunControlContext::canTerminate() {
    return canTerminateFlag;
}

void GeneralRunControlContext::getState(RunControlState& out) {
    boost::unique_lock<boost::mutex> lock(stateMutex);
    out = state;
}

void GeneralRunControlContext::setPc(std::uint64_t pc) {
    state.pc = pc;
}

bool GeneralRunControlContext::suspend(Status&) {
    throw std::runtime_error(kNotImplemented);
}

bool GeneralRunControlContext::resume(Status&, ResumeMode, std::uint64_t) {
    throw std::runtime_error(kNotImplemented);
}

void GeneralRunControlContext::terminate() {
    throw std::runtime_error(kNotImplemented);
}

void GeneralRunControlContext::detach() {}

void GeneralRunControlContext::attach() {}

boost::signals2::connection GeneralRunControlContext::addSuspendedHandler(
    const SuspendedHandler& handler) const {
    return suspendedSignal.connect(handler);
}

boost::signals2::connection GeneralRunControlContext::addResumedHandler(
    const ResumedHandler& handler) const {
    return resumedSignal.connect(handler);
}

json_spirit::Object GeneralRunControlContext::getProperties() {
    json_spirit::Object properties = ContextBase<IRunControlContext>::getProperties();
    properties.push_back(json_spirit::Pair(RUNCTRL_CAN_SUSPEND, canSuspend()));
    properties.push_back(json_spirit::Pair(RUNCTRL_CAN_RESUME, maskOf(resumeModes)));
    properties.push_back(json_spirit::Pair(RUNCTRL_CAN_COUNT, maskOf(countModes)));
    properties.push_back(json_spirit::Pair(RUNCTRL_IS_CONTAINER, isContainer()));
    properties.push_back(json_spirit::Pair(RUNCTRL_HAS_STATE, hasState()));
    properties.push_back(json_spirit::Pair(RUNCTRL_CAN_TERMINATE, canTerminate()));
    return properties;
}

void GeneralRunControlContext::setProperties(json_spirit::Object& properties) {
    for (const json_spirit::Pair& pair : properties) {
        if (pair.name_ == RUNCTRL_ISR_STEP_INTO)
            isrStepInto = static_cast<int>(pair.value_.get_int64());
        else if (pair.name_ == RUNCTRL_RECONNECT)
            reconnect = static_cast<int>(pair.value_.get_int64());
    }
}

void GeneralRunControlContext::setEventSupression(bool suspended, bool resumed) {
    boost::unique_lock<boost::mutex> lock(stateMutex);
    suspendedEventsHeld = suspended;
    resumedEventsHeld = resumed;
}

void GeneralRunControlContext::resendSupressedEventAndRestartPublishing() {
    boost::unique_lock<boost::mutex> lock(stateMutex);
    if (suspendedEventPending) {
        state.suspended = true;
        // Cleared only after the handlers: one that throws leaves the event
        // pending, so it is not lost.
        suspendedSignal(shared_from_this(), state.pc, state.reason, state.properties);
        suspendedEventPending = false;
    }
    suspendedEventsHeld = false;
}

void GeneralRunControlContext::notifySuspended(std::uint64_t pc, StateChangeReason reason,
                                               json_spirit::Object properties) {
    boost::unique_lock<boost::mutex> lock(stateMutex);
    runPhase = reason == ReasonError ? 0 : 2;
    // Waiters run only once the lock is released, so they see the whole
    // new state.
    stateChanged.notify_all();
    state.pc = pc;
    state.reason = reason;
    state.properties = properties;
    if (!suspendedEventsHeld) {
        state.suspended = true;
        suspendedSignal(shared_from_this(), pc, reason, properties);
    } else {
        // Until published the context goes on saying it is not suspended,
        // with the new pc, reason and properties. A later stop overwrites
        // this one: only the last is kept.
        state.suspended = false;
        suspendedEventPending = true;
    }
}

void GeneralRunControlContext::notifyResumed() {
    boost::unique_lock<boost::mutex> lock(stateMutex);
    runPhase = 1;
    state.suspended = false;
    // Resumed events are dropped, not stored, while they are held.
    if (!resumedEventsHeld) resumedSignal(shared_from_this());
    stateChanged.notify_all();
}

bool GeneralRunControlContext::waitForState(int timeoutMs, WaitForType type) {
    boost::unique_lock<boost::mutex> lock(stateMutex);
    if ((type == WaitForSuspended && state.suspended) ||
        (type == WaitForRunning && !state.suspended))
        return true;

    const bool startSuspended = state.suspended;
    // Only the low 32 bits of the pc take part in a change wait.
    const std::uint32_t startPc = startSuspended ? static_cast<std::uint32_t>(state.pc) : kNoPc;
    const boost::system_time deadline =
        boost::get_system_time() + boost::posix_time::milliseconds(timeoutMs);

    for (;;) {
        const bool goOn = (type == WaitForRunning && state.suspended) ||
                          (type == WaitForSuspended && !state.suspended) ||
                          (type == WaitForChange && state.suspended == startSuspended &&
                           state.pc == static_cast<std::uint64_t>(startPc));
        if (!goOn) return true;
        if (!stateChanged.timed_wait(lock, deadline)) break;
    }
    lock.unlock();
    if (gLogMask & LOG_MASK_ERROR)
        BackendLogger::error(
            L_DBG, FormatString("Timed out waiting for event %d ", static_cast<int>(type)));
    return false;
}

void GeneralRunControlContext::addGotoBreakpoint(boost::shared_ptr<IProcessContext> process,
                                                 unsigned int address) {
    // The breakpoint's id is made from the process's device, so without a
    // process there is nothing to place. Refused before anything changes.
    if (!process) throw std::invalid_argument("addGotoBreakpoint: no process given");
    boost::shared_ptr<IDeviceContext> device = process->getDevice();
    if (!device) throw std::invalid_argument("addGotoBreakpoint: the process has no device");

    boost::shared_ptr<IBreakpointService> service = debugger.getBreakpointService();
    if (!service) {
        // Without a service no breakpoint can exist; the old one, if any,
        // cannot be removed either, so it is let go.
        if (gLogMask & LOG_MASK_ERROR)
            BackendLogger::error(L_DBG, "No breakpoint service for the goto breakpoint");
        gotoBreakpoint.reset();
        return;
    }

    // One status serves all steps: a failure to remove the old breakpoint
    // also counts against the new one, which is then removed again rather
    // than left in an unknown state.
    Status status;
    json_spirit::Object properties;
    if (gotoBreakpoint) {
        service->removeBreakpoint(status, gotoBreakpoint);
        gotoBreakpoint.reset();
    }

    const std::string location = std::to_string(address);
    properties.push_back(json_spirit::Pair(BP_LOCATION, location));
    properties.push_back(json_spirit::Pair(
        BP_CONTEXT_IDS, json_spirit::Array(1, json_spirit::Value(process->getId()))));
    properties.push_back(json_spirit::Pair(BP_ID, device->getId() + "bp-" + location));
    properties.push_back(json_spirit::Pair(BP_ENABLED, true));
    properties.push_back(json_spirit::Pair(BP_BREAKPOINT_TYPE, 0));
    properties.push_back(json_spirit::Pair(BP_ACCESS_MODE, 4));

    boost::shared_ptr<IBreakpoint> breakpoint = service->createBreakpoint(status, properties);
    // A service that could not make one has nothing to insert or remove.
    if (!breakpoint) return;
    service->insertBreakpoint(status, breakpoint);
    if (status.isOk())
        gotoBreakpoint = breakpoint;
    else
        service->removeBreakpoint(status, breakpoint);
}

void GeneralRunControlContext::clearGotoBreakpoint() {
    if (!gotoBreakpoint) return;
    boost::shared_ptr<IBreakpointService> service = debugger.getBreakpointService();
    if (service) {
        Status status;
        service->removeBreakpoint(status, gotoBreakpoint);
    }
    gotoBreakpoint.reset();
}

void GeneralRunControlContext::setEvalMode(bool on) {
    evalMode = on;
}

// ---------------------------------------------------------------------------
// LayeredRunControlContext

LayeredRunControlContext::LayeredRunControlContext(ITarnDebugger& debugger_, std::string id,
                                                   boost::shared_ptr<IRunControlContext> context)
    : GeneralRunControlContext(debugger_, id) {
    setLowLevelContext(context);
}

// The bindings hold a plain pointer to this object, so no event may reach
// it once destruction has begun.
LayeredRunControlContext::~LayeredRunControlContext() {
    disconnectSlots();
}

void LayeredRunControlContext::setLowLevelContext(boost::shared_ptr<IRunControlContext> context) {
    if (lowLevelContext) disconnectSlots();
    lowLevelContext = context;
    if (lowLevelContext) connectSlots(lowLevelContext);
}

boost::shared_ptr<GeneralRunControlContext> LayeredRunControlContext::getLowLevelContext() {
    return boost::dynamic_pointer_cast<GeneralRunControlContext>(lowLevelContext);
}

void LayeredRunControlContext::detach() {
    if (!lowLevelContext)
        throw std::logic_error("detach: the layered run control has no low-level context");
    lowLevelContext->detach();
}

void LayeredRunControlContext::connectSlots(boost::shared_ptr<IRunControlContext> context) {
    using namespace boost::placeholders;
    // Bound through the virtual table: the most derived handler gets the event.
    contextChangedConnection = context->addContextChangedHandler(
        boost::bind(&LayeredRunControlContext::lowLevelContextChanged, this, _1));
    resumedConnection = context->addResumedHandler(
        boost::bind(&LayeredRunControlContext::lowLevelResumed, this, _1));
    suspendedConnection = context->addSuspendedHandler(
        boost::bind(&LayeredRunControlContext::lowLevelSuspended, this, _1, _2, _3, _4));
}

void LayeredRunControlContext::disconnectSlots() {
    if (contextChangedConnection.connected()) contextChangedConnection.disconnect();
    if (resumedConnection.connected()) resumedConnection.disconnect();
    if (suspendedConnection.connected()) suspendedConnection.disconnect();
}
