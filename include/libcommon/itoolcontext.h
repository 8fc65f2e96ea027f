#ifndef LIBCOMMON_ITOOLCONTEXT_H
#define LIBCOMMON_ITOOLCONTEXT_H

// One debug probe or programmer attached to the host: the root of a context
// tree. A tool owns its physical interfaces, and through them the device
// contexts. A front end drives it through property lists: it names an
// interface and a device, and the tool pairs the two.

#include "libcommon/core/json_spirit.h"
#include "libcommon/icontextbase.h"
#include "libcommon/iintermediateresult.h"

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

class Status;
class IPhysicalInterface;
class IDeviceContext;
class Connection;

class IToolContext : public IContextBase {
public:
    typedef boost::function<void(std::string)> IdHandler;

    // The tool's own list entry takes a const list; the entry inherited from
    // IContextBase stays visible beside it.
    using IContextBase::setProperties;

    virtual std::string getName() = 0;
    virtual boost::shared_ptr<IPhysicalInterface> getPhysicalInterface(const std::string& name) = 0;
    virtual const std::vector<boost::shared_ptr<IPhysicalInterface>>& getPhysicalInterfaces() = 0;
    virtual boost::shared_ptr<IDeviceContext> getDevice(const std::string& name) = 0;
    virtual std::vector<boost::shared_ptr<IDeviceContext>> getToolDevices() = 0;
    virtual void setProperties(const json_spirit::Object& properties) = 0;

    // Probe operations that only a plug-in can carry out; the library
    // neither implements nor calls them.
    virtual bool connect(Status& status) = 0;
    virtual void disconnect() = 0;
    virtual bool isConnected() = 0;

    virtual std::vector<json_spirit::Object> detectDevices(Status& status) = 0;

    virtual json_spirit::Object getFirmwareVersion(Status& status) = 0;
    virtual bool upgradeFirmware(Status& status, IIntermediateResult* progress) = 0;
    virtual bool setTargetPower(Status& status, bool on) = 0;
    virtual double getTargetVoltage(Status& status) = 0;
    virtual bool resetTool(Status& status) = 0;

    virtual bool genericStringCommand(Status& status, std::string& result,
                                      const std::string& command) = 0;
    virtual boost::shared_ptr<Connection> getConnection() = 0;

    virtual std::string getSerialNumber() = 0;
    virtual std::string getToolType() = 0;

    // Every tool carries one id handler: set it to learn the tool's id when
    // the plug-in announces it.
    virtual void setIdHandler(IdHandler handler);
    // Calls the handler with getId(); does nothing while none is set.
    virtual void callIdHandler();
    // Settings dialogs are a plug-in matter: the default answers with a
    // warning status and ignores the argument.
    virtual void showSettings(Status& status, std::string settings);

private:
    IdHandler idHandler;
};

// Whether the Segger control panel is open. Exported for plug-ins; the
// library itself never reads or writes it.
extern bool gSeggerCtrlPanelActive;

#endif
