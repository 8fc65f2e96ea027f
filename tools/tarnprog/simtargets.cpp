#include "simtargets.h"

#include "errors.h"

#include "libcommon/device/didevicehelper.h"
#include "libcommon/stringconstants.h"

#include <cstdio>

namespace tarnprog {

void checkRange(const std::string& space, uint64_t first, uint64_t last, uint64_t address,
                uint32_t size) {
    if (size == 0 || address < first || address > last || size - 1 > last - address) {
        char text[160];
        std::snprintf(text, sizeof text, "0x%llx bytes at 0x%llx lie outside %s (0x%llx-0x%llx)",
                      static_cast<unsigned long long>(size),
                      static_cast<unsigned long long>(address), space.c_str(),
                      static_cast<unsigned long long>(first),
                      static_cast<unsigned long long>(last));
        throw UsageError(text);
    }
}

std::vector<unsigned char> readContext(MemoryContext& context, uint64_t address, uint32_t size) {
    checkRange(context.getMemoryName(), context.getMemoryStartBound(), context.getMemoryEndBound(),
               address, size);
    std::vector<unsigned char> data(size);
    boost::shared_ptr<IMemoryError> error;
    context.getMemory(address, 0, data, 0, size, AccessPlain, nullptr, error);
    if (error && !error->isOk()) {
        throw TargetError("reading " + context.getMemoryName() + " failed at " +
                          error->getMessage(MemoryError::SUMMARY_ADDRESS));
    }
    return data;
}

void checkState(const std::string& path, const ChipState& state, const std::string& device,
                const std::vector<std::pair<std::string, size_t>>& blocks) {
    if (state.device != device) {
        throw TargetError("state file " + path + " holds a " + state.device + ", not a " + device +
                          " (give another --state)");
    }
    for (const auto& block : blocks) {
        const std::vector<unsigned char>* bytes = state.find(block.first);
        if (bytes == nullptr || bytes->size() != block.second) {
            throw TargetError("unreadable state file " + path + ": its " + block.first +
                              " does not match the device file of " + device +
                              " (delete it to start from a blank chip)");
        }
    }
}

boost::shared_ptr<ITarget> createSimulatedTarget(boost::shared_ptr<DIDevice> device) {
    const std::string arch = device->getArchitecture();
    if (arch.compare(0, 5, "TARN8") == 0) {
        return createTarn8Target(device);
    }
    if (arch == ARCH_TARN32_PELT) {
        return createPeltTarget(device);
    }
    if (device->getModule("NVMCTRL")) {
        return createNvmTarget(device);
    }
    throw TargetError("no simulated chip for " + device->getName() + " (architecture " + arch +
                      ") yet");
}

}  // namespace tarnprog
