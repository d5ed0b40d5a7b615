// The virtual tracker's USB emulation, driven through the real libusb by a
// bare host written here, so that what arrives is checked against the wire
// format itself and not against the library's reading of it. Runs under
// umockdev-wrapper (tests/CMakeLists.txt).
#include "device/Crc16.h"
#include "device/UsbIdentity.h"
#include "sim/ConfigurationImage.h"
#include "sim/ImagePattern.h"
#include "sim/UsbTracker.h"

#include <libusb-1.0/libusb.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace vyx::sim;
namespace usb = vyx::device;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

// Short, so that reads the tracker leaves unanswered end soon.
constexpr unsigned kSilenceMs = 100;

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
        reopen();
    }
    ~UsbHost() {
        if (handle_ != nullptr) libusb_close(handle_);
        libusb_exit(context_);
    }
    UsbHost(const UsbHost&) = delete;
    UsbHost& operator=(const UsbHost&) = delete;

    void reopen() {
        if (handle_ != nullptr) libusb_close(handle_);
        handle_ = libusb_open_device_with_vid_pid(context_, usb::kTrackerUsbVendorId,
                                                  usb::kTrackerUsbProductId);
        if (handle_ == nullptr) throw std::runtime_error("the emulated tracker is not found");
    }
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

Bytes padded(Bytes b, std::size_t size) { return b.resize(size, 0), b; }

bool blockChecksumOk(const Bytes& block) {
    const std::uint16_t crc = usb::crc16Modbus(block.data(), 470);
    return block.size() == kConfigBlockBytes && block[509] == (crc & 0xFF) &&
           block[510] == crc >> 8;
}

TEST(UsbTracker, AnswersEachCommandWithItsUsbReplyAndLogsItAsItArrived) {
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
        Bytes command;
        std::vector<std::size_t> reads;  // bulk IN transfers of these sizes
        std::vector<Bytes> replies;      // what each one gets (none: all time out)
        std::function<bool(const Bytes&)> check;
    } cases[] = {
        {"marker request", {0x0F}, {8192}, {}, [](const Bytes& r) {
             return r.size() == 4096 && r[0] == 0xA5 && r[1] == 0x5A && r[4094] == 0xFF &&
                    r[4095] == 0xFE;
         }},
        {"configuration read", {0x0A}, {512, 512}, {}, blockChecksumOk},
        {"first grey block", {0xA4}, {4096}, {slice(grey, 0, 3000)}, nullptr},
        {"next grey block", {0x04}, {4096}, {slice(grey, 3000, 3000)}, nullptr},
        {"last grey block", {0x04}, {4096}, {slice(grey, 6000, 1000)}, nullptr},
        {"colour block", {0xA1}, {65536}, {slice(colour, 0, 5000)}, nullptr},
        {"system command", padded({0x4D}, 10), {64}, {}, nullptr},
        {"marker parameters", {0x80, 0xFA, 0x05, 0x64, 10, 20, 20, 19}, {64}, {}, nullptr},
        {"mode", {0x0C, 0x02}, {64}, {}, nullptr},
        {"trigger", {0x0D}, {64}, {}, nullptr},
        {"between connect attempts", {0xEE}, {64}, {}, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        s.tracker.clearCommands();
        const Transfer sent = s.host.send(c.command);
        ASSERT_EQ(sent.result, 0);
        EXPECT_EQ(sent.data.size(), c.command.size());
        EXPECT_EQ(s.tracker.commands(), std::vector<Bytes>{c.command});
        const bool silent = !c.check && c.replies.empty();
        for (std::size_t i = 0; i < c.reads.size(); ++i) {
            const Transfer got = s.host.read(c.reads[i], silent ? kSilenceMs : 2000);
            if (silent) {
                EXPECT_EQ(got.result, LIBUSB_ERROR_TIMEOUT);
                EXPECT_TRUE(got.data.empty());
                EXPECT_LT(got.took, 1s);
                continue;
            }
            ASSERT_EQ(got.result, 0);
            if (c.check) EXPECT_TRUE(c.check(got.data));
            else EXPECT_EQ(got.data, c.replies.at(i));
        }
    }
}

// Unanswered configuration reads over USB, and the detach that the library
// makes, are checked end to end (tests/device/UsbLinkTest.cpp); the refused
// claim is not visible there.
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

    // Back on the bus, the old handle stays dead and a new one is served.
    s.tracker.replug();
    EXPECT_EQ(s.host.send({0x0F}).result, LIBUSB_ERROR_NO_DEVICE);
    s.host.reopen();
    ASSERT_EQ(s.host.claim(), 0);
    // A device-side close lets the host read the frame, then drops off the bus.
    FaultSettings fault;
    fault.closeAfterMarkerFrames = 1;
    s.tracker.setFaults(fault);
    ASSERT_EQ(s.host.send({0x0F}).result, 0);
    EXPECT_EQ(s.host.read(4096).data.size(), 4096u);
    EXPECT_FALSE(s.tracker.isPlugged());
    EXPECT_EQ(s.host.send({0x0F}).result, LIBUSB_ERROR_NO_DEVICE);
}

}  // namespace
