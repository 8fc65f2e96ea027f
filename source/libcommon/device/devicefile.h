#ifndef LIBCOMMON_DEVICE_DEVICEFILE_H
#define LIBCOMMON_DEVICE_DEVICEFILE_H

// Reads an XML device file into the in-memory description (ModelDevice).
// The format is described in docs/device-file-format.md.
//
// A file is checked completely before a device is handed out: any fault
// (malformed XML, an unknown element or attribute, a missing or malformed
// attribute, a duplicate name, a segment outside its space, a mask that
// does not fit its register) throws a CoreException with ERR_DEVICE_FILE
// and a text "<file>:<line>: <what is wrong>". A file that cannot be read
// throws with ERR_FILE_IO. No partly built device is ever returned.

#include "libcommon/device/devicemodel.h"

#include <boost/shared_ptr.hpp>
#include <string>

namespace DeviceFile {

// Loads the file at path.
boost::shared_ptr<ModelDevice> load(const std::string& path);

// Parses a description held in memory; sourceName stands for the file in
// error texts.
boost::shared_ptr<ModelDevice> parse(const std::string& text, const std::string& sourceName);

// The path of "<deviceName>.xml" in directory, or an empty string when
// there is no such regular file. The name must match exactly, with case.
std::string findDeviceFile(const std::string& directory, const std::string& deviceName);

}  // namespace DeviceFile

#endif
