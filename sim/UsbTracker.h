// The virtual tracker on USB: the device side of the tracker's USB link,
// served inside the test process under umockdev, so that a host's USB code
// runs against the real libusb-1.0 and an emulated kernel USB device.
//
// What it emulates: one high-speed USB device with the tracker's vendor and
// product id (device/UsbIdentity.h) in a umockdev testbed, bus 1, device 2
// (/dev/bus/usb/001/002), with one configuration and one vendor class (0xFF)
// interface 0 holding the bulk OUT endpoint 0x01 and the bulk IN endpoint
// 0x81 (512-byte packets). libusb finds it through the testbed's sysfs and
// udev, opens its device node and drives it with usbfs ioctls, which this
// class answers from a DeviceCore:
//
//   GET_CAPABILITIES    zero packets, no packet size limit, scatter-gather:
//                       libusb hands over every bulk transfer as one URB
//   GETDRIVER           ENODATA: no kernel driver, unless one is set bound
//   IOCTL DISCONNECT    detaches the bound kernel driver (ENODATA without)
//   IOCTL CONNECT       binds the kernel driver again when one is set bound
//   DISCONNECT_CLAIM    detaches the kernel driver and claims the interface
//   CLAIMINTERFACE      takes interface 0 for this file descriptor (EBUSY
//   RELEASEINTERFACE    while a kernel driver or another descriptor has it)
//   CLEAR_HALT          accepted on both endpoints; queued reply bytes stay;
//                       on 0x81 it ends a stall (FaultSettings::stallUsbIn)
//   SUBMITURB           bulk URBs on 0x01 and 0x81 (see below)
//   DISCARDURB          a pending URB is reaped with -ENOENT next
//   REAPURBNDELAY       the next completed URB of the descriptor, else EAGAIN
//   anything else       ENOTTY
//
// Wire behaviour. Each OUT URB completes at once; its bytes are cut into
// commands by commandLength(code, LinkFraming::Usb) (a URB normally carries
// exactly one command; a piece shorter than its command's length is taken as
// it came) and each command is recorded as it arrived. A device thread
// answers them in order with answerCommand() of LinkReplies.h and appends
// each whole reply to the IN byte queue. An IN URB completes with
// min(queued, requested) bytes as soon as the queue holds any, like a device
// that sends its reply and ends it with a short packet; until then it stays
// pending, so the host's transfer times out, and libusb's discard of it is
// answered by reaping it with -ENOENT and no data.
//
//   0x0F marker and status request  one 4096-byte frame (as on Ethernet)
//   0x0A configuration read         the two 512-byte configuration blocks
//   0x1A long configuration read    7680 bytes, when the description has a long form
//   0xF8 model text read            20 bytes of model text, when enabled
//   0xA4 / 0x04, 0xA8 / 0x08        next left / right grey block: transfer unit x
//                                   USB grey count bytes
//   0xA1 / 0x01                     next colour block: transfer unit x USB colour
//                                   count bytes (a whole block, not a half-block)
//   0x0D trigger, 0x0C mode         no reply (unlike Ethernet)
//   0xF5, 0xEE, settings, system    no reply
//   commands, anything else
//
// Image blocks follow the rules of VirtualTracker.h (first / next, the short
// last block, the pattern of ImagePattern.h); image transfers start over when
// a descriptor claims the interface. FaultSettings (DeviceCore.h) apply as on
// Ethernet; stallUsbIn makes IN URBs complete with -EPIPE (libusb:
// LIBUSB_ERROR_PIPE) until the host clears the halt. A link close by the
// device (closeAfterMarkerFrames) makes the device drop off the bus as
// unplug() does, once the host has read what was queued before it.
//
// unplug() makes the device vanish: pending URBs are reaped with -ENODEV
// (libusb: LIBUSB_ERROR_NO_DEVICE) and every later ioctl fails with ENODEV,
// so the host's transfers fail at once. replug() brings it back: descriptors
// opened before the unplug stay dead, as on a real bus; a host opens the
// device again.
//
// Limits. umockdev carries ioctls, not a bus: the device stays in the
// testbed's sysfs while unplugged (enumeration still lists it, opening it
// succeeds, its ioctls fail), no hot-plug events are sent, isochronous,
// interrupt and control transfers are not served (control requests answer
// ENOTTY), and the emulated device node always polls ready, so libusb's event
// loop spins while a transfer is pending: keep USB time-outs in tests short
// and USB tests few. Each transfer costs a few ioctl round trips through
// umockdev's socket: a few hundred request / reply exchanges per second. A
// host that splits a bulk transfer into several URBs gets each URB answered
// on its own, without short-packet cancellation. Under AddressSanitizer the
// preload comes ahead of the ASan runtime, which ASan accepts only with
// ASAN_OPTIONS=verify_asan_link_order=0.
//
// Lifetime. umockdev redirects /sys and /dev for the whole process, and only
// when its preload library is loaded (run the program under
// umockdev-wrapper); the constructor refuses to run otherwise, before it
// creates anything, so a test never reaches a real USB device. At most one
// VirtualUsbTracker may exist at a time. It must be constructed before the
// host calls libusb_init() and destroyed only after the host's libusb_exit():
// its lifetime encloses all of the host's USB use.
//
// All public members are thread-safe. The device thread calls the frame
// source; the event sink is called on the thread where the event happens
// (the device thread, umockdev's worker thread or the caller of unplug() and
// replug()).
#pragma once

#include "sim/DeviceCore.h"
#include "sim/DeviceDescription.h"
#include "sim/MarkerFrame.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vyx::sim {

class VirtualUsbTracker {
public:
    // Makes the frame for marker request `requestIndex` (0 for the first).
    using FrameSource = DeviceCore::FrameSource;
    // Receives one line of text per device event (plug state, faults).
    using EventSink = std::function<void(const std::string& event)>;

    // True when umockdev's preload library is loaded into this process.
    static bool umockdevPreloadLoaded();
    // Throws std::runtime_error unless it is.
    static void requireUmockdevPreload();

    // Creates the testbed and the device, plugged in. Throws
    // std::runtime_error without the umockdev preload or when the testbed
    // cannot be set up, and std::logic_error while another one exists.
    explicit VirtualUsbTracker(DeviceDescription description = defaultDescription());
    ~VirtualUsbTracker();
    VirtualUsbTracker(const VirtualUsbTracker&) = delete;
    VirtualUsbTracker& operator=(const VirtualUsbTracker&) = delete;

    // The emulated device node, "/dev/bus/usb/001/002".
    std::string deviceNode() const;

    DeviceDescription description() const;
    // Takes effect from the next command.
    void setDescription(const DeviceDescription& description);
    // As VirtualTracker's: a fixed frame, a frame source (an empty one
    // restores the built-in scene) and the count of marker requests.
    void setMarkerFrame(const MarkerFrame& frame);
    void setMarkerFrameSource(FrameSource source);
    std::uint64_t markerRequests() const;
    // As VirtualTracker's: `hz` frames a second from now on, a request within
    // the period of the previous one getting the same frame again; 0 (the
    // default) a frame per request. Throws std::invalid_argument for a
    // negative or non-finite rate.
    void setFrameRate(double hz);
    void setFaults(const FaultSettings& faults);
    FaultSettings faults() const;

    // Every command received, oldest first, each as it arrived; at most
    // kCommandLogLimit (VirtualTracker.h), dropping the oldest.
    std::vector<std::vector<std::uint8_t>> commands() const;
    void clearCommands();
    // Waits until the log holds at least `count` commands; false on timeout.
    bool waitForCommands(std::size_t count, std::chrono::milliseconds timeout) const;

    // The device vanishes from the bus (see above); queued replies and
    // commands not yet answered are dropped. Idempotent.
    void unplug();
    // The device comes back, with the kernel driver bound again if one is
    // set bound. Idempotent.
    void replug();
    bool isPlugged() const;

    // Whether a kernel driver is bound to interface 0, so that a host must
    // detach it before it can claim the interface. Off by default.
    void setKernelDriverBound(bool bound);
    // False once a host has detached the driver.
    bool isKernelDriverBound() const;
    bool isInterfaceClaimed() const;

    void setEventSink(EventSink sink);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vyx::sim
