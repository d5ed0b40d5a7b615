// Settings sent to the tracker. Each setter checks its arguments, builds the
// command and sends it on the addressed transport without waiting for an
// answer.
#include "engine/VyxPosFunc.h"

using namespace vyx::device;

int VyxPosFunc::sendCommand(E_Interface iface, const CommandPacket& packet) {
    const std::size_t length = wireLength(packet, iface);
    switch (iface) {
        case Interface_Ethernet:
            return ETHWrite(packet.bytes.data(), static_cast<int>(length));
        case Interface_WiFi:
            return WIFIWrite(packet.bytes.data(), static_cast<int>(length));
        case Interface_USB:
            return USBWrite(packet.bytes.data(), static_cast<int>(length));
        default:
            return RV_FAILED;
    }
}

int VyxPosFunc::Zelmor_SetDualExpTime(E_Interface iface, int exposure) {
    const std::uint16_t value = dualExposureForModel(deviceModelIndex_, exposure);
    return sendCommand(iface, dualExposureCommand(value, value));
}

int VyxPosFunc::Zelmor_SetDualExpTimeByDistance(E_Interface iface, int distanceMm) {
    return Zelmor_SetDualExpTime(iface, exposureFromDistance(deviceModelIndex_, distanceMm));
}

int VyxPosFunc::Zelmor_SetColorExpTime(E_Interface iface, int exposure) {
    return sendCommand(iface, colorExposureCommand(exposure));
}

int VyxPosFunc::Zelmor_SetFlashDelay(E_Interface iface, int firstDelay, int secondDelay) {
    const auto packet = flashDelayCommand(firstDelay, secondDelay);
    if (!packet || iface == Interface_WiFi) return RV_FAILED;
    return sendCommand(iface, *packet);
}

int VyxPosFunc::Zelmor_SetCollisionDetectLevel(E_Interface iface, unsigned char level) {
    return sendCommand(iface, collisionLevelCommand(level));
}

int VyxPosFunc::Zelmor_SetLCDShowRawPoint(E_Interface iface, bool show) {
    if (iface == Interface_WiFi) return RV_FAILED;
    return sendCommand(iface, lcdRawPointCommand(show));
}

int VyxPosFunc::Zelmor_SetMarkerParameters(E_Interface iface, int a, int b, int c, int d, int e) {
    const auto packet = markerParametersCommand(a, b, c, d, e);
    if (!packet || iface == Interface_WiFi) return RV_FAILED;
    return sendCommand(iface, *packet);
}

int VyxPosFunc::Zelmor_SetSystemCommand(E_Interface iface, E_SystemCommand commandValue) {
    const auto code = systemCommandByte(static_cast<int>(commandValue));
    if (!code) return RV_FAILED;
    return sendCommand(iface, systemCommand(*code));
}

int VyxPosFunc::Zelmor_SetVyxPositionIP(E_Interface iface, unsigned char a, unsigned char b,
                                        unsigned char c, unsigned char d) {
    return sendCommand(iface, deviceIPCommand(a, b, c, d));
}
