// The Ethernet link: one TCP connection to the tracker (port 7 unless the
// host set another), its
// configuration fetch, and the receiver thread that keeps the newest marker
// frame and images.
#include "engine/VyxPosFunc.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

using namespace vyx::device;

namespace {

constexpr int kReceiveTimeoutMs = 500;
constexpr auto kRetrySleep = std::chrono::milliseconds(200);
constexpr int kFrameReadRetries = 3;
constexpr std::size_t kDrainChunkBytes = 2048;

// Models whose large images are read with retries, block by block.
bool readsImageBlocksWithRetries(std::uint32_t modelIndex) {
    switch (modelIndex) {
        case 6: case 7: case 9: case 10: case 17: return true;
        default: return false;
    }
}

}  // namespace

int VyxPosFunc::reopenTcpLink(LinkState& state, TcpSocket& socket,
                              const std::array<unsigned char, 4>& ip, std::uint16_t port) {
    const bool wasOpen = state.open.load(std::memory_order_acquire);
    state.open.store(false, std::memory_order_release);
    state.configValid.store(false, std::memory_order_relaxed);
    // Give the receiver thread time to notice and leave its cycle.
    sleepWhileRunning(std::chrono::milliseconds(100));
    const std::string address = std::to_string(ip[0]) + "." + std::to_string(ip[1]) + "." +
                                std::to_string(ip[2]) + "." + std::to_string(ip[3]);
    // The receiver holds the data lock for a whole cycle, so once we hold it
    // the socket is idle.
    std::lock_guard<std::mutex> data(state.dataLock);
    state.acquireMask.store(0, std::memory_order_relaxed);
    if (wasOpen) socket.close();
    if (!socket.connect(address, port, kReceiveTimeoutMs)) return RV_FAILED;
    state.open.store(true, std::memory_order_release);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_ETHERNET_Initialize() {
    const int rc = reopenTcpLink(eth_, ethSocket_, ethernetConnectIP_, ethernetConnectPort_);
    if (rc != RV_SUCCESS) return rc;
    ETHCleanData();
    return ETHReadConfigureData();
}

int VyxPosFunc::writeLink(LinkState& state, ByteLink& link, const std::uint8_t* buffer,
                          int length) {
    if (!state.open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    std::lock_guard<std::mutex> lock(state.writeLock);
    const long sent = link.send(buffer, static_cast<std::size_t>(std::max(length, 0)));
    return sent < 0 ? RV_WRITE_ERROR : RV_SUCCESS;
}

int VyxPosFunc::readLink(LinkState& state, ByteLink& link, std::uint8_t* buffer, int& length,
                         int retries) {
    if (!state.open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    std::lock_guard<std::mutex> lock(state.readLock);
    return SockRead(link, state.open, buffer, length, retries);
}

void VyxPosFunc::drainLink(LinkState& state, ByteLink& link, std::size_t chunk) {
    std::vector<std::uint8_t> scratch(chunk);
    for (;;) {
        int length = static_cast<int>(scratch.size());
        if (readLink(state, link, scratch.data(), length, 0) != RV_SUCCESS) break;
    }
}

int VyxPosFunc::ETHWrite(const std::uint8_t* buffer, int length) {
    return writeLink(eth_, ethSocket_, buffer, length);
}

int VyxPosFunc::ETHRead(std::uint8_t* buffer, int& length, int retries) {
    return readLink(eth_, ethSocket_, buffer, length, retries);
}

// Reads until `length` bytes have arrived. A failed read (time-out, error or
// the peer having closed) counts one retry and is followed by a 200 ms pause;
// after more than `retries` failures the call gives up with the bytes
// received so far in `length` and result 3. It also gives up at once when
// the engine is being destroyed or the link re-initialised, so that neither
// waits for a tracker that stopped answering.
int VyxPosFunc::SockRead(ByteLink& link, const std::atomic<bool>& linkOpen,
                         std::uint8_t* buffer, int& length, int retries) {
    if (length <= 0) return RV_SUCCESS;
    const int wanted = length;
    int received = 0;
    int failures = 0;
    while (received < wanted) {
        const long n = link.receive(buffer + received, static_cast<std::size_t>(wanted - received));
        if (n > 0) {
            received += static_cast<int>(n);
            continue;
        }
        ++failures;
        if (failures > retries || !isRunning() || !linkOpen.load(std::memory_order_acquire) ||
            !sleepWhileRunning(kRetrySleep)) {
            length = received;
            return RV_READ_ERROR;
        }
    }
    return RV_SUCCESS;
}

void VyxPosFunc::ETHCleanData() { drainLink(eth_, ethSocket_, kDrainChunkBytes); }

void VyxPosFunc::initETHTempResource() {
    const std::size_t greyBytes = geometry_.greyImageBytes;
    // A colour block is two half-blocks; the buffers hold whole blocks.
    const std::size_t colorBytes =
        std::max<std::size_t>(geometry_.colorImageBytes,
                              static_cast<std::size_t>(eth_.colorBlockCount) * 2u *
                                  geometry_.blockBytes[kEthernetColorHalfBlock]);
    std::lock_guard<std::mutex> images(eth_.imageLock);
    for (auto& half : eth_.grey)
        for (auto& camera : half) camera.assign(greyBytes, 0);
    for (auto& half : eth_.color) half.assign(colorBytes, 0);
    eth_.greyReadyHalf = -1;
    eth_.colorReadyHalf = -1;
}

void VyxPosFunc::DestroyETHTempResource() {
    std::lock_guard<std::mutex> images(eth_.imageLock);
    for (auto& half : eth_.grey)
        for (auto& camera : half) std::vector<std::uint8_t>().swap(camera);
    for (auto& half : eth_.color) std::vector<std::uint8_t>().swap(half);
}

int VyxPosFunc::ETHReadConfigureData() {
    eth_.configValid.store(false, std::memory_order_relaxed);

    const CommandPacket prepare = singleByteCommand(command::kConfigPrepare);
    int rc = ETHWrite(prepare.bytes.data(), static_cast<int>(prepare.length));
    if (rc != RV_SUCCESS) return rc;
    sleepWhileRunning(std::chrono::microseconds(50));
    const CommandPacket read = singleByteCommand(command::kConfigRead);
    rc = ETHWrite(read.bytes.data(), static_cast<int>(read.length));
    if (rc != RV_SUCCESS) return rc;

    std::array<std::uint8_t, kConfigLongFormBytes> config{};
    int length = static_cast<int>(kConfigBlockBytes);
    rc = ETHRead(config.data(), length, kFrameReadRetries);
    if (rc != RV_SUCCESS) return rc;
    length = static_cast<int>(kConfigBlockBytes);
    const bool secondBlock =
        ETHRead(config.data() + kConfigBlockBytes, length, 0) == RV_SUCCESS;
    std::uint32_t mode = secondBlock ? 1024u : 512u;

    if (!configBlockChecksumOk(config.data())) return RV_FAILED;
    if (mode == 1024u && !configBlockChecksumOk(config.data() + kConfigBlockBytes))
        return RV_FAILED;

    // The long form replaces the two blocks when the device has one.
    std::size_t configBytes = kConfigShortFormBytes;
    const CommandPacket multi = singleByteCommand(command::kMultiConfigRead);
    if (ETHWrite(multi.bytes.data(), static_cast<int>(multi.length)) == RV_SUCCESS) {
        std::array<std::uint8_t, kConfigLongFormBytes> longForm{};
        length = static_cast<int>(kConfigLongFormBytes);
        if (ETHRead(longForm.data(), length, 0) == RV_SUCCESS) {
            config = longForm;
            configBytes = kConfigLongFormBytes;
            mode = 1024u;
        }
    }

    separateModelText_.fill(0);
    separateModelTextPresent_ = false;
    const CommandPacket model = singleByteCommand(command::kModelTextRead);
    if (ETHWrite(model.bytes.data(), static_cast<int>(model.length)) == RV_SUCCESS) {
        std::array<std::uint8_t, kModelTextBytes> text{};
        length = static_cast<int>(text.size());
        if (ETHRead(text.data(), length, 0) == RV_SUCCESS) {
            std::memcpy(separateModelText_.data(), text.data(), text.size());
            separateModelTextPresent_ = true;
        }
    }

    cameraParameters_.configDataMode = mode;
    applyConfiguration(config.data(), configBytes, separateModelTextPresent_);

    eth_.greyBlockCount = imageBlockCount(geometry_.greyImageBytes,
                                          geometry_.blockBytes[kEthernetGreyBlock]);
    eth_.colorBlockCount = imageBlockCount(geometry_.colorImageBytes,
                                           2u * geometry_.blockBytes[kEthernetColorHalfBlock]);
    initETHTempResource();
    eth_.configValid.store(true, std::memory_order_relaxed);
    return RV_SUCCESS;
}

int VyxPosFunc::ETHReadInfo() {
    const CommandPacket request = singleByteCommand(command::kMarkerRequest);
    const int rc = ETHWrite(request.bytes.data(), static_cast<int>(request.length));
    if (rc != RV_SUCCESS) {
        ETHCleanData();
        return rc;
    }
    int length = static_cast<int>(kMarkerFrameBytes);
    if (ETHRead(ethReceive_.data(), length, kFrameReadRetries) != RV_SUCCESS ||
        !isValidMarkerFrame(ethReceive_.data(), static_cast<std::size_t>(length)))
        return RV_READ_ERROR;
    // Publish only whole, checked frames: the API never sees a partial one.
    std::lock_guard<std::mutex> frame(eth_.frameLock);
    eth_.frame = ethReceive_;
    eth_.frameCounter.fetch_add(1, std::memory_order_release);
    return RV_SUCCESS;
}

int VyxPosFunc::ETHReadImageDual(std::uint32_t block) {
    const std::uint32_t blockBytes = geometry_.blockBytes[kEthernetGreyBlock];
    const std::uint32_t bytes = imageBlockBytes(geometry_.greyImageBytes, blockBytes, block);
    if (bytes == 0) return RV_FAILED;
    if (block == 0) {
        std::lock_guard<std::mutex> images(eth_.imageLock);
        eth_.greyHalf = 1 - eth_.greyHalf;
        if (eth_.greyReadyHalf == eth_.greyHalf) eth_.greyReadyHalf = -1;
        eth_.greyImageCounter.fetch_add(1, std::memory_order_relaxed);
    }
    const int retries = readsImageBlocksWithRetries(deviceModelIndex_) ? kFrameReadRetries : 0;
    auto& half = eth_.grey[static_cast<std::size_t>(eth_.greyHalf)];
    const std::size_t offset = static_cast<std::size_t>(block) * blockBytes;
    for (std::size_t camera = 0; camera < 2; ++camera) {
        const std::uint8_t code = camera == 0
                                      ? (block == 0 ? command::kLeftGreyFirst : command::kLeftGreyNext)
                                      : (block == 0 ? command::kRightGreyFirst : command::kRightGreyNext);
        const int rc = ETHWrite(&code, 1);
        if (rc != RV_SUCCESS) return rc;
        int length = static_cast<int>(bytes);
        if (ETHRead(half[camera].data() + offset, length, retries) != RV_SUCCESS ||
            length != static_cast<int>(bytes))
            return RV_READ_ERROR;
    }
    if (offset + bytes == geometry_.greyImageBytes) {
        std::lock_guard<std::mutex> images(eth_.imageLock);
        eth_.greyReadyHalf = eth_.greyHalf;
        eth_.greyImagesCompleted.fetch_add(1, std::memory_order_relaxed);
    }
    return RV_SUCCESS;
}

int VyxPosFunc::ETHReadImageColor(std::uint32_t block) {
    const std::uint32_t halfBytes = geometry_.blockBytes[kEthernetColorHalfBlock];
    if (block == 0) {
        std::lock_guard<std::mutex> images(eth_.imageLock);
        eth_.colorHalf = 1 - eth_.colorHalf;
        if (eth_.colorReadyHalf == eth_.colorHalf) eth_.colorReadyHalf = -1;
        eth_.colorImageCounter.fetch_add(1, std::memory_order_relaxed);
    }
    auto& image = eth_.color[static_cast<std::size_t>(eth_.colorHalf)];
    for (std::uint32_t part = 0; part < 2; ++part) {
        const std::uint32_t index = 2 * block + part;
        const std::uint32_t bytes = imageBlockBytes(geometry_.colorImageBytes, halfBytes, index);
        if (bytes == 0) break;
        const std::uint8_t code =
            (block == 0 && part == 0) ? command::kColorFirst : command::kColorNext;
        const int rc = ETHWrite(&code, 1);
        if (rc != RV_SUCCESS) return rc;
        int length = static_cast<int>(bytes);
        const std::size_t offset = static_cast<std::size_t>(index) * halfBytes;
        if (ETHRead(image.data() + offset, length, kFrameReadRetries) != RV_SUCCESS ||
            length != static_cast<int>(bytes))
            return RV_READ_ERROR;
        if (offset + bytes == geometry_.colorImageBytes) {
            std::lock_guard<std::mutex> images(eth_.imageLock);
            eth_.colorReadyHalf = eth_.colorHalf;
            eth_.colorImagesCompleted.fetch_add(1, std::memory_order_relaxed);
        }
    }
    return RV_SUCCESS;
}

void VyxPosFunc::ETHProcess() {
    constexpr std::uint32_t kMarkerBits = 0x3;
    constexpr std::uint32_t kGreyBit = 0x4;
    constexpr std::uint32_t kColorBit = 0x8;
    while (isRunning()) {
        if (!eth_.open.load(std::memory_order_acquire)) {
            sleepWhileRunning(std::chrono::milliseconds(1));
            continue;
        }
        sleepWhileRunning(std::chrono::microseconds(10));
        std::unique_lock<std::mutex> data(eth_.dataLock);
        const std::uint32_t mask = eth_.acquireMask.load(std::memory_order_relaxed);
        if (mask == kMarkerBits) {
            const int rc = ETHReadInfo();
            eth_.lastError.store(rc, std::memory_order_relaxed);
            if (rc != RV_SUCCESS) eth_.acquireMask.store(0, std::memory_order_relaxed);
            data.unlock();
            sleepWhileRunning(std::chrono::microseconds(50));
            continue;
        }
        const bool withMarkers = (mask & kMarkerBits) == kMarkerBits;
        const bool wantsImages = (mask & (kGreyBit | kColorBit)) != 0;
        if (!wantsImages) {
            // Nothing this mask asks for can be read: idle.
            data.unlock();
            sleepWhileRunning(std::chrono::milliseconds(1));
            continue;
        }
        int rc = RV_SUCCESS;
        if ((mask & kGreyBit) && eth_.greyBlockCount > 0) {
            for (std::uint32_t block = 0; block < eth_.greyBlockCount && rc == RV_SUCCESS; ++block) {
                rc = ETHReadImageDual(block);
                // Keep marker data flowing during a long transfer.
                if (rc == RV_SUCCESS && withMarkers && block > 0 && block % 2 == 0)
                    rc = ETHReadInfo();
            }
        }
        if (rc == RV_SUCCESS && (mask & kColorBit)) {
            for (std::uint32_t block = 0; block < eth_.colorBlockCount && rc == RV_SUCCESS; block += 2) {
                rc = ETHReadImageColor(block);
                if (rc == RV_SUCCESS && block + 1 < eth_.colorBlockCount) {
                    if (withMarkers) rc = ETHReadInfo();
                    if (rc == RV_SUCCESS) rc = ETHReadImageColor(block + 1);
                }
            }
        }
        if (rc != RV_SUCCESS) {
            eth_.lastError.store(rc, std::memory_order_relaxed);
            eth_.acquireMask.store(0, std::memory_order_relaxed);
        }
    }
}
