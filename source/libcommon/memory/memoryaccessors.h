#ifndef LIBCOMMON_MEMORY_MEMORYACCESSORS_H
#define LIBCOMMON_MEMORY_MEMORYACCESSORS_H

// The decorators of an accessor stack: they cut an access to a window,
// shift, split, widen or turn it, refuse it, or route it to one of several
// accessors. Every decorator owns the next layer through a shared_ptr, which
// is always the first constructor argument. Operations a decorator does not
// shape are forwarded unchanged; exceptions of lower layers pass through
// unless a class says otherwise.

#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <utility>
#include <vector>

// Cuts accesses to the window [baseAddress, baseAddress + memorySize).
// Bytes outside the window are marked MEM_UNKNOWN and never reach the inner
// accessor. Address bits in ignoredAddressBits are cleared first, so aliases
// of the window reach it too. Never throws by itself.
class BoundedMemoryAccessor : public IMemoryAccessor {
public:
    BoundedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor, uint64_t baseAddress,
                          uint64_t memorySize, uint64_t ignoredAddressBits);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // Masks the address and forwards, without a range check.
    void erase(uint64_t address, uint64_t size) override;

private:
    // Masks address, marks and strips the parts outside the window; dataOffset
    // receives how far the data position moves. False when nothing is left.
    bool adjustAddressAndSizeAndSetErrorStatus(uint64_t& address, unsigned int& size,
                                               unsigned int& dataOffset,
                                               const boost::shared_ptr<MemoryError>& error) const;

    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
    uint64_t mBaseAddress;
    uint64_t mMemorySize;
    uint64_t mAddressMask;
};

// Adds a fixed offset to every address. Marks made below stay in the inner
// layer's addresses.
class OffsettingMemoryAccessor : public IMemoryAccessor {
public:
    OffsettingMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor, uint64_t offset);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
    uint64_t mOffset;
};

// Splits reads and writes into calls of at most chunkSize bytes, counted from
// the start of the request (no alignment).
class ChunkedMemoryAccessor : public IMemoryAccessor {
public:
    ChunkedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor, unsigned int chunkSize);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
    unsigned int mChunkSize;
};

// Writes one byte per inner call; reads pass through.
class ByteWriteMemoryAccessor : public IMemoryAccessor {
public:
    explicit ByteWriteMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
};

// Refuses writes by marking them MEM_WRITE_FAILED. Erase still reaches the
// target: only writes are refused.
class ReadOnlyMemoryAccessor : public IMemoryAccessor {
public:
    explicit ReadOnlyMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
};

// Widens every access to whole pages. Reads go page by page, partial pages
// through a scratch page; writes do read-modify-write at both ends and can
// erase each page in front of programming it. Middle pages move straight
// between the caller's buffer and the inner accessor.
//
// erasePages: erase a page before writing it, unless the caller says the
//   range is already erased.
// ignoreErasedFlag: never trust the caller's erased flag.
// Writes report worked() in bytes; reads report no progress.
class PagedMemoryAccessor : public IMemoryAccessor {
public:
    PagedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor, unsigned int pageSize,
                        bool erasePages, bool ignoreErasedFlag);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
    unsigned int mPageSize;
    bool mErasePages;
    bool mIgnoreErasedFlag;
    // One page for the partial pages at either end of a request. Kept across
    // calls so that the page path does not allocate per request.
    std::vector<unsigned char> mScratch;
};

// For targets that store words in the opposite byte order: reads and writes
// whole aligned words and reverses the bytes of each word. Alignment is
// always 4; reads reverse groups of wordSize, writes groups of 4.
class RevertEndiannessWordAlignedMemoryAccessor : public IMemoryAccessor {
public:
    RevertEndiannessWordAlignedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor,
                                              unsigned int wordSize);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mMemAccessor;
    unsigned int mWordSize;
};

// An address map with one special range: requests whose first address lies in
// the range go to the range accessor (shifted by offset), all others to the
// default accessor. A request that starts in the range but runs out of it
// throws ERR_ADDRESS_RANGE.
class CompositeMemoryAccessor : public IMemoryAccessor {
public:
    // Half-open: end is the first address behind the range.
    struct AddressRange {
        uint64_t start;
        uint64_t end;
        bool contains(uint64_t address) const { return start <= address && address < end; }
    };

    CompositeMemoryAccessor(boost::shared_ptr<IMemoryAccessor> rangeAccessor,
                            boost::shared_ptr<IMemoryAccessor> defaultAccessor,
                            CompositeMemoryAccessor::AddressRange range, int offset);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    uint64_t shifted(uint64_t address) const;

    boost::shared_ptr<IMemoryAccessor> mDefaultAccessor;
    boost::shared_ptr<IMemoryAccessor> mRangeAccessor;
    AddressRange mRange;
    int32_t mOffset;
};

// A sorted map of non-overlapping ranges, each served by its own accessor.
// A request is split at the range borders; bytes that no range covers, and
// sub-ranges whose accessor throws a std::exception, are marked MEM_UNKNOWN.
class AggregatingMemoryAccessor : public IMemoryAccessor {
public:
    struct AddressRange {
        uint64_t start;
        uint64_t end;
        bool contains(uint64_t address) const { return start <= address && address < end; }
    };
    typedef std::pair<AddressRange, boost::shared_ptr<IMemoryAccessor>> Entry;

    enum Operations { READ = 0, WRITE = 1, ERASE = 2, POPULATE = 3 };

    explicit AggregatingMemoryAccessor(const std::vector<Entry>& entries);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // Failures of single ranges are dropped: erase has no error record.
    void erase(uint64_t address, uint64_t size) override;

    // A new entry wins over whatever it overlaps; older entries are cut,
    // split or removed.
    void addRange(Entry entry);
    std::vector<Entry> getMap() const;

    // The one worker behind all four operations.
    void access(Operations operation, uint64_t address, unsigned int size,
                std::vector<unsigned char>::iterator out,
                std::vector<unsigned char>::const_iterator in,
                boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
                bool erased);

    // Hands data that is known to be in the target to the shadow accessors of
    // the map; other accessors are skipped.
    void populate(uint64_t address, unsigned int size,
                  std::vector<unsigned char>::const_iterator data);

private:
    std::vector<Entry> mapAccessToAccessors(uint64_t address, unsigned int size);

    std::vector<Entry> mMap;
};

// Reads go to one accessor, writes and erases to another.
class DualMemoryAccessor : public IMemoryAccessor {
public:
    DualMemoryAccessor(boost::shared_ptr<IMemoryAccessor> readAccessor,
                       boost::shared_ptr<IMemoryAccessor> writeAccessor);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    boost::shared_ptr<IMemoryAccessor> mReadAccessor;
    boost::shared_ptr<IMemoryAccessor> mWriteAccessor;
};

// A run-time switch: while (*enableFlags & mask) is zero, reads and writes
// are refused with marks and erases do nothing. The flag word is read at
// every call; its owner keeps it alive and may change it at any time.
class DynamicDisableMemoryAccessor : public IMemoryAccessor {
public:
    DynamicDisableMemoryAccessor(boost::shared_ptr<IMemoryAccessor> inner,
                                 unsigned int* enableFlags, int mask);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    bool enabled() const;

    boost::shared_ptr<IMemoryAccessor> mInner;
    unsigned int* mEnableFlags;
    int mMask;
};

// For memories that reject whole blocks because of single bad words: when a
// block access throws a std::exception, it is retried word by word and only
// the failing words are marked. 32 failures in a row give up the rest.
// A degraded write needs a word-aligned address and size; otherwise it
// throws the C string "Unaligned Catch and Degrade write".
class CatchAndDegradeMemoryAccessor : public IMemoryAccessor {
public:
    static constexpr int MAX_CONSECUTIVE_FAILURES = 32;

    explicit CatchAndDegradeMemoryAccessor(boost::shared_ptr<IMemoryAccessor> inner);

    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    void erase(uint64_t address, uint64_t size) override;

private:
    void degradedRead(uint64_t address, unsigned int size,
                      std::vector<unsigned char>::iterator data,
                      const boost::shared_ptr<MemoryError>& error, IIntermediateResult* progress);
    void degradedWrite(uint64_t address, unsigned int size,
                       std::vector<unsigned char>::const_iterator data,
                       const boost::shared_ptr<MemoryError>& error,
                       IIntermediateResult* progress);

    boost::shared_ptr<IMemoryAccessor> mInner;
};

#endif
