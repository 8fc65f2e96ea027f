#ifndef LIBCOMMON_IMEMORYACCESSOR_H
#define LIBCOMMON_IMEMORYACCESSOR_H

// The one interface through which all target memory is reached, and the
// record in which a single operation collects, byte range by byte range,
// what went wrong.
//
// Accessors are stacked: each decorator owns the next layer through a
// boost::shared_ptr, shapes or routes the request and passes it on, down to
// an accessor that talks to the target. Accessors and MemoryError are not
// synchronised; callers serialise access to one stack.
//
// Two failure channels are kept apart throughout the stack:
//   - a failure at a byte range that the operation as a whole survives is
//     marked in the MemoryError and the operation goes on;
//   - a failure that ends the operation is an exception.
// An empty error pointer means nobody wants the marks: a layer then makes
// none, so every layer that marks tests the pointer first. The error pointer
// is valid for the duration of the call only: a layer may hand it down but
// must not keep it, since layers may pass it on without a share of its
// ownership to save reference counting on every page.

#include "libcommon/iintermediateresult.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <string>
#include <vector>

// Status of a byte. Anything not marked in a MemoryError is MEM_VALID.
enum MemoryByteStatus {
    MEM_VALID = 0,
    // The byte lies outside what the layer covers.
    MEM_UNKNOWN = 1,
    // The layer covers the byte but could not read or write it.
    MEM_READ_FAILED = 4,
    MEM_WRITE_FAILED = 8
};

// Read side of the per-operation error record. Not owned through this
// interface, hence the protected non-virtual destructor.
class IMemoryError {
public:
    // Status at address; *length (if length is not null) receives how many
    // bytes from address on share it. Beyond the last mark the result is 0
    // with length 0: valid, and no failure further on.
    virtual int getStatus(uint64_t address, unsigned int* length) = 0;
    // Text of the byte's status. The address 0x100000000 asks instead for a
    // summary "start-end " of every marked range.
    virtual std::string getMessage(uint64_t address) = 0;
    virtual bool allLocationsAreValid(uint64_t address, unsigned int size) = 0;
    // True while nothing is marked.
    virtual bool isOk() = 0;

protected:
    ~IMemoryError() = default;
};

class MemoryError : public IMemoryError {
public:
    // One marked range. status is never 0.
    struct Record {
        uint64_t address;
        uint32_t size;
        int status;
    };

    // The address that makes getMessage summarise all ranges.
    static constexpr uint64_t SUMMARY_ADDRESS = 0x100000000ULL;

    MemoryError() = default;
    MemoryError(const MemoryError&) = default;
    MemoryError(MemoryError&&) = default;
    MemoryError& operator=(const MemoryError&) = default;
    MemoryError& operator=(MemoryError&&) = default;
    virtual ~MemoryError() = default;

    int getStatus(uint64_t address, unsigned int* length) override;
    std::string getMessage(uint64_t address) override;
    bool allLocationsAreValid(uint64_t address, unsigned int size) override;
    bool isOk() override;

    // Marks size bytes from address. Status 0 marks nothing. A range that
    // continues an existing one with the same status extends it; otherwise
    // the new range is inserted in ascending order of address (equal
    // addresses keep their order of arrival). Overlaps are kept as given.
    void setStatus(uint64_t address, unsigned int size, int status);

    // The marked ranges, ascending by address.
    const std::vector<Record>& getRecords() const { return records; }

private:
    std::vector<Record> records;
};

// The read, write and erase interface of every memory layer.
//
// read writes exactly size bytes from data onward, except bytes that it
// marks as failed, which it may leave as they were. write takes size bytes
// from data. erased tells that the target range needs no erase before it is
// programmed; layers that do not act on it hand it on unchanged. progress may
// be null; error may be empty.
class IMemoryAccessor {
public:
    virtual ~IMemoryAccessor() = default;

    virtual void read(uint64_t address, unsigned int size,
                      std::vector<unsigned char>::iterator data,
                      boost::shared_ptr<MemoryError> error,
                      IIntermediateResult* progress) = 0;
    virtual void write(uint64_t address, unsigned int size,
                       std::vector<unsigned char>::const_iterator data,
                       boost::shared_ptr<MemoryError> error,
                       IIntermediateResult* progress, bool erased) = 0;
    // Layers without erase semantics need not override this.
    virtual void erase(uint64_t /*address*/, uint64_t /*size*/) {}
};

// One contiguous piece of a variable's location: a byte range in a named
// address space, or a register, with an optional bit field inside it.
class MemoryPiece {
public:
    // Numbers start at 0 rather than indeterminate so that copying a default
    // piece is always well defined.
    MemoryPiece() = default;
    MemoryPiece(const MemoryPiece&) = default;
    MemoryPiece(MemoryPiece&&) = default;
    MemoryPiece& operator=(const MemoryPiece&) = default;
    MemoryPiece& operator=(MemoryPiece&&) = default;

    uint64_t address = 0;
    int32_t offset = 0;
    std::string memoryName;
    int32_t registerId = 0;
    int32_t byteSize = 0;
    int32_t bitOffset = 0;
    int32_t bitSize = 0;
};

#endif
