#include "libcommon/context/stacktracecontext.h"

#include "libcommon/core/status.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/iregisterscontext.h"
#include "libcommon/stringconstants.h"

GeneralStackTraceContext::GeneralStackTraceContext(const std::string& id, const std::string& name,
                                                   boost::shared_ptr<IContextBase> parent,
                                                   boost::shared_ptr<IProcessContext> process,
                                                   uint64_t frameAddress, uint64_t returnAddress,
                                                   uint64_t instructionAddress, int argumentsCount,
                                                   uint64_t argumentsAddress, int level,
                                                   std::vector<uint64_t>& registerValues)
    : ContextBase<IStackTraceContext>(id, parent),
      name(name),
      process(process),
      frameAddress(frameAddress),
      returnAddress(returnAddress),
      instructionAddress(instructionAddress),
      argumentsCount(argumentsCount),
      argumentsAddress(argumentsAddress),
      level(level),
      line(0),
      registerValues(registerValues) {}

void GeneralStackTraceContext::setFuncAndLineInfo(std::string newFunction, std::string newFile,
                                                  int newLine) {
    function = std::move(newFunction);
    file = std::move(newFile);
    line = newLine;
}

json_spirit::Object GeneralStackTraceContext::getProperties() {
    json_spirit::Object properties = ContextBase<IStackTraceContext>::getProperties();
    boost::shared_ptr<IProcessContext> p = process.lock();
    properties.push_back(json_spirit::Pair(FRAME_NAME, name));
    properties.push_back(json_spirit::Pair(FRAME_PROCESS_ID, p ? p->getId() : std::string()));
    properties.push_back(json_spirit::Pair(FRAME_FP, frameAddress));
    properties.push_back(json_spirit::Pair(FRAME_RP, returnAddress));
    properties.push_back(json_spirit::Pair(FRAME_IP, instructionAddress));
    properties.push_back(json_spirit::Pair(FRAME_ARGS_CNT, argumentsCount));
    properties.push_back(json_spirit::Pair(FRAME_ARGS_ADDR, argumentsAddress));
    properties.push_back(json_spirit::Pair(FRAME_LEVEL, level));
    properties.push_back(json_spirit::Pair(FRAME_LINE, line));
    properties.push_back(json_spirit::Pair(FRAME_FUNC, function));
    properties.push_back(json_spirit::Pair(FRAME_FILE, file));
    return properties;
}

boost::shared_ptr<IProcessContext> GeneralStackTraceContext::getProcess() {
    return process.lock();
}

std::string GeneralStackTraceContext::getName() {
    return name;
}

uint64_t GeneralStackTraceContext::getFrameAddress() const {
    return frameAddress;
}

uint64_t GeneralStackTraceContext::getReturnAddress() const {
    return returnAddress;
}

uint64_t GeneralStackTraceContext::getInstructionAddress() const {
    return instructionAddress;
}

int GeneralStackTraceContext::getArgumentsCount() const {
    return argumentsCount;
}

uint64_t GeneralStackTraceContext::getArgumentsAddress() const {
    return argumentsAddress;
}

int GeneralStackTraceContext::getLevel() const {
    return level;
}

std::vector<boost::shared_ptr<IRegistersContext>> GeneralStackTraceContext::getRegisters() {
    std::vector<boost::shared_ptr<IRegistersContext>> result;
    boost::shared_ptr<IProcessContext> p = process.lock();
    if (!p) return result;
    for (const boost::shared_ptr<IRegistersContext>& reg : p->getRegisters()) {
        // Aliases show another register's bits under a second name, and an
        // index of all ones marks a register the frame has no value of.
        if (reg->getRole() == ROLE_ALIAS || reg->getIndex() == 0xFFFFFFFFu) continue;
        result.push_back(reg);
    }
    return result;
}

boost::shared_ptr<IMemoryContext> GeneralStackTraceContext::getMemory(const std::string& name) {
    boost::shared_ptr<IProcessContext> p = process.lock();
    if (!p) return boost::shared_ptr<IMemoryContext>();
    return p->getMemory(name);
}

uint64_t& GeneralStackTraceContext::getRegisterValueCache(int index) {
    if (index < 0 || static_cast<size_t>(index) >= registerValues.size())
        CoreException::createAndThrow("", ERR_INVALID_REGISTER, "Invalid register index.");
    return registerValues[static_cast<size_t>(index)];
}
