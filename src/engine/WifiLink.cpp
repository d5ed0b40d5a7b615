// The Wi-Fi link: one TCP connection to the tracker's wireless module
// (10.10.100.254 port 8899 unless the host set another address), its
// configuration frame, and the receiver thread that keeps the newest marker
// frame and status. The module carries marker and status frames, the
// configuration and the simple setters; no images, trigger or mode.
#include "engine/VyxPosFunc.h"

#include <algorithm>
#include <cstring>

using namespace vyx::device;

namespace {

constexpr int kFrameReadRetries = 3;
// Marker frames per status frame in one acquisition cycle, and the attempts
// at each frame.
constexpr int kMarkerFramesPerCycle = 5;
constexpr int kAttemptsPerFrame = 5;
constexpr int kTriggeredAttempts = 100;
constexpr auto kTriggeredRetryPause = std::chrono::milliseconds(5);

}  // namespace

int VyxPosFunc::Zelmor_WIFI_Initialize() {
    endRecordingForNewConnect(Interface_WiFi);
    const int rc = reopenTcpLink(wifi_, wifiSocket_, wifiConnectIP_, wifiConnectPort_);
    if (rc != RV_SUCCESS) return rc;
    WIFICleanData(kWifiMarkerFrameMaxBytes);
    return WIFIReadConfigureData();
}

int VyxPosFunc::WIFIWrite(const std::uint8_t* buffer, int length) {
    return writeLink(wifi_, wifiSocket_, buffer, length);
}

int VyxPosFunc::WIFIRead(std::uint8_t* buffer, int& length, int retries) {
    return readLink(wifi_, wifiSocket_, buffer, length, retries);
}

void VyxPosFunc::WIFICleanData(std::size_t chunk) { drainLink(wifi_, wifiSocket_, chunk); }

int VyxPosFunc::WIFIReadConfigureData() {
    wifi_.configValid.store(false, std::memory_order_relaxed);
    const CommandPacket read = singleByteCommand(command::kConfigRead);
    int rc = WIFIWrite(read.bytes.data(), static_cast<int>(read.length));
    if (rc != RV_SUCCESS) return rc;
    std::array<std::uint8_t, kWifiConfigFrameBytes> frame{};
    int length = static_cast<int>(frame.size());
    if (WIFIRead(frame.data(), length, 0) != RV_SUCCESS) return RV_FAILED;
    std::array<std::uint8_t, kConfigShortFormBytes> config{};
    if (!parseWifiConfigFrame(frame.data(), static_cast<std::size_t>(length), config.data()))
        return RV_FAILED;
    ConnectReplies replies;
    replies.link = Interface_WiFi;
    replies.configuration.assign(frame.begin(), frame.begin() + length);

    separateModelText_.fill(0);
    separateModelTextPresent_ = false;
    const CommandPacket model = singleByteCommand(command::kModelTextRead);
    if (WIFIWrite(model.bytes.data(), static_cast<int>(model.length)) == RV_SUCCESS) {
        std::array<std::uint8_t, kModelTextBytes> text{};
        length = static_cast<int>(text.size());
        if (WIFIRead(text.data(), length, 0) == RV_SUCCESS) {
            std::memcpy(separateModelText_.data(), text.data(), text.size());
            separateModelTextPresent_ = true;
            replies.modelText.assign(text.begin(), text.end());
        }
    }
    cameraParameters_.configDataMode = 1024u;
    applyConfiguration(config.data(), config.size(), separateModelTextPresent_);
    connectReplies_ = std::move(replies);
    wifi_.configValid.store(true, std::memory_order_relaxed);
    return RV_SUCCESS;
}

int VyxPosFunc::WIFIReadMarkerInfo() {
    const CommandPacket request = singleByteCommand(command::kWifiMarkerRequest);
    const int rc = WIFIWrite(request.bytes.data(), static_cast<int>(request.length));
    if (rc != RV_SUCCESS) return rc;
    int length = static_cast<int>(kWifiMarkerHeaderBytes);
    if (WIFIRead(wifiReceive_.data(), length, kFrameReadRetries) != RV_SUCCESS) return RV_READ_ERROR;
    const std::optional<std::uint16_t> total = wifiMarkerFrameLength(wifiReceive_.data());
    if (!total || *total > kWifiMarkerFrameMaxBytes || *total < kWifiMarkerHeaderBytes) {
        WIFICleanData(kWifiMarkerFrameMaxBytes);
        return RV_FAILED;
    }
    length = static_cast<int>(*total - kWifiMarkerHeaderBytes);
    if (WIFIRead(wifiReceive_.data() + kWifiMarkerHeaderBytes, length, kFrameReadRetries) !=
        RV_SUCCESS)
        return RV_READ_ERROR;
    // The frame is laid out as a wired one, so that delivery treats both alike.
    std::array<std::uint8_t, kMarkerFrameBytes> placed{};
    if (!parseWifiMarkerFrame(wifiReceive_.data(), *total, placed.data() + kMarkerOriginOffset)) {
        WIFICleanData(kWifiMarkerFrameMaxBytes);
        return RV_FAILED;
    }
    recorder_.offer(Interface_WiFi, RecordType::MarkerFrame, wifiReceive_.data(), *total);
    std::lock_guard<std::mutex> frame(wifi_.frameLock);
    wifi_.frame = placed;
    wifi_.frameCounter.fetch_add(1, std::memory_order_release);
    return RV_SUCCESS;
}

int VyxPosFunc::WIFIReadStatusInfo() {
    const CommandPacket request = singleByteCommand(command::kMarkerRequest);
    const int rc = WIFIWrite(request.bytes.data(), static_cast<int>(request.length));
    if (rc != RV_SUCCESS) return rc;
    std::array<std::uint8_t, kWifiStatusFrameBytes> frame{};
    int length = static_cast<int>(frame.size());
    std::array<std::uint8_t, kWifiStatusBytes> status{};
    if (WIFIRead(frame.data(), length, kFrameReadRetries) != RV_SUCCESS ||
        !parseWifiStatusFrame(frame.data(), static_cast<std::size_t>(length), status.data())) {
        WIFICleanData(kWifiStatusFrameBytes);
        return RV_FAILED;
    }
    recorder_.offer(Interface_WiFi, RecordType::WifiStatusFrame, frame.data(), frame.size());
    std::lock_guard<std::mutex> lock(wifi_.frameLock);
    wifiStatus_ = status;
    wifiStatusCounter_.fetch_add(1, std::memory_order_release);
    return RV_SUCCESS;
}

void VyxPosFunc::WIFIProcess() {
    constexpr std::uint32_t kMarkerBit = 0x1;
    constexpr std::uint32_t kStatusBit = 0x2;
    while (isRunning()) {
        if (!wifi_.open.load(std::memory_order_acquire)) {
            sleepWhileRunning(std::chrono::milliseconds(1));
            continue;
        }
        std::unique_lock<std::mutex> data(wifi_.dataLock);
        std::uint32_t mask = wifi_.acquireMask.load(std::memory_order_relaxed);
        if ((mask & (kMarkerBit | kStatusBit)) == 0) {
            data.unlock();
            sleepWhileRunning(std::chrono::milliseconds(1));
            continue;
        }
        int rc = RV_SUCCESS;
        for (int frame = 0; frame < kMarkerFramesPerCycle && (mask & kMarkerBit); ++frame) {
            rc = RV_FAILED;
            for (int attempt = 0; attempt < kAttemptsPerFrame && rc != RV_SUCCESS; ++attempt) {
                rc = WIFIReadMarkerInfo();
                wifi_.lastError.store(rc, std::memory_order_relaxed);
            }
            if (rc != RV_SUCCESS) mask = 0;
        }
        if (mask & kStatusBit) {
            rc = RV_FAILED;
            for (int attempt = 0; attempt < kAttemptsPerFrame && rc != RV_SUCCESS; ++attempt) {
                rc = WIFIReadStatusInfo();
                wifi_.lastError.store(rc, std::memory_order_relaxed);
            }
        }
        if (wifi_.lastError.load(std::memory_order_relaxed) != RV_SUCCESS) {
            wifi_.acquireMask.store(0, std::memory_order_relaxed);
            recorder_.requestFinish(Interface_WiFi);
        }
    }
}

int VyxPosFunc::wifiMarkerAndStatusByTrig(T_MarkerInfo& markers, T_VyxPosStatusInfo& status) {
    if (!wifi_.open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    std::unique_lock<std::mutex> data(wifi_.dataLock);
    const auto readBoth = [&] {
        const int rc = WIFIReadMarkerInfo();
        return rc != RV_SUCCESS ? rc : WIFIReadStatusInfo();
    };
    for (int attempt = 0; attempt < kTriggeredAttempts; ++attempt) {
        if (readBoth() != RV_SUCCESS) {
            // A failed read re-opens the link, then reads once more.
            data.unlock();
            const int rc = Zelmor_WIFI_Initialize();
            if (rc != RV_SUCCESS) return rc;
            data.lock();
            // A second failure leaves no new frame to deliver.
            const int again = readBoth();
            if (again != RV_SUCCESS) return again;
        }
        markers.MarkerNumber = 0;
        std::array<std::uint8_t, kMarkerFrameBytes> frame;
        std::array<std::uint8_t, kWifiStatusBytes> statusBytes;
        {
            std::lock_guard<std::mutex> lock(wifi_.frameLock);
            frame = wifi_.frame;
            statusBytes = wifiStatus_;
        }
        getMarkerStruct(frame.data() + kMarkerOriginOffset, markers);
        decodeWifiStatus(statusBytes.data(), status);
        if (markers.ID != wifi_.lastReconstructedId) {
            wifi_.lastReconstructedId = markers.ID;
            return RV_SUCCESS;
        }
        if (!sleepWhileRunning(kTriggeredRetryPause)) break;
    }
    return RV_NO_NEW_FRAME;
}
