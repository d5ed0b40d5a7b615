// The USB receiver thread (the Ethernet and Wi-Fi ones live with their links).
// Each runs from construction to destruction and, while its link is closed,
// polls every millisecond, so that destruction joins it within about a
// millisecond.
#include "engine/VyxPosFunc.h"

#include <chrono>

namespace {
constexpr auto kIdlePoll = std::chrono::milliseconds(1);
}

void VyxPosFunc::USBProcess() {
    while (isRunning()) {
        std::this_thread::sleep_for(kIdlePoll);
    }
}
