#ifndef LIBCOMMON_IMEMORYCONTEXT_H
#define LIBCOMMON_IMEMORYCONTEXT_H

// One address space of a target as the debug context model sees it.

#include "libcommon/icontextbase.h"
#include "libcommon/iintermediateresult.h"

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class IProcessContext;
class IMemoryError;

// Path of a single memory access.
//   getMemory: AccessDirect reads past the write-back caches; every other
//              mode reads through them when there are any.
//   setMemory: AccessPlain, AccessPlainAlt1, AccessPlainAlt3 write plainly;
//              AccessVerify compares with the target and writes nothing;
//              AccessNoErase writes with "already erased" when the
//              environment allows it; AccessDirect is refused;
//              AccessPopulate only fills the caches with known content.
// The underlying type is fixed so that any int a caller passes is a valid
// value; unknown modes are refused at run time.
enum MemoryAccessMode : int {
    AccessPlain = 0,
    AccessPlainAlt1 = 1,
    AccessVerify = 2,
    AccessPlainAlt3 = 3,
    AccessNoErase = 4,
    AccessDirect = 5,
    AccessPopulate = 6
};

class IMemoryContext : public IContextBase {
public:
    // A cached region, as a persisting client stores it.
    struct PersistedMemSegment {
        std::uint64_t start;
        unsigned int size;
        unsigned int pageSize;
    };

    // Changed ranges as (address, size) pairs.
    typedef std::vector<std::pair<std::uint64_t, std::uint64_t>> ChangedRanges;
    typedef boost::signals2::signal<void(boost::shared_ptr<IMemoryContext>, const ChangedRanges&)>
        MemoryChangedSignal;

    virtual boost::shared_ptr<IProcessContext> getProcess() = 0;
    virtual bool isMemoryBigEndian() = 0;
    // Width of an address in bytes, 1 to 4.
    virtual int getMemoryAddressSize() = 0;
    virtual std::string getMemoryName() = 0;
    virtual std::uint64_t getMemoryStartBound() = 0;
    // The last valid address, not the first behind the space.
    virtual std::uint64_t getMemoryEndBound() = 0;
    virtual std::vector<std::string> getMemoryAccessTypes() = 0;

    // offset: where in buffer the bytes begin. error stays as it was when
    // every byte succeeded, so callers pass an empty pointer in.
    virtual void setMemory(std::uint64_t address, int accessSize,
                           const std::vector<unsigned char>& buffer, std::uint64_t offset,
                           std::uint64_t size, MemoryAccessMode mode,
                           IIntermediateResult* progress,
                           boost::shared_ptr<IMemoryError>& error) = 0;
    // buffer must already hold offset + size bytes.
    virtual void getMemory(std::uint64_t address, int accessSize,
                           std::vector<unsigned char>& buffer, std::uint64_t offset,
                           std::uint64_t size, MemoryAccessMode mode,
                           IIntermediateResult* progress,
                           boost::shared_ptr<IMemoryError>& error) = 0;
    virtual void fillMemory(std::uint64_t address, int accessSize,
                            const std::vector<unsigned char>& pattern, std::uint64_t size,
                            MemoryAccessMode mode, IIntermediateResult* progress,
                            boost::shared_ptr<IMemoryError>& error) = 0;

    virtual boost::signals2::connection addMemoryChangedHandler(
        const MemoryChangedSignal::slot_type& handler) const = 0;

    virtual void SetChipLocked(bool locked) = 0;

    virtual void defineCacheRegion(std::uint64_t address, unsigned int size,
                                   unsigned int pageSize) = 0;
    virtual void defineUncacheableRegion(std::uint64_t address, std::uint64_t size) = 0;
    virtual void commitCachedChanges(IIntermediateResult* progress,
                                     boost::shared_ptr<IMemoryError>& error) = 0;
    virtual void getPersistedSegments(std::vector<PersistedMemSegment>& segments) = 0;
};

#endif
