#ifndef LIBCOMMON_ITARNDEBUGGER_H
#define LIBCOMMON_ITARNDEBUGGER_H

// The back-end's debugger service object, as far as this library needs it.
//
// The back-end owns the real class and hands it to tool, device and run
// control contexts by reference. The library itself only reaches its
// breakpoint service, for the temporary breakpoint of a run-to-address
// operation; everything else a plug-in needs of the debugger it declares in
// its own derived interface.

#include "libcommon/core/json_spirit.h"

#include <boost/shared_ptr.hpp>

class Status;

// A breakpoint as the breakpoint service made it. Opaque to the library: it
// is only handed back to the service that created it.
class IBreakpoint {
public:
    virtual ~IBreakpoint() = default;
};

// Creates, plants and removes breakpoints on the target. Outcomes are
// reported through the Status argument; the library never expects these
// operations to throw.
class IBreakpointService {
public:
    virtual ~IBreakpointService() = default;

    // Builds a breakpoint from a property list ("ID", "Location",
    // "ContextIds", "Enabled", "BreakpointType", "AccessMode", ...). It is
    // not active on the target until inserted.
    virtual boost::shared_ptr<IBreakpoint> createBreakpoint(
        Status& status, const json_spirit::Object& properties) = 0;
    virtual void insertBreakpoint(Status& status, boost::shared_ptr<IBreakpoint> breakpoint) = 0;
    virtual void removeBreakpoint(Status& status, boost::shared_ptr<IBreakpoint> breakpoint) = 0;
};

class ITarnDebugger {
public:
    virtual ~ITarnDebugger() = default;

    virtual boost::shared_ptr<IBreakpointService> getBreakpointService() = 0;
};

#endif
