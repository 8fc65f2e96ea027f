#ifndef LIBCOMMON_CONTEXT_TOOLCONTEXT_H
#define LIBCOMMON_CONTEXT_TOOLCONTEXT_H

#include "libcommon/context/contextbase.h"

#include "libcommon/iphysicalinterface.h"
#include "libcommon/itoolcontext.h"

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

class ITarnDebugger;

// Base class of a tool plug-in. It implements the pairing of an interface
// and a device that a front end asks for through properties, and the list
// that shows what is paired. Detecting hardware and everything that touches
// the probe is the plug-in's.
//
// Interface selection: the plug-in fills availableInterfaces; selecting one
// by name (getPhysicalInterface) copies it into physicalInterfaces, which
// holds at most that one entry. Selection is not synchronised: calls that
// select an interface belong on one thread.
class GeneralTool : public ContextBase<IToolContext> {
public:
    GeneralTool(ITarnDebugger& debugger, boost::shared_ptr<IToolContext> parent,
                const std::string& name, boost::shared_ptr<Connection> connection,
                const std::string& id);

    // The entry inherited from IContextBase (non-const list) ignores the list;
    // only the const overload acts on it.
    using ContextBase<IToolContext>::setProperties;

    std::string getName() override;
    // Selects the interface whose name matches without regard to case. An
    // unknown name deselects the current interface and gives an empty pointer.
    boost::shared_ptr<IPhysicalInterface> getPhysicalInterface(const std::string& name) override;
    // Valid until the next selection.
    const std::vector<boost::shared_ptr<IPhysicalInterface>>& getPhysicalInterfaces() override;
    // First device on the selected interface whose name matches without
    // regard to case.
    boost::shared_ptr<IDeviceContext> getDevice(const std::string& name) override;
    std::vector<boost::shared_ptr<IDeviceContext>> getToolDevices() override;
    json_spirit::Object getProperties() override;
    void setProperties(const json_spirit::Object& properties) override;
    std::vector<json_spirit::Object> detectDevices(Status& status) override;
    bool genericStringCommand(Status& status, std::string& result,
                              const std::string& command) override;
    boost::shared_ptr<Connection> getConnection() override;

    // Pairs a device with the interface of that name; logs and gives an
    // empty pointer when there is no such interface.
    virtual boost::shared_ptr<IDeviceContext> pairDeviceAndInterface(
        const std::string& interfaceName, const std::string& deviceName);
    // Pairs appended to the tool's list; none in the base class.
    virtual json_spirit::Object getFirmwareVersionsOnDisk();
    // Board settings from a front end; ignored in the base class.
    virtual void setBoardProperties(const json_spirit::Object& properties);

    // The selected interface, or an empty pointer. Selects nothing.
    boost::shared_ptr<IPhysicalInterface> getPhysicalInterface();

protected:
    ITarnDebugger& debugger;
    std::string name;
    json_spirit::Object extraProperties;
    boost::shared_ptr<Connection> connection;
    std::vector<boost::shared_ptr<IPhysicalInterface>> physicalInterfaces;
    std::vector<boost::shared_ptr<IPhysicalInterface>> availableInterfaces;
};

#endif
