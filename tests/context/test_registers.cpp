// Register contexts: numbers assembled from the plug-in's bytes, the exact
// failures for odd sizes, the write signal, the property list and the route
// from writePc to the run control.

#include "libcommon/context/devicecontext.h"
#include "libcommon/context/registerscontext.h"
#include "libcommon/context/runcontrol.h"
#include "libcommon/core/status.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/itarndebugger.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace js = json_spirit;

namespace {

// A register whose target is a byte vector. A read hands back `target`
// resized to what the caller asked for, unless `shortRead` is set.
class FakeRegister : public GeneralRegistersContext {
public:
    FakeRegister(const std::string& name, int size, bool bigEndian,
                 boost::shared_ptr<IProcessContext> process = boost::shared_ptr<IProcessContext>())
        : GeneralRegistersContext(process, name, "test register", size, bigEndian, 0x5D,
                                  boost::shared_ptr<IMemoryContext>(), "SP", 3) {}

    std::vector<uint8_t> target;
    std::vector<std::size_t> readSizes;
    std::vector<std::vector<uint8_t>> writes;
    bool shortRead = false;
    bool failWrite = false;

protected:
    void readRegister(std::vector<uint8_t>& bytes) override {
        readSizes.push_back(bytes.size());
        if (shortRead) {
            bytes.assign(target.begin(), target.begin() + 1);
            return;
        }
        for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = i < target.size() ? target[i] : 0;
    }
    void writeRegister(const std::vector<uint8_t>& bytes) override {
        if (failWrite) throw std::runtime_error("target refused");
        writes.push_back(bytes);
        target = bytes;
    }
};

boost::shared_ptr<FakeRegister> makeRegister(int size, bool bigEndian, std::vector<uint8_t> bytes) {
    auto reg = boost::make_shared<FakeRegister>("R", size, bigEndian);
    reg->target = bytes;
    return reg;
}

void expectInvalidArgument(const boost::shared_ptr<FakeRegister>& reg, const std::string& message) {
    try {
        reg->getValue();
        ADD_FAILURE() << "no exception for " << message;
    } catch (const CoreException& e) {
        EXPECT_EQ(ERR_INVALID_ARGUMENT, e.getStatus()->getErrorCode());
        EXPECT_EQ(message, e.getStatus()->getMessage());
    }
}

struct NoDebugger : ITarnDebugger {
    boost::shared_ptr<IBreakpointService> getBreakpointService() override {
        return boost::shared_ptr<IBreakpointService>();
    }
};

class PcRunControl : public GeneralRunControlContext {
public:
    explicit PcRunControl(ITarnDebugger& debugger) : GeneralRunControlContext(debugger, "rc") {}
};

class Device : public GeneralDeviceContext {
public:
    explicit Device(ITarnDebugger& debugger)
        : GeneralDeviceContext(debugger, "dev", boost::shared_ptr<IDeviceContext>(),
                               boost::shared_ptr<DIDevice>(),
                               boost::shared_ptr<IPhysicalInterface>()) {}
    boost::shared_ptr<IRunControlContext> getRunControl() override { return runControl; }
    void deviceExtension() override {}
    boost::shared_ptr<IRunControlContext> runControl;
};

class Process : public ContextBase<IProcessContext> {
public:
    Process() : ContextBase<IProcessContext>("proc", boost::shared_ptr<IContextBase>()) {}
    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return {}; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return {}; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string&) override { return {}; }
    boost::shared_ptr<IDeviceContext> getDevice() override { return device; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return {}; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return {}; }
    boost::shared_ptr<IDeviceContext> device;
};

uint64_t storedPc(const boost::shared_ptr<IRunControlContext>& rc) {
    RunControlState state;
    rc->getState(state);
    return state.pc;
}

}  // namespace

TEST(GeneralRegisters, AssemblesValuesInTheRegistersByteOrder) {
    EXPECT_EQ(0xA5u, makeRegister(1, false, {0xA5})->getValue());
    EXPECT_EQ(0x1234u, makeRegister(2, true, {0x12, 0x34})->getValue());
    EXPECT_EQ(0x3412u, makeRegister(2, false, {0x12, 0x34})->getValue());
    EXPECT_EQ(0x01020304u, makeRegister(4, true, {1, 2, 3, 4})->getValue());
    EXPECT_EQ(0x04030201u, makeRegister(4, false, {1, 2, 3, 4})->getValue());
    EXPECT_EQ(0x0102030405060708ull, makeRegister(8, true, {1, 2, 3, 4, 5, 6, 7, 8})->getValue());
    EXPECT_EQ(0x0807060504030201ull, makeRegister(8, false, {1, 2, 3, 4, 5, 6, 7, 8})->getValue());
}

TEST(GeneralRegisters, RefusesUnsupportedSizesAndShortReadsWithExactMessages) {
    for (int size : {3, 5, 6, 7, 16}) {
        auto reg = makeRegister(size, false, std::vector<uint8_t>(16, 0xFF));
        expectInvalidArgument(reg, "No known architecture has register size of more than 4 bytes.");
        // The target was read before the size was refused.
        ASSERT_EQ(1u, reg->readSizes.size());
        EXPECT_EQ(static_cast<std::size_t>(size), reg->readSizes[0]);
    }

    auto shortReg = makeRegister(4, false, {1, 2, 3, 4});
    shortReg->shortRead = true;
    expectInvalidArgument(shortReg, "Register size does not match register value size.");
}

TEST(GeneralRegisters, GetSizesOnlyAnEmptyVector) {
    auto reg = makeRegister(2, false, {0xAB, 0xCD});
    std::vector<uint8_t> bytes;
    reg->get(bytes);
    EXPECT_EQ((std::vector<uint8_t>{0xAB, 0xCD}), bytes);

    std::vector<uint8_t> wide(4, 0x11);
    reg->get(wide);
    EXPECT_EQ(4u, reg->readSizes.back());
    EXPECT_EQ((std::vector<uint8_t>{0xAB, 0xCD, 0, 0}), wide);
}

TEST(GeneralRegisters, SetSignalsOnceAfterASuccessfulWriteOnly) {
    auto reg = makeRegister(2, false, {0, 0});
    std::vector<std::vector<uint8_t>> seenAtSignal;
    int contextChanges = 0;
    reg->addRegisterChangedHandler([&](boost::shared_ptr<IRegistersContext> who) {
        EXPECT_EQ(reg, who);
        seenAtSignal.push_back(reg->target);
    });
    reg->addContextChangedHandler([&](boost::shared_ptr<IContextBase>) { ++contextChanges; });

    reg->set({0x34, 0x12});
    ASSERT_EQ(1u, seenAtSignal.size());
    EXPECT_EQ((std::vector<uint8_t>{0x34, 0x12}), seenAtSignal[0]);
    EXPECT_EQ(0x1234u, reg->getValue());

    reg->failWrite = true;
    EXPECT_THROW(reg->set({1, 1}), std::runtime_error);
    EXPECT_EQ(1u, seenAtSignal.size());
    EXPECT_EQ(0, contextChanges);
}

TEST(GeneralRegisters, SameNameGivesDistinctNumberedIds) {
    auto a = boost::make_shared<FakeRegister>("PC", 4, false);
    auto b = boost::make_shared<FakeRegister>("PC", 4, false);
    const std::string prefix = "Reg_PC_";
    ASSERT_EQ(0u, a->getId().rfind(prefix, 0)) << a->getId();
    ASSERT_EQ(0u, b->getId().rfind(prefix, 0)) << b->getId();
    EXPECT_EQ(std::stoi(a->getId().substr(prefix.size())) + 1,
              std::stoi(b->getId().substr(prefix.size())));
}

TEST(GeneralRegisters, PropertyListShowsOnlyTrueFlagsAndALiveProcess) {
    auto process = boost::make_shared<Process>();
    auto plain = boost::make_shared<FakeRegister>("R16", 1, false, process);
    const js::Object expectedPlain{js::Pair("ID", plain->getId()), js::Pair("ProcessID", "proc"),
                                   js::Pair("Name", "R16"), js::Pair("Size", 1)};
    EXPECT_EQ(expectedPlain, plain->getProperties());

    auto fp = boost::make_shared<FakeRegister>("S0", 4, true, process);
    fp->setIsFloat();
    EXPECT_TRUE(fp->isFloat());
    const js::Object expectedFp{js::Pair("ID", fp->getId()), js::Pair("ProcessID", "proc"),
                                js::Pair("Name", "S0"),      js::Pair("Size", 4),
                                js::Pair("Float", true),     js::Pair("BigEndian", true)};
    EXPECT_EQ(expectedFp, fp->getProperties());

    process.reset();
    EXPECT_FALSE(plain->getProcess());
    const js::Object orphan{js::Pair("ID", plain->getId()), js::Pair("Name", "R16"),
                            js::Pair("Size", 1)};
    EXPECT_EQ(orphan, plain->getProperties());
}

TEST(GeneralRegisters, WritePcUpdatesTheStoredPcWhenTheChainExists) {
    NoDebugger debugger;
    auto runControl = boost::make_shared<PcRunControl>(debugger);
    auto device = boost::make_shared<Device>(debugger);
    auto process = boost::make_shared<Process>();
    auto pc = boost::make_shared<FakeRegister>("PC", 4, false, process);

    pc->writePc(0x100);  // no device yet
    process->device = device;
    pc->writePc(0x200);  // no run control yet
    EXPECT_EQ(0u, storedPc(runControl));

    device->runControl = runControl;
    pc->writePc(0x1234);
    EXPECT_EQ(0x1234u, storedPc(runControl));
    EXPECT_TRUE(pc->writes.empty());  // nothing goes to the target

    process.reset();
    pc->writePc(0x9999);
    EXPECT_EQ(0x1234u, storedPc(runControl));
}
