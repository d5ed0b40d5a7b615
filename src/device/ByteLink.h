// The seam under every tracker link: how bytes move, whatever carries them (a
// TCP socket for Ethernet and Wi-Fi, bulk transfers for USB). Opening is each
// transport's own; once open, the links' read loops, frame reads and receiver
// threads see only this.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyx::device {

class ByteLink {
public:
    virtual ~ByteLink() = default;

    // One write of the whole buffer: the bytes written, or -1. Never raises
    // a signal when the peer has gone.
    virtual long send(const std::uint8_t* data, std::size_t size) = 0;

    // One read of at most `size` bytes, bounded by the link's time-out: > 0
    // bytes read, 0 the peer closed (or shutdown() was called), -1 time-out
    // or error.
    virtual long receive(std::uint8_t* data, std::size_t size) = 0;

    // Wakes a thread blocked in receive() without releasing the link; safe
    // from any thread.
    virtual void shutdown() = 0;

    // Releases the link. Not safe while another thread uses it.
    virtual void close() = 0;
};

}  // namespace vyx::device
