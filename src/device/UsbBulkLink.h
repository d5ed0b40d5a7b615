// The tracker's USB link as libusb-1.0 bulk transfers: the device found by
// its vendor and product id, interface 0 taken from any kernel driver,
// commands out on endpoint 0x01 and replies in on 0x81, every transfer
// bounded by the link's time-out, a stalled endpoint cleared after any
// failed transfer so that the next one can proceed.
#pragma once

#include "device/ByteLink.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

struct libusb_context;
struct libusb_device_handle;

namespace vyx::device {

class UsbBulkLink final : public ByteLink {
public:
    enum class OpenResult {
        Opened,
        NoLibusb,        // libusb could not be initialised
        DeviceNotFound,  // no device with the ids, or no permission to open it
        InterfaceBusy,   // the interface could not be reserved
    };

    UsbBulkLink() = default;
    ~UsbBulkLink() override;
    UsbBulkLink(const UsbBulkLink&) = delete;
    UsbBulkLink& operator=(const UsbBulkLink&) = delete;

    // Releases what is open, then initialises libusb, opens the first device
    // with the ids, detaches a kernel driver active on the interface and
    // reserves the interface. Anything but Opened leaves the link closed.
    OpenResult open(std::uint16_t vendorId, std::uint16_t productId, int interfaceNumber,
                    unsigned int timeoutMs);

    // A device handle is held (from a successful open() to close()).
    bool hasDevice() const { return handle_.load(std::memory_order_acquire) != nullptr; }

    // One bulk transfer out: the bytes written, or -1 (the endpoint's stall
    // cleared). A device that vanished fails at once.
    long send(const std::uint8_t* data, std::size_t size) override;

    // One bulk transfer in of at most `size` bytes: the bytes received (a
    // device ends a shorter reply with a short packet), or -1 on time-out or
    // error (the endpoint's stall cleared). Never 0 for a live link unless
    // the device sent a zero-length packet.
    long receive(std::uint8_t* data, std::size_t size) override;

    // Clears a stall of the IN endpoint.
    void clearInHalt();

    // Makes every later transfer fail at once until the next open(); a
    // transfer in progress ends within the time-out.
    void shutdown() override;

    // Gives the interface back, closes the device and ends libusb. Not safe
    // while another thread transfers.
    void close() override;

private:
    long transfer(std::uint8_t endpoint, std::uint8_t* data, std::size_t size);

    libusb_context* context_ = nullptr;
    std::atomic<libusb_device_handle*> handle_{nullptr};
    std::atomic<bool> stopped_{false};
    int interface_ = 0;
    unsigned int timeoutMs_ = 0;
};

}  // namespace vyx::device
