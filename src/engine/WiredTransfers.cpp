// What the two wired links, USB and Ethernet, share: the configuration
// fetch, the marker and status frame read, the grey and colour image
// transfers and their buffers. The links differ only in how bytes move (one
// bulk transfer per read on USB; a socket read loop with retries on
// Ethernet), in a few pauses and retries, and in their block sizes.
#include "engine/VyxPosFunc.h"

#include <algorithm>
#include <cstring>

using namespace vyx::device;

namespace {

constexpr int kFrameReadRetries = 3;

// Models whose large images are read over Ethernet with retries, block by
// block.
bool readsImageBlocksWithRetries(std::uint32_t modelIndex) {
    switch (modelIndex) {
        case 6: case 7: case 9: case 10: case 17: return true;
        default: return false;
    }
}

std::uint8_t greyRequest(std::uint32_t block, int side) {
    if (side == 0) return block == 0 ? command::kLeftGreyFirst : command::kLeftGreyNext;
    return block == 0 ? command::kRightGreyFirst : command::kRightGreyNext;
}

}  // namespace

int VyxPosFunc::wiredWrite(E_Interface iface, const std::uint8_t* buffer, int length) {
    const bool usb = iface == Interface_USB;
    // The rest of a reply that a read gave up on may have come since; it
    // would be taken for the answer to this request.
    if (staleWiredInput_[static_cast<std::size_t>(iface)].load()) {
        if (usb)
            USBCleanData();
        else
            ETHCleanData();
    }
    return usb ? USBWrite(buffer, length) : ETHWrite(buffer, length);
}

// A USB read is one bulk transfer, whatever the retry count: the device
// sends each reply whole, and a transfer that times out has waited 500 ms.
int VyxPosFunc::wiredRead(E_Interface iface, std::uint8_t* buffer, int& length, int retries) {
    const int rc =
        iface == Interface_USB ? USBRead(buffer, length) : ETHRead(buffer, length, retries);
    if (rc == RV_READ_ERROR) staleWiredInput_[static_cast<std::size_t>(iface)].store(true);
    return rc;
}

int VyxPosFunc::requestWholeReply(E_Interface iface, std::uint8_t request, std::uint8_t* reply,
                                  std::uint32_t bytes, int retries) {
    const int rc = wiredWrite(iface, &request, 1);
    if (rc != RV_SUCCESS) return rc;
    int length = static_cast<int>(bytes);
    if (wiredRead(iface, reply, length, retries) != RV_SUCCESS) return RV_READ_ERROR;
    if (length != static_cast<int>(bytes)) {
        staleWiredInput_[static_cast<std::size_t>(iface)].store(true);
        return RV_READ_ERROR;
    }
    return RV_SUCCESS;
}

int VyxPosFunc::fetchWiredConfiguration(E_Interface iface) {
    const bool usb = iface == Interface_USB;
    LinkState& link = usb ? usb_ : eth_;
    link.configValid.store(false, std::memory_order_relaxed);
    const auto send = [&](std::uint8_t code) { return wiredWrite(iface, &code, 1); };

    int rc = send(command::kConfigPrepare);
    if (rc != RV_SUCCESS) return rc;
    sleepWhileRunning(usb ? std::chrono::microseconds(50000) : std::chrono::microseconds(50));
    rc = send(command::kConfigRead);
    if (rc != RV_SUCCESS) return rc;
    if (usb) {
        usbLink_.clearInHalt();
        sleepWhileRunning(std::chrono::milliseconds(50));
    }

    std::array<std::uint8_t, kConfigLongFormBytes> config{};
    int length = static_cast<int>(kConfigBlockBytes);
    rc = wiredRead(iface, config.data(), length, kFrameReadRetries);
    if (rc != RV_SUCCESS) return rc;
    if (length != static_cast<int>(kConfigBlockBytes)) return RV_READ_ERROR;
    length = static_cast<int>(kConfigBlockBytes);
    const bool secondBlock =
        wiredRead(iface, config.data() + kConfigBlockBytes, length, 0) == RV_SUCCESS &&
        length == static_cast<int>(kConfigBlockBytes);
    std::uint32_t mode = secondBlock ? 1024u : 512u;
    // The replies as received, for recordings of this link.
    ConnectReplies replies;
    replies.link = static_cast<int>(iface);
    replies.configuration.assign(config.begin(), config.begin() + mode);

    if (!configBlockChecksumOk(config.data())) return RV_FAILED;
    if (mode == 1024u && !configBlockChecksumOk(config.data() + kConfigBlockBytes))
        return RV_FAILED;

    // The long form replaces the two blocks when the device has one.
    std::size_t configBytes = kConfigShortFormBytes;
    if (send(command::kMultiConfigRead) == RV_SUCCESS) {
        std::array<std::uint8_t, kConfigLongFormBytes> longForm{};
        length = static_cast<int>(kConfigLongFormBytes);
        if (wiredRead(iface, longForm.data(), length, 0) == RV_SUCCESS &&
            length == static_cast<int>(kConfigLongFormBytes)) {
            replies.longForm.assign(longForm.begin(), longForm.end());
            config = longForm;
            configBytes = kConfigLongFormBytes;
            mode = 1024u;
        }
    }

    separateModelText_.fill(0);
    separateModelTextPresent_ = false;
    if (send(command::kModelTextRead) == RV_SUCCESS) {
        std::array<std::uint8_t, kModelTextBytes> text{};
        length = static_cast<int>(text.size());
        if (wiredRead(iface, text.data(), length, 0) == RV_SUCCESS && length > 0) {
            std::memcpy(separateModelText_.data(), text.data(), static_cast<std::size_t>(length));
            separateModelTextPresent_ = true;
            replies.modelText.assign(text.begin(), text.begin() + length);
        }
    }

    cameraParameters_.configDataMode = mode;
    applyConfiguration(config.data(), configBytes, separateModelTextPresent_);

    if (usb) {
        // Left and right blocks are counted separately on USB.
        usb_.greyBlockCount =
            2u * imageBlockCount(geometry_.greyImageBytes, geometry_.blockBytes[kUsbGreyBlock]);
        usb_.colorBlockCount =
            imageBlockCount(geometry_.colorImageBytes, geometry_.blockBytes[kUsbColorBlock]);
        initUSBTempResource();
    } else {
        eth_.greyBlockCount = imageBlockCount(geometry_.greyImageBytes,
                                              geometry_.blockBytes[kEthernetGreyBlock]);
        eth_.colorBlockCount = imageBlockCount(
            geometry_.colorImageBytes, 2u * geometry_.blockBytes[kEthernetColorHalfBlock]);
        initETHTempResource();
    }
    connectReplies_ = std::move(replies);
    link.configValid.store(true, std::memory_order_relaxed);
    return RV_SUCCESS;
}

int VyxPosFunc::readWiredMarkerFrame(E_Interface iface) {
    const bool usb = iface == Interface_USB;
    LinkState& link = usb ? usb_ : eth_;
    auto& receive = usb ? usbReceive_ : ethReceive_;
    const std::uint8_t request = command::kMarkerRequest;
    const int rc = wiredWrite(iface, &request, 1);
    if (rc != RV_SUCCESS) {
        // Whatever the device still sends belongs to no request.
        if (!usb) ETHCleanData();
        return rc;
    }
    int length = static_cast<int>(kMarkerFrameBytes);
    if (wiredRead(iface, receive.data(), length, kFrameReadRetries) != RV_SUCCESS)
        return RV_READ_ERROR;
    if (!isValidMarkerFrame(receive.data(), static_cast<std::size_t>(length))) {
        // Bytes out of step with the requests: what follows is suspect too.
        staleWiredInput_[static_cast<std::size_t>(iface)].store(true);
        return RV_READ_ERROR;
    }
    recorder_.offer(iface, RecordType::MarkerFrame, receive.data(), receive.size());
    // Publish only whole, checked frames: the API never sees a partial one.
    std::lock_guard<std::mutex> frame(link.frameLock);
    link.frame = receive;
    link.frameCounter.fetch_add(1, std::memory_order_release);
    return RV_SUCCESS;
}

int VyxPosFunc::readGreyBlock(E_Interface iface, std::uint32_t block, int side) {
    const bool usb = iface == Interface_USB;
    LinkState& link = usb ? usb_ : eth_;
    const std::uint32_t blockBytes = geometry_.blockBytes[usb ? kUsbGreyBlock : kEthernetGreyBlock];
    // The last block of a large image is short, so the image comes out exact.
    const std::uint32_t bytes = imageBlockBytes(geometry_.greyImageBytes, blockBytes, block);
    if (bytes == 0 || side < 0 || side > 1) return RV_FAILED;
    if (block == 0 && side == 0) {
        std::lock_guard<std::mutex> images(link.imageLock);
        link.greyHalf = 1 - link.greyHalf;
        if (link.greyReadyHalf == link.greyHalf) link.greyReadyHalf = -1;
        link.greyImageCounter.fetch_add(1, std::memory_order_relaxed);
    }
    const int retries =
        !usb && readsImageBlocksWithRetries(deviceModelIndex_) ? kFrameReadRetries : 0;
    auto& image = link.grey[static_cast<std::size_t>(link.greyHalf)][static_cast<std::size_t>(side)];
    const std::size_t offset = static_cast<std::size_t>(block) * blockBytes;
    if (image.size() < offset + bytes) return RV_FAILED;
    const int rc = requestWholeReply(iface, greyRequest(block, side), image.data() + offset, bytes,
                                     retries);
    if (rc != RV_SUCCESS) return rc;
    if (side == 1 && offset + bytes == geometry_.greyImageBytes) {
        std::lock_guard<std::mutex> images(link.imageLock);
        link.greyReadyHalf = link.greyHalf;
        link.greyImagesCompleted.fetch_add(1, std::memory_order_relaxed);
    }
    return RV_SUCCESS;
}

int VyxPosFunc::readColorPiece(E_Interface iface, std::uint32_t piece, std::uint32_t pieceBytes) {
    LinkState& link = iface == Interface_USB ? usb_ : eth_;
    const std::uint32_t bytes = imageBlockBytes(geometry_.colorImageBytes, pieceBytes, piece);
    if (bytes == 0) return RV_FAILED;
    if (piece == 0) {
        std::lock_guard<std::mutex> images(link.imageLock);
        link.colorHalf = 1 - link.colorHalf;
        if (link.colorReadyHalf == link.colorHalf) link.colorReadyHalf = -1;
        link.colorImageCounter.fetch_add(1, std::memory_order_relaxed);
    }
    auto& image = link.color[static_cast<std::size_t>(link.colorHalf)];
    const std::size_t offset = static_cast<std::size_t>(piece) * pieceBytes;
    if (image.size() < offset + bytes) return RV_FAILED;
    const int rc = requestWholeReply(iface, piece == 0 ? command::kColorFirst : command::kColorNext,
                                     image.data() + offset, bytes, kFrameReadRetries);
    if (rc != RV_SUCCESS) return rc;
    if (offset + bytes == geometry_.colorImageBytes) {
        std::lock_guard<std::mutex> images(link.imageLock);
        link.colorReadyHalf = link.colorHalf;
        link.colorImagesCompleted.fetch_add(1, std::memory_order_relaxed);
    }
    return RV_SUCCESS;
}

void VyxPosFunc::allocateImageBuffers(LinkState& link, std::size_t colorBytes) {
    const std::size_t greyBytes = geometry_.greyImageBytes;
    std::lock_guard<std::mutex> images(link.imageLock);
    for (auto& half : link.grey)
        for (auto& camera : half) camera.assign(greyBytes, 0);
    for (auto& half : link.color) half.assign(colorBytes, 0);
    link.greyReadyHalf = -1;
    link.colorReadyHalf = -1;
}

void VyxPosFunc::releaseImageBuffers(LinkState& link) {
    std::lock_guard<std::mutex> images(link.imageLock);
    for (auto& half : link.grey)
        for (auto& camera : half) std::vector<std::uint8_t>().swap(camera);
    for (auto& half : link.color) std::vector<std::uint8_t>().swap(half);
}

int VyxPosFunc::wiredGreyImageInto(E_Interface iface, char* leftImage, char* rightImage) {
    LinkState& link = iface == Interface_USB ? usb_ : eth_;
    // USB counts left and right blocks apart; Ethernet counts block numbers.
    const std::uint32_t blocks =
        iface == Interface_USB ? link.greyBlockCount / 2u : link.greyBlockCount;
    int rc = RV_SUCCESS;
    for (std::uint32_t block = 0; block < blocks && rc == RV_SUCCESS; ++block) {
        rc = readGreyBlock(iface, block, 0);
        if (rc == RV_SUCCESS) rc = readGreyBlock(iface, block, 1);
    }
    if (rc != RV_SUCCESS) return rc;
    std::lock_guard<std::mutex> images(link.imageLock);
    if (link.greyReadyHalf < 0) return RV_READ_ERROR;
    const auto& half = link.grey[static_cast<std::size_t>(link.greyReadyHalf)];
    std::memcpy(leftImage, half[0].data(), geometry_.greyImageBytes);
    std::memcpy(rightImage, half[1].data(), geometry_.greyImageBytes);
    return RV_SUCCESS;
}

int VyxPosFunc::wiredColorImageInto(E_Interface iface, char* image) {
    const bool usb = iface == Interface_USB;
    LinkState& link = usb ? usb_ : eth_;
    int rc = RV_SUCCESS;
    for (std::uint32_t block = 0; block < link.colorBlockCount && rc == RV_SUCCESS; ++block) {
        rc = usb ? USBReadImageColor(block) : ETHReadImageColor(block);
        if (rc != RV_SUCCESS && usb) std::printf("USBread failed\n");
    }
    if (rc != RV_SUCCESS) return rc;
    if (usb) std::printf("USBread times: %u\n", link.colorBlockCount);
    std::lock_guard<std::mutex> images(link.imageLock);
    if (link.colorReadyHalf < 0) return RV_READ_ERROR;
    const auto& half = link.color[static_cast<std::size_t>(link.colorReadyHalf)];
    std::memcpy(image, half.data(), geometry_.colorImageBytes);
    return RV_SUCCESS;
}
