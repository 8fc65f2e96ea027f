#include "libcommon/memory/shadowmemoryaccessor.h"

#include "libcommon/core/progress.h"
#include "libcommon/core/status.h"

#include <algorithm>
#include <exception>

ShadowMemoryAccessor::ShadowMemoryAccessor(boost::shared_ptr<IMemoryAccessor> inner,
                                           unsigned int pageSize, unsigned int memorySize,
                                           uint64_t baseAddress)
    : inner(inner), pageSize(pageSize), memorySize(memorySize), baseAddress(baseAddress) {
    if (!this->inner) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "ShadowMemoryAccessor: the inner memory accessor is missing");
    }
    if (pageSize == 0) {
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "ShadowMemoryAccessor: page size must be above 0");
    }
    if (memorySize % pageSize != 0) {
        CoreException::createAndThrow(
            "", ERR_INVALID_ARGUMENT,
            "ShadowMemoryAccessor: memory size must be divisible by page size");
    }
    // Pages are located by division from baseAddress rather than by masking,
    // so any page size works; for powers of two both agree.
    image.assign(memorySize, 0xFF);
    populated.assign(memorySize / pageSize, false);
    dirty.assign(memorySize / pageSize, false);
}

void ShadowMemoryAccessor::checkRange(uint64_t address, unsigned int size,
                                      const char* operation) const {
    // The image cannot serve bytes outside the region; a stack that lets such
    // a request through is misbuilt, and silently reading or writing beside
    // the image would corrupt memory.
    if (address < baseAddress || address - baseAddress > memorySize ||
        size > memorySize - (address - baseAddress)) {
        CoreException::createAndThrow(
            "", ERR_ADDRESS_RANGE,
            "ShadowMemoryAccessor: %s of 0x%x bytes at 0x%llx is outside [0x%llx, 0x%llx)",
            operation, size, static_cast<unsigned long long>(address),
            static_cast<unsigned long long>(baseAddress),
            static_cast<unsigned long long>(baseAddress + memorySize));
    }
}

void ShadowMemoryAccessor::getMissingPageClosedRangeFromRange(
    uint64_t address, unsigned int size, std::vector<unsigned int>& pages) const {
    if (size == 0) {
        return;
    }
    const unsigned int last = pageOf(address + size - 1);
    for (unsigned int page = pageOf(address); page <= last; ++page) {
        if (!populated[page]) {
            pages.push_back(page);
        }
    }
}

void ShadowMemoryAccessor::read(uint64_t address, unsigned int size,
                                std::vector<unsigned char>::iterator data,
                                boost::shared_ptr<MemoryError> error,
                                IIntermediateResult* progress) {
    if (size == 0) {
        return;
    }
    checkRange(address, size, "read");
    std::vector<unsigned int> missing;
    getMissingPageClosedRangeFromRange(address, size, missing);
    for (unsigned int page : missing) {
        boost::shared_ptr<MemoryError> pageError(new MemoryError());
        const uint64_t pageAddr = pageAddress(page);
        inner->read(pageAddr, pageSize, image.begin() + (pageAddr - baseAddress), pageError,
                    progress);
        if (!pageError->isOk()) {
            if (error) {
                error->setStatus(pageAddr, pageSize, MEM_UNKNOWN);
            }
            return;
        }
        populated[page] = true;
    }
    std::copy_n(image.cbegin() + (address - baseAddress), size, data);
}

void ShadowMemoryAccessor::loadPage(unsigned int page) {
    if (populated[page]) {
        return;
    }
    scratch.resize(pageSize);
    read(pageAddress(page), pageSize, scratch.begin(), boost::shared_ptr<MemoryError>(), nullptr);
}

void ShadowMemoryAccessor::write(uint64_t address, unsigned int size,
                                 std::vector<unsigned char>::const_iterator data,
                                 boost::shared_ptr<MemoryError>, IIntermediateResult*,
                                 bool erased) {
    if (size == 0) {
        return;
    }
    checkRange(address, size, "write");
    const unsigned int firstPage = pageOf(address);
    const unsigned int lastPage = pageOf(address + size - 1);
    // Partial pages need the target's other bytes, since commits write whole
    // pages. A failed fetch leaves 0xFF (or what an earlier failed fetch left)
    // around the new bytes.
    if ((address - baseAddress) % pageSize != 0) {
        loadPage(firstPage);
    }
    if ((address + size - baseAddress) % pageSize != 0) {
        loadPage(lastPage);
    }
    // Marked dirty only once the fetches are through: a fetch that throws
    // ends the write, and a page left dirty then would have an image that
    // was never filled, which the next commit would write over the target.
    for (unsigned int page = firstPage; page <= lastPage; ++page) {
        dirty[page] = true;
        populated[page] = true;
    }
    std::copy_n(data, size, image.begin() + (address - baseAddress));
    this->erased = erased;
}

void ShadowMemoryAccessor::erase(uint64_t address, uint64_t size) { inner->erase(address, size); }

unsigned int ShadowMemoryAccessor::getPageSize(uint64_t, unsigned int) const { return pageSize; }

void ShadowMemoryAccessor::populate(uint64_t address, unsigned int size,
                                    std::vector<unsigned char>::const_iterator data) {
    if (size == 0) {
        return;
    }
    checkRange(address, size, "populate");
    const unsigned int lastPage = pageOf(address + size - 1);
    for (unsigned int page = pageOf(address); page <= lastPage; ++page) {
        populated[page] = true;
    }
    std::copy_n(data, size, image.begin() + (address - baseAddress));
}

bool ShadowMemoryAccessor::hasDirtyPages() const {
    return std::find(dirty.begin(), dirty.end(), true) != dirty.end();
}

void ShadowMemoryAccessor::commitChanges(IIntermediateResult* progress,
                                         boost::shared_ptr<MemoryError> error) {
    // A commit must not be refused for want of a progress counter: that would
    // lose the caller's changes. A local counter takes the place of a null one.
    IntermediateResult localProgress;
    IIntermediateResult& parent = progress ? *progress : localProgress;

    const unsigned int count = static_cast<unsigned int>(std::count(dirty.begin(), dirty.end(), true));
    SubIntermediateResult sub(parent, 40);
    sub.beginTask("Writing", pageSize * count);
    for (unsigned int page = 0; page < dirty.size(); ++page) {
        if (!dirty[page]) {
            continue;
        }
        sub.worked(1);
        const uint64_t pageAddr = pageAddress(page);
        try {
            inner->write(pageAddr, pageSize, image.cbegin() + (pageAddr - baseAddress), error, &sub,
                         erased);
            dirty[page] = false;
        } catch (const CoreException&) {
            // Show what the target really holds; the page stays dirty so that
            // the failure is visible until a commit succeeds.
            populated[page] = false;
            try {
                loadPage(page);
            } catch (const std::exception&) {
                // Unreadable as well: the page stays absent and is fetched
                // again by the next read; the other pages still get written.
            }
            if (error) {
                error->setStatus(pageAddr, pageSize, MEM_WRITE_FAILED);
            }
        }
    }
    sub.done();
}
