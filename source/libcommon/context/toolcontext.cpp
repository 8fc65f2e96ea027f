#include "libcommon/context/toolcontext.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/idevicecontext.h"
#include "libcommon/stringconstants.h"

#include <boost/algorithm/string/predicate.hpp>
#include <locale>

bool gSeggerCtrlPanelActive = false;

namespace {

bool sameNameIgnoringCase(const std::string& a, const std::string& b) {
    return boost::algorithm::iequals(a, b, std::locale());
}

}  // namespace

// ---- IToolContext: the parts every tool has --------------------------------

void IToolContext::setIdHandler(IdHandler handler) {
    idHandler = handler;
}

void IToolContext::callIdHandler() {
    if (idHandler) idHandler(getId());
}

void IToolContext::showSettings(Status& status, std::string) {
    status.setFields(SeverityWarning, "toolContext", ERR_NOT_SUPPORTED,
                     std::string("Show Settings not supported "));
}

// ---- GeneralTool -----------------------------------------------------------

GeneralTool::GeneralTool(ITarnDebugger& debugger, boost::shared_ptr<IToolContext> parent,
                         const std::string& name, boost::shared_ptr<Connection> connection,
                         const std::string& id)
    : ContextBase<IToolContext>(id, parent),
      debugger(debugger),
      name(name),
      connection(connection) {}

std::string GeneralTool::getName() {
    return name;
}

boost::shared_ptr<IPhysicalInterface> GeneralTool::getPhysicalInterface(
    const std::string& interfaceName) {
    if (!physicalInterfaces.empty() && physicalInterfaces.front() &&
        sameNameIgnoringCase(physicalInterfaces.front()->getName(), interfaceName))
        return physicalInterfaces.front();

    // Selecting anything else, even a name that does not exist, drops the
    // current selection.
    physicalInterfaces.clear();
    for (const boost::shared_ptr<IPhysicalInterface>& candidate : availableInterfaces) {
        if (candidate && sameNameIgnoringCase(candidate->getName(), interfaceName)) {
            physicalInterfaces.push_back(candidate);
            return candidate;
        }
    }
    return boost::shared_ptr<IPhysicalInterface>();
}

boost::shared_ptr<IPhysicalInterface> GeneralTool::getPhysicalInterface() {
    if (physicalInterfaces.empty()) return boost::shared_ptr<IPhysicalInterface>();
    return physicalInterfaces.front();
}

const std::vector<boost::shared_ptr<IPhysicalInterface>>& GeneralTool::getPhysicalInterfaces() {
    return physicalInterfaces;
}

std::vector<boost::shared_ptr<IDeviceContext>> GeneralTool::getToolDevices() {
    std::vector<boost::shared_ptr<IDeviceContext>> devices;
    for (const boost::shared_ptr<IPhysicalInterface>& iface : physicalInterfaces) {
        if (!iface) continue;
        const std::vector<boost::shared_ptr<IDeviceContext>>& onInterface = iface->getDevices();
        devices.insert(devices.end(), onInterface.begin(), onInterface.end());
    }
    return devices;
}

boost::shared_ptr<IDeviceContext> GeneralTool::getDevice(const std::string& deviceName) {
    for (const boost::shared_ptr<IDeviceContext>& device : getToolDevices()) {
        if (device && sameNameIgnoringCase(device->getName(), deviceName)) return device;
    }
    return boost::shared_ptr<IDeviceContext>();
}

json_spirit::Object GeneralTool::getProperties() {
    json_spirit::Object properties = ContextBase<IToolContext>::getProperties();
    properties.push_back(json_spirit::Pair(TOOL_NAME, getName()));

    // Further devices come numbered from 1; the first one's id goes behind
    // them under the plain key, empty when there is no device at all. An
    // empty device entry of a plug-in's list has no id and is not counted.
    std::string firstDeviceId;
    int deviceNumber = 0;
    for (const boost::shared_ptr<IPhysicalInterface>& iface : physicalInterfaces) {
        if (!iface) continue;
        for (const boost::shared_ptr<IDeviceContext>& device : iface->getDevices()) {
            if (!device) continue;
            if (deviceNumber == 0)
                firstDeviceId = device->getId();
            else
                properties.push_back(json_spirit::Pair(
                    TOOL_DEVICE_ID + std::to_string(deviceNumber), device->getId()));
            ++deviceNumber;
        }
    }
    properties.push_back(json_spirit::Pair(TOOL_DEVICE_ID, firstDeviceId));

    const std::vector<boost::shared_ptr<IPhysicalInterface>>& selected = getPhysicalInterfaces();
    if (selected.size() > 1) throw "Multiple physical interfaces not implemented";
    if (!selected.empty() && selected.front()) {
        properties.push_back(json_spirit::Pair(TOOL_INTERFACE_NAME, selected.front()->getName()));
        properties.push_back(
            json_spirit::Pair(TOOL_INTERFACE_PROPERTIES, selected.front()->getProperties()));
    }

    properties.insert(properties.end(), extraProperties.begin(), extraProperties.end());
    const json_spirit::Object firmware = getFirmwareVersionsOnDisk();
    properties.insert(properties.end(), firmware.begin(), firmware.end());
    return properties;
}

void GeneralTool::setProperties(const json_spirit::Object& properties) {
    // An empty interface or device name counts as not given.
    std::string interfaceName;
    std::string deviceName;
    json_spirit::Object interfaceProperties;
    json_spirit::Object boardProperties;
    bool haveInterfaceProperties = false;
    bool haveBoardProperties = false;
    for (const json_spirit::Pair& pair : properties) {
        if (pair.name_ == TOOL_INTERFACE_NAME || pair.name_ == TOOL_INTERFACE_TYPE) {
            interfaceName = pair.value_.get_str();
        } else if (pair.name_ == TOOL_DEVICE_NAME) {
            deviceName = pair.value_.get_str();
        } else if (pair.name_ == TOOL_INTERFACE_PROPERTIES) {
            interfaceProperties = pair.value_.get_obj();
            haveInterfaceProperties = true;
        } else if (pair.name_ == TOOL_BOARD_PROPERTIES) {
            boardProperties = pair.value_.get_obj();
            haveBoardProperties = true;
        }
    }

    if (haveBoardProperties && !boardProperties.empty()) setBoardProperties(boardProperties);

    if (interfaceName.empty()) {
        boost::shared_ptr<IPhysicalInterface> current = getPhysicalInterface();
        if (!current) return;
        interfaceName = current->getName();
    }

    boost::shared_ptr<IDeviceContext> device;
    if (!deviceName.empty()) device = pairDeviceAndInterface(interfaceName, deviceName);

    // Selects the interface also when no device was named.
    boost::shared_ptr<IPhysicalInterface> iface = getPhysicalInterface(interfaceName);
    if (iface && haveInterfaceProperties) iface->setProperties(interfaceProperties);

    if (device) {
        // The device sees the whole list, so that it can pick its own keys.
        json_spirit::Object all = properties;
        device->setProperties(all);
    }
}

std::vector<json_spirit::Object> GeneralTool::detectDevices(Status&) {
    return std::vector<json_spirit::Object>();
}

bool GeneralTool::genericStringCommand(Status&, std::string&, const std::string&) {
    return false;
}

boost::shared_ptr<Connection> GeneralTool::getConnection() {
    return connection;
}

boost::shared_ptr<IDeviceContext> GeneralTool::pairDeviceAndInterface(
    const std::string& interfaceName, const std::string& deviceName) {
    boost::shared_ptr<IPhysicalInterface> iface = getPhysicalInterface(interfaceName);
    if (!iface) {
        if (gLogMask & LOG_MASK_ERROR)
            BackendLogger::error(
                L_DBG, FormatString("Failed to pair device and interface, no physical interface "
                                    "found: %s => %s",
                                    deviceName.c_str(), interfaceName.c_str()));
        return boost::shared_ptr<IDeviceContext>();
    }
    return iface->pairDevice(deviceName);
}

json_spirit::Object GeneralTool::getFirmwareVersionsOnDisk() {
    return json_spirit::Object();
}

void GeneralTool::setBoardProperties(const json_spirit::Object&) {}
