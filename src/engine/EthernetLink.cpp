// The Ethernet link: one TCP connection to the tracker (port 7 unless the
// host set another), its
// configuration fetch, and the receiver thread that keeps the newest marker
// frame and images.
#include "engine/VyxPosFunc.h"

#include <algorithm>
#include <string>
#include <vector>

using namespace vyx::device;

namespace {

constexpr int kReceiveTimeoutMs = 500;
constexpr auto kRetrySleep = std::chrono::milliseconds(200);
constexpr std::size_t kDrainChunkBytes = 2048;

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
    endRecordingForNewConnect(Interface_Ethernet);
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

void VyxPosFunc::ETHCleanData() {
    drainLink(eth_, ethSocket_, kDrainChunkBytes);
    staleWiredInput_[Interface_Ethernet].store(false);
}

void VyxPosFunc::initETHTempResource() {
    // A colour block is two half-blocks; the buffers hold whole blocks.
    allocateImageBuffers(eth_, std::max<std::size_t>(
                                   geometry_.colorImageBytes,
                                   static_cast<std::size_t>(eth_.colorBlockCount) * 2u *
                                       geometry_.blockBytes[kEthernetColorHalfBlock]));
}

void VyxPosFunc::DestroyETHTempResource() { releaseImageBuffers(eth_); }

int VyxPosFunc::ETHReadConfigureData() { return fetchWiredConfiguration(Interface_Ethernet); }

int VyxPosFunc::ETHReadInfo() { return readWiredMarkerFrame(Interface_Ethernet); }

int VyxPosFunc::ETHReadImageDual(std::uint32_t block) {
    const int rc = readGreyBlock(Interface_Ethernet, block, 0);
    return rc != RV_SUCCESS ? rc : readGreyBlock(Interface_Ethernet, block, 1);
}

// One colour block is two half-blocks; the last block may hold only one.
int VyxPosFunc::ETHReadImageColor(std::uint32_t block) {
    const std::uint32_t halfBytes = geometry_.blockBytes[kEthernetColorHalfBlock];
    int rc = readColorPiece(Interface_Ethernet, 2 * block, halfBytes);
    if (rc == RV_SUCCESS &&
        imageBlockBytes(geometry_.colorImageBytes, halfBytes, 2 * block + 1) > 0)
        rc = readColorPiece(Interface_Ethernet, 2 * block + 1, halfBytes);
    return rc;
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
            if (rc != RV_SUCCESS) {
                eth_.acquireMask.store(0, std::memory_order_relaxed);
                recorder_.requestFinish(Interface_Ethernet);
            }
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
            recorder_.requestFinish(Interface_Ethernet);
        }
    }
}
