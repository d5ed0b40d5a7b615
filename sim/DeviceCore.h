// The virtual tracker's device side without its link: the settings it is
// given (description, marker frames, faults) and the device behaviour behind
// every reply (marker frames from the frame source and the request count, the
// status of the last frame, configuration, model text, image transfers, the
// faults). answerCommand() of LinkReplies.h puts this into the wire form of
// the link's framing; VirtualTracker carries it over TCP.
#pragma once

#include "sim/CommandFraming.h"
#include "sim/DeviceDescription.h"
#include "sim/ImagePattern.h"
#include "sim/MarkerFrame.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vyx::sim {

class SceneRenderer;

// Faults the tracker shows on purpose. They may be changed at any time and
// apply from the next command on. "Marker frame" means the 4096-byte frame on
// Ethernet and the Wi-Fi marker frame (the answer to 0x0E) on Wi-Fi.
struct FaultSettings {
    // Close the host connection once this many further marker frames have
    // been sent (0: at the next marker request, which is not answered). The
    // value counts down as frames go out, over reconnections too, and clears
    // itself once it has closed a connection, so a host that reconnects
    // afterwards is served normally. Wi-Fi status frames do not count.
    std::optional<std::size_t> closeAfterMarkerFrames;
    // Go on reading and recording commands but answer none; the connection
    // stays open. Both framings.
    bool stopAnswering = false;
    // Marker frames end in 0xFE 0xFE instead of 0xFF 0xFE (on Wi-Fi: the
    // closing word or the trailer).
    bool corruptEndMark = false;
    // Send only the first this-many bytes of each marker frame, and nothing
    // more for that request. Both framings.
    std::optional<std::size_t> shortMarkerFrameBytes;
    // The stored checksum of configuration block 1 or 2 is wrong (in the
    // short and the long form and in the Wi-Fi configuration frame alike).
    bool badChecksumBlock1 = false;
    bool badChecksumBlock2 = false;
    // The configuration read is answered with block 1 only (on Wi-Fi: the
    // frame up to the end of block 1, 516 bytes).
    bool omitSecondConfigBlock = false;
    // The long configuration request gets no reply (Ethernet only; the Wi-Fi
    // module does not carry it).
    bool noLongForm = false;
    // The model text request gets no reply. Both framings.
    bool noModelTextReply = false;
    // Wi-Fi only: marker frames announce this total length in their header
    // (e.g. 3600, more than a host takes) and go on with their normal payload.
    std::optional<std::uint16_t> wifiAnnouncedLength;
    // Wi-Fi only: status frames end in 0xFE 0xFE instead of 0xFF 0xFE.
    bool badWifiStatusFrame = false;
    // Leave this many further configuration reads (0x0A) unanswered. The
    // value counts down with each read left unanswered and clears itself at
    // zero, so the read after them is answered again. Every framing.
    std::optional<std::size_t> unansweredConfigReads;
};

class DeviceCore {
public:
    // Makes the frame for marker request `requestIndex` (0 for the first
    // request since the tracker was created).
    using FrameSource = std::function<MarkerFrame(std::uint64_t requestIndex)>;

    // The link a reply goes out on, as the device sees it.
    class Link {
    public:
        // Sends everything; false when the connection is gone.
        virtual bool send(const std::uint8_t* data, std::size_t size) = 0;
        virtual void close(const char* reason) = 0;
        // One line of text about something that went wrong.
        virtual void report(const std::string& event) = 0;

    protected:
        ~Link() = default;
    };

    explicit DeviceCore(DeviceDescription description);
    ~DeviceCore();
    DeviceCore(const DeviceCore&) = delete;
    DeviceCore& operator=(const DeviceCore&) = delete;

    // ---- Settings; thread-safe ---------------------------------------------
    std::shared_ptr<const DeviceDescription> description() const;
    void setDescription(const DeviceDescription& description);
    // Setting a frame or a source forgets the last frame served (see status()).
    void setMarkerFrame(const MarkerFrame& frame);
    void setMarkerFrameSource(FrameSource source);
    std::uint64_t markerRequests() const;
    void setFaults(const FaultSettings& faults);
    FaultSettings faults() const;

    // ---- Device behaviour; the serving thread only -------------------------
    // A new connection: image transfers start over.
    void connectionOpened();
    // A marker request: counts it and returns its frame, kept for status();
    // nothing when the close-after-frames fault closed the link at this
    // request or the frame source threw.
    std::optional<MarkerFrame> takeMarkerFrame(Link& link);
    // Sends the first `size` bytes of a marker frame's wire form, counting
    // the frame down for the close-after-frames fault, and closes the link
    // when the count runs out with it.
    void sendMarkerFrame(Link& link, const std::uint8_t* data, std::size_t size);
    // The status of the frame the last marker request got, or, before any
    // (or after a new frame or source was set), of the frame the next request
    // would get, without counting a request. Nothing when the source throws.
    std::optional<StatusFields> status(Link& link);
    // True when the unanswered-configuration-reads fault takes this read,
    // which it then counts down.
    bool leaveConfigReadUnanswered();
    // Sends the next block of a camera's image in the block size of the
    // framing: on Ethernet a grey block or a colour half-block, on USB a USB
    // grey or colour block.
    void sendImageBlock(Link& link, ImageCamera camera, bool first,
                        LinkFraming framing = LinkFraming::Ethernet);

private:
    // Where a camera's image transfer stands. The image counter lives as long
    // as the tracker; the position starts over with each connection.
    struct ImageStream {
        std::uint32_t nextImage = 0;
        std::uint32_t currentImage = 0;
        std::size_t offset = 0;
        bool active = false;
    };

    std::optional<MarkerFrame> frameFor(std::uint64_t index, Link& link);
    MarkerFrame builtInFrame(const std::shared_ptr<const DeviceDescription>& d,
                             std::uint64_t index);

    mutable std::mutex mutex_;  // guards the settings and lastFrame_
    std::shared_ptr<const DeviceDescription> description_;
    std::optional<MarkerFrame> fixedFrame_;
    FrameSource frameSource_;
    FaultSettings faults_;
    std::optional<MarkerFrame> lastFrame_;
    std::atomic<std::uint64_t> markerRequestCount_{0};

    // Serving thread only.
    std::array<ImageStream, 3> images_;
    // The built-in scene and the description its camera model was built for.
    std::shared_ptr<const DeviceDescription> builtInDescription_;
    std::unique_ptr<SceneRenderer> builtInRenderer_;
};

}  // namespace vyx::sim
