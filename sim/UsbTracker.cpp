#include "sim/UsbTracker.h"

#include "device/UsbIdentity.h"
#include "sim/CommandFraming.h"
#include "sim/LinkReplies.h"
#include "sim/VirtualTracker.h"

#include <dlfcn.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <umockdev.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace vyx::sim {
namespace {

namespace usb = vyx::device;

constexpr const char* kPreloadLibrary = "libumockdev-preload.so.0";
constexpr const char* kDeviceNode = "/dev/bus/usb/001/002";
// The name GETDRIVER reports for the kernel driver when one is bound; any
// name but "usbfs" means a driver other than the host's own claim.
constexpr const char* kKernelDriverName = "usbtest";
constexpr std::uint16_t kMaxPacketBytes = 512;
constexpr std::uint32_t kCapabilities = USBDEVFS_CAP_ZERO_PACKET |
                                        USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                        USBDEVFS_CAP_BULK_SCATTER_GATHER;
// Where each descriptor keeps the device generation it was opened in.
constexpr const char* kGenerationKey = "vyx-usb-generation";
// Read bytes this far into the IN queue are dropped from its front.
constexpr std::size_t kQueueCompactBytes = 1 << 20;

std::atomic<bool> instanceAlive{false};

struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object != nullptr) g_object_unref(object);
    }
};
// A reference to host memory that umockdev mirrors: `data` holds a copy,
// written back to the host when the ioctl that carries it completes.
using DataRef = std::unique_ptr<UMockdevIoctlData, GObjectUnref>;
using ClientRef = std::unique_ptr<UMockdevIoctlClient, GObjectUnref>;

// The host memory that `parent` points to at `offset`, `size` bytes of it.
DataRef resolve(UMockdevIoctlData* parent, std::size_t offset, std::size_t size) {
    GError* error = nullptr;
    DataRef data(umockdev_ioctl_data_resolve(parent, offset, size, &error));
    if (error != nullptr) {
        g_error_free(error);
        return nullptr;
    }
    return data;
}

template <typename T>
std::optional<T> readArgument(UMockdevIoctlData* arg) {
    const DataRef data = resolve(arg, 0, sizeof(T));
    if (!data) return std::nullopt;
    T value{};
    std::memcpy(&value, data->data, sizeof value);
    return value;
}

// The device, configuration, interface and endpoint descriptors, as the
// sysfs "descriptors" attribute holds them (little-endian words).
std::vector<std::uint8_t> usbDescriptors() {
    const auto lo = [](unsigned v) { return static_cast<std::uint8_t>(v & 0xFF); };
    const auto hi = [](unsigned v) { return static_cast<std::uint8_t>(v >> 8); };
    const std::uint8_t in = usb::kTrackerUsbInEndpoint, out = usb::kTrackerUsbOutEndpoint;
    return {
        // Device: USB 2.0, class per interface, 64-byte control packets, one
        // configuration, no strings.
        18, 0x01, 0x00, 0x02, 0, 0, 0, 64, lo(usb::kTrackerUsbVendorId),
        hi(usb::kTrackerUsbVendorId), lo(usb::kTrackerUsbProductId),
        hi(usb::kTrackerUsbProductId), 0x00, 0x01, 0, 0, 0, 1,
        // Configuration 1: 32 bytes in all, one interface, bus powered, 100 mA.
        9, 0x02, 32, 0, 1, 1, 0, 0x80, 50,
        // Interface 0: two endpoints, vendor class.
        9, 0x04, static_cast<std::uint8_t>(usb::kTrackerUsbInterface), 0, 2, 0xFF, 0, 0, 0,
        // Bulk OUT and bulk IN.
        7, 0x05, out, 0x02, lo(kMaxPacketBytes), hi(kMaxPacketBytes), 0,
        7, 0x05, in, 0x02, lo(kMaxPacketBytes), hi(kMaxPacketBytes), 0};
}

// The testbed record of the device: its sysfs path, node, udev properties
// and attributes.
std::string deviceRecord() {
    std::string hex;
    char digits[3];
    for (const std::uint8_t b : usbDescriptors()) {
        std::snprintf(digits, sizeof digits, "%02x", b);
        hex += digits;
    }
    char ids[64];
    std::snprintf(ids, sizeof ids, "A: idVendor=%04x\nA: idProduct=%04x\n",
                  usb::kTrackerUsbVendorId, usb::kTrackerUsbProductId);
    return std::string("P: /devices/pci0000:00/0000:00:14.0/usb1/1-1\n"
                       "N: bus/usb/001/002\n"
                       "E: SUBSYSTEM=usb\n"
                       "E: DEVTYPE=usb_device\n"
                       "E: DEVNAME=") +
           kDeviceNode +
           "\n"
           "E: BUSNUM=001\n"
           "E: DEVNUM=002\n" +
           ids +
           "A: busnum=1\n"
           "A: devnum=2\n"
           "A: bConfigurationValue=1\n"
           "A: speed=480\n"
           "H: descriptors=" +
           hex + "\n";
}

struct Outcome {
    long result;
    int error;
};
constexpr Outcome kDone{0, 0};
constexpr Outcome failure(int error) { return {-1, error}; }

}  // namespace

bool VirtualUsbTracker::umockdevPreloadLoaded() {
    void* preload = ::dlopen(kPreloadLibrary, RTLD_NOLOAD | RTLD_LAZY);
    if (preload == nullptr) return false;
    ::dlclose(preload);  // only drops the reference NOLOAD took
    return true;
}

void VirtualUsbTracker::requireUmockdevPreload() {
    if (!umockdevPreloadLoaded())
        throw std::runtime_error(
            std::string("the USB tracker emulation needs umockdev's preload library (") +
            kPreloadLibrary +
            ") loaded into the process: run the program under umockdev-wrapper. Without it "
            "libusb would reach the machine's real USB devices.");
}

// The usbfs side runs on umockdev's worker thread (the ioctl handler); the
// device side on the device thread; they meet in the queues under `mutex`.
struct VirtualUsbTracker::Impl {
    DeviceCore core;

    // ---- Shared, guarded by `mutex` -----------------------------------------
    mutable std::mutex mutex;
    mutable std::condition_variable commandLogged;
    std::condition_variable workReady;
    std::deque<std::vector<std::uint8_t>> commandLog;
    // Commands to answer, oldest first; an empty packet starts a new session
    // (the interface was claimed).
    struct Work {
        std::vector<std::uint8_t> packet;
        std::uint64_t generation;
    };
    std::deque<Work> work;
    std::vector<std::uint8_t> inBytes;  // replies the host has not read, from inRead on
    std::size_t inRead = 0;
    bool plugged = true;
    // Counts plug changes; a descriptor is served only while the device is
    // plugged and still in the generation it was opened in.
    std::uint64_t generation = 1;
    bool unplugWhenDrained = false;
    bool driverWanted = false;  // a kernel driver is bound after each plug-in
    bool driverBound = false;
    const void* claimedBy = nullptr;  // the descriptor holding interface 0
    bool stopping = false;
    EventSink eventSink;

    // ---- umockdev's worker thread, guarded by `urbMutex` --------------------
    struct Urb {
        ClientRef client;
        DataRef urb;     // the host's struct usbdevfs_urb
        DataRef buffer;  // its data, null for a zero-length transfer
        bool in = false;
        int status = 0;
        int actualLength = 0;
    };
    std::mutex urbMutex;
    std::deque<Urb> pendingIn;  // IN URBs waiting for reply bytes, oldest first
    std::deque<Urb> completed;  // URBs to reap, in completion order

    UMockdevTestbed* testbed = nullptr;
    UMockdevIoctlBase* handler = nullptr;
    std::thread device;

    explicit Impl(DeviceDescription d) : core(std::move(d)) {}
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    ~Impl() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        workReady.notify_all();
        if (device.joinable()) device.join();
        // The testbed's worker thread, which calls the handler, ends with the
        // testbed; only then do the handler and its URBs go.
        if (testbed != nullptr) g_object_unref(testbed);
        if (handler != nullptr) {
            g_signal_handlers_disconnect_by_data(handler, this);
            g_object_unref(handler);
        }
        std::lock_guard<std::mutex> lock(urbMutex);
        pendingIn.clear();
        completed.clear();
    }

    void setUp() {
        testbed = umockdev_testbed_new();
        handler = umockdev_ioctl_base_new();
        g_signal_connect(handler, "handle-ioctl", G_CALLBACK(&Impl::onIoctl), this);
        g_signal_connect(handler, "client-connected", G_CALLBACK(&Impl::onConnected), this);
        g_signal_connect(handler, "client-vanished", G_CALLBACK(&Impl::onVanished), this);
        GError* error = nullptr;
        if (!umockdev_testbed_attach_ioctl(testbed, kDeviceNode, handler, &error) ||
            !umockdev_testbed_add_from_string(testbed, deviceRecord().c_str(), &error)) {
            const std::string message = error != nullptr ? error->message : "unknown error";
            if (error != nullptr) g_error_free(error);
            throw std::runtime_error("cannot set up the emulated USB device: " + message);
        }
        device = std::thread([this] { serve(); });
    }

    void emit(const std::string& event) const {
        EventSink sink;
        {
            std::lock_guard<std::mutex> lock(mutex);
            sink = eventSink;
        }
        if (sink) sink(event);
    }

    // ---- Plug state (with `mutex` held) --------------------------------------

    void unplugLocked() {
        plugged = false;
        ++generation;
        unplugWhenDrained = false;
        claimedBy = nullptr;
        work.clear();
        inBytes.clear();
        inRead = 0;
    }

    bool servesLocked(UMockdevIoctlClient* client) const {
        const auto opened =
            reinterpret_cast<std::uintptr_t>(g_object_get_data(G_OBJECT(client), kGenerationKey));
        return plugged && opened == generation;
    }

    // ---- Device thread ------------------------------------------------------

    // Collects one whole reply, so that an IN URB never ends in mid-reply.
    struct ReplyLink final : DeviceCore::Link {
        explicit ReplyLink(Impl& owner) : impl(owner) {}
        bool send(const std::uint8_t* data, std::size_t size) override {
            bytes.insert(bytes.end(), data, data + size);
            return true;
        }
        void close(const char* reason) override { closeReason = reason; }
        void report(const std::string& event) override { impl.emit(event); }

        Impl& impl;
        std::vector<std::uint8_t> bytes;
        std::optional<std::string> closeReason;
    };

    void serve() {
        std::unique_lock<std::mutex> lock(mutex);
        while (true) {
            workReady.wait(lock, [this] { return stopping || !work.empty(); });
            if (stopping) return;
            Work item = std::move(work.front());
            work.pop_front();
            lock.unlock();

            ReplyLink reply(*this);
            if (item.packet.empty())
                core.connectionOpened();
            else
                answerCommand(item.packet, LinkFraming::Usb, core, reply);

            lock.lock();
            if (!plugged || item.generation != generation) continue;
            inBytes.insert(inBytes.end(), reply.bytes.begin(), reply.bytes.end());
            if (!reply.closeReason) continue;
            // The device drops off the bus once the host has what it sent.
            if (inRead == inBytes.size())
                unplugLocked();
            else
                unplugWhenDrained = true;
            lock.unlock();
            emit("device drops off the bus: " + *reply.closeReason);
            lock.lock();
        }
    }

    // ---- umockdev's worker thread -------------------------------------------

    static void onConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        auto* impl = static_cast<Impl*>(self);
        std::lock_guard<std::mutex> lock(impl->mutex);
        const auto generation = static_cast<std::uintptr_t>(impl->generation);
        g_object_set_data(G_OBJECT(client), kGenerationKey, reinterpret_cast<gpointer>(generation));
    }

    // A closed descriptor loses its URBs and its claim, as in the kernel.
    static void onVanished(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        auto* impl = static_cast<Impl*>(self);
        {
            std::lock_guard<std::mutex> lock(impl->urbMutex);
            const auto ofClient = [client](const Urb& u) { return u.client.get() == client; };
            impl->pendingIn.erase(
                std::remove_if(impl->pendingIn.begin(), impl->pendingIn.end(), ofClient),
                impl->pendingIn.end());
            impl->completed.erase(
                std::remove_if(impl->completed.begin(), impl->completed.end(), ofClient),
                impl->completed.end());
        }
        std::lock_guard<std::mutex> lock(impl->mutex);
        if (impl->claimedBy == client) impl->claimedBy = nullptr;
    }

    static gboolean onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, gpointer self) {
        auto* impl = static_cast<Impl*>(self);
        // What a reap hands back must live until the host has it.
        std::optional<Urb> reaped;
        DataRef reapSlot;
        const Outcome outcome = impl->dispatch(client, reaped, reapSlot);
        umockdev_ioctl_client_complete(client, outcome.result, outcome.error);
        return TRUE;
    }

    Outcome dispatch(UMockdevIoctlClient* client, std::optional<Urb>& reaped, DataRef& reapSlot) {
        const unsigned long request = umockdev_ioctl_client_get_request(client);
        UMockdevIoctlData* arg = umockdev_ioctl_client_get_arg(client);
        if (request == USBDEVFS_REAPURBNDELAY) return reap(client, arg, reaped, reapSlot);
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (!servesLocked(client)) return failure(ENODEV);
        }
        switch (request) {
            case USBDEVFS_GET_CAPABILITIES: {
                const DataRef caps = resolve(arg, 0, sizeof kCapabilities);
                if (!caps) return failure(EFAULT);
                std::memcpy(caps->data, &kCapabilities, sizeof kCapabilities);
                return kDone;
            }
            case USBDEVFS_GETDRIVER: return getDriver(arg);
            case USBDEVFS_IOCTL: return driverControl(client, arg);
            case USBDEVFS_DISCONNECT_CLAIM: {
                const auto claim = readArgument<usbdevfs_disconnect_claim>(arg);
                if (!claim) return failure(EFAULT);
                if (claim->interface != usb::kTrackerUsbInterface) return failure(EINVAL);
                return claimInterface(client, true);
            }
            case USBDEVFS_CLAIMINTERFACE: {
                const auto interface = readArgument<unsigned int>(arg);
                if (!interface) return failure(EFAULT);
                if (*interface != usb::kTrackerUsbInterface) return failure(ENOENT);
                return claimInterface(client, false);
            }
            case USBDEVFS_RELEASEINTERFACE: {
                const auto interface = readArgument<unsigned int>(arg);
                if (!interface) return failure(EFAULT);
                std::lock_guard<std::mutex> lock(mutex);
                if (*interface != usb::kTrackerUsbInterface || claimedBy != client)
                    return failure(EINVAL);
                claimedBy = nullptr;
                return kDone;
            }
            case USBDEVFS_CLEAR_HALT: {
                const auto endpoint = readArgument<unsigned int>(arg);
                if (!endpoint) return failure(EFAULT);
                const bool known = *endpoint == usb::kTrackerUsbInEndpoint ||
                                   *endpoint == usb::kTrackerUsbOutEndpoint;
                if (*endpoint == usb::kTrackerUsbInEndpoint) core.clearInHalt();
                return known ? kDone : failure(ENOENT);
            }
            case USBDEVFS_SUBMITURB: return submit(client, arg);
            case USBDEVFS_DISCARDURB: return discard(client, arg);
            default: return failure(ENOTTY);
        }
    }

    Outcome getDriver(UMockdevIoctlData* arg) {
        const DataRef data = resolve(arg, 0, sizeof(usbdevfs_getdriver));
        if (!data) return failure(EFAULT);
        auto* query = reinterpret_cast<usbdevfs_getdriver*>(data->data);
        std::lock_guard<std::mutex> lock(mutex);
        if (query->interface != usb::kTrackerUsbInterface || !driverBound) return failure(ENODATA);
        std::snprintf(query->driver, sizeof query->driver, "%s", kKernelDriverName);
        return kDone;
    }

    // The kernel driver detach (DISCONNECT) and re-attach (CONNECT) requests.
    Outcome driverControl(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        const auto command = readArgument<usbdevfs_ioctl>(arg);
        if (!command) return failure(EFAULT);
        if (command->ifno != usb::kTrackerUsbInterface) return failure(EINVAL);
        std::lock_guard<std::mutex> lock(mutex);
        switch (command->ioctl_code) {
            case USBDEVFS_DISCONNECT:
                if (!driverBound) return failure(ENODATA);
                driverBound = false;
                return kDone;
            case USBDEVFS_CONNECT:
                if (claimedBy != nullptr && claimedBy != client) return failure(EBUSY);
                if (claimedBy == nullptr) driverBound = driverWanted;
                return kDone;
            default: return failure(ENOTTY);
        }
    }

    Outcome claimInterface(UMockdevIoctlClient* client, bool detachDriver) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (claimedBy == client) return kDone;
            if (claimedBy != nullptr || (driverBound && !detachDriver)) return failure(EBUSY);
            driverBound = false;
            claimedBy = client;
            work.push_back({{}, generation});  // image transfers start over
        }
        workReady.notify_one();
        return kDone;
    }

    Outcome submit(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        DataRef urbData = resolve(arg, 0, sizeof(usbdevfs_urb));
        if (!urbData) return failure(EFAULT);
        usbdevfs_urb urb{};
        std::memcpy(&urb, urbData->data, sizeof urb);
        if (urb.type != USBDEVFS_URB_TYPE_BULK || urb.buffer_length < 0) return failure(EINVAL);
        if (urb.endpoint != usb::kTrackerUsbInEndpoint &&
            urb.endpoint != usb::kTrackerUsbOutEndpoint)
            return failure(ENOENT);
        // Like usbfs, a transfer claims the interface it uses.
        if (claimInterface(client, false).error != 0) return failure(EBUSY);

        const auto length = static_cast<std::size_t>(urb.buffer_length);
        DataRef buffer;
        if (length > 0) {
            buffer = resolve(urbData.get(), offsetof(usbdevfs_urb, buffer), length);
            if (!buffer) return failure(EFAULT);
        }
        ClientRef owner(static_cast<UMockdevIoctlClient*>(g_object_ref(client)));
        Urb entry{std::move(owner), std::move(urbData), std::move(buffer)};
        entry.in = urb.endpoint == usb::kTrackerUsbInEndpoint;
        if (!entry.in) {
            receive(entry.buffer ? entry.buffer->data : nullptr, length);
            entry.actualLength = urb.buffer_length;
        }
        std::lock_guard<std::mutex> lock(urbMutex);
        (entry.in ? pendingIn : completed).push_back(std::move(entry));
        return kDone;
    }

    // Cuts one OUT transfer into commands, records them and hands them to the
    // device thread.
    void receive(const std::uint8_t* data, std::size_t size) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            for (std::size_t used = 0; used < size;) {
                const std::size_t length =
                    std::min(commandLength(data[used], LinkFraming::Usb), size - used);
                std::vector<std::uint8_t> packet(data + used, data + used + length);
                used += length;
                commandLog.push_back(packet);
                while (commandLog.size() > kCommandLogLimit) commandLog.pop_front();
                work.push_back({std::move(packet), generation});
            }
        }
        commandLogged.notify_all();
        workReady.notify_one();
    }

    Outcome discard(UMockdevIoctlClient* client, UMockdevIoctlData* arg) {
        // The argument is the URB's address itself.
        gulong address = 0;
        std::memcpy(&address, arg->data,
                    std::min(sizeof address, static_cast<std::size_t>(arg->data_len)));
        std::lock_guard<std::mutex> lock(urbMutex);
        const auto it = std::find_if(pendingIn.begin(), pendingIn.end(), [&](const Urb& u) {
            return u.client.get() == client && u.urb->client_addr == address;
        });
        if (it == pendingIn.end()) return failure(EINVAL);  // done already, or unknown
        it->status = -ENOENT;
        it->actualLength = 0;
        completed.push_back(std::move(*it));
        pendingIn.erase(it);
        return kDone;
    }

    Outcome reap(UMockdevIoctlClient* client, UMockdevIoctlData* arg, std::optional<Urb>& reaped,
                 DataRef& reapSlot) {
        bool droppedOff = false;
        Outcome outcome{};
        {
            std::lock_guard<std::mutex> urbLock(urbMutex);
            outcome = reapLocked(client, arg, reaped, reapSlot, droppedOff);
        }
        if (droppedOff) emit("device dropped off the bus");
        return outcome;
    }

    Outcome reapLocked(UMockdevIoctlClient* client, UMockdevIoctlData* arg,
                       std::optional<Urb>& reaped, DataRef& reapSlot, bool& droppedOff) {
        bool served = false;
        {
            std::lock_guard<std::mutex> lock(mutex);
            served = servesLocked(client);
            if (served) droppedOff = fillPendingInLocked(client);
        }
        if (!served) {
            // The device is gone: its URBs end with -ENODEV.
            for (auto it = pendingIn.begin(); it != pendingIn.end();) {
                if (it->client.get() != client) {
                    ++it;
                    continue;
                }
                it->status = -ENODEV;
                it->actualLength = 0;
                completed.push_back(std::move(*it));
                it = pendingIn.erase(it);
            }
        }
        const auto it = std::find_if(completed.begin(), completed.end(),
                                     [&](const Urb& u) { return u.client.get() == client; });
        if (it == completed.end()) return failure(served ? EAGAIN : ENODEV);

        auto* urb = reinterpret_cast<usbdevfs_urb*>(it->urb->data);
        urb->status = it->status;
        urb->actual_length = it->actualLength;
        reapSlot = resolve(arg, 0, sizeof(void*));
        if (!reapSlot) return failure(EFAULT);
        umockdev_ioctl_data_set_ptr(reapSlot.get(), 0, it->urb.get());
        reaped = std::move(*it);
        completed.erase(it);
        return kDone;
    }

    // Gives queued reply bytes to the client's pending IN URBs, oldest
    // first, or, while the IN endpoint is halted, ends them with a stall.
    // True when that drained the queue of a device due to drop off.
    bool fillPendingInLocked(UMockdevIoctlClient* client) {
        const bool halted = core.faults().stallUsbIn;
        for (auto it = pendingIn.begin();
             it != pendingIn.end() && (halted || inRead < inBytes.size());) {
            if (it->client.get() != client) {
                ++it;
                continue;
            }
            if (halted) {
                it->status = -EPIPE;
                it->actualLength = 0;
            } else {
                const std::size_t room =
                    it->buffer ? static_cast<std::size_t>(it->buffer->data_len) : 0;
                const std::size_t size = std::min(room, inBytes.size() - inRead);
                if (size > 0) std::memcpy(it->buffer->data, inBytes.data() + inRead, size);
                inRead += size;
                it->actualLength = static_cast<int>(size);
            }
            completed.push_back(std::move(*it));
            it = pendingIn.erase(it);
        }
        if (halted) return false;
        if (inRead == inBytes.size()) {
            inBytes.clear();
            inRead = 0;
            if (unplugWhenDrained) {
                unplugLocked();
                return true;
            }
        } else if (inRead >= kQueueCompactBytes) {
            inBytes.erase(inBytes.begin(), inBytes.begin() + static_cast<std::ptrdiff_t>(inRead));
            inRead = 0;
        }
        return false;
    }
};

VirtualUsbTracker::VirtualUsbTracker(DeviceDescription description) {
    requireUmockdevPreload();
    if (instanceAlive.exchange(true))
        throw std::logic_error("only one VirtualUsbTracker may exist at a time");
    try {
        impl_ = std::make_unique<Impl>(std::move(description));
        impl_->setUp();
    } catch (...) {
        impl_.reset();
        instanceAlive.store(false);
        throw;
    }
}

VirtualUsbTracker::~VirtualUsbTracker() {
    impl_.reset();
    instanceAlive.store(false);
}

std::string VirtualUsbTracker::deviceNode() const { return kDeviceNode; }

DeviceDescription VirtualUsbTracker::description() const { return *impl_->core.description(); }

void VirtualUsbTracker::setDescription(const DeviceDescription& description) {
    impl_->core.setDescription(description);
}

void VirtualUsbTracker::setMarkerFrame(const MarkerFrame& frame) {
    impl_->core.setMarkerFrame(frame);
}

void VirtualUsbTracker::setMarkerFrameSource(FrameSource source) {
    impl_->core.setMarkerFrameSource(std::move(source));
}

std::uint64_t VirtualUsbTracker::markerRequests() const { return impl_->core.markerRequests(); }

void VirtualUsbTracker::setFrameRate(double hz) { impl_->core.setFrameRate(hz); }

void VirtualUsbTracker::setFaults(const FaultSettings& faults) { impl_->core.setFaults(faults); }

FaultSettings VirtualUsbTracker::faults() const { return impl_->core.faults(); }

std::vector<std::vector<std::uint8_t>> VirtualUsbTracker::commands() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return {impl_->commandLog.begin(), impl_->commandLog.end()};
}

void VirtualUsbTracker::clearCommands() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->commandLog.clear();
}

bool VirtualUsbTracker::waitForCommands(std::size_t count,
                                        std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(impl_->mutex);
    return impl_->commandLogged.wait_for(lock, timeout,
                                         [&] { return impl_->commandLog.size() >= count; });
}

void VirtualUsbTracker::unplug() {
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        if (!impl_->plugged) return;
        impl_->unplugLocked();
    }
    impl_->emit("device unplugged");
}

void VirtualUsbTracker::replug() {
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->plugged) return;
        impl_->plugged = true;
        ++impl_->generation;
        impl_->driverBound = impl_->driverWanted;
    }
    impl_->emit("device plugged in");
}

bool VirtualUsbTracker::isPlugged() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->plugged;
}

void VirtualUsbTracker::setKernelDriverBound(bool bound) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->driverWanted = bound;
    impl_->driverBound = bound && impl_->claimedBy == nullptr;
}

bool VirtualUsbTracker::isKernelDriverBound() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->driverBound;
}

bool VirtualUsbTracker::isInterfaceClaimed() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->claimedBy != nullptr;
}

void VirtualUsbTracker::setEventSink(EventSink sink) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->eventSink = std::move(sink);
}

}  // namespace vyx::sim
