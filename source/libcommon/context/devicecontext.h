#ifndef LIBCOMMON_CONTEXT_DEVICECONTEXT_H
#define LIBCOMMON_CONTEXT_DEVICECONTEXT_H

#include "libcommon/context/contextbase.h"
#include "libcommon/idevicecontext.h"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <string>
#include <vector>

class ITarnDebugger;
class IPhysicalInterface;
class DIRegisterGroup;
class DIRegister;

// Base class of a tool plug-in's device context. It holds the device
// description, the physical interface and the three device-level signals,
// and answers name lookups and what the description can answer. Everything
// that needs the target throws "Not implemented!" until a plug-in overrides
// it; the optional parts give an empty pointer.
//
// The signals are raised by derived classes only, when their target reports
// an external reset, a power change or a target event.
class GeneralDeviceContext : public ContextBase<IDeviceContext> {
public:
    // The parent and the device description may be empty; the interface is
    // held weakly, so a device does not keep its interface alive.
    GeneralDeviceContext(ITarnDebugger& debugger, std::string id,
                         boost::shared_ptr<IDeviceContext> parent,
                         boost::shared_ptr<DIDevice> deviceInfo,
                         boost::shared_ptr<IPhysicalInterface> physicalInterface);

    // The description's name, or the empty string without a description.
    std::string getName() override;
    boost::shared_ptr<DeviceId> startSession(Status& status, SessionType type, bool attach,
                                             boost::shared_ptr<IProcessContext> process) override;
    bool endSession() override;
    SessionType getSessionType() const override;
    boost::shared_ptr<IProcessContext> getProcess() override;
    boost::shared_ptr<IRunControlContext> getRunControl() override;
    std::vector<boost::shared_ptr<IMemoryContext>> getMemories() override;
    // First memory of getMemories() whose name matches exactly, with case.
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override;
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override;
    // First register of getRegisters() whose name matches exactly, with case.
    boost::shared_ptr<IRegistersContext> getRegister(const std::string& name) override;
    boost::shared_ptr<IBreakpointsTarget> getBreakpointsTarget() override;
    boost::shared_ptr<IStimuliTarget> getStimuliTarget() override;
    boost::shared_ptr<ITraceContext> getTraceContext() override;
    boost::shared_ptr<ITraceTarget> getTraceTarget() override;
    boost::shared_ptr<IResourceInfoProvider> getResourceInfoProvider() override;
    boost::shared_ptr<DIDevice> getDeviceInfo() override;
    // DeviceInfoName and DeviceInfoArchitecture as strings from the device
    // description; any other value gives a null Value.
    json_spirit::Value getInfo(DeviceInfo which) override;
    Packet getDeviceConfigurationPacket() override;
    void getOcdMaskedIOAddresses(boost::shared_ptr<MaskedIODetails> details) override;
    // Records SpecialOperationRequest in specialOperationRequested; all else
    // is left to plug-ins. The status is never touched here.
    void specialOperation(Status& status, SpecialOperation operation) override;
    boost::signals2::connection addExternalResetHandler(
        int group, const ExternalResetSignal::slot_type& handler) const override;
    boost::signals2::connection addPowerStateHandler(
        int group, const PowerStateSignal::slot_type& handler) const override;
    boost::signals2::connection addTargetEventHandler(
        int group, const TargetEventSignal::slot_type& handler) const override;
    json_spirit::Value getProperty(DeviceProperty property) override;

    virtual void erase();

protected:
    virtual ITarnDebugger& getTarnDbg();

    // Lookups in the device description, for plug-ins. A missing module,
    // group or register gives an empty pointer.
    boost::shared_ptr<DIRegisterGroup> getRegisterGroup(const std::string& moduleName,
                                                        const std::string& groupName);
    boost::shared_ptr<DIRegister> getRegister(const std::string& moduleName,
                                              const std::string& groupName,
                                              const std::string& registerName);
    boost::shared_ptr<DIRegister> getRegister(boost::shared_ptr<DIRegisterGroup> group,
                                              const std::string& registerName);

    ITarnDebugger& debugger;
    boost::weak_ptr<IPhysicalInterface> physicalInterface;
    boost::shared_ptr<DIDevice> deviceInfo;
    SessionType sessionType;
    mutable ExternalResetSignal externalResetSignal;
    mutable PowerStateSignal powerStateSignal;
    mutable TargetEventSignal targetEventSignal;
    bool specialOperationRequested;

private:
    // The description, or a clear error for the operations that need one.
    boost::shared_ptr<DIDevice> requireDeviceInfo();
};

#endif
