// Images that a device delivers at half height are shown at full height by
// repeating every row.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyx::device {

// Writes each of the height / 2 rows of `in` twice into `out` (width bytes a
// row), working from the last row upward so that `in` and `out` may be the
// same buffer. `out` holds width x height bytes.
void stretchRowsTwice(const std::uint8_t* in, std::uint8_t* out, std::size_t width,
                      std::size_t height);

}  // namespace vyx::device
