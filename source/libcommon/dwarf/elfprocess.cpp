#include "libcommon/dwarf/elfprocess.h"

#include "libcommon/core/status.h"
#include "libcommon/memory/memorycontext.h"

#include <boost/make_shared.hpp>

namespace {

class ElfModule : public IProcessModule {
public:
    explicit ElfModule(boost::shared_ptr<ISymbolInformation> symbols) : symbols(symbols) {}
    boost::shared_ptr<ISymbolInformation> getSymbolInformation() override { return symbols; }

private:
    boost::shared_ptr<ISymbolInformation> symbols;
};

class ElfFrameContext : public ContextBase<IStackTraceContext> {
public:
    ElfFrameContext(boost::shared_ptr<ElfProcessContext> process, uint64_t pc)
        : ContextBase<IStackTraceContext>("ElfFrame", process), process(process), pc(pc) {}

    boost::shared_ptr<IProcessContext> getProcess() override { return process; }
    std::string getName() override {
        const DwarfFunction* f = process->getSymbols()->getProgram()->findFunctionAt(pc);
        return f ? f->name : std::string();
    }
    uint64_t getFrameAddress() const override { return 0; }
    uint64_t getReturnAddress() const override { return 0; }
    uint64_t getInstructionAddress() const override { return pc; }
    int getArgumentsCount() const override { return 0; }
    uint64_t getArgumentsAddress() const override { return 0; }
    int getLevel() const override { return 0; }
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override { return {}; }
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override {
        return process->getMemory(name);
    }
    // A program that has not run has no register values.
    uint64_t& getRegisterValueCache(int) override {
        CoreException::createAndThrow("dwarf", ERR_INVALID_REGISTER, "Invalid register index.");
    }

private:
    boost::shared_ptr<ElfProcessContext> process;
    uint64_t pc;
};

class ElfStackTraceService : public IStackTraceService {
public:
    std::vector<boost::shared_ptr<IStackTraceContext>> getFrames(
        boost::shared_ptr<IProcessContext> process, int) override {
        auto elf = boost::dynamic_pointer_cast<ElfProcessContext>(process);
        if (!elf) return {};
        return {elf->createFrame(0)};
    }
};

}  // namespace

ElfProcessContext::ElfProcessContext(boost::shared_ptr<DwarfSymbolInformation> symbols)
    : ContextBase<IProcessContext>("ElfProcess", boost::shared_ptr<IContextBase>()),
      symbols(std::move(symbols)) {}

boost::shared_ptr<ElfProcessContext> ElfProcessContext::create(
    boost::shared_ptr<DwarfSymbolInformation> symbols) {
    boost::shared_ptr<ElfProcessContext> process(new ElfProcessContext(symbols));
    boost::shared_ptr<const ElfImage> image = symbols->getProgram()->getImage();
    // The memory context's addresses are at most four bytes wide; a 64-bit
    // program whose data lies above 4 GiB cannot be shown through it.
    process->memory = boost::make_shared<MemoryContext>(
        boost::shared_ptr<IMemoryContext>(), process,
        boost::make_shared<ElfImageMemoryAccessor>(image), image->isBigEndian(), 4, 0, "data", 0,
        uint64_t(1) << 32, std::vector<std::string>(), true, false);
    return process;
}

std::vector<boost::shared_ptr<IProcessModule>> ElfProcessContext::getModules() {
    return {boost::make_shared<ElfModule>(symbols)};
}

std::vector<boost::shared_ptr<IRegistersContext>> ElfProcessContext::getRegisters() {
    return {};
}

boost::shared_ptr<IMemoryContext> ElfProcessContext::getMemory(const std::string& name) {
    return name == "data" ? memory : boost::shared_ptr<IMemoryContext>();
}

boost::shared_ptr<IDeviceContext> ElfProcessContext::getDevice() {
    return boost::shared_ptr<IDeviceContext>();
}

boost::shared_ptr<IStackTraceService> ElfProcessContext::getStackTraceService() {
    return boost::make_shared<ElfStackTraceService>();
}

boost::shared_ptr<IExpressionService> ElfProcessContext::getExpressionService() {
    return boost::shared_ptr<IExpressionService>();
}

boost::shared_ptr<IStackTraceContext> ElfProcessContext::createFrame(uint64_t instructionAddress) {
    auto self = boost::static_pointer_cast<ElfProcessContext>(shared_from_this());
    return boost::make_shared<ElfFrameContext>(self, instructionAddress);
}
