// Playing a recording (src/device/RecordingFormat.h) back as a device: the
// virtual tracker answers the configuration reads with the recorded replies
// and marker requests with the recorded frames, byte for byte, at the pace
// they arrived or as fast as the host asks.
//
//     Replay replay("session.vyxrec");
//     VirtualTracker tracker(replay.description());
//     tracker.setFraming(replay.framing());
//     tracker.setMarkerFrameSource(replay.frameSource({}));
//     tracker.start("127.0.0.1", 17000);
//
// The tracker itself stays unpaced (no VirtualTracker::setFrameRate): the
// source keeps the recording's own time. A USB recording is served on the
// Ethernet framing, whose frames and configuration replies are the same.
#pragma once

#include "sim/CommandFraming.h"
#include "sim/DeviceCore.h"
#include "sim/DeviceDescription.h"
#include "sim/MarkerFrame.h"
#include "sim/VirtualTracker.h"
#include "src/device/RecordingFormat.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace vyx::sim {

struct ReplayOptions {
    // Recorded seconds played per second (2: twice as fast); 0: unpaced, the
    // next recorded frame for each new request index.
    double speed = 1.0;
    // Start over after the last frame instead of holding it.
    bool loop = false;
    // The time paced playback follows; empty: the steady clock.
    DeviceCore::Clock clock;
};

class Replay {
public:
    // Reads the recording. Throws device::RecordingError for a file
    // readRecording() refuses, and for a recording without marker frames.
    explicit Replay(const std::string& path);
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    // Ethernet for USB and Ethernet recordings, Wi-Fi for Wi-Fi ones.
    LinkFraming framing() const;
    // defaultDescription() answering with the recorded configuration, long
    // form and model text (a reply the file lacks is not answered). Images
    // are served at the default description's sizes.
    DeviceDescription description() const;
    std::size_t frameCount() const;
    // From the first to the last frame's arrival.
    double durationSeconds() const;
    // The file's header facts, truncatedAt, finishedCleanly and the End
    // record's counts. Its records keep their types and times; their
    // payloads have moved into the replay.
    const device::Recording& recording() const;

    // A source for VirtualTracker::setMarkerFrameSource; each call starts a
    // playback of its own, which playedOut() and framesServed() then report.
    // Paced (speed > 0), the clock starts at the source's first call (the
    // host's first marker request, or on Wi-Fi a status request before it)
    // and each call serves the last frame that had arrived speed x elapsed
    // after the first frame; after the last frame that frame stays, or, when
    // looping, playback starts over one mean frame period after it.
    // Unpaced, index i serves frame i - i0, i0 the index of the first call,
    // so that the same index (the Wi-Fi status peek and the request after it)
    // gets the same frame; past the end the last frame stays, or, when
    // looping, frame (i - i0) modulo the frame count. On Wi-Fi a frame
    // carries the last status frame recorded before it (the file's first
    // one when none came before) for the status request. Throws
    // std::invalid_argument for a negative or non-finite speed.
    VirtualTracker::FrameSource frameSource(ReplayOptions options);
    // Not looping, and the last frame has been served.
    bool playedOut() const;
    // Frames served so far, a frame served again for requests in its own
    // time counted once (when looping, once per round).
    std::uint64_t framesServed() const;

private:
    struct Frame {
        double offsetNs = 0.0;  // after the first frame, never decreasing
        std::shared_ptr<const RecordedFrame> bytes;
    };
    struct Playback;

    device::Recording recording_;
    std::shared_ptr<const RecordedReplies> replies_;
    std::shared_ptr<const std::vector<Frame>> frames_;
    mutable std::mutex mutex_;  // guards playback_
    std::shared_ptr<const Playback> playback_;
};

}  // namespace vyx::sim
