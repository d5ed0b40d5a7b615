// State of one transport link shared between its receiver thread and the API
// calls: the open flag, the acquisition mask, the newest marker frame, the
// double-buffered images and the counters that tell the API what is new.
#pragma once

#include "device/WireProtocol.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

// Kinds of data handed out once each.
enum DeliveryKind : std::size_t { kMarkerDelivery, kStatusDelivery, kGreyDelivery, kColorDelivery };

// Counter value last handed out, per transport (0 USB, 1 Ethernet, 2 Wi-Fi)
// and kind of data. Shared by all engines of the process, as the device's own
// host software does it.
std::atomic<std::uint32_t>& lastDeliveredCounter(std::size_t transport, DeliveryKind kind);

struct LinkState {
    // Set once the link is up; cleared first thing by a re-initialisation.
    // Stored with release and loaded with acquire, so that a receiver thread
    // that sees it set also sees the link's socket and buffers.
    std::atomic<bool> open{false};
    // Error of the receiver thread, returned by the next delivery call and
    // cleared only by a new acquisition-data setting (0 = none).
    std::atomic<int> lastError{0};
    // Four-bit acquisition mask; written under dataLock.
    std::atomic<std::uint32_t> acquireMask{0};
    // The configuration has been read and checked since the link opened.
    std::atomic<bool> configValid{false};

    std::mutex writeLock;  // around each write to the link
    std::mutex readLock;   // around each read from the link
    std::mutex dataLock;   // held by the receiver for a whole acquisition cycle
    std::mutex frameLock;  // around the newest marker frame
    std::mutex imageLock;  // around switching and copying image buffer halves

    // Newest complete marker and status frame (under frameLock), and the
    // number of frames received so far, advanced when one is stored.
    std::array<std::uint8_t, vyx::device::kMarkerFrameBytes> frame{};
    std::atomic<std::uint32_t> frameCounter{0};

    // Images: [half][camera] for the two grey cameras, [half] for colour.
    // The receiver writes the current half and switches halves (under
    // imageLock) when it starts an image; the API copies the half that holds
    // the newest complete image, also under imageLock, so the two never
    // touch the same half at once. The image counters advance when the
    // first block of an image is requested; the completed counters when its
    // last block has arrived.
    std::array<std::array<std::vector<std::uint8_t>, 2>, 2> grey;
    std::array<std::vector<std::uint8_t>, 2> color;
    int greyHalf = 0;        // half being written
    int colorHalf = 0;
    int greyReadyHalf = -1;  // half with the newest complete image, -1 none
    int colorReadyHalf = -1;
    std::atomic<std::uint32_t> greyImageCounter{0};
    std::atomic<std::uint32_t> colorImageCounter{0};
    std::atomic<std::uint32_t> greyImagesCompleted{0};
    std::atomic<std::uint32_t> colorImagesCompleted{0};

    // Blocks per grey image (each step moves a left and a right block) and
    // per colour image (each block is two half-blocks on Ethernet).
    std::uint32_t greyBlockCount = 0;
    std::uint32_t colorBlockCount = 0;

    // Last frame id reconstructed from this link.
    std::uint32_t lastReconstructedId = 0xFFFFFFFFu;
};
