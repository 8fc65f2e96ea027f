#ifndef LIBCOMMON_IREGISTERSCONTEXT_H
#define LIBCOMMON_IREGISTERSCONTEXT_H

// One register of the target as a front end sees it: name, size, role, and
// a value that is read and written as bytes or as a number.

#include "libcommon/core/json_spirit.h"
#include "libcommon/icontextbase.h"

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <string>
#include <vector>

class IMemoryContext;

class IRegistersContext : public IContextBase {
public:
    // A named value of a register (for example one state of a mode field).
    // The library only passes lists of these along; plug-ins that describe
    // such values implement it.
    class INamedValue {
    public:
        virtual ~INamedValue() {}
        virtual std::string getName() = 0;
        virtual std::string getDescription() = 0;
        // The value's bytes, in the register's byte order.
        virtual std::vector<uint8_t> getValue() = 0;
    };

    typedef boost::signals2::signal<void(boost::shared_ptr<IRegistersContext>)>
        RegisterChangedSignal;

    virtual std::string getName() = 0;
    virtual std::string getDescription() = 0;
    // Size in bytes.
    virtual int getSize() = 0;
    virtual bool isReadable() = 0;
    virtual bool isReadOnce() = 0;
    virtual bool isWriteable() = 0;
    virtual bool isWriteOnce() = 0;
    virtual bool hasSideEffects() = 0;
    virtual bool isVolatile() = 0;
    virtual bool isFloat() = 0;
    virtual bool isBigEndian() = 0;
    virtual bool isLeftToRight() = 0;
    virtual int getFirstBitNumber() = 0;
    virtual std::vector<int> getBitNumbers() = 0;
    virtual std::vector<boost::shared_ptr<INamedValue>> getNamedValues() = 0;
    virtual uint64_t getMemoryAddress() = 0;
    virtual boost::shared_ptr<IMemoryContext> getMemoryContext() = 0;
    virtual std::vector<std::string> canSearch() = 0;
    // One of the role words ("PC", "SP", ...) or empty.
    virtual std::string getRole() = 0;
    virtual void get(std::vector<uint8_t>& bytes) = 0;
    virtual void set(const std::vector<uint8_t>& bytes) = 0;
    virtual std::vector<std::vector<std::string>> search(const json_spirit::Object& filter) = 0;
    // The register's value as a number, assembled in the register's byte order.
    virtual uint64_t getValue() = 0;
    virtual unsigned int getIndex() = 0;
    virtual boost::signals2::connection addRegisterChangedHandler(
        const RegisterChangedSignal::slot_type& handler) const = 0;
};

#endif
