#include "device/UsbBulkLink.h"

#include "device/UsbIdentity.h"

#include <libusb-1.0/libusb.h>

#include <climits>

namespace vyx::device {

UsbBulkLink::~UsbBulkLink() { close(); }

UsbBulkLink::OpenResult UsbBulkLink::open(std::uint16_t vendorId, std::uint16_t productId,
                                          int interfaceNumber, unsigned int timeoutMs) {
    close();
    stopped_.store(false, std::memory_order_relaxed);
    interface_ = interfaceNumber;
    timeoutMs_ = timeoutMs;
    if (libusb_init(&context_) != LIBUSB_SUCCESS) {
        context_ = nullptr;
        return OpenResult::NoLibusb;
    }
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(context_, vendorId, productId);
    if (handle == nullptr) {
        close();
        return OpenResult::DeviceNotFound;
    }
    if (libusb_kernel_driver_active(handle, interface_) == 1)
        libusb_detach_kernel_driver(handle, interface_);
    if (libusb_claim_interface(handle, interface_) != LIBUSB_SUCCESS) {
        libusb_close(handle);
        close();
        return OpenResult::InterfaceBusy;
    }
    handle_.store(handle, std::memory_order_release);
    return OpenResult::Opened;
}

long UsbBulkLink::transfer(std::uint8_t endpoint, std::uint8_t* data, std::size_t size) {
    libusb_device_handle* handle = handle_.load(std::memory_order_acquire);
    if (handle == nullptr || stopped_.load(std::memory_order_relaxed) || size > INT_MAX)
        return -1;
    int transferred = 0;
    const int rc = libusb_bulk_transfer(handle, endpoint, data, static_cast<int>(size),
                                        &transferred, timeoutMs_);
    if (rc != LIBUSB_SUCCESS) {
        libusb_clear_halt(handle, endpoint);
        return -1;
    }
    return transferred;
}

long UsbBulkLink::send(const std::uint8_t* data, std::size_t size) {
    // libusb takes a mutable buffer for both directions; an OUT transfer
    // only reads it.
    return transfer(kTrackerUsbOutEndpoint, const_cast<std::uint8_t*>(data), size);
}

long UsbBulkLink::receive(std::uint8_t* data, std::size_t size) {
    return transfer(kTrackerUsbInEndpoint, data, size);
}

void UsbBulkLink::clearInHalt() {
    if (libusb_device_handle* handle = handle_.load(std::memory_order_acquire))
        libusb_clear_halt(handle, kTrackerUsbInEndpoint);
}

void UsbBulkLink::shutdown() { stopped_.store(true, std::memory_order_relaxed); }

void UsbBulkLink::close() {
    if (libusb_device_handle* handle = handle_.exchange(nullptr, std::memory_order_acq_rel)) {
        libusb_release_interface(handle, interface_);
        libusb_close(handle);
    }
    if (context_ != nullptr) {
        libusb_exit(context_);
        context_ = nullptr;
    }
}

}  // namespace vyx::device
