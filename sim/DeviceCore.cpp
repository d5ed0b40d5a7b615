#include "sim/DeviceCore.h"

#include "sim/MarkerScene.h"
#include "sim/Scene.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <stdexcept>
#include <vector>

namespace vyx::sim {
namespace {

// Images are generated and sent in pieces of this size.
constexpr std::size_t kImageChunkBytes = 64 * 1024;

}  // namespace

DeviceCore::DeviceCore(DeviceDescription description)
    : description_(std::make_shared<const DeviceDescription>(std::move(description))) {}

DeviceCore::~DeviceCore() = default;

std::shared_ptr<const DeviceDescription> DeviceCore::description() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return description_;
}

void DeviceCore::setDescription(const DeviceDescription& description) {
    auto copy = std::make_shared<const DeviceDescription>(description);
    std::lock_guard<std::mutex> lock(mutex_);
    description_ = std::move(copy);
}

void DeviceCore::setMarkerFrame(const MarkerFrame& frame) {
    std::lock_guard<std::mutex> lock(mutex_);
    fixedFrame_ = frame;
    frameSource_ = nullptr;
    lastFrame_.reset();
    lastFramePeriod_.reset();
}

void DeviceCore::setMarkerFrameSource(FrameSource source) {
    std::lock_guard<std::mutex> lock(mutex_);
    fixedFrame_.reset();
    frameSource_ = std::move(source);
    lastFrame_.reset();
    lastFramePeriod_.reset();
}

std::uint64_t DeviceCore::markerRequests() const { return markerRequestCount_.load(); }

void DeviceCore::setFrameRate(double hz, Clock clock) {
    if (!std::isfinite(hz) || hz < 0.0)
        throw std::invalid_argument("frame rate must be zero or a positive finite number");
    if (!clock) clock = [] { return std::chrono::steady_clock::now(); };
    const auto start = clock();
    std::lock_guard<std::mutex> lock(mutex_);
    frameRateHz_ = hz;
    clock_ = std::move(clock);
    pacingStart_ = start;
    lastFrame_.reset();
    lastFramePeriod_.reset();
}

std::optional<std::uint64_t> DeviceCore::framePeriod() const {
    double hz = 0.0;
    Clock clock;
    std::chrono::steady_clock::time_point start;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        hz = frameRateHz_;
        clock = clock_;
        start = pacingStart_;
    }
    if (hz <= 0.0) return std::nullopt;
    // The clock is called outside the lock: it is the caller's code.
    const double periods =
        std::floor(std::chrono::duration<double>(clock() - start).count() * hz);
    // A clock that went back stays in period 0; one absurdly far ahead stops
    // at a period that still fits.
    if (!(periods > 0.0)) return std::uint64_t{0};
    return static_cast<std::uint64_t>(std::min(periods, 9.0e18));
}

void DeviceCore::setFaults(const FaultSettings& faults) {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_ = faults;
}

FaultSettings DeviceCore::faults() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return faults_;
}

void DeviceCore::connectionOpened() {
    for (ImageStream& stream : images_) stream.active = false;
}

std::optional<MarkerFrame> DeviceCore::takeMarkerFrame(Link& link) {
    const std::uint64_t index = markerRequestCount_.fetch_add(1);
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (faults_.closeAfterMarkerFrames == std::size_t{0}) {
            faults_.closeAfterMarkerFrames.reset();
            lock.unlock();
            link.close("closed by fault after the requested marker frames");
            return std::nullopt;
        }
    }
    const auto period = framePeriod();
    if (period) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (lastFrame_ && lastFramePeriod_ == period) return lastFrame_;
    }
    auto frame = frameFor(period.value_or(index), link);
    if (frame) {
        std::lock_guard<std::mutex> lock(mutex_);
        lastFrame_ = frame;
        lastFramePeriod_ = period;
    }
    return frame;
}

void DeviceCore::sendMarkerFrame(Link& link, const std::uint8_t* data, std::size_t size) {
    // Count the frame down before it goes out, so that a host holding the
    // frame sees the count that already includes it.
    bool closeAfterSending = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto& remaining = faults_.closeAfterMarkerFrames;
        if (remaining && *remaining > 0 && --*remaining == 0) {
            remaining.reset();
            closeAfterSending = true;
        }
    }
    if (link.send(data, size) && closeAfterSending)
        link.close("closed by fault after the requested marker frames");
}

std::optional<MarkerFrame> DeviceCore::statusFrame(Link& link) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (lastFrame_) return lastFrame_;
    }
    return frameFor(framePeriod().value_or(markerRequestCount_.load()), link);
}

std::optional<MarkerFrame> DeviceCore::frameFor(std::uint64_t index, Link& link) {
    std::optional<MarkerFrame> fixed;
    FrameSource source;
    std::shared_ptr<const DeviceDescription> d;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        fixed = fixedFrame_;
        source = frameSource_;
        d = description_;
    }
    try {
        return fixed ? *fixed : source ? source(index) : builtInFrame(d, index);
    } catch (const std::exception& e) {
        link.report(std::string("frame source failed: ") + e.what());
        return std::nullopt;
    }
}

MarkerFrame DeviceCore::builtInFrame(const std::shared_ptr<const DeviceDescription>& d,
                                     std::uint64_t index) {
    if (!builtInRenderer_ || builtInDescription_ != d) {
        builtInRenderer_ = std::make_unique<SceneRenderer>(*d, builtInScene());
        builtInDescription_ = d;
    }
    return builtInRenderer_->frame(index, static_cast<std::uint32_t>(index + 1));
}

bool DeviceCore::leaveConfigReadUnanswered() {
    std::lock_guard<std::mutex> lock(mutex_);
    auto& remaining = faults_.unansweredConfigReads;
    if (!remaining) return false;
    const bool unanswered = *remaining > 0;
    if (!unanswered || --*remaining == 0) remaining.reset();
    return unanswered;
}

void DeviceCore::clearInHalt() {
    std::lock_guard<std::mutex> lock(mutex_);
    faults_.stallUsbIn = false;
}

void DeviceCore::sendImageBlock(Link& link, ImageCamera camera, bool first,
                                LinkFraming framing) {
    const auto d = description();
    const bool colour = camera == ImageCamera::Colour;
    const bool usb = framing == LinkFraming::Usb;
    const std::size_t imageBytes = colour ? d->colourImageBytes : d->greyImageBytes;
    const GeometryWords& g = d->geometry;
    const std::size_t blockBytes =
        colour ? (usb ? usbColourBlockBytes(g) : ethernetColourHalfBlockBytes(g))
               : (usb ? usbGreyBlockBytes(g) : ethernetGreyBlockBytes(g));
    if (imageBytes == 0) return;

    ImageStream& stream = images_[static_cast<std::size_t>(camera)];
    if (first || !stream.active || stream.offset >= imageBytes) {
        stream.currentImage = stream.nextImage++;
        stream.offset = 0;
        stream.active = true;
    }
    const std::size_t size = std::min(blockBytes, imageBytes - stream.offset);
    std::vector<std::uint8_t> chunk(std::min(size, kImageChunkBytes));
    for (std::size_t sent = 0; sent < size;) {
        const std::size_t piece = std::min(chunk.size(), size - sent);
        fillImagePattern(camera, stream.currentImage, stream.offset + sent, chunk.data(), piece);
        if (!link.send(chunk.data(), piece)) return;
        sent += piece;
    }
    stream.offset += size;
}

}  // namespace vyx::sim
