#include "tools/ToolFile.h"
#include "tools/ToolLibrary.h"

#include "ToolTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

namespace {

T_ToolFileData patternRecord() {
    T_ToolFileData data;
    std::memset(&data, 0xAB, sizeof data);
    return data;
}

// Checks text written as a tool file; a failed check must not touch the record.
int check(const ScratchDirectory& dir, const std::string& text, T_ToolFileData* out = nullptr) {
    writeFile(dir.file("t.vyxtool"), text);
    T_ToolFileData data = patternRecord();
    const int result = checkToolFile(dir.file("t.vyxtool").c_str(), data);
    const T_ToolFileData pattern = patternRecord();
    if (result != 0) {
        EXPECT_EQ(std::memcmp(&data, &pattern, sizeof data), 0) << "failed check wrote the record";
    }
    if (out != nullptr) *out = data;
    return result;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    return text.replace(text.find(from), from.size(), to);
}

std::unique_ptr<T_ToolPtMatchInfo> toolRecord(const std::string& path, std::vector<float> positions) {
    ToolFileContent content;
    content.toolName = "probe";
    content.markerCount = static_cast<int>(positions.size() / 3);
    content.markerMask = fullMarkerMask(content.markerCount);
    content.markerPositions = std::move(positions);
    content.tipPoints = {0, 0, -151.5f, 0, 0, -100};
    return makeToolRecord(content, path);
}

}  // namespace

TEST(ToolFileReader, AcceptsOnlyWellFormedFilesAndLoadsNothingElse) {
    ScratchDirectory dir;
    const std::string four = fourMarkerToolText("p");
    const std::string three = "tri T 3\n0 0 0 7\n10 0 0 7\n0 10 0 7\n2\n0 0 0\n0 0 1\n";
    auto markers = [](int count) {
        std::string text = "big T " + std::to_string(count) + "\n";
        for (int i = 0; i < count; ++i)
            text += std::to_string(i) + " 0 0 " + std::to_string(fullMarkerMask(count)) + "\n";
        return text + "2 0 0 0 0 0 1\n";
    };
    const std::tuple<const char*, std::string, int> cases[] = {
        {"kind C", replaced(four, "\nT\n", "\nC\n"), 0},
        {"kind X", replaced(four, "\nT\n", "\nX\n"), -1},
        {"kind t", replaced(four, "\nT\n", "\nt\n"), -1},
        {"three markers, mask 7", three, 0},
        {"one mask 15 among 7s", replaced(three, "10 0 0 7", "10 0 0 15"), -1},
        {"count 0", "p T 0 2 0 0 0 0 0 0\n", -1},
        {"count -1", "p T -1 2 0 0 0 0 0 0\n", -1},
        {"count 200", markers(200), 0},
        {"count 201", markers(201), -1},  // would overrun the 200-row table
        {"tip-section count 1", replaced(four, "\n2\n", "\n1\n"), -1},
        {"tip-section count 4", replaced(four, "\n2\n", "\n4\n"), -1},
        {"name of 199", fourMarkerToolText(std::string(199, 'n')), 0},
        {"name of 200", fourMarkerToolText(std::string(200, 'n')), -1},
    };
    ToolLibrary library;
    for (const auto& [what, text, expected] : cases) {
        EXPECT_EQ(check(dir, text), expected) << what;
        if (expected != 0) library.AddFormatToolInfoFromFile(dir.file("t.vyxtool").c_str());
    }
    EXPECT_EQ(library.count(), 0u);
}

TEST(ToolFileReader, IgnoresLineBreaksAndZeroesWhatTheFileDoesNotHold) {
    ScratchDirectory dir;
    T_ToolFileData lines, oneLine, cut;
    std::string flat = fourMarkerToolText("p");
    std::replace(flat.begin(), flat.end(), '\n', ' ');
    ASSERT_EQ(check(dir, fourMarkerToolText("p"), &lines), 0);
    ASSERT_EQ(check(dir, "\n\n" + replaced(flat, "T 4", "T\n\n4"), &oneLine), 0);
    EXPECT_EQ(std::memcmp(&lines, &oneLine, sizeof lines), 0);
    EXPECT_EQ(lines.MarkerPosition[3][2], 120.0f);
    EXPECT_EQ(lines.MarkerPosition[4][0], 0.0f);
    EXPECT_EQ(lines.TipSectionCount, 2);
    EXPECT_EQ(lines.TipAxisPoint[2], -100.0f);
    EXPECT_TRUE(std::all_of(std::begin(lines.Reserved), std::end(lines.Reserved),
                            [](unsigned char b) { return b == 0; }));

    ASSERT_EQ(check(dir, "p T 1 1 2 3 1 2 -7.5", &cut), 0);  // tip cut off by the end
    EXPECT_EQ(cut.TipPoint[0], -7.5f);
    EXPECT_EQ(cut.TipPoint[1], 0.0f);
    EXPECT_EQ(cut.TipAxisPoint[2], 0.0f);
    EXPECT_EQ(checkToolFile(nullptr, cut), -1);
}

TEST(DistanceTable, KeepsOnlyPairsWhoseMaskBitIsSet) {
    auto tool = toolRecord("x", {0, 0, 0, 3, 0, 0, 0, 4, 0});
    ASSERT_EQ(tool->distanceTable.type(), CV_32F);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(1, 2), 5.0f);
    EXPECT_EQ(tool->distanceTable.at<float>(1, 1), 0.0f);

    tool->markerMasks[1] = 0b011;  // marker 1 leaves out marker 2
    tool->markerPositionsCopy[3] = 6;
    CalculateDisWithPointsArr(*tool, true);
    EXPECT_EQ(tool->distanceTable.at<float>(1, 2), 0.0f);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(2, 1), std::sqrt(52.0f));

    tool->markerMasks.clear();
    CalculateDisWithPointsArr(*tool, false);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(1, 2), 5.0f);
}

TEST(FullWriter, WritesFourMarkerLinesSoOnlyFourMarkerToolsReadBack) {
    ScratchDirectory dir;
    auto tool = toolRecord(dir.file("p.vyxtool"), {1.25f, -2.5f, 0, 10.1234567f, 0, 0, 0, 20, 0, 0, 0, 30});
    tool->toolKind = 'C';
    ASSERT_EQ(writeToolFileFull(*tool), 1);
    EXPECT_EQ(tool->toolKind, 'T');
    EXPECT_EQ(readFile(tool->filePath),
              "probe\nT\n4\n1.250000 -2.500000 0.000000 15\n10.123457 0.000000 0.000000 15\n"
              "0.000000 20.000000 0.000000 15\n0.000000 0.000000 30.000000 15\n2\n"
              "0.000000 0.000000 -151.500000\n0.000000 0.000000 -100.000000\n");
    T_ToolFileData data;
    EXPECT_EQ(checkToolFile(tool->filePath.c_str(), data), 0);

    for (int count : {5, 3}) {
        auto odd = toolRecord(dir.file("odd.vyxtool"), std::vector<float>(count * 3, 1.0f));
        ASSERT_EQ(writeToolFileFull(*odd), 1);
        const std::string text = readFile(odd->filePath);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10) << count;
        EXPECT_EQ(checkToolFile(odd->filePath.c_str(), data), -1) << count;
    }
    tool->filePath = dir.file("missing/p.vyxtool");
    EXPECT_EQ(writeToolFileFull(*tool), 0);
}

TEST(TipSectionWriter, KeepsTheHeadVerbatimAndWritesTheTipFromMemory) {
    ScratchDirectory dir;
    const std::string head = "probe\nT\n4\n0  0 0 15\n50 0 0 15\n0 80 0 15\n0 0 120   15\n";
    auto tool = toolRecord(dir.file("p.vyxtool"), std::vector<float>(12, 0.0f));
    writeFile(tool->filePath, head + "2\n0 0 -150\n0 0 -100\n");
    tool->tipPoints = {1, 2, -160.25f, 0, 0, -90};
    ASSERT_EQ(rewriteToolTipSection(*tool), 1);
    EXPECT_EQ(readFile(tool->filePath),
              head + "2\n1.000000 2.000000 -160.250000\n0.000000 0.000000 -90.000000\n");

    writeFile(tool->filePath, "probe T 4\n");  // too few lines to keep: left alone
    EXPECT_EQ(rewriteToolTipSection(*tool), 0);
    EXPECT_EQ(readFile(tool->filePath), "probe T 4\n");
}

TEST(CacheWriter, WritesEachMarkersOwnMaskForAnyCount) {
    ScratchDirectory dir;
    T_ToolCoorSysInfo cache;
    cache.toolName = "big";
    cache.filePath = dir.file("big.vyxtool");
    cache.toolKind = 'C';
    cache.markerCount = 200;
    for (int i = 0; i < 200; ++i)
        cache.markerPositions.insert(cache.markerPositions.end(), {float(i), float(i % 7), 0.5f});
    cache.markerMasks.assign(200, fullMarkerMask(200));
    ASSERT_EQ(WrtieFormatToolInfoFronCache(&cache), 1);
    ToolFileContent content;
    ASSERT_TRUE(readToolFile(cache.filePath.c_str(), content));
    EXPECT_EQ(content.toolKind, 'C');
    auto tool = makeToolRecord(content, cache.filePath);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(199, 31), 168.0f);  // no bit 31 in a 32-bit mask

    cache.markerMasks[2] = 3;
    ASSERT_EQ(WrtieFormatToolInfoFronCache(&cache), 1);
    EXPECT_NE(readFile(cache.filePath).find("\n2.000000 2.000000 0.500000 3\n"), std::string::npos);

    cache.filePath = dir.file("bad.vyxtool");
    cache.markerMasks.resize(199);  // fewer masks than markers: nothing written
    EXPECT_EQ(WrtieFormatToolInfoFronCache(&cache), 0);
    EXPECT_FALSE(std::filesystem::exists(cache.filePath));
}
