#ifndef LIBCOMMON_CONTEXT_RUNCONTROL_H
#define LIBCOMMON_CONTEXT_RUNCONTROL_H

// Run control contexts for tool plug-ins to derive from.
//
// GeneralRunControlContext keeps the published run state of one thing that
// runs and stops, raises the suspended and resumed signals, holds suspended
// events back until the plug-in is ready to publish them, lets clients block
// until the state changes, and places the temporary breakpoint of a
// run-to-address operation. The plug-in supplies suspend, resume and
// terminate, and reports what its target does through notifySuspended and
// notifyResumed.
//
// LayeredRunControlContext sits on another run control (its low-level
// context) and lets a plug-in decide how events from below are published
// above. Its connections hold a plain pointer to the layer, and a
// disconnection does not wait for a handler already running on another
// thread: a layer is to be built before, and destroyed after, the low-level
// context's target events flow.
//
// Threads and locks. Client threads call the queries and waitForState; the
// plug-in's target-event thread calls the notifications. stateMutex guards
// the published state and the event flags; it is not recursive. The
// suspended and resumed signals are raised with it held, so their handlers
// must not call getState, setEventSupression,
// resendSupressedEventAndRestartPublishing, waitForState or a notification of
// the same context, nor wait for a thread that does. In a stack of layers the
// locks are taken from the low-level context up.

#include "libcommon/context/contextbase.h"
#include "libcommon/core/json_spirit.h"
#include "libcommon/iruncontrolcontext.h"
#include "libcommon/itarndebugger.h"

#include <bitset>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/thread/condition_variable.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <string>

class IProcessContext;

class GeneralRunControlContext : public ContextBase<IRunControlContext> {
public:
    // Fixed to int so that any number a caller passes is a valid value;
    // waitForState answers the unknown ones at once.
    enum WaitForType : int {
        // Ends when the published state is suspended.
        WaitForSuspended = 0,
        // Ends when the published state is not suspended.
        WaitForRunning = 1,
        // Ends when the suspended flag or the pc differs from the start of
        // the wait.
        WaitForChange = 2
    };

    // A run control has no parent.
    GeneralRunControlContext(ITarnDebugger& debugger, std::string id);
    ~GeneralRunControlContext() override;

    bool isContainer() override;
    bool hasState() override;
    // Lock-free snapshot of the published state, so that it can be asked
    // from inside a handler (through getProperties, for instance).
    bool canSuspend() override;
    // mode must be a ResumeMode, 0 to 17.
    bool canResume(ResumeMode mode) override;
    bool canCount(ResumeMode mode) override;
    bool canTerminate() override;
    void getState(RunControlState& out) override;
    // Overwrites the known pc without lock and without a signal.
    void setPc(std::uint64_t pc) override;
    // Target operations: the plug-in's.
    bool suspend(Status& status) override;
    bool resume(Status& status, ResumeMode mode, std::uint64_t count) override;
    void terminate() override;
    void detach() override;
    void attach() override;
    boost::signals2::connection addSuspendedHandler(const SuspendedHandler& handler) const override;
    boost::signals2::connection addResumedHandler(const ResumedHandler& handler) const override;

    json_spirit::Object getProperties() override;
    void setProperties(json_spirit::Object& properties) override;

    // Whether suspended events are held back (stored until
    // resendSupressedEventAndRestartPublishing) and whether resumed events
    // are dropped. A held event stays held whatever is passed here.
    virtual void setEventSupression(bool suspended, bool resumed);
    // Publishes a held-back suspended event, if there is one, and stops
    // holding suspended events back. Waiters are not woken by this: one
    // that waits for a stop while it is held sees it at its next wake-up or
    // at its time-out, so plug-ins publish before clients start waiting.
    virtual void resendSupressedEventAndRestartPublishing();

    // Blocks until the state is reached (true) or timeoutMs milliseconds
    // have passed (false). Types outside WaitForType return true at once.
    bool waitForState(int timeoutMs, WaitForType type);

    // Places the temporary breakpoint of a run-to-address operation, after
    // removing the previous one. process must not be empty. Failures of the
    // breakpoint service leave no breakpoint behind and are not reported.
    void addGotoBreakpoint(boost::shared_ptr<IProcessContext> process, unsigned int address);
    void clearGotoBreakpoint();
    void setEvalMode(bool on);

protected:
    // Entry points of all run state changes, for the plug-in's target-event
    // thread.
    virtual void notifySuspended(std::uint64_t pc, StateChangeReason reason,
                                 json_spirit::Object properties);
    virtual void notifyResumed();

    // 0: nothing known, or stopped with ReasonError; 1: running; 2: stopped.
    int runPhase;
    bool suspendedEventsHeld;
    bool resumedEventsHeld;
    bool suspendedEventPending;
    boost::mutex stateMutex;
    RunControlState state;
    boost::condition_variable stateChanged;
    ITarnDebugger& debugger;
    std::bitset<ResumeModeCount> resumeModes;
    std::bitset<ResumeModeCount> countModes;
    boost::shared_ptr<IBreakpoint> gotoBreakpoint;
    bool isContainerFlag;
    bool hasStateFlag;
    bool canTerminateFlag;
    int isrStepInto;
    int reconnect;
    bool evalMode;
    mutable ResumedSignal resumedSignal;
    mutable SuspendedSignal suspendedSignal;
};

class LayeredRunControlContext : public GeneralRunControlContext {
public:
    LayeredRunControlContext(ITarnDebugger& debugger, std::string id,
                             boost::shared_ptr<IRunControlContext> lowLevelContext);
    ~LayeredRunControlContext() override;

    // Replaces the low-level context and moves the connections to it. An
    // empty pointer leaves the layer without one.
    void setLowLevelContext(boost::shared_ptr<IRunControlContext> context);
    // Empty if none is set or it is not a GeneralRunControlContext.
    boost::shared_ptr<GeneralRunControlContext> getLowLevelContext();

    // Passed down; a low-level context must be set.
    void detach() override;

    // Events from below. They run on the thread that raised the low-level
    // signal; the suspended and resumed ones with the low-level context's
    // state lock held, so they must not call back into its locking
    // operations. Publishing upward through notifySuspended and
    // notifyResumed from here is what they are for.
    virtual void lowLevelContextChanged(boost::shared_ptr<IContextBase> context) = 0;
    virtual void lowLevelSuspended(boost::shared_ptr<IRunControlContext> context, std::uint64_t pc,
                                   StateChangeReason reason,
                                   const json_spirit::Object& properties) = 0;
    virtual void lowLevelResumed(boost::shared_ptr<IRunControlContext> context) = 0;

protected:
    void connectSlots(boost::shared_ptr<IRunControlContext> context);
    void disconnectSlots();

    boost::signals2::connection contextChangedConnection;
    boost::signals2::connection resumedConnection;
    boost::signals2::connection suspendedConnection;
    boost::shared_ptr<IRunControlContext> lowLevelContext;
};

#endif
