#include "libcommon/context/registerscontext.h"

#include "libcommon/core/status.h"
#include "libcommon/idevicecontext.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/iruncontrolcontext.h"
#include "libcommon/stringconstants.h"

namespace {

// A negative size from a plug-in is treated as no bytes at all; the size
// check of getValue then reports it.
std::size_t byteCount(int size) {
    return size > 0 ? static_cast<std::size_t>(size) : 0;
}

}  // namespace

GeneralRegistersContext::GeneralRegistersContext(boost::shared_ptr<IProcessContext> process,
                                                 const std::string& name,
                                                 const std::string& description, int size,
                                                 bool bigEndian, uint64_t memoryAddress,
                                                 boost::shared_ptr<IMemoryContext> memoryContext,
                                                 const std::string& role, unsigned int index)
    : ContextBase<IRegistersContext>(makeRegistersContextId(name),
                                     boost::shared_ptr<IContextBase>()),
      readable(true),
      readOnce(false),
      writeable(true),
      writeOnce(false),
      sideEffects(false),
      volatileFlag(false),
      floatFlag(false),
      bigEndian(bigEndian),
      leftToRight(false),
      process(process),
      name(name),
      description(description),
      size(size),
      memoryAddress(memoryAddress),
      memoryContext(memoryContext),
      role(role),
      index(index) {}

std::string GeneralRegistersContext::getName() {
    return name;
}

std::string GeneralRegistersContext::getDescription() {
    return description;
}

int GeneralRegistersContext::getSize() {
    return size;
}

bool GeneralRegistersContext::isReadable() {
    return readable;
}

bool GeneralRegistersContext::isReadOnce() {
    return readOnce;
}

bool GeneralRegistersContext::isWriteable() {
    return writeable;
}

bool GeneralRegistersContext::isWriteOnce() {
    return writeOnce;
}

bool GeneralRegistersContext::hasSideEffects() {
    return sideEffects;
}

bool GeneralRegistersContext::isVolatile() {
    return volatileFlag;
}

bool GeneralRegistersContext::isFloat() {
    return floatFlag;
}

bool GeneralRegistersContext::isBigEndian() {
    return bigEndian;
}

bool GeneralRegistersContext::isLeftToRight() {
    return leftToRight;
}

int GeneralRegistersContext::getFirstBitNumber() {
    return 0;
}

std::vector<int> GeneralRegistersContext::getBitNumbers() {
    return std::vector<int>();
}

std::vector<boost::shared_ptr<IRegistersContext::INamedValue>>
GeneralRegistersContext::getNamedValues() {
    return std::vector<boost::shared_ptr<INamedValue>>();
}

uint64_t GeneralRegistersContext::getMemoryAddress() {
    return memoryAddress;
}

boost::shared_ptr<IMemoryContext> GeneralRegistersContext::getMemoryContext() {
    return memoryContext;
}

std::vector<std::string> GeneralRegistersContext::canSearch() {
    return std::vector<std::string>();
}

std::string GeneralRegistersContext::getRole() {
    return role;
}

void GeneralRegistersContext::get(std::vector<uint8_t>& bytes) {
    if (bytes.empty()) bytes.resize(byteCount(getSize()));
    readRegister(bytes);
}

void GeneralRegistersContext::set(const std::vector<uint8_t>& bytes) {
    // A throwing write leaves the signal silent: nothing was changed.
    writeRegister(bytes);
    registerChanged();
}

std::vector<std::vector<std::string>> GeneralRegistersContext::search(const json_spirit::Object&) {
    return std::vector<std::vector<std::string>>();
}

uint64_t GeneralRegistersContext::getValue() {
    const int registerSize = getSize();
    std::vector<uint8_t> bytes(byteCount(registerSize));
    readRegister(bytes);
    if (registerSize < 0 || bytes.size() != static_cast<std::size_t>(registerSize))
        CoreException::createAndThrow(
            "", ERR_INVALID_ARGUMENT,
            std::string("Register size does not match register value size."));

    switch (registerSize) {
        case 1:
            return bytes[0];
        case 2:
        case 4:
        case 8: {
            uint64_t value = 0;
            if (isBigEndian()) {
                for (std::size_t i = 0; i < bytes.size(); ++i) value = (value << 8) | bytes[i];
            } else {
                for (std::size_t i = bytes.size(); i > 0; --i) value = (value << 8) | bytes[i - 1];
            }
            return value;
        }
        default:
            CoreException::createAndThrow(
                "", ERR_INVALID_ARGUMENT,
                std::string("No known architecture has register size of more than 4 bytes."));
    }
}

unsigned int GeneralRegistersContext::getIndex() {
    return index;
}

boost::signals2::connection GeneralRegistersContext::addRegisterChangedHandler(
    const RegisterChangedSignal::slot_type& handler) const {
    return registerChangedSignal.connect(handler);
}

json_spirit::Object GeneralRegistersContext::getProperties() {
    json_spirit::Object properties = ContextBase<IRegistersContext>::getProperties();
    boost::shared_ptr<IProcessContext> owner = getProcess();
    if (owner) properties.push_back(json_spirit::Pair(REG_PROCESS_ID, owner->getId()));
    properties.push_back(json_spirit::Pair(REG_NAME, getName()));
    properties.push_back(json_spirit::Pair(REG_SIZE, getSize()));
    // Flags that are false are left out of the list altogether.
    if (isFloat()) properties.push_back(json_spirit::Pair(REG_FLOAT, true));
    if (isBigEndian()) properties.push_back(json_spirit::Pair(REG_BIG_ENDIAN, true));
    return properties;
}

boost::shared_ptr<IProcessContext> GeneralRegistersContext::getProcess() {
    return process.lock();
}

void GeneralRegistersContext::setIsFloat() {
    floatFlag = true;
}

void GeneralRegistersContext::writePc(uint64_t pc) {
    boost::shared_ptr<IProcessContext> owner = getProcess();
    if (!owner) return;
    boost::shared_ptr<IDeviceContext> device = owner->getDevice();
    if (!device) return;
    boost::shared_ptr<IRunControlContext> runControl = device->getRunControl();
    if (!runControl) return;
    runControl->setPc(pc);
}

void GeneralRegistersContext::registerChanged() {
    // Only the register-changed signal: a new value is not a change of the
    // context's description.
    registerChangedSignal(boost::static_pointer_cast<IRegistersContext>(shared_from_this()));
}
