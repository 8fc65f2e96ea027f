#include "libcommon/memory/targetaccessors.h"

#include "libcommon/core/status.h"

#include <set>

// ---------------------------------------------------------------------------
// SimpleTarn8MemoryAccessor

SimpleTarn8MemoryAccessor::SimpleTarn8MemoryAccessor(boost::shared_ptr<ITarn8Target> target,
                                                     ITarn8Target::MemoryType readType,
                                                     ITarn8Target::MemoryType writeType,
                                                     bool pageErase)
    : target(target), readType(readType), writeType(writeType), pageErase(pageErase) {
    // A stack without a target would fail at its first access with a null
    // call; refuse it where it is made instead.
    if (!target)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "SimpleTarn8MemoryAccessor needs a target");
}

void SimpleTarn8MemoryAccessor::read(uint64_t address, unsigned int size,
                                     std::vector<unsigned char>::iterator data,
                                     boost::shared_ptr<MemoryError>, IIntermediateResult*) {
    target->readMemory(readType, static_cast<unsigned int>(address), size, data);
}

void SimpleTarn8MemoryAccessor::write(uint64_t address, unsigned int size,
                                      std::vector<unsigned char>::const_iterator data,
                                      boost::shared_ptr<MemoryError>, IIntermediateResult*,
                                      bool) {
    target->writeMemory(writeType, static_cast<unsigned int>(address), size, data);
}

void SimpleTarn8MemoryAccessor::erase(uint64_t address, uint64_t) {
    const unsigned int page = static_cast<unsigned int>(address);
    if (pageErase) {
        int eraseKind;
        switch (writeType) {
        case ITarn8Target::MemTypeApplication: eraseKind = 4; break;
        case ITarn8Target::MemTypeBoot: eraseKind = 5; break;
        case ITarn8Target::MemTypeEeprom: eraseKind = 6; break;
        case ITarn8Target::MemTypeUserSignature: eraseKind = 7; break;
        default:
            CoreException::createAndThrow(
                "", ERR_NOT_SUPPORTED,
                "Invalid memorytype %d in SimpleTarn8MemoryAccessor::erasePage",
                static_cast<int>(writeType));
        }
        target->eraseMemoryPage(eraseKind, page);
        return;
    }
    // Without typed page erase only program memory can be erased; other
    // memories are overwritten in place, so there is nothing to do.
    if (writeType == ITarn8Target::MemTypeFlash || writeType == ITarn8Target::MemTypeFlashDebug)
        target->eraseFlashPage(page);
}

unsigned int SimpleTarn8MemoryAccessor::CRC_Reference(
    std::vector<unsigned char>::const_iterator data, int start, int end) {
    unsigned int crc = 0;
    for (int i = start; i < end; i += 2) {
        const unsigned int word = static_cast<unsigned int>(data[i]) |
                                  (static_cast<unsigned int>(data[i + 1]) << 8);
        const unsigned int x = (crc & 0x800000u) ? 0x80001Bu : 0u;
        crc = ((crc & 0x7FFFFFu) << 1) ^ word ^ x;
    }
    return crc;
}

// ---------------------------------------------------------------------------
// SimpleTarn32MemoryAccessor

SimpleTarn32MemoryAccessor::SimpleTarn32MemoryAccessor(boost::shared_ptr<ITarn32Target> target,
                                                       ITarn32Target::MemoryType readType,
                                                       ITarn32Target::MemoryType writeType)
    : target(target), readType(readType), writeType(writeType) {
    if (!target)
        CoreException::createAndThrow("", ERR_INVALID_ARGUMENT,
                                      "SimpleTarn32MemoryAccessor needs a target");
}

void SimpleTarn32MemoryAccessor::read(uint64_t address, unsigned int size,
                                      std::vector<unsigned char>::iterator data,
                                      boost::shared_ptr<MemoryError>, IIntermediateResult*) {
    target->readMemory(readType, 0, address, size, data);
}

void SimpleTarn32MemoryAccessor::write(uint64_t address, unsigned int size,
                                       std::vector<unsigned char>::const_iterator data,
                                       boost::shared_ptr<MemoryError>, IIntermediateResult*,
                                       bool) {
    target->writeMemory(writeType, 0, address, size, data);
}

void SimpleTarn32MemoryAccessor::erase(uint64_t, uint64_t) {
    CoreException::createAndThrow("", ERR_NOT_SUPPORTED,
                                  "Cannot erase memory page with memoryType %d",
                                  static_cast<int>(writeType));
}

// ---------------------------------------------------------------------------
// MaskPacketCreator

namespace {

bool createMask(const std::set<uint64_t>* skipped, unsigned int start, unsigned int size,
                Packet& mask) {
    Packet result((static_cast<std::size_t>(size) + 7) / 8, 0xFF);
    bool found = false;
    if (skipped) {
        const uint64_t end = static_cast<uint64_t>(start) + size;
        for (auto it = skipped->lower_bound(start); it != skipped->end() && *it < end; ++it) {
            const uint64_t bit = *it - start;
            result[bit / 8] &= static_cast<unsigned char>(~(1u << (bit % 8)));
            found = true;
        }
    }
    mask.swap(result);
    return found;
}

}  // namespace

MaskPacketCreator::MaskPacketCreator(boost::shared_ptr<MaskedIODetails> details)
    : details(details) {}

bool MaskPacketCreator::createReadMask(unsigned int start, unsigned int size, Packet& mask) const {
    return createMask(details ? &details->readMaskedAddresses : nullptr, start, size, mask);
}

bool MaskPacketCreator::createWriteMask(unsigned int start, unsigned int size,
                                        Packet& mask) const {
    return createMask(details ? &details->writeMaskedAddresses : nullptr, start, size, mask);
}
