// Acquisition settings and the delivery of status records and images: each
// new item is handed out once, after that the calls answer "no new frame".
#include "engine/VyxPosFunc.h"

#include <algorithm>
#include <cstring>

using namespace vyx::device;

namespace {

std::atomic<std::uint32_t> gLastDelivered[3][4];

std::atomic<std::uint32_t>& lastDelivered(E_Interface iface, DeliveryKind kind) {
    return lastDeliveredCounter(static_cast<std::size_t>(iface), kind);
}

// Acquisition mask of each data type value; values above 8 clear it.
std::uint32_t acquisitionMask(E_DataType type) {
    static constexpr std::uint32_t kMasks[] = {0, 3, 1, 2, 4, 8, 7, 11, 15};
    const auto value = static_cast<std::uint32_t>(type);
    return value < 9 ? kMasks[value] : 0u;
}

}  // namespace

std::atomic<std::uint32_t>& lastDeliveredCounter(std::size_t transport, DeliveryKind kind) {
    return gLastDelivered[transport][kind];
}

bool VyxPosFunc::sleepWhileRunning(std::chrono::microseconds duration) {
    std::unique_lock<std::mutex> lock(stopMutex_);
    return !stopSignal_.wait_for(lock, duration, [this] { return !isRunning(); });
}

int VyxPosFunc::Zelmor_SetAcquireData(E_Interface iface, E_DataType type) {
    LinkState* link = linkFor(iface);
    if (link == nullptr) return RV_FAILED;
    if (!link->open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    const std::uint32_t mask = acquisitionMask(type);
    {
        std::lock_guard<std::mutex> data(link->dataLock);
        link->acquireMask.store(mask, std::memory_order_relaxed);
        link->lastError.store(RV_SUCCESS, std::memory_order_relaxed);
    }
    // Stopping gives the device time to finish what it was sending.
    if (mask == 0) sleepWhileRunning(std::chrono::milliseconds(200));
    return RV_SUCCESS;
}

int VyxPosFunc::wiredTriggeredFrame(E_Interface iface) {
    const int rc = wiredTriggerIfNeeded(iface);
    if (rc != RV_SUCCESS) return rc;
    return iface == Interface_USB ? USBReadInfo() : ETHReadInfo();
}

int VyxPosFunc::Zelmor_SetAcquireMode(E_Interface iface, E_AcquireMode mode) {
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    const CommandPacket packet = acquireModeCommand(static_cast<std::uint8_t>(mode));
    LinkState& link = *linkFor(iface);
    int rc = RV_SUCCESS;
    {
        // The exchange must not interleave with the receiver's frame reads.
        std::lock_guard<std::mutex> data(link.dataLock);
        rc = wiredWrite(iface, packet.bytes.data(), static_cast<int>(packet.length));
        if (rc == RV_SUCCESS && iface == Interface_Ethernet) {
            // Only the Ethernet port acknowledges the mode, with one byte.
            std::uint8_t answer = 0;
            int length = 1;
            wiredRead(iface, &answer, length, 0);
        }
        if (rc == RV_SUCCESS && mode != AcquireMode_FreeRunning) {
            // One triggered acquisition starts the device in the new mode.
            sleepWhileRunning(std::chrono::microseconds(20));
            rc = wiredTriggeredFrame(iface);
            sleepWhileRunning(std::chrono::microseconds(10));
        }
    }
    acquireMode_[static_cast<std::size_t>(iface)] = static_cast<int>(mode);
    return rc;
}

int VyxPosFunc::Zelmor_GetStatusInfo(E_Interface iface, T_VyxPosStatusInfo& status) {
    if (iface != Interface_Ethernet && iface != Interface_USB && iface != Interface_WiFi)
        return RV_FAILED;
    LinkState& link = *linkFor(iface);
    const int error = link.lastError.load(std::memory_order_relaxed);
    if (error != RV_SUCCESS) return error;
    // The Wi-Fi module sends its status in frames of its own.
    const bool wifi = iface == Interface_WiFi;
    const std::uint32_t counter = wifi ? wifiStatusCounter_.load(std::memory_order_acquire)
                                       : link.frameCounter.load(std::memory_order_acquire);
    auto& delivered = lastDelivered(iface, kStatusDelivery);
    // Counter 0: nothing has arrived on this engine's link yet, whatever
    // another engine of the process delivered last.
    if (counter == 0 || counter == delivered.load(std::memory_order_relaxed)) return RV_NO_NEW_FRAME;
    delivered.store(counter, std::memory_order_relaxed);
    std::lock_guard<std::mutex> frame(link.frameLock);
    if (wifi)
        decodeWifiStatus(wifiStatus_.data(), status);
    else
        decodeStatus(link.frame.data(), statusLayout(), status);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetGreyImageDual(E_Interface iface, char* leftImage, char* rightImage) {
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    LinkState& link = *linkFor(iface);
    const int error = link.lastError.load(std::memory_order_relaxed);
    if (error != RV_SUCCESS) return error;
    const std::uint32_t completed = link.greyImagesCompleted.load(std::memory_order_relaxed);
    auto& delivered = lastDelivered(iface, kGreyDelivery);
    if (completed == 0 || completed == delivered.load(std::memory_order_relaxed))
        return RV_NO_NEW_FRAME;
    std::lock_guard<std::mutex> images(link.imageLock);
    if (link.greyReadyHalf < 0) return RV_NO_NEW_FRAME;
    const auto& half = link.grey[static_cast<std::size_t>(link.greyReadyHalf)];
    const std::size_t bytes = std::min<std::size_t>(geometry_.greyImageBytes, half[0].size());
    std::memcpy(leftImage, half[0].data(), bytes);
    std::memcpy(rightImage, half[1].data(), bytes);
    delivered.store(link.greyImagesCompleted.load(std::memory_order_relaxed),
                    std::memory_order_relaxed);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetColorImageMiddle(E_Interface iface, char* image) {
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    LinkState& link = *linkFor(iface);
    const int error = link.lastError.load(std::memory_order_relaxed);
    if (error != RV_SUCCESS) return error;
    const std::uint32_t completed = link.colorImagesCompleted.load(std::memory_order_relaxed);
    auto& delivered = lastDelivered(iface, kColorDelivery);
    if (completed == 0 || completed == delivered.load(std::memory_order_relaxed))
        return RV_NO_NEW_FRAME;
    std::lock_guard<std::mutex> images(link.imageLock);
    if (link.colorReadyHalf < 0) return RV_NO_NEW_FRAME;
    const auto& half = link.color[static_cast<std::size_t>(link.colorReadyHalf)];
    const std::size_t bytes = std::min<std::size_t>(geometry_.colorImageBytes, half.size());
    std::memcpy(image, half.data(), bytes);
    delivered.store(link.colorImagesCompleted.load(std::memory_order_relaxed),
                    std::memory_order_relaxed);
    return RV_SUCCESS;
}
