// The vyx command run as a process against its built-in virtual tracker:
// output and exit codes, the calibrations saved into tool files, and a
// record and replay round trip compared frame by frame. Each test serves on
// its own loopback address.
#include "support/Process.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

namespace {

namespace fs = std::filesystem;
using vyx::test::Process;
using vyx::test::ProcessResult;
using vyx::test::runProcess;
using namespace std::chrono_literals;

// Each test in its own scratch directory, removed with what it holds.
class VyxCommand : public ::testing::Test {
protected:
    // vyx with the test's tool directory, on the virtual tracker at `host`.
    std::vector<std::string> vyx(std::vector<std::string> args, const std::string& host) const {
        args.insert(args.begin(), VYX_COMMAND);
        args.insert(args.end(), {"--tool-dir", tools(), "--virtual-address", host});
        return args;
    }
    std::string tools() const { return file("tools"); }
    std::string file(const std::string& name) const { return scratch_.file(name); }

    ScratchDirectory scratch_;
};

TEST_F(VyxCommand, UsageErrorsExitWithTwoAndOneLineOnStderr) {
    const std::vector<std::vector<std::string>> bad = {
        {}, {"frobnicate"}, {"track", "--seconds", "-1"}, {"tipcal", "pointer"}, {"tools"},
        {"replay", "a.vyxrec", "--speed", "fast"}};
    for (std::vector<std::string> args : bad) {
        args.insert(args.begin(), VYX_COMMAND);
        const ProcessResult r = runProcess(args);
        EXPECT_EQ(r.exitCode, 2) << args.size();
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find("--help"), std::string::npos) << r.err;
    }
    EXPECT_EQ(runProcess({VYX_COMMAND, "record", "--help"}).exitCode, 0);
}

TEST_F(VyxCommand, InfoAndToolsWithoutADevice) {
    ProcessResult r = runProcess(vyx({"info"}, "127.0.0.30"));
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_EQ(r.out.rfind("No device given: using the built-in virtual tracker", 0), 0u) << r.out;
    for (const char* line : {"grey images       1280 x 720", "manufactured      2024-06-18",
                             "device IP         127.0.0.1", "hardware check    healthy"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;

    // info wrote the scene's tools into the tool directory.
    r = runProcess({VYX_COMMAND, "tools", "list", "--tool-dir", tools()});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    for (const char* tool : {"reference", "pointer", "handpiece"})
        EXPECT_NE(r.out.find(tool), std::string::npos) << r.out;
    r = runProcess({VYX_COMMAND, "tools", "check", tools() + "/pointer.vyxtool"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("markers     4"), std::string::npos) << r.out;
    writeFile(file("broken.vyxtool"), "broken\nT\n9\n");
    r = runProcess({VYX_COMMAND, "tools", "check", file("broken.vyxtool")});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("is refused: malformed"), std::string::npos) << r.err;
}

// Each procedure on the scene made for it, saved into the file of the tool it
// names. Where the tip is calibrated it lies near the scene's, off by less
// than `tipOff` mm: exactly in the noise-free hole, within four times the
// predicted precision of 0.13 mm under the pivot scene's noise.
TEST_F(VyxCommand, CalibrationsRunToTheEndAndSave) {
    const struct {
        std::vector<std::string> args;
        const char* expected;
        double tipOff;  // 0: no tip printed
    } cases[] = {
        {{"pivot", "pointer"}, "verdict         good", 0.5},
        {{"tipcal", "pointer", "calibrator"}, "true tip", 0.01},
        {{"selfcal", "wand"}, "Self-calibration of wand", 0},
        {{"maketool", "mytool", "--markers", "4"}, "Made mytool", 0},
    };
    int host = 31;
    for (const auto& c : cases) {
        fs::remove_all(tools());
        std::vector<std::string> args = c.args;
        args.insert(args.end(), {"--save", "--rate", "0"});
        const ProcessResult r = runProcess(vyx(args, "127.0.0." + std::to_string(host++)));
        ASSERT_EQ(r.exitCode, 0) << c.args[0] << "\n" << r.out << r.err;
        EXPECT_NE(r.out.find(c.expected), std::string::npos) << r.out;
        EXPECT_NE(r.out.find("Saved"), std::string::npos) << r.out;
        EXPECT_TRUE(fs::exists(tools() + "/" + c.args[1] + ".vyxtool"));
        const auto off = r.out.find("off by ");
        if (c.tipOff == 0) continue;
        ASSERT_NE(off, std::string::npos) << r.out;
        EXPECT_LT(std::stod(r.out.substr(off + 7)), c.tipOff) << r.out;
    }
}

std::map<std::uint32_t, std::string> framesOf(const std::string& csvPath) {
    std::ifstream csv(csvPath);
    std::map<std::uint32_t, std::string> frames;
    std::string line;
    std::getline(csv, line);  // header
    while (std::getline(csv, line)) {
        // Drop the time column: the rest of the row is the frame's content.
        const std::string rest = line.substr(line.find(',') + 1);
        frames[static_cast<std::uint32_t>(std::stoul(rest))] += rest + "\n";
    }
    return frames;
}

TEST_F(VyxCommand, ReplayGivesTheRecordedSessionFrameByFrame) {
    const ProcessResult live = runProcess(
        vyx({"track", "--seconds", "2", "--csv", file("live.csv"), "--record", file("s.vyxrec")},
            "127.0.0.36"));
    ASSERT_EQ(live.exitCode, 0) << live.out << live.err;
    EXPECT_NE(live.out.find("0 dropped"), std::string::npos) << live.out;

    Process replay({VYX_COMMAND, "replay", file("s.vyxrec"), "--address", "127.0.0.37",
                    "--port", "17037"});
    ASSERT_TRUE(replay.waitForOutput("Connect with", 5s));
    const ProcessResult played = runProcess({VYX_COMMAND, "track", "--ethernet",
                                             "127.0.0.37:17037", "--tool-dir", tools(),
                                             "--seconds", "3", "--csv", file("replay.csv")});
    ASSERT_EQ(played.exitCode, 0) << played.out << played.err;
    // Played out and the host gone: the replay ends by itself.
    const ProcessResult ended = replay.finish(10s);
    EXPECT_EQ(ended.exitCode, 0) << ended.out << ended.err;
    EXPECT_NE(ended.out.find("played out"), std::string::npos) << ended.out;

    const auto recorded = framesOf(file("live.csv")), replayed = framesOf(file("replay.csv"));
    std::size_t common = 0;
    for (const auto& [id, rows] : replayed) {
        if (recorded.count(id) == 0) continue;
        ++common;
        EXPECT_EQ(rows, recorded.at(id)) << "frame " << id;
    }
    // At 60 frames a second both sessions saw most of some 120 frames.
    EXPECT_GE(common, 60u) << recorded.size() << " live, " << replayed.size() << " replayed";
}

TEST_F(VyxCommand, DamagedRecordingsAreRefusedOrReplayedUpToTheDamage) {
    const ProcessResult r =
        runProcess(vyx({"record", file("r.vyxrec"), "--seconds", "1"}, "127.0.0.38"));
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("Recorded "), std::string::npos) << r.out;
    const std::string bytes = readFile(file("r.vyxrec"));
    ASSERT_GT(bytes.size(), 20000u);

    std::string corrupt = bytes;
    corrupt[bytes.size() / 2] ^= 0x40;
    writeFile(file("corrupt.vyxrec"), corrupt);
    ProcessResult refused =
        runProcess({VYX_COMMAND, "replay", file("corrupt.vyxrec"), "--address", "127.0.0.39"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("byte offset"), std::string::npos) << refused.err;

    writeFile(file("cut.vyxrec"), bytes.substr(0, bytes.size() - 1000));
    Process cut({VYX_COMMAND, "replay", file("cut.vyxrec"), "--address", "127.0.0.39",
                 "--seconds", "1"});
    const ProcessResult replayed = cut.finish(10s);
    EXPECT_EQ(replayed.exitCode, 0) << replayed.err;
    EXPECT_NE(replayed.out.find("is cut short at byte offset"), std::string::npos) << replayed.out;
}

}  // namespace
