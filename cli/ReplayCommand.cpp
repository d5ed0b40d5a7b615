// vyx replay: a recording served as a tracker on a loopback address, so that
// vyx or any host application can connect to it as to the device.
#include "cli/Commands.h"
#include "sim/Replay.h"

#include <cstdio>

namespace vyx::cli {

int runReplay(const ReplayOptions& options) {
    if (!vyx::sim::isLoopbackAddress(options.address))
        throw CommandError("a replay serves on loopback only: give a 127.x.x.x address");
    std::unique_ptr<vyx::sim::Replay> replay;
    try {
        replay = std::make_unique<vyx::sim::Replay>(options.file);
    } catch (const std::exception& e) {
        throw CommandError(std::string(e.what()) + "; the file cannot be replayed");
    }
    const auto& recording = replay->recording();
    if (recording.truncatedAt)
        std::printf("Warning: %s is cut short at byte offset %llu; replaying the %zu whole frames before it\n",
                    options.file.c_str(), static_cast<unsigned long long>(*recording.truncatedAt),
                    replay->frameCount());
    else if (!recording.finishedCleanly)
        std::printf("Warning: %s has no end record (the recording did not finish cleanly)\n",
                    options.file.c_str());
    if (recording.framesDropped > 0)
        std::printf("Note: %llu frames were dropped while recording\n",
                    static_cast<unsigned long long>(recording.framesDropped));

    const bool wifi = replay->framing() == vyx::sim::LinkFraming::WiFi;
    vyx::sim::VirtualTracker tracker(replay->description());
    tracker.setFraming(replay->framing());
    vyx::sim::ReplayOptions playback;
    playback.speed = options.speed;
    playback.loop = options.loop;
    tracker.setMarkerFrameSource(replay->frameSource(playback));
    try {
        tracker.start(options.address, options.port);
    } catch (const std::exception& e) {
        throw CommandError("cannot serve on " + options.address + ":" +
                           std::to_string(options.port) + ": " + e.what());
    }
    const char* links[] = {"USB", "Ethernet", "Wi-Fi"};
    std::printf("Replaying %s (%s, %zu frames, %.1f s%s) on %s:%u\n", options.file.c_str(),
                links[recording.link], replay->frameCount(), replay->durationSeconds(),
                options.loop ? ", looping" : "", options.address.c_str(),
                static_cast<unsigned>(tracker.port()));
    std::printf("Connect with: vyx track --%s %s:%u\n", wifi ? "wifi" : "ethernet",
                options.address.c_str(), static_cast<unsigned>(tracker.port()));
    std::fflush(stdout);

    // Played out and the host gone: the replay is over.
    const std::string why = serveUntil(options.seconds, [&] {
        return replay->playedOut() && !tracker.isHostConnected();
    });
    tracker.stop();
    std::printf("Stopped (%s) after serving %llu frames to %zu connections\n",
                why == "done" ? "played out" : why.c_str(),
                static_cast<unsigned long long>(replay->framesServed()),
                tracker.connectionsAccepted());
    return 0;
}

}  // namespace vyx::cli
