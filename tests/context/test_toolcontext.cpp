// Tool contexts: interface selection by name, the property list with its
// device numbering, and how a property list pairs an interface and a device.

// First, so that the template of the tool's base is read as that header wants.
#include "libcommon/context/toolcontext.h"

#include "libcommon/context/devicecontext.h"
#include "libcommon/core/status.h"
#include "libcommon/iphysicalinterface.h"
#include "libcommon/itarndebugger.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <string>
#include <vector>

namespace js = json_spirit;

namespace {

struct NoDebugger : ITarnDebugger {
    boost::shared_ptr<IBreakpointService> getBreakpointService() override {
        return boost::shared_ptr<IBreakpointService>();
    }
};

// A device that remembers the last list it was given.
class RecordingDevice : public GeneralDeviceContext {
public:
    RecordingDevice(ITarnDebugger& debugger, const std::string& id, const std::string& name)
        : GeneralDeviceContext(debugger, id, boost::shared_ptr<IDeviceContext>(),
                               boost::shared_ptr<DIDevice>(),
                               boost::shared_ptr<IPhysicalInterface>()),
          name(name) {}
    std::string getName() override { return name; }
    void setProperties(js::Object& properties) override { received.push_back(properties); }
    void deviceExtension() override {}

    std::string name;
    std::vector<js::Object> received;
};

class FakeInterface : public IPhysicalInterface {
public:
    FakeInterface(ITarnDebugger& debugger, const std::string& name)
        : debugger(debugger), name(name) {}
    std::string getName() override { return name; }
    js::Object getProperties() override { return properties; }
    void setProperties(const js::Object& list) override { properties = list; }
    const std::vector<boost::shared_ptr<IDeviceContext>>& getDevices() override { return devices; }
    boost::shared_ptr<IDeviceContext> pairDevice(const std::string& deviceName) override {
        auto device = boost::make_shared<RecordingDevice>(
            debugger, name + "-dev" + std::to_string(devices.size()), deviceName);
        devices.push_back(device);
        return device;
    }
    boost::shared_ptr<RecordingDevice> device(std::size_t i) {
        return boost::static_pointer_cast<RecordingDevice>(devices.at(i));
    }

    ITarnDebugger& debugger;
    std::string name;
    js::Object properties;
    std::vector<boost::shared_ptr<IDeviceContext>> devices;
};

class TestTool : public GeneralTool {
public:
    TestTool(ITarnDebugger& debugger, boost::shared_ptr<Connection> connection = nullptr,
             boost::shared_ptr<IToolContext> parent = nullptr)
        : GeneralTool(debugger, parent, "probe", connection, "tool1") {}

    bool connect(Status&) override { return true; }
    void disconnect() override {}
    bool isConnected() override { return true; }
    js::Object getFirmwareVersion(Status&) override { return {}; }
    bool upgradeFirmware(Status&, IIntermediateResult*) override { return false; }
    bool setTargetPower(Status&, bool) override { return false; }
    double getTargetVoltage(Status&) override { return 0.0; }
    bool resetTool(Status&) override { return false; }
    std::string getSerialNumber() override { return "SN1"; }
    std::string getToolType() override { return "test"; }

    js::Object getFirmwareVersionsOnDisk() override { return firmware; }
    void setBoardProperties(const js::Object& list) override { board.push_back(list); }

    using GeneralTool::availableInterfaces;
    using GeneralTool::extraProperties;
    using GeneralTool::physicalInterfaces;

    js::Object firmware;
    std::vector<js::Object> board;
};

struct Rig {
    NoDebugger debugger;
    boost::shared_ptr<TestTool> tool = boost::make_shared<TestTool>(debugger);
    boost::shared_ptr<FakeInterface> jtag = boost::make_shared<FakeInterface>(debugger, "JTAG");
    boost::shared_ptr<FakeInterface> swd = boost::make_shared<FakeInterface>(debugger, "SWD");
    Rig() { tool->availableInterfaces = {jtag, swd}; }
};

std::vector<std::string> keysOf(const js::Object& list) {
    std::vector<std::string> keys;
    for (const js::Pair& pair : list) keys.push_back(pair.name_);
    return keys;
}

}  // namespace

TEST(GeneralTool, ListWithoutInterfaceHasNameAndEmptyDeviceId) {
    Rig rig;
    const js::Object expected{js::Pair("ID", "tool1"), js::Pair("Name", "probe"),
                              js::Pair("DeviceId", "")};
    EXPECT_EQ(expected, rig.tool->getProperties());

    auto child = boost::make_shared<TestTool>(rig.debugger, nullptr, rig.tool);
    EXPECT_EQ((std::vector<std::string>{"ID", "ParentID", "Name", "DeviceId"}),
              keysOf(child->getProperties()));
}

TEST(GeneralTool, SelectsInterfacesByNameIgnoringCase) {
    Rig rig;
    EXPECT_FALSE(rig.tool->getPhysicalInterface());
    EXPECT_EQ(rig.jtag, rig.tool->getPhysicalInterface("jtag"));
    EXPECT_EQ(rig.jtag, rig.tool->getPhysicalInterface());
    EXPECT_EQ(rig.swd, rig.tool->getPhysicalInterface("Swd"));
    ASSERT_EQ(1u, rig.tool->getPhysicalInterfaces().size());
    EXPECT_EQ(rig.swd, rig.tool->getPhysicalInterfaces()[0]);

    // An unknown name drops the selection, and with it the interface keys.
    EXPECT_FALSE(rig.tool->getPhysicalInterface("ISP"));
    EXPECT_TRUE(rig.tool->getPhysicalInterfaces().empty());
    EXPECT_EQ((std::vector<std::string>{"ID", "Name", "DeviceId"}),
              keysOf(rig.tool->getProperties()));
}

TEST(GeneralTool, ListNumbersFurtherDevicesAndPutsTheFirstBehindThem) {
    Rig rig;
    rig.jtag->properties = {js::Pair("JtagDbgClock", 1000000)};
    for (const char* name : {"TN8X16", "TN8X32", "TN8X64"}) rig.jtag->pairDevice(name);
    rig.tool->getPhysicalInterface("JTAG");
    rig.tool->extraProperties = {js::Pair("State", "Ready")};
    rig.tool->firmware = {js::Pair("Firmware", "1.2")};

    const js::Object expected{js::Pair("ID", "tool1"),
                              js::Pair("Name", "probe"),
                              js::Pair("DeviceId1", "JTAG-dev1"),
                              js::Pair("DeviceId2", "JTAG-dev2"),
                              js::Pair("DeviceId", "JTAG-dev0"),
                              js::Pair("InterfaceName", "JTAG"),
                              js::Pair("InterfaceProperties", rig.jtag->properties),
                              js::Pair("State", "Ready"),
                              js::Pair("Firmware", "1.2")};
    EXPECT_EQ(expected, rig.tool->getProperties());

    EXPECT_EQ(3u, rig.tool->getToolDevices().size());
    EXPECT_EQ(rig.jtag->devices[1], rig.tool->getDevice("tn8x32"));
    EXPECT_FALSE(rig.tool->getDevice("TN8X128"));
}

TEST(GeneralTool, ListRefusesMoreThanOneSelectedInterface) {
    Rig rig;
    rig.tool->physicalInterfaces = {rig.jtag, rig.swd};
    try {
        rig.tool->getProperties();
        ADD_FAILURE() << "two interfaces accepted";
    } catch (const char* text) {
        EXPECT_STREQ("Multiple physical interfaces not implemented", text);
    }
}

TEST(GeneralTool, SetPropertiesPairsConfiguresAndForwardsTheWholeList) {
    Rig rig;
    const js::Object ifSettings{js::Pair("SwdClock", 4000000)};
    const js::Object board{js::Pair("Voltage", 3300)};
    const js::Object list{
        js::Pair("InterfaceName", "jtag"),  js::Pair("InterfaceType", "swd"),
        js::Pair("DeviceName", "TN32P1"),   js::Pair("InterfaceProperties", ifSettings),
        js::Pair("BoardProperties", board), js::Pair("Custom", 7)};
    rig.tool->setProperties(list);

    ASSERT_EQ(1u, rig.tool->board.size());
    EXPECT_EQ(board, rig.tool->board[0]);
    // "InterfaceType" came later and won.
    EXPECT_TRUE(rig.jtag->devices.empty());
    ASSERT_EQ(1u, rig.swd->devices.size());
    EXPECT_EQ("TN32P1", rig.swd->devices[0]->getName());
    EXPECT_EQ(ifSettings, rig.swd->properties);
    EXPECT_EQ(rig.swd, rig.tool->getPhysicalInterface());
    ASSERT_EQ(1u, rig.swd->device(0)->received.size());
    EXPECT_EQ(list, rig.swd->device(0)->received[0]);
    EXPECT_EQ(js::Pair("DeviceId", "SWD-dev0"), rig.tool->getProperties()[2]);
}

TEST(GeneralTool, SetPropertiesWithoutInterfaceNameUsesTheSelectedOne) {
    Rig rig;
    const js::Object board{js::Pair("Voltage", 5000)};
    const js::Object list{js::Pair("DeviceName", "TN8X16"), js::Pair("BoardProperties", board)};

    // Nothing selected: the board still hears, nothing is paired.
    rig.tool->setProperties(list);
    EXPECT_EQ(1u, rig.tool->board.size());
    EXPECT_TRUE(rig.jtag->devices.empty() && rig.swd->devices.empty());
    EXPECT_FALSE(rig.tool->getPhysicalInterface());

    rig.tool->getPhysicalInterface("JTAG");
    rig.tool->setProperties(list);
    ASSERT_EQ(1u, rig.jtag->devices.size());
    EXPECT_EQ("TN8X16", rig.jtag->devices[0]->getName());

    // An empty board list is not passed on; a name alone selects.
    rig.tool->setProperties(
        js::Object{js::Pair("InterfaceName", "SWD"), js::Pair("BoardProperties", js::Object())});
    EXPECT_EQ(2u, rig.tool->board.size());
    EXPECT_EQ(rig.swd, rig.tool->getPhysicalInterface());
}

TEST(GeneralTool, NonConstListThroughTheBaseEntryIsIgnored) {
    Rig rig;
    js::Object list{js::Pair("InterfaceName", "JTAG"), js::Pair("DeviceName", "TN8X16")};
    IContextBase& base = *rig.tool;
    base.setProperties(list);
    rig.tool->setProperties(list);  // the non-const list picks the same entry
    EXPECT_FALSE(rig.tool->getPhysicalInterface());
    EXPECT_TRUE(rig.jtag->devices.empty());
}

TEST(GeneralTool, IdHandlerAndSettingsDialog) {
    Rig rig;
    EXPECT_FALSE(rig.tool->pairDeviceAndInterface("ISP", "TN8X16"));

    rig.tool->callIdHandler();  // no handler: nothing happens
    std::vector<std::string> ids;
    rig.tool->setIdHandler([&](std::string id) { ids.push_back(id); });
    rig.tool->callIdHandler();
    rig.tool->setIdHandler([&](std::string id) { ids.push_back("second " + id); });
    rig.tool->callIdHandler();
    EXPECT_EQ((std::vector<std::string>{"tool1", "second tool1"}), ids);

    Status status;
    rig.tool->showSettings(status, "anything");
    EXPECT_EQ(static_cast<unsigned int>(SeverityWarning), status.getSeverity());
    EXPECT_EQ("toolContext", status.getComponent());
    EXPECT_EQ(ERR_NOT_SUPPORTED, status.getErrorCode());
    EXPECT_EQ("Show Settings not supported ", status.getMessage());
}
