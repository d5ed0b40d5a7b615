#include "sim/Replay.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <utility>

namespace vyx::sim {

using device::RecordType;

struct Replay::Playback {
    Playback(ReplayOptions o, std::shared_ptr<const std::vector<Frame>> f)
        : options(std::move(o)), frames(std::move(f)) {
        if (!options.clock) options.clock = [] { return std::chrono::steady_clock::now(); };
        // One round: the recording and one mean frame period after it.
        const double last = frames->back().offsetNs;
        const std::size_t n = frames->size();
        roundNs = n > 1 ? last * static_cast<double>(n) / static_cast<double>(n - 1) : 0.0;
    }

    // Where the call for `index` stands: round x frame count + frame. The
    // caller holds the mutex.
    std::uint64_t position(std::uint64_t index) {
        const std::uint64_t n = frames->size();
        if (!started) {
            started = true;
            firstIndex = index;
            start = options.clock();
        }
        if (options.speed == 0.0) {
            const std::uint64_t step = index > firstIndex ? index - firstIndex : 0;
            return options.loop ? step : std::min(step, n - 1);
        }
        // Capped at about 30 years, so that the round count stays exact.
        double played = std::chrono::duration<double, std::nano>(options.clock() - start).count() *
                        options.speed;
        played = std::clamp(played, 0.0, 1e18);
        double round = 0.0;
        if (options.loop && roundNs > 0.0) {
            round = std::floor(played / roundNs);
            played -= round * roundNs;
        }
        const auto after =
            std::upper_bound(frames->begin(), frames->end(), played,
                             [](double t, const Frame& frame) { return t < frame.offsetNs; });
        const auto frame =
            static_cast<std::uint64_t>(std::max<std::ptrdiff_t>(after - frames->begin() - 1, 0));
        return static_cast<std::uint64_t>(round) * n + frame;
    }

    ReplayOptions options;
    std::shared_ptr<const std::vector<Frame>> frames;
    double roundNs = 0.0;

    std::mutex mutex;  // guards the playback position below
    bool started = false;
    std::uint64_t firstIndex = 0;
    std::chrono::steady_clock::time_point start;
    std::optional<std::uint64_t> lastPosition;

    // Read by the caller while the tracker's thread serves.
    std::atomic<std::uint64_t> served{0};
    std::atomic<bool> playedOut{false};
};

Replay::Replay(const std::string& path) : recording_(device::readRecording(path)) {
    auto replies = std::make_shared<RecordedReplies>();
    bool haveConfiguration = false;
    std::vector<std::vector<std::uint8_t>> markerFrames, statusFrames;
    std::vector<std::uint64_t> times;
    std::vector<std::size_t> statusFramesBefore;  // per marker frame
    std::uint64_t end = device::kRecordingHeaderBytes;
    for (device::RecordingRecord& record : recording_.records) {
        end += device::kRecordHeadBytes + record.payload.size() + device::kRecordCrcBytes;
        auto payload = std::exchange(record.payload, {});
        switch (record.type) {
            case RecordType::ConfigurationReply:
                if (!haveConfiguration) replies->configuration = std::move(payload);
                haveConfiguration = true;
                break;
            case RecordType::LongConfigurationReply:
                if (!replies->longForm) replies->longForm = std::move(payload);
                break;
            case RecordType::ModelTextReply:
                if (!replies->modelText) replies->modelText = std::move(payload);
                break;
            case RecordType::MarkerFrame:
                markerFrames.push_back(std::move(payload));
                times.push_back(record.timeNs);
                statusFramesBefore.push_back(statusFrames.size());
                break;
            case RecordType::WifiStatusFrame:
                statusFrames.push_back(std::move(payload));
                break;
            case RecordType::End:
                break;
        }
    }
    if (markerFrames.empty() || !haveConfiguration)
        throw device::RecordingError(
            path + ": no " + (haveConfiguration ? "marker frames" : "configuration reply") +
                " to replay",
            end);

    std::vector<Frame> frames;
    double offset = 0.0;
    for (std::size_t i = 0; i < markerFrames.size(); ++i) {
        auto bytes = std::make_shared<RecordedFrame>();
        bytes->markerFrame = std::move(markerFrames[i]);
        if (framing() == LinkFraming::WiFi && !statusFrames.empty())
            bytes->wifiStatusFrame =
                statusFrames[std::max<std::size_t>(statusFramesBefore[i], 1) - 1];
        // Times that go back (which a monotonic clock does not make) are held.
        if (times[i] > times[0])
            offset = std::max(offset, static_cast<double>(times[i] - times[0]));
        frames.push_back({offset, std::move(bytes)});
    }
    replies_ = std::move(replies);
    frames_ = std::make_shared<const std::vector<Frame>>(std::move(frames));
}

LinkFraming Replay::framing() const {
    return recording_.link == 2 ? LinkFraming::WiFi : LinkFraming::Ethernet;
}

DeviceDescription Replay::description() const {
    DeviceDescription description = defaultDescription();
    description.recordedReplies = replies_;
    return description;
}

std::size_t Replay::frameCount() const { return frames_->size(); }

double Replay::durationSeconds() const { return frames_->back().offsetNs / 1e9; }

const device::Recording& Replay::recording() const { return recording_; }

VirtualTracker::FrameSource Replay::frameSource(ReplayOptions options) {
    if (!std::isfinite(options.speed) || options.speed < 0.0)
        throw std::invalid_argument("replay speed must be zero or a positive finite number");
    auto playback = std::make_shared<Playback>(std::move(options), frames_);
    {
        std::lock_guard<std::mutex> lock(mutex_);
        playback_ = playback;
    }
    return [playback](std::uint64_t index) {
        const std::vector<Frame>& frames = *playback->frames;
        std::uint64_t position = 0;
        {
            std::lock_guard<std::mutex> lock(playback->mutex);
            position = playback->position(index);
            if (playback->lastPosition != position) {
                playback->lastPosition = position;
                ++playback->served;
            }
        }
        const std::size_t frame = static_cast<std::size_t>(position % frames.size());
        if (!playback->options.loop && frame + 1 == frames.size()) playback->playedOut = true;
        MarkerFrame served;
        served.recorded = frames[frame].bytes;
        return served;
    };
}

bool Replay::playedOut() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return playback_ && playback_->playedOut;
}

std::uint64_t Replay::framesServed() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return playback_ ? playback_->served.load() : 0;
}

}  // namespace vyx::sim
