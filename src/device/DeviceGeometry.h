// Image geometry of the tracker: sizes of the camera images and of the
// transfer blocks they travel in, and the image-border warning bands derived
// from the grey image size.
#pragma once

#include <array>
#include <cstdint>

namespace vyx::device {

// Index of each transfer kind in DeviceGeometry::blockCounts / blockBytes.
enum TransferKind : std::size_t {
    kUsbGreyBlock = 0,
    kUsbColorBlock = 1,
    kEthernetGreyBlock = 2,
    kEthernetColorHalfBlock = 3,
};

struct DeviceGeometry {
    std::uint32_t greyWidth = 0;
    std::uint32_t greyHeight = 0;
    std::uint32_t greyPixelBytes = 0;
    std::uint32_t greyImageBytes = 0;   // one camera
    std::uint32_t colorWidth = 0;
    std::uint32_t colorHeight = 0;
    std::uint32_t colorPixelBytes = 0;
    std::uint32_t colorImageBytes = 0;
    std::uint32_t transferUnitBytes = 0;
    // Per TransferKind: the count of transfer units in one block, and the
    // block size in bytes (count x unit).
    std::array<std::uint32_t, 4> blockCounts{};
    std::array<std::uint32_t, 4> blockBytes{};
};

// Image-border warning bands in grey-image pixels: markers inside the near
// band lie within 5 % of the border, inside the far band within 10 %.
struct BorderWarningBands {
    float nearLowX = 0, nearHighX = 0, nearLowY = 0, nearHighY = 0;
    float farLowX = 0, farHighX = 0, farLowY = 0, farHighY = 0;
};

// Geometry used until a configuration record says otherwise: 1280 x 720 grey
// images at one byte per pixel, a 1280 x 720 colour image at two bytes per
// pixel, 1024-byte transfer units in blocks of 225, 225, 60 and 60 units.
DeviceGeometry defaultGeometry();

// Warning bands of a grey image of the geometry's size.
BorderWarningBands warningBandsFor(const DeviceGeometry& geometry);

}  // namespace vyx::device
