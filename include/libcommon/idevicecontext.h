#ifndef LIBCOMMON_IDEVICECONTEXT_H
#define LIBCOMMON_IDEVICECONTEXT_H

// One target chip on one tool connection: the hub of a debug session. From
// a device context a client reaches the process, run control, memories and
// registers of the chip, and through it a session is started and ended.

#include "libcommon/core/json_spirit.h"
#include "libcommon/core/packet.h"
#include "libcommon/icontextbase.h"

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <string>
#include <vector>

class Status;
class IProcessContext;
class IRunControlContext;
class IMemoryContext;
class IRegistersContext;
class IBreakpointsTarget;
class IStimuliTarget;
class ITraceContext;
class ITraceTarget;
class IResourceInfoProvider;
class MaskedIODetails;
class DIDevice;
struct DeviceId;

class IDeviceContext : public IContextBase {
public:
    // The kind of session a plug-in has started. Only plug-ins tell the
    // kinds apart; the library just stores the value.
    enum SessionType { SessionNone = 0, SessionProgramming = 1, SessionDebugging = 2 };

    // Requests a plug-in may act on outside of normal run control. The base
    // class acts on SpecialOperationRequest only, by recording that it was
    // asked for; the meaning of every value lies with the plug-in.
    enum SpecialOperation {
        SpecialOperationNone = 0,
        SpecialOperationReset = 1,
        SpecialOperationErase = 2,
        SpecialOperationUnlock = 3,
        SpecialOperationRequest = 4
    };

    // Device-specific facts a plug-in can answer through getProperty.
    enum DeviceProperty {
        DevicePropertyNone = 0,
        DevicePropertySignature = 1,
        DevicePropertyJtagId = 2,
        DevicePropertyFlashSize = 3,
        DevicePropertyFlashPageSize = 4
    };

    // What getInfo answers from the device description.
    // A fixed base type: a plug-in may ask for any number, unknown ones give null.
    enum DeviceInfo : int { DeviceInfoName = 0, DeviceInfoArchitecture = 1 };

    typedef boost::signals2::signal<void(boost::shared_ptr<IDeviceContext>, bool)>
        ExternalResetSignal;
    typedef boost::signals2::signal<void(boost::shared_ptr<IDeviceContext>, bool)> PowerStateSignal;
    typedef boost::signals2::signal<void(boost::shared_ptr<IDeviceContext>, std::vector<uint8_t>&)>
        TargetEventSignal;

    virtual std::string getName() = 0;
    virtual boost::shared_ptr<DeviceId> startSession(
        Status& status, SessionType type, bool attach,
        boost::shared_ptr<IProcessContext> process) = 0;
    virtual bool endSession() = 0;
    virtual SessionType getSessionType() const = 0;
    virtual boost::shared_ptr<IProcessContext> getProcess() = 0;
    virtual boost::shared_ptr<IRunControlContext> getRunControl() = 0;
    virtual std::vector<boost::shared_ptr<IMemoryContext>> getMemories() = 0;
    virtual boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) = 0;
    virtual std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() = 0;
    virtual boost::shared_ptr<IRegistersContext> getRegister(const std::string& name) = 0;
    virtual boost::shared_ptr<IBreakpointsTarget> getBreakpointsTarget() = 0;
    virtual boost::shared_ptr<IStimuliTarget> getStimuliTarget() = 0;
    virtual boost::shared_ptr<ITraceContext> getTraceContext() = 0;
    virtual boost::shared_ptr<ITraceTarget> getTraceTarget() = 0;
    virtual boost::shared_ptr<IResourceInfoProvider> getResourceInfoProvider() = 0;

    // Two slots kept for plug-ins; nothing in the library calls them. A
    // plug-in gives them its own meaning (the second, for example, for a
    // raw command with a data block and five argument words).
    virtual void deviceExtension() = 0;
    virtual int deviceCommand(boost::shared_ptr<void> data, uint32_t word0, uint32_t word1,
                              uint32_t word2, uint32_t word3, uint32_t word4) {
        (void)word0;
        (void)word1;
        (void)word2;
        (void)word3;
        (void)word4;
        data.reset();
        return 0;
    }

    virtual boost::shared_ptr<DIDevice> getDeviceInfo() = 0;
    virtual json_spirit::Value getInfo(DeviceInfo which) = 0;
    virtual Packet getDeviceConfigurationPacket() = 0;
    virtual void getOcdMaskedIOAddresses(boost::shared_ptr<MaskedIODetails> details) = 0;
    virtual void specialOperation(Status& status, SpecialOperation operation) = 0;
    // The group number is accepted for compatibility and not used: handlers
    // run in the order they were added.
    virtual boost::signals2::connection addExternalResetHandler(
        int group, const ExternalResetSignal::slot_type& handler) const = 0;
    virtual boost::signals2::connection addPowerStateHandler(
        int group, const PowerStateSignal::slot_type& handler) const = 0;
    virtual boost::signals2::connection addTargetEventHandler(
        int group, const TargetEventSignal::slot_type& handler) const = 0;
    virtual json_spirit::Value getProperty(DeviceProperty property) = 0;
};

#endif
