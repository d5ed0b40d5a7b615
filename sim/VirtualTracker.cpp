#include "sim/VirtualTracker.h"

#include "sim/CommandFraming.h"
#include "sim/LinkReplies.h"

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

}  // namespace

bool isLoopbackAddress(const std::string& address) {
    const auto parsed = parseIPv4(address);
    return parsed && (ntohl(parsed->s_addr) >> 24) == 127;
}

// The TCP transport: the listening socket, the host connection, the cutting
// of the host's stream into command packets by the link's framing and the
// command log. What each command gets is up to the device core.
struct VirtualTracker::Impl final : DeviceCore::Link {
    DeviceCore core;

    // ---- Shared with the API side, guarded by `mutex` ----------------------
    mutable std::mutex mutex;
    mutable std::condition_variable changed;  // command log or connection count grew
    std::deque<std::vector<std::uint8_t>> commandLog;
    std::size_t connections = 0;
    EventSink eventSink;
    bool dropRequested = false;

    std::atomic<bool> running{false};
    std::atomic<bool> stopping{false};
    std::atomic<bool> hostConnected{false};
    std::atomic<std::uint16_t> boundPort{0};

    // Interrupts the server thread's poll; lives as long as the tracker.
    const int wakeFd;

    // ---- Set by start() and stop() while the server thread is not running --
    int listenFd = -1;
    std::thread server;
    LinkFraming framing = LinkFraming::Ethernet;

    // ---- Server thread only ------------------------------------------------
    int clientFd = -1;
    std::vector<std::uint8_t> pending;  // bytes of a command not yet complete
    Clock::time_point pendingSince;

    explicit Impl(DeviceDescription d)
        : core(std::move(d)), wakeFd(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
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

    // ---- The link as the device core sees it (server thread) ---------------

    bool send(const std::uint8_t* data, std::size_t size) override {
        return sendToHost(data, size);
    }
    void close(const char* reason) override { closeHostOnOwnAccount(reason); }
    void report(const std::string& event) override { emit(event); }

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
        if (drop && clientFd >= 0) closeHostOnOwnAccount("dropped on request");

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
        core.connectionOpened();
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

    // Closes the host connection because the device chose to: with a reset
    // (SO_LINGER of zero) when the faults ask for one.
    void closeHostOnOwnAccount(const char* reason) {
        if (clientFd >= 0 && core.faults().resetOnClose) {
            const linger reset{1, 0};
            ::setsockopt(clientFd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
        }
        closeHost(reason);
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
            const std::size_t length = commandLength(data[used], framing);
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
        record(packet);
        answerCommand(packet, framing, core, *this);
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

void VirtualTracker::setFraming(LinkFraming framing) {
    if (impl_->running.load())
        throw std::logic_error("the framing of a running virtual tracker cannot change");
    if (framing == LinkFraming::Usb)
        throw std::invalid_argument("the USB link is served by VirtualUsbTracker, not over TCP");
    impl_->framing = framing;
}

LinkFraming VirtualTracker::framing() const { return impl_->framing; }

DeviceDescription VirtualTracker::description() const { return *impl_->core.description(); }

void VirtualTracker::setDescription(const DeviceDescription& description) {
    impl_->core.setDescription(description);
}

void VirtualTracker::setMarkerFrame(const MarkerFrame& frame) { impl_->core.setMarkerFrame(frame); }

void VirtualTracker::setMarkerFrameSource(FrameSource source) {
    impl_->core.setMarkerFrameSource(std::move(source));
}

std::uint64_t VirtualTracker::markerRequests() const { return impl_->core.markerRequests(); }

void VirtualTracker::setFrameRate(double hz) { impl_->core.setFrameRate(hz); }

void VirtualTracker::setFaults(const FaultSettings& faults) { impl_->core.setFaults(faults); }

FaultSettings VirtualTracker::faults() const { return impl_->core.faults(); }

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
