#ifndef LIBCOMMON_DEVICE_DIDEVICEHELPER_H
#define LIBCOMMON_DEVICE_DIDEVICEHELPER_H

// Stateless queries over a device description that every tool plug-in
// needs: where spaces and segments lie, the flash geometry, how the chip
// identifies itself and which core family it belongs to.
//
// Output pointers may be null; a null output is skipped and its value never
// fetched. A query for something that may legitimately be absent gives
// false and logs at debug level; a query whose caller cannot go on without
// the answer throws a CoreException.

#include "libcommon/didevice.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>

namespace DIDeviceHelper {

typedef boost::shared_ptr<DIDevice> DevicePtr;

bool getAddressSpaceAttributes(const std::string& name, DevicePtr device, uint64_t* start,
                               uint64_t* size);
// The one page size shared by the space's segments. Throws when the space
// is missing or two segments disagree; segments with page size 0 are only
// accepted ahead of the first sized one.
void getAddressSpacePageSize(const std::string& name, DevicePtr device, int* pageSize);
// Span of all segments of "data"; end is the first address behind it.
bool getDataMemoryAttributes(DevicePtr device, uint64_t* start, uint64_t* end);
// Address of MCU.MCU.DEVID0, or 0x90 when the description has none.
bool getDevId0Address(DevicePtr device, unsigned short* address);
bool getDeviceId(DevicePtr device, DeviceId& id);
// Size of "prog", its common page size and the write buffers per page.
void getFlashAttributes(DevicePtr device, uint64_t* flashSize, int* pageSize,
                        int* buffersPerPage);
bool getMemorySegmentAttributes(const std::string& spaceName, const std::string& segmentName,
                                DevicePtr device, uint64_t* start, uint64_t* size,
                                int* pageSize);
// Succeeds only when exactly one segment of the type exists in the space.
bool getMemorySegmentAttributesByType(const std::string& spaceName, const std::string& typeName,
                                      DevicePtr device, uint64_t* start, uint64_t* size,
                                      int* pageSize);
bool getNvmAddress(DevicePtr device, unsigned short* address);
bool getOcdRevision(DevicePtr device, unsigned int* revision);
// Stores the group's address cut to 16 bits, or 0 when not found.
bool getRegisterGroupAddress(DevicePtr device, const std::string& moduleName,
                             std::string groupName, unsigned short* address);
bool getSingleFuseAttributes(DevicePtr device, const std::string& fuseName,
                             uint64_t* registerAddress, uint64_t* mask);
// Throws only for an empty group pointer.
bool getUint32PropertyValue(boost::shared_ptr<DIPropertyGroup> group, const std::string& name,
                            unsigned int* value);
// Start and size of the last "BOOT_SECTION" segment of "prog"; outputs stay
// as they were when there is none. Throws when "prog" is missing.
void getOrbitBootAttributes(DevicePtr device, uint64_t* start, unsigned int* size);
bool hasMonoLink(DevicePtr device);
// Whether the one-wire debug pin is a pin of its own rather than one that a
// fuse shares with another function.
bool hasDedicatedOclPin(DevicePtr device);
bool isTARN32(DevicePtr device);
bool isArch4(DevicePtr device);
bool isOrbit(DevicePtr device);

}  // namespace DIDeviceHelper

#endif
