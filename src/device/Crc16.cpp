#include "device/Crc16.h"

#include <array>

namespace vyx::device {
namespace {

constexpr std::array<std::uint16_t, 256> makeTable() {
    std::array<std::uint16_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint16_t crc = static_cast<std::uint16_t>(i);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1u) ? static_cast<std::uint16_t>((crc >> 1) ^ 0xA001u)
                             : static_cast<std::uint16_t>(crc >> 1);
        table[i] = crc;
    }
    return table;
}

constexpr auto kTable = makeTable();

}  // namespace

std::uint16_t crc16Modbus(const std::uint8_t* data, std::size_t size) {
    std::uint16_t crc = 0xFFFF;
    for (std::size_t i = 0; i < size; ++i)
        crc = static_cast<std::uint16_t>((crc >> 8) ^ kTable[(crc ^ data[i]) & 0xFFu]);
    return crc;
}

}  // namespace vyx::device
