#ifndef LIBCOMMON_EXPR_MEMORYLOCATION_H
#define LIBCOMMON_EXPR_MEMORYLOCATION_H

// MemoryLocation: the one implementation of ILocation. A location is a list
// of pieces (address or register, size, bit field) and an addressing mode,
// bound to a stack frame:
//   - memory modes (global, stack, register-indirect) move bytes through the
//     frame's memory context of the piece's memory name, with AccessPlain;
//   - frame registers (register, register list) read the frame's register
//     value cache and write it before writing the register, so a caller's
//     frame sees its own register values; a write in a frame above level 0
//     changes the cache and is then refused, since the target's register
//     holds the innermost frame's value;
//   - process registers read and write the process's register directly.
// A location never reads or writes more bytes than its pieces cover.
// Failures are thrown as plain C strings, except the missing pieces of the
// constructor and an unknown register, which are CoreExceptions.
//
//     MemoryPiece piece;
//     piece.memoryName = "data";
//     piece.offset = -4;
//     piece.byteSize = 2;
//     MemoryLocation local(frame, ILocation::AM_STACK, {piece});
//     local.getLocationAsString();   // "0x08ec (FP-4)" at frame address 0x8f0
//     std::vector<unsigned char> bytes;
//     local.readContent(bytes);      // two bytes from data 0x8ec
//
// Immutable after construction; shared freely. Valid only for the stop of
// the target its frame belongs to.

#include "libcommon/ilocation.h"
#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

class IRegistersContext;
class IStackTraceContext;

class MemoryLocation : public ILocation {
public:
    // Throws a CoreException (ERR_MISSING_MEMORY_INFO) for no pieces in any
    // mode but AM_OPTIMIZED_AWAY. A "data" location on a frame whose process
    // has no "data" memory is placed in "base".
    MemoryLocation(boost::shared_ptr<IStackTraceContext> stackTrace, AddressingMode mode,
                   std::vector<MemoryPiece> pieces);
    MemoryLocation(boost::shared_ptr<IStackTraceContext> stackTrace, AddressingMode mode,
                   std::vector<MemoryPiece> pieces, bool multiple);

    std::string getLocationAsString() override;
    uint64_t getAbsoluteAddress() const override;
    boost::shared_ptr<ILocation> createAtOffset(int offset, unsigned int size,
                                                unsigned int bitOffset,
                                                unsigned int bitSize) override;
    void readContent(std::vector<unsigned char>& buffer) const override;
    void writeContent(const std::vector<unsigned char>& buffer) const override;
    int getOffset() const override;
    std::string getMemoryName() override;
    int getRegisterId() const override;
    int getBitOffset() const override;
    int getBitSize() const override;
    int getByteSize() const override;
    bool hasMultipleLocation() const override;

    const std::vector<MemoryPiece>& getPieces() const { return mMemoryInfo; }

private:
    AddressingMode getAddressingMode() override;
    uint64_t getAddress() const override;

    // The first piece; a CoreException for a location without pieces, so
    // that asking an optimized-away location for a piece fails in order.
    const MemoryPiece& firstPiece() const;
    // The only piece; a CoreException when there is not exactly one.
    const MemoryPiece& onlyPiece() const;
    // A run of a memory mode's bytes: where it lies and where it goes in
    // the value's buffer.
    struct Span {
        uint64_t address;
        uint64_t position;
        uint64_t size;
        std::string memoryName;
    };
    std::vector<Span> memorySpans() const;
    // The frame's register of that index; a CoreException (ERR_NOT_FOUND)
    // when the frame has none.
    boost::shared_ptr<IRegistersContext> findFrameRegister(int index) const;
    // The process register at position getRegisterId() - 100.
    boost::shared_ptr<IRegistersContext> processRegister() const;
    void writeFrameRegister(int index, const unsigned char* bytes, size_t size) const;

    boost::shared_ptr<IStackTraceContext> stackTrace;
    AddressingMode mode;
    std::vector<MemoryPiece> mMemoryInfo;
    bool multiple;
};

// An AM_GLOBAL location of one piece in memoryName.
boost::shared_ptr<ILocation> createAbsoluteLocation(boost::shared_ptr<IStackTraceContext> stack,
                                                    const std::string& memoryName, uint64_t address,
                                                    unsigned int size, int bitOffset, int bitSize);
// An AM_PROCESS_REGISTER location of the process register at position reg.
boost::shared_ptr<ILocation> createRegisterLocation(boost::shared_ptr<IStackTraceContext> stack,
                                                    int reg, unsigned int size);

#endif
