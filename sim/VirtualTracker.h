// The virtual tracker: the device side of the tracker's Ethernet link, or of
// its Wi-Fi module, served on a loopback TCP address so that hosts can be
// developed and tested without hardware.
//
// It listens on one address and port, serves one host connection at a time
// (a host that connects again replaces its old connection) and answers the
// commands a host sends in the framing chosen with setFraming() before
// start(): the Ethernet framing unless told otherwise.
//
// Ethernet framing:
//
//   0xF5 configuration prepare      no reply
//   0x0A configuration read         two 512-byte configuration blocks
//   0x1A long configuration read    7680 bytes, when the description has a long form
//   0xF8 model text read            20 bytes of model text, when enabled
//   0x0F marker and status request  one 4096-byte frame
//   0x0D trigger, 0x0C mode         one byte (the command code)
//   0xA4 / 0x04, 0xA8 / 0x08        next block of the left / right grey image
//   0xA1 / 0x01                     next half-block of the colour image
//   settings and system commands    no reply
//   anything else                   no reply
//
// Settings and system commands arrive as 10-byte packets and the mode command
// as 2 bytes; every command is recorded as the packet that arrived.
//
// Image blocks: a grey block is transfer unit x Ethernet grey count bytes, a
// colour half-block transfer unit x Ethernet colour count bytes (geometry
// words, with their zero defaults). A "first" request starts a new image at
// offset 0; each "next" request sends the following block, and the block that
// reaches the end of the image carries only the bytes that remain. A "next"
// request after the end starts the following image. Image contents are the
// pattern of ImagePattern.h.
//
// Wi-Fi framing (the tracker's wireless module):
//
//   0x0A configuration read         the 1032-byte configuration frame
//                                   (ConfigurationImage.h)
//   0xF8 model text read            20 bytes of model text, when enabled
//   0x0E marker request             one Wi-Fi marker frame (MarkerFrame.h)
//   0x0F status request             one 32-byte Wi-Fi status frame (MarkerFrame.h)
//   settings and system commands    no reply
//   anything else                   no reply
//
// Every command arrives at its own length: collision level (0x23) 2 bytes,
// dual exposure (0x62) and dual gain (0xF7) 5, colour exposure (0x5A) 3,
// device IP (0x90) 7, everything else 1. The commands the module does not
// carry (trigger, mode, flash delay, LCD, marker parameters, image requests,
// configuration prepare, long configuration read) are recorded as their code
// byte and get no reply. The 0x0E requests are the marker requests: they take
// frames from the frame source and are counted by markerRequests(). A status
// request is not a marker request: it reports the status fields of the frame
// the last marker request got, or, before the first (and after a new frame or
// source was set), of the frame the next marker request will get, without
// counting a request.
//
// A description with recorded replies (DeviceDescription.h) and frames with
// recorded bytes (MarkerFrame.h) are served byte for byte as recorded, in
// either framing: Replay.h plays a recording so.
//
// All public members are thread-safe. The server thread calls the frame
// source and the event sink.
#pragma once

#include "sim/CommandFraming.h"
#include "sim/DeviceCore.h"
#include "sim/DeviceDescription.h"
#include "sim/ImagePattern.h"
#include "sim/MarkerFrame.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vyx::sim {

constexpr std::uint16_t kDefaultPort = 7;
// The Wi-Fi module's port.
constexpr std::uint16_t kDefaultWifiPort = 8899;

// The command log keeps at most this many commands, dropping the oldest.
constexpr std::size_t kCommandLogLimit = 100000;

// True for a dotted IPv4 address in 127.0.0.0/8.
bool isLoopbackAddress(const std::string& address);

class VirtualTracker {
public:
    // Makes the frame for marker request `requestIndex` (0 for the first
    // request since the tracker was created), or for the frame period with a
    // frame rate (setFrameRate()).
    using FrameSource = DeviceCore::FrameSource;
    // Receives one line of text per connection event.
    using EventSink = std::function<void(const std::string& event)>;

    // Serves nothing until start(). Throws std::system_error when the
    // process is out of file descriptors.
    explicit VirtualTracker(DeviceDescription description = defaultDescription());
    ~VirtualTracker();  // stops the tracker
    VirtualTracker(const VirtualTracker&) = delete;
    VirtualTracker& operator=(const VirtualTracker&) = delete;

    // Binds the address and port (with SO_REUSEADDR) and starts serving.
    // Port 0 takes a free port, which port() then tells. Throws
    // std::invalid_argument for an address outside 127.0.0.0/8,
    // std::system_error when the socket cannot be set up, and
    // std::logic_error when the tracker is already running.
    void start(const std::string& address = "127.0.0.1", std::uint16_t port = kDefaultPort);
    // Closes the host connection and the listening socket and joins the
    // server thread, within about 100 ms unless a frame source blocks or a
    // reply delay (FaultSettings) holds an answer back. Idempotent. The
    // tracker can be started again afterwards.
    void stop() noexcept;
    bool isRunning() const;
    // The framing served from the next start() on: Ethernet or Wi-Fi (USB
    // is served by VirtualUsbTracker of UsbTracker.h and throws
    // std::invalid_argument here). Throws std::logic_error while the tracker
    // is running.
    void setFraming(LinkFraming framing);
    LinkFraming framing() const;
    // The bound port while running, else 0.
    std::uint16_t port() const;

    DeviceDescription description() const;
    // Takes effect from the next command; images being served keep their
    // position.
    void setDescription(const DeviceDescription& description);

    // Every marker request gets this frame, unchanged.
    void setMarkerFrame(const MarkerFrame& frame);
    // Every marker request gets the source's frame (sceneFrameSource() of
    // Scene.h plays a scene); an empty source restores the built-in scene
    // (sceneFrame() of MarkerScene.h), whose frame counter advances by one
    // per request. A source that throws gets the request left unanswered.
    void setMarkerFrameSource(FrameSource source);
    // Marker requests received so far, answered or not: the index the next
    // request will get.
    std::uint64_t markerRequests() const;
    // Makes `hz` frames a second, as a device does (20 to 400 on a real one):
    // from this call on, the frame source is asked for frame period
    // floor(elapsed seconds x hz) instead of the request index, and a request
    // within the period of the previous one gets that same frame again (same
    // bytes, same frame id) without asking the source. 0, the default, gives
    // every request its own frame. Throws std::invalid_argument for a
    // negative or non-finite rate. DeviceCore::setFrameRate takes a clock.
    void setFrameRate(double hz);

    // FaultSettings (DeviceCore.h) tells which faults apply to which framing.
    void setFaults(const FaultSettings& faults);
    FaultSettings faults() const;
    // Closes the host connection now (resets it under
    // FaultSettings::resetOnClose); the tracker goes on listening.
    void dropConnection();

    // Every command received, oldest first, each as the packet that arrived
    // (1, 2 or 10 bytes on Ethernet, 1 to 7 on Wi-Fi; a packet whose rest did
    // not arrive within 500 ms, or before the host disconnected, as far as it
    // came).
    std::vector<std::vector<std::uint8_t>> commands() const;
    void clearCommands();
    // Waits until the log holds at least `count` commands; false on timeout.
    bool waitForCommands(std::size_t count, std::chrono::milliseconds timeout) const;

    // Host connections accepted since the tracker was created.
    std::size_t connectionsAccepted() const;
    bool isHostConnected() const;
    // Waits until at least `count` connections have been accepted.
    bool waitForConnections(std::size_t count, std::chrono::milliseconds timeout) const;

    void setEventSink(EventSink sink);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vyx::sim
