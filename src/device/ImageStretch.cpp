#include "device/ImageStretch.h"

#include <cstring>

namespace vyx::device {

void stretchRowsTwice(const std::uint8_t* in, std::uint8_t* out, std::size_t width,
                      std::size_t height) {
    for (std::size_t row = height / 2; row-- > 0;) {
        const std::uint8_t* source = in + row * width;
        // The lower copy first: for row 0 in place, the upper copy is the
        // source itself.
        std::memmove(out + (2 * row + 1) * width, source, width);
        std::memmove(out + 2 * row * width, source, width);
    }
}

}  // namespace vyx::device
