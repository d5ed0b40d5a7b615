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
#include <chrono>
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
//
// Recorded bytes (DeviceDescription::recordedReplies, MarkerFrame::recorded)
// are sent as recorded, with these faults still applied: close-after,
// stop-answering, corrupt end mark (the last two bytes), short frame, the
// Wi-Fi announced length (bytes 2-3), the bad Wi-Fi status frame, omitting
// the second configuration block (the reply cut to 512 bytes wired, 516 on
// Wi-Fi), no long form, no model text and unanswered configuration reads.
// The checksum faults do not apply to a recorded configuration.
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
    // TCP only: whenever the tracker closes the host connection itself
    // (closeAfterMarkerFrames, VirtualTracker::dropConnection()), it resets
    // it (RST) instead of closing it in order, so that the host's next read
    // fails with ECONNRESET and its writes with EPIPE.
    bool resetOnClose = false;
    // USB only: the IN endpoint is halted. Every IN transfer ends with a
    // stall (-EPIPE, libusb's LIBUSB_ERROR_PIPE) and no data until the host
    // clears the halt (CLEAR_HALT on 0x81), which clears this fault; reply
    // bytes queued before stay queued.
    bool stallUsbIn = false;
    // Each command is answered only this long after it arrived, so that its
    // reply reaches a host that has already given up on it. The tracker
    // serves commands in order: those behind it wait as well. Every framing.
    std::chrono::milliseconds replyDelay{0};
};

class DeviceCore {
public:
    // Makes the frame for marker request `requestIndex` (0 for the first
    // request since the tracker was created), or, with a frame rate, for
    // frame period `requestIndex` (see setFrameRate()).
    using FrameSource = std::function<MarkerFrame(std::uint64_t requestIndex)>;
    // The time the frame rate is measured in; empty: the steady clock.
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

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
    // Setting a frame or a source forgets the last frame served (see statusFrame()).
    void setMarkerFrame(const MarkerFrame& frame);
    void setMarkerFrameSource(FrameSource source);
    std::uint64_t markerRequests() const;
    // Paces the frames as a device making `hz` frames a second: the index
    // handed to the frame source is the number of whole frame periods since
    // this call (floor(elapsed x hz) on `clock`), and a marker request in the
    // same period as the previous one gets the very same frame again without
    // calling the source. markerRequests() still counts every request. 0 (the
    // default) gives each request the frame for its request index. Forgets
    // the last frame served. Throws std::invalid_argument for a negative or
    // non-finite rate.
    void setFrameRate(double hz, Clock clock = {});
    void setFaults(const FaultSettings& faults);
    FaultSettings faults() const;

    // ---- Device behaviour; the serving thread only -------------------------
    // A new connection: image transfers start over.
    void connectionOpened();
    // A marker request: counts it and returns its frame, kept for statusFrame();
    // nothing when the close-after-frames fault closed the link at this
    // request or the frame source threw.
    std::optional<MarkerFrame> takeMarkerFrame(Link& link);
    // Sends the first `size` bytes of a marker frame's wire form, counting
    // the frame down for the close-after-frames fault, and closes the link
    // when the count runs out with it.
    void sendMarkerFrame(Link& link, const std::uint8_t* data, std::size_t size);
    // The frame whose status a status request reports: the frame the last
    // marker request got, or, before any (or after a new frame, source or
    // rate was set), the frame the next request would get, without counting
    // a request. Nothing when the source throws.
    std::optional<MarkerFrame> statusFrame(Link& link);
    // True when the unanswered-configuration-reads fault takes this read,
    // which it then counts down.
    bool leaveConfigReadUnanswered();
    // The host cleared the IN endpoint's halt: the USB stall fault ends.
    void clearInHalt();
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

    // The frame period the clock is in; nothing without a frame rate.
    std::optional<std::uint64_t> framePeriod() const;
    std::optional<MarkerFrame> frameFor(std::uint64_t index, Link& link);
    MarkerFrame builtInFrame(const std::shared_ptr<const DeviceDescription>& d,
                             std::uint64_t index);

    mutable std::mutex mutex_;  // guards the settings and the last frame
    std::shared_ptr<const DeviceDescription> description_;
    std::optional<MarkerFrame> fixedFrame_;
    FrameSource frameSource_;
    FaultSettings faults_;
    double frameRateHz_ = 0.0;
    Clock clock_;
    std::chrono::steady_clock::time_point pacingStart_;
    std::optional<MarkerFrame> lastFrame_;
    // The frame period lastFrame_ was made for, when paced.
    std::optional<std::uint64_t> lastFramePeriod_;
    std::atomic<std::uint64_t> markerRequestCount_{0};

    // Serving thread only.
    std::array<ImageStream, 3> images_;
    // The built-in scene and the description its camera model was built for.
    std::shared_ptr<const DeviceDescription> builtInDescription_;
    std::unique_ptr<SceneRenderer> builtInRenderer_;
};

}  // namespace vyx::sim
