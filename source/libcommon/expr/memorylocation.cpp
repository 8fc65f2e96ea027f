#include "libcommon/expr/memorylocation.h"

#include "libcommon/core/status.h"
#include "libcommon/imemorycontext.h"
#include "libcommon/iprocesscontext.h"
#include "libcommon/iregisterscontext.h"
#include "libcommon/istacktracecontext.h"

#include <boost/format.hpp>
#include <boost/make_shared.hpp>

#include <algorithm>

namespace {

// Register values travel as 64-bit numbers; byte i of an n-byte buffer is
// bits 8i up on a little-endian register and bits 8(n-1-i) up on a
// big-endian one. Bytes beyond the 64 bits read as 0 and are not packed.
unsigned int registerShift(size_t i, size_t n, bool bigEndian) {
    return static_cast<unsigned int>(8 * (bigEndian ? n - 1 - i : i));
}

void unpackRegister(uint64_t value, bool bigEndian, unsigned char* bytes, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        unsigned int shift = registerShift(i, n, bigEndian);
        bytes[i] = shift < 64 ? static_cast<unsigned char>(value >> shift) : 0;
    }
}

uint64_t packRegister(const unsigned char* bytes, size_t n, bool bigEndian) {
    uint64_t value = 0;
    for (size_t i = 0; i < n; ++i) {
        unsigned int shift = registerShift(i, n, bigEndian);
        if (shift < 64) value |= uint64_t(bytes[i]) << shift;
    }
    return value;
}

uint64_t addSigned(uint64_t base, int64_t offset) {
    return base + static_cast<uint64_t>(offset);
}

// The messages of the three memory modes.
struct MemoryTexts {
    const char* fetchForRead;
    const char* readFailed;
    const char* fetchForWrite;
    const char* writeFailed;
};

const MemoryTexts kGlobalTexts = {"Could not fetch memory for global variable",
                                  "Could not read memory content for global variable",
                                  "Could not fetch memory for writing to a global variable",
                                  "Could not write to memory while writing to a global variable"};
const MemoryTexts kStackTexts = {"Could not fetch memory for stack variable",
                                 "Could not read memory content for stack variable",
                                 "Could not fetch memory for writing to a stack variable",
                                 "Could not write to memory while writing to a stack variable"};
const MemoryTexts kIndirectTexts = {
    "Could not fetch memory for register indirect, relative variable",
    "Could not read memory content for global variable",
    "Could not fetch memory for writing to a register indirect variable",
    "Could not write to memory while writing to a global variable"};

// The texts of a memory mode; null for the other modes.
const MemoryTexts* memoryTexts(ILocation::AddressingMode mode) {
    switch (mode) {
        case ILocation::AM_GLOBAL:
            return &kGlobalTexts;
        case ILocation::AM_STACK:
            return &kStackTexts;
        case ILocation::AM_REGISTER_INDIRECT:
            return &kIndirectTexts;
        default:
            return nullptr;
    }
}

}  // namespace

MemoryLocation::MemoryLocation(boost::shared_ptr<IStackTraceContext> stackTrace,
                               AddressingMode mode, std::vector<MemoryPiece> pieces)
    : MemoryLocation(std::move(stackTrace), mode, std::move(pieces), false) {}

MemoryLocation::MemoryLocation(boost::shared_ptr<IStackTraceContext> stackTrace,
                               AddressingMode mode, std::vector<MemoryPiece> pieces, bool multiple)
    : stackTrace(std::move(stackTrace)),
      mode(mode),
      mMemoryInfo(std::move(pieces)),
      multiple(multiple) {
    if (mMemoryInfo.empty() && mode != AM_OPTIMIZED_AWAY)
        CoreException::createAndThrow("", ERR_MISSING_MEMORY_INFO,
                                      "Missing memory information in MemoryLocation constructor");
    // A core without a "data" space keeps its data in "base".
    if (this->stackTrace && mode != AM_OPTIMIZED_AWAY && getMemoryName() == "data" &&
        !this->stackTrace->getMemory("data"))
        for (MemoryPiece& piece : mMemoryInfo) piece.memoryName = "base";
}

const MemoryPiece& MemoryLocation::firstPiece() const {
    if (mMemoryInfo.empty())
        CoreException::createAndThrow("", ERR_MISSING_MEMORY_INFO,
                                      "Location has no memory information");
    return mMemoryInfo.front();
}

// Address, bit offset and bit size describe a single piece; a location of
// several pieces refuses the question rather than answer for one of them.
const MemoryPiece& MemoryLocation::onlyPiece() const {
    if (mMemoryInfo.size() != 1)
        CoreException::createAndThrow("", ERR_MISSING_MEMORY_INFO,
                                      "Location does not have exactly one piece");
    return mMemoryInfo.front();
}

ILocation::AddressingMode MemoryLocation::getAddressingMode() {
    return mode;
}

uint64_t MemoryLocation::getAddress() const {
    return onlyPiece().address;
}

int MemoryLocation::getOffset() const {
    return firstPiece().offset;
}

int MemoryLocation::getRegisterId() const {
    return firstPiece().registerId;
}

std::string MemoryLocation::getMemoryName() {
    if (mode == AM_OPTIMIZED_AWAY || mMemoryInfo.empty()) return std::string();
    return mMemoryInfo.front().memoryName;
}

int MemoryLocation::getBitOffset() const {
    return onlyPiece().bitOffset;
}

int MemoryLocation::getBitSize() const {
    return onlyPiece().bitSize;
}

int MemoryLocation::getByteSize() const {
    if (mode == AM_OPTIMIZED_AWAY) return 0;
    if (mode == AM_REGISTER_INDIRECT) return firstPiece().byteSize;
    int size = 0;
    for (const MemoryPiece& piece : mMemoryInfo) size += piece.byteSize;
    return size;
}

bool MemoryLocation::hasMultipleLocation() const {
    return multiple;
}

uint64_t MemoryLocation::getAbsoluteAddress() const {
    switch (mode) {
        case AM_GLOBAL:
            return getAddress();
        case AM_REGISTER:
        case AM_PROCESS_REGISTER:
            return static_cast<uint64_t>(int64_t(getRegisterId()) - 100);
        case AM_STACK:
            if (!stackTrace) throw "Location has no stack frame";
            return addSigned(stackTrace->getFrameAddress(), getOffset());
        case AM_REGISTER_LIST:
            return static_cast<uint64_t>(int64_t(getRegisterId()));
        case AM_REGISTER_INDIRECT: {
            if (!stackTrace) throw "Location has no stack frame";
            uint64_t base;
            if (mMemoryInfo.size() == 2) {
                // A frame pointer in the register pair 28/29; a core whose
                // stack pointer is one byte wide has only the low half.
                bool wide = true;
                for (const boost::shared_ptr<IRegistersContext>& reg : stackTrace->getRegisters())
                    if (reg->getName() == "SP") wide = reg->getSize() != 1;
                base = stackTrace->getRegisterValueCache(28) & 0xFF;
                if (wide) base |= (stackTrace->getRegisterValueCache(29) & 0xFF) << 8;
            } else {
                base = stackTrace->getRegisterValueCache(getRegisterId());
            }
            return addSigned(base, firstPiece().offset);
        }
        default:
            return 0;
    }
}

std::string MemoryLocation::getLocationAsString() {
    switch (mode) {
        case AM_NONE:
        case AM_GLOBAL:
            return (boost::format("0x%1$04x") % getAbsoluteAddress()).str();
        case AM_PROCESS_REGISTER: {
            if (mMemoryInfo.empty() || !stackTrace) return "unk";
            boost::shared_ptr<IProcessContext> process = stackTrace->getProcess();
            if (!process) return "unk";
            std::vector<boost::shared_ptr<IRegistersContext>> regs = process->getRegisters();
            int64_t position = int64_t(getRegisterId()) - 100;
            if (position < 0 || position >= int64_t(regs.size())) return "unk";
            return regs[static_cast<size_t>(position)]->getName();
        }
        case AM_REGISTER:
            if (mMemoryInfo.empty()) return "unknown register";
            return (boost::format("R%1$02d") % getRegisterId()).str();
        case AM_STACK:
            return (boost::format(getOffset() < 0 ? "0x%1$04x (FP%2%)" : "0x%1$04x (FP+%2%)") %
                    getAbsoluteAddress() % getOffset())
                .str();
        case AM_REGISTER_LIST: {
            std::string text;
            for (auto piece = mMemoryInfo.rbegin(); piece != mMemoryInfo.rend(); ++piece)
                text += (boost::format(" R%1$02d") % piece->registerId).str();
            return text;
        }
        case AM_REGISTER_INDIRECT:
            return (boost::format(getOffset() < 0 ? "0x%1$04x ([R%2%]%3%)"
                                                  : "0x%1$04x ([R%2%]+%3%)") %
                    getAbsoluteAddress() % getRegisterId() % getOffset())
                .str();
        case AM_UNKNOWN:
            return "Unknown addressing mode";
        case AM_OPTIMIZED_AWAY:
            return "Optimized away";
        default:
            return "unimplemented location";
    }
}

boost::shared_ptr<ILocation> MemoryLocation::createAtOffset(int offset, unsigned int size,
                                                            unsigned int bitOffset,
                                                            unsigned int bitSize) {
    MemoryPiece piece;
    piece.address = addSigned(getAbsoluteAddress(), offset);
    piece.memoryName = getMemoryName();
    piece.byteSize = static_cast<int32_t>(size);
    piece.bitOffset = static_cast<int32_t>(bitOffset);
    piece.bitSize = static_cast<int32_t>(bitSize);
    return boost::make_shared<MemoryLocation>(stackTrace, AM_GLOBAL,
                                              std::vector<MemoryPiece>{piece});
}

boost::shared_ptr<IRegistersContext> MemoryLocation::findFrameRegister(int index) const {
    if (stackTrace)
        for (const boost::shared_ptr<IRegistersContext>& reg : stackTrace->getRegisters())
            if (reg->getIndex() == static_cast<unsigned int>(index)) return reg;
    CoreException::createAndThrow("dbg", ERR_NOT_FOUND,
                                  "Did not find register %d in the register file", index);
}

void MemoryLocation::writeFrameRegister(int index, const unsigned char* bytes, size_t size) const {
    boost::shared_ptr<IRegistersContext> reg = findFrameRegister(index);
    // The frame's view changes first, so that a refused write in an outer
    // frame still shows its new value to later reads in that frame.
    stackTrace->getRegisterValueCache(index) = packRegister(bytes, size, reg->isBigEndian());
    if (stackTrace->getLevel() != 0) throw "Cannot update registers in a higher CFA";
    reg->set(std::vector<uint8_t>(bytes, bytes + size));
}

// The memory modes move their bytes piece by piece: a global or stack
// variable of several pieces reads each from its own address, so nothing
// outside the pieces is touched. A register-indirect location has one span
// at its absolute address, the size of its first piece.
void MemoryLocation::readContent(std::vector<unsigned char>& buffer) const {
    buffer.assign(static_cast<size_t>(getByteSize()), 0);
    const MemoryTexts* texts = memoryTexts(mode);
    switch (mode) {
        case AM_GLOBAL:
        case AM_STACK:
        case AM_REGISTER_INDIRECT:
            break;
        case AM_REGISTER: {
            boost::shared_ptr<IRegistersContext> reg = findFrameRegister(getRegisterId());
            unpackRegister(stackTrace->getRegisterValueCache(getRegisterId()), reg->isBigEndian(),
                           buffer.data(), buffer.size());
            return;
        }
        case AM_REGISTER_LIST: {
            size_t pos = 0;
            for (const MemoryPiece& piece : mMemoryInfo) {
                boost::shared_ptr<IRegistersContext> reg = findFrameRegister(piece.registerId);
                size_t size = static_cast<size_t>(std::max(reg->getSize(), 0));
                if (size > buffer.size() - pos) throw "Invalid Register memory size";
                unpackRegister(stackTrace->getRegisterValueCache(piece.registerId),
                               reg->isBigEndian(), buffer.data() + pos, size);
                pos += size;
            }
            return;
        }
        case AM_PROCESS_REGISTER: {
            boost::shared_ptr<IRegistersContext> reg = processRegister();
            unpackRegister(reg->getValue(), reg->isBigEndian(), buffer.data(), buffer.size());
            return;
        }
        case AM_NONE:
        case AM_UNSUPPORTED4:
        case AM_UNSUPPORTED5:
            throw "unsupported addressing mode";
        case AM_OPTIMIZED_AWAY:
            throw "Optimized away";
        default:
            throw "unknown addressing mode";
    }

    for (const Span& span : memorySpans()) {
        boost::shared_ptr<IMemoryContext> mem =
            stackTrace ? stackTrace->getMemory(span.memoryName) : nullptr;
        if (!mem) throw texts->fetchForRead;
        boost::shared_ptr<IMemoryError> error;
        mem->getMemory(span.address, 1, buffer, span.position, span.size, AccessPlain, nullptr,
                       error);
        if (error) throw texts->readFailed;
    }
}

void MemoryLocation::writeContent(const std::vector<unsigned char>& buffer) const {
    const MemoryTexts* texts = memoryTexts(mode);
    switch (mode) {
        case AM_GLOBAL:
        case AM_STACK:
        case AM_REGISTER_INDIRECT:
            break;
        case AM_REGISTER: {
            size_t size = std::min(buffer.size(), static_cast<size_t>(getByteSize()));
            writeFrameRegister(getRegisterId(), buffer.data(), size);
            return;
        }
        case AM_REGISTER_LIST: {
            if (buffer.size() < static_cast<size_t>(getByteSize()))
                throw "Invalid Register memory size";
            size_t pos = 0;
            for (const MemoryPiece& piece : mMemoryInfo) {
                boost::shared_ptr<IRegistersContext> reg = findFrameRegister(piece.registerId);
                size_t size = static_cast<size_t>(std::max(reg->getSize(), 0));
                if (size > static_cast<size_t>(getByteSize()) - pos)
                    throw "Invalid Register memory size";
                writeFrameRegister(piece.registerId, buffer.data() + pos, size);
                pos += size;
            }
            return;
        }
        case AM_PROCESS_REGISTER: {
            size_t size = std::min(buffer.size(), static_cast<size_t>(getByteSize()));
            processRegister()->set(std::vector<uint8_t>(buffer.begin(), buffer.begin() + size));
            return;
        }
        default:
            // Optimized-away, unknown and unsupported places ignore writes.
            return;
    }

    if (buffer.size() < static_cast<size_t>(getByteSize()))
        throw "Value is smaller than its location";
    for (const Span& span : memorySpans()) {
        boost::shared_ptr<IMemoryContext> mem =
            stackTrace ? stackTrace->getMemory(span.memoryName) : nullptr;
        if (!mem) throw texts->fetchForWrite;
        boost::shared_ptr<IMemoryError> error;
        mem->setMemory(span.address, 1, buffer, span.position, span.size, AccessPlain, nullptr,
                       error);
        if (error) throw texts->writeFailed;
    }
}

std::vector<MemoryLocation::Span> MemoryLocation::memorySpans() const {
    // Without a frame there is no memory to reach; the caller reports that
    // with its own "Could not fetch memory" text.
    std::vector<Span> spans;
    if (!stackTrace) return {Span{0, 0, 0, std::string()}};
    if (mode == AM_REGISTER_INDIRECT) {
        spans.push_back(Span{getAbsoluteAddress(), 0, static_cast<uint64_t>(getByteSize()),
                             firstPiece().memoryName});
        return spans;
    }
    uint64_t position = 0;
    for (const MemoryPiece& piece : mMemoryInfo) {
        uint64_t address = mode == AM_STACK ? addSigned(stackTrace->getFrameAddress(), piece.offset)
                                            : piece.address;
        uint64_t size = static_cast<uint64_t>(std::max(piece.byteSize, 0));
        spans.push_back(Span{address, position, size, piece.memoryName});
        position += size;
    }
    return spans;
}

boost::shared_ptr<IRegistersContext> MemoryLocation::processRegister() const {
    boost::shared_ptr<IProcessContext> process = stackTrace ? stackTrace->getProcess() : nullptr;
    std::vector<boost::shared_ptr<IRegistersContext>> regs;
    if (process) regs = process->getRegisters();
    int64_t position = int64_t(getRegisterId()) - 100;
    if (position < 0 || position >= int64_t(regs.size())) throw "Register index out of bounds";
    return regs[static_cast<size_t>(position)];
}

boost::shared_ptr<ILocation> createAbsoluteLocation(boost::shared_ptr<IStackTraceContext> stack,
                                                    const std::string& memoryName, uint64_t address,
                                                    unsigned int size, int bitOffset, int bitSize) {
    MemoryPiece piece;
    piece.address = address;
    piece.memoryName = memoryName;
    piece.byteSize = static_cast<int32_t>(size);
    piece.bitOffset = bitOffset;
    piece.bitSize = bitSize;
    return boost::make_shared<MemoryLocation>(std::move(stack), ILocation::AM_GLOBAL,
                                              std::vector<MemoryPiece>{piece});
}

boost::shared_ptr<ILocation> createRegisterLocation(boost::shared_ptr<IStackTraceContext> stack,
                                                    int reg, unsigned int size) {
    MemoryPiece piece;
    piece.registerId = reg + 100;
    piece.byteSize = static_cast<int32_t>(size);
    return boost::make_shared<MemoryLocation>(std::move(stack), ILocation::AM_PROCESS_REGISTER,
                                              std::vector<MemoryPiece>{piece});
}
