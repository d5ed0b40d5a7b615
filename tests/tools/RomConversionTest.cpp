#include "tools/RomConversion.h"
#include "tools/ToolFile.h"
#include "tools/ToolLibrary.h"

#include "ToolTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

// ROM tool file bytes: count byte at 0x1C, x y z little-endian floats per
// marker from 0x48, name bytes at 0x250, zeros elsewhere, cut to size.
std::string romBytes(int countByte, const std::vector<float>& positions, const std::string& name,
                     std::size_t size = 0x300) {
    std::string bytes(std::max(size, 0x48 + positions.size() * 4), '\0');
    bytes[0x1C] = static_cast<char>(countByte);
    for (std::size_t k = 0; k < positions.size(); ++k) {
        std::uint32_t word;
        std::memcpy(&word, &positions[k], sizeof word);
        for (int b = 0; b < 4; ++b) bytes[0x48 + k * 4 + b] = static_cast<char>(word >> (8 * b));
    }
    return bytes.replace(0x250, name.size(), name).substr(0, size);
}

const std::vector<float> kFourMarkers = {0, 0, 0, 50.5f, 0, 0, 0, -80.25f, 0, 0, 0, 120.125f};

}  // namespace

TEST(RomConversion, WritesAToolFileThatLoadsWithTheRomMarkers) {
    ScratchDirectory dir;
    writeFile(dir.file("probe.rom"), romBytes(4, kFourMarkers, std::string("PRB-7\0\0\0x", 9)));
    ASSERT_EQ(convertRomToToolFile(dir.file("probe.rom").c_str()), 0);
    EXPECT_EQ(readFile(dir.file("probe.vyxtool")),
              "PRB-7\nT\n4\n0.000000 0.000000 0.000000 15\n50.500000 0.000000 0.000000 15\n"
              "0.000000 -80.250000 0.000000 15\n0.000000 0.000000 120.125000 15\n2\n"
              "0.000000 0.000000 0.000000\n0.000000 0.000000 0.000000\n");

    ToolLibrary library;
    CapturedOutput quiet;
    library.ReadToolInfoResult(dir.path().c_str());
    t_ToolBaseInfo info{};
    ASSERT_EQ(library.getAllToolFilesBaseInfo(&info), 0);
    EXPECT_EQ(info.ToolKind, 0);
    EXPECT_EQ(library.toolAt(0)->markerPositions, kFourMarkers);

    // The largest count a signed byte holds: positions overlap the name field.
    std::vector<float> many(127 * 3);
    for (std::size_t i = 0; i < many.size(); ++i) many[i] = static_cast<float>(i);
    writeFile(dir.file("big.rom"), romBytes(127, many, std::string("big\0", 4), 0x48 + 12 * 127));
    ASSERT_EQ(convertRomToToolFile(dir.file("big.rom").c_str()), 0);
    T_ToolFileData data;
    EXPECT_EQ(checkToolFile(dir.file("big.vyxtool").c_str(), data), 0);
}

TEST(RomConversion, RefusesShortFilesBadCountsAndUnusableNames) {
    ScratchDirectory dir;
    const std::string name("ok\0", 3), good = romBytes(4, kFourMarkers, name);
    const std::pair<const char*, std::string> cases[] = {
        {"count 0", romBytes(0, kFourMarkers, name)},
        {"count -3", romBytes(-3, kFourMarkers, name)},
        {"count byte 201", romBytes(201, kFourMarkers, name)},
        {"cut in the positions", good.substr(0, 0x48 + 40)},
        {"cut before the name", good.substr(0, 0x250)},
        {"name without its end", good.substr(0, 0x252)},
        {"empty name", romBytes(4, kFourMarkers, "")},
        {"name with a blank", romBytes(4, kFourMarkers, std::string("a b\0", 4))},
    };
    for (const auto& [what, bytes] : cases) {
        writeFile(dir.file("bad.rom"), bytes);
        EXPECT_EQ(convertRomToToolFile(dir.file("bad.rom").c_str()), -1) << what;
        EXPECT_FALSE(std::filesystem::exists(dir.file("bad.vyxtool"))) << what;
    }
    EXPECT_EQ(convertRomToToolFile(dir.file("missing.rom").c_str()), -1);
    EXPECT_EQ(convertRomToToolFile(nullptr), -1);
}

TEST(RomConversion, ReplacesTheFirstRomInTheWholePath) {
    ScratchDirectory dir;
    std::filesystem::create_directories(dir.file("from"));
    std::filesystem::create_directories(dir.file("fvyxtool"));
    const std::string rom = dir.file("from/tool.rom");
    writeFile(rom, romBytes(4, kFourMarkers, std::string("t\0", 2)));
    ASSERT_EQ(convertRomToToolFile(rom.c_str()), 0);
    EXPECT_EQ(readFile(dir.file("fvyxtool/tool.rom")).rfind("t\nT\n4\n", 0), 0u);
    EXPECT_EQ(readFile(rom).size(), 0x300u);

    std::filesystem::remove_all(dir.file("fvyxtool"));
    EXPECT_EQ(convertRomToToolFile(rom.c_str()), -1);  // output cannot be created
}

TEST(RomLibraryLoad, AddsRomToolsWithFullMasksAndNoTip) {
    ScratchDirectory dir;
    writeFile(dir.file("probe.rom"), romBytes(4, kFourMarkers, std::string("PRB\0", 4)));
    writeFile(dir.file("short.rom"), romBytes(4, kFourMarkers, "S", 0x251));
    writeFile(dir.file("upper.ROM"), romBytes(4, kFourMarkers, std::string("U\0", 2)));
    ToolLibrary library;
    CapturedOutput output;
    EXPECT_TRUE(library.ReadToolInfoResultRom(dir.path().c_str()));
    EXPECT_FALSE(library.ReadToolInfoResultRom(dir.file("none").c_str()));
    EXPECT_EQ(output.str(), "[Message] Success to open dir: " + dir.path() +
                                "/\n[Warning] Dir not exist: " + dir.file("none") + "/\n");

    ASSERT_EQ(library.count(), 1u);
    const T_ToolPtMatchInfo& tool = *library.toolAt(0);
    EXPECT_EQ(tool.toolName, "PRB");
    EXPECT_EQ(tool.markerPositions, kFourMarkers);
    EXPECT_EQ(tool.markerMasks, std::vector<std::int32_t>(4, 15));
    EXPECT_EQ(tool.tipPoints, std::vector<float>(6, 0.0f));
    EXPECT_FLOAT_EQ(tool.distanceTable.at<float>(0, 3), 120.125f);
    EXPECT_EQ(tool.filePath, dir.path() + "/probe.vyxtool");  // saved beside, never over, the ROM
}

TEST(ParameterBlock, ReadsRowsOverLinesAndLeavesTheRestOfTheStream) {
    std::istringstream in("1 2.5 -3\n\n4,5e2, 6\n7 8 9 trailing text\nnext\n");
    double values[9] = {};
    ASSERT_TRUE(readParaFromFileStream(in, values, 3, 3));
    EXPECT_EQ(std::vector<double>(values, values + 9), (std::vector<double>{1, 2.5, -3, 4, 500, 6, 7, 8, 9}));
    std::string rest;
    std::getline(in, rest);
    EXPECT_EQ(rest, "next");

    double untouched[4] = {9, 9, 9, 9};
    std::istringstream shortBlock("1 2 3\n"), badNumber("1 2x 3 4\n");
    EXPECT_FALSE(readParaFromFileStream(shortBlock, untouched, 2, 2));
    EXPECT_FALSE(readParaFromFileStream(badNumber, untouched, 2, 2));
    EXPECT_FALSE(readParaFromFileStream(badNumber, nullptr, 2, 2));
    EXPECT_EQ(untouched[0], 9.0);
}
