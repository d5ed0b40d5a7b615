#include "cli/IgtlServer.h"

#include "cli/Session.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <deque>
#include <iterator>

namespace vyx::cli {
namespace {

// How long a blocking wait lasts before the stop flag is looked at again.
constexpr int kPollMs = 100;

}  // namespace

struct IgtlServer::Client {
    int fd = -1;
    std::string peer;  // ADDR:PORT, for the log lines
    std::mutex mutex;  // guards the queue
    std::condition_variable wake;
    std::deque<Frame> queue;
    std::atomic<bool> gone{false};  // set by the writer when it gives up
    std::thread writer;
};

IgtlServer::IgtlServer(const std::string& address, unsigned short port) {
    const std::string where = address + ":" + std::to_string(port);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &local.sin_addr) != 1)
        throw CommandError("bad address '" + address +
                           "' to serve on: give a dotted IPv4 address, e.g. 127.0.0.1");
    listenFd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    if (listenFd_ < 0 || setsockopt(listenFd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(listenFd_, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0 ||
        listen(listenFd_, 8) != 0) {
        const int error = errno;
        if (listenFd_ >= 0) close(listenFd_);
        throw CommandError("cannot listen on " + where + ": " + std::strerror(error) +
                           (error == EADDRINUSE ? " (another server has it: choose another --port)"
                                                : ""));
    }
    acceptThread_ = std::thread([this] { acceptLoop(); });
}

IgtlServer::~IgtlServer() {
    stop_.store(true);
    acceptThread_.join();
    // Taking each queue's lock after setting the flag makes sure no writer
    // misses it between testing its wait condition and going to sleep.
    for (auto& client : clients_) {
        { std::lock_guard<std::mutex> lock(client->mutex); }
        client->wake.notify_all();
    }
    for (auto& client : clients_) {
        client->writer.join();
        close(client->fd);
    }
    close(listenFd_);
}

void IgtlServer::broadcast(const Frame& frame) {
    std::lock_guard<std::mutex> lock(clientsMutex_);
    for (auto& client : clients_) {
        if (client->gone.load()) continue;
        {
            std::lock_guard<std::mutex> queueLock(client->mutex);
            if (client->queue.size() >= kQueuedFrames) client->queue.pop_front();
            client->queue.push_back(frame);
        }
        client->wake.notify_one();
    }
}

std::size_t IgtlServer::clientCount() const {
    std::lock_guard<std::mutex> lock(clientsMutex_);
    return clients_.size();
}

void IgtlServer::acceptLoop() {
    for (;;) {
        pollfd listening{listenFd_, POLLIN, 0};
        const bool ready = poll(&listening, 1, kPollMs) > 0;
        // Writers that end because the server stops have not lost a client.
        if (stop_.load()) return;
        if (ready) acceptOne();
        removeGoneClients();
    }
}

void IgtlServer::acceptOne() {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const int fd = accept4(listenFd_, reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC);
    if (fd < 0) {
        // Out of descriptors or a connection reset before it was taken:
        // wait a little rather than spin on a listening socket that stays
        // readable.
        std::this_thread::sleep_for(std::chrono::milliseconds(kPollMs));
        return;
    }
    // Each frame goes out at once rather than waiting to fill a segment, and
    // a small send buffer keeps what a slow client gets from going stale:
    // beyond it, its queue drops the oldest frames.
    const int on = 1;
    const int sendBuffer = 64 * 1024;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    auto client = std::make_unique<Client>();
    client->fd = fd;
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    client->peer = std::string(text) + ":" + std::to_string(ntohs(peer.sin_port));
    Client& added = *client;
    added.writer = std::thread([this, &added] { writeLoop(added); });
    std::size_t count = 0;
    {
        std::lock_guard<std::mutex> lock(clientsMutex_);
        clients_.push_back(std::move(client));
        count = clients_.size();
    }
    std::printf("Client %s connected (%zu connected)\n", added.peer.c_str(), count);
    std::fflush(stdout);
}

void IgtlServer::removeGoneClients() {
    std::vector<std::unique_ptr<Client>> gone;
    std::size_t count = 0;
    {
        std::lock_guard<std::mutex> lock(clientsMutex_);
        const auto firstGone = std::stable_partition(
            clients_.begin(), clients_.end(), [](const auto& c) { return !c->gone.load(); });
        std::move(firstGone, clients_.end(), std::back_inserter(gone));
        clients_.erase(firstGone, clients_.end());
        count = clients_.size();
    }
    for (auto& client : gone) {
        client->writer.join();
        close(client->fd);
        std::printf("Client %s left (%zu connected)\n", client->peer.c_str(), count);
        std::fflush(stdout);
    }
}

void IgtlServer::writeLoop(Client& client) {
    for (;;) {
        Frame frame;
        {
            std::unique_lock<std::mutex> lock(client.mutex);
            client.wake.wait(lock, [&] { return stop_.load() || !client.queue.empty(); });
            if (stop_.load()) break;
            frame = std::move(client.queue.front());
            client.queue.pop_front();
        }
        if (!sendAll(client.fd, *frame)) break;
    }
    client.gone.store(true);
}

// Writes the whole frame, waiting for room in bounded steps so that a
// stalled client still lets the server stop. MSG_NOSIGNAL: a client that
// has gone gives EPIPE here, never SIGPIPE.
bool IgtlServer::sendAll(int fd, const std::vector<std::uint8_t>& bytes) const {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        if (stop_.load()) return false;
        pollfd writable{fd, POLLOUT, 0};
        const int ready = poll(&writable, 1, kPollMs);
        if (ready < 0 && errno != EINTR) return false;
        if (ready <= 0) continue;
        if ((writable.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) return false;
        const ssize_t n =
            send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return false;
        if (n > 0) sent += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace vyx::cli
