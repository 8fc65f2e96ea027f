// The probe binding against the fake probe library. The binding's state is
// process-wide and the library is found by the dynamic linker's search
// path, so each scenario runs in a process of its own with the search path
// it needs (see CMakeLists.txt): one test of this file per process.

#include "libcommon/probe/cmsisdapinterface.h"

#include "fake/fakecmsisdap.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class RecordingChannel : public Poco::Channel {
public:
    void log(const Poco::Message& message) override { messages.push_back(message); }
    std::vector<Poco::Message> messages;
};

class CmsisDap : public ::testing::Test {
protected:
    void SetUp() override {
        Poco::Logger::get("cmsis").setChannel(channel);
        Poco::Logger::get("cmsis").setLevel(Poco::Message::PRIO_TRACE);
    }
    void TearDown() override { Poco::Logger::get("cmsis").setChannel(nullptr); }

    const std::vector<Poco::Message>& logged() const { return channel->messages; }

    Poco::AutoPtr<RecordingChannel> channel{new RecordingChannel};
};

int code(int position) {
    return FAKE_RESULT_BASE + position;
}

void logInto(void* context, const char* const message, int level) {
    *static_cast<std::string*>(context) = message + std::string("@") + std::to_string(level);
}

}  // namespace

// Library: the complete fake.
TEST_F(CmsisDap, LoadsAreCountedAndTheLastUnloadUnloads) {
    ASSERT_TRUE(CmsisDapInterface::loadLib());
    EXPECT_TRUE(CmsisDapInterface::loadLib());
    EXPECT_TRUE(CmsisDapInterface::inUse());

    EXPECT_TRUE(CmsisDapInterface::unloadLib());
    EXPECT_TRUE(CmsisDapInterface::inUse()) << "one user is left";
    EXPECT_EQ(code(2), CmsisDapInterface::rddi_Close(0));

    EXPECT_TRUE(CmsisDapInterface::unloadLib());
    EXPECT_FALSE(CmsisDapInterface::inUse());

    // After the last unload the next load binds afresh.
    ASSERT_TRUE(CmsisDapInterface::loadLib());
    EXPECT_EQ(code(28),
              CmsisDapInterface::rddi_CMSIS_DAP_Commands(0, 0, nullptr, nullptr, nullptr, nullptr));
    EXPECT_TRUE(CmsisDapInterface::unloadLib());
    EXPECT_FALSE(CmsisDapInterface::inUse());
    EXPECT_TRUE(logged().empty());
}

// Library: the complete fake.
TEST_F(CmsisDap, EveryPointerReachesItsOwnFunction) {
    ASSERT_TRUE(CmsisDapInterface::loadLib());
    typedef CmsisDapInterface P;
    int handle = 0;
    EXPECT_EQ(code(1), P::rddi_Open(&handle, nullptr));
    EXPECT_EQ(FAKE_HANDLE, handle);
    EXPECT_EQ(code(2), P::rddi_Close(handle));

    int error = 0;
    char text[8] = {};
    EXPECT_EQ(code(3), P::rddi_GetLastError(&error, text, sizeof text));
    EXPECT_EQ(FAKE_LAST_ERROR, error);
    EXPECT_EQ(std::string(FAKE_ERROR_TEXT, 7), text) << "cut to the buffer it was given";

    std::string log;
    P::rddi_SetLogCallback(handle, logInto, &log, 3);
    EXPECT_EQ(std::string(FAKE_LOG_TEXT) + "@3", log);

    int out = 0;
    int regs[1] = {};
    EXPECT_EQ(code(5), P::rddi_DAP_GetInterfaceVersion(handle, &out));
    EXPECT_EQ(code(6), P::rddi_DAP_Configure(handle, ""));
    EXPECT_EQ(code(7), P::rddi_DAP_Connect(handle, nullptr));
    EXPECT_EQ(code(8), P::rddi_DAP_Disconnect(handle));
    EXPECT_EQ(code(9), P::rddi_DAP_GetSupportedOptimisationLevel(handle, &out));
    EXPECT_EQ(code(10), P::rddi_DAP_GetNumberOfDAPs(handle, &out));
    EXPECT_EQ(code(11), P::rddi_DAP_GetDAPIDList(handle, regs, 1));
    EXPECT_EQ(code(12), P::rddi_DAP_ReadReg(handle, 0, 0x0C, &out));
    EXPECT_EQ(FAKE_HANDLE + 0x0C, out) << "arguments arrive in their places";
    EXPECT_EQ(code(13), P::rddi_DAP_WriteReg(handle, 0, 0x0C, 1));
    EXPECT_EQ(code(14), P::rddi_DAP_RegAccessBlock(handle, 0, 1, regs, regs));
    EXPECT_EQ(code(15), P::rddi_DAP_RegWriteBlock(handle, 0, 1, regs, regs));
    EXPECT_EQ(code(16), P::rddi_DAP_RegReadBlock(handle, 0, 1, regs, regs));
    EXPECT_EQ(code(17), P::rddi_DAP_RegWriteRepeat(handle, 0, 1, 0, regs));
    EXPECT_EQ(code(18), P::rddi_DAP_RegReadRepeat(handle, 0, 1, 0, regs));
    EXPECT_EQ(code(19), P::rddi_DAP_RegReadWaitForValue(handle, 0, 1, 0, regs, regs));
    EXPECT_EQ(code(20), P::rddi_DAP_Target(handle, "", text, sizeof text));
    EXPECT_EQ(code(21), P::rddi_DAP_DefineSequence(handle, 0, nullptr));
    EXPECT_EQ(code(22), P::rddi_DAP_RunSequence(handle, 0, nullptr, nullptr));
    EXPECT_EQ(code(23), P::rddi_CMSIS_DAP_Detect(handle, &out));
    EXPECT_EQ(code(24), P::rddi_CMSIS_DAP_Identify(handle, 0, 0, text, sizeof text));
    EXPECT_EQ(code(25), P::rddi_CMSIS_DAP_ConfigureInterface(handle, 0, text));
    EXPECT_EQ(code(26), P::rddi_CMSIS_DAP_DetectNumberOfDAPs(handle, &out));
    EXPECT_EQ(code(27), P::rddi_CMSIS_DAP_DetectDAPIDList(handle, regs, 1));

    unsigned char request[] = {0x00, 0x7F, 0xFE};
    unsigned char response[3] = {};
    unsigned char* requests[] = {request};
    unsigned char* responses[] = {response};
    int requestLength = 3, responseLength = 0;
    EXPECT_EQ(code(28), P::rddi_CMSIS_DAP_Commands(handle, 1, requests, &requestLength, responses,
                                                   &responseLength));
    EXPECT_EQ(3, responseLength);
    EXPECT_EQ(0x01, response[0]);
    EXPECT_EQ(0x80, response[1]);
    EXPECT_EQ(0xFF, response[2]);
    EXPECT_TRUE(CmsisDapInterface::unloadLib());
}

// Library: none on the search path.
TEST_F(CmsisDap, AMissingLibraryFailsWithOneErrorAndLoadsNothing) {
    EXPECT_FALSE(CmsisDapInterface::loadLib());
    ASSERT_EQ(1u, logged().size());
    EXPECT_EQ(Poco::Message::PRIO_ERROR, logged()[0].getPriority());
    EXPECT_NE(std::string::npos, logged()[0].getText().find(CMSIS_DAP_LIBRARY_NAME))
        << logged()[0].getText();
    EXPECT_FALSE(CmsisDapInterface::inUse());

    // The failed load still counts; its unload finds nothing to unload.
    EXPECT_FALSE(CmsisDapInterface::unloadLib());
    // A failure is not remembered: the next load looks again.
    EXPECT_FALSE(CmsisDapInterface::loadLib());
    EXPECT_EQ(2u, logged().size());
    EXPECT_FALSE(CmsisDapInterface::unloadLib());
}

// Library: the fake without CMSIS_DAP_Commands.
TEST_F(CmsisDap, AMissingFunctionFailsButLeavesTheLibraryLoaded) {
    EXPECT_FALSE(CmsisDapInterface::loadLib());
    EXPECT_TRUE(CmsisDapInterface::inUse());
    ASSERT_EQ(1u, logged().size());
    EXPECT_EQ(Poco::Message::PRIO_ERROR, logged()[0].getPriority());
    EXPECT_NE(std::string::npos, logged()[0].getText().find("CMSIS_DAP_Commands"))
        << logged()[0].getText();
    // The functions bound before the missing one stay usable.
    EXPECT_EQ(code(27), CmsisDapInterface::rddi_CMSIS_DAP_DetectDAPIDList(0, nullptr, 0));

    // The half-bound library is not loaded a second time.
    EXPECT_FALSE(CmsisDapInterface::loadLib());
    EXPECT_EQ(2u, logged().size());
    EXPECT_TRUE(CmsisDapInterface::inUse());

    EXPECT_TRUE(CmsisDapInterface::unloadLib());
    EXPECT_TRUE(CmsisDapInterface::inUse()) << "the second failed load is still a user";
    EXPECT_TRUE(CmsisDapInterface::unloadLib());
    EXPECT_FALSE(CmsisDapInterface::inUse());
}
