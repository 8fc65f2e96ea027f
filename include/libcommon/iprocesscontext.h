#ifndef LIBCOMMON_IPROCESSCONTEXT_H
#define LIBCOMMON_IPROCESSCONTEXT_H

// The program being debugged on a device, as far as the library calls it.
// Tool plug-ins implement processes; the library never does.

#include "libcommon/icontextbase.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class Status;
class ISymbolInformation;
class IRegistersContext;
class IMemoryContext;
class IDeviceContext;
class IStackTraceContext;
class IProcessContext;

// A loaded module of a process; its symbol information may be absent.
class IProcessModule {
public:
    virtual ~IProcessModule() {}
    virtual boost::shared_ptr<ISymbolInformation> getSymbolInformation() = 0;
};

// Lists the frames of a stopped process.
class IStackTraceService {
public:
    virtual ~IStackTraceService() {}
    // Empty while the process runs. The second argument is reserved and
    // passed as 0 by the library.
    virtual std::vector<boost::shared_ptr<IStackTraceContext>> getFrames(
        boost::shared_ptr<IProcessContext> process, int reserved) = 0;
};

// Raw bytes of an evaluated value.
class IValueBuffer {
public:
    virtual ~IValueBuffer() {}
    virtual void getBytes(std::vector<unsigned char>& bytes) = 0;
};

// One evaluated expression of a process's own expression service.
class IExpressionContext {
public:
    virtual ~IExpressionContext() {}
    virtual void dispose() = 0;
    virtual boost::shared_ptr<IValueBuffer> getValueBuffer() = 0;
    virtual int64_t getValueAsInt64(Status& status) = 0;
    virtual uint64_t getAbsoluteDataAddress(Status& status) = 0;
    // False when getValueAsInt64 counts words of a word-addressed program
    // memory.
    virtual bool isByteAddress() = 0;
};

class IExpressionService {
public:
    virtual ~IExpressionService() {}
    virtual boost::shared_ptr<IExpressionContext> createExpressionContext(
        Status& status, boost::shared_ptr<IStackTraceContext> frame,
        const std::string& language, const std::string& expression) = 0;
};

class IProcessContext : public IContextBase {
public:
    virtual std::vector<boost::shared_ptr<IProcessModule>> getModules() = 0;
    virtual std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() = 0;
    // Empty if no memory of that name exists.
    virtual boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) = 0;
    virtual boost::shared_ptr<IDeviceContext> getDevice() = 0;
    virtual boost::shared_ptr<IStackTraceService> getStackTraceService() = 0;
    virtual boost::shared_ptr<IExpressionService> getExpressionService() = 0;
};

#endif
