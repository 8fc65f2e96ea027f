#include "libcommon/context/registerscontext.h"
#include "libcommon/context/stacktracecontext.h"
#include "libcommon/core/status.h"
#include "libcommon/imemorycontext.h"
#include "libcommon/iprocesscontext.h"

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

namespace {

class Register : public GeneralRegistersContext {
public:
    Register(const std::string& name, const std::string& role, unsigned int index)
        : GeneralRegistersContext(boost::shared_ptr<IProcessContext>(), name, "", 1, false, 0,
                                  boost::shared_ptr<IMemoryContext>(), role, index) {}

protected:
    void readRegister(std::vector<uint8_t>&) override {}
    void writeRegister(const std::vector<uint8_t>&) override {}
};

class Process : public ContextBase<IProcessContext> {
public:
    Process() : ContextBase<IProcessContext>("Proc_7", boost::shared_ptr<IContextBase>()) {}
    std::vector<boost::shared_ptr<IProcessModule>> getModules() override { return {}; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return registers; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override {
        asked.push_back(name);
        return memory;
    }
    boost::shared_ptr<IDeviceContext> getDevice() override { return {}; }
    boost::shared_ptr<IStackTraceService> getStackTraceService() override { return {}; }
    boost::shared_ptr<IExpressionService> getExpressionService() override { return {}; }

    std::vector<boost::shared_ptr<IRegistersContext>> registers;
    boost::shared_ptr<IMemoryContext> memory;
    std::vector<std::string> asked;
};

struct FrameTest : ::testing::Test {
    FrameTest() : process(boost::make_shared<Process>()), values{10, 11, 12} {
        frame = boost::make_shared<GeneralStackTraceContext>(
            "Frame_3", "loop", boost::shared_ptr<IContextBase>(), process, 0x8F0, 0x1234,
            0xFFFFFFFF00000010ull, 2, 0x8F4, 3, values);
    }

    std::vector<std::pair<std::string, json_spirit::Value>> properties() {
        std::vector<std::pair<std::string, json_spirit::Value>> list;
        for (const json_spirit::Pair& p : frame->getProperties())
            list.push_back({p.name_, p.value_});
        return list;
    }

    boost::shared_ptr<Process> process;
    std::vector<uint64_t> values;
    boost::shared_ptr<GeneralStackTraceContext> frame;
};

}  // namespace

TEST_F(FrameTest, ReportsEveryPropertyInOrder) {
    auto list = properties();
    std::vector<std::string> keys;
    for (const auto& p : list) keys.push_back(p.first);
    EXPECT_EQ(keys,
              (std::vector<std::string>{"ID", "Name", "ProcessID", "FP", "RP", "IP", "ArgsCnt",
                                        "ArgsAddr", "Level", "Line", "Func", "File"}));
    EXPECT_EQ(list[0].second.get_str(), "Frame_3");
    EXPECT_EQ(list[1].second.get_str(), "loop");
    EXPECT_EQ(list[2].second.get_str(), "Proc_7");
    EXPECT_EQ(list[3].second.get_uint64(), 0x8F0u);
    EXPECT_EQ(list[5].second.get_uint64(), 0xFFFFFFFF00000010ull);
    EXPECT_EQ(list[6].second.get_int(), 2);
    EXPECT_EQ(list[8].second.get_int(), 3);
    // A new frame has no source position.
    EXPECT_EQ(list[9].second.get_int(), 0);
    EXPECT_EQ(list[10].second.get_str(), "");
    EXPECT_EQ(list[11].second.get_str(), "");

    frame->setFuncAndLineInfo("loop", "loop.c", 41);
    list = properties();
    EXPECT_EQ(list[9].second.get_int(), 41);
    EXPECT_EQ(list[10].second.get_str(), "loop");
    EXPECT_EQ(list[11].second.get_str(), "loop.c");
    EXPECT_EQ(frame->getLevel(), 3);
    EXPECT_EQ(frame->getArgumentsAddress(), 0x8F4u);
    EXPECT_EQ(frame->getReturnAddress(), 0x1234u);
}

TEST_F(FrameTest, RegisterCacheIsTheCreatorsVector) {
    EXPECT_EQ(frame->getRegisterValueCache(2), 12u);
    frame->getRegisterValueCache(0) = 0xABCD;
    EXPECT_EQ(values[0], 0xABCDu);
    values[1] = 77;
    EXPECT_EQ(frame->getRegisterValueCache(1), 77u);

    for (int index : {-1, 3}) {
        try {
            frame->getRegisterValueCache(index);
            ADD_FAILURE() << "index " << index << " accepted";
        } catch (const CoreException& e) {
            EXPECT_EQ(e.getStatus()->getErrorCode(), ERR_INVALID_REGISTER);
            EXPECT_EQ(e.getStatus()->getMessage(), "Invalid register index.");
        }
    }
}

TEST_F(FrameTest, ListsRegistersWithoutAliasesAndUnindexed) {
    auto r0 = boost::make_shared<Register>("R0", "", 0);
    auto alias = boost::make_shared<Register>("X", "ALIAS", 1);
    auto sp = boost::make_shared<Register>("SP", "SP", 5);
    auto none = boost::make_shared<Register>("DBG", "", 0xFFFFFFFFu);
    auto pc = boost::make_shared<Register>("PC", "PC", 2);
    process->registers = {r0, alias, sp, none, pc};
    std::vector<boost::shared_ptr<IRegistersContext>> expected{r0, sp, pc};
    EXPECT_EQ(frame->getRegisters(), expected);

    frame->getMemory("data");
    EXPECT_EQ(process->asked, std::vector<std::string>{"data"});
}

TEST_F(FrameTest, AGoneProcessGivesEmptyAnswers) {
    process->registers = {boost::make_shared<Register>("R0", "", 0)};
    process.reset();
    EXPECT_FALSE(frame->getProcess());
    EXPECT_TRUE(frame->getRegisters().empty());
    EXPECT_FALSE(frame->getMemory("data"));
    auto list = properties();
    ASSERT_GT(list.size(), 2u);
    EXPECT_EQ(list[2].first, "ProcessID");
    EXPECT_EQ(list[2].second.get_str(), "");
}
