#ifndef LIBCOMMON_SIM_RECORDINGMEMORY_H
#define LIBCOMMON_SIM_RECORDINGMEMORY_H

// RecordingMemory: an in-memory target for tests, tools and benchmarks.
//
// An IMemoryAccessor over a byte array that stands at a base address. It
//   - serves read, write and erase from the array;
//   - records every call (kind, address, size, erased flag, whether an error
//     record and a progress counter came along);
//   - fails on request: at chosen addresses, on the Nth call from now, or
//     wherever a predicate says, either by throwing a CoreException (what a
//     refusing target does) or by marking the bytes in the MemoryError;
//   - can behave like flash: a write can only clear bits (new = old & data)
//     and erase sets bytes to 0xFF.
//
// A request that reaches outside the array is refused with a CoreException
// of ERR_ADDRESS_RANGE and leaves the array untouched; it is recorded like
// any other call, so tests can prove that no layer above went beyond what it
// was asked. Injected failures leave the array untouched as well.
//
// Example:
//     auto mem = boost::make_shared<RecordingMemory>(0x1000, 0x400);
//     mem->failAt(0x1010, RecordingMemory::KIND_READ);
//     ... run a stack over mem ...
//     EXPECT_EQ(mem->countCalls(RecordingMemory::KIND_READ), 3u);
//
// Not synchronised, like every accessor.

#include "libcommon/imemoryaccessor.h"

#include <boost/function.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

class RecordingMemory : public IMemoryAccessor {
public:
    // Kinds of call; also usable as a bit mask to select several kinds.
    enum Kind { KIND_READ = 1, KIND_WRITE = 2, KIND_ERASE = 4, KIND_ANY = 7 };

    // How an injected failure shows.
    enum FailMode {
        // The call throws a CoreException (ERR_OPERATION_FAILED) and changes
        // nothing.
        FAIL_THROW,
        // The call marks the failing bytes MEM_READ_FAILED / MEM_WRITE_FAILED
        // (whole request for a call-count or predicate failure, only the
        // chosen addresses for failAt) and serves the other bytes. Erase
        // cannot mark, so it then skips the failing bytes silently.
        FAIL_MARK
    };

    struct Call {
        Kind kind;
        uint64_t address;
        uint64_t size;
        bool erased;       // the write's flag; false for read and erase
        bool hadError;     // a non-empty MemoryError came along
        bool hadProgress;  // a non-null progress pointer came along
    };

    typedef boost::function<bool(const Call&)> FailurePredicate;

    // size bytes at baseAddress, all set to fill.
    RecordingMemory(uint64_t baseAddress, size_t size, unsigned char fill = 0);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // In flash mode sets the range to 0xFF; otherwise only recorded.
    void erase(uint64_t address, uint64_t size) override;

    // ---- contents, bypassing recording and failures ----
    uint64_t getBaseAddress() const { return baseAddress; }
    size_t getSize() const { return bytes.size(); }
    std::vector<unsigned char>& contents() { return bytes; }
    const std::vector<unsigned char>& contents() const { return bytes; }
    unsigned char byteAt(uint64_t address) const;
    void setBytes(uint64_t address, const std::vector<unsigned char>& data);
    // The bytes [address, address + size).
    std::vector<unsigned char> bytesAt(uint64_t address, size_t size) const;

    // ---- flash behaviour ----
    void setFlashMode(bool on) { flashMode = on; }
    bool isFlashMode() const { return flashMode; }

    // ---- recording ----
    // Off saves the allocation per call, e.g. in benchmarks. On by default.
    void setRecording(bool on) { recording = on; }
    const std::vector<Call>& calls() const { return callLog; }
    void clearCalls() { callLog.clear(); }
    // Number of recorded calls of the kinds in the mask.
    size_t countCalls(int kinds = KIND_ANY) const;
    // Total bytes requested by recorded calls of the kinds in the mask.
    uint64_t countBytes(int kinds = KIND_ANY) const;
    // Calls made since construction, recorded or not.
    uint64_t getCallCount() const { return callCount; }

    // ---- failure injection ----
    // Calls of the kinds in the mask that cover address fail. Stays until
    // cleared.
    void failAt(uint64_t address, int kinds = KIND_ANY, FailMode mode = FAIL_THROW);
    // The same for every address of [address, address + size).
    void failRange(uint64_t address, uint64_t size, int kinds = KIND_ANY,
                   FailMode mode = FAIL_THROW);
    // The nth call from now (1 = the next one), of any kind, fails once.
    void failOnCall(uint64_t n, FailMode mode = FAIL_THROW);
    // Every call for which the predicate is true fails.
    void failWhen(FailurePredicate predicate, FailMode mode = FAIL_THROW);
    void clearFailures();

private:
    struct AddressFailure {
        int kinds;
        FailMode mode;
    };

    // Records the call and decides whether and how it fails. Returns true
    // when the whole call must fail with mode.
    bool begin(const Call& call, FailMode& mode);
    void checkInside(const Call& call) const;
    [[noreturn]] void throwFailure(const Call& call) const;
    // The failing address of this kind in [address, address + size), with
    // its mode; false when there is none.
    bool failingAddress(int kind, uint64_t address, uint64_t size, uint64_t& at,
                        FailMode& mode) const;

    uint64_t baseAddress;
    std::vector<unsigned char> bytes;
    bool flashMode = false;
    bool recording = true;
    std::vector<Call> callLog;
    uint64_t callCount = 0;

    std::map<uint64_t, AddressFailure> addressFailures;
    uint64_t failCallNumber = 0;  // absolute call number, 0 = none
    FailMode failCallMode = FAIL_THROW;
    FailurePredicate predicate;
    FailMode predicateMode = FAIL_THROW;
};

#endif
