#include "libcommon/device/didevicehelper.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/stringconstants.h"

#include <cinttypes>
#include <functional>

namespace {

const std::string COMPONENT_CORE = "com.velmora.hil.core";
const std::string COMPONENT_PROBE = "com.velmora.hil.tarnprobe";

void logDebug(const std::string& text) {
    if (gLogMask & LOG_MASK_DEBUG)
        BackendLogger::debug(L_DBG, text);
}

bool hasArchitecture(const DIDeviceHelper::DevicePtr& device, const std::string& arch) {
    return device && device->getArchitecture() == arch;
}

boost::shared_ptr<DIAddressSpace> findSpace(const DIDeviceHelper::DevicePtr& device,
                                            const std::string& name) {
    if (!device)
        return boost::shared_ptr<DIAddressSpace>();
    return device->getAddressSpace(name);
}

std::string deviceName(const DIDeviceHelper::DevicePtr& device) {
    return device ? device->getName() : std::string();
}

// The common page size of a space's segments. A segment that repeats the
// size found so far is fine, the first non-zero size is taken, any other
// size is a contradiction in the description.
void walkPageSizes(const boost::shared_ptr<DIAddressSpace>& space, int* pageSize,
                   const std::function<std::string(int)>& logText,
                   const std::string& mismatchText) {
    *pageSize = 0;
    for (const boost::shared_ptr<DIMemorySegment>& segment : space->getMemorySegments()) {
        int p = static_cast<int>(segment->getPageSize());
        if (p == *pageSize)
            continue;
        if (*pageSize == 0) {
            *pageSize = p;
            if (gLogMask & LOG_MASK_DEBUG)
                BackendLogger::debug(L_DBG, logText(p));
            continue;
        }
        CoreException::createAndThrow(COMPONENT_PROBE, ERR_DEVICE_INFO, mismatchText);
    }
}

void storeSegment(const boost::shared_ptr<DIMemorySegment>& segment, uint64_t* start,
                  uint64_t* size, int* pageSize) {
    if (start)
        *start = segment->getStart();
    if (size)
        *size = segment->getSize();
    if (pageSize)
        *pageSize = static_cast<int>(segment->getPageSize());
}

}  // namespace

namespace DIDeviceHelper {

bool isTARN32(DevicePtr device) { return hasArchitecture(device, ARCH_TARN32_PELT); }

bool isArch4(DevicePtr device) { return hasArchitecture(device, ARCH_TARN8X); }

bool isOrbit(DevicePtr device) { return hasArchitecture(device, ARCH_TARN8_ORBIT); }

bool hasMonoLink(DevicePtr device) {
    return device && device->getInterface(INTERFACE_MONOLINK);
}

bool getAddressSpaceAttributes(const std::string& name, DevicePtr device, uint64_t* start,
                               uint64_t* size) {
    boost::shared_ptr<DIAddressSpace> space = findSpace(device, name);
    if (!space) {
        logDebug("No address space for " + name + ".");
        return false;
    }
    if (start)
        *start = space->getStart();
    if (size)
        *size = space->getSize();
    return true;
}

void getAddressSpacePageSize(const std::string& name, DevicePtr device, int* pageSize) {
    boost::shared_ptr<DIAddressSpace> space = findSpace(device, name);
    if (!space)
        CoreException::createAndThrow(COMPONENT_CORE, ERR_DEVICE_INFO,
                                      "No information found for address space %s.",
                                      name.c_str());
    if (!pageSize)
        return;
    walkPageSizes(space, pageSize,
                  [&name](int p) {
                      return std::string(FormatString("Using %s page size %d.", name.c_str(), p));
                  },
                  FormatString("Unexpectedly found memory segments with different page sizes "
                               "in address space %s.",
                               name.c_str()));
}

void getFlashAttributes(DevicePtr device, uint64_t* flashSize, int* pageSize,
                        int* buffersPerPage) {
    boost::shared_ptr<DIAddressSpace> prog = findSpace(device, ADDRSPACE_PROG);
    if (!prog)
        CoreException::createAndThrow(
            COMPONENT_PROBE, ERR_DEVICE_INFO,
            "Device info for '%s' did not contain program address space.",
            deviceName(device).c_str());
    if (flashSize) {
        *flashSize = prog->getSize();
        if (gLogMask & LOG_MASK_DEBUG)
            BackendLogger::debug(L_DBG, FormatString("PROG address space has size %" PRIu64 ".",
                                                     *flashSize));
    }
    if (pageSize)
        walkPageSizes(prog, pageSize,
                      [](int p) {
                          return std::string(FormatString("Using flash page size %d.", p));
                      },
                      "Unexpectedly found memory segments with different page sizes in "
                      "program address space.");
    if (buffersPerPage) {
        *buffersPerPage = 1;
        boost::shared_ptr<DIPropertyGroup> ocd = device->getPropertyGroup("OCD");
        if (ocd) {
            boost::shared_ptr<DIProperty> buffers = ocd->getProperty("BUFFERS_PER_FLASH_PAGE");
            if (buffers)
                *buffersPerPage = static_cast<int>(buffers->getUint32Value());
        }
    }
}

bool getDataMemoryAttributes(DevicePtr device, uint64_t* start, uint64_t* end) {
    boost::shared_ptr<DIAddressSpace> data = findSpace(device, ADDRSPACE_DATA);
    if (!data)
        return false;
    std::vector<boost::shared_ptr<DIMemorySegment>> segments = data->getMemorySegments();
    if (segments.empty())
        return false;
    uint64_t low = 0xFFFFFFFFFFFFFFFFULL;
    uint64_t high = 0;
    for (const boost::shared_ptr<DIMemorySegment>& segment : segments) {
        uint64_t s = segment->getStart();
        uint64_t n = segment->getSize();
        if (s < low)
            low = s;
        if (s + n > high)
            high = s + n;
    }
    if (start)
        *start = low;
    if (end)
        *end = high;
    return true;
}

namespace {
// The address space that the segment queries look in; logs when it is missing.
boost::shared_ptr<DIAddressSpace> spaceForSegments(DevicePtr device, const std::string& spaceName) {
    if (!device)
        return boost::shared_ptr<DIAddressSpace>();
    boost::shared_ptr<DIAddressSpace> space = device->getAddressSpace(spaceName);
    if (!space)
        logDebug("No address space by name  " + spaceName + ".");
    return space;
}
}  // namespace

bool getMemorySegmentAttributes(const std::string& spaceName, const std::string& segmentName,
                                DevicePtr device, uint64_t* start, uint64_t* size,
                                int* pageSize) {
    boost::shared_ptr<DIAddressSpace> space = spaceForSegments(device, spaceName);
    if (!space)
        return false;
    boost::shared_ptr<DIMemorySegment> segment = space->getMemorySegment(segmentName);
    if (!segment) {
        logDebug("No segment by name " + segmentName + ".");
        return false;
    }
    storeSegment(segment, start, size, pageSize);
    return true;
}

bool getMemorySegmentAttributesByType(const std::string& spaceName, const std::string& typeName,
                                      DevicePtr device, uint64_t* start, uint64_t* size,
                                      int* pageSize) {
    boost::shared_ptr<DIAddressSpace> space = spaceForSegments(device, spaceName);
    if (!space)
        return false;
    std::vector<boost::shared_ptr<DIMemorySegment>> segments =
        space->getMemorySegmentsByType(typeName);
    if (segments.empty()) {
        logDebug("No segment by type " + typeName + ".");
        return false;
    }
    if (segments.size() > 1) {
        logDebug(std::to_string(segments.size()) + " segments of type " + typeName + " found");
        return false;
    }
    storeSegment(segments.front(), start, size, pageSize);
    return true;
}

bool getRegisterGroupAddress(DevicePtr device, const std::string& moduleName,
                             std::string groupName, unsigned short* address) {
    if (!address)
        return false;
    boost::shared_ptr<DIModule> module;
    if (device)
        module = device->getModule(moduleName);
    boost::shared_ptr<DIRegisterGroup> group;
    if (module)
        group = module->getRegisterGroup(groupName);
    if (group) {
        *address = static_cast<unsigned short>(group->getAddress() & 0xFFFF);
        return true;
    }
    if (gLogMask & LOG_MASK_DEBUG)
        BackendLogger::debug(L_DBG, FormatString("Module %s or register group %s not found.",
                                                 moduleName.c_str(), groupName.c_str()));
    *address = 0;
    return false;
}

bool getNvmAddress(DevicePtr device, unsigned short* address) {
    return getRegisterGroupAddress(device, "NVM", "NVM", address);
}

bool getDevId0Address(DevicePtr device, unsigned short* address) {
    if (!address)
        return false;
    // Older 8-bit parts have no MCU module in their description but keep
    // the identity register at this fixed place.
    *address = 0x90;
    boost::shared_ptr<DIModule> mcu = device ? device->getModule("MCU") : nullptr;
    boost::shared_ptr<DIRegisterGroup> group = mcu ? mcu->getRegisterGroup("MCU") : nullptr;
    boost::shared_ptr<DIRegister> devid0 = group ? group->getRegister("DEVID0") : nullptr;
    if (devid0)
        *address = static_cast<unsigned short>(devid0->getAddress() & 0xFFFF);
    return true;
}

bool getOcdRevision(DevicePtr device, unsigned int* revision) {
    if (!revision || !device)
        return false;
    boost::shared_ptr<DIPropertyGroup> ocd = device->getPropertyGroup("OCD");
    boost::shared_ptr<DIProperty> property = ocd ? ocd->getProperty("OCD_REVISION") : nullptr;
    if (!property)
        return false;
    *revision = property->getUint32Value();
    return true;
}

bool getSingleFuseAttributes(DevicePtr device, const std::string& fuseName,
                             uint64_t* registerAddress, uint64_t* mask) {
    boost::shared_ptr<DIModule> fuse = device ? device->getModule("FUSE") : nullptr;
    if (!fuse)
        return false;
    boost::shared_ptr<DIRegisterGroup> group = fuse->getRegisterGroup("FUSE");
    if (!group)
        return false;
    for (const boost::shared_ptr<DIRegister>& reg : group->getRegisters()) {
        boost::shared_ptr<DIBitfield> field = reg->getBitfield(fuseName);
        if (!field)
            continue;
        if (registerAddress)
            *registerAddress = reg->getAddress();
        if (mask)
            *mask = field->getMask();
        return true;
    }
    return false;
}

bool getUint32PropertyValue(boost::shared_ptr<DIPropertyGroup> group, const std::string& name,
                            unsigned int* value) {
    if (!group)
        CoreException::createAndThrow("", ERR_DEVICE_FILE,
                                      "null property group for property name %s", name.c_str());
    boost::shared_ptr<DIProperty> property = group->getProperty(name);
    if (!property || !value)
        return false;
    *value = property->getUint32Value();
    return true;
}

void getOrbitBootAttributes(DevicePtr device, uint64_t* start, unsigned int* size) {
    boost::shared_ptr<DIAddressSpace> prog = findSpace(device, ADDRSPACE_PROG);
    if (!prog)
        CoreException::createAndThrow(
            "", ERR_DEVICE_INFO, "Device info for '%s' did not contain program address space.",
            deviceName(device).c_str());
    // No early exit: when a description repeats the section, the last wins.
    for (const boost::shared_ptr<DIMemorySegment>& segment : prog->getMemorySegments()) {
        if (segment->getName() != SEGMENT_BOOT_SECTION)
            continue;
        if (start)
            *start = segment->getStart();
        if (size)
            *size = static_cast<unsigned int>(segment->getSize());
    }
}

bool hasDedicatedOclPin(DevicePtr device) {
    if (!isArch4(device))
        return true;
    boost::shared_ptr<DIPropertyGroup> ocl = device->getPropertyGroup("OCL_INTERFACE");
    unsigned int hv = 0;
    if (ocl && getUint32PropertyValue(ocl, "HV_IMPLEMENTATION", &hv))
        return hv == 1;
    try {
        boost::shared_ptr<DIModule> fuse = device->getModule("FUSE");
        boost::shared_ptr<DIRegisterGroup> group = fuse ? fuse->getRegisterGroup("FUSE") : nullptr;
        boost::shared_ptr<DIRegister> syscfg0 = group ? group->getRegister("SYSCFG0") : nullptr;
        if (syscfg0) {
            if (syscfg0->getBitfield("OCLPINCFG"))
                return false;
            boost::shared_ptr<DIBitfield> rstPin = syscfg0->getBitfield("RSTPINCFG");
            boost::shared_ptr<DIValueGroup> values = rstPin ? rstPin->getValueGroup() : nullptr;
            if (values)
                return !values->getValue("OCL");
        }
    } catch (...) {
        // A database that throws on a lookup is treated like a missing link.
    }
    logDebug("Caught an exception when trying to resolve SYSCFG0 fuse. Not a configurable OCL "
             "pin, so it must be dedicated then. Proceed.");
    return true;
}

bool getDeviceId(DevicePtr device, DeviceId& id) {
    if (!device)
        return false;
    id.jtagId = 0;
    id.signature = 0;
    boost::shared_ptr<DIPropertyGroup> group = device->getPropertyGroup("SIGNATURES");
    if (!group)
        return false;
    std::vector<boost::shared_ptr<DIProperty>> properties = group->getProperties();
    if (properties.empty())
        return false;
    for (const boost::shared_ptr<DIProperty>& property : properties) {
        const std::string name = property->getName();
        if (name == "JTAGID")
            id.jtagId = property->getUint32Value();
        else if (name == "SIGNATURE0")
            id.signature |= (property->getUint32Value() & 0xFF) << 16;
        else if (name == "SIGNATURE1")
            id.signature |= (property->getUint32Value() & 0xFF) << 8;
        else if (name == "SIGNATURE2")
            id.signature |= property->getUint32Value() & 0xFF;
        else if (name == "CHIPID_CIDR" || name == "DSU_DID" || name == "LPMCU_CHIP_ID_REV_ID")
            id.signature = property->getUint32Value();
        else if (name == "CHIPID_EXID")
            id.extendedId = property->getUint32Value();
    }
    return true;
}

}  // namespace DIDeviceHelper
