#include "libcommon/context/devicecontext.h"

#include "libcommon/core/status.h"
#include "libcommon/didevice.h"
#include "libcommon/imemorycontext.h"
#include "libcommon/iregisterscontext.h"

#include <stdexcept>

namespace {

[[noreturn]] void notImplemented() {
    throw std::runtime_error("Not implemented!");
}

}  // namespace

GeneralDeviceContext::GeneralDeviceContext(ITarnDebugger& debugger, std::string id,
                                           boost::shared_ptr<IDeviceContext> parent,
                                           boost::shared_ptr<DIDevice> deviceInfo,
                                           boost::shared_ptr<IPhysicalInterface> physicalInterface)
    : ContextBase<IDeviceContext>(id, parent),
      debugger(debugger),
      physicalInterface(physicalInterface),
      deviceInfo(deviceInfo),
      sessionType(SessionNone),
      specialOperationRequested(false) {}

std::string GeneralDeviceContext::getName() {
    return deviceInfo ? deviceInfo->getName() : std::string();
}

boost::shared_ptr<DeviceId> GeneralDeviceContext::startSession(Status&, SessionType, bool,
                                                               boost::shared_ptr<IProcessContext>) {
    notImplemented();
}

bool GeneralDeviceContext::endSession() {
    notImplemented();
}

IDeviceContext::SessionType GeneralDeviceContext::getSessionType() const {
    return sessionType;
}

boost::shared_ptr<IProcessContext> GeneralDeviceContext::getProcess() {
    notImplemented();
}

boost::shared_ptr<IRunControlContext> GeneralDeviceContext::getRunControl() {
    notImplemented();
}

std::vector<boost::shared_ptr<IMemoryContext>> GeneralDeviceContext::getMemories() {
    notImplemented();
}

boost::shared_ptr<IMemoryContext> GeneralDeviceContext::getMemory(const std::string& name) {
    for (const boost::shared_ptr<IMemoryContext>& memory : getMemories()) {
        if (memory && memory->getMemoryName() == name) return memory;
    }
    return boost::shared_ptr<IMemoryContext>();
}

std::vector<boost::shared_ptr<IRegistersContext>> GeneralDeviceContext::getRegisters() {
    notImplemented();
}

boost::shared_ptr<IRegistersContext> GeneralDeviceContext::getRegister(const std::string& name) {
    for (const boost::shared_ptr<IRegistersContext>& reg : getRegisters()) {
        if (reg && reg->getName() == name) return reg;
    }
    return boost::shared_ptr<IRegistersContext>();
}

boost::shared_ptr<IBreakpointsTarget> GeneralDeviceContext::getBreakpointsTarget() {
    notImplemented();
}

boost::shared_ptr<IStimuliTarget> GeneralDeviceContext::getStimuliTarget() {
    return boost::shared_ptr<IStimuliTarget>();
}

boost::shared_ptr<ITraceContext> GeneralDeviceContext::getTraceContext() {
    return boost::shared_ptr<ITraceContext>();
}

boost::shared_ptr<ITraceTarget> GeneralDeviceContext::getTraceTarget() {
    return boost::shared_ptr<ITraceTarget>();
}

boost::shared_ptr<IResourceInfoProvider> GeneralDeviceContext::getResourceInfoProvider() {
    return boost::shared_ptr<IResourceInfoProvider>();
}

boost::shared_ptr<DIDevice> GeneralDeviceContext::getDeviceInfo() {
    return deviceInfo;
}

json_spirit::Value GeneralDeviceContext::getInfo(DeviceInfo which) {
    switch (which) {
        case DeviceInfoName:
            return json_spirit::Value(requireDeviceInfo()->getName());
        case DeviceInfoArchitecture:
            return json_spirit::Value(requireDeviceInfo()->getArchitecture());
        default:
            return json_spirit::Value();
    }
}

Packet GeneralDeviceContext::getDeviceConfigurationPacket() {
    notImplemented();
}

void GeneralDeviceContext::getOcdMaskedIOAddresses(boost::shared_ptr<MaskedIODetails>) {
    notImplemented();
}

void GeneralDeviceContext::specialOperation(Status&, SpecialOperation operation) {
    if (operation == SpecialOperationRequest) specialOperationRequested = true;
}

boost::signals2::connection GeneralDeviceContext::addExternalResetHandler(
    int, const ExternalResetSignal::slot_type& handler) const {
    return externalResetSignal.connect(handler);
}

boost::signals2::connection GeneralDeviceContext::addPowerStateHandler(
    int, const PowerStateSignal::slot_type& handler) const {
    return powerStateSignal.connect(handler);
}

boost::signals2::connection GeneralDeviceContext::addTargetEventHandler(
    int, const TargetEventSignal::slot_type& handler) const {
    return targetEventSignal.connect(handler);
}

json_spirit::Value GeneralDeviceContext::getProperty(DeviceProperty) {
    notImplemented();
}

void GeneralDeviceContext::erase() {
    notImplemented();
}

ITarnDebugger& GeneralDeviceContext::getTarnDbg() {
    return debugger;
}

boost::shared_ptr<DIRegisterGroup> GeneralDeviceContext::getRegisterGroup(
    const std::string& moduleName, const std::string& groupName) {
    boost::shared_ptr<DIModule> module = requireDeviceInfo()->getModule(moduleName);
    if (!module) return boost::shared_ptr<DIRegisterGroup>();
    return module->getRegisterGroup(groupName);
}

boost::shared_ptr<DIRegister> GeneralDeviceContext::getRegister(const std::string& moduleName,
                                                                const std::string& groupName,
                                                                const std::string& registerName) {
    return getRegister(getRegisterGroup(moduleName, groupName), registerName);
}

boost::shared_ptr<DIRegister> GeneralDeviceContext::getRegister(
    boost::shared_ptr<DIRegisterGroup> group, const std::string& registerName) {
    if (!group) return boost::shared_ptr<DIRegister>();
    return group->getRegister(registerName);
}

boost::shared_ptr<DIDevice> GeneralDeviceContext::requireDeviceInfo() {
    // Only getName() has an answer without a device description. Elsewhere a
    // missing description is the plug-in's set-up error, reported as such
    // rather than followed into an empty pointer.
    boost::shared_ptr<DIDevice> description = getDeviceInfo();
    if (!description)
        CoreException::createAndThrow("deviceContext", ERR_DEVICE_INFO,
                                      "Device context %s has no device description",
                                      getId().c_str());
    return description;
}
