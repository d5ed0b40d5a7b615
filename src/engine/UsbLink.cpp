// The USB link: bulk transfers to the tracker found by its vendor and
// product id (device/UsbIdentity.h), its connect sequence with the reset
// byte between attempts, and the receiver thread that keeps the newest
// marker frame and images.
#include "engine/VyxPosFunc.h"

#include "device/UsbIdentity.h"

#include <cstdio>

using namespace vyx::device;

namespace {

constexpr std::size_t kDrainChunkBytes = 2048;
// Sent to a device whose configuration could not be read, before the next
// connect attempt; three attempts in all.
constexpr std::uint8_t kResetRequest = 0xEE;
constexpr int kConnectAttempts = 3;
constexpr auto kResetPause = std::chrono::milliseconds(500);

}  // namespace

int VyxPosFunc::Zelmor_USB_Initialize() {
    endRecordingForNewConnect(Interface_USB);
    int rc = usb_connect();
    for (int attempt = 1; rc == RV_READ_ERROR && attempt < kConnectAttempts; ++attempt) {
        const int written = USBWrite(&kResetRequest, 1);
        if (written != RV_SUCCESS) return written;
        if (!sleepWhileRunning(kResetPause)) break;
        rc = usb_connect();
    }
    return rc;
}

int VyxPosFunc::usb_connect() {
    usb_.open.store(false, std::memory_order_release);
    usb_.configValid.store(false, std::memory_order_relaxed);
    // Give the receiver thread time to notice and leave its cycle.
    sleepWhileRunning(std::chrono::milliseconds(100));
    {
        // The receiver holds the data lock for a whole cycle, so once we
        // hold it the device is idle.
        std::lock_guard<std::mutex> data(usb_.dataLock);
        usb_.acquireMask.store(0, std::memory_order_relaxed);
        usbLink_.close();
    }
    switch (usbLink_.open(kTrackerUsbVendorId, kTrackerUsbProductId, kTrackerUsbInterface,
                          kTrackerUsbTimeoutMs)) {
        case UsbBulkLink::OpenResult::Opened:
            break;
        case UsbBulkLink::OpenResult::DeviceNotFound:
            std::printf("无法找到指定PID和VID的设备,请以ROOT权限运行");
            std::fflush(stdout);
            return RV_USB_NOT_FOUND;
        case UsbBulkLink::OpenResult::NoLibusb:
        case UsbBulkLink::OpenResult::InterfaceBusy:
            return RV_USB_NOT_FOUND;
    }
    USBCleanData();
    const int rc = USBReadConfigureData();
    if (rc == RV_SUCCESS) usb_.open.store(true, std::memory_order_release);
    return rc;
}

int VyxPosFunc::USBWrite(const std::uint8_t* buffer, int length) {
    if (!usbLink_.hasDevice()) return RV_NOT_CONNECTED;
    std::lock_guard<std::mutex> lock(usb_.writeLock);
    return usbLink_.send(buffer, static_cast<std::size_t>(std::max(length, 0))) < 0
               ? RV_WRITE_ERROR
               : RV_SUCCESS;
}

int VyxPosFunc::USBRead(std::uint8_t* buffer, int& length) {
    if (!usbLink_.hasDevice()) return RV_NOT_CONNECTED;
    if (length <= 0) return RV_SUCCESS;
    std::lock_guard<std::mutex> lock(usb_.readLock);
    const long received = usbLink_.receive(buffer, static_cast<std::size_t>(length));
    if (received < 0) {
        length = 0;
        return RV_READ_ERROR;
    }
    length = static_cast<int>(received);
    return RV_SUCCESS;
}

void VyxPosFunc::USBCleanData() {
    std::vector<std::uint8_t> scratch(kDrainChunkBytes);
    for (;;) {
        int length = static_cast<int>(scratch.size());
        if (USBRead(scratch.data(), length) != RV_SUCCESS || !isRunning()) break;
    }
    staleWiredInput_[Interface_USB].store(false);
}

int VyxPosFunc::USBReadConfigureData() { return fetchWiredConfiguration(Interface_USB); }

int VyxPosFunc::USBReadInfo() { return readWiredMarkerFrame(Interface_USB); }

int VyxPosFunc::USBReadImageDual(std::uint32_t index, int side) {
    return readGreyBlock(Interface_USB, index / 2u, side);
}

int VyxPosFunc::USBReadImageColor(std::uint32_t block) {
    return readColorPiece(Interface_USB, block, geometry_.blockBytes[kUsbColorBlock]);
}

void VyxPosFunc::initUSBTempResource() { allocateImageBuffers(usb_, geometry_.colorImageBytes); }

void VyxPosFunc::DestroyUSBTempResource() { releaseImageBuffers(usb_); }

void VyxPosFunc::USBProcess() {
    constexpr std::uint32_t kMarkerBits = 0x3;
    constexpr std::uint32_t kGreyBit = 0x4;
    constexpr std::uint32_t kColorBit = 0x8;
    while (isRunning()) {
        if (!usb_.open.load(std::memory_order_acquire)) {
            sleepWhileRunning(std::chrono::milliseconds(100));
            continue;
        }
        // A pause outside the lock lets a waiting API call take it.
        sleepWhileRunning(std::chrono::microseconds(10));
        std::unique_lock<std::mutex> data(usb_.dataLock);
        std::uint32_t mask = usb_.acquireMask.load(std::memory_order_relaxed);
        if ((mask & (kGreyBit | kColorBit)) == 0 && mask != kMarkerBits) {
            // Nothing this mask asks for can be read: idle.
            data.unlock();
            sleepWhileRunning(std::chrono::milliseconds(1));
            continue;
        }
        int rc = RV_SUCCESS;
        if (mask == kMarkerBits) {
            rc = USBReadInfo();
            usb_.lastError.store(rc, std::memory_order_relaxed);
        } else {
            const bool withMarkers = (mask & kMarkerBits) == kMarkerBits;
            if (mask & kGreyBit) {
                // Left and right block of each block number, then a marker
                // frame so that marker data keep flowing during the image.
                for (std::uint32_t index = 0; index < usb_.greyBlockCount && rc == RV_SUCCESS;
                     index += 2) {
                    rc = USBReadImageDual(index, 0);
                    if (rc == RV_SUCCESS) rc = USBReadImageDual(index, 1);
                    if (rc == RV_SUCCESS && withMarkers) rc = USBReadInfo();
                }
                if (rc != RV_SUCCESS) mask = 0;
            }
            if ((mask & kColorBit) && usb_.colorBlockCount >= 1) {
                for (std::uint32_t block = 0; block < usb_.colorBlockCount && rc == RV_SUCCESS;
                     ++block) {
                    rc = USBReadImageColor(block);
                    if (rc == RV_SUCCESS && withMarkers) rc = USBReadInfo();
                }
            }
            if (rc != RV_SUCCESS) usb_.lastError.store(rc, std::memory_order_relaxed);
        }
        if (rc != RV_SUCCESS) {
            usb_.acquireMask.store(0, std::memory_order_relaxed);
            recorder_.requestFinish(Interface_USB);
        }
    }
}
