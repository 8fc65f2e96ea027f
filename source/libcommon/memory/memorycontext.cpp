#include "libcommon/memory/memorycontext.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/device/didevicehelper.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/memory/memoryaccessors.h"
#include "libcommon/memory/shadowmemoryaccessor.h"
#include "libcommon/memory/targetaccessors.h"
#include "libcommon/stringconstants.h"

#include <boost/algorithm/string/case_conv.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace {

typedef boost::shared_ptr<IMemoryAccessor> AccessorPtr;
typedef ITarn8Target::MemoryType MemType;

const std::string LOG_CHANNEL = "MemoryContext";
const std::string COMMIT_LOG_CHANNEL = "mem";
const char* const ALLOW_WRITES_WITHOUT_ERASE = "VELMORA_BACKEND_ALLOW_WRITES_WITHOUT_ERASE";

MemType memType(int value) { return static_cast<MemType>(value); }

// A transfer limit of 0 would make every chunked access loop forever or
// divide by zero further down; a target that reports one is set up wrongly.
AccessorPtr chunked(AccessorPtr inner, unsigned int chunkSize) {
    if (chunkSize == 0)
        CoreException::createAndThrow("", ERR_DEVICE_SETUP,
                                      "The target reports a memory transfer limit of 0.");
    return boost::make_shared<ChunkedMemoryAccessor>(inner, chunkSize);
}

AccessorPtr paged(AccessorPtr inner, unsigned int pageSize, bool erasePages,
                  const std::string& what) {
    if (pageSize == 0)
        CoreException::createAndThrow("", ERR_DEVICE_INFO,
                                      "The device file gives no page size for %s.", what.c_str());
    return boost::make_shared<PagedMemoryAccessor>(inner, pageSize, erasePages, false);
}

AccessorPtr bounded(AccessorPtr inner, uint64_t base, uint64_t size, const std::string& what) {
    if (size == 0)
        CoreException::createAndThrow("", ERR_DEVICE_INFO,
                                      "The device file gives %s a size of 0.", what.c_str());
    return boost::make_shared<BoundedMemoryAccessor>(inner, base, size, 0);
}

AccessorPtr simpleTarget(boost::shared_ptr<ITarn8Target> target, int readType, int writeType,
                         bool pageErase) {
    return boost::make_shared<SimpleTarn8MemoryAccessor>(target, memType(readType),
                                                         memType(writeType), pageErase);
}

// Target accessor, window, chunks: for memories that take any byte range.
AccessorPtr simpleStack(boost::shared_ptr<ITarn8Target> target, int readType, int writeType,
                        bool pageErase, uint64_t base, uint64_t size, unsigned int chunkSize,
                        const std::string& what) {
    AccessorPtr stack = simpleTarget(target, readType, writeType, pageErase);
    stack = bounded(stack, base, size, what);
    return chunked(stack, chunkSize);
}

// Target accessor, window, chunks where a page is larger than one transfer,
// and whole pages on top: for memories that are programmed page by page.
AccessorPtr pageStack(boost::shared_ptr<ITarn8Target> target, int readType, int writeType,
                      bool pageErase, uint64_t base, uint64_t size, unsigned int chunkSize,
                      unsigned int pageSize, bool erasePages, const std::string& what) {
    AccessorPtr stack = simpleTarget(target, readType, writeType, pageErase);
    stack = bounded(stack, base, size, what);
    if (chunkSize < pageSize)
        stack = chunked(stack, chunkSize);
    return paged(stack, pageSize, erasePages, what);
}

// Program memory: pages over the target, and the flash window outermost so
// that nothing outside the flash reaches the page layer.
AccessorPtr programStack(AccessorPtr bottom, bool chunk, unsigned int chunkSize,
                         unsigned int pageSize, bool erasePages, uint64_t flashSize) {
    AccessorPtr stack = bottom;
    if (chunk)
        stack = chunked(stack, chunkSize);
    stack = paged(stack, pageSize, erasePages, ADDRSPACE_PROG);
    return bounded(stack, 0, flashSize, ADDRSPACE_PROG);
}

struct FlashGeometry {
    uint64_t flashSize = 0;
    unsigned int pageSize = 0;
};

FlashGeometry flashGeometry(boost::shared_ptr<DIDevice> device) {
    FlashGeometry geometry;
    int pageSize = 0;
    DIDeviceHelper::getFlashAttributes(device, &geometry.flashSize, &pageSize, nullptr);
    geometry.pageSize = pageSize > 0 ? static_cast<unsigned int>(pageSize) : 0;
    return geometry;
}

unsigned int spacePageSize(const std::string& name, boost::shared_ptr<DIDevice> device) {
    int pageSize = 0;
    DIDeviceHelper::getAddressSpacePageSize(name, device, &pageSize);
    return pageSize > 0 ? static_cast<unsigned int>(pageSize) : 0;
}

struct Window {
    uint64_t start = 0;
    uint64_t size = 0;
};

Window spaceWindow(const std::string& name, boost::shared_ptr<DIDevice> device) {
    Window window;
    DIDeviceHelper::getAddressSpaceAttributes(name, device, &window.start, &window.size);
    return window;
}

// The span of the data segments; the whole space when it has no segments.
Window dataWindow(boost::shared_ptr<DIDevice> device) {
    uint64_t start = 0;
    uint64_t end = 0;
    if (DIDeviceHelper::getDataMemoryAttributes(device, &start, &end)) {
        Window window;
        window.start = start;
        window.size = end - start;
        return window;
    }
    return spaceWindow(ADDRSPACE_DATA, device);
}

void requireDeclaredSpace(const std::string& name, boost::shared_ptr<DIDevice> device) {
    if (!device->getAddressSpace(name))
        CoreException::createAndThrow("", ERR_NOT_DECLARED,
                                      "The address space %s is not declared in the device file.",
                                      name.c_str());
}

// The data space exists only while the core is stopped under a debugger;
// a programming session has no way to it.
void requireDebugAccess(const std::string& name, bool isDebugModeAccess) {
    if (!isDebugModeAccess)
        CoreException::createAndThrow(
            "", ERR_NOT_SUPPORTED,
            "The address space %s can only be accessed in a debug session.", name.c_str());
}

// The accessor of one data-space segment of the Sprig family, at the
// segment's own addresses; empty for segments that cannot be accessed.
AccessorPtr sprigSegmentAccessor(boost::shared_ptr<DIMemorySegment> segment,
                                 boost::shared_ptr<ITarn8Target> target, unsigned int chunkSize) {
    const std::string segmentName = segment->getName();
    const uint64_t start = segment->getStart();
    const uint64_t size = segment->getSize();
    const unsigned int pageSize = segment->getPageSize();

    if (segmentName == SEGMENT_IO || segmentName == SEGMENT_INTERNAL_SRAM ||
        segmentName == SEGMENT_VGA)
        return simpleStack(target, 6, 6, false, start, size, chunkSize, segmentName);
    if (segmentName == SEGMENT_SIGNATURES)
        return simpleStack(target, 4, 4, false, start, size, chunkSize, segmentName);
    if (segmentName == SEGMENT_PROD_SIGNATURES)
        return simpleStack(target, 15, 15, false, start, size, chunkSize, segmentName);
    if (segmentName == SEGMENT_FUSES)
        return boost::make_shared<ByteWriteMemoryAccessor>(
            simpleStack(target, 2, 2, false, start, size, chunkSize, segmentName));
    if (segmentName == SEGMENT_LOCKBITS)
        return boost::make_shared<ByteWriteMemoryAccessor>(
            simpleStack(target, 3, 3, false, start, size, chunkSize, segmentName));
    if (segmentName == SEGMENT_USER_SIGNATURES)
        return pageStack(target, 14, 14, false, start, size, chunkSize, pageSize, false,
                         segmentName);
    if (segmentName == SEGMENT_EEPROM)
        return pageStack(target, 7, 13, false, start, size, chunkSize, pageSize, false,
                         segmentName);
    return AccessorPtr();
}

unsigned int sprigChunkSize(boost::shared_ptr<DIMemorySegment> segment,
                            const ITarn8Target::TransferLimits& limits) {
    return segment->getPageSize() != 0 ? limits.first : limits.second;
}

// The record of a request that wraps around the top of the bus: the marks
// of the part at 0 and of the part below the top in one record, so that the
// second part does not hide the failures of the first.
boost::shared_ptr<IMemoryError> joinParts(const boost::shared_ptr<IMemoryError>& low,
                                          const boost::shared_ptr<IMemoryError>& high) {
    boost::shared_ptr<MemoryError> lowRecord = boost::dynamic_pointer_cast<MemoryError>(low);
    boost::shared_ptr<MemoryError> highRecord = boost::dynamic_pointer_cast<MemoryError>(high);
    if (!lowRecord || !highRecord)
        return high ? high : low;
    boost::shared_ptr<MemoryError> joined = boost::make_shared<MemoryError>(*lowRecord);
    for (const MemoryError::Record& record : highRecord->getRecords())
        joined->setStatus(record.address, record.size, record.status);
    return joined;
}

// Runs part(address, offset, size, error) once for a request that stays
// below the top of the bus, or twice for one that wraps around it: first for
// the bytes from address 0, which go behind the tail of the request in the
// buffer, then for the tail itself. The marks of both parts reach the caller.
template <class Part>
void splitAtBusTop(uint64_t address, uint64_t offset, uint64_t size, uint64_t mask,
                   boost::shared_ptr<IMemoryError>& error, Part part) {
    const uint64_t first = address & mask;
    const uint64_t last = (first + size - 1) & mask;
    if (first <= last) {
        part(first, offset, size, error);
        return;
    }
    const uint64_t tail = size - last - 1;
    boost::shared_ptr<IMemoryError> low;
    boost::shared_ptr<IMemoryError> high;
    part(0, offset + tail, last + 1, low);
    if (low)
        error = low;
    part(first, offset, tail, high);
    if (high)
        error = joinParts(low, high);
}

void logInfo(const std::string& text) {
    if (gLogMask & LOG_MASK_INFO)
        BackendLogger::info(LOG_CHANNEL, text);
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction

MemoryContext::MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                             boost::shared_ptr<IProcessContext> process, bool bigEndian,
                             int addressSize, int /*reserved*/, const std::string& name,
                             uint64_t startBound, uint64_t memorySize,
                             const std::vector<std::string>& accessTypes, bool readOnly)
    : ContextBase<IMemoryContext>(makeMemoryContextId(name), parent),
      process(process),
      bigEndian(bigEndian),
      addressSize(addressSize),
      name(name),
      startBound(startBound),
      memorySize(memorySize),
      accessTypes(accessTypes),
      readOnly(readOnly),
      chipLocked(false),
      hasBootloader(false),
      bootloaderStart(0),
      bootloaderSize(0) {}

MemoryContext::MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                             boost::shared_ptr<IProcessContext> process,
                             boost::shared_ptr<IMemoryAccessor> accessor, bool bigEndian,
                             int addressSize, int /*reserved*/, const std::string& name,
                             uint64_t startBound, uint64_t memorySize,
                             const std::vector<std::string>& accessTypes, bool readOnly,
                             bool chipLocked)
    : ContextBase<IMemoryContext>(makeMemoryContextId(name), parent),
      process(process),
      bigEndian(bigEndian),
      addressSize(addressSize),
      name(name),
      startBound(startBound),
      memorySize(memorySize),
      accessTypes(accessTypes),
      readOnly(readOnly),
      chipLocked(chipLocked),
      hasBootloader(false),
      bootloaderStart(0),
      bootloaderSize(0),
      accessor(accessor) {
    defineUncacheableRegion(startBound, memorySize);
}

MemoryContext::MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                             boost::shared_ptr<IProcessContext> process,
                             boost::shared_ptr<IMemoryAccessor> accessor, bool bigEndian,
                             int addressSize, int /*reserved*/, const std::string& name,
                             uint64_t startBound, uint64_t memorySize, uint64_t bootloaderStart,
                             uint64_t bootloaderSize,
                             const std::vector<std::string>& accessTypes, bool readOnly,
                             bool chipLocked)
    : ContextBase<IMemoryContext>(makeMemoryContextId(name), parent),
      process(process),
      bigEndian(bigEndian),
      addressSize(addressSize),
      name(name),
      startBound(startBound),
      memorySize(memorySize),
      accessTypes(accessTypes),
      readOnly(readOnly),
      chipLocked(chipLocked),
      hasBootloader(true),
      bootloaderStart(bootloaderStart),
      bootloaderSize(bootloaderSize),
      accessor(accessor) {
    defineUncacheableRegion(startBound, memorySize);
}

MemoryContext::MemoryContext(boost::shared_ptr<IMemoryContext> parent,
                             boost::shared_ptr<IProcessContext> process, const std::string& name,
                             boost::shared_ptr<DIDevice> device,
                             boost::shared_ptr<ITarn8Target> target, bool isDebugModeAccess)
    : ContextBase<IMemoryContext>(makeMemoryContextId(name), parent),
      process(process),
      bigEndian(false),
      addressSize(1),
      name(name),
      startBound(0),
      memorySize(0),
      readOnly(false),
      chipLocked(false),
      hasBootloader(false),
      bootloaderStart(0),
      bootloaderSize(0) {
    if (!device)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "No device description for memory %s.", name.c_str());
    if (!target)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT, "No target for memory %s.",
                                      name.c_str());
    setUpMemoryContext(name, device, isDebugModeAccess);
    if (DIDeviceHelper::isOrbit(device))
        accessor = buildOrbitAccessor(name, device, target, isDebugModeAccess);
    else if (DIDeviceHelper::isArch4(device))
        accessor = buildSprigAccessor(name, device, target, isDebugModeAccess);
    else
        accessor = buildClassicAccessor(name, device, target, isDebugModeAccess);
}

void MemoryContext::setUpMemoryContext(const std::string& spaceName,
                                       boost::shared_ptr<DIDevice> device, bool) {
    name = spaceName;
    boost::shared_ptr<DIAddressSpace> space = device->getAddressSpace(spaceName);
    if (space) {
        bigEndian = space->isBigEndian();
        startBound = space->getStart();
        memorySize = space->getSize();
    } else {
        // Memories that are a segment of some space (the eeprom of a chip
        // that maps it into its data space, say) count from 0.
        bool found = false;
        for (const auto& candidate : device->getAddressSpaces()) {
            for (const auto& segment : candidate->getMemorySegments()) {
                if (boost::algorithm::to_lower_copy(segment->getName()) == spaceName) {
                    bigEndian = candidate->isBigEndian();
                    startBound = 0;
                    memorySize = segment->getSize();
                    found = true;
                    break;
                }
            }
            if (found)
                break;
        }
        if (!found)
            CoreException::createAndThrow("", ERR_OPERATION_FAILED,
                                          "Could not find address space %s in device XML file.",
                                          spaceName.c_str());
    }

    const uint64_t last = startBound + memorySize - 1;
    if (last < 0x100)
        addressSize = 1;
    else if (last < 0x10000)
        addressSize = 2;
    else if (last < 0x1000000)
        addressSize = 3;
    else
        addressSize = 4;

    if (spaceName == ADDRSPACE_DATA || spaceName == ADDRSPACE_EEPROM ||
        spaceName == ADDRSPACE_FUSES || spaceName == ADDRSPACE_LOCKBITS ||
        spaceName == ADDRSPACE_PROG || spaceName == ADDRSPACE_USER_SIGNATURES ||
        spaceName == ADDRSPACE_BASE)
        readOnly = false;
    else if (spaceName == ADDRSPACE_SIGNATURES || spaceName == ADDRSPACE_PROD_SIGNATURES ||
             spaceName == ADDRSPACE_OSCCAL)
        readOnly = true;
}

boost::shared_ptr<IMemoryAccessor> MemoryContext::buildClassicAccessor(
    const std::string& spaceName, boost::shared_ptr<DIDevice> device,
    boost::shared_ptr<ITarn8Target> target, bool isDebugModeAccess) {
    requireDeclaredSpace(spaceName, device);
    const ITarn8Target::TransferLimits limits = target->getMemoryTransferLimits();
    const unsigned int pagedMax = limits.first;
    const unsigned int plainMax = limits.second;

    if (spaceName == ADDRSPACE_PROG) {
        const FlashGeometry flash = flashGeometry(device);
        if (isDebugModeAccess)
            return programStack(simpleTarget(target, 8, 0, false), pagedMax < flash.pageSize,
                                pagedMax, flash.pageSize, false, flash.flashSize);
        return pageStack(target, 0, 0, false, 0, flash.flashSize, pagedMax, flash.pageSize, false,
                         spaceName);
    }
    if (spaceName == ADDRSPACE_DATA) {
        requireDebugAccess(spaceName, isDebugModeAccess);
        const Window window = dataWindow(device);
        return simpleStack(target, 6, 6, false, window.start, window.size, plainMax, spaceName);
    }
    const Window window = spaceWindow(spaceName, device);
    if (spaceName == ADDRSPACE_EEPROM) {
        const int eepromType =
            (isDebugModeAccess || DIDeviceHelper::hasMonoLink(device)) ? 7 : 1;
        if (isDebugModeAccess)
            return simpleStack(target, eepromType, eepromType, false, window.start, window.size,
                               pagedMax, spaceName);
        return pageStack(target, eepromType, eepromType, false, window.start, window.size,
                         pagedMax, spacePageSize(spaceName, device), false, spaceName);
    }
    if (spaceName == ADDRSPACE_FUSES)
        return simpleStack(target, 2, 2, false, window.start, window.size, pagedMax, spaceName);
    if (spaceName == ADDRSPACE_LOCKBITS)
        return simpleStack(target, 3, 3, false, window.start, window.size, pagedMax, spaceName);
    if (spaceName == ADDRSPACE_SIGNATURES)
        return simpleStack(target, 4, 4, false, window.start, window.size, pagedMax, spaceName);
    if (spaceName == ADDRSPACE_USER_SIGNATURES)
        return pageStack(target, 14, 14, true, window.start, window.size, pagedMax,
                         spacePageSize(spaceName, device), false, spaceName);
    if (spaceName == ADDRSPACE_OSCCAL)
        return simpleStack(target, 5, 5, false, window.start, window.size, pagedMax, spaceName);
    CoreException::createAndThrow("", ERR_NOT_DECLARED,
                                  "Unsupported address space name for classic TARN8.");
}

boost::shared_ptr<IMemoryAccessor> MemoryContext::buildOrbitAccessor(
    const std::string& spaceName, boost::shared_ptr<DIDevice> device,
    boost::shared_ptr<ITarn8Target> target, bool isDebugModeAccess) {
    requireDeclaredSpace(spaceName, device);
    const ITarn8Target::TransferLimits limits = target->getMemoryTransferLimits();
    const unsigned int pagedMax = limits.first;
    const unsigned int plainMax = limits.second;

    if (spaceName == ADDRSPACE_PROG) {
        const FlashGeometry flash = flashGeometry(device);
        // Without a boot section the range stays empty and everything goes
        // to the application flash.
        uint64_t bootStart = 0;
        unsigned int bootSize = 0;
        DIDeviceHelper::getOrbitBootAttributes(device, &bootStart, &bootSize);
        CompositeMemoryAccessor::AddressRange bootRange;
        bootRange.start = bootStart;
        bootRange.end = bootStart + bootSize;
        AccessorPtr flashAccessor = boost::make_shared<CompositeMemoryAccessor>(
            simpleTarget(target, 10, 10, true), simpleTarget(target, 9, 9, true), bootRange,
            -static_cast<int>(bootStart));
        return programStack(flashAccessor, isDebugModeAccess || pagedMax < flash.pageSize,
                            pagedMax, flash.pageSize, true, flash.flashSize);
    }
    if (spaceName == ADDRSPACE_DATA) {
        requireDebugAccess(spaceName, isDebugModeAccess);
        const Window window = dataWindow(device);
        return simpleStack(target, 6, 6, false, window.start, window.size, plainMax, spaceName);
    }
    const Window window = spaceWindow(spaceName, device);
    if (spaceName == ADDRSPACE_EEPROM)
        return pageStack(target, 7, isDebugModeAccess ? 13 : 7, true, window.start, window.size,
                         pagedMax, spacePageSize(spaceName, device), false, spaceName);
    if (spaceName == ADDRSPACE_FUSES)
        return simpleStack(target, 2, 2, true, window.start, window.size, 1, spaceName);
    if (spaceName == ADDRSPACE_LOCKBITS)
        return simpleStack(target, 3, 3, true, window.start, window.size, pagedMax, spaceName);
    if (spaceName == ADDRSPACE_SIGNATURES)
        return simpleStack(target, 4, 4, true, 0, 3, pagedMax, spaceName);
    if (spaceName == ADDRSPACE_USER_SIGNATURES) {
        const FlashGeometry flash = flashGeometry(device);
        return pageStack(target, 14, 14, true, 0, flash.flashSize, pagedMax, flash.pageSize, true,
                         spaceName);
    }
    if (spaceName == ADDRSPACE_PROD_SIGNATURES) {
        const FlashGeometry flash = flashGeometry(device);
        return simpleStack(target, 15, 15, true, 0, flash.pageSize, pagedMax, spaceName);
    }
    if (spaceName == ADDRSPACE_OSCCAL)
        return simpleStack(target, 5, 5, true, window.start, window.size, pagedMax, spaceName);
    CoreException::createAndThrow("", ERR_NOT_DECLARED,
                                  "Unsupported address space name for TARN Orbit.");
}

boost::shared_ptr<IMemoryAccessor> MemoryContext::buildSprigAccessor(
    const std::string& spaceName, boost::shared_ptr<DIDevice> device,
    boost::shared_ptr<ITarn8Target> target, bool isDebugModeAccess) {
    const ITarn8Target::TransferLimits limits = target->getMemoryTransferLimits();
    const unsigned int pagedMax = limits.first;

    if (spaceName == ADDRSPACE_PROG) {
        const FlashGeometry flash = flashGeometry(device);
        return programStack(simpleTarget(target, 9, 9, true),
                            isDebugModeAccess || pagedMax < flash.pageSize, pagedMax,
                            flash.pageSize, true, flash.flashSize);
    }

    boost::shared_ptr<DIAddressSpace> data = device->getAddressSpace(ADDRSPACE_DATA);
    std::vector<boost::shared_ptr<DIMemorySegment>> segments;
    if (data)
        segments = data->getMemorySegments();

    if (spaceName == ADDRSPACE_DATA) {
        // Every segment at its own addresses; what no segment covers reads
        // as unknown.
        auto map = boost::make_shared<AggregatingMemoryAccessor>(
            std::vector<AggregatingMemoryAccessor::Entry>());
        for (const auto& segment : segments) {
            AccessorPtr segmentAccessor =
                sprigSegmentAccessor(segment, target, sprigChunkSize(segment, limits));
            if (!segmentAccessor)
                continue;
            AggregatingMemoryAccessor::AddressRange range;
            range.start = segment->getStart();
            range.end = segment->getStart() + segment->getSize();
            map->addRange(AggregatingMemoryAccessor::Entry(range, segmentAccessor));
        }
        return map;
    }

    // Any other memory is one segment of the data space, counted from 0.
    for (const auto& segment : segments) {
        if (boost::algorithm::to_lower_copy(segment->getName()) != spaceName)
            continue;
        AccessorPtr segmentAccessor =
            sprigSegmentAccessor(segment, target, sprigChunkSize(segment, limits));
        // A segment of that name that has no way to the target is as good
        // as none.
        if (!segmentAccessor)
            break;
        return boost::make_shared<OffsettingMemoryAccessor>(segmentAccessor, segment->getStart());
    }
    CoreException::createAndThrow("", ERR_NOT_DECLARED,
                                  "Unsupported address space name for TARN Sprig.");
}

// ---------------------------------------------------------------------------
// Description

json_spirit::Object MemoryContext::getProperties() {
    json_spirit::Object properties = ContextBase<IMemoryContext>::getProperties();
    boost::shared_ptr<IProcessContext> owner = process.lock();
    if (owner)
        properties.push_back(json_spirit::Pair(MEMCTX_PROCESS_ID, owner->getId()));
    properties.push_back(json_spirit::Pair(MEMCTX_BIG_ENDIAN, bigEndian));
    properties.push_back(json_spirit::Pair(MEMCTX_ADDRESS_SIZE, addressSize));
    properties.push_back(json_spirit::Pair(MEMCTX_NAME, name));
    properties.push_back(
        json_spirit::Pair(MEMCTX_START_BOUND, static_cast<long long>(startBound)));
    properties.push_back(
        json_spirit::Pair(MEMCTX_END_BOUND, static_cast<long long>(getMemoryEndBound())));
    if (hasBootloader) {
        properties.push_back(json_spirit::Pair(MEMCTX_BOOTLOADER_START_ADDR,
                                               static_cast<unsigned long long>(bootloaderStart)));
        properties.push_back(json_spirit::Pair(MEMCTX_BOOTLOADER_SIZE,
                                               static_cast<unsigned long long>(bootloaderSize)));
    }
    if (!accessTypes.empty()) {
        json_spirit::Array types;
        for (const auto& type : accessTypes)
            types.push_back(json_spirit::Value(type));
        properties.push_back(json_spirit::Pair(MEMCTX_ACCESS_TYPES, types));
    }
    return properties;
}

boost::shared_ptr<IProcessContext> MemoryContext::getProcess() { return process.lock(); }
bool MemoryContext::isMemoryBigEndian() { return bigEndian; }
int MemoryContext::getMemoryAddressSize() { return addressSize; }
std::string MemoryContext::getMemoryName() { return name; }
uint64_t MemoryContext::getMemoryStartBound() { return startBound; }
uint64_t MemoryContext::getMemoryEndBound() { return startBound + memorySize - 1; }
std::vector<std::string> MemoryContext::getMemoryAccessTypes() { return accessTypes; }

uint64_t MemoryContext::getBusMask() const {
    switch (addressSize) {
    case 1: return 0xFF;
    case 2: return 0xFFFF;
    case 3: return 0xFFFFFF;
    case 4: return 0xFFFFFFFF;
    default: throw "Unhandled bus width";
    }
}

// ---------------------------------------------------------------------------
// Reading

void MemoryContext::getMemory(uint64_t address, int accessSize,
                              std::vector<unsigned char>& buffer, uint64_t offset, uint64_t size,
                              MemoryAccessMode mode, IIntermediateResult* progress,
                              boost::shared_ptr<IMemoryError>& error) {
    const uint64_t mask = getBusMask();
    // size - 1 wraps for a size of 0, which is refused with the rest.
    // The layers below count in 32 bits: a full 4 GiB request on a 32-bit
    // bus would reach them as 0 bytes and read nothing, so it is refused.
    if (size - 1 > mask || size > 0xFFFFFFFFull)
        CoreException::createAndThrow("", ERR_ACCESS_REFUSED,
                                      "Cannot read memory. Read request too large.");
    // Callers pre-size the buffer; a short one would be written past its end.
    if (offset > buffer.size() || size > buffer.size() - offset)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "Cannot read memory. Buffer too small for the request.");
    splitAtBusTop(address, offset, size, mask, error,
                  [&](uint64_t a, uint64_t o, uint64_t n, boost::shared_ptr<IMemoryError>& e) {
                      getMemoryNoStraddle(a, accessSize, buffer, o, n, mode, progress, e);
                  });
}

void MemoryContext::getMemoryNoStraddle(uint64_t address, int accessSize,
                                        std::vector<unsigned char>& buffer, uint64_t offset,
                                        uint64_t size, MemoryAccessMode mode,
                                        IIntermediateResult* progress,
                                        boost::shared_ptr<IMemoryError>& error) {
    if (chipLocked)
        CoreException::createAndThrow("", ERR_ACCESS_REFUSED,
                                      "Cannot read memory. Security bit is set.");
    // Also callable on its own, so it guards the buffer itself.
    if (offset > buffer.size() || size > buffer.size() - offset)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "Cannot read memory. Buffer too small for the request.");
    boost::shared_ptr<MemoryError> memoryError = boost::make_shared<MemoryError>();
    if (!accessor)
        adjustRange(address, size, &offset, memoryError);
    getMemoryImpl(address, accessSize, buffer, offset, size, mode, progress, memoryError);
    if (!memoryError->isOk())
        error = memoryError;

    const uint64_t end = address + size;
    for (const FixedContent& fixed : fixedContent) {
        if (fixed.address < address || fixed.address >= end)
            continue;
        const uint64_t position = offset + (fixed.address - address);
        if (fixed.address + 1 == end) {
            buffer[position] = static_cast<unsigned char>(fixed.value & 0xFF);
        } else {
            buffer[position] = static_cast<unsigned char>(fixed.value >> 8);
            buffer[position + 1] = static_cast<unsigned char>(fixed.value & 0xFF);
        }
    }
}

void MemoryContext::getMemoryImpl(uint64_t address, int /*accessSize*/,
                                  std::vector<unsigned char>& buffer, uint64_t offset,
                                  uint64_t size, MemoryAccessMode mode,
                                  IIntermediateResult* progress,
                                  boost::shared_ptr<MemoryError> error) {
    if (size == 0)
        return;
    AccessorPtr path = (mode == AccessDirect || !cachedAccessor)
                           ? accessor
                           : boost::static_pointer_cast<IMemoryAccessor>(cachedAccessor);
    if (!path)
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                      "Memory %s has no accessor to read through.", name.c_str());
    path->read(address, static_cast<unsigned int>(size), buffer.begin() + offset, error,
               progress);
}

void MemoryContext::adjustRange(uint64_t& address, uint64_t& size, uint64_t* offset,
                                const boost::shared_ptr<MemoryError>& error) {
    uint64_t skipped = 0;
    if (address < startBound) {
        skipped = std::min(startBound - address, size);
        if (error && skipped)
            error->setStatus(address, static_cast<unsigned int>(skipped), MEM_UNKNOWN);
        size -= skipped;
        address += skipped;
    }
    const uint64_t memoryEnd = startBound + memorySize;
    if (address + size > memoryEnd) {
        const uint64_t excess = std::min(address + size - memoryEnd, size);
        // The stripped bytes are the last ones of the request; for a request
        // that starts inside the memory they begin at its end.
        if (error && excess)
            error->setStatus(address + size - excess, static_cast<unsigned int>(excess),
                             MEM_UNKNOWN);
        size -= excess;
    }
    if (offset)
        *offset += skipped;
}

// ---------------------------------------------------------------------------
// Writing

void MemoryContext::setMemory(uint64_t address, int accessSize,
                              const std::vector<unsigned char>& buffer, uint64_t offset,
                              uint64_t size, MemoryAccessMode mode, IIntermediateResult* progress,
                              boost::shared_ptr<IMemoryError>& error) {
    const uint64_t mask = getBusMask();
    if (size == 0 || size - 1 > mask || size > 0xFFFFFFFFull)
        CoreException::createAndThrow("", ERR_ACCESS_REFUSED,
                                      "Cannot write memory. Write request too large.");
    if (offset > buffer.size() || size > buffer.size() - offset)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "Cannot write memory. Buffer too small for the request.");
    splitAtBusTop(address, offset, size, mask, error,
                  [&](uint64_t a, uint64_t o, uint64_t n, boost::shared_ptr<IMemoryError>& e) {
                      setMemoryNoStraddle(a, accessSize, buffer, o, n, mode, progress, e);
                  });
}

void MemoryContext::setMemoryNoStraddle(uint64_t address, int accessSize,
                                        const std::vector<unsigned char>& buffer,
                                        uint64_t offset, uint64_t size, MemoryAccessMode mode,
                                        IIntermediateResult* progress,
                                        boost::shared_ptr<IMemoryError>& error) {
    if (chipLocked)
        CoreException::createAndThrow("", ERR_ACCESS_REFUSED,
                                      "Cannot write memory. Security bit is set.");
    if (offset > buffer.size() || size > buffer.size() - offset)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "Cannot write memory. Buffer too small for the request.");
    boost::shared_ptr<MemoryError> memoryError = boost::make_shared<MemoryError>();
    if (!accessor)
        adjustRange(address, size, &offset, memoryError);

    if (readOnly) {
        // Nothing is written and nothing signalled. The mark is placed at
        // address plus buffer offset, which is the request itself for the
        // usual buffer offset of 0.
        if (size)
            memoryError->setStatus(address + offset, static_cast<unsigned int>(size),
                                   MEM_WRITE_FAILED);
        if (!memoryError->isOk())
            error = memoryError;
        return;
    }

    if (hasBootloader && bootloaderSize != 0)
        handleBootloaderMemory(address, accessSize, buffer, offset, size, mode, progress,
                               memoryError);
    else
        setMemoryImpl(address, accessSize, buffer, offset, size, mode, progress, memoryError);

    memoryChanged(address, size);
    if (!memoryError->isOk())
        error = memoryError;
}

void MemoryContext::setMemoryImpl(uint64_t address, int /*accessSize*/,
                                  const std::vector<unsigned char>& buffer, uint64_t offset,
                                  uint64_t size, MemoryAccessMode mode,
                                  IIntermediateResult* progress,
                                  boost::shared_ptr<MemoryError> error) {
    const std::vector<unsigned char>::const_iterator data = buffer.begin() + offset;
    const unsigned int count = static_cast<unsigned int>(size);
    const AccessorPtr writePath =
        cachedAccessor ? boost::static_pointer_cast<IMemoryAccessor>(cachedAccessor) : accessor;

    switch (mode) {
    case AccessPlain:
    case AccessPlainAlt1:
    case AccessPlainAlt3:
    case AccessNoErase: {
        const bool erased =
            mode == AccessNoErase && std::getenv(ALLOW_WRITES_WITHOUT_ERASE) != nullptr;
        if (!writePath)
            CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                          "Memory %s has no accessor to write through.",
                                          name.c_str());
        if (count)
            writePath->write(address, count, data, error, progress, erased);
        return;
    }
    case AccessVerify: {
        if (!accessor)
            CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                          "Memory %s has no accessor to verify through.",
                                          name.c_str());
        boost::shared_ptr<MemoryError> readError = error ? error : boost::make_shared<MemoryError>();
        std::vector<unsigned char> target(count);
        if (count)
            accessor->read(address, count, target.begin(), readError, progress);
        if (readError->isOk() && std::equal(target.begin(), target.end(), data))
            return;
        CoreException::createAndThrow(
            "", ERR_OPERATION_FAILED,
            "Validation of memory failed in region: offset = %i, size = %i.",
            static_cast<int>(address + offset), static_cast<int>(size));
    }
    case AccessPopulate:
        if (cachedAccessor && count)
            cachedAccessor->populate(address, count, data);
        return;
    default:
        CoreException::createAndThrow("", ERR_OPERATION_FAILED, "MemoryAccessMode not supported.");
    }
}

bool MemoryContext::bootloaderCollision(uint64_t address, uint64_t size,
                                        uint64_t& collisionStart, uint64_t& collisionSize) {
    if (!hasBootloader || bootloaderSize == 0)
        return false;
    const uint64_t end = address + size;
    const uint64_t bootEnd = bootloaderStart + bootloaderSize;
    // Ranges that only touch collide, with a size of 0.
    if (end < bootloaderStart || bootEnd < address)
        return false;
    collisionStart = std::max(address, bootloaderStart);
    if (bootEnd < end)
        collisionSize = bootloaderStart <= address ? bootEnd - address : bootloaderSize;
    else
        collisionSize = bootloaderStart > address ? end - bootloaderStart : size;
    return true;
}

void MemoryContext::handleBootloaderMemory(uint64_t address, int accessSize,
                                           const std::vector<unsigned char>& buffer,
                                           uint64_t offset, uint64_t size, MemoryAccessMode mode,
                                           IIntermediateResult* progress,
                                           boost::shared_ptr<MemoryError> error) {
    uint64_t collisionStart = 0;
    uint64_t collisionSize = 0;
    if (!bootloaderCollision(address, size, collisionStart, collisionSize)) {
        logInfo("No bootloader Collision.");
        setMemoryImpl(address, accessSize, buffer, offset, size, mode, progress, error);
        return;
    }
    if (collisionStart == address && collisionSize == size) {
        logInfo("Full collision (data size = bootloader size).");
        return;
    }
    if (collisionStart == address) {
        // The bootloader covers the front of the request: write what lies
        // behind it.
        const uint64_t restOffset = offset + collisionSize;
        const uint64_t restSize = size - collisionSize;
        logInfo(FormatString("Low bootloader collision, writing Addr: 0x%08x, Size 0x%08x",
                             static_cast<unsigned int>(restOffset),
                             static_cast<unsigned int>(restSize)));
        setMemoryImpl(address + collisionSize, accessSize, buffer, restOffset, restSize, mode,
                      progress, error);
        return;
    }
    // A bootloader that lies wholly inside the request, also one that ends
    // exactly where the request ends, means the image was linked for another
    // bootloader layout: refuse rather than write the image in part.
    const uint64_t end = address + size;
    const uint64_t bootEnd = bootloaderStart + bootloaderSize;
    if (bootloaderStart > address && bootEnd <= end)
        CoreException::createAndThrow("", ERR_OPERATION_FAILED,
                                      "Cannot write memory, bootloader is mislocated.");
    // The bootloader covers the tail of the request (or only touches its
    // end): write the part in front of it.
    const uint64_t frontSize = size - collisionSize;
    logInfo(FormatString("Low bootloader collision, writing Addr: 0x%08x, Size 0x%08x",
                         static_cast<unsigned int>(offset), static_cast<unsigned int>(frontSize)));
    setMemoryImpl(address, accessSize, buffer, offset, frontSize, mode, progress, error);
}

void MemoryContext::throwIfMemoryAccessNotValid(uint64_t address, int size, int accessSize) {
    // A negative size counts as huge, so it fails the end test.
    const uint64_t count = static_cast<uint32_t>(size);
    if (address < startBound)
        throw std::runtime_error("Memory access is prior to memory start boundary");
    if (address + count > startBound + memorySize)
        throw std::runtime_error("Memory access is beyond memory end boundary");
    if (accessSize != 0) {
        const uint64_t unit = static_cast<uint32_t>(accessSize);
        if (count % unit != 0)
            throw std::runtime_error("Memory access size is not word aligned.");
        if (address % unit != 0)
            throw std::runtime_error("Memory access start address is not word aligned.");
    }
}

void MemoryContext::fillMemory(uint64_t address, int accessSize,
                               const std::vector<unsigned char>& pattern, uint64_t size,
                               MemoryAccessMode mode, IIntermediateResult* progress,
                               boost::shared_ptr<IMemoryError>& error) {
    if (chipLocked)
        CoreException::createAndThrow("", ERR_ACCESS_REFUSED,
                                      "Cannot fill memory. Security bit is set.");
    // The check takes the size as an int; anything wider is beyond the end
    // of any memory this context can describe. The start is still tested
    // first, so that such a request below the memory is told so.
    if (size > memorySize) {
        throwIfMemoryAccessNotValid(address, 0, 0);
        throw std::runtime_error("Memory access is beyond memory end boundary");
    }
    throwIfMemoryAccessNotValid(address, static_cast<int>(size), accessSize);
    if (pattern.empty())
        throw std::runtime_error("Empty pattern in fill memory");

    boost::shared_ptr<MemoryError> memoryError = boost::make_shared<MemoryError>();
    if (!accessor)
        adjustRange(address, size, nullptr, memoryError);

    uint64_t current = address;
    const uint64_t end = address + size;
    try {
        while (current < end) {
            const uint64_t count = std::min<uint64_t>(pattern.size(), end - current);
            setMemoryImpl(current, accessSize, pattern, 0, count, mode, progress, memoryError);
            current += count;
        }
    } catch (...) {
        // Whatever ended the loop, the rest of the range was not written.
        memoryError->setStatus(current, static_cast<unsigned int>(end - current),
                               MEM_WRITE_FAILED);
    }
    memoryChanged(address, size);
    if (!memoryError->isOk())
        error = memoryError;
}

void MemoryContext::erase(uint64_t address, uint64_t size) {
    if (!accessor)
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                      "Memory %s has no accessor to erase through.", name.c_str());
    accessor->erase(address, size);
}

void MemoryContext::SetChipLocked(bool locked) { chipLocked = locked; }

// ---------------------------------------------------------------------------
// Fixed content and change signal

void MemoryContext::addFixedMemoryContent(uint64_t address, unsigned short value) {
    FixedContent fixed;
    fixed.address = address;
    fixed.value = value;
    fixedContent.push_back(fixed);
}

void MemoryContext::removeFixedMemoryContent(uint64_t address) {
    auto it = std::find_if(fixedContent.begin(), fixedContent.end(),
                           [address](const FixedContent& f) { return f.address == address; });
    if (it != fixedContent.end())
        fixedContent.erase(it);
}

boost::signals2::connection MemoryContext::addMemoryChangedHandler(
    const MemoryChangedSignal::slot_type& handler) const {
    return memoryChangedSignal.connect(handler);
}

void MemoryContext::memoryChanged(const ChangedRanges& ranges) {
    // Without handlers there is nobody to tell; skipping the signal also
    // lets a context that no shared_ptr owns (a subclass under test, say)
    // be written.
    if (memoryChangedSignal.empty())
        return;
    boost::shared_ptr<IMemoryContext> self = shared_from_this();
    memoryChangedSignal(self, ranges);
}

void MemoryContext::memoryChanged(uint64_t address, uint64_t size) {
    memoryChanged(ChangedRanges(1, std::make_pair(address, size)));
}

// ---------------------------------------------------------------------------
// Caches

void MemoryContext::defineCacheRegion(uint64_t address, unsigned int size,
                                      unsigned int pageSize) {
    if (!accessor)
        CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                      "Memory %s has no accessor to cache.", name.c_str());
    if (pageSize == 0)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "Cache region of memory %s needs a page size above 0.",
                                      name.c_str());
    if (!cachedAccessor)
        cachedAccessor = boost::make_shared<AggregatingMemoryAccessor>(
            std::vector<AggregatingMemoryAccessor::Entry>());
    auto shadow = boost::make_shared<ShadowMemoryAccessor>(accessor, pageSize, size, address);
    shadows.push_back(shadow);
    AggregatingMemoryAccessor::AddressRange range;
    range.start = address;
    range.end = address + size;
    cachedAccessor->addRange(AggregatingMemoryAccessor::Entry(range, shadow));
}

void MemoryContext::defineUncacheableRegion(uint64_t address, uint64_t size) {
    if (!cachedAccessor)
        cachedAccessor = boost::make_shared<AggregatingMemoryAccessor>(
            std::vector<AggregatingMemoryAccessor::Entry>());
    // A context without an accessor has nothing to map: its region stays
    // uncovered and reads as unknown.
    if (!accessor)
        return;
    AggregatingMemoryAccessor::AddressRange range;
    range.start = address;
    range.end = address + size;
    cachedAccessor->addRange(AggregatingMemoryAccessor::Entry(range, accessor));
}

void MemoryContext::commitCachedChanges(IIntermediateResult* progress,
                                        boost::shared_ptr<IMemoryError>& error) {
    boost::shared_ptr<MemoryError> memoryError = boost::make_shared<MemoryError>();
    IntermediateResult localProgress;
    if (!progress)
        progress = &localProgress;
    for (const auto& shadow : shadows) {
        try {
            shadow->commitChanges(progress, memoryError);
        } catch (const std::exception& e) {
            // One region that fails must not keep the others from the target.
            if (gLogMask & LOG_MASK_ERROR)
                BackendLogger::error(COMMIT_LOG_CHANNEL,
                                     FormatString("Error writing memory back to the device %s",
                                                  e.what()));
        }
    }
    if (!memoryError->isOk())
        error = memoryError;
}

void MemoryContext::getPersistedSegments(std::vector<PersistedMemSegment>& segments) {
    segments.clear();
    if (!cachedAccessor)
        return;
    for (const auto& entry : cachedAccessor->getMap()) {
        boost::shared_ptr<ShadowMemoryAccessor> shadow =
            boost::dynamic_pointer_cast<ShadowMemoryAccessor>(entry.second);
        if (!shadow)
            continue;
        PersistedMemSegment segment;
        segment.start = entry.first.start;
        segment.size = static_cast<unsigned int>(entry.first.end - entry.first.start);
        segment.pageSize = shadow->getPageSize(0, 0);
        segments.push_back(segment);
    }
}
