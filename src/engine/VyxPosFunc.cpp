// Construction and destruction of the engine, and the settings that live in
// the engine itself rather than in one of the subsystems.
#include "engine/VyxPosFunc.h"

VyxPosFunc::VyxPosFunc() {
    connected.store(false, std::memory_order_relaxed);
    running_.store(true, std::memory_order_relaxed);

    // The receiver threads only poll their link's open flag until a link is
    // initialised, so they may start before the geometry defaults are set.
    usbThread_ = std::thread(&VyxPosFunc::USBProcess, this);
    ethThread_ = std::thread(&VyxPosFunc::ETHProcess, this);
    wifiThread_ = std::thread(&VyxPosFunc::WIFIProcess, this);

    setDefaultPosPara();
    setwarningpara();
}

VyxPosFunc::~VyxPosFunc() {
    {
        std::lock_guard<std::mutex> lock(stopMutex_);
        running_.store(false, std::memory_order_relaxed);
    }
    stopSignal_.notify_all();
    // Wake a receiver blocked in a read on a tracker that stopped answering;
    // it then sees the cleared flag and leaves its loop.
    usbLink_.shutdown();
    ethSocket_.shutdown();
    wifiSocket_.shutdown();
    if (usbThread_.joinable()) usbThread_.join();
    if (ethThread_.joinable()) ethThread_.join();
    if (wifiThread_.joinable()) wifiThread_.join();
    // No frame is offered any more: a running recording gets its End record.
    recorder_.finish();
    usbLink_.close();
    ethSocket_.close();
    wifiSocket_.close();
    DestroyUSBTempResource();
    DestroyETHTempResource();
}

void VyxPosFunc::setDefaultPosPara() { geometry_ = vyx::device::defaultGeometry(); }

void VyxPosFunc::setwarningpara() { warningBands_ = vyx::device::warningBandsFor(geometry_); }

int VyxPosFunc::Zelmor_SetEthernetConnectIP(unsigned char a, unsigned char b, unsigned char c,
                                            unsigned char d) {
    ethernetConnectIP_ = {a, b, c, d};
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetEthernetConnectIP(unsigned char& a, unsigned char& b, unsigned char& c,
                                            unsigned char& d) {
    a = ethernetConnectIP_[0];
    b = ethernetConnectIP_[1];
    c = ethernetConnectIP_[2];
    d = ethernetConnectIP_[3];
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_SetEthernetConnectPort(std::uint16_t port) {
    if (port == 0) return RV_FAILED;
    ethernetConnectPort_ = port;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetEthernetConnectPort(std::uint16_t& port) {
    port = ethernetConnectPort_;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_SetWifiConnectAddress(unsigned char a, unsigned char b, unsigned char c,
                                             unsigned char d, std::uint16_t port) {
    if (port == 0) return RV_FAILED;
    wifiConnectIP_ = {a, b, c, d};
    wifiConnectPort_ = port;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetWifiConnectAddress(unsigned char& a, unsigned char& b, unsigned char& c,
                                             unsigned char& d, std::uint16_t& port) {
    a = wifiConnectIP_[0];
    b = wifiConnectIP_[1];
    c = wifiConnectIP_[2];
    d = wifiConnectIP_[3];
    port = wifiConnectPort_;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetVyxPositionIP(unsigned char& a, unsigned char& b, unsigned char& c,
                                        unsigned char& d) {
    a = deviceIP_[0];
    b = deviceIP_[1];
    c = deviceIP_[2];
    d = deviceIP_[3];
    return RV_SUCCESS;
}
