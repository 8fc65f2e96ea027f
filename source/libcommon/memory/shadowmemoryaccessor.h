#ifndef LIBCOMMON_MEMORY_SHADOWMEMORYACCESSOR_H
#define LIBCOMMON_MEMORY_SHADOWMEMORYACCESSOR_H

// A host-side image of a target region, page by page. Reads are served from
// the image and fetch missing pages on demand; writes change only the image
// and mark their pages dirty; commitChanges programs the dirty pages, whole,
// into the target. This is what makes page-programmed memories writable
// byte by byte.
//
// Page states: absent (not populated), clean (populated), changed (populated
// and dirty). A page whose commit fails stays changed, is marked
// MEM_WRITE_FAILED and is read back, so that the image shows what the target
// really holds.

#include "libcommon/imemoryaccessor.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <vector>

class ShadowMemoryAccessor : public IMemoryAccessor {
public:
    // memorySize has to be a multiple of pageSize (ERR_INVALID_ARGUMENT
    // otherwise). The region is [baseAddress, baseAddress + memorySize);
    // page numbers count from baseAddress.
    ShadowMemoryAccessor(boost::shared_ptr<IMemoryAccessor> inner, unsigned int pageSize,
                         unsigned int memorySize, uint64_t baseAddress);

    // Fetches the missing pages of the range, then copies from the image. A
    // page that cannot be fetched is marked MEM_UNKNOWN and the read stops
    // there, leaving the output untouched.
    void read(uint64_t address, unsigned int size, std::vector<unsigned char>::iterator data,
              boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) override;
    // Changes the image only; the partial pages at either end are fetched
    // first. The erased flag of the last write applies to the next commit.
    void write(uint64_t address, unsigned int size,
               std::vector<unsigned char>::const_iterator data,
               boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
               bool erased) override;
    // Forwards to the target; the image is left as it is.
    void erase(uint64_t address, uint64_t size) override;

    unsigned int getPageSize(uint64_t address, unsigned int size) const;

    // Stores bytes known to be in the target, without touching it. Touched
    // pages count as populated even when given in part; dirty bits stay.
    void populate(uint64_t address, unsigned int size,
                  std::vector<unsigned char>::const_iterator data);

    // Writes every dirty page to the target in ascending order. progress
    // receives a share of 40 units.
    void commitChanges(IIntermediateResult* progress, boost::shared_ptr<MemoryError> error);

    // Introspection for callers that show or test the cache state.
    unsigned int getPageCount() const { return static_cast<unsigned int>(populated.size()); }
    bool isPagePopulated(unsigned int page) const { return populated.at(page); }
    bool isPageDirty(unsigned int page) const { return dirty.at(page); }
    bool hasDirtyPages() const;

private:
    void getMissingPageClosedRangeFromRange(uint64_t address, unsigned int size,
                                            std::vector<unsigned int>& pages) const;
    // Throws ERR_ADDRESS_RANGE unless the range lies in the region.
    void checkRange(uint64_t address, unsigned int size, const char* operation) const;
    uint64_t pageAddress(unsigned int page) const { return baseAddress + uint64_t(page) * pageSize; }
    unsigned int pageOf(uint64_t address) const {
        return static_cast<unsigned int>((address - baseAddress) / pageSize);
    }
    // Fetches one page if it is not populated, like a read of it whose output
    // is not needed.
    void loadPage(unsigned int page);

    boost::shared_ptr<IMemoryAccessor> inner;
    unsigned int pageSize;
    unsigned int memorySize;
    uint64_t baseAddress;
    bool erased = false;
    std::vector<unsigned char> image;
    std::vector<bool> populated;
    std::vector<bool> dirty;
    std::vector<unsigned char> scratch;
};

#endif
