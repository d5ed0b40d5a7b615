// Addresses of the end-to-end tests: each test serves its virtual tracker on
// its own loopback address 127.0.0.<host> and on an unprivileged port, so
// that no test needs root.
#pragma once

#include "VyxPositionAPI.h"

#include <cstdint>

namespace vyx::test {

inline std::uint16_t trackerPort(unsigned char host) {
    return static_cast<std::uint16_t>(17000 + host);
}

// Points the handle's Ethernet or Wi-Fi address at the tracker of
// 127.0.0.<host> and connects over `link`; the connect's result.
inline int connectToHost(VyxHandle handle, E_Interface link, unsigned char host,
                         T_VYXPOS_DATAPARA* para = nullptr) {
    T_VYXPOS_DATAPARA unused{};
    if (link == Interface_WiFi) {
        Vyx_SetWifiConnectAddress(handle, 127, 0, 0, host, trackerPort(host));
    } else {
        Vyx_SetEthernetConnectIP(handle, 127, 0, 0, host);
        Vyx_SetEthernetConnectPort(handle, trackerPort(host));
    }
    return Vyx_ConnectDevice(handle, link, para != nullptr ? para : &unused);
}

}  // namespace vyx::test
