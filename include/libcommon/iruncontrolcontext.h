#ifndef LIBCOMMON_IRUNCONTROLCONTEXT_H
#define LIBCOMMON_IRUNCONTROLCONTEXT_H

// Something that can run and stop, as a debugger front end sees it.

#include "libcommon/core/json_spirit.h"
#include "libcommon/icontextbase.h"

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>

class Status;

// Why execution last stopped. The order follows the reason words of the
// property vocabulary ("Suspended", "Step", ..., "Reset"); converting between
// value and word is left to the plug-ins. The base run control only relies
// on ReasonError, which is also the reason of a context that never stopped.
enum StateChangeReason {
    ReasonSuspended = 0,
    ReasonStep = 1,
    ReasonBreakpoint = 2,
    ReasonException = 3,
    ReasonContainer = 4,
    ReasonWatchpoint = 5,
    ReasonSignal = 6,
    ReasonSharedLibrary = 7,
    ReasonError = 8,
    ReasonReset = 9
};

// The published run state, copied out by value.
struct RunControlState {
    // True once a suspended event has been published.
    bool suspended = false;
    // Last known program counter.
    std::uint64_t pc = 0;
    StateChangeReason reason = ReasonError;
    // The list handed in with the stop ("BreakpointsHit", "BreakpointID", ...).
    json_spirit::Object properties;
};

class IRunControlContext : public IContextBase {
public:
    // Ways of resuming. The base run control only uses them as bit positions
    // of its capability masks; what each does on a target is the plug-in's.
    enum ResumeMode {
        RM_RESUME = 0,
        RM_STEP_OVER = 1,
        RM_STEP_INTO = 2,
        RM_STEP_OVER_LINE = 3,
        RM_STEP_INTO_LINE = 4,
        RM_STEP_OUT = 5,
        RM_REVERSE_RESUME = 6,
        RM_REVERSE_STEP_OVER = 7,
        RM_REVERSE_STEP_INTO = 8,
        RM_REVERSE_STEP_OVER_LINE = 9,
        RM_REVERSE_STEP_INTO_LINE = 10,
        RM_REVERSE_STEP_OUT = 11,
        RM_STEP_OVER_RANGE = 12,
        RM_STEP_INTO_RANGE = 13,
        RM_REVERSE_STEP_OVER_RANGE = 14,
        RM_REVERSE_STEP_INTO_RANGE = 15,
        RM_UNTIL_ACTIVE = 16,
        RM_REVERSE_UNTIL_ACTIVE = 17
    };
    // Number of resume modes; valid modes are 0 to ResumeModeCount - 1.
    static const int ResumeModeCount = 18;

    typedef boost::signals2::signal<void(boost::shared_ptr<IRunControlContext>, std::uint64_t,
                                         StateChangeReason, const json_spirit::Object&)>
        SuspendedSignal;
    typedef SuspendedSignal::slot_type SuspendedHandler;
    typedef boost::signals2::signal<void(boost::shared_ptr<IRunControlContext>)> ResumedSignal;
    typedef ResumedSignal::slot_type ResumedHandler;

    virtual bool isContainer() = 0;
    virtual bool hasState() = 0;
    virtual bool canSuspend() = 0;
    virtual bool canResume(ResumeMode mode) = 0;
    virtual bool canCount(ResumeMode mode) = 0;
    virtual bool canTerminate() = 0;
    virtual void getState(RunControlState& state) = 0;
    virtual void setPc(std::uint64_t pc) = 0;
    virtual bool suspend(Status& status) = 0;
    virtual bool resume(Status& status, ResumeMode mode, std::uint64_t count) = 0;
    virtual void terminate() = 0;
    virtual void detach() = 0;
    virtual void attach() = 0;
    // Suspended and resumed handlers run on the thread that notifies the
    // state change, with the context's state lock held.
    virtual boost::signals2::connection addSuspendedHandler(
        const SuspendedHandler& handler) const = 0;
    virtual boost::signals2::connection addResumedHandler(const ResumedHandler& handler) const = 0;
};

#endif
