#include "tools/ToolFile.h"
#include "tools/ToolLibrary.h"

#include "ToolTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

// A record pre-filled with a pattern, to see whether a failed check wrote it.
T_ToolFileData patternRecord() {
    T_ToolFileData data;
    std::memset(&data, 0xAB, sizeof data);
    return data;
}

bool untouched(const T_ToolFileData& data) {
    const T_ToolFileData pattern = patternRecord();
    return std::memcmp(&data, &pattern, sizeof data) == 0;
}

int checkText(const ScratchDirectory& dir, const std::string& text, T_ToolFileData& data) {
    const std::string path = dir.file("t.vyxtool");
    writeFile(path, text);
    return checkToolFile(path.c_str(), data);
}

int checkText(const ScratchDirectory& dir, const std::string& text) {
    T_ToolFileData data = patternRecord();
    const int result = checkText(dir, text, data);
    if (result != 0) EXPECT_TRUE(untouched(data)) << "failed check wrote the record";
    return result;
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
    return text;
}

}  // namespace

TEST(ToolFileReader, AcceptsOnlyKindsTAndC) {
    ScratchDirectory dir;
    T_ToolFileData data = patternRecord();
    ASSERT_EQ(checkText(dir, fourMarkerToolText("cal", 'C'), data), 0);
    EXPECT_EQ(data.ToolKind, 'C');
    for (char kind : {'X', 't', 'c', '4'})
        EXPECT_EQ(checkText(dir, fourMarkerToolText("p", kind)), -1) << kind;
}

TEST(ToolFileReader, DemandsTheFullMaskOnEveryMarkerLine) {
    ScratchDirectory dir;
    const std::string three = "tri T 3\n0 0 0 7\n10 0 0 7\n0 10 0 7\n2\n0 0 0\n0 0 1\n";
    EXPECT_EQ(checkText(dir, three), 0);
    EXPECT_EQ(checkText(dir, replaced(three, "10 0 0 7", "10 0 0 15")), -1);
    EXPECT_EQ(checkText(dir, replaced(three, "10 0 0 7", "10 0 0")), -1);
}

TEST(ToolFileReader, RejectsMarkerCountsOutsideOneTo200) {
    ScratchDirectory dir;
    for (const char* count : {"0", "-1", "x"})
        EXPECT_EQ(checkText(dir, "p T " + std::string(count) + " 2 0 0 0 0 0 0\n"), -1) << count;
    // 200 well-formed marker lines fit the tables; a 201st would overrun them.
    for (int count : {200, 201}) {
        std::string text = "big T " + std::to_string(count) + "\n";
        for (int i = 0; i < count; ++i)
            text += std::to_string(i) + " 0 0 " + std::to_string(fullMarkerMask(count)) + "\n";
        EXPECT_EQ(checkText(dir, text + "2 0 0 0 0 0 1\n"), count == 200 ? 0 : -1) << count;
    }
}

TEST(ToolFileReader, RejectsTipSectionCountsOtherThanTwoWithoutLoading) {
    ScratchDirectory dir;
    ToolLibrary library;
    for (const char* count : {"1", "4"}) {
        const std::string text = replaced(fourMarkerToolText("p"), "\n2\n", "\n" + std::string(count) + "\n");
        EXPECT_EQ(checkText(dir, text), -1) << count;
        library.AddFormatToolInfoFromFile(dir.file("t.vyxtool").c_str());
    }
    EXPECT_EQ(library.count(), 0u);
}

TEST(ToolFileReader, RejectsNamesLongerThan199Characters) {
    ScratchDirectory dir;
    T_ToolFileData data = patternRecord();
    ASSERT_EQ(checkText(dir, fourMarkerToolText(std::string(199, 'n')), data), 0);
    EXPECT_EQ(std::string(data.ToolName), std::string(199, 'n'));
    EXPECT_EQ(checkText(dir, fourMarkerToolText(std::string(200, 'n'))), -1);
}

TEST(ToolFileReader, IgnoresLineBreaksAndZeroesTipValuesCutOffByTheEnd) {
    ScratchDirectory dir;
    T_ToolFileData lines = patternRecord(), oneLine = patternRecord();
    ASSERT_EQ(checkText(dir, fourMarkerToolText("p"), lines), 0);
    std::string flat = fourMarkerToolText("p");
    for (char& c : flat)
        if (c == '\n') c = ' ';
    ASSERT_EQ(checkText(dir, "\n\n" + replaced(flat, "T 4", "T\n\n4"), oneLine), 0);
    EXPECT_EQ(std::memcmp(&lines, &oneLine, sizeof lines), 0);

    T_ToolFileData cut = patternRecord();
    ASSERT_EQ(checkText(dir, "p T 1 1 2 3 1 2 -7.5", cut), 0);
    EXPECT_EQ(cut.TipPoint[0], -7.5f);
    EXPECT_EQ(cut.TipPoint[1], 0.0f);
    EXPECT_EQ(cut.TipAxisPoint[2], 0.0f);
}

TEST(ToolFileCheck, FillsTheWholeRecordAndZeroesTheRest) {
    ScratchDirectory dir;
    T_ToolFileData data = patternRecord();
    ASSERT_EQ(checkText(dir, fourMarkerToolText("probe"), data), 0);
    EXPECT_STREQ(data.ToolName, "probe");
    EXPECT_EQ(data.MarkerCount, 4);
    EXPECT_EQ(data.MarkerPosition[3][2], 120.0f);
    EXPECT_EQ(data.MarkerPosition[4][0], 0.0f);
    EXPECT_EQ(data.MarkerPosition[199][2], 0.0f);
    EXPECT_EQ(data.TipSectionCount, 2);
    EXPECT_EQ(data.TipPoint[2], -150.0f);
    EXPECT_EQ(data.TipAxisPoint[2], -100.0f);
    for (unsigned char b : data.Reserved) ASSERT_EQ(b, 0);

    T_ToolFileData missing = patternRecord();
    EXPECT_EQ(checkToolFile(dir.file("none.vyxtool").c_str(), missing), -1);
    EXPECT_EQ(checkToolFile(nullptr, missing), -1);
    EXPECT_TRUE(untouched(missing));
}

TEST(DistanceTable, KeepsOnlyPairsWhoseMaskBitIsSet) {
    ToolFileContent content;
    content.toolName = "tri";
    content.markerCount = 3;
    content.markerMask = 7;
    content.markerPositions = {0, 0, 0, 3, 0, 0, 0, 4, 0};
    auto tool = makeToolRecord(content, "x");
    ASSERT_EQ(tool->distanceTable.type(), CV_32F);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(1, 2), 5.0f);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(2, 0), 4.0f);
    EXPECT_EQ(tool->distanceTable.at<float>(1, 1), 0.0f);

    tool->markerMasks[1] = 0b011;  // marker 1 drops marker 2
    tool->markerPositionsCopy[3] = 6;
    CalculateDisWithPointsArr(*tool, true);
    EXPECT_EQ(tool->distanceTable.at<float>(1, 2), 0.0f);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(2, 1), std::sqrt(52.0f));
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(0, 1), 6.0f);

    tool->markerMasks.clear();
    CalculateDisWithPointsArr(*tool, false);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(1, 2), 5.0f);
}

TEST(FullWriter, WritesFourMarkerToolsThatReadBack) {
    ScratchDirectory dir;
    ToolFileContent content;
    content.toolName = "probe";
    content.toolKind = 'C';
    content.markerCount = 4;
    content.markerMask = 15;
    content.markerPositions = {1.25f, -2.5f, 0, 10.1234567f, 0, 0, 0, 20, 0, 0, 0, 30};
    content.tipPoints = {0, 0, -151.5f, 0, 0, -100};
    auto tool = makeToolRecord(content, dir.file("probe.vyxtool"));
    ASSERT_EQ(writeToolFileFull(*tool), 1);
    EXPECT_EQ(tool->toolKind, 'T');
    EXPECT_EQ(readFile(tool->filePath),
              "probe\nT\n4\n1.250000 -2.500000 0.000000 15\n10.123457 0.000000 0.000000 15\n"
              "0.000000 20.000000 0.000000 15\n0.000000 0.000000 30.000000 15\n2\n"
              "0.000000 0.000000 -151.500000\n0.000000 0.000000 -100.000000\n");
    T_ToolFileData data = patternRecord();
    ASSERT_EQ(checkToolFile(tool->filePath.c_str(), data), 0);
    EXPECT_NEAR(data.MarkerPosition[1][0], 10.123457f, 1e-6f);

    tool->filePath = dir.file("missing/probe.vyxtool");
    EXPECT_EQ(writeToolFileFull(*tool), 0);
}

TEST(FullWriter, WritesFourMarkerLinesForOtherCountsWhichDoNotReadBack) {
    ScratchDirectory dir;
    for (int count : {5, 3}) {
        ToolFileContent content;
        content.toolName = "odd";
        content.markerCount = count;
        content.markerMask = fullMarkerMask(count);
        content.markerPositions.assign(static_cast<std::size_t>(count) * 3, 1.0f);
        auto tool = makeToolRecord(content, dir.file("odd.vyxtool"));
        ASSERT_EQ(writeToolFileFull(*tool), 1);
        const std::string text = readFile(tool->filePath);
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 10) << count;
        T_ToolFileData data = patternRecord();
        EXPECT_EQ(checkToolFile(tool->filePath.c_str(), data), -1) << count;
    }
}

TEST(TipSectionWriter, KeepsTheHeadVerbatimAndWritesTheTipFromMemory) {
    ScratchDirectory dir;
    const std::string head = "probe\nT\n4\n0  0 0 15\n50 0 0 15\n0 80 0 15\n0 0 120   15\n";
    writeFile(dir.file("p.vyxtool"), head + "2\n0 0 -150\n0 0 -100\n");
    ToolFileContent content;
    ASSERT_TRUE(readToolFile(dir.file("p.vyxtool").c_str(), content));
    auto tool = makeToolRecord(content, dir.file("p.vyxtool"));
    tool->tipPoints = {1, 2, -160.25f, 0, 0, -90};
    ASSERT_EQ(rewriteToolTipSection(*tool), 1);
    EXPECT_EQ(readFile(tool->filePath),
              head + "2\n1.000000 2.000000 -160.250000\n0.000000 0.000000 -90.000000\n");

    // A file that no longer holds the head is left alone.
    writeFile(tool->filePath, "probe T 4\n");
    EXPECT_EQ(rewriteToolTipSection(*tool), 0);
    EXPECT_EQ(readFile(tool->filePath), "probe T 4\n");
}

TEST(CacheWriter, WritesEachMarkersMaskForAnyCount) {
    ScratchDirectory dir;
    T_ToolCoorSysInfo cache;
    cache.toolName = "big";
    cache.filePath = dir.file("big.vyxtool");
    cache.toolKind = 'C';
    cache.markerCount = 200;
    for (int i = 0; i < 200; ++i)
        cache.markerPositions.insert(cache.markerPositions.end(), {float(i), float(i % 7), 0.5f});
    cache.markerMasks.assign(200, fullMarkerMask(200));
    cache.tipPoints = {0, 0, -1, 0, 0, -2};
    ASSERT_EQ(WrtieFormatToolInfoFronCache(&cache), 1);

    ToolFileContent content;
    ASSERT_TRUE(readToolFile(cache.filePath.c_str(), content));
    EXPECT_EQ(content.toolKind, 'C');
    EXPECT_EQ(content.markerPositions[3 * 199], 199.0f);
    EXPECT_EQ(content.tipPoints[5], -2.0f);
    // Every pair of a large tool stays in its distance table.
    auto tool = makeToolRecord(content, cache.filePath);
    EXPECT_FLOAT_EQ(tool->distanceTable.at<float>(10, 150), 140.0f);
    EXPECT_GT(tool->distanceTable.at<float>(199, 31), 0.0f);

    cache.markerMasks[2] = 3;
    ASSERT_EQ(WrtieFormatToolInfoFronCache(&cache), 1);
    EXPECT_NE(readFile(cache.filePath).find("\n2.000000 2.000000 0.500000 3\n"), std::string::npos);
    EXPECT_FALSE(readToolFile(cache.filePath.c_str(), content));

    cache.filePath = dir.file("bad.vyxtool");
    cache.toolName = "two words";
    EXPECT_EQ(WrtieFormatToolInfoFronCache(&cache), 0);
    cache.toolName = "ok";
    cache.markerMasks.resize(199);
    EXPECT_EQ(WrtieFormatToolInfoFronCache(&cache), 0);
    EXPECT_EQ(WrtieFormatToolInfoFronCache(nullptr), 0);
    EXPECT_FALSE(std::filesystem::exists(cache.filePath));
}
