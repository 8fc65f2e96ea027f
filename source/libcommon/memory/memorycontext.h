#ifndef LIBCOMMON_MEMORY_MEMORYCONTEXT_H
#define LIBCOMMON_MEMORY_MEMORYCONTEXT_H

// One address space of a target: named, bounded, with a fixed address
// width, a stack of accessors below it and an optional layer of write-back
// caches (shadow pages) in front of that stack.
//
// Reads and writes wrap around the top of the address bus. Writes pass the
// guards first: a locked chip refuses everything, a read-only space marks
// the bytes as failed, and a protected bootloader area is never written.
// The context takes no lock of its own; callers serialise access to a
// target.

#include "libcommon/context/contextbase.h"
#include "libcommon/didevice.h"
#include "libcommon/imemoryaccessor.h"
#include "libcommon/imemorycontext.h"
#include "libcommon/itarntarget.h"

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <boost/weak_ptr.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class AggregatingMemoryAccessor;
class IProcessContext;
class ShadowMemoryAccessor;

class MemoryContext : public ContextBase<IMemoryContext> {
public:
    // A value that reads over the memory, whatever the target holds there.
    struct FixedContent {
        uint64_t address;
        unsigned short value;
    };

    // Without an accessor, for subclasses that override setMemoryImpl and
    // getMemoryImpl. reserved is accepted and not used.
    MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                  boost::shared_ptr<IProcessContext> process, bool bigEndian, int addressSize,
                  int reserved, const std::string& name, uint64_t startBound,
                  uint64_t memorySize, const std::vector<std::string>& accessTypes,
                  bool readOnly);
    // Over an accessor stack; the whole range is mapped uncached.
    MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                  boost::shared_ptr<IProcessContext> process,
                  boost::shared_ptr<IMemoryAccessor> accessor, bool bigEndian, int addressSize,
                  int reserved, const std::string& name, uint64_t startBound,
                  uint64_t memorySize, const std::vector<std::string>& accessTypes,
                  bool readOnly, bool chipLocked);
    // As above, with a bootloader area that writes never touch.
    MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                  boost::shared_ptr<IProcessContext> process,
                  boost::shared_ptr<IMemoryAccessor> accessor, bool bigEndian, int addressSize,
                  int reserved, const std::string& name, uint64_t startBound,
                  uint64_t memorySize, uint64_t bootloaderStart, uint64_t bootloaderSize,
                  const std::vector<std::string>& accessTypes, bool readOnly, bool chipLocked);
    // Everything from the device description; the accessor stack is built
    // for the device's core family over the target. No region is mapped
    // until defineCacheRegion or defineUncacheableRegion is called; until
    // then reads and writes go straight to the stack.
    MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                  boost::shared_ptr<IProcessContext> process, const std::string& name,
                  boost::shared_ptr<DIDevice> device, boost::shared_ptr<ITarn8Target> target,
                  bool isDebugModeAccess);

    // IContextBase
    json_spirit::Object getProperties() override;

    // IMemoryContext
    boost::shared_ptr<IProcessContext> getProcess() override;
    bool isMemoryBigEndian() override;
    int getMemoryAddressSize() override;
    std::string getMemoryName() override;
    uint64_t getMemoryStartBound() override;
    uint64_t getMemoryEndBound() override;
    std::vector<std::string> getMemoryAccessTypes() override;
    void setMemory(uint64_t address, int accessSize, const std::vector<unsigned char>& buffer,
                   uint64_t offset, uint64_t size, MemoryAccessMode mode,
                   IIntermediateResult* progress,
                   boost::shared_ptr<IMemoryError>& error) override;
    void getMemory(uint64_t address, int accessSize, std::vector<unsigned char>& buffer,
                   uint64_t offset, uint64_t size, MemoryAccessMode mode,
                   IIntermediateResult* progress,
                   boost::shared_ptr<IMemoryError>& error) override;
    void fillMemory(uint64_t address, int accessSize, const std::vector<unsigned char>& pattern,
                    uint64_t size, MemoryAccessMode mode, IIntermediateResult* progress,
                    boost::shared_ptr<IMemoryError>& error) override;
    boost::signals2::connection addMemoryChangedHandler(
        const MemoryChangedSignal::slot_type& handler) const override;
    void SetChipLocked(bool locked) override;
    void defineCacheRegion(uint64_t address, unsigned int size, unsigned int pageSize) override;
    void defineUncacheableRegion(uint64_t address, uint64_t size) override;
    void commitCachedChanges(IIntermediateResult* progress,
                             boost::shared_ptr<IMemoryError>& error) override;
    void getPersistedSegments(std::vector<PersistedMemSegment>& segments) override;

    // Own virtual operations.
    virtual void addFixedMemoryContent(uint64_t address, unsigned short value);
    virtual void removeFixedMemoryContent(uint64_t address);
    virtual void memoryChanged(const ChangedRanges& ranges);
    virtual void memoryChanged(uint64_t address, uint64_t size);

    // One side of a request that does not wrap around the bus.
    void getMemoryNoStraddle(uint64_t address, int accessSize, std::vector<unsigned char>& buffer,
                             uint64_t offset, uint64_t size, MemoryAccessMode mode,
                             IIntermediateResult* progress,
                             boost::shared_ptr<IMemoryError>& error);
    void setMemoryNoStraddle(uint64_t address, int accessSize,
                             const std::vector<unsigned char>& buffer, uint64_t offset,
                             uint64_t size, MemoryAccessMode mode, IIntermediateResult* progress,
                             boost::shared_ptr<IMemoryError>& error);

    // Erases through the stack, past the caches and all guards. The shadow
    // pages keep what they hold.
    void erase(uint64_t address, uint64_t size);

    // Mask of the address bus: 0xFF for one address byte up to 0xFFFFFFFF
    // for four. Any other width throws the C string "Unhandled bus width".
    uint64_t getBusMask() const;

    // Takes name, endianness, bounds, address width and read-only state from
    // the device description. The bool is accepted and not used.
    void setUpMemoryContext(const std::string& name, boost::shared_ptr<DIDevice> device,
                            bool isDebugModeAccess);

protected:
    virtual void setMemoryImpl(uint64_t address, int accessSize,
                               const std::vector<unsigned char>& buffer, uint64_t offset,
                               uint64_t size, MemoryAccessMode mode,
                               IIntermediateResult* progress,
                               boost::shared_ptr<MemoryError> error);
    virtual void getMemoryImpl(uint64_t address, int accessSize,
                               std::vector<unsigned char>& buffer, uint64_t offset,
                               uint64_t size, MemoryAccessMode mode,
                               IIntermediateResult* progress,
                               boost::shared_ptr<MemoryError> error);

    bool bootloaderCollision(uint64_t address, uint64_t size, uint64_t& collisionStart,
                             uint64_t& collisionSize);
    void handleBootloaderMemory(uint64_t address, int accessSize,
                                const std::vector<unsigned char>& buffer, uint64_t offset,
                                uint64_t size, MemoryAccessMode mode,
                                IIntermediateResult* progress,
                                boost::shared_ptr<MemoryError> error);
    // std::runtime_error when the range leaves the memory or breaks the
    // alignment of accessSize (0: no alignment).
    void throwIfMemoryAccessNotValid(uint64_t address, int size, int accessSize);
    // The context's own bounds check, for contexts without an accessor:
    // strips and marks MEM_UNKNOWN what lies outside the memory.
    void adjustRange(uint64_t& address, uint64_t& size, uint64_t* offset,
                     const boost::shared_ptr<MemoryError>& error);

    boost::shared_ptr<IMemoryAccessor> getAccessor() const { return accessor; }
    const std::vector<boost::shared_ptr<ShadowMemoryAccessor>>& getShadows() const {
        return shadows;
    }

private:
    boost::shared_ptr<IMemoryAccessor> buildClassicAccessor(const std::string& name,
                                                            boost::shared_ptr<DIDevice> device,
                                                            boost::shared_ptr<ITarn8Target> target,
                                                            bool isDebugModeAccess);
    boost::shared_ptr<IMemoryAccessor> buildOrbitAccessor(const std::string& name,
                                                          boost::shared_ptr<DIDevice> device,
                                                          boost::shared_ptr<ITarn8Target> target,
                                                          bool isDebugModeAccess);
    boost::shared_ptr<IMemoryAccessor> buildSprigAccessor(const std::string& name,
                                                          boost::shared_ptr<DIDevice> device,
                                                          boost::shared_ptr<ITarn8Target> target,
                                                          bool isDebugModeAccess);

    boost::weak_ptr<IProcessContext> process;
    bool bigEndian;
    int addressSize;
    std::string name;
    uint64_t startBound;
    uint64_t memorySize;
    std::vector<std::string> accessTypes;
    bool readOnly;
    bool chipLocked;
    bool hasBootloader;
    uint64_t bootloaderStart;
    uint64_t bootloaderSize;
    std::vector<FixedContent> fixedContent;
    mutable MemoryChangedSignal memoryChangedSignal;
    boost::shared_ptr<IMemoryAccessor> accessor;
    std::vector<boost::shared_ptr<ShadowMemoryAccessor>> shadows;
    boost::shared_ptr<AggregatingMemoryAccessor> cachedAccessor;
};

#endif
