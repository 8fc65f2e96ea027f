#include "libcommon/image/programsegments.h"

#include "libcommon/stringconstants.h"

#include <boost/make_shared.hpp>

#include <algorithm>
#include <stdexcept>

namespace {

// Where each address space starts on the flat native line; each one is
// 64 KiB long, except "prog" below them all.
const uint64_t kDataStart = 0x800000;
const uint64_t kMappedEnd = 0x860000;
const uint64_t kSpaceLength = 0x10000;

// Offset 3 of the fuse space, left out of wrapped images.
const uint64_t kSkippedFuse = 0x820003;

const std::string& spaceName(uint64_t nativeOffset) {
    static const std::string empty;
    static const std::string* const mapped[] = {
        &ADDRSPACE_DATA,       &ADDRSPACE_EEPROM,    &ADDRSPACE_FUSES,
        &ADDRSPACE_LOCKBITS,   &ADDRSPACE_SIGNATURES, &ADDRSPACE_USER_SIGNATURES};
    if (nativeOffset < kDataStart) {
        return ADDRSPACE_PROG;
    }
    if (nativeOffset >= kMappedEnd) {
        return empty;
    }
    return *mapped[(nativeOffset - kDataStart) / kSpaceLength];
}

boost::shared_ptr<IProgramSegment> checked(boost::shared_ptr<IProgramSegment> segment) {
    if (!segment) {
        throw std::invalid_argument("A program segment list holds an empty segment pointer.");
    }
    return segment;
}

}  // namespace

Tarn8ProgramSegmentWrapper::Tarn8ProgramSegmentWrapper(boost::shared_ptr<IProgramSegment> segment)
    : wrapped(checked(segment)),
      nativeOffset(wrapped->getNativeOffset()),
      segmentSize(wrapped->getSize()) {}

Tarn8ProgramSegmentWrapper::Tarn8ProgramSegmentWrapper(boost::shared_ptr<IProgramSegment> segment,
                                                       uint64_t nativeOffset, unsigned int size)
    : wrapped(checked(segment)), nativeOffset(nativeOffset), segmentSize(size) {}

std::string Tarn8ProgramSegmentWrapper::getNativeName() {
    return wrapped->getNativeName();
}

uint64_t Tarn8ProgramSegmentWrapper::getNativeOffset() const {
    return nativeOffset;
}

unsigned int Tarn8ProgramSegmentWrapper::getSize() const {
    return segmentSize;
}

std::string Tarn8ProgramSegmentWrapper::getAddressSpaceName() {
    return spaceName(getNativeOffset());
}

uint64_t Tarn8ProgramSegmentWrapper::getAddressSpaceOffset() const {
    const uint64_t offset = getNativeOffset();
    if (offset < kDataStart || offset >= kMappedEnd) {
        return offset;
    }
    return (offset - kDataStart) % kSpaceLength;
}

void Tarn8ProgramSegmentWrapper::readData(std::vector<unsigned char>& data, uint64_t offset,
                                          unsigned int size) {
    if (getAddressSpaceName() != ADDRSPACE_SIGNATURES) {
        wrapped->readData(data, offset, size);
        return;
    }
    const uint64_t base = wrapped->getAddressSpaceOffset();
    const unsigned int count = wrapped->getSize();
    std::vector<unsigned char> buffer(count);
    wrapped->readData(buffer, base, count);
    std::reverse(buffer.begin(), buffer.end());
    // Only bytes that the wrapped segment holds are handed out: a request
    // that reaches outside them fails as a whole.
    if (offset < base || offset - base > buffer.size() ||
        size > buffer.size() - (offset - base)) {
        throw std::out_of_range("Signature read outside the bytes of the program segment.");
    }
    const std::vector<unsigned char>::const_iterator first =
        buffer.begin() + static_cast<std::ptrdiff_t>(offset - base);
    data.assign(first, first + size);
}

bool Tarn8ProgramSegmentWrapper::segmentsHaveMappedContent(
    std::vector<boost::shared_ptr<IProgramSegment> > segments) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
        if (checked(segments[i])->getNativeOffset() >= kDataStart) {
            return true;
        }
    }
    return false;
}

std::vector<boost::shared_ptr<IProgramSegment> > Tarn8ProgramSegmentWrapper::wrapSegments(
    std::vector<boost::shared_ptr<IProgramSegment> > segments) {
    std::vector<boost::shared_ptr<IProgramSegment> > result;
    result.reserve(segments.size() + 1);
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const boost::shared_ptr<IProgramSegment> segment = checked(segments[i]);
        const uint64_t start = segment->getNativeOffset();
        const unsigned int size = segment->getSize();
        // An empty segment holds no byte at all, the skipped one neither;
        // computing its last byte would wrap round at offset 0.
        const uint64_t last = start + size - 1;
        if (size == 0 || start > kSkippedFuse || last < kSkippedFuse) {
            result.push_back(boost::make_shared<Tarn8ProgramSegmentWrapper>(segment));
            continue;
        }
        if (start < kSkippedFuse) {
            result.push_back(boost::make_shared<Tarn8ProgramSegmentWrapper>(
                segment, start, static_cast<unsigned int>(kSkippedFuse - start)));
        }
        if (last > kSkippedFuse) {
            result.push_back(boost::make_shared<Tarn8ProgramSegmentWrapper>(
                segment, kSkippedFuse + 1, static_cast<unsigned int>(last - kSkippedFuse)));
        }
    }
    return result;
}
