// The device-file loader on any text: it either hands out a device or throws
// a CoreException of ERR_DEVICE_FILE whose text names the file and a line
// ("fuzz.xml:<line>: ..."). Any other exception, a crash or a hang is a
// finding. A device it accepts is accepted again from the same text.
//
// The sample device files seed it, besides its own corpus:
// fuzz-seeds: devices

#include "fuzzcheck.h"

#include "libcommon/core/status.h"
#include "libcommon/device/devicefile.h"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

bool namesFileAndLine(const std::string& message) {
    const std::string prefix = "fuzz.xml:";
    if (message.compare(0, prefix.size(), prefix) != 0)
        return false;
    size_t i = prefix.size();
    size_t digits = 0;
    while (i < message.size() && std::isdigit(static_cast<unsigned char>(message[i]))) {
        ++i;
        ++digits;
    }
    // Poco reports some XML errors without a line; those name the file alone.
    return (digits > 0 && message.compare(i, 2, ": ") == 0) ||
           message.compare(prefix.size() - 1, 2, ": ") == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    try {
        auto device = DeviceFile::parse(text, "fuzz.xml");
        FUZZ_CHECK(device != nullptr, "no device and no error");
        auto again = DeviceFile::parse(text, "fuzz.xml");
        FUZZ_CHECK(again->getName() == device->getName(), "the same text loads differently");
    } catch (const CoreException& e) {
        FUZZ_CHECK(e.getStatus()->getErrorCode() == ERR_DEVICE_FILE,
                   "error code " + std::to_string(e.getStatus()->getErrorCode()));
        FUZZ_CHECK(namesFileAndLine(e.getStatus()->getMessage()),
                   "error text without file and line: " + e.getStatus()->getMessage());
    }
    return 0;
}
