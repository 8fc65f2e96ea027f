// Uses a few core classes of the installed library and checks the results,
// so a broken install shows as a failing exit code.

#include "libcommon/core/commanddispatcher.h"
#include "libcommon/core/packet.h"
#include "libcommon/core/status.h"

#include <cstdio>

int main() {
    Packet frame{0x01, 0x02, 0x03};
    TarnToolsCrc16::addCrc(frame);
    Status status(ERR_ACCESS_REFUSED, "x");
    CommandDispatcher dispatcher("consumer");
    std::vector<std::string> results;
    dispatcher.dispatch("missing", {}, results, true);

    bool ok = TarnToolsCrc16::checkCrc(frame) &&
              status.toJson() ==
                  "{\"Code\":131121,\"Time\":0,\"Format\":\"x\",\"Severity\":4,\"AltOrg\":\"Velmora\"}" &&
              results.size() == 1;
    std::printf("consumer: %s\n", ok ? "ok" : "FAILED");
    return ok ? 0 : 1;
}
