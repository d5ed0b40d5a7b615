#include "sim/ImagePattern.h"

namespace vyx::sim {

std::uint8_t imagePatternByte(ImageCamera camera, std::uint32_t imageIndex, std::size_t offset) {
    const std::size_t value = 31 * offset + 17 * (offset >> 8) + 59 * (offset >> 16) +
                              7 * static_cast<std::size_t>(imageIndex) +
                              85 * static_cast<std::size_t>(camera);
    return static_cast<std::uint8_t>(value & 0xFF);
}

void fillImagePattern(ImageCamera camera, std::uint32_t imageIndex, std::size_t offset,
                      std::uint8_t* out, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        out[i] = imagePatternByte(camera, imageIndex, offset + i);
}

std::vector<std::uint8_t> expectedImage(ImageCamera camera, std::uint32_t imageIndex,
                                        std::size_t imageBytes) {
    std::vector<std::uint8_t> image(imageBytes);
    fillImagePattern(camera, imageIndex, 0, image.data(), image.size());
    return image;
}

std::uint32_t servedImageIndex(ImageCamera camera, std::uint8_t firstByte) {
    // 183 is the inverse of 7 modulo 256.
    const auto c = static_cast<std::uint32_t>(camera);
    return (183u * ((firstByte + 256u * 4u - 85u * c) % 256u)) % 256u;
}

}  // namespace vyx::sim
