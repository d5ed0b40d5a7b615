// The vyx subcommands. Each returns the process exit code (0 done, 1
// failed) or throws CommandError; usage errors never get this far.
#pragma once

#include "cli/Session.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace vyx::cli {

int runInfo(const ConnectionOptions& connection);

int runToolsList(const std::string& toolDirectory);
int runToolsCheck(const std::string& file);
// Converts next to the ROM file, then moves the result into `directory`
// unless that is empty.
int runToolsConvert(const std::string& romFile, const std::string& directory);

struct TrackOptions {
    std::vector<std::string> tools;  // empty: every tool of the library
    std::string reference;
    std::optional<double> seconds;   // none: until Ctrl+C
    std::string csvFile;
    std::string recordFile;
};
int runTrack(const ConnectionOptions& connection, const TrackOptions& options);

// OpenIGTLink server (built with OpenIGTLink only: VYX_HAVE_SERVE).
struct ServeOptions {
    std::vector<std::string> tools;  // empty: every tool of the library but the reference
    std::string reference;
    bool tipPose = false;            // the tip with the tool's rotation, not the tool's pose
    std::string address = "127.0.0.1";
    unsigned short port = 18944;
    double maxRateHz = 0.0;          // 0: every frame
    std::optional<double> seconds;   // none: until Ctrl+C
};
int runServe(const ConnectionOptions& connection, const ServeOptions& options);

// The calibration procedures.
struct ProcedureOptions {
    std::string procedure;  // pivot, tipcal, selfcal, maketool
    std::string tool;       // the tool (or the name of the tool being made)
    std::string calibrator; // tipcal only
    int markers = 4;        // maketool only
    bool save = false;
    double timeoutSeconds = 60.0;
};
int runProcedure(const ConnectionOptions& connection, const ProcedureOptions& options);

struct RecordOptions {
    std::string file;
    std::optional<double> seconds;
};
int runRecord(const ConnectionOptions& connection, const RecordOptions& options);

struct ReplayOptions {
    std::string file;
    bool loop = false;
    double speed = 1.0;
    std::string address = "127.0.0.1";
    unsigned short port = 0;  // 0: a free port
    std::optional<double> seconds;
};
int runReplay(const ReplayOptions& options);

struct SimOptions {
    std::string scene;
    std::string address = "127.0.0.1";
    std::optional<unsigned short> port;
    double rateHz = 60.0;
    bool wifi = false;
    std::string model;
    bool longForm = true;
    std::string writeTools;
    std::optional<double> seconds;
};
int runSim(const SimOptions& options);

// Waits until Ctrl+C, SIGTERM, the deadline or `done` says so, polling
// every 100 ms. Returns why: "interrupted", "time is up" or "done".
std::string serveUntil(std::optional<double> seconds, const std::function<bool()>& done);

}  // namespace vyx::cli
