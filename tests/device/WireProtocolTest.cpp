// The byte protocol: command packets, frame checks and decoding, image block
// geometry, configuration checksums and the Wi-Fi module's frames.
#include "device/Crc16.h"
#include "device/ImageStretch.h"
#include "device/WireProtocol.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <string>
#include <vector>

using namespace vyx::device;

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(const CommandPacket& p, E_Interface transport = Interface_USB) {
    return {p.bytes.begin(), p.bytes.begin() + static_cast<long>(wireLength(p, transport))};
}

// A frame of `size` bytes with the start mark, the 16-bit length at 2 when
// asked for, and the end mark.
Bytes framed(std::size_t size, bool withLength) {
    Bytes f(size, 0);
    f[0] = 0xA5;
    f[1] = 0x5A;
    if (withLength) writeU16(f.data() + 2, static_cast<std::uint16_t>(size));
    f[size - 2] = 0xFF;
    f[size - 1] = 0xFE;
    return f;
}

// Ethernet padding and the bytes of the setters are checked end to end in
// EthernetLinkTest; here the other transports and the edges it does not reach.
TEST(CommandPackets, LengthsByTransportClampsAndRefusals) {
    const CommandPacket exposure = dualExposureCommand(0x1234, 0xABCD);
    EXPECT_EQ(bytesOf(exposure), (Bytes{0x62, 0x34, 0x12, 0xCD, 0xAB}));
    EXPECT_EQ(bytesOf(exposure, Interface_WiFi).size(), 5u);
    // System commands: ten bytes on USB, one on Wi-Fi.
    EXPECT_EQ(bytesOf(systemCommand(0x4D)), (Bytes{0x4D, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(bytesOf(systemCommand(0x4D), Interface_WiFi), (Bytes{0x4D}));
    EXPECT_EQ(collisionLevelCommand(5).bytes[1], 5);
    EXPECT_EQ(bytesOf(colorExposureCommand(10)), (Bytes{0x5A, 48, 0}));
    EXPECT_TRUE(flashDelayCommand(255, 7) && !flashDelayCommand(0, -1));

    // Marker parameters send the low byte of d, as a signed byte, over 16,
    // and min(e, 21) - 1.
    const auto near = markerParametersCommand(0, 0, 5, 1000, 1);
    ASSERT_TRUE(near);
    EXPECT_EQ((Bytes{near->bytes[1], near->bytes[7]}), (Bytes{0xFF, 0}));
    // Each inequality, broken one at a time.
    const int broken[][5] = {{-1, 0, 5, 10, 1}, {30, 20, 5, 10, 1}, {0, 101, 5, 10, 1},
                             {0, 0, 4, 10, 1},  {0, 0, 11, 10, 1}, {0, 0, 5, 4001, 1},
                             {0, 0, 5, 10, 0},  {0, 0, 5, 10, 256}};
    for (const auto& p : broken)
        EXPECT_FALSE(markerParametersCommand(p[0], p[1], p[2], p[3], p[4])) << &p - broken;

    const std::pair<int, int> system[] = {{0, 0x20}, {7, 0x40}, {14, 0x53}, {16, 0x58}, {22, 0x72}};
    for (const auto& [value, code] : system) EXPECT_EQ(systemCommandByte(value), code) << value;
    for (int value : {15, 23, -1}) EXPECT_FALSE(systemCommandByte(value)) << value;
}

TEST(MarkerFrame, ValidityFrameIdAndOverLimit) {
    Bytes f = framed(kMarkerFrameBytes, false);
    EXPECT_TRUE(isValidMarkerFrame(f.data(), f.size()));
    EXPECT_FALSE(isValidMarkerFrame(f.data(), f.size() - 1));
    for (std::size_t mark : {1u, 4094u}) {
        Bytes broken = f;
        broken[mark] ^= 1;
        EXPECT_FALSE(isValidMarkerFrame(broken.data(), broken.size())) << mark;
    }

    // The 32-bit counter when the extended mark is present, else the id byte.
    const std::uint8_t* origin = f.data() + kMarkerOriginOffset;
    // (FrameDeliveryTest has both; here a spoilt mark falls back to the byte.)
    f[2] = 0x37;
    f[3212] = 0xB5;
    f[3213] = 0x5C;
    writeU32(f.data() + 3214, 0x01020304u);
    EXPECT_EQ(frameIdAt(origin), 0x37u);

    // Over the limit when either camera value (left at 3, right at 7) exceeds 5.
    for (const auto& [left, right, over] :
         {std::tuple{5, 5, false}, {5, 6, true}, {200, 0, true}}) {
        f[3] = static_cast<std::uint8_t>(left);
        f[7] = static_cast<std::uint8_t>(right);
        EXPECT_EQ(isOverLimit(origin), over) << left << " " << right;
    }
}

// The full status record is decoded end to end in EthernetLinkTest; here the
// unsigned sensor value, link state 1 and the layout-less models.
TEST(StatusDecoding, BothLayoutsFromTheFrameOffsets) {
    Bytes f = framed(kMarkerFrameBytes, false);
    writeU16(f.data() + 3224, 65535);
    f[4010] = 1;

    T_VyxPosStatusInfo first{}, none{};
    decodeStatus(f.data(), StatusLayout::First, first);
    EXPECT_FLOAT_EQ(first.SensorValue0, 655.35f);
    EXPECT_EQ(first.LinkState, 1u);
    none.SensorValue2 = 77;
    decodeStatus(f.data(), StatusLayout::None, none);
    EXPECT_EQ(none.SensorValue2, 77);
}

TEST(StatusDecoding, HardwareCheckTakesTheFirstFailingTest) {
    // Lanes of 16 bits, lane 0 lowest; lanes 1-3 are signed sixteenths.
    const auto field = [](int l0, int a, int b, int c) {
        std::uint64_t v = 0;
        for (int lane : {c * 16, b * 16, a * 16, l0})
            v = v << 16 | static_cast<std::uint16_t>(lane);
        return v;
    };
    // A negative reading (signed lanes) is below every bound.
    const std::pair<std::uint64_t, std::uint32_t> cases[] = {
        {field(0, 800, 500, 500), 0},  {field(1, 800, 500, 500), 7}, {field(3, 0, 0, 0), 7},
        {field(0, 699, 0, 0), 1},      {field(0, 1001, 0, 0), 2},    {field(0, -5, 500, 500), 1},
        {field(0, 700, 199, 2000), 3}, {field(0, 1000, 1001, 0), 4}, {field(0, 1000, 1000, 199), 5},
        {field(0, 1000, 200, 1001), 6}};
    for (const auto& [value, check] : cases) EXPECT_EQ(hardwareCheckValue(value), check) << value;
}

TEST(ImageBlocks, LargeSensorsEndInTheirKnownShortBlocks) {
    const std::uint32_t large = 2472u * 2064u, medium = 1236u * 1032u, ethernetBlock = 32u * 1024u,
                        usbBlock = 160u * 1024u;
    EXPECT_EQ(imageBlockCount(large, ethernetBlock), 156u);
    EXPECT_EQ(imageBlockBytes(large, ethernetBlock, 155), 23168u);
    EXPECT_EQ(imageBlockBytes(large, ethernetBlock, 154), ethernetBlock);
    EXPECT_EQ(imageBlockBytes(large, usbBlock, 31), 23168u);
    EXPECT_EQ(imageBlockBytes(medium, usbBlock, 7), 128672u);
    EXPECT_EQ(imageBlockBytes(medium, ethernetBlock, 38), 30368u);
    EXPECT_EQ(imageBlockBytes(medium, ethernetBlock, 39), 0u);
    EXPECT_EQ(imageBlockCount(100u, 0u), 0u);
}

// Its range and place in the block are checked by every connect in EthernetLinkTest.
TEST(ConfigurationChecksum, IsCrc16Modbus) {
    const std::string text = "123456789";  // the standard check value
    EXPECT_EQ(crc16Modbus(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()), 0x4B37);
    EXPECT_EQ(crc16Modbus(nullptr, 0), 0xFFFF);
}

// A Wi-Fi marker frame with the given points, with or without the trailer.
Bytes wifiMarkerFrame(int left, int right, bool trailer) {
    Bytes f = framed(static_cast<std::size_t>((left + right + 2) * 8 + (trailer ? 12 : 0)), true);
    std::uint8_t* payload = f.data() + 4;
    payload[0] = 0x42;  // frame id
    writeU16(payload + 2, static_cast<std::uint16_t>(left));
    writeU16(payload + 6, static_cast<std::uint16_t>(right));
    for (int i = 0; i < left + right; ++i) {
        const float xy[2] = {static_cast<float>(i), static_cast<float>(100 + i)};
        std::memcpy(payload + 8 + i * 8, xy, 8);
    }
    if (trailer) {
        std::uint8_t* t = f.data() + f.size() - 16;
        t[2] = 0xB5;
        t[3] = 0x5B;
        writeU32(t + 4, 123456u);
    }
    return f;
}

TEST(WifiFrames, ConfigurationAndStatusFramesAreCheckedWholeBeforeTheyAreCopied) {
    Bytes f = framed(kWifiConfigFrameBytes, true);
    for (std::size_t b = 0; b < 2; ++b) {
        std::uint8_t* block = f.data() + 4 + b * 512;
        for (std::size_t i = 0; i < 470; ++i) block[i] = static_cast<std::uint8_t>(i + b);
        writeU16(block + 509, crc16Modbus(block, 470));
    }
    Bytes config(1024, 0xEE);
    ASSERT_TRUE(parseWifiConfigFrame(f.data(), f.size(), config.data()));
    EXPECT_EQ(config, Bytes(f.begin() + 4, f.begin() + 1028));

    Bytes untouched(1024, 0xEE);
    EXPECT_FALSE(parseWifiConfigFrame(f.data(), f.size() - 1, untouched.data()));
    for (std::size_t spoilt : {2u, 4u + 512u + 10u, 1031u}) {  // length, block 2, end mark
        Bytes bad = f;
        bad[spoilt] ^= 1;
        EXPECT_FALSE(parseWifiConfigFrame(bad.data(), bad.size(), untouched.data())) << spoilt;
    }
    EXPECT_EQ(untouched, Bytes(1024, 0xEE));

    // The status frame likewise.
    Bytes status = framed(32, true);
    for (std::size_t i = 0; i < 24; ++i) status[4 + i] = static_cast<std::uint8_t>(i + 1);
    std::uint8_t copied[24] = {};
    ASSERT_TRUE(parseWifiStatusFrame(status.data(), status.size(), copied));
    EXPECT_EQ(Bytes(copied, copied + 24), Bytes(status.begin() + 4, status.begin() + 28));
    status[31] = 0;
    EXPECT_FALSE(parseWifiStatusFrame(status.data(), status.size(), copied));
}

TEST(WifiFrames, MarkerFrameIsCheckedAndLaidOutLikeTheWiredOne) {
    const Bytes f = wifiMarkerFrame(3, 2, true);
    ASSERT_EQ(wifiMarkerFrameLength(f.data()), f.size());
    Bytes origin(kMarkerOriginBytes, 0xEE);
    ASSERT_TRUE(parseWifiMarkerFrame(f.data(), f.size(), origin.data()));
    using namespace marker_offset;
    EXPECT_EQ((Bytes{origin[kFrameId], origin[kLeftCount], origin[kRightCount]}),
              (Bytes{0x42, 3, 2}));
    // The third left point, then the first right one: the payload's fourth point.
    float xy[4];
    std::memcpy(xy, origin.data() + kLeftPoints + 2 * 8, 8);
    std::memcpy(xy + 2, origin.data() + kRightPoints, 8);
    EXPECT_EQ(std::vector<float>(xy, xy + 4), (std::vector<float>{2, 102, 3, 103}));
    EXPECT_EQ(frameIdAt(origin.data()), 123456u);

    // Without the trailer there is no extended id.
    const Bytes plain = wifiMarkerFrame(1, 1, false);
    ASSERT_TRUE(parseWifiMarkerFrame(plain.data(), plain.size(), origin.data()));
    EXPECT_EQ(frameIdAt(origin.data()), 0x42u);

    // Malformed frames are refused.
    Bytes badClose = wifiMarkerFrame(2, 2, true);
    badClose.back() = 0xFF;
    Bytes liar = wifiMarkerFrame(2, 2, false);  // counts more points than it holds
    writeU16(liar.data() + 4 + 2, 150);
    Bytes tooMany = wifiMarkerFrame(1, 1, false);
    writeU16(tooMany.data() + 4 + 6, 201);
    for (const Bytes* bad : {&badClose, &liar, &tooMany})
        EXPECT_FALSE(parseWifiMarkerFrame(bad->data(), bad->size(), origin.data()));
    EXPECT_FALSE(parseWifiMarkerFrame(badClose.data(), 7, origin.data()));
    const std::uint8_t badMark[4] = {0x5A, 0xA5, 10, 0};
    EXPECT_FALSE(wifiMarkerFrameLength(badMark));
}

TEST(ImageStretch, EveryRowIsRepeatedAlsoInPlace) {
    // Four columns, six rows: the first three rows hold the image.
    Bytes image(4 * 6, 0), expected;
    for (std::size_t i = 0; i < 12; ++i) image[i] = static_cast<std::uint8_t>(i + 1);
    for (std::size_t row = 0; row < 3; ++row)
        for (int copy = 0; copy < 2; ++copy)
            expected.insert(expected.end(), image.begin() + 4 * row, image.begin() + 4 * row + 4);
    Bytes out(image.size(), 0xEE);
    stretchRowsTwice(image.data(), out.data(), 4, 6);
    EXPECT_EQ(out, expected);
    stretchRowsTwice(image.data(), image.data(), 4, 6);
    EXPECT_EQ(image, expected);
}

}  // namespace
