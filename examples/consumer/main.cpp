// Uses a few core classes of the installed library and the installed
// simulated chips, and checks the results, so a broken install shows as a
// failing exit code.

#include "libcommon/core/commanddispatcher.h"
#include "libcommon/core/packet.h"
#include "libcommon/core/status.h"
#include "libcommon/sim/recordingmemory.h"
#include "libcommon/sim/tarn8chip.h"

#include <boost/make_shared.hpp>

#include <cstdio>

int main() {
    Packet frame{0x01, 0x02, 0x03};
    TarnToolsCrc16::addCrc(frame);
    Status status(ERR_ACCESS_REFUSED, "x");
    CommandDispatcher dispatcher("consumer");
    std::vector<std::string> results;
    dispatcher.dispatch("missing", {}, results, true);

    // A write through the accessor interface lands in the simulated memory.
    auto memory = boost::make_shared<RecordingMemory>(0x1000, 0x100);
    std::vector<unsigned char> data{0xA5, 0x5A};
    memory->write(0x1010, 2, data.cbegin(), boost::make_shared<MemoryError>(), nullptr, false);

    // The simulated chip is built from a device file by the installed loader.
    auto chip = Tarn8Chip::fromDeviceFile(CONSUMER_DEVICE_FILE);
    chip->poke("prog", 0x100, {0x0C, 0x94});

    bool ok = TarnToolsCrc16::checkCrc(frame) &&
              status.toJson() ==
                  "{\"Code\":131121,\"Time\":0,\"Format\":\"x\",\"Severity\":4,\"AltOrg\":\"Velmora\"}" &&
              results.size() == 1 && memory->bytesAt(0x1010, 2) == data &&
              memory->countCalls(RecordingMemory::KIND_WRITE) == 1 &&
              chip->peek("prog", 0x100, 2) == std::vector<unsigned char>{0x0C, 0x94};
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
