// The virtual tracker's USB emulation, driven through the real libusb by a
// bare host written here, so that what arrives is checked against the wire
// format itself and not against the library's reading of it. Runs under
// umockdev-wrapper (tests/CMakeLists.txt).
#include "device/UsbIdentity.h"
#include "sim/ImagePattern.h"
#include "sim/UsbTracker.h"

#include <libusb-1.0/libusb.h>

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace vyx::sim;
namespace usb = vyx::device;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

struct Transfer {
    int result;
    Bytes data;
    Clock::duration took;
};

// A bare host: one libusb context and device handle.
class UsbHost {
public:
    UsbHost() {
        if (libusb_init(&context_) != 0) throw std::runtime_error("libusb_init failed");
        handle_ = libusb_open_device_with_vid_pid(context_, usb::kTrackerUsbVendorId,
                                                  usb::kTrackerUsbProductId);
        if (handle_ == nullptr) throw std::runtime_error("the emulated tracker is not found");
    }
    ~UsbHost() {
        if (handle_ != nullptr) libusb_close(handle_);
        libusb_exit(context_);
    }
    UsbHost(const UsbHost&) = delete;
    UsbHost& operator=(const UsbHost&) = delete;
    libusb_device_handle* handle() const { return handle_; }
    int claim() { return libusb_claim_interface(handle_, usb::kTrackerUsbInterface); }

    Transfer send(Bytes command) {
        return transfer(usb::kTrackerUsbOutEndpoint, std::move(command), usb::kTrackerUsbTimeoutMs);
    }
    Transfer read(std::size_t size, unsigned timeoutMs = usb::kTrackerUsbTimeoutMs) {
        return transfer(usb::kTrackerUsbInEndpoint, Bytes(size), timeoutMs);
    }

private:
    Transfer transfer(std::uint8_t endpoint, Bytes data, unsigned timeoutMs) {
        int done = 0;
        const auto start = Clock::now();
        const int result = libusb_bulk_transfer(handle_, endpoint, data.data(),
                                                static_cast<int>(data.size()), &done, timeoutMs);
        data.resize(static_cast<std::size_t>(done));
        return {result, std::move(data), Clock::now() - start};
    }

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
};

// The tracker first: its testbed must outlive the host's libusb use.
struct Served {
    explicit Served(const DeviceDescription& d = defaultDescription()) : tracker(d) {}
    VirtualUsbTracker tracker;
    UsbHost host;
};

// Image requests: whole blocks of the USB counts (colour ones too, not the
// Ethernet half-blocks), the last one short. Marker frames and the
// configuration are read end to end by the library (UsbLinkTest.cpp,
// FaultMatrixTest.cpp), whose readers WireProtocolTest.cpp holds to the wire
// format.
TEST(UsbTracker, AnswersImageRequestsInUsbBlocksAndLogsEachAsItArrived) {
    DeviceDescription d = defaultDescription();
    d.geometry.transferUnit = 1000;
    d.geometry.usbGreyCount = 3;
    d.geometry.usbColourCount = 5;  // a USB colour block; the Ethernet half-block is 60 units
    d.greyImageBytes = 7000;
    d.colourImageBytes = 12000;
    Served s(d);
    ASSERT_EQ(s.host.claim(), 0);
    ASSERT_TRUE(s.tracker.isInterfaceClaimed());

    const Bytes grey = expectedImage(ImageCamera::LeftGrey, 0, 7000);
    const Bytes colour = expectedImage(ImageCamera::Colour, 0, 12000);
    const auto slice = [](const Bytes& image, long from, long size) {
        return Bytes(image.begin() + from, image.begin() + from + size);
    };
    const struct {
        const char* what;
        std::uint8_t command;
        std::size_t read;  // one bulk IN transfer of this size
        Bytes reply;
    } cases[] = {
        {"first grey block", 0xA4, 4096, slice(grey, 0, 3000)},
        {"next grey block", 0x04, 4096, slice(grey, 3000, 3000)},
        {"last grey block", 0x04, 4096, slice(grey, 6000, 1000)},
        {"colour block", 0xA1, 65536, slice(colour, 0, 5000)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        s.tracker.clearCommands();
        ASSERT_EQ(s.host.send({c.command}).result, 0);
        EXPECT_EQ(s.tracker.commands(), std::vector<Bytes>{{c.command}});
        const Transfer got = s.host.read(c.read, 2000);
        ASSERT_EQ(got.result, 0);
        EXPECT_EQ(got.data, c.reply);
    }
}

// Unanswered configuration reads over USB, and the detach that the library
// makes, are checked end to end (UsbLinkTest.cpp, FaultMatrixTest.cpp); the
// refused claim is not visible there.
TEST(UsbTracker, KernelDriverMustBeDetachedBeforeTheClaim) {
    Served s;
    s.tracker.setKernelDriverBound(true);
    libusb_device_handle* h = s.host.handle();
    EXPECT_EQ(libusb_kernel_driver_active(h, 0), 1);
    EXPECT_EQ(s.host.claim(), LIBUSB_ERROR_BUSY);
    EXPECT_EQ(libusb_detach_kernel_driver(h, 0), 0);
    EXPECT_EQ(libusb_kernel_driver_active(h, 0), 0);
    EXPECT_EQ(s.host.claim(), 0);
}

// What the library then sees is in the fault matrix (FaultMatrixTest.cpp);
// only the timing tells that a transfer failed at the unplug.
TEST(UsbTracker, UnplugFailsPendingAndLaterTransfersAtOnce) {
    Served s;
    ASSERT_EQ(s.host.claim(), 0);
    Transfer pending{};
    std::thread reader([&] { pending = s.host.read(64, 3000); });
    std::this_thread::sleep_for(200ms);
    s.tracker.unplug();
    reader.join();
    EXPECT_EQ(pending.result, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_LT(pending.took, 1500ms) << "failed at the unplug, not at its time-out";
    const Transfer after = s.host.send({0x0F});
    EXPECT_EQ(after.result, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_LT(after.took, 200ms);
}

}  // namespace
