// Device contexts: answers from the device description, the plug-in points,
// name lookups over the plug-in's lists and the device-level signals.

#include "libcommon/context/devicecontext.h"
#include "libcommon/context/registerscontext.h"
#include "libcommon/core/status.h"
#include "libcommon/device/devicemodel.h"
#include "libcommon/imemorycontext.h"
#include "libcommon/iphysicalinterface.h"
#include "libcommon/itarndebugger.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace js = json_spirit;

namespace {

struct NoDebugger : ITarnDebugger {
    boost::shared_ptr<IBreakpointService> getBreakpointService() override {
        return boost::shared_ptr<IBreakpointService>();
    }
};

// Only the name matters to the device's lookups.
class NamedMemory : public ContextBase<IMemoryContext> {
public:
    explicit NamedMemory(const std::string& name)
        : ContextBase<IMemoryContext>(name, {}), name(name) {}
    std::string getMemoryName() override { return name; }
    boost::shared_ptr<IProcessContext> getProcess() override { return {}; }
    bool isMemoryBigEndian() override { return false; }
    int getMemoryAddressSize() override { return 2; }
    uint64_t getMemoryStartBound() override { return 0; }
    uint64_t getMemoryEndBound() override { return 0; }
    std::vector<std::string> getMemoryAccessTypes() override { return {}; }
    void setMemory(uint64_t, int, const std::vector<unsigned char>&, uint64_t, uint64_t,
                   MemoryAccessMode, IIntermediateResult*,
                   boost::shared_ptr<IMemoryError>&) override {}
    void getMemory(uint64_t, int, std::vector<unsigned char>&, uint64_t, uint64_t, MemoryAccessMode,
                   IIntermediateResult*, boost::shared_ptr<IMemoryError>&) override {}
    void fillMemory(uint64_t, int, const std::vector<unsigned char>&, uint64_t, MemoryAccessMode,
                    IIntermediateResult*, boost::shared_ptr<IMemoryError>&) override {}
    boost::signals2::connection addMemoryChangedHandler(
        const MemoryChangedSignal::slot_type&) const override {
        return {};
    }
    void SetChipLocked(bool) override {}
    void defineCacheRegion(uint64_t, unsigned int, unsigned int) override {}
    void defineUncacheableRegion(uint64_t, uint64_t) override {}
    void commitCachedChanges(IIntermediateResult*, boost::shared_ptr<IMemoryError>&) override {}
    void getPersistedSegments(std::vector<PersistedMemSegment>&) override {}
    std::string name;
};

class NamedRegister : public GeneralRegistersContext {
public:
    explicit NamedRegister(const std::string& name)
        : GeneralRegistersContext(boost::shared_ptr<IProcessContext>(), name, "", 1, false, 0,
                                  boost::shared_ptr<IMemoryContext>(), "", 0) {}

protected:
    void readRegister(std::vector<uint8_t>&) override {}
    void writeRegister(const std::vector<uint8_t>&) override {}
};

// A plug-in that has implemented nothing, exposing what plug-ins may use.
class BareDevice : public GeneralDeviceContext {
public:
    BareDevice(ITarnDebugger& debugger, boost::shared_ptr<DIDevice> description,
               boost::shared_ptr<IDeviceContext> parent = boost::shared_ptr<IDeviceContext>(),
               const std::string& id = "dev0")
        : GeneralDeviceContext(debugger, id, parent, description,
                               boost::shared_ptr<IPhysicalInterface>()) {}
    void deviceExtension() override {}

    using GeneralDeviceContext::externalResetSignal;
    using GeneralDeviceContext::getRegister;
    using GeneralDeviceContext::getRegisterGroup;
    using GeneralDeviceContext::powerStateSignal;
    using GeneralDeviceContext::specialOperationRequested;
    using GeneralDeviceContext::targetEventSignal;
};

// A plug-in that lists memories and registers.
class ListingDevice : public BareDevice {
public:
    explicit ListingDevice(ITarnDebugger& debugger) : BareDevice(debugger, nullptr) {}
    std::vector<boost::shared_ptr<IMemoryContext>> getMemories() override { return memories; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return registers; }
    std::vector<boost::shared_ptr<IMemoryContext>> memories;
    std::vector<boost::shared_ptr<IRegistersContext>> registers;
};

boost::shared_ptr<ModelDevice> makeDescription() {
    auto device = boost::make_shared<ModelDevice>("TN8X16", "TARN8X", "sprig");
    auto group = device->addModule("PORT", "U1234")->addRegisterGroup("PORTA", 0x400);
    group->addRegister("DIR", 0, 1);
    group->addRegister("OUT", 4, 1);
    return device;
}

void expectNotImplemented(const std::function<void()>& call, const char* what) {
    try {
        call();
        ADD_FAILURE() << what << " did not throw";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ("Not implemented!", e.what()) << what;
    }
}

}  // namespace

TEST(GeneralDevice, AnswersFromTheDeviceDescription) {
    NoDebugger debugger;
    auto described = boost::make_shared<BareDevice>(debugger, makeDescription());
    EXPECT_EQ("TN8X16", described->getName());
    EXPECT_EQ(js::Value("TN8X16"), described->getInfo(IDeviceContext::DeviceInfoName));
    EXPECT_EQ(js::Value("TARN8X"), described->getInfo(IDeviceContext::DeviceInfoArchitecture));
    EXPECT_TRUE(described->getInfo(static_cast<IDeviceContext::DeviceInfo>(2)).is_null());

    auto child = boost::make_shared<BareDevice>(debugger, nullptr, described, "dev1");
    const js::Object expected{js::Pair("ID", "dev1"), js::Pair("ParentID", "dev0")};
    EXPECT_EQ(expected, child->getProperties());
    EXPECT_EQ(js::Object{js::Pair("ID", "dev0")}, described->getProperties());
}

TEST(GeneralDevice, WithoutDescriptionOnlyTheNameHasAnAnswer) {
    NoDebugger debugger;
    auto bare = boost::make_shared<BareDevice>(debugger, nullptr);
    EXPECT_EQ("", bare->getName());
    EXPECT_TRUE(bare->getInfo(static_cast<IDeviceContext::DeviceInfo>(2)).is_null());
    for (auto which : {IDeviceContext::DeviceInfoName, IDeviceContext::DeviceInfoArchitecture}) {
        try {
            bare->getInfo(which);
            ADD_FAILURE() << "getInfo(" << which << ") without a description";
        } catch (const CoreException& e) {
            EXPECT_EQ(ERR_DEVICE_INFO, e.getStatus()->getErrorCode());
            EXPECT_EQ("Device context dev0 has no device description", e.getStatus()->getMessage());
        }
    }
    EXPECT_THROW(bare->getRegisterGroup("PORT", "PORTA"), CoreException);
}

TEST(GeneralDevice, PluginPointsThrowOrGiveNothing) {
    NoDebugger debugger;
    auto device = boost::make_shared<BareDevice>(debugger, makeDescription());
    Status status;
    expectNotImplemented(
        [&] { device->startSession(status, IDeviceContext::SessionDebugging, false, nullptr); },
        "startSession");
    expectNotImplemented([&] { device->endSession(); }, "endSession");
    expectNotImplemented([&] { device->getProcess(); }, "getProcess");
    expectNotImplemented([&] { device->getRunControl(); }, "getRunControl");
    expectNotImplemented([&] { device->getMemories(); }, "getMemories");
    expectNotImplemented([&] { device->getMemory("prog"); }, "getMemory");
    expectNotImplemented([&] { device->getRegisters(); }, "getRegisters");
    expectNotImplemented([&] { device->getRegister("PC"); }, "getRegister");
    expectNotImplemented([&] { device->getBreakpointsTarget(); }, "getBreakpointsTarget");
    expectNotImplemented([&] { device->getDeviceConfigurationPacket(); },
                         "getDeviceConfigurationPacket");
    expectNotImplemented([&] { device->getOcdMaskedIOAddresses(nullptr); },
                         "getOcdMaskedIOAddresses");
    expectNotImplemented([&] { device->getProperty(IDeviceContext::DevicePropertyNone); },
                         "getProperty");
    expectNotImplemented([&] { device->erase(); }, "erase");

    EXPECT_FALSE(device->getStimuliTarget());
    EXPECT_FALSE(device->getTraceContext());
    EXPECT_FALSE(device->getTraceTarget());
    EXPECT_FALSE(device->getResourceInfoProvider());
}

TEST(GeneralDevice, SpecialOperationOnlyRecordsTheRequest) {
    NoDebugger debugger;
    auto device = boost::make_shared<BareDevice>(debugger, nullptr);
    Status status(SeverityWarning, ERR_GENERAL, "left alone");

    device->specialOperation(status, static_cast<IDeviceContext::SpecialOperation>(3));
    EXPECT_FALSE(device->specialOperationRequested);
    device->specialOperation(status, static_cast<IDeviceContext::SpecialOperation>(4));
    EXPECT_TRUE(device->specialOperationRequested);

    EXPECT_EQ(ERR_GENERAL, status.getErrorCode());
    EXPECT_EQ("left alone", status.getMessage());
}

TEST(GeneralDevice, LooksUpMemoriesAndRegistersByExactName) {
    NoDebugger debugger;
    auto device = boost::make_shared<ListingDevice>(debugger);
    EXPECT_FALSE(device->getMemory("prog"));
    EXPECT_FALSE(device->getRegister("PC"));

    auto prog = boost::make_shared<NamedMemory>("prog");
    auto progCopy = boost::make_shared<NamedMemory>("prog");
    auto data = boost::make_shared<NamedMemory>("data");
    device->memories = {data, prog, progCopy};
    auto pc = boost::make_shared<NamedRegister>("PC");
    auto sp = boost::make_shared<NamedRegister>("SP");
    device->registers = {sp, pc};

    EXPECT_EQ(prog, device->getMemory("prog"));  // the first of two
    EXPECT_EQ(data, device->getMemory("data"));
    EXPECT_FALSE(device->getMemory("PROG"));
    EXPECT_EQ(pc, device->getRegister("PC"));
    EXPECT_FALSE(device->getRegister("pc"));
}

TEST(GeneralDevice, LooksUpDescriptionRegisters) {
    NoDebugger debugger;
    auto device = boost::make_shared<BareDevice>(debugger, makeDescription());
    auto group = device->getRegisterGroup("PORT", "PORTA");
    ASSERT_TRUE(group);
    auto out = device->getRegister("PORT", "PORTA", "OUT");
    ASSERT_TRUE(out);
    EXPECT_EQ("OUT", out->getName());
    EXPECT_EQ(out, device->getRegister(group, "OUT"));

    EXPECT_FALSE(device->getRegisterGroup("TIMER", "PORTA"));
    EXPECT_FALSE(device->getRegisterGroup("PORT", "PORTB"));
    EXPECT_FALSE(device->getRegister("PORT", "PORTA", "IN"));
    EXPECT_FALSE(device->getRegister(boost::shared_ptr<DIRegisterGroup>(), "OUT"));
}

TEST(GeneralDevice, SignalHandlersRunInTheOrderAddedWhateverTheGroup) {
    NoDebugger debugger;
    auto device = boost::make_shared<BareDevice>(debugger, nullptr);
    boost::shared_ptr<IDeviceContext> self = device;
    std::vector<std::string> calls;
    auto record = [&](const std::string& what) {
        return [&calls, what](boost::shared_ptr<IDeviceContext>, bool) { calls.push_back(what); };
    };
    device->addExternalResetHandler(5, record("reset5"));
    device->addExternalResetHandler(1, record("reset1"));
    device->addPowerStateHandler(5, record("power5"));
    device->addPowerStateHandler(1, record("power1"));
    device->addTargetEventHandler(
        5, [&](boost::shared_ptr<IDeviceContext>, std::vector<uint8_t>& e) {
            e.push_back(0x55);  // handlers may answer through the event bytes
        });
    device->addTargetEventHandler(
        1, [&](boost::shared_ptr<IDeviceContext> d, std::vector<uint8_t>& e) {
            EXPECT_EQ(self, d);
            calls.push_back("event1:" + std::to_string(e.size()));
        });

    device->externalResetSignal(self, true);
    device->powerStateSignal(self, false);
    std::vector<uint8_t> event{1};
    device->targetEventSignal(self, event);
    EXPECT_EQ((std::vector<std::string>{"reset5", "reset1", "power5", "power1", "event1:2"}),
              calls);
}
