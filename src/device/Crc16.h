// CRC-16/MODBUS, the checksum of the tracker's configuration blocks.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyx::device {

// Initial value 0xFFFF, reflected polynomial 0xA001 (0x8005 unreflected),
// least significant bit first, no final XOR. The check value of the ASCII
// text "123456789" is 0x4B37.
std::uint16_t crc16Modbus(const std::uint8_t* data, std::size_t size);

}  // namespace vyx::device
