// A TCP client socket as the tracker links use it: connect with the device's
// quirks, bounded receive time-out, sends that never raise SIGPIPE.
#pragma once

#include "device/ByteLink.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace vyx::device {

class TcpSocket final : public ByteLink {
public:
    TcpSocket() = default;
    ~TcpSocket() override;
    TcpSocket(const TcpSocket&) = delete;
    TcpSocket& operator=(const TcpSocket&) = delete;

    // Creates a non-blocking socket and connects it to address:port. While
    // the connect is in progress it waits (up to one second per round) for
    // it to settle; any other outcome prints "connect error" and carries on,
    // as the device's own host software does, so that a failed connect shows
    // up as a failed configuration read. Then the socket is made blocking
    // with a receive time-out of receiveTimeoutMs. Returns false only when
    // the socket itself cannot be created or configured.
    bool connect(const std::string& address, std::uint16_t port, int receiveTimeoutMs);

    // One send of the whole buffer. Returns the bytes sent or -1. A closed
    // peer yields -1 (EPIPE), never a signal.
    long send(const std::uint8_t* data, std::size_t size) override;

    // One read of at most `size` bytes: > 0 bytes read, 0 peer closed, -1
    // time-out or error.
    long receive(std::uint8_t* data, std::size_t size) override;

    // Wakes a thread blocked in receive() (it returns 0) without releasing
    // the descriptor; safe from any thread.
    void shutdown() override;

    // Releases the descriptor. Not safe while another thread uses it.
    void close() override;

    bool isValid() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

}  // namespace vyx::device
