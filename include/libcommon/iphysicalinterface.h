#ifndef LIBCOMMON_IPHYSICALINTERFACE_H
#define LIBCOMMON_IPHYSICALINTERFACE_H

// A physical interface of a debug probe (JTAG, SWD, ISP, ...) and the
// connection a tool talks through. Both belong to the back-end; the tool and
// device contexts only need what is declared here.

#include "libcommon/core/json_spirit.h"

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

class IDeviceContext;

class IPhysicalInterface {
public:
    virtual ~IPhysicalInterface() {}

    // Name of the interface, one of the interface words ("JTAG", "SWD", ...).
    virtual std::string getName() = 0;
    virtual json_spirit::Object getProperties() = 0;
    virtual void setProperties(const json_spirit::Object& properties) = 0;
    // The device contexts that hang on this interface.
    virtual const std::vector<boost::shared_ptr<IDeviceContext>>& getDevices() = 0;
    // Makes or finds the device context of that name on this interface.
    virtual boost::shared_ptr<IDeviceContext> pairDevice(const std::string& deviceName) = 0;
};

// The host-side link to a probe (USB, HID, serial port, ...). The library
// only hands it along from the plug-in that made it to the tool context;
// the back-end derives the real connection classes from it.
class Connection {
public:
    virtual ~Connection() {}
};

#endif
