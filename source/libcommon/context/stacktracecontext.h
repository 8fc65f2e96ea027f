#ifndef LIBCOMMON_CONTEXT_STACKTRACECONTEXT_H
#define LIBCOMMON_CONTEXT_STACKTRACECONTEXT_H

// GeneralStackTraceContext: one frame of a call stack as a plain record
// with context identity. It has no unwinding logic: the plug-in that walks
// the stack fills it in. Its one tie to the outside is the vector of
// register values, which it holds by reference and shares with its
// creator, so that the creator and the expression engine see one view of
// the frame's registers.
//
//     std::vector<uint64_t> regs(32);
//     auto frame = boost::make_shared<GeneralStackTraceContext>(
//         "Frame_0", "main", parent, process, 0x8f0, 0x12a, 0x104, 0, 0, 0, regs);
//     frame->getRegisterValueCache(24) = 0x1234;  // regs[24] is now 0x1234
//
// The frame takes no lock; the register vector is shared unprotected and
// must outlive the frame. A gone process gives empty results, never a
// failure; only getRegisterValueCache throws.

#include "libcommon/context/contextbase.h"
#include "libcommon/istacktracecontext.h"

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class IProcessContext;

class GeneralStackTraceContext : public ContextBase<IStackTraceContext> {
public:
    GeneralStackTraceContext(const std::string& id, const std::string& name,
                             boost::shared_ptr<IContextBase> parent,
                             boost::shared_ptr<IProcessContext> process, uint64_t frameAddress,
                             uint64_t returnAddress, uint64_t instructionAddress,
                             int argumentsCount, uint64_t argumentsAddress, int level,
                             std::vector<uint64_t>& registerValues);

    // Sets the source position, which is empty and 0 until then.
    void setFuncAndLineInfo(std::string function, std::string file, int line);

    json_spirit::Object getProperties() override;

    boost::shared_ptr<IProcessContext> getProcess() override;
    std::string getName() override;
    uint64_t getFrameAddress() const override;
    uint64_t getReturnAddress() const override;
    uint64_t getInstructionAddress() const override;
    int getArgumentsCount() const override;
    uint64_t getArgumentsAddress() const override;
    int getLevel() const override;
    // The process's registers without aliases and without those of index
    // 0xFFFFFFFF, in the process's order.
    std::vector<boost::shared_ptr<IRegistersContext>> getRegisters() override;
    boost::shared_ptr<IMemoryContext> getMemory(const std::string& name) override;
    uint64_t& getRegisterValueCache(int index) override;

private:
    std::string name;
    boost::weak_ptr<IProcessContext> process;
    uint64_t frameAddress;
    uint64_t returnAddress;
    uint64_t instructionAddress;
    int argumentsCount;
    uint64_t argumentsAddress;
    int level;
    int line;
    std::string function;
    std::string file;
    std::vector<uint64_t>& registerValues;
};

#endif
