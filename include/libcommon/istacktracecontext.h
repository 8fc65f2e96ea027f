#ifndef LIBCOMMON_ISTACKTRACECONTEXT_H
#define LIBCOMMON_ISTACKTRACECONTEXT_H

// One frame of a call stack: its addresses, its level (0 is the innermost
// frame) and the register values that the unwinder computed for it. The
// expression engine evaluates against a frame, and memory locations read
// registers through its value cache rather than from the target, so that
// a caller's frame shows the caller's view of the registers.

#include "libcommon/icontextbase.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class IMemoryContext;
class IProcessContext;
class IRegistersContext;

class IStackTraceContext : public IContextBase {
public:
    // Empty once the process is gone.
    virtual boost::shared_ptr<IProcessContext> getProcess() = 0;
    virtual std::string getName() = 0;
    virtual uint64_t getFrameAddress() const = 0;
    virtual uint64_t getReturnAddress() const = 0;
    virtual uint64_t getInstructionAddress() const = 0;
    virtual int getArgumentsCount() const = 0;
    virtual uint64_t getArgumentsAddress() const = 0;
    // 0 for the innermost frame, counting outwards.
    virtual int getLevel() const = 0;
    // The process's registers that a frame can hold a value of.
    virtual std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() = 0;
    // The process's memory of that name, or empty.
    virtual boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) = 0;
    // The frame's value of the register with that index. The reference lets
    // a caller change the frame's view; an index outside the cache throws a
    // CoreException (ERR_INVALID_REGISTER, "Invalid register index.").
    virtual uint64_t& getRegisterValueCache(int index) = 0;
};

#endif
