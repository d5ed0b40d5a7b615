#include "sim/VirtualTracker.h"

#include "sim/CommandFraming.h"
#include "sim/ConfigurationImage.h"
#include "sim/MarkerScene.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace vyx::sim {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Longest the server thread sleeps in poll before it looks at its flags.
constexpr int kPollIntervalMs = 50;
// A command packet whose rest has not arrived by then is logged as it stands.
constexpr auto kIncompletePacketTimeout = 500ms;
// A host that takes no data for this long loses its connection.
constexpr auto kSendTimeout = 5s;
// Images are generated and sent in pieces of this size.
constexpr std::size_t kImageChunkBytes = 64 * 1024;

std::system_error socketError(const std::string& what) {
    return std::system_error(errno, std::generic_category(), what);
}

std::optional<in_addr> parseIPv4(const std::string& address) {
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1) return std::nullopt;
    return parsed;
}

void closeDescriptor(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

// Where a camera's image transfer stands. The image counter lives as long as
// the tracker; the position is reset with each new connection.
struct ImageStream {
    std::uint32_t nextImage = 0;
    std::uint32_t currentImage = 0;
    std::size_t offset = 0;
    bool active = false;
};

}  // namespace

bool isLoopbackAddress(const std::string& address) {
    const auto parsed = parseIPv4(address);
    return parsed && (ntohl(parsed->s_addr) >> 24) == 127;
}

struct VirtualTracker::Impl {
    // ---- Shared with the API side, guarded by `mutex` ----------------------
    mutable std::mutex mutex;
    mutable std::condition_variable changed;  // command log or connection count grew
    std::shared_ptr<const DeviceDescription> description;
    std::optional<MarkerFrame> fixedFrame;
    FrameSource frameSource;
    FaultSettings faults;
    std::deque<std::vector<std::uint8_t>> commandLog;
    std::size_t connections = 0;
    EventSink eventSink;
    bool dropRequested = false;

    std::atomic<bool> running{false};
    std::atomic<bool> stopping{false};
    std::atomic<bool> hostConnected{false};
    std::atomic<std::uint64_t> markerRequestCount{0};
    std::atomic<std::uint16_t> boundPort{0};

    // Interrupts the server thread's poll; lives as long as the tracker.
    const int wakeFd;

    // ---- Set by start() and stop() while the server thread is not running --
    int listenFd = -1;
    std::thread server;

    // ---- Server thread only ------------------------------------------------
    int clientFd = -1;
    std::vector<std::uint8_t> pending;  // bytes of a command not yet complete
    Clock::time_point pendingSince;
    std::array<ImageStream, 3> images;
    // The built-in scene and the description its camera model was built for.
    std::shared_ptr<const DeviceDescription> builtInDescription;
    std::unique_ptr<SceneRenderer> builtInRenderer;

    explicit Impl(DeviceDescription d)
        : description(std::make_shared<const DeviceDescription>(std::move(d))),
          wakeFd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
        if (wakeFd < 0) throw socketError("eventfd");
    }
    ~Impl() { ::close(wakeFd); }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void wake() const {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(wakeFd, &one, sizeof one);
    }

    void emit(const std::string& event) const {
        EventSink sink;
        {
            std::lock_guard<std::mutex> lock(mutex);
            sink = eventSink;
        }
        if (sink) sink(event);
    }

    void record(std::vector<std::uint8_t> packet) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            commandLog.push_back(std::move(packet));
            while (commandLog.size() > kCommandLogLimit) commandLog.pop_front();
        }
        changed.notify_all();
    }

    std::shared_ptr<const DeviceDescription> currentDescription() const {
        std::lock_guard<std::mutex> lock(mutex);
        return description;
    }

    FaultSettings currentFaults() const {
        std::lock_guard<std::mutex> lock(mutex);
        return faults;
    }

    // ---- Server thread -----------------------------------------------------

    void run() {
        while (!stopping.load()) {
            try {
                serveOnce();
            } catch (const std::exception& e) {
                emit(std::string("server error: ") + e.what());
                closeHost("server error");
                std::this_thread::sleep_for(10ms);
            }
        }
        closeHost(nullptr);
    }

    void serveOnce() {
        std::array<pollfd, 3> fds{};
        fds[0] = {wakeFd, POLLIN, 0};
        fds[1] = {listenFd, POLLIN, 0};
        fds[2] = {clientFd, POLLIN, 0};
        const nfds_t count = clientFd >= 0 ? 3 : 2;
        if (::poll(fds.data(), count, kPollIntervalMs) < 0) {
            if (errno == EINTR) return;
            throw socketError("poll");
        }
        if (fds[0].revents & POLLIN) {
            std::uint64_t drained = 0;
            [[maybe_unused]] const auto readBytes = ::read(wakeFd, &drained, sizeof drained);
        }
        if (stopping.load()) return;

        bool drop = false;
        {
            std::lock_guard<std::mutex> lock(mutex);
            std::swap(drop, dropRequested);
        }
        if (drop && clientFd >= 0) closeHost("dropped on request");

        if (clientFd >= 0 && count == 3 && (fds[2].revents & (POLLIN | POLLHUP | POLLERR)))
            readFromHost();
        if (fds[1].revents & POLLIN) acceptHost();
        logStaleIncompletePacket();
    }

    void acceptHost() {
        sockaddr_in peer{};
        socklen_t peerLength = sizeof peer;
        const int fd = ::accept4(listenFd, reinterpret_cast<sockaddr*>(&peer), &peerLength,
                                 SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return;  // the host gave up before we got to it
        if (clientFd >= 0) closeHost("replaced by a new connection");

        const int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        clientFd = fd;
        pending.clear();
        for (ImageStream& stream : images) stream.active = false;
        hostConnected.store(true);
        {
            std::lock_guard<std::mutex> lock(mutex);
            ++connections;
        }
        changed.notify_all();

        char text[INET_ADDRSTRLEN] = {};
        ::inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
        emit("host connected from " + std::string(text) + ":" +
             std::to_string(ntohs(peer.sin_port)));
    }

    // Closes the host connection; `reason` null closes it silently.
    void closeHost(const char* reason) {
        if (clientFd < 0) return;
        if (!pending.empty()) record(std::move(pending));
        pending.clear();
        closeDescriptor(clientFd);
        hostConnected.store(false);
        if (reason != nullptr) emit(std::string("connection closed: ") + reason);
    }

    void readFromHost() {
        std::array<std::uint8_t, 4096> buffer{};
        const ssize_t received = ::recv(clientFd, buffer.data(), buffer.size(), 0);
        if (received == 0) {
            closeHost("host disconnected");
            return;
        }
        if (received < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) return;
            closeHost(std::strerror(errno));
            return;
        }
        const bool wasEmpty = pending.empty();
        std::vector<std::uint8_t> data = std::move(pending);
        pending.clear();
        data.insert(data.end(), buffer.begin(), buffer.begin() + received);

        std::size_t used = 0;
        while (used < data.size()) {
            const std::size_t length = commandLength(data[used]);
            if (data.size() - used < length) break;
            const auto begin = data.begin() + static_cast<std::ptrdiff_t>(used);
            used += length;
            handleCommand(
                std::vector<std::uint8_t>(begin, begin + static_cast<std::ptrdiff_t>(length)));
            // A command that closed the connection ends the reading; what
            // the host sent after it is not served.
            if (clientFd < 0) return;
        }
        pending.assign(data.begin() + static_cast<std::ptrdiff_t>(used), data.end());
        if (!pending.empty() && (wasEmpty || used > 0)) pendingSince = Clock::now();
    }

    void logStaleIncompletePacket() {
        if (pending.empty() || Clock::now() - pendingSince < kIncompletePacketTimeout) return;
        emit("incomplete command of " + std::to_string(pending.size()) + " bytes dropped");
        record(std::move(pending));
        pending.clear();
    }

    void handleCommand(std::vector<std::uint8_t> packet) {
        const std::uint8_t command = packet[0];
        record(std::move(packet));
        const FaultSettings fault = currentFaults();
        if (fault.stopAnswering) return;

        switch (command) {
            case code::kMarkerRequest:
                serveMarkerFrame(fault);
                break;
            case code::kTrigger:
            case code::kAcquireMode:
                sendToHost(&command, 1);
                break;
            case code::kConfigRead: {
                const auto data = encodeShortConfiguration(
                    *currentDescription(), {fault.badChecksumBlock1, fault.badChecksumBlock2});
                sendToHost(data.data(),
                           fault.omitSecondConfigBlock ? kConfigBlockBytes : data.size());
                break;
            }
            case code::kLongConfigRead: {
                const auto d = currentDescription();
                if (!d->longConfiguration || fault.noLongForm) break;
                const auto data =
                    encodeLongConfiguration(*d, {fault.badChecksumBlock1, fault.badChecksumBlock2});
                sendToHost(data.data(), data.size());
                break;
            }
            case code::kModelTextRead: {
                const auto d = currentDescription();
                if (!d->answersModelTextRequest || fault.noModelTextReply) break;
                const auto reply = encodeModelTextReply(*d);
                sendToHost(reply.data(), reply.size());
                break;
            }
            case code::kLeftGreyFirst:
            case code::kLeftGreyNext:
                serveImageBlock(ImageCamera::LeftGrey, command == code::kLeftGreyFirst);
                break;
            case code::kRightGreyFirst:
            case code::kRightGreyNext:
                serveImageBlock(ImageCamera::RightGrey, command == code::kRightGreyFirst);
                break;
            case code::kColourFirst:
            case code::kColourNext:
                serveImageBlock(ImageCamera::Colour, command == code::kColourFirst);
                break;
            default:
                break;  // settings, system commands and unknown codes: recorded only
        }
    }

    void serveMarkerFrame(const FaultSettings& fault) {
        const std::uint64_t index = markerRequestCount.fetch_add(1);
        if (fault.closeAfterMarkerFrames == std::size_t{0}) {
            disarmCloseAfterMarkerFrames();
            closeHost("closed by fault after the requested marker frames");
            return;
        }

        std::optional<MarkerFrame> fixed;
        FrameSource source;
        std::shared_ptr<const DeviceDescription> d;
        {
            std::lock_guard<std::mutex> lock(mutex);
            fixed = fixedFrame;
            source = frameSource;
            d = description;
        }
        MarkerFrame frame;
        try {
            frame = fixed ? *fixed : source ? source(index) : builtInFrame(d, index);
        } catch (const std::exception& e) {
            emit(std::string("frame source failed: ") + e.what());
            return;
        }

        auto bytes = encodeMarkerFrame(frame);
        if (fault.corruptEndMark) bytes[kMarkerFrameBytes - 2] = 0xFE;
        const std::size_t length =
            std::min(fault.shortMarkerFrameBytes.value_or(kMarkerFrameBytes), kMarkerFrameBytes);

        // Count the frame down before it goes out, so that a host holding the
        // frame sees the count that already includes it.
        bool closeAfterSending = false;
        {
            std::lock_guard<std::mutex> lock(mutex);
            auto& remaining = faults.closeAfterMarkerFrames;
            if (remaining && *remaining > 0 && --*remaining == 0) {
                remaining.reset();
                closeAfterSending = true;
            }
        }
        if (sendToHost(bytes.data(), length) && closeAfterSending)
            closeHost("closed by fault after the requested marker frames");
    }

    MarkerFrame builtInFrame(const std::shared_ptr<const DeviceDescription>& d,
                             std::uint64_t index) {
        if (!builtInRenderer || builtInDescription != d) {
            builtInRenderer = std::make_unique<SceneRenderer>(*d, vyx::sim::builtInScene());
            builtInDescription = d;
        }
        return builtInRenderer->frame(index, static_cast<std::uint32_t>(index + 1));
    }

    void disarmCloseAfterMarkerFrames() {
        std::lock_guard<std::mutex> lock(mutex);
        faults.closeAfterMarkerFrames.reset();
    }

    void serveImageBlock(ImageCamera camera, bool first) {
        const auto d = currentDescription();
        const bool colour = camera == ImageCamera::Colour;
        const std::size_t imageBytes = colour ? d->colourImageBytes : d->greyImageBytes;
        const std::size_t blockBytes = colour ? ethernetColourHalfBlockBytes(d->geometry)
                                              : ethernetGreyBlockBytes(d->geometry);
        if (imageBytes == 0) return;

        ImageStream& stream = images[static_cast<std::size_t>(camera)];
        if (first || !stream.active || stream.offset >= imageBytes) {
            stream.currentImage = stream.nextImage++;
            stream.offset = 0;
            stream.active = true;
        }
        const std::size_t size = std::min(blockBytes, imageBytes - stream.offset);
        std::vector<std::uint8_t> chunk(std::min(size, kImageChunkBytes));
        for (std::size_t sent = 0; sent < size;) {
            const std::size_t piece = std::min(chunk.size(), size - sent);
            fillImagePattern(camera, stream.currentImage, stream.offset + sent, chunk.data(),
                             piece);
            if (!sendToHost(chunk.data(), piece)) return;
            sent += piece;
        }
        stream.offset += size;
    }

    // Sends everything or closes the connection. Never raises SIGPIPE; gives
    // up when the host takes nothing for kSendTimeout or the tracker stops.
    bool sendToHost(const std::uint8_t* data, std::size_t size) {
        const auto deadline = Clock::now() + kSendTimeout;
        while (size > 0 && clientFd >= 0) {
            const ssize_t n = ::send(clientFd, data, size, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n > 0) {
                data += n;
                size -= static_cast<std::size_t>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                if (stopping.load()) {
                    closeHost(nullptr);
                    return false;
                }
                if (Clock::now() > deadline) {
                    closeHost("host stopped reading");
                    return false;
                }
                pollfd writable{clientFd, POLLOUT, 0};
                ::poll(&writable, 1, kPollIntervalMs);
                continue;
            }
            closeHost(n < 0 ? std::strerror(errno) : "send failed");
            return false;
        }
        return clientFd >= 0;
    }
};

VirtualTracker::VirtualTracker(DeviceDescription description)
    : impl_(std::make_unique<Impl>(std::move(description))) {}

VirtualTracker::~VirtualTracker() { stop(); }

void VirtualTracker::start(const std::string& address, std::uint16_t port) {
    if (impl_->running.load()) throw std::logic_error("the virtual tracker is already running");
    const auto parsed = parseIPv4(address);
    if (!parsed || !isLoopbackAddress(address))
        throw std::invalid_argument("refusing to serve on '" + address +
                                    "': only loopback addresses (127.0.0.0/8) are allowed");

    int listenFd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (listenFd < 0) throw socketError("socket");
    const int on = 1;
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    local.sin_addr = *parsed;
    socklen_t localLength = sizeof local;
    if (::setsockopt(listenFd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(listenFd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0 ||
        ::listen(listenFd, 4) != 0 ||
        ::getsockname(listenFd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0) {
        const auto error = socketError("cannot listen on " + address + ":" + std::to_string(port));
        closeDescriptor(listenFd);
        throw error;
    }
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->dropRequested = false;
    }
    impl_->listenFd = listenFd;
    impl_->boundPort.store(ntohs(local.sin_port));
    impl_->stopping.store(false);
    impl_->running.store(true);
    impl_->server = std::thread([impl = impl_.get()] { impl->run(); });
}

void VirtualTracker::stop() noexcept {
    if (!impl_->server.joinable()) return;
    impl_->stopping.store(true);
    impl_->wake();
    impl_->server.join();
    closeDescriptor(impl_->listenFd);
    impl_->boundPort.store(0);
    impl_->running.store(false);
}

bool VirtualTracker::isRunning() const { return impl_->running.load(); }

std::uint16_t VirtualTracker::port() const { return impl_->boundPort.load(); }

DeviceDescription VirtualTracker::description() const { return *impl_->currentDescription(); }

void VirtualTracker::setDescription(const DeviceDescription& description) {
    auto copy = std::make_shared<const DeviceDescription>(description);
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->description = std::move(copy);
}

void VirtualTracker::setMarkerFrame(const MarkerFrame& frame) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->fixedFrame = frame;
    impl_->frameSource = nullptr;
}

void VirtualTracker::setMarkerFrameSource(FrameSource source) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->fixedFrame.reset();
    impl_->frameSource = std::move(source);
}

std::uint64_t VirtualTracker::markerRequests() const { return impl_->markerRequestCount.load(); }

void VirtualTracker::setFaults(const FaultSettings& faults) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->faults = faults;
}

FaultSettings VirtualTracker::faults() const { return impl_->currentFaults(); }

void VirtualTracker::dropConnection() {
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->dropRequested = true;
    }
    impl_->wake();
}

std::vector<std::vector<std::uint8_t>> VirtualTracker::commands() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return {impl_->commandLog.begin(), impl_->commandLog.end()};
}

void VirtualTracker::clearCommands() {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->commandLog.clear();
}

bool VirtualTracker::waitForCommands(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(impl_->mutex);
    return impl_->changed.wait_for(lock, timeout,
                                   [&] { return impl_->commandLog.size() >= count; });
}

std::size_t VirtualTracker::connectionsAccepted() const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->connections;
}

bool VirtualTracker::isHostConnected() const { return impl_->hostConnected.load(); }

bool VirtualTracker::waitForConnections(std::size_t count,
                                        std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(impl_->mutex);
    return impl_->changed.wait_for(lock, timeout, [&] { return impl_->connections >= count; });
}

void VirtualTracker::setEventSink(EventSink sink) {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->eventSink = std::move(sink);
}

}  // namespace vyx::sim
