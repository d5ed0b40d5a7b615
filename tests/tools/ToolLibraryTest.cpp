#include "tools/ToolLibrary.h"

#include "ToolTestFiles.h"

#include <gtest/gtest.h>

#include <list>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

// "alpha" (kind C, x 0), "beta" (x 100), a second "alpha" (x 200), in that order.
void addThreeTools(const ScratchDirectory& dir, ToolLibrary& library) {
    writeFile(dir.file("a1.vyxtool"), fourMarkerToolText("alpha", 'C'));
    writeFile(dir.file("b.vyxtool"), fourMarkerToolText("beta", 'T', 100));
    writeFile(dir.file("a2.vyxtool"), fourMarkerToolText("alpha", 'T', 200));
    for (const char* name : {"a1", "b", "a2"}) library.AddToolInfoResult(dir.file(name).c_str());
    ASSERT_EQ(library.count(), 3u);
}

// What a directory scan printed, line by line, with the line that announces
// the scan for rom files shortened to "<rom scan>".
std::vector<std::string> scanMessages(const std::string& printed) {
    std::vector<std::string> lines;
    std::istringstream in(printed);
    for (std::string line; std::getline(in, line);) {
        const bool rom = line.rfind("[Message] Now auto detect ", 0) == 0 &&
                         line.find(" rom files...") == line.size() - 13;
        lines.push_back(rom ? "<rom scan>" : line);
    }
    return lines;
}

}  // namespace

TEST(ToolDirectoryScan, LoadsTheFilesEndingInVyxtoolAndReportsEachDirectoryItOpens) {
    ScratchDirectory dir;
    writeFile(dir.file("a.vyxtool"), fourMarkerToolText("a"));
    writeFile(dir.file(".vyxtool"), fourMarkerToolText("bare"));
    for (const char* skipped : {"c.VYXTOOL", "d.vyxtool.bak", "vyxtool", "broken.vyxtool"})
        writeFile(dir.file(skipped), skipped[0] == 'b' ? "broken T 0\n" : fourMarkerToolText("skipped"));
    const std::string path = dir.path() + "/", opened = "[Message] Success to open dir: " + path;
    for (const std::string& given : {dir.path(), path, dir.path() + "\\"}) {
        SCOPED_TRACE(given);
        ToolLibrary library;
        CapturedOutput output;
        ASSERT_EQ(library.setToolInfoFilePath(given.c_str(), true), 0);
        EXPECT_EQ(library.toolInfoFilePath(), path);
        std::set<std::string> files;
        for (const auto& tool : library) files.insert(tool->filePath);
        EXPECT_EQ(files, (std::set<std::string>{path + "a.vyxtool", path + ".vyxtool"}));
        EXPECT_EQ(scanMessages(output.str()),
                  (std::vector<std::string>{"[Message] attempt to open dir: " + path, opened,
                                            "<rom scan>", opened}));
    }

    const std::string missing = dir.file("missing") + "/";
    const std::string absent = "[Warning] Dir not exist: " + missing;
    ToolLibrary library;
    CapturedOutput output;
    EXPECT_EQ(library.setToolInfoFilePath(missing.c_str(), false), -1);
    EXPECT_EQ(scanMessages(output.str()),
              (std::vector<std::string>{"[Message] attempt to open dir: " + missing, absent,
                                        "<rom scan>", absent}));
    EXPECT_EQ(library.setToolInfoFilePath(nullptr, true), -1);
}

TEST(ToolLibraryLoading, AddsWithoutDuplicateCheckAndSingleAddsKeepTheDirectory) {
    ScratchDirectory dir, empty;
    writeFile(dir.file("a.vyxtool"), fourMarkerToolText("a"));
    ToolLibrary library;
    CapturedOutput output;
    library.setToolInfoFilePath(dir.path().c_str(), false);
    library.setToolInfoFilePath(dir.path().c_str(), false);
    EXPECT_EQ(library.setToolInfoFilePath(empty.path().c_str(), false), 0);
    EXPECT_EQ(library.count(), 2u);

    EXPECT_EQ(library.AddToolInfoResult(dir.file("missing").c_str()), 0);
    EXPECT_EQ(library.AddToolInfoResult(dir.file("a").c_str()), 0);
    ASSERT_EQ(library.count(), 3u);
    EXPECT_EQ(library.toolAt(2)->filePath, dir.file("a.vyxtool"));
    EXPECT_EQ(library.toolInfoFilePath(), empty.path() + "/");

    library.setToolInfoFilePath(dir.path().c_str(), true);
    EXPECT_EQ(library.count(), 1u);
}

TEST(ToolQueries, AnswerInLoadOrderWithFallThroughToTheLastTool) {
    ScratchDirectory dir;
    ToolLibrary library;
    t_ToolBaseInfo info[3] = {};
    int count = -1;
    float positions[12] = {};
    std::list<float> values;
    EXPECT_EQ(library.getAllToolFilesBaseInfo(info), -1);
    EXPECT_EQ(info[0].ToolName, nullptr);
    EXPECT_EQ(library.getSpecificToolFileInfoArray("alpha", count, positions), -1);
    EXPECT_EQ(library.getSpecificToolFileInfoList("alpha", count, &values), -1);
    EXPECT_EQ(count, -1);

    addThreeTools(dir, library);
    ASSERT_EQ(library.getAllToolFilesBaseInfo(info), 0);
    EXPECT_STREQ(info[1].ToolName, "beta");
    EXPECT_EQ(info[0].ToolKind, 1);
    EXPECT_EQ(info[1].ToolKind, 0);
    EXPECT_EQ(info[2].MarkerCount, 4);
    EXPECT_EQ(library.findFirstToolIndex("alpha"), 0);
    EXPECT_EQ(library.findLastToolIndex("alpha"), 2);

    ASSERT_EQ(library.getSpecificToolFileInfoArray("alpha", count, positions), 0);
    EXPECT_EQ(count, 4);
    EXPECT_EQ(positions[3], 50.0f);  // the first "alpha"
    ASSERT_EQ(library.getSpecificToolFileInfoArray("gamma", count, positions), 0);
    EXPECT_EQ(positions[3], 250.0f);  // unknown: the last tool answers
    values = {-1.0f};
    ASSERT_EQ(library.getSpecificToolFileInfoList("beta", count, &values), 0);
    ASSERT_EQ(values.size(), 13u);
    EXPECT_EQ(*std::next(values.begin(), 4), 150.0f);
    EXPECT_EQ(library.getSpecificToolFileInfoList(nullptr, count, &values), -1);
    EXPECT_EQ(library.getSpecificToolFileInfoArray("beta", count, nullptr), -1);
}

TEST(ToolWriters, WriteOnlyTheSelectedTool) {
    ScratchDirectory dir;
    ToolLibrary library;
    addThreeTools(dir, library);
    const std::string before = readFile(dir.file("a1.vyxtool"));
    EXPECT_EQ(library.WriteFormatToolAllInfoFromFile(0), 0);  // nothing selected yet
    library.setSelectedToolIndex(3);
    EXPECT_EQ(library.WriteFormatToolInfoFromFile(0), 0);
    EXPECT_EQ(readFile(dir.file("a1.vyxtool")), before);

    library.setSelectedToolIndex(1);
    library.toolAt(1)->tipPoints[2] = -175.5f;
    ASSERT_EQ(library.WriteFormatToolInfoFromFile(0), 1);
    EXPECT_NE(readFile(dir.file("b.vyxtool")).find("\n2\n0.000000 0.000000 -175.500000\n"),
              std::string::npos);
    ASSERT_EQ(library.WriteFormatToolAllInfoFromFile(0), 1);
    EXPECT_EQ(readFile(dir.file("b.vyxtool")).rfind("beta\nT\n4\n100.000000 0.000000", 0), 0u);

    ToolLibrary::WriteErroIntoFile(dir.file("err.txt").c_str(), {0.25f, -3.0f});
    EXPECT_EQ(readFile(dir.file("err.txt")), "0.250000\n-3.000000\n");
}
