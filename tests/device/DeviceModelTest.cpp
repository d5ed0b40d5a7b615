#include "device/DeviceModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

using namespace vyx::device;

namespace {

std::uint32_t lookup(const std::string& text, std::uint32_t current = 100) {
    return modelIndexFromText(text.data(), text.size(), current);
}

TEST(ModelLookup, TextBeginningWithACodeTakesItsIndex) {
    const struct {
        const char* text;
        std::uint32_t index;
    } cases[] = {
        {"QX-BAS", 1},         {"QX-PRO-2", 2},      {"QX-MIN 01", 3},    {"ZR-C547", 6},
        {"ZR-C544-A", 7},      {"ZR-C857X", 9},      {"ZR-C854", 10},     {"ZR-D847", 12},
        {"ZR-D844", 13},       {"ZR-D947", 15},      {"ZR-D944", 16},     {"ZR-C57", 5},
        {"ZR-C84", 8},         {"ZR-D87", 11},       {"ZR-D97", 14},      {"ZR-D640", 17},
        {"ZR-C5700000000000000", 5},
    };
    for (const auto& c : cases) EXPECT_EQ(lookup(c.text), c.index) << c.text;
}

TEST(ModelLookup, ShorterCodesDoNotShadowLongerOnesThatDifferLater) {
    // "ZR-C57" and "ZR-C547" share "ZR-C5"; "ZR-C84" and "ZR-C847..." share "ZR-C84".
    EXPECT_EQ(lookup("ZR-C547"), 6u);
    EXPECT_EQ(lookup("ZR-C57"), 5u);
    EXPECT_EQ(lookup("ZR-C5477"), 6u);
    EXPECT_EQ(lookup("ZR-C847"), 8u);
}

TEST(ModelLookup, TextThatIsOnlyTheStartOfACodeKeepsTheCurrentIndex) {
    EXPECT_EQ(lookup("ZR-C5"), 100u);
    EXPECT_EQ(lookup("ZR-C54", 7), 7u);
    EXPECT_EQ(lookup("QX-BA", 0), 0u);
    EXPECT_EQ(lookup(""), 100u);
    EXPECT_EQ(lookup("qx-bas"), 100u);
    EXPECT_EQ(lookup("XQX-BAS"), 100u);
    // Only the given length counts, whatever follows in memory.
    EXPECT_EQ(modelIndexFromText("ZR-D947", 6, 4), 4u);
    EXPECT_EQ(modelIndexFromText(nullptr, 7, 12), 12u);
}

TEST(ModelProperties, DepthLimitByIndex) {
    const struct {
        std::uint32_t index;
        double limit;
    } cases[] = {
        {0, 30000},   {1, 30000},   {8, 30000},  {9, 30000},  {10, 30000}, {11, 30000},
        {12, 30000},  {100, 30000}, {2, 300000}, {15, 300000}, {16, 300000}, {3, 2400},
        {5, 2400},    {6, 2400},    {7, 2400},   {17, 6000},
    };
    for (const auto& c : cases) {
        double limit = 3000;
        applyDepthLimitForModel(c.index, limit);
        EXPECT_EQ(limit, c.limit) << "index " << c.index;
    }
    for (std::uint32_t index : {4u, 13u, 14u, 18u, 57u, 99u}) {
        double limit = 1234.5;
        applyDepthLimitForModel(index, limit);
        EXPECT_EQ(limit, 1234.5) << "index " << index;
    }
}

TEST(ModelProperties, StatusLayoutByIndex) {
    for (std::uint32_t index : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 8u, 9u, 11u, 12u, 15u, 17u})
        EXPECT_EQ(statusLayoutForModel(index), StatusLayout::First) << "index " << index;
    for (std::uint32_t index : {7u, 10u, 13u, 16u})
        EXPECT_EQ(statusLayoutForModel(index), StatusLayout::Second) << "index " << index;
    for (std::uint32_t index : {14u, 18u, 99u, 100u})
        EXPECT_EQ(statusLayoutForModel(index), StatusLayout::None) << "index " << index;
}

// ---------------------------------------------------------------------------

// A manufacture section of exactly the size the decoder may read, so that the
// address sanitizer catches any read past it.
class ManufactureConfig {
public:
    ManufactureConfig() : bytes_(485, 0) {}

    void putU16(std::size_t offset, unsigned value) {
        bytes_.at(offset) = static_cast<std::uint8_t>(value & 0xFFu);
        bytes_.at(offset + 1) = static_cast<std::uint8_t>(value >> 8);
    }
    void putModel(const std::string& text, unsigned lengthByte) {
        bytes_.at(420) = static_cast<std::uint8_t>(lengthByte);
        std::memcpy(bytes_.data() + 421, text.data(), std::min<std::size_t>(text.size(), 20));
    }
    void putIP(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
        bytes_.at(481) = a;
        bytes_.at(482) = b;
        bytes_.at(483) = c;
        bytes_.at(484) = d;
    }
    void putSizes(unsigned greyW, unsigned greyH, unsigned colorW, unsigned colorH) {
        putU16(441, greyW);
        putU16(443, greyH);
        putU16(445, colorW);
        putU16(447, colorH);
    }
    void putBlocks(unsigned usbGrey, unsigned usbColor, unsigned ethGrey, unsigned ethColor,
                   unsigned unit) {
        putU16(450, usbGrey);
        putU16(452, usbColor);
        putU16(454, ethGrey);
        putU16(456, ethColor);
        putU16(458, unit);
    }
    const std::uint8_t* data() const { return bytes_.data(); }

private:
    std::vector<std::uint8_t> bytes_;
};

struct Decoded {
    ManufactureRecord record;
    std::uint32_t modelIndex = 100;
    double depthLimit = 3000;
    DeviceGeometry geometry = defaultGeometry();
    BorderWarningBands bands;
    std::array<std::uint8_t, 4> ip{{0, 0, 0, 0}};

    void decode(const ManufactureConfig& config, const char* separateText = nullptr) {
        decodeManufactureSection(config.data(), separateText, record, modelIndex, depthLimit,
                                 geometry, bands, ip);
    }
};

// Expected geometry written out field by field.
struct ExpectedGeometry {
    std::uint32_t greyWidth, greyHeight, greyImageBytes;
    std::uint32_t colorWidth, colorHeight, colorImageBytes;
    std::uint32_t unit;
    std::array<std::uint32_t, 4> counts, blockBytes;
};

void expectGeometry(const DeviceGeometry& g, const ExpectedGeometry& e) {
    EXPECT_EQ(g.greyWidth, e.greyWidth);
    EXPECT_EQ(g.greyHeight, e.greyHeight);
    EXPECT_EQ(g.greyPixelBytes, 1u);
    EXPECT_EQ(g.greyImageBytes, e.greyImageBytes);
    EXPECT_EQ(g.colorWidth, e.colorWidth);
    EXPECT_EQ(g.colorHeight, e.colorHeight);
    EXPECT_EQ(g.colorPixelBytes, 2u);
    EXPECT_EQ(g.colorImageBytes, e.colorImageBytes);
    EXPECT_EQ(g.transferUnitBytes, e.unit);
    EXPECT_EQ(g.blockCounts, e.counts);
    EXPECT_EQ(g.blockBytes, e.blockBytes);
}

const ExpectedGeometry kDefaultGeometry{1280, 720, 921600, 1280, 720, 1843200, 1024,
                                        {225, 225, 60, 60}, {230400, 230400, 61440, 61440}};

TEST(ManufactureSection, RecordFieldsAreDecodedAndTheModelLengthClampedTo20) {
    ManufactureConfig config;
    config.putU16(416, 2023);
    config.putU16(418, 11 | (30u << 8));  // month 11, day 30
    config.putModel("ZR-C857-ABCDEFGHIJKL", 25);
    Decoded d;
    d.decode(config);
    EXPECT_EQ(d.record.year, 2023);
    EXPECT_EQ(d.record.month, 11);
    EXPECT_EQ(d.record.day, 30);
    EXPECT_EQ(d.record.modelLength, 20);
    EXPECT_EQ(std::string(d.record.model, 20), "ZR-C857-ABCDEFGHIJKL");
    EXPECT_EQ(d.modelIndex, 9u);
    EXPECT_EQ(d.depthLimit, 30000);
}

TEST(ManufactureSection, ModelTextBeyondItsLengthIsZeroFilled) {
    ManufactureConfig config;
    config.putModel("QX-MIN1xxxxxxxxxxxxx", 7);
    Decoded d;
    std::memset(d.record.model, 'y', sizeof d.record.model);
    d.decode(config);
    EXPECT_EQ(d.record.modelLength, 7);
    EXPECT_EQ(std::string(d.record.model, 20), std::string("QX-MIN1") + std::string(13, '\0'));
    EXPECT_EQ(d.modelIndex, 3u);
    EXPECT_EQ(d.depthLimit, 2400);
}

TEST(ManufactureSection, SeparateModelTextReplacesTheConfigurationText) {
    ManufactureConfig config;
    config.putModel("QX-BAS-0001", 11);
    const char separate[20] = "ZR-D947-0002zzzzzzz";
    Decoded d;
    d.decode(config, separate);
    EXPECT_EQ(std::string(d.record.model, 20), std::string("ZR-D947-000") + std::string(9, '\0'));
    EXPECT_EQ(d.modelIndex, 15u);
    EXPECT_EQ(d.depthLimit, 300000);
}

TEST(ManufactureSection, UnmatchedTextKeepsTheCurrentModel) {
    ManufactureConfig config;
    config.putModel("XY-1234", 7);
    config.putSizes(1920, 1080, 640, 480);
    Decoded d;
    d.modelIndex = 13;
    d.depthLimit = 5000;
    d.decode(config);
    EXPECT_EQ(d.modelIndex, 13u);
    EXPECT_EQ(d.depthLimit, 5000);
    EXPECT_EQ(d.geometry.greyWidth, 1236u);  // model 13's fixed grey size
}

TEST(ManufactureSection, ModelsOneAndEightTakeImageSizesAndThreeCounts) {
    ManufactureConfig config;
    config.putModel("QX-BAS", 6);
    config.putSizes(1920, 1080, 640, 480);
    config.putBlocks(100, 0, 0, 77, 2048);  // Ethernet colour count and unit are not read
    config.putIP(192, 168, 1, 20);
    Decoded d;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 1u);
    // The colour byte count and the Ethernet colour count stay from before.
    expectGeometry(d.geometry, {1920, 1080, 2073600, 640, 480, 1843200, 1024,
                                {100, 225, 32, 60}, {102400, 230400, 32768, 61440}});
    EXPECT_EQ(d.bands.nearLowX, 96.0f);
    EXPECT_EQ(d.bands.nearHighX, 1823.0f);
    EXPECT_EQ(d.bands.farLowY, 108.0f);
    EXPECT_EQ(d.bands.farHighY, 971.0f);
    EXPECT_EQ(d.ip, (std::array<std::uint8_t, 4>{{192, 168, 1, 20}}));
}

TEST(ManufactureSection, ModelsOneAndEightUse1024WhenTheCurrentUnitIsZero) {
    ManufactureConfig config;
    config.putModel("ZR-C84", 6);
    config.putSizes(1280, 1024, 1280, 720);
    config.putBlocks(0, 0, 40, 0, 4096);
    Decoded d;
    d.geometry.transferUnitBytes = 0;
    d.geometry.blockCounts[kEthernetColorHalfBlock] = 50;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 8u);
    expectGeometry(d.geometry, {1280, 1024, 1310720, 1280, 720, 1843200, 1024,
                                {160, 225, 40, 50}, {163840, 230400, 40960, 51200}});
}

TEST(ManufactureSection, RecordSizedModelsReadTheTransferBlock) {
    ManufactureConfig config;
    config.putModel("QX-PRO", 6);
    config.putSizes(1920, 1200, 640, 480);
    config.putBlocks(0, 300, 0, 0, 512);
    Decoded d;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 2u);
    expectGeometry(d.geometry, {1920, 1200, 2304000, 640, 480, 614400, 512,
                                {160, 300, 32, 60}, {81920, 153600, 16384, 30720}});
}

TEST(ManufactureSection, ZeroTransferBlockFieldsTakeTheirDefaults) {
    ManufactureConfig config;
    config.putModel("ZR-D87", 6);
    config.putSizes(1280, 1024, 800, 600);
    Decoded d;
    d.geometry.transferUnitBytes = 333;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 11u);
    expectGeometry(d.geometry, {1280, 1024, 1310720, 800, 600, 960000, 1024,
                                {160, 225, 32, 60}, {163840, 230400, 32768, 61440}});
}

TEST(ManufactureSection, LargeSensorModelsIgnoreTheRecordedImageSizes) {
    ManufactureConfig config;
    config.putModel("ZR-C857", 7);
    config.putSizes(1920, 1080, 640, 480);
    config.putBlocks(160, 225, 156, 60, 32768);
    Decoded d;
    d.geometry.colorWidth = 800;
    d.geometry.colorHeight = 600;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 9u);
    expectGeometry(d.geometry, {2472, 2064, 5102208, 800, 600, 960000, 32768,
                                {160, 225, 156, 60}, {5242880, 7372800, 5111808, 1966080}});
    EXPECT_EQ(d.bands.nearLowX, 123.6f);
}

TEST(ManufactureSection, HalfSensorModelsUse1236By1032) {
    ManufactureConfig config;
    config.putModel("ZR-C544", 7);
    config.putSizes(1920, 1080, 640, 480);
    Decoded d;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 7u);
    expectGeometry(d.geometry, {1236, 1032, 1275552, 1280, 720, 1843200, 1024,
                                {160, 225, 32, 60}, {163840, 230400, 32768, 61440}});
}

TEST(ManufactureSection, NoKnownModelRestoresTheDefaultsAndIgnoresTheAddress) {
    for (std::uint32_t index : {0u, 100u}) {
        SCOPED_TRACE(index);
        ManufactureConfig config;
        config.putModel("XY-1234", 7);
        config.putSizes(1920, 1080, 640, 480);
        config.putBlocks(1, 2, 3, 4, 5);
        config.putIP(192, 168, 1, 20);
        Decoded d;
        d.modelIndex = index;
        d.geometry.greyWidth = 999;
        d.geometry.blockCounts = {1, 1, 1, 1};
        d.ip = {{10, 0, 0, 7}};
        d.decode(config);
        EXPECT_EQ(d.modelIndex, index);
        expectGeometry(d.geometry, kDefaultGeometry);
        EXPECT_EQ(d.bands.nearLowX, 64.0f);
        EXPECT_EQ(d.bands.farHighY, 647.0f);
        EXPECT_EQ(d.ip, (std::array<std::uint8_t, 4>{{10, 0, 0, 7}}));
        EXPECT_EQ(d.depthLimit, 30000);
    }
}

TEST(ManufactureSection, ModelWithoutGeometryRuleKeepsGeometryButTakesTheAddress) {
    ManufactureConfig config;
    config.putModel("ZR-D97", 6);
    config.putSizes(1920, 1080, 640, 480);
    config.putIP(172, 16, 0, 9);
    Decoded d;
    d.geometry.greyWidth = 1000;
    d.geometry.greyHeight = 500;
    d.decode(config);
    ASSERT_EQ(d.modelIndex, 14u);
    EXPECT_EQ(d.depthLimit, 3000);
    EXPECT_EQ(d.geometry.greyWidth, 1000u);
    EXPECT_EQ(d.geometry.greyImageBytes, 921600u);
    EXPECT_EQ(d.geometry.blockCounts, (std::array<std::uint32_t, 4>{{225, 225, 60, 60}}));
    // Bands follow the geometry as it stands.
    EXPECT_EQ(d.bands.nearLowX, 50.0f);
    EXPECT_EQ(d.bands.nearHighX, 949.0f);
    EXPECT_EQ(d.bands.farLowY, 50.0f);
    EXPECT_EQ(d.bands.farHighY, 449.0f);
    EXPECT_EQ(d.ip, (std::array<std::uint8_t, 4>{{172, 16, 0, 9}}));
}

// ---------------------------------------------------------------------------

TEST(Exposure, DualExposureIsClampedByModel) {
    EXPECT_EQ(dualExposureForModel(1, 10), 16);
    EXPECT_EQ(dualExposureForModel(0, 10), 48);
    EXPECT_EQ(dualExposureForModel(9, 10), 10);
    EXPECT_EQ(dualExposureForModel(5, 10), 48);
    EXPECT_EQ(dualExposureForModel(100, 9000), 8192);
    EXPECT_EQ(dualExposureForModel(11, 20000), 16384);
    EXPECT_EQ(dualExposureForModel(3, -5), 16);
    EXPECT_EQ(dualExposureForModel(2, 5000), 5000);
}

TEST(Exposure, UnclampedModelsSendTheLow16Bits) {
    EXPECT_EQ(dualExposureForModel(9, 70000), 4464);  // 70000 - 65536
    EXPECT_EQ(dualExposureForModel(16, -1), 0xFFFF);
    EXPECT_EQ(dualExposureForModel(4, 65536), 0);
}

TEST(Exposure, FarModelsFromDistance) {
    EXPECT_EQ(exposureFromDistance(9, 5000), 1500);
    EXPECT_EQ(exposureFromDistance(9, 2000), 1150);
    EXPECT_EQ(exposureFromDistance(1, 999), 800);
    EXPECT_EQ(exposureFromDistance(1, 1000), 800);
    EXPECT_EQ(exposureFromDistance(100, 3000), 1500);
    EXPECT_EQ(exposureFromDistance(17, 1002), 800);  // 1400 / 2000 truncates to 0
    EXPECT_EQ(exposureFromDistance(17, 1003), 801);  // 2100 / 2000 truncates to 1
    EXPECT_EQ(exposureFromDistance(17, INT_MAX), 1500);
    EXPECT_EQ(exposureFromDistance(17, INT_MIN), 800);
}

TEST(Exposure, NearModelsFromDistance) {
    for (std::uint32_t index : {3u, 5u}) {
        SCOPED_TRACE(index);
        EXPECT_EQ(exposureFromDistance(index, 300), 500);
        EXPECT_EQ(exposureFromDistance(index, 1500), 1200);
        EXPECT_EQ(exposureFromDistance(index, 100), 500);
        EXPECT_EQ(exposureFromDistance(index, 2000), 1200);
        EXPECT_EQ(exposureFromDistance(index, 900), 850);  // 500 + 600 x 700 / 1200
        EXPECT_EQ(exposureFromDistance(index, 301), 500);  // 700 / 1200 truncates to 0
        EXPECT_EQ(exposureFromDistance(index, 302), 501);  // 1400 / 1200 truncates to 1
    }
}

// ---------------------------------------------------------------------------

std::string mac(const std::string& model, std::uint32_t index) {
    char text[18];
    std::memset(text, '#', sizeof text);
    macAddressText(model.data(), model.size(), index, text);
    EXPECT_EQ(text[17], '\0');
    return std::string(text, 17);
}

TEST(MacAddress, ModelTextOfOtherLengthGivesTheDefault) {
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c", 1), "00:0A:35:00:01:02");    // 17 characters
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c99", 1), "00:0A:35:00:01:02");  // 19 characters
    EXPECT_EQ(mac("", 9), "00:0A:35:00:01:02");
}

TEST(MacAddress, VariantModelsUseTheirFourthCharacter) {
    // "QX-BAS-ah1234-b7c9", model 1:
    //   M = text[3] = 'B' = 0x42
    //   digits: [7] 'a' -> 0, [8] 'h' -> 7, [15] '7' -> 7, [16] 'c' -> 2, [17] '9' -> 9
    //   N = 0*10000 + 7*1000 + 7*100 + 2*10 + 9 = 7729 = 0x1E31
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c9", 1), "00:0A:35:42:1E:31");

    // "QX-PRO--*000000+Z/", model 2:
    //   M = text[3] = 'P' = 0x50
    //   digits: [7] '-' -> -3, [8] '*' -> -6, [15] '+' -> -5, [16] 'Z' -> 0, [17] '/' -> -1
    //   N = -30000 - 6000 - 500 + 0 - 1 = -36501 -> 16 bits: 65536 - 36501 = 29035 = 0x716B
    EXPECT_EQ(mac("QX-PRO--*000000+Z/", 2), "00:0A:35:50:71:6B");
}

TEST(MacAddress, OtherModelsUseTheirIndex) {
    // "ZR-C857JJ-S0001J99", model 9:
    //   M = 9 = 0x09
    //   digits: [7] 'J' -> 9, [8] 'J' -> 9, [15] 'J' -> 9, [16] '9' -> 9, [17] '9' -> 9
    //   N = 99999 -> 16 bits: 99999 - 65536 = 34463 = 0x869F
    EXPECT_EQ(mac("ZR-C857JJ-S0001J99", 9), "00:0A:35:09:86:9F");
}

TEST(MacAddress, NoKnownModelWritesZeroModelByte) {
    // Same serial as "QX-BAS-ah1234-b7c9" above: N = 0x1E31.
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c9", 0), "00:0A:35:00:1E:31");
    EXPECT_EQ(mac("QX-BAS-ah1234-b7c9", 100), "00:0A:35:00:1E:31");
}

}  // namespace
