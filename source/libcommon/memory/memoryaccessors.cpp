#include "libcommon/memory/memoryaccessors.h"

#include "libcommon/core/logging.h"
#include "libcommon/core/status.h"
#include "libcommon/core/utilities.h"
#include "libcommon/memory/shadowmemoryaccessor.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iterator>

namespace {

typedef std::vector<unsigned char>::iterator OutIt;
typedef std::vector<unsigned char>::const_iterator InIt;

void mark(const boost::shared_ptr<MemoryError>& error, uint64_t address, uint64_t size,
          int status) {
    if (error && size != 0) {
        error->setStatus(address, static_cast<unsigned int>(size), status);
    }
}

// A pointer to the same record without a share of its ownership. Copies of
// it cost no reference counting, which matters on the page path: there the
// record goes down once per page, and the two locked counter operations of
// each copy cost more than moving the page itself. The caller's own pointer
// keeps the record alive for the whole call, and no layer keeps the pointer
// beyond a call.
boost::shared_ptr<MemoryError> borrowed(const boost::shared_ptr<MemoryError>& error) {
    return boost::shared_ptr<MemoryError>(boost::shared_ptr<MemoryError>(), error.get());
}

void requireAccessor(const boost::shared_ptr<IMemoryAccessor>& accessor, const char* owner) {
    if (!accessor) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "%s: the inner memory accessor is missing", owner);
    }
}

}  // namespace

// ---- MemoryError ----------------------------------------------------------

void MemoryError::setStatus(uint64_t address, unsigned int size, int status) {
    if (status == MEM_VALID) {
        return;
    }
    // A range that continues an earlier one with the same status extends it;
    // the search runs backwards since ranges mostly arrive in ascending order.
    for (auto it = records.rbegin(); it != records.rend(); ++it) {
        if (it->address + it->size == address && it->status == status) {
            it->size += size;
            return;
        }
    }
    auto pos = std::upper_bound(records.begin(), records.end(), address,
                                [](uint64_t a, const Record& r) { return a < r.address; });
    records.insert(pos, Record{address, size, status});
}

int MemoryError::getStatus(uint64_t address, unsigned int* length) {
    // Offsets from the record's start rather than its end, which is 0 for a
    // record that reaches the top of the 64-bit space.
    for (const Record& r : records) {
        if (address < r.address) {
            if (length) {
                // A gap wider than the length can say is cut to the widest
                // one: cut to its low bits it could read as 0, "no failure
                // further on".
                *length = static_cast<unsigned int>(
                    std::min<uint64_t>(r.address - address, UINT32_MAX));
            }
            return MEM_VALID;
        }
        if (address - r.address < r.size) {
            if (length) {
                *length = static_cast<unsigned int>(r.size - (address - r.address));
            }
            return r.status;
        }
    }
    if (length) {
        *length = 0;
    }
    return MEM_VALID;
}

bool MemoryError::allLocationsAreValid(uint64_t address, unsigned int size) {
    // Counts the bytes left instead of comparing with the end address, which
    // wraps to 0 for a range that reaches the top of the 64-bit space.
    unsigned int remaining = size;
    while (remaining != 0) {
        unsigned int length = 0;
        if (getStatus(address, &length) != MEM_VALID) {
            return false;
        }
        if (length == 0 || length >= remaining) {
            return true;
        }
        address += length;
        remaining -= length;
    }
    return true;
}

std::string MemoryError::getMessage(uint64_t address) {
    if (address == SUMMARY_ADDRESS) {
        std::string summary;
        for (const Record& r : records) {
            char text[32];
            std::snprintf(text, sizeof text, "%08x-%08x ", static_cast<unsigned int>(r.address),
                          static_cast<unsigned int>(r.address + r.size));
            summary += text;
            if (summary.size() > 1024) {
                summary += "...";
                break;
            }
        }
        return summary;
    }
    switch (getStatus(address, nullptr)) {
    case MEM_VALID:
        return "byte is valid";
    case MEM_UNKNOWN:
        return "byte is unknown";
    case MEM_READ_FAILED:
        return "cannot read byte";
    case MEM_WRITE_FAILED:
        return "cannot write byte";
    default:
        return "unknown reason";
    }
}

bool MemoryError::isOk() { return records.empty(); }

// ---- BoundedMemoryAccessor ------------------------------------------------

BoundedMemoryAccessor::BoundedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor,
                                             uint64_t baseAddress, uint64_t memorySize,
                                             uint64_t ignoredAddressBits)
    : mMemAccessor(memAccessor),
      mBaseAddress(baseAddress),
      mMemorySize(memorySize),
      mAddressMask(~ignoredAddressBits) {
    requireAccessor(mMemAccessor, "BoundedMemoryAccessor");
    if (memorySize == 0) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "BoundedMemoryAccessor: the memory size must be above 0");
    }
}

bool BoundedMemoryAccessor::adjustAddressAndSizeAndSetErrorStatus(
    uint64_t& address, unsigned int& size, unsigned int& dataOffset,
    const boost::shared_ptr<MemoryError>& error) const {
    dataOffset = 0;
    address &= mAddressMask;
    if (address < mBaseAddress) {
        const uint64_t below = std::min<uint64_t>(mBaseAddress - address, size);
        mark(error, address, below, MEM_UNKNOWN);
        address += below;
        size -= static_cast<unsigned int>(below);
        dataOffset = static_cast<unsigned int>(below);
    }
    if (size == 0) {
        return false;
    }
    // Differences instead of sums, so that a window or a request at the top
    // of the 64-bit space cannot wrap.
    const uint64_t intoWindow = address - mBaseAddress;
    const uint64_t available = intoWindow < mMemorySize ? mMemorySize - intoWindow : 0;
    if (size > available) {
        const unsigned int beyond = size - static_cast<unsigned int>(available);
        mark(error, address + available, beyond, MEM_UNKNOWN);
        size -= beyond;
    }
    return size != 0;
}

void BoundedMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                 boost::shared_ptr<MemoryError> error, IIntermediateResult*) {
    unsigned int skip = 0;
    if (size == 0 || !adjustAddressAndSizeAndSetErrorStatus(address, size, skip, error)) {
        return;
    }
    // Reads report no progress below this layer.
    mMemAccessor->read(address, size, data + skip, error, nullptr);
}

void BoundedMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                  boost::shared_ptr<MemoryError> error,
                                  IIntermediateResult* progress, bool erased) {
    unsigned int skip = 0;
    if (size == 0 || !adjustAddressAndSizeAndSetErrorStatus(address, size, skip, error)) {
        return;
    }
    mMemAccessor->write(address, size, data + skip, error, progress, erased);
}

void BoundedMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address & mAddressMask, size);
}

// ---- OffsettingMemoryAccessor ---------------------------------------------

OffsettingMemoryAccessor::OffsettingMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor,
                                                   uint64_t offset)
    : mMemAccessor(memAccessor), mOffset(offset) {
    requireAccessor(mMemAccessor, "OffsettingMemoryAccessor");
}

void OffsettingMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                    boost::shared_ptr<MemoryError> error,
                                    IIntermediateResult* progress) {
    mMemAccessor->read(address + mOffset, size, data, error, progress);
}

void OffsettingMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                     boost::shared_ptr<MemoryError> error,
                                     IIntermediateResult* progress, bool erased) {
    mMemAccessor->write(address + mOffset, size, data, error, progress, erased);
}

void OffsettingMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address + mOffset, size);
}

// ---- ChunkedMemoryAccessor ------------------------------------------------

ChunkedMemoryAccessor::ChunkedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor,
                                             unsigned int chunkSize)
    : mMemAccessor(memAccessor), mChunkSize(chunkSize) {
    requireAccessor(mMemAccessor, "ChunkedMemoryAccessor");
    if (chunkSize == 0) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "ChunkedMemoryAccessor: the chunk size must be above 0");
    }
}

void ChunkedMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                 boost::shared_ptr<MemoryError> error,
                                 IIntermediateResult* progress) {
    const boost::shared_ptr<MemoryError> record = borrowed(error);
    unsigned int done = 0;
    while (done < size) {
        const unsigned int n = std::min(mChunkSize, size - done);
        mMemAccessor->read(address + done, n, data + done, record, progress);
        done += n;
    }
}

void ChunkedMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                  boost::shared_ptr<MemoryError> error,
                                  IIntermediateResult* progress, bool erased) {
    const boost::shared_ptr<MemoryError> record = borrowed(error);
    unsigned int done = 0;
    while (done < size) {
        const unsigned int n = std::min(mChunkSize, size - done);
        mMemAccessor->write(address + done, n, data + done, record, progress, erased);
        done += n;
    }
}

void ChunkedMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address, size);
}

// ---- ByteWriteMemoryAccessor ----------------------------------------------

ByteWriteMemoryAccessor::ByteWriteMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor)
    : mMemAccessor(memAccessor) {
    requireAccessor(mMemAccessor, "ByteWriteMemoryAccessor");
}

void ByteWriteMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                   boost::shared_ptr<MemoryError> error,
                                   IIntermediateResult* progress) {
    mMemAccessor->read(address, size, data, error, progress);
}

void ByteWriteMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                    boost::shared_ptr<MemoryError> error,
                                    IIntermediateResult* progress, bool erased) {
    for (unsigned int i = 0; i < size; ++i) {
        mMemAccessor->write(address + i, 1, data + i, error, progress, erased);
    }
}

void ByteWriteMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address, size);
}

// ---- ReadOnlyMemoryAccessor -----------------------------------------------

ReadOnlyMemoryAccessor::ReadOnlyMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor)
    : mMemAccessor(memAccessor) {
    requireAccessor(mMemAccessor, "ReadOnlyMemoryAccessor");
}

void ReadOnlyMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                  boost::shared_ptr<MemoryError> error,
                                  IIntermediateResult* progress) {
    mMemAccessor->read(address, size, data, error, progress);
}

void ReadOnlyMemoryAccessor::write(uint64_t address, unsigned int size, InIt,
                                   boost::shared_ptr<MemoryError> error, IIntermediateResult*,
                                   bool) {
    mark(error, address, size, MEM_WRITE_FAILED);
}

void ReadOnlyMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address, size);
}

// ---- PagedMemoryAccessor --------------------------------------------------

PagedMemoryAccessor::PagedMemoryAccessor(boost::shared_ptr<IMemoryAccessor> memAccessor,
                                         unsigned int pageSize, bool erasePages,
                                         bool ignoreErasedFlag)
    : mMemAccessor(memAccessor),
      mPageSize(pageSize),
      mErasePages(erasePages),
      mIgnoreErasedFlag(ignoreErasedFlag) {
    requireAccessor(mMemAccessor, "PagedMemoryAccessor");
    if (pageSize == 0) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "PagedMemoryAccessor: the page size must be above 0");
    }
    mScratch.resize(pageSize);
}

void PagedMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                               boost::shared_ptr<MemoryError> callerError, IIntermediateResult*) {
    // No bytes asked, no page read: a zero-length request must not touch the
    // target.
    if (size == 0) {
        return;
    }
    const boost::shared_ptr<MemoryError> error = borrowed(callerError);
    // Progress is counted in bytes of the request rather than compared with
    // its end address, which is 0 for a request that reaches the top of the
    // 64-bit space.
    const uint64_t offset = address % mPageSize;
    uint64_t page = address - offset;
    unsigned int done = 0;

    if (offset != 0) {
        std::fill(mScratch.begin(), mScratch.end(), 0);
        mMemAccessor->read(page, mPageSize, mScratch.begin(), error, nullptr);
        done = static_cast<unsigned int>(std::min<uint64_t>(size, mPageSize - offset));
        std::copy_n(mScratch.begin() + offset, done, data);
        page += mPageSize;
    }
    while (size - done >= mPageSize) {
        mMemAccessor->read(page, mPageSize, data + done, error, nullptr);
        done += mPageSize;
        page += mPageSize;
    }
    if (done < size) {
        std::fill(mScratch.begin(), mScratch.end(), 0);
        mMemAccessor->read(page, mPageSize, mScratch.begin(), error, nullptr);
        std::copy_n(mScratch.begin(), size - done, data + done);
    }
}

void PagedMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                boost::shared_ptr<MemoryError> callerError,
                                IIntermediateResult* progress, bool erased) {
    if (size == 0) {
        return;
    }
    const bool alreadyErased = mIgnoreErasedFlag ? false : erased;
    const bool eraseFirst = mErasePages && !alreadyErased;
    const bool passDown = mErasePages || alreadyErased;

    const boost::shared_ptr<MemoryError> error = borrowed(callerError);
    // Counted in bytes of the request, as in read.
    const uint64_t offset = address % mPageSize;
    uint64_t page = address - offset;
    unsigned int done = 0;

    // This layer counts the bytes itself, so the inner writes get no progress.
    if (offset != 0) {
        done = static_cast<unsigned int>(std::min<uint64_t>(size, mPageSize - offset));
        std::fill(mScratch.begin(), mScratch.end(), 0);
        // A failure of this read must leave no mark: the write decides.
        mMemAccessor->read(page, mPageSize, mScratch.begin(), boost::shared_ptr<MemoryError>(),
                           nullptr);
        std::copy_n(data, done, mScratch.begin() + offset);
        if (eraseFirst) {
            mMemAccessor->erase(page, mPageSize);
        }
        mMemAccessor->write(page, mPageSize, mScratch.cbegin(), error, nullptr, passDown);
        if (progress) {
            progress->worked(static_cast<unsigned int>(mPageSize - offset));
        }
        page += mPageSize;
    }
    while (size - done >= mPageSize) {
        if (eraseFirst) {
            mMemAccessor->erase(page, mPageSize);
        }
        mMemAccessor->write(page, mPageSize, data + done, error, nullptr, passDown);
        if (progress) {
            progress->worked(mPageSize);
        }
        done += mPageSize;
        page += mPageSize;
    }
    if (done < size) {
        const unsigned int count = size - done;
        std::fill(mScratch.begin(), mScratch.end(), 0);
        mMemAccessor->read(page, mPageSize, mScratch.begin(), error, nullptr);
        std::copy_n(data + done, count, mScratch.begin());
        if (eraseFirst) {
            mMemAccessor->erase(page, mPageSize);
        }
        mMemAccessor->write(page, mPageSize, mScratch.cbegin(), error, nullptr, passDown);
        if (progress) {
            progress->worked(count);
        }
    }
}

void PagedMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address, size);
}

// ---- RevertEndiannessWordAlignedMemoryAccessor ----------------------------

RevertEndiannessWordAlignedMemoryAccessor::RevertEndiannessWordAlignedMemoryAccessor(
    boost::shared_ptr<IMemoryAccessor> memAccessor, unsigned int wordSize)
    : mMemAccessor(memAccessor), mWordSize(wordSize) {
    requireAccessor(mMemAccessor, "RevertEndiannessWordAlignedMemoryAccessor");
    if (wordSize == 0) {
        CoreException::createAndThrow(
            "", ERR_INVALID_ARGUMENT,
            "RevertEndiannessWordAlignedMemoryAccessor: the word size must be above 0");
    }
}

void RevertEndiannessWordAlignedMemoryAccessor::read(uint64_t address, unsigned int size,
                                                     OutIt data,
                                                     boost::shared_ptr<MemoryError> error,
                                                     IIntermediateResult* progress) {
    if (size == 0) {
        return;
    }
    const uint64_t end = address + size;
    const uint64_t first = address & ~uint64_t(3);
    uint64_t last = end & ~uint64_t(3);
    if (end & 3) {
        last += mWordSize;
    }
    // A word smaller than the unaligned tail would leave the last bytes out
    // of the span; stretch it so the copy below always has its bytes.
    last = std::max(last, end);
    std::vector<unsigned char> buffer(last - first);
    mMemAccessor->read(first, static_cast<unsigned int>(buffer.size()), buffer.begin(), error,
                       progress);
    for (size_t i = 0; i + mWordSize <= buffer.size(); i += mWordSize) {
        std::reverse(buffer.begin() + i, buffer.begin() + i + mWordSize);
    }
    std::copy_n(buffer.begin() + (address & 3), size, data);
}

void RevertEndiannessWordAlignedMemoryAccessor::write(uint64_t address, unsigned int size,
                                                      InIt data,
                                                      boost::shared_ptr<MemoryError> error,
                                                      IIntermediateResult* progress,
                                                      bool erased) {
    if (size == 0) {
        return;
    }
    const uint64_t end = address + size;
    const uint64_t first = address & ~uint64_t(3);
    const uint64_t endUp = (end + 3) & ~uint64_t(3);
    std::vector<unsigned char> buffer(endUp - first);
    const unsigned int head = static_cast<unsigned int>(address & 3);
    unsigned int used = 0;  // input bytes placed so far
    if (head != 0) {
        mMemAccessor->read(first, 4, buffer.begin(), error, nullptr);
        std::reverse(buffer.begin(), buffer.begin() + 4);
        used = std::min(4 - head, size);
        std::copy_n(data, used, buffer.begin() + head);
    }
    std::copy(data + used, data + size, buffer.begin() + (address - first) + used);
    // The word that holds the end; when that is the head word it is already
    // in the buffer and needs no second read.
    const uint64_t tailWord = end & ~uint64_t(3);
    if ((end & 3) != 0 && !(head != 0 && tailWord == first)) {
        std::vector<unsigned char> word(4);
        mMemAccessor->read(tailWord, 4, word.begin(), error, nullptr);
        std::reverse(word.begin(), word.end());
        std::copy(word.begin() + (end & 3), word.end(), buffer.begin() + (end - first));
    }
    for (size_t i = 0; i < buffer.size(); i += 4) {
        std::reverse(buffer.begin() + i, buffer.begin() + i + 4);
    }
    mMemAccessor->write(first, static_cast<unsigned int>(buffer.size()), buffer.cbegin(), error,
                        progress, erased);
}

void RevertEndiannessWordAlignedMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mMemAccessor->erase(address, size);
}

// ---- CompositeMemoryAccessor ----------------------------------------------

CompositeMemoryAccessor::CompositeMemoryAccessor(boost::shared_ptr<IMemoryAccessor> rangeAccessor,
                                                 boost::shared_ptr<IMemoryAccessor> defaultAccessor,
                                                 CompositeMemoryAccessor::AddressRange range,
                                                 int offset)
    : mDefaultAccessor(defaultAccessor),
      mRangeAccessor(rangeAccessor),
      mRange(range),
      mOffset(offset) {
    requireAccessor(mRangeAccessor, "CompositeMemoryAccessor");
    requireAccessor(mDefaultAccessor, "CompositeMemoryAccessor");
}

uint64_t CompositeMemoryAccessor::shifted(uint64_t address) const {
    return address + static_cast<uint64_t>(static_cast<int64_t>(mOffset));
}

void CompositeMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                   boost::shared_ptr<MemoryError> error,
                                   IIntermediateResult* progress) {
    // Only the first address decides.
    if (!mRange.contains(address)) {
        mDefaultAccessor->read(address, size, data, error, progress);
        return;
    }
    if (size > mRange.end - address) {
        CoreException::createAndThrow(
            "", ERR_ADDRESS_RANGE,
            "The last address 0x%llx,  is beyond the range of this memory accessor [0x%llx, "
            "0x%llx]",
            static_cast<unsigned long long>(address + size),
            static_cast<unsigned long long>(mRange.start),
            static_cast<unsigned long long>(mRange.end));
    }
    mRangeAccessor->read(shifted(address), size, data, error, progress);
}

void CompositeMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                    boost::shared_ptr<MemoryError> error,
                                    IIntermediateResult* progress, bool erased) {
    if (!mRange.contains(address)) {
        mDefaultAccessor->write(address, size, data, error, progress, erased);
        return;
    }
    if (size > mRange.end - address) {
        CoreException::createAndThrow(
            "", ERR_ADDRESS_RANGE,
            "The last address 0x%llx, exceeds is beyond the range of this memory accessor "
            "[0x%llx, 0x%llx]",
            static_cast<unsigned long long>(address + size),
            static_cast<unsigned long long>(mRange.start),
            static_cast<unsigned long long>(mRange.end));
    }
    mRangeAccessor->write(shifted(address), size, data, error, progress, erased);
}

void CompositeMemoryAccessor::erase(uint64_t address, uint64_t size) {
    if (mRange.contains(address)) {
        mRangeAccessor->erase(shifted(address), size);
    } else {
        mDefaultAccessor->erase(address, size);
    }
}

// ---- AggregatingMemoryAccessor --------------------------------------------

AggregatingMemoryAccessor::AggregatingMemoryAccessor(const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
        addRange(entry);
    }
}

void AggregatingMemoryAccessor::addRange(Entry entry) {
    const AddressRange nr = entry.first;
    // An empty range would serve nothing and only clutter the map.
    if (nr.start >= nr.end) {
        return;
    }
    for (size_t i = 0; i < mMap.size();) {
        AddressRange& old = mMap[i].first;
        const uint64_t s = std::max(nr.start, old.start);
        const uint64_t t = std::min(nr.end, old.end);
        if (s >= t) {
            ++i;
            continue;
        }
        if (s == old.start && t == old.end) {
            mMap.erase(mMap.begin() + i);
            continue;
        }
        if (s == old.start) {
            old.start = t;
        } else if (t == old.end) {
            old.end = s;
        } else {
            // Strictly inside: split the old entry around the new one.
            Entry upper(AddressRange{t, old.end}, mMap[i].second);
            old.end = s;
            mMap.insert(mMap.begin() + i + 1, entry);
            mMap.insert(mMap.begin() + i + 2, upper);
            return;
        }
        ++i;
    }
    auto pos = std::find_if(mMap.begin(), mMap.end(),
                            [&](const Entry& e) { return e.first.start >= nr.start; });
    mMap.insert(pos, entry);
}

std::vector<AggregatingMemoryAccessor::Entry> AggregatingMemoryAccessor::getMap() const {
    return mMap;
}

std::vector<AggregatingMemoryAccessor::Entry>
AggregatingMemoryAccessor::mapAccessToAccessors(uint64_t address, unsigned int size) {
    std::vector<Entry> result;
    const uint64_t end = address + size;
    for (const Entry& e : mMap) {
        const uint64_t s = std::max(address, e.first.start);
        const uint64_t t = std::min(end, e.first.end);
        if (s < t) {
            result.push_back(Entry(AddressRange{s, t}, e.second));
        }
    }
    return result;
}

void AggregatingMemoryAccessor::access(Operations operation, uint64_t address, unsigned int size,
                                       OutIt out, InIt in, boost::shared_ptr<MemoryError> error,
                                       IIntermediateResult* progress, bool erased) {
    if (size == 0) {
        return;
    }
    const std::vector<Entry> parts = mapAccessToAccessors(address, size);
    for (const Entry& part : parts) {
        const uint64_t start = part.first.start;
        const uint64_t length = part.first.end - start;
        const uint64_t skip = start - address;
        try {
            switch (operation) {
            case READ:
                part.second->read(start, static_cast<unsigned int>(length), out + skip, error,
                                  progress);
                break;
            case WRITE:
                part.second->write(start, static_cast<unsigned int>(length), in + skip, error,
                                   progress, erased);
                break;
            case ERASE:
                part.second->erase(start, length);
                break;
            case POPULATE: {
                boost::shared_ptr<ShadowMemoryAccessor> shadow =
                    boost::dynamic_pointer_cast<ShadowMemoryAccessor>(part.second);
                if (shadow) {
                    shadow->populate(start, static_cast<unsigned int>(length), in + skip);
                }
                break;
            }
            }
        } catch (const std::exception&) {
            // One failing range does not spoil the others.
            mark(error, start, length, MEM_UNKNOWN);
        }
    }
    if (!error) {
        return;
    }
    uint64_t covered = address;
    for (const Entry& part : parts) {
        mark(error, covered, part.first.start - covered, MEM_UNKNOWN);
        covered = part.first.end;
    }
    mark(error, covered, address + size - covered, MEM_UNKNOWN);
}

void AggregatingMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                     boost::shared_ptr<MemoryError> error,
                                     IIntermediateResult* progress) {
    access(READ, address, size, data, InIt(), error, progress, false);
}

void AggregatingMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                      boost::shared_ptr<MemoryError> error,
                                      IIntermediateResult* progress, bool erased) {
    access(WRITE, address, size, OutIt(), data, error, progress, erased);
}

void AggregatingMemoryAccessor::erase(uint64_t address, uint64_t size) {
    access(ERASE, address, static_cast<unsigned int>(size), OutIt(), InIt(),
           boost::shared_ptr<MemoryError>(), nullptr, false);
}

void AggregatingMemoryAccessor::populate(uint64_t address, unsigned int size, InIt data) {
    access(POPULATE, address, size, OutIt(), data, boost::shared_ptr<MemoryError>(), nullptr,
           false);
}

// ---- DualMemoryAccessor ---------------------------------------------------

DualMemoryAccessor::DualMemoryAccessor(boost::shared_ptr<IMemoryAccessor> readAccessor,
                                       boost::shared_ptr<IMemoryAccessor> writeAccessor)
    : mReadAccessor(readAccessor), mWriteAccessor(writeAccessor) {
    requireAccessor(mReadAccessor, "DualMemoryAccessor");
    requireAccessor(mWriteAccessor, "DualMemoryAccessor");
}

void DualMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                              boost::shared_ptr<MemoryError> error,
                              IIntermediateResult* progress) {
    mReadAccessor->read(address, size, data, error, progress);
}

void DualMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                               boost::shared_ptr<MemoryError> error,
                               IIntermediateResult* progress, bool erased) {
    mWriteAccessor->write(address, size, data, error, progress, erased);
}

void DualMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mWriteAccessor->erase(address, size);
}

// ---- DynamicDisableMemoryAccessor -----------------------------------------

DynamicDisableMemoryAccessor::DynamicDisableMemoryAccessor(
    boost::shared_ptr<IMemoryAccessor> inner, unsigned int* enableFlags, int mask)
    : mInner(inner), mEnableFlags(enableFlags), mMask(mask) {
    requireAccessor(mInner, "DynamicDisableMemoryAccessor");
    if (!enableFlags) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "DynamicDisableMemoryAccessor: the flag word is missing");
    }
}

bool DynamicDisableMemoryAccessor::enabled() const {
    return (*mEnableFlags & static_cast<unsigned int>(mMask)) != 0;
}

void DynamicDisableMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                        boost::shared_ptr<MemoryError> error,
                                        IIntermediateResult* progress) {
    if (enabled()) {
        mInner->read(address, size, data, error, progress);
    } else {
        mark(error, address, size, MEM_READ_FAILED);
    }
}

void DynamicDisableMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                         boost::shared_ptr<MemoryError> error,
                                         IIntermediateResult* progress, bool erased) {
    if (enabled()) {
        mInner->write(address, size, data, error, progress, erased);
    } else {
        mark(error, address, size, MEM_WRITE_FAILED);
    }
}

void DynamicDisableMemoryAccessor::erase(uint64_t address, uint64_t size) {
    if (enabled()) {
        mInner->erase(address, size);
    }
}

// ---- CatchAndDegradeMemoryAccessor ----------------------------------------

CatchAndDegradeMemoryAccessor::CatchAndDegradeMemoryAccessor(
    boost::shared_ptr<IMemoryAccessor> inner)
    : mInner(inner) {
    requireAccessor(mInner, "CatchAndDegradeMemoryAccessor");
}

void CatchAndDegradeMemoryAccessor::read(uint64_t address, unsigned int size, OutIt data,
                                         boost::shared_ptr<MemoryError> error,
                                         IIntermediateResult* progress) {
    try {
        mInner->read(address, size, data, error, progress);
        return;
    } catch (const std::exception&) {
    }
    degradedRead(address, size, data, error, progress);
}

void CatchAndDegradeMemoryAccessor::degradedRead(uint64_t address, unsigned int size, OutIt data,
                                                 const boost::shared_ptr<MemoryError>& error,
                                                 IIntermediateResult* progress) {
    // Positions count bytes from the start of the request rather than
    // addresses, whose end is 0 for a request that reaches the top of the
    // 64-bit space.
    const unsigned int head =
        std::min(size, static_cast<unsigned int>((4 - (address & 3)) & 3));
    const unsigned int middleEnd = head + (size - head) / 4 * 4;
    unsigned int done = 0;
    int failures = 0;

    auto readBytesUpTo = [&](unsigned int stop) {
        for (; done < stop; ++done) {
            try {
                mInner->read(address + done, 1, data + done, error, progress);
                failures = 0;
            } catch (const std::exception&) {
                ++failures;
                mark(error, address + done, 1, MEM_READ_FAILED);
            }
        }
    };

    readBytesUpTo(head);
    while (done < middleEnd) {
        try {
            mInner->read(address + done, 4, data + done, error, progress);
            failures = 0;
        } catch (const std::exception&) {
            ++failures;
            mark(error, address + done, 4, MEM_READ_FAILED);
        }
        done += 4;
        if (failures >= MAX_CONSECUTIVE_FAILURES) {
            if (gLogMask & LOG_MASK_ERROR) {
                BackendLogger::error(L_DBG,
                                     FormatString("Stopped memory read after %d consecutive "
                                                  "read errors",
                                                  failures));
            }
            mark(error, address + done, middleEnd - done, MEM_READ_FAILED);
            done = middleEnd;
            break;
        }
    }
    readBytesUpTo(size);
}

void CatchAndDegradeMemoryAccessor::write(uint64_t address, unsigned int size, InIt data,
                                          boost::shared_ptr<MemoryError> error,
                                          IIntermediateResult* progress, bool erased) {
    try {
        mInner->write(address, size, data, error, progress, erased);
        return;
    } catch (const std::exception&) {
    }
    degradedWrite(address, size, data, error, progress);
}

void CatchAndDegradeMemoryAccessor::degradedWrite(uint64_t address, unsigned int size, InIt data,
                                                  const boost::shared_ptr<MemoryError>& error,
                                                  IIntermediateResult* progress) {
    if ((address & 3) != 0 || (size & 3) != 0) {
        // Deliberately not a std::exception: only a catch-all stops it.
        throw "Unaligned Catch and Degrade write";
    }
    int failures = 0;
    for (unsigned int done = 0; done < size; done += 4) {
        try {
            // The block write failed, so the caller's erased promise no longer
            // holds for what it may have left behind.
            mInner->write(address + done, 4, data + done, error, progress, false);
            failures = 0;
        } catch (const std::exception&) {
            ++failures;
            mark(error, address + done, 4, MEM_WRITE_FAILED);
        }
        if (failures >= MAX_CONSECUTIVE_FAILURES) {
            if (gLogMask & LOG_MASK_ERROR) {
                BackendLogger::error(L_DBG,
                                     FormatString("Stopped memory writing after %d consecutive "
                                                  "write errors",
                                                  failures));
            }
            mark(error, address + done + 4, size - done - 4, MEM_WRITE_FAILED);
            return;
        }
    }
}

void CatchAndDegradeMemoryAccessor::erase(uint64_t address, uint64_t size) {
    mInner->erase(address, size);
}
