// The network side of `vyx serve`: a listening TCP socket on one address and
// port, and a writer thread per client that sends it the frames the tracking
// loop hands over, each frame the packed bytes of its OpenIGTLink messages.
//
// The tracking loop never waits on a client: every client has a small queue
// of frames, and when a client reads too slowly to keep it from filling up,
// its oldest waiting frame is dropped (a frame being sent is always finished,
// so the stream stays whole). A client that has gone is closed and removed.
// Only its writer thread writes to a client's socket.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vyx::cli {

class IgtlServer {
public:
    using Frame = std::shared_ptr<const std::vector<std::uint8_t>>;
    // Frames a client may have waiting before its oldest is dropped.
    static constexpr std::size_t kQueuedFrames = 4;

    // Listens on `address` (dotted IPv4) and `port`, and starts accepting
    // clients on a thread of its own. Throws CommandError.
    IgtlServer(const std::string& address, unsigned short port);
    // Stops accepting, ends every writer thread (within a poll interval,
    // whatever the clients do) and closes the sockets.
    ~IgtlServer();
    IgtlServer(const IgtlServer&) = delete;
    IgtlServer& operator=(const IgtlServer&) = delete;

    // Queues the frame for every connected client.
    void broadcast(const Frame& frame);
    std::size_t clientCount() const;

private:
    struct Client;
    void acceptLoop();
    void acceptOne();
    void removeGoneClients();
    void writeLoop(Client& client);
    bool sendAll(int fd, const std::vector<std::uint8_t>& bytes) const;

    int listenFd_ = -1;
    std::atomic<bool> stop_{false};
    mutable std::mutex clientsMutex_;
    std::vector<std::unique_ptr<Client>> clients_;
    std::thread acceptThread_;
};

}  // namespace vyx::cli
