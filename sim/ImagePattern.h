// The images the virtual tracker serves. Each image carries a pattern that
// tells the cameras, successive images and every 256-byte stretch apart, so a
// host that puts a block at the wrong offset, swaps the cameras or mixes two
// images shows it byte for byte:
//
//   byte i of image k of camera c =
//       (31 i + 17 floor(i / 256) + 59 floor(i / 65536) + 7 k + 85 c) mod 256
//
// with c = 0 for the left grey camera, 1 for the right one and 2 for the
// colour camera, and k counting the images of that camera served since the
// tracker was created (the first is 0).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vyx::sim {

enum class ImageCamera : std::uint8_t { LeftGrey = 0, RightGrey = 1, Colour = 2 };

std::uint8_t imagePatternByte(ImageCamera camera, std::uint32_t imageIndex, std::size_t offset);

// Fills `size` bytes of image `imageIndex` from `offset` on.
void fillImagePattern(ImageCamera camera, std::uint32_t imageIndex, std::size_t offset,
                      std::uint8_t* out, std::size_t size);

// The whole image of `imageBytes` bytes that the tracker serves as image
// `imageIndex` of `camera`.
std::vector<std::uint8_t> expectedImage(ImageCamera camera, std::uint32_t imageIndex,
                                        std::size_t imageBytes);

// Which image of `camera` starts with `firstByte`, modulo 256: the inverse of
// the pattern at offset 0, so that a host can tell which image it was given.
std::uint32_t servedImageIndex(ImageCamera camera, std::uint8_t firstByte);

}  // namespace vyx::sim
