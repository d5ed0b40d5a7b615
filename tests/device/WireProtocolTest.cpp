// The byte protocol: command packets, frame checks and decoding, image block
// geometry, configuration checksums and the Wi-Fi module's frames.
#include "device/Crc16.h"
#include "device/ImageStretch.h"
#include "device/WireProtocol.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace vyx::device;

namespace {

std::vector<std::uint8_t> bytesOf(const CommandPacket& p, E_Interface transport) {
    return {p.bytes.begin(), p.bytes.begin() + static_cast<long>(wireLength(p, transport))};
}

std::vector<std::uint8_t> validFrame() {
    std::vector<std::uint8_t> f(kMarkerFrameBytes, 0);
    f[0] = 0xA5;
    f[1] = 0x5A;
    f[4094] = 0xFF;
    f[4095] = 0xFE;
    return f;
}

}  // namespace

TEST(Crc16Modbus, MatchesTheStandardCheckValue) {
    const std::string text = "123456789";
    EXPECT_EQ(crc16Modbus(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), 0x4B37);
    EXPECT_EQ(crc16Modbus(nullptr, 0), 0xFFFF);
}

TEST(CommandPackets, ParameterisedCommandsArePaddedToTenBytesOnEthernetOnly) {
    const CommandPacket exposure = dualExposureCommand(0x1234, 0xABCD);
    EXPECT_EQ(bytesOf(exposure, Interface_USB),
              (std::vector<std::uint8_t>{0x62, 0x34, 0x12, 0xCD, 0xAB}));
    EXPECT_EQ(bytesOf(exposure, Interface_WiFi).size(), 5u);
    EXPECT_EQ(bytesOf(exposure, Interface_Ethernet),
              (std::vector<std::uint8_t>{0x62, 0x34, 0x12, 0xCD, 0xAB, 0, 0, 0, 0, 0}));
    // Requests and the mode command keep their own length everywhere.
    EXPECT_EQ(bytesOf(singleByteCommand(command::kMarkerRequest), Interface_Ethernet),
              (std::vector<std::uint8_t>{0x0F}));
    EXPECT_EQ(bytesOf(acquireModeCommand(2), Interface_Ethernet),
              (std::vector<std::uint8_t>{0x0C, 0x02}));
    // System commands: ten bytes on USB and Ethernet, one on Wi-Fi.
    EXPECT_EQ(bytesOf(systemCommand(0x4D), Interface_USB).size(), 10u);
    EXPECT_EQ(bytesOf(systemCommand(0x4D), Interface_Ethernet).size(), 10u);
    EXPECT_EQ(bytesOf(systemCommand(0x4D), Interface_WiFi), (std::vector<std::uint8_t>{0x4D}));
}

TEST(CommandPackets, ClampsAndRefusals) {
    EXPECT_EQ(collisionLevelCommand(0).bytes[1], 1);
    EXPECT_EQ(collisionLevelCommand(5).bytes[1], 5);
    EXPECT_EQ(collisionLevelCommand(200).bytes[1], 10);
    const auto colourLow = colorExposureCommand(10);
    EXPECT_EQ(colourLow.bytes[1] | (colourLow.bytes[2] << 8), 48);
    const auto colourHigh = colorExposureCommand(100000);
    EXPECT_EQ(colourHigh.bytes[1] | (colourHigh.bytes[2] << 8), 8192);
    EXPECT_FALSE(flashDelayCommand(256, 0));
    EXPECT_FALSE(flashDelayCommand(0, -1));
    ASSERT_TRUE(flashDelayCommand(255, 7));
    EXPECT_EQ(bytesOf(*flashDelayCommand(255, 7), Interface_USB),
              (std::vector<std::uint8_t>{0x63, 0xFF, 0x07, 0x63, 0xFE}));
    EXPECT_EQ(bytesOf(lcdRawPointCommand(true), Interface_USB),
              (std::vector<std::uint8_t>{0xA0, 0x0A, 0x01}));
    EXPECT_EQ(bytesOf(deviceIPCommand(127, 0, 0, 5), Interface_USB),
              (std::vector<std::uint8_t>{0x90, 127, 0, 0, 5, 0x90, 0xFE}));
}

TEST(CommandPackets, MarkerParametersSendTheLowByteOfDOverSixteen) {
    const auto far = markerParametersCommand(10, 20, 5, 4000, 30);
    ASSERT_TRUE(far);
    EXPECT_EQ(bytesOf(*far, Interface_USB),
              (std::vector<std::uint8_t>{0x80, 0xFA, 0x05, 0x64, 10, 30, 30, 20}));
    const auto near = markerParametersCommand(0, 0, 5, 1000, 1);
    ASSERT_TRUE(near);
    EXPECT_EQ(near->bytes[1], 0xFF);
    EXPECT_EQ(near->bytes[7], 0);  // min(e, 21) - 1
    // Each inequality, broken one at a time.
    EXPECT_FALSE(markerParametersCommand(-1, 0, 5, 10, 1));
    EXPECT_FALSE(markerParametersCommand(30, 20, 5, 10, 1));
    EXPECT_FALSE(markerParametersCommand(0, 101, 5, 10, 1));
    EXPECT_FALSE(markerParametersCommand(0, 0, 4, 10, 1));
    EXPECT_FALSE(markerParametersCommand(0, 0, 11, 10, 1));
    EXPECT_FALSE(markerParametersCommand(0, 0, 5, 4001, 1));
    EXPECT_FALSE(markerParametersCommand(0, 0, 5, 10, 0));
    EXPECT_FALSE(markerParametersCommand(0, 0, 5, 10, 256));
}

TEST(CommandPackets, SystemCommandBytes) {
    EXPECT_EQ(systemCommandByte(0), 0x20);
    EXPECT_EQ(systemCommandByte(7), 0x40);
    EXPECT_EQ(systemCommandByte(14), 0x53);
    EXPECT_EQ(systemCommandByte(16), 0x58);
    EXPECT_EQ(systemCommandByte(22), 0x72);
    EXPECT_FALSE(systemCommandByte(15));
    EXPECT_FALSE(systemCommandByte(23));
    EXPECT_FALSE(systemCommandByte(-1));
}

TEST(MarkerFrame, OnlyCompleteFramesWithBothMarksAreValid) {
    auto f = validFrame();
    EXPECT_TRUE(isValidMarkerFrame(f.data(), f.size()));
    EXPECT_FALSE(isValidMarkerFrame(f.data(), f.size() - 1));
    f[4094] = 0xFE;
    EXPECT_FALSE(isValidMarkerFrame(f.data(), f.size()));
    f = validFrame();
    f[1] = 0x5B;
    EXPECT_FALSE(isValidMarkerFrame(f.data(), f.size()));
}

TEST(MarkerFrame, FrameIdIsTheCounterWhenTheExtendedMarkIsPresent) {
    auto f = validFrame();
    f[2] = 0x37;
    const std::uint8_t* origin = f.data() + kMarkerOriginOffset;
    EXPECT_EQ(frameIdAt(origin), 0x37u);
    f[3212] = 0xB5;
    f[3213] = 0x5B;
    writeU32(f.data() + 3214, 0x01020304u);
    EXPECT_EQ(frameIdAt(origin), 0x01020304u);
    f[3213] = 0x5C;  // a broken mark falls back to the header byte
    EXPECT_EQ(frameIdAt(origin), 0x37u);
}

TEST(MarkerFrame, OverLimitWhenEitherCameraValueExceedsFive) {
    auto f = validFrame();
    const std::uint8_t* origin = f.data() + kMarkerOriginOffset;
    f[3] = 5;
    f[7] = 5;
    EXPECT_FALSE(isOverLimit(origin));
    f[7] = 6;
    EXPECT_TRUE(isOverLimit(origin));
    f[7] = 0;
    f[3] = 200;
    EXPECT_TRUE(isOverLimit(origin));
}

TEST(StatusDecoding, BothLayoutsFromTheFrameOffsets) {
    auto f = validFrame();
    writeU16(f.data() + 4000, static_cast<std::uint16_t>(-1234));  // -12.34 degrees
    writeU16(f.data() + 4002, 3456);                               // 34.56 degrees
    writeU16(f.data() + 3224, 65535);
    writeU16(f.data() + 3226, 100);
    f[4020] = 0xFE;  // -2 as a signed byte
    f[4021] = 0x05;
    writeU16(f.data() + 3220, 0xFFF0);
    writeU16(f.data() + 3222, 300);
    f[4022] = 0xAB;
    f[4023] = 0xCD;
    writeU32(f.data() + 4030, 0x11223344u);
    f[4010] = 1;

    T_VyxPosStatusInfo first{};
    decodeStatus(f.data(), StatusLayout::First, first);
    EXPECT_FLOAT_EQ(first.Temperature0, -12.34f);
    EXPECT_FLOAT_EQ(first.Temperature1, 34.56f);
    EXPECT_FLOAT_EQ(first.SensorValue0, 655.35f);
    EXPECT_FLOAT_EQ(first.SensorValue1, 1.0f);
    EXPECT_EQ(first.SensorValue2, -2);
    EXPECT_EQ(first.SensorValue3, 5);
    EXPECT_EQ(first.StateByte0, 0xAB);
    EXPECT_EQ(first.StateByte1, 0xCD);
    EXPECT_EQ(first.StateWord0, 0x1122);
    EXPECT_EQ(first.StateWord1, 0x3344);
    EXPECT_EQ(first.LinkState, 1u);

    T_VyxPosStatusInfo second{};
    decodeStatus(f.data(), StatusLayout::Second, second);
    EXPECT_EQ(static_cast<std::uint16_t>(second.SensorValue2), 0xFFF0);
    EXPECT_EQ(second.SensorValue3, 300);

    T_VyxPosStatusInfo none{};
    none.SensorValue2 = 77;
    decodeStatus(f.data(), StatusLayout::None, none);
    EXPECT_EQ(none.SensorValue2, 77);

    f[4010] = 9;
    decodeStatus(f.data(), StatusLayout::First, first);
    EXPECT_EQ(first.LinkState, 2u);
}

TEST(StatusDecoding, HardwareCheckTakesTheFirstFailingTest) {
    // Lanes of 16 bits, lane 0 lowest; values are sixteenths.
    const auto field = [](int l0, int a, int b, int c) {
        const auto lane = [](int v) { return static_cast<std::uint64_t>(static_cast<std::uint16_t>(v)); };
        return lane(l0) | (lane(a * 16) << 16) | (lane(b * 16) << 32) | (lane(c * 16) << 48);
    };
    EXPECT_EQ(hardwareCheckValue(field(0, 800, 500, 500)), 0u);
    EXPECT_EQ(hardwareCheckValue(field(1, 800, 500, 500)), 7u);
    EXPECT_EQ(hardwareCheckValue(field(3, 0, 0, 0)), 7u);
    EXPECT_EQ(hardwareCheckValue(field(0, 699, 0, 0)), 1u);
    EXPECT_EQ(hardwareCheckValue(field(0, 1001, 0, 0)), 2u);
    EXPECT_EQ(hardwareCheckValue(field(0, 700, 199, 2000)), 3u);
    EXPECT_EQ(hardwareCheckValue(field(0, 1000, 1001, 0)), 4u);
    EXPECT_EQ(hardwareCheckValue(field(0, 1000, 1000, 199)), 5u);
    EXPECT_EQ(hardwareCheckValue(field(0, 1000, 200, 1001)), 6u);
    // Lanes are signed: a negative reading is below every lower bound.
    EXPECT_EQ(hardwareCheckValue(field(0, -5, 500, 500)), 1u);

    auto f = validFrame();
    const std::uint64_t bad = field(0, 800, 150, 500);
    for (int i = 0; i < 8; ++i) f[4040 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(bad >> (8 * i));
    T_VyxPosStatusInfo s{};
    decodeStatus(f.data(), StatusLayout::First, s);
    EXPECT_EQ(s.HardwareCheck, 3u);
}

TEST(ImageBlocks, LargeSensorsEndInTheDocumentedShortBlocks) {
    const std::uint32_t large = 2472u * 2064u;  // 5102208 bytes
    const std::uint32_t medium = 1236u * 1032u; // 1275552 bytes
    const std::uint32_t ethernetBlock = 32u * 1024u;
    const std::uint32_t usbBlock = 160u * 1024u;
    EXPECT_EQ(imageBlockCount(large, ethernetBlock), 156u);
    EXPECT_EQ(imageBlockBytes(large, ethernetBlock, 155), 23168u);
    EXPECT_EQ(imageBlockBytes(large, ethernetBlock, 154), ethernetBlock);
    EXPECT_EQ(imageBlockBytes(large, usbBlock, 31), 23168u);
    EXPECT_EQ(imageBlockBytes(medium, usbBlock, 7), 128672u);
    EXPECT_EQ(imageBlockBytes(medium, ethernetBlock, 38), 30368u);
    EXPECT_EQ(imageBlockBytes(medium, ethernetBlock, 39), 0u);
    // The default image splits evenly into 15 blocks before configuration.
    EXPECT_EQ(imageBlockCount(921600u, 61440u), 15u);
    EXPECT_EQ(imageBlockCount(100u, 0u), 0u);
}

TEST(Configuration, BlockChecksumCoversBytesZeroTo469) {
    std::vector<std::uint8_t> block(kConfigBlockBytes);
    for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 13);
    const std::uint16_t crc = crc16Modbus(block.data(), 470);
    writeU16(block.data() + 509, crc);
    EXPECT_TRUE(configBlockChecksumOk(block.data()));
    block[470] ^= 0xFF;  // outside the covered range
    block[511] ^= 0xFF;
    EXPECT_TRUE(configBlockChecksumOk(block.data()));
    block[469] ^= 0x01;
    EXPECT_FALSE(configBlockChecksumOk(block.data()));
}

namespace {

std::vector<std::uint8_t> wifiConfigFrame() {
    std::vector<std::uint8_t> f(kWifiConfigFrameBytes, 0);
    f[0] = 0xA5;
    f[1] = 0x5A;
    writeU16(f.data() + 2, static_cast<std::uint16_t>(kWifiConfigFrameBytes));
    for (int b = 0; b < 2; ++b) {
        std::uint8_t* block = f.data() + 4 + b * 512;
        for (int i = 0; i < 470; ++i) block[i] = static_cast<std::uint8_t>(i + b);
        writeU16(block + 509, crc16Modbus(block, 470));
    }
    f[1030] = 0xFF;
    f[1031] = 0xFE;
    return f;
}

// A Wi-Fi marker frame with the given points, with or without the trailer.
std::vector<std::uint8_t> wifiMarkerFrame(int left, int right, bool trailer) {
    const std::size_t length = static_cast<std::size_t>((left + right + 2) * 8 + (trailer ? 12 : 0));
    std::vector<std::uint8_t> f(length, 0);
    f[0] = 0xA5;
    f[1] = 0x5A;
    writeU16(f.data() + 2, static_cast<std::uint16_t>(length));
    std::uint8_t* payload = f.data() + 4;
    payload[0] = 0x42;  // frame id
    writeU16(payload + 2, static_cast<std::uint16_t>(left));
    writeU16(payload + 6, static_cast<std::uint16_t>(right));
    for (int i = 0; i < left + right; ++i) {
        const float xy[2] = {static_cast<float>(i), static_cast<float>(100 + i)};
        std::memcpy(payload + 8 + i * 8, xy, 8);
    }
    if (trailer) {
        std::uint8_t* t = f.data() + length - 16;
        t[2] = 0xB5;
        t[3] = 0x5B;
        writeU32(t + 4, 123456u);
    }
    f[length - 2] = 0xFF;
    f[length - 1] = 0xFE;
    return f;
}

}  // namespace

TEST(WifiFrames, ConfigurationFrameIsCheckedWholeBeforeItIsCopied) {
    auto f = wifiConfigFrame();
    std::vector<std::uint8_t> config(1024, 0xEE);
    ASSERT_TRUE(parseWifiConfigFrame(f.data(), f.size(), config.data()));
    EXPECT_EQ(std::memcmp(config.data(), f.data() + 4, 1024), 0);

    std::vector<std::uint8_t> untouched(1024, 0xEE);
    EXPECT_FALSE(parseWifiConfigFrame(f.data(), f.size() - 1, untouched.data()));
    auto badLength = f;
    writeU16(badLength.data() + 2, 1000);
    EXPECT_FALSE(parseWifiConfigFrame(badLength.data(), badLength.size(), untouched.data()));
    auto badSecond = f;
    badSecond[4 + 512 + 10] ^= 1;
    EXPECT_FALSE(parseWifiConfigFrame(badSecond.data(), badSecond.size(), untouched.data()));
    auto badEnd = f;
    badEnd[1031] = 0xFF;
    EXPECT_FALSE(parseWifiConfigFrame(badEnd.data(), badEnd.size(), untouched.data()));
    EXPECT_EQ(untouched, std::vector<std::uint8_t>(1024, 0xEE));
}

TEST(WifiFrames, MarkerFrameIsLaidOutLikeTheWiredOne) {
    const auto f = wifiMarkerFrame(3, 2, true);
    ASSERT_EQ(wifiMarkerFrameLength(f.data()), f.size());
    std::vector<std::uint8_t> origin(kMarkerOriginBytes, 0xEE);
    ASSERT_TRUE(parseWifiMarkerFrame(f.data(), f.size(), origin.data()));
    EXPECT_EQ(origin[marker_offset::kFrameId], 0x42);
    EXPECT_EQ(origin[marker_offset::kLeftCount], 3);
    EXPECT_EQ(origin[marker_offset::kRightCount], 2);
    float xy[2];
    std::memcpy(xy, origin.data() + marker_offset::kLeftPoints + 2 * 8, 8);
    EXPECT_EQ(xy[0], 2.0f);
    // The first right point was the fourth point of the payload.
    std::memcpy(xy, origin.data() + marker_offset::kRightPoints, 8);
    EXPECT_EQ(xy[0], 3.0f);
    EXPECT_EQ(xy[1], 103.0f);
    EXPECT_EQ(frameIdAt(origin.data()), 123456u);
}

TEST(WifiFrames, MarkerFrameWithoutTrailerHasNoExtendedId) {
    const auto f = wifiMarkerFrame(1, 1, false);
    std::vector<std::uint8_t> origin(kMarkerOriginBytes, 0);
    ASSERT_TRUE(parseWifiMarkerFrame(f.data(), f.size(), origin.data()));
    EXPECT_EQ(frameIdAt(origin.data()), 0x42u);
}

TEST(WifiFrames, MalformedMarkerFramesAreRejected) {
    std::vector<std::uint8_t> origin(kMarkerOriginBytes, 0);
    auto badClose = wifiMarkerFrame(2, 2, true);
    badClose.back() = 0xFF;
    EXPECT_FALSE(parseWifiMarkerFrame(badClose.data(), badClose.size(), origin.data()));
    // Counts that claim more points than the frame holds.
    auto liar = wifiMarkerFrame(2, 2, false);
    writeU16(liar.data() + 4 + 2, 150);
    EXPECT_FALSE(parseWifiMarkerFrame(liar.data(), liar.size(), origin.data()));
    auto tooMany = wifiMarkerFrame(1, 1, false);
    writeU16(tooMany.data() + 4 + 6, 201);
    EXPECT_FALSE(parseWifiMarkerFrame(tooMany.data(), tooMany.size(), origin.data()));
    const std::uint8_t badMark[4] = {0x5A, 0xA5, 10, 0};
    EXPECT_FALSE(wifiMarkerFrameLength(badMark));
    EXPECT_FALSE(parseWifiMarkerFrame(badClose.data(), 7, origin.data()));
}

TEST(WifiFrames, StatusFrame) {
    std::vector<std::uint8_t> f(32, 0);
    f[0] = 0xA5;
    f[1] = 0x5A;
    writeU16(f.data() + 2, 32);
    for (int i = 0; i < 24; ++i) f[4 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(i + 1);
    f[30] = 0xFF;
    f[31] = 0xFE;
    std::uint8_t status[24] = {};
    ASSERT_TRUE(parseWifiStatusFrame(f.data(), f.size(), status));
    EXPECT_EQ(status[0], 1);
    EXPECT_EQ(status[23], 24);
    f[31] = 0;
    EXPECT_FALSE(parseWifiStatusFrame(f.data(), f.size(), status));
}

TEST(ImageStretch, EveryRowIsRepeatedAlsoInPlace) {
    // Four columns, six rows: the first three rows hold the image.
    std::vector<std::uint8_t> image(4 * 6, 0);
    for (std::size_t i = 0; i < 12; ++i) image[i] = static_cast<std::uint8_t>(i + 1);
    std::vector<std::uint8_t> expected;
    for (int row = 0; row < 3; ++row)
        for (int copy = 0; copy < 2; ++copy)
            for (int col = 0; col < 4; ++col) expected.push_back(static_cast<std::uint8_t>(row * 4 + col + 1));
    std::vector<std::uint8_t> out(image.size(), 0xEE);
    stretchRowsTwice(image.data(), out.data(), 4, 6);
    EXPECT_EQ(out, expected);
    stretchRowsTwice(image.data(), image.data(), 4, 6);
    EXPECT_EQ(image, expected);
}
