#include "device/DeviceModel.h"
#include "device/WireProtocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

using namespace vyx::device;

namespace {

TEST(DeviceModelLookup, FirstCodeThatBeginsTheTextWinsElseTheCurrentIndexStays) {
    const struct {
        const char* text;
        std::uint32_t current, index;
    } cases[] = {
        {"QX-BAS", 100, 1},    {"QX-PRO-2", 100, 2}, {"QX-MIN 01", 100, 3}, {"ZR-C547", 100, 6},
        {"ZR-C544-A", 100, 7}, {"ZR-C857X", 100, 9}, {"ZR-C854", 100, 10},  {"ZR-D847", 100, 12},
        {"ZR-D844", 100, 13},  {"ZR-D947", 100, 15}, {"ZR-D944", 100, 16},  {"ZR-C57", 100, 5},
        {"ZR-C84", 100, 8},    {"ZR-D87", 100, 11},  {"ZR-D97", 100, 14},   {"ZR-D640", 100, 17},
        {"ZR-C5477", 100, 6},  {"ZR-C847", 100, 8},  {"ZR-C5", 100, 100},   {"ZR-C54", 7, 7},
        {"QX-BA", 0, 0},       {"", 100, 100},       {"qx-bas", 100, 100},  {"XQX-BAS", 100, 100},
    };
    for (const auto& c : cases)
        EXPECT_EQ(modelIndexFromText(c.text, std::strlen(c.text), c.current), c.index) << c.text;
    // Only the given length counts, whatever follows in memory.
    EXPECT_EQ(modelIndexFromText("ZR-D947", 6, 4), 4u);
    EXPECT_EQ(modelIndexFromText(nullptr, 7, 12), 12u);
}

TEST(DeviceModelProperties, DepthLimitStatusLayoutAndDualExposureByIndex) {
    // Per index: depth limit (0: left as it was), status layout (First,
    // Second, None) and dual exposure clamp (a: 48-8192, b: 16-16384, -: the
    // low 16 bits as they are).
    const std::uint32_t index[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10,
                                   11, 12, 13, 14, 15, 16, 17, 18, 99, 100};
    const double depth[] = {30000, 30000, 300000, 2400, 0, 2400, 2400, 2400, 30000, 30000, 30000,
                            30000, 30000, 0, 0, 300000, 300000, 6000, 0, 0, 30000};
    const std::string layout = "FFFFFFFSFFSFFSNFSFNNN";
    const std::string clamp = "abbb-a--b--b--------a";
    const StatusLayout layouts[] = {StatusLayout::First, StatusLayout::Second, StatusLayout::None};
    for (std::size_t i = 0; i < std::size(index); ++i) {
        SCOPED_TRACE(index[i]);
        double limit = 1234.5;
        applyDepthLimitForModel(index[i], limit);
        EXPECT_EQ(limit, depth[i] == 0 ? 1234.5 : depth[i]);
        EXPECT_EQ(statusLayoutForModel(index[i]), layouts[std::string("FSN").find(layout[i])]);
        EXPECT_EQ(dualExposureForModel(index[i], 10),
                  clamp[i] == 'a' ? 48 : clamp[i] == 'b' ? 16 : 10);
        EXPECT_EQ(dualExposureForModel(index[i], 20000),
                  clamp[i] == 'a' ? 8192 : clamp[i] == 'b' ? 16384 : 20000);
    }
    EXPECT_EQ(dualExposureForModel(9, 70000), 4464);  // 70000 - 65536
    EXPECT_EQ(dualExposureForModel(16, -1), 0xFFFF);
    EXPECT_EQ(dualExposureForModel(3, -5), 16);
}

TEST(DeviceModelExposure, FromDistanceInTheNearOrFarRange) {
    // Near (models 3 and 5): 300-1500 mm to 500-1200; far: 1000-3000 mm to
    // 800-1500; in between integer division truncates.
    const struct {
        std::uint32_t index;
        int distance, exposure;
    } cases[] = {
        {3, 100, 500},    {3, 300, 500},   {3, 301, 500},    {3, 302, 501},  // 1400 / 1200
        {5, 900, 850},    {5, 1500, 1200}, {5, 2000, 1200},  {9, 999, 800},
        {1, 1000, 800},   {9, 2000, 1150}, {100, 3000, 1500}, {9, 5000, 1500},
        {17, 1002, 800},  {17, 1003, 801},  // 2100 / 2000
        {17, INT_MAX, 1500}, {17, INT_MIN, 800},
    };
    for (const auto& c : cases)
        EXPECT_EQ(exposureFromDistance(c.index, c.distance), c.exposure)
            << "model " << c.index << " at " << c.distance;
}

// A manufacture section of exactly the size the decoder may read, so that the
// address sanitizer catches any read past it.
struct Manufacture {
    std::vector<std::uint8_t> config = std::vector<std::uint8_t>(485, 0);
    ManufactureRecord record;
    std::uint32_t modelIndex = 100;
    double depthLimit = 3000;
    DeviceGeometry geometry = defaultGeometry();
    BorderWarningBands bands;
    std::array<std::uint8_t, 4> ip{{10, 0, 0, 7}};

    void putU16(std::size_t at, unsigned v) {
        writeU16(&config.at(at), static_cast<std::uint16_t>(v));
    }
    void putModel(const std::string& text, std::uint8_t lengthByte) {
        config.at(420) = lengthByte;
        std::copy_n(text.begin(), std::min<std::size_t>(20, text.size()), config.begin() + 421);
    }
    void decode(const char* separateText = nullptr) {
        decodeManufactureSection(config.data(), separateText, record, modelIndex, depthLimit,
                                 geometry, bands, ip);
    }
};

TEST(ManufactureSection, RecordFieldsWithTheModelTextClampedTo20AndZeroFilled) {
    Manufacture m;
    m.putU16(416, 2023);
    m.putU16(418, 11 | (30u << 8));  // month 11, day 30
    m.putModel("ZR-C857-ABCDEFGHIJKL", 25);
    m.decode();
    EXPECT_EQ((std::vector<int>{m.record.year, m.record.month, m.record.day, m.record.modelLength}),
              (std::vector<int>{2023, 11, 30, 20}));
    EXPECT_EQ(std::string(m.record.model, 20), "ZR-C857-ABCDEFGHIJKL");
    EXPECT_EQ(std::pair(m.modelIndex, m.depthLimit), std::pair(9u, 30000.0));

    // The separately read text replaces the configuration's, for the record's
    // length; beyond that length the model is zero, whatever stood there.
    m.putModel("QX-BAS-0001", 11);
    m.decode("ZR-D947-0002zzzzzzz");
    EXPECT_EQ(std::string(m.record.model, 20), std::string("ZR-D947-000") + std::string(9, '\0'));
    EXPECT_EQ(std::pair(m.modelIndex, m.depthLimit), std::pair(15u, 300000.0));
}

TEST(ManufactureSection, GeometryAndAddressByModelGroup) {
    // Each case starts from the default geometry with an 800 x 600 colour image
    // (byte count left at 1843200) and the given transfer unit. The record
    // holds 1920 x 1080 grey and 640 x 480 colour sizes, then the USB grey,
    // USB colour, Ethernet grey and Ethernet colour counts and the unit (zero:
    // 160, 225, 32, 60 units of 1024 bytes). Expected: grey width, height,
    // bytes; colour width, height, bytes; unit; the four counts.
    const struct {
        const char* text;
        std::uint32_t startIndex, startUnit;
        std::array<unsigned, 5> record;
        std::uint32_t index;
        bool takesAddress;
        std::array<std::uint32_t, 11> geometry;
    } cases[] = {
        // Models 1 and 8: sizes and three counts; the colour byte count, the
        // Ethernet colour count and a non-zero unit stay.
        {"QX-BAS", 100, 512, {100, 0, 0, 77, 2048}, 1, true,
         {1920, 1080, 2073600, 640, 480, 1843200, 512, 100, 225, 32, 60}},
        {"ZR-C84", 100, 0, {0, 0, 40, 77, 4096}, 8, true,
         {1920, 1080, 2073600, 640, 480, 1843200, 1024, 160, 225, 40, 60}},
        // Models 2, 3, 5, 11: sizes and the whole transfer block.
        {"QX-PRO", 100, 1024, {0, 300, 0, 0, 512}, 2, true,
         {1920, 1080, 2073600, 640, 480, 614400, 512, 160, 300, 32, 60}},
        {"ZR-D87", 100, 333, {0, 0, 0, 0, 0}, 11, true,
         {1920, 1080, 2073600, 640, 480, 614400, 1024, 160, 225, 32, 60}},
        // Large and half sensors: fixed grey size, the colour size held.
        {"ZR-C857", 100, 1024, {160, 225, 156, 60, 32768}, 9, true,
         {2472, 2064, 5102208, 800, 600, 960000, 32768, 160, 225, 156, 60}},
        {"ZR-C544", 100, 1024, {0, 0, 0, 0, 0}, 7, true,
         {1236, 1032, 1275552, 800, 600, 960000, 1024, 160, 225, 32, 60}},
        {"XY-1234", 13, 1024, {0, 0, 0, 0, 0}, 13, true,
         {1236, 1032, 1275552, 800, 600, 960000, 1024, 160, 225, 32, 60}},
        // A model of no group keeps the geometry it had.
        {"ZR-D97", 100, 1024, {1, 2, 3, 4, 5}, 14, true,
         {1280, 720, 921600, 800, 600, 1843200, 1024, 225, 225, 60, 60}},
        // No known model: the start-up geometry, and the address stays.
        {"XY-1234", 0, 0, {1, 2, 3, 4, 5}, 0, false,
         {1280, 720, 921600, 1280, 720, 1843200, 1024, 225, 225, 60, 60}},
        {"XY-1234", 100, 0, {1, 2, 3, 4, 5}, 100, false,
         {1280, 720, 921600, 1280, 720, 1843200, 1024, 225, 225, 60, 60}},
    };
    const std::array<std::uint8_t, 4> recordIP{{192, 168, 1, 20}}, heldIP{{10, 0, 0, 7}};
    const unsigned sizes[] = {1920, 1080, 640, 480};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text + (" from " + std::to_string(c.startIndex)));
        Manufacture m;
        m.putModel(c.text, static_cast<std::uint8_t>(std::strlen(c.text)));
        for (std::size_t i = 0; i < 4; ++i) m.putU16(441 + 2 * i, sizes[i]);
        for (std::size_t i = 0; i < 5; ++i) m.putU16(450 + 2 * i, c.record[i]);
        std::copy(recordIP.begin(), recordIP.end(), m.config.begin() + 481);
        m.modelIndex = c.startIndex;
        m.geometry.colorWidth = 800;
        m.geometry.colorHeight = 600;
        m.geometry.transferUnitBytes = c.startUnit;
        m.decode();

        const DeviceGeometry& g = m.geometry;
        ASSERT_EQ(m.modelIndex, c.index);
        const auto& n = g.blockCounts;
        EXPECT_EQ((std::array<std::uint32_t, 11>{g.greyWidth, g.greyHeight, g.greyImageBytes,
                                                 g.colorWidth, g.colorHeight, g.colorImageBytes,
                                                 g.transferUnitBytes, n[0], n[1], n[2], n[3]}),
                  c.geometry);
        for (std::size_t k = 0; k < 4; ++k)
            EXPECT_EQ(g.blockBytes[k], g.blockCounts[k] * g.transferUnitBytes) << "block " << k;
        EXPECT_EQ(m.ip, c.takesAddress ? recordIP : heldIP);
        const BorderWarningBands want = warningBandsFor(g);  // of the resulting geometry
        EXPECT_EQ(std::memcmp(&m.bands, &want, sizeof want), 0);
        // 5 % and 10 % in from the borders of the first case's 1920 x 1080 image.
        const BorderWarningBands& b = m.bands;
        if (&c == &cases[0]) {
            EXPECT_EQ((std::vector<float>{b.nearLowX, b.nearHighX, b.farLowY, b.farHighY}),
                      (std::vector<float>{96, 1823, 108, 971}));
        }
    }
}

std::string mac(const std::string& model, std::uint32_t index) {
    std::string text(18, '#');
    macAddressText(model.data(), model.size(), index, text.data());
    EXPECT_EQ(text[17], '\0');
    return text.substr(0, 17);
}

TEST(MacAddress, ModelByteAndSerialFromAnEighteenCharacterModelText) {
    // Other lengths keep the default.
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c", 1), "00:0A:35:00:01:02");
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c99", 1), "00:0A:35:00:01:02");
    EXPECT_EQ(mac("", 9), "00:0A:35:00:01:02");
    // Characters 7, 8, 15, 16, 17 'a' 'h' '7' 'c' '9' are digits 0 7 7 2 9
    // (a-j count as 0-9): N = 7729 = 0x1E31. Models 1, 2, 3 and 11 write
    // their fourth character ('B' = 0x42, 'D' = 0x44), 0 and 100 write 00.
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c9", 1), "00:0A:35:42:1E:31");
    EXPECT_EQ(mac("ZR-D87-ah1234-b7c9", 11), "00:0A:35:44:1E:31");
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c9", 0), "00:0A:35:00:1E:31");
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c9", 100), "00:0A:35:00:1E:31");
    // '-' '*' '+' 'Z' '/' are -3 -6 -5 0 -1 ('*' to '/' count below '0',
    // other characters as 0): N = -36501, 65536 - 36501 = 0x716B; 'P' = 0x50.
    EXPECT_EQ(mac("QX-PRO--*000000+Z/", 2), "00:0A:35:50:71:6B");
    // Other models write their index. 'J' 'J' 'J' '9' '9': N = 99999,
    // 99999 - 65536 = 34463 = 0x869F.
    EXPECT_EQ(mac("ZR-C857JJ-S0001J99", 9), "00:0A:35:09:86:9F");
}

}  // namespace
