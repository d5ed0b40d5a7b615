// vyx: the tracker from a terminal. Shows the device and its tools, tracks,
// runs the tool calibrations, records a session and plays it back, and
// serves the virtual tracker. Built on the library's public interface only.
//
// Exit codes: 0 done, 1 failed, 2 bad usage.
#include "cli/Commands.h"
#include "cli/Scenes.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace vyx::cli;

// Adds the options; returns --virtual, whose presence counts even without a
// value.
CLI::Option* addConnectionOptions(CLI::App& app, ConnectionOptions& c) {
    const char* group = "Connection (default: the built-in virtual tracker)";
    app.add_option("--ethernet", c.ethernet, "tracker over Ethernet at ADDR[:PORT] (port 7)")
        ->type_name("ADDR[:PORT]")
        ->group(group);
    app.add_option("--wifi", c.wifi, "tracker's Wi-Fi module at ADDR[:PORT] (port 8899)")
        ->type_name("ADDR[:PORT]")
        ->group(group);
    app.add_flag("--usb", c.usb, "tracker over USB")->group(group);
    CLI::Option* virtualOption =
        app.add_option("--virtual", c.scene,
                       std::string("virtual tracker in this process, playing SCENE: a scene "
                                   "file or one of ") + kSceneNames)
            ->expected(0, 1)
            ->type_name("[SCENE]")
            ->group(group);
    app.add_option("--virtual-address", c.virtualAddress,
                   "loopback address the virtual tracker serves on")
        ->default_str("127.0.0.1")
        ->group(group);
    app.add_option("--rate", c.rateHz, "virtual tracker's frame rate, frames per second (0: as fast as asked)")
        ->check(CLI::Range(0.0, 1000.0))
        ->default_str("60")
        ->group(group);
    app.add_option("--tool-dir", c.toolDirectory, "tool directory")
        ->default_str("vyx-tools")
        ->group(group);
    return virtualOption;
}

// A number above zero, named as such when it is not (CLI11's own message
// would print the whole range of a double).
const CLI::Validator kPositive(
    [](std::string& text) -> std::string {
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        const bool ok = end != text.c_str() && *end == '\0' && value > 0.0 && std::isfinite(value);
        return ok ? std::string() : "'" + text + "' is not a number above zero";
    },
    "POSITIVE");

std::optional<double> secondsOption(double value) {
    return value > 0.0 ? std::optional<double>(value) : std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Drives a stereo optical position tracker: device information, tools, tracking,\n"
                 "tool calibration, recording and replay, and the virtual tracker.",
                 "vyx"};
    app.require_subcommand(1);
    app.fallthrough();
    ConnectionOptions connection;
    CLI::Option* virtualOption = addConnectionOptions(app, connection);

    std::function<int()> command;

    CLI::App* info = app.add_subcommand("info", "model, image geometry, manufacture date, addresses and status");
    info->callback([&] { command = [&] { return runInfo(connection); }; });

    CLI::App* tools = app.add_subcommand("tools", "the tool library: list, check a file, convert a ROM file");
    tools->require_subcommand(1);
    tools->add_subcommand("list", "the tools of the tool directory as a table")
        ->callback([&] { command = [&] { return runToolsList(connection.toolDirectory); }; });
    std::string checkFile;
    CLI::App* toolsCheck = tools->add_subcommand("check", "check one tool file, with the reason for a refusal");
    toolsCheck->add_option("FILE", checkFile, "tool file")->required();
    toolsCheck->callback([&] { command = [&] { return runToolsCheck(checkFile); }; });
    std::string romFile;
    std::string convertDir;
    CLI::App* toolsConvert = tools->add_subcommand("convert", "convert a ROM tool file into a tool file");
    toolsConvert->add_option("ROM", romFile, "ROM tool file")->required()->check(CLI::ExistingFile);
    toolsConvert->add_option("--dir", convertDir, "where to put it (default: next to the ROM file)");
    toolsConvert->callback([&] { command = [&] { return runToolsConvert(romFile, convertDir); }; });

    TrackOptions track;
    double trackSeconds = 0.0;
    CLI::App* trackCommand = app.add_subcommand("track", "live table of the tools' tips, poses and fit errors");
    trackCommand->add_option("--tools", track.tools, "only these tools")->delimiter(',')->type_name("A,B,...");
    trackCommand->add_option("--reference", track.reference, "express everything in this tool's frame");
    trackCommand->add_option("--seconds", trackSeconds, "stop after N seconds (default: Ctrl+C)")
        ->check(kPositive);
    trackCommand->add_option("--csv", track.csvFile, "write every frame's markers and tools to FILE");
    trackCommand->add_option("--record", track.recordFile, "record the session into FILE as well");
    trackCommand->callback([&] {
        track.seconds = secondsOption(trackSeconds);
        command = [&] { return runTrack(connection, track); };
    });

    ProcedureOptions procedure;
    const auto addProcedure = [&](const char* name, const char* help) {
        CLI::App* sub = app.add_subcommand(name, help);
        sub->add_option("TOOL", procedure.tool, "the tool")->required();
        sub->add_flag("--save", procedure.save, "save the result without asking");
        sub->add_option("--timeout", procedure.timeoutSeconds, "give up after N seconds")
            ->check(kPositive)
            ->default_str("60");
        sub->callback([&procedure, &command, &connection, name] {
            procedure.procedure = name;
            command = [&] { return runProcedure(connection, procedure); };
        });
        return sub;
    };
    addProcedure("pivot", "pivot calibration of a tool's tip, with its quality report");
    addProcedure("tipcal", "tip calibration in a calibrator's hole")
        ->add_option("CALIBRATOR", procedure.calibrator, "the calibrator")
        ->required();
    addProcedure("selfcal", "self-calibration of a tool's marker positions");
    addProcedure("maketool", "make a new tool from the markers in view (TOOL: its name)")
        ->add_option("--markers", procedure.markers, "its marker count")
        ->check(CLI::Range(3, 200))
        ->default_str("4");

    RecordOptions record;
    double recordSeconds = 0.0;
    CLI::App* recordCommand = app.add_subcommand("record", "record marker and status frames for replay");
    recordCommand->add_option("FILE", record.file, "recording to write")->required();
    recordCommand->add_option("--seconds", recordSeconds, "stop after N seconds (default: Ctrl+C)")
        ->check(kPositive);
    recordCommand->callback([&] {
        record.seconds = secondsOption(recordSeconds);
        command = [&] { return runRecord(connection, record); };
    });

    ReplayOptions replay;
    double replaySeconds = 0.0;
    CLI::App* replayCommand = app.add_subcommand("replay", "serve a recording as a tracker on a loopback address");
    replayCommand->add_option("FILE", replay.file, "recording to play")->required();
    replayCommand->add_flag("--loop", replay.loop, "start over at the end");
    replayCommand->add_option("--speed", replay.speed, "playback speed (0: a new frame per request)")
        ->check(CLI::Range(0.0, 100.0))
        ->default_str("1");
    replayCommand->add_option("--address", replay.address, "loopback address to serve on")->default_str("127.0.0.1");
    replayCommand->add_option("--port", replay.port, "TCP port (default: a free one)")->check(CLI::Range(1, 65535));
    replayCommand->add_option("--seconds", replaySeconds, "stop after N seconds")->check(kPositive);
    replayCommand->callback([&] {
        replay.seconds = secondsOption(replaySeconds);
        command = [&] { return runReplay(replay); };
    });

    SimOptions sim;
    double simSeconds = 0.0;
    unsigned short simPort = 0;
    CLI::App* simCommand = app.add_subcommand("sim", "serve the virtual tracker on a loopback address");
    simCommand->add_option("--scene", sim.scene, std::string("scene file, or one of ") + kSceneNames);
    simCommand->add_option("--address", sim.address, "loopback address to serve on")->default_str("127.0.0.1");
    CLI::Option* portOption = simCommand->add_option("--port", simPort, "TCP port (default 7, with --wifi 8899; below 1024 needs root)")
                                  ->check(CLI::Range(0, 65535));
    simCommand->add_option("--rate", sim.rateHz, "frames per second (0: a new frame per request)")
        ->check(CLI::Range(0.0, 1000.0))
        ->default_str("60");
    simCommand->add_flag("--wifi", sim.wifi, "serve the Wi-Fi module's framing");
    simCommand->add_option("--model", sim.model, "model text to report");
    simCommand->add_flag("--no-long-form", [&sim](std::int64_t) { sim.longForm = false; },
                         "do not answer the long configuration request");
    simCommand->add_option("--write-tools", sim.writeTools, "write the scene's tool files into DIR and exit");
    simCommand->add_option("--seconds", simSeconds, "stop after N seconds")->check(kPositive);
    simCommand->callback([&] {
        sim.seconds = secondsOption(simSeconds);
        if (portOption->count() > 0) sim.port = simPort;
        command = [&] { return runSim(sim); };
    });

#ifdef VYX_HAVE_SERVE
    // serve's own --rate is the cap on the stream; the virtual tracker's
    // frame rate (the connection option) is then given before "serve".
    ServeOptions serve;
    double serveSeconds = 0.0;
    std::string servePose = "tool";
    CLI::App* serveCommand = app.add_subcommand("serve", "stream the tools' poses to OpenIGTLink clients");
    serveCommand->add_option("--tools", serve.tools, "only these tools (default: all but the reference)")
        ->delimiter(',')
        ->type_name("A,B,...");
    serveCommand->add_option("--reference", serve.reference, "poses in this tool's frame");
    serveCommand->add_option("--pose", servePose, "tool: the tool's pose; tip: its tip, with the tool's rotation")
        ->check(CLI::IsMember({"tool", "tip"}))
        ->default_str("tool");
    serveCommand->add_option("--address", serve.address, "address to listen on (other than loopback: open to the network)")
        ->default_str("127.0.0.1");
    serveCommand->add_option("--port", serve.port, "TCP port")->check(CLI::Range(1, 65535))->default_str("18944");
    serveCommand->add_option("--rate", serve.maxRateHz,
                             "send at most HZ frames per second (default: every frame; the virtual "
                             "tracker's own rate goes before 'serve': vyx --rate 120 serve --rate 30)")
        ->type_name("HZ")
        ->check(kPositive);
    serveCommand->add_option("--seconds", serveSeconds, "stop after N seconds (default: Ctrl+C)")->check(kPositive);
    serveCommand->callback([&] {
        serve.tipPose = servePose == "tip";
        serve.seconds = secondsOption(serveSeconds);
        command = [&] { return runServe(connection, serve); };
    });
#endif

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        std::fprintf(stderr, "vyx: %s (vyx --help, or vyx COMMAND --help, shows the usage)\n",
                     e.what());
        return 2;
    }
    connection.virtualTracker = virtualOption->count() > 0;
    installStopSignals();
    try {
        return command ? command() : 2;
    } catch (const CommandError& e) {
        std::fprintf(stderr, "vyx: %s\n", e.what());
        return 1;
    }
}
