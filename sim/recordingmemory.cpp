#include "recordingmemory.h"

#include "libcommon/core/status.h"

#include <algorithm>
#include <set>

namespace {

// Built directly rather than through createAndThrow: injected failures are
// expected by the tests that ask for them and should not flood the log.
[[noreturn]] void throwStatus(ErrorCode code, const char* text, uint64_t address, uint64_t size) {
    boost::shared_ptr<Status> status(
        new Status(SeverityError, code, "RecordingMemory: %s at 0x%llx, 0x%llx bytes", text,
                   static_cast<unsigned long long>(address), static_cast<unsigned long long>(size)));
    throw CoreException(status);
}

const char* kindName(RecordingMemory::Kind kind) {
    switch (kind) {
    case RecordingMemory::KIND_READ:
        return "read";
    case RecordingMemory::KIND_WRITE:
        return "write";
    default:
        return "erase";
    }
}

}  // namespace

RecordingMemory::RecordingMemory(uint64_t baseAddress, size_t size, unsigned char fill)
    : baseAddress(baseAddress), bytes(size, fill) {}

unsigned char RecordingMemory::byteAt(uint64_t address) const {
    return bytes.at(address - baseAddress);
}

void RecordingMemory::setBytes(uint64_t address, const std::vector<unsigned char>& data) {
    if (address < baseAddress || address - baseAddress + data.size() > bytes.size()) {
        throwStatus(ERR_ADDRESS_RANGE, "setBytes outside the array", address, data.size());
    }
    std::copy(data.begin(), data.end(), bytes.begin() + (address - baseAddress));
}

std::vector<unsigned char> RecordingMemory::bytesAt(uint64_t address, size_t size) const {
    if (address < baseAddress || address - baseAddress + size > bytes.size()) {
        throwStatus(ERR_ADDRESS_RANGE, "bytesAt outside the array", address, size);
    }
    const auto first = bytes.begin() + (address - baseAddress);
    return std::vector<unsigned char>(first, first + size);
}

size_t RecordingMemory::countCalls(int kinds) const {
    return static_cast<size_t>(std::count_if(callLog.begin(), callLog.end(),
                                             [kinds](const Call& c) { return (c.kind & kinds) != 0; }));
}

uint64_t RecordingMemory::countBytes(int kinds) const {
    uint64_t total = 0;
    for (const Call& c : callLog) {
        if (c.kind & kinds) {
            total += c.size;
        }
    }
    return total;
}

void RecordingMemory::failAt(uint64_t address, int kinds, FailMode mode) {
    addressFailures[address] = AddressFailure{kinds, mode};
}

void RecordingMemory::failRange(uint64_t address, uint64_t size, int kinds, FailMode mode) {
    for (uint64_t i = 0; i < size; ++i) {
        failAt(address + i, kinds, mode);
    }
}

void RecordingMemory::failOnCall(uint64_t n, FailMode mode) {
    failCallNumber = n == 0 ? 0 : callCount + n;
    failCallMode = mode;
}

void RecordingMemory::failWhen(FailurePredicate p, FailMode mode) {
    predicate = p;
    predicateMode = mode;
}

void RecordingMemory::clearFailures() {
    addressFailures.clear();
    failCallNumber = 0;
    predicate.clear();
}

void RecordingMemory::throwFailure(const Call& call) const {
    throwStatus(ERR_OPERATION_FAILED, (std::string("injected failure of ") + kindName(call.kind)).c_str(),
                call.address, call.size);
}

void RecordingMemory::checkInside(const Call& call) const {
    if (call.address < baseAddress || call.address - baseAddress > bytes.size() ||
        call.size > bytes.size() - (call.address - baseAddress)) {
        throwStatus(ERR_ADDRESS_RANGE, (std::string(kindName(call.kind)) + " outside the array").c_str(),
                    call.address, call.size);
    }
}

bool RecordingMemory::begin(const Call& call, FailMode& mode) {
    ++callCount;
    if (recording) {
        callLog.push_back(call);
    }
    checkInside(call);
    if (failCallNumber != 0 && callCount == failCallNumber) {
        failCallNumber = 0;
        mode = failCallMode;
        return true;
    }
    if (predicate && predicate(call)) {
        mode = predicateMode;
        return true;
    }
    return false;
}

bool RecordingMemory::failingAddress(int kind, uint64_t address, uint64_t size, uint64_t& at,
                                     FailMode& mode) const {
    for (auto it = addressFailures.lower_bound(address);
         it != addressFailures.end() && it->first - address < size; ++it) {
        if (it->second.kinds & kind) {
            at = it->first;
            mode = it->second.mode;
            return true;
        }
    }
    return false;
}

void RecordingMemory::read(uint64_t address, unsigned int size,
                           std::vector<unsigned char>::iterator data,
                           boost::shared_ptr<MemoryError> error, IIntermediateResult* progress) {
    const Call call{KIND_READ, address, size, false, bool(error), progress != nullptr};
    FailMode mode = FAIL_THROW;
    if (begin(call, mode)) {
        if (mode == FAIL_THROW) {
            throwFailure(call);
        }
        if (error && size) {
            error->setStatus(address, size, MEM_READ_FAILED);
        }
        return;
    }
    const size_t offset = address - baseAddress;
    uint64_t at = 0;
    if (!failingAddress(KIND_READ, address, size, at, mode)) {
        std::copy_n(bytes.begin() + offset, size, data);
        return;
    }
    if (mode == FAIL_THROW) {
        throwFailure(call);
    }
    for (unsigned int i = 0; i < size; ++i) {
        auto f = addressFailures.find(address + i);
        if (f != addressFailures.end() && (f->second.kinds & KIND_READ)) {
            if (error) {
                error->setStatus(address + i, 1, MEM_READ_FAILED);
            }
        } else {
            data[i] = bytes[offset + i];
        }
    }
}

void RecordingMemory::write(uint64_t address, unsigned int size,
                            std::vector<unsigned char>::const_iterator data,
                            boost::shared_ptr<MemoryError> error, IIntermediateResult* progress,
                            bool erased) {
    const Call call{KIND_WRITE, address, size, erased, bool(error), progress != nullptr};
    FailMode mode = FAIL_THROW;
    if (begin(call, mode)) {
        if (mode == FAIL_THROW) {
            throwFailure(call);
        }
        if (error && size) {
            error->setStatus(address, size, MEM_WRITE_FAILED);
        }
        return;
    }
    uint64_t at = 0;
    const bool someFail = failingAddress(KIND_WRITE, address, size, at, mode);
    if (someFail && mode == FAIL_THROW) {
        throwFailure(call);
    }
    const size_t offset = address - baseAddress;
    if (!someFail && !flashMode) {
        std::copy_n(data, size, bytes.begin() + offset);
        return;
    }
    for (unsigned int i = 0; i < size; ++i) {
        if (someFail) {
            auto f = addressFailures.find(address + i);
            if (f != addressFailures.end() && (f->second.kinds & KIND_WRITE)) {
                if (error) {
                    error->setStatus(address + i, 1, MEM_WRITE_FAILED);
                }
                continue;
            }
        }
        bytes[offset + i] = flashMode ? (bytes[offset + i] & data[i]) : data[i];
    }
}

void RecordingMemory::erase(uint64_t address, uint64_t size) {
    const Call call{KIND_ERASE, address, size, false, false, false};
    FailMode mode = FAIL_THROW;
    if (begin(call, mode)) {
        if (mode == FAIL_THROW) {
            throwFailure(call);
        }
        return;
    }
    uint64_t at = 0;
    const bool someFail = failingAddress(KIND_ERASE, address, size, at, mode);
    if (someFail && mode == FAIL_THROW) {
        throwFailure(call);
    }
    if (!flashMode) {
        return;
    }
    const size_t offset = address - baseAddress;
    for (uint64_t i = 0; i < size; ++i) {
        if (someFail) {
            auto f = addressFailures.find(address + i);
            if (f != addressFailures.end() && (f->second.kinds & KIND_ERASE)) {
                continue;
            }
        }
        bytes[offset + i] = 0xFF;
    }
}
