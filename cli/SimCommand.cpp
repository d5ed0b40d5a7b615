// vyx sim: the virtual tracker on its own, on a loopback address, for
// developing and trying hosts without tracker hardware.
#include "cli/Commands.h"
#include "cli/Scenes.h"
#include "sim/SceneTools.h"

#include <arpa/inet.h>

#include <chrono>
#include <cmath>
#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <sstream>

namespace vyx::cli {
namespace {

using vyx::sim::DeviceDescription;

std::mutex outputMutex;

void printLine(const std::string& line) {
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    localtime_r(&now, &local);
    std::lock_guard<std::mutex> lock(outputMutex);
    std::cout << std::put_time(&local, "%H:%M:%S") << "  " << line << std::endl;
}

std::string fixed(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

void printSummary(const DeviceDescription& d, const vyx::sim::Scene& scene,
                  const std::string& sceneName, const std::string& address, std::uint16_t port,
                  bool wifi) {
    using namespace vyx::sim;
    const std::uint32_t greyBlock = ethernetGreyBlockBytes(d.geometry);
    const std::uint32_t colourBlock = ethernetColourHalfBlockBytes(d.geometry);
    const auto blocks = [](std::uint32_t image, std::uint32_t block) {
        return block == 0 ? 0u : (image + block - 1) / block;
    };
    const auto& tl = d.calibration1.left.translation;
    const auto& tr = d.calibration1.right.translation;
    const double baseline =
        std::sqrt((tr[0] - tl[0]) * (tr[0] - tl[0]) + (tr[1] - tl[1]) * (tr[1] - tl[1]) +
                  (tr[2] - tl[2]) * (tr[2] - tl[2]));
    const auto& ip = d.deviceIP;
    const auto& k = d.calibration1.left.cameraMatrix;

    std::ostringstream out;
    out << "Virtual tracker serving on " << address << ":" << port << "\n"
        << "  framing           "
        << (wifi ? "Wi-Fi module (no images, trigger or mode)" : "Ethernet") << "\n"
        << "  model text        \"" << d.modelText.substr(0, 20) << "\"\n"
        << "  manufactured      " << d.manufactured.year << "-" << std::setfill('0') << std::setw(2)
        << int{d.manufactured.month} << "-" << std::setw(2) << int{d.manufactured.day}
        << std::setfill(' ') << "\n"
        << "  device IP         " << int{ip[0]} << "." << int{ip[1]} << "." << int{ip[2]} << "."
        << int{ip[3]} << "\n"
        << "  grey images       " << d.geometry.greyWidth << " x " << d.geometry.greyHeight << ", "
        << d.greyImageBytes << " bytes per camera, blocks of " << greyBlock << " bytes ("
        << blocks(d.greyImageBytes, greyBlock) << " per image)\n"
        << "  colour image      " << d.geometry.colourWidth << " x " << d.geometry.colourHeight
        << ", " << d.colourImageBytes << " bytes, half-blocks of " << colourBlock << " bytes ("
        << blocks(d.colourImageBytes, colourBlock) << " per image)\n"
        << "  calibration sets  " << (d.calibration2 ? 2 : 1) << ", at "
        << fixed(d.calibrationTemperature1, 1) << " and " << fixed(d.calibrationTemperature2, 1)
        << " degrees C, depth factors " << fixed(d.zFactor1, 3) << " and " << fixed(d.zFactor2, 3)
        << "\n"
        << "  stereo rig        baseline " << fixed(baseline, 1) << " mm, left fx "
        << fixed(k[0], 1) << " px, principal point (" << fixed(k[2], 1) << ", " << fixed(k[5], 1)
        << ")\n"
        << "  long form         ";
    if (d.longConfiguration) {
        out << "yes, " << d.longConfiguration->entries.size() << " temperature rows (";
        for (std::size_t i = 0; i < d.longConfiguration->entries.size(); ++i)
            out << (i ? ", " : "") << fixed(d.longConfiguration->entries[i].temperature, 1);
        out << " degrees C)\n";
    } else {
        out << "no\n";
    }
    out << "  model text reply  " << (d.answersModelTextRequest ? "yes" : "no") << "\n"
        << "  scene             " << sceneName;
    std::istringstream sceneLines(scene.summary());
    for (std::string line; std::getline(sceneLines, line);) out << "\n    " << line;
    printLine(out.str());
}

// Writes the scene's tool files into the directory.
int writeTools(const vyx::sim::Scene& scene, const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw CommandError("cannot create " + directory + ": " + error.message());
    if (!vyx::sim::writeToolFiles(scene, directory))
        throw CommandError("cannot write the tool files into " + directory +
                           " (body names must be distinct single words, bodies 1 to 30 points)");
    for (const vyx::sim::RigidBody& body : scene.bodies) {
        if (!body.listed) {
            std::cout << body.name << ": unlisted, no tool file\n";
            continue;
        }
        std::cout << directory << (directory.back() == '/' ? "" : "/") << body.name
                  << ".vyxtool: " << body.points.size() << " markers";
        if (body.filePerturbationMm != 0.0)
            std::cout << ", each moved by " << body.filePerturbationMm << " mm";
        std::cout << "\n";
    }
    return 0;
}

}  // namespace

int runSim(const SimOptions& options) {
    if (!vyx::sim::isLoopbackAddress(options.address))
        throw CommandError("refusing to serve on '" + options.address +
                           "': only loopback addresses (127.0.0.0/8) are allowed");
    vyx::sim::Scene scene = loadScene(options.scene);
    if (!options.writeTools.empty()) return writeTools(scene, options.writeTools);
    if (options.rateHz > 0.0) scene.frameRateHz = options.rateHz;

    DeviceDescription description = options.model.empty()
                                        ? vyx::sim::defaultDescription()
                                        : vyx::sim::descriptionForModel(options.model);
    in_addr own{};
    inet_pton(AF_INET, options.address.c_str(), &own);
    const std::uint32_t hostOrder = ntohl(own.s_addr);
    for (int i = 0; i < 4; ++i)
        description.deviceIP[static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>((hostOrder >> (24 - 8 * i)) & 0xFF);
    if (!options.longForm) description.longConfiguration.reset();

    vyx::sim::VirtualTracker tracker(description);
    try {
        tracker.setMarkerFrameSource(vyx::sim::sceneFrameSource(description, scene));
    } catch (const std::invalid_argument& e) {
        throw CommandError(e.what());
    }
    tracker.setFrameRate(options.rateHz);
    tracker.setEventSink(printLine);
    if (options.wifi) tracker.setFraming(vyx::sim::LinkFraming::WiFi);
    const unsigned port = options.port.value_or(options.wifi ? vyx::sim::kDefaultWifiPort
                                                             : vyx::sim::kDefaultPort);
    try {
        tracker.start(options.address, static_cast<std::uint16_t>(port));
    } catch (const std::exception& e) {
        throw CommandError(std::string(e.what()) +
                           (port > 0 && port < 1024
                                ? " (ports below 1024 need root: give --port 1024 or above)"
                                : ""));
    }
    const std::string sceneName = options.scene.empty() ? "workbench" : options.scene;
    printSummary(description, scene, sceneName, options.address, tracker.port(), options.wifi);
    printLine(options.rateHz > 0.0 ? "frame rate " + fixed(options.rateHz, 1) + " per second"
                                   : "unpaced: a new frame for every request");

    const std::string why = serveUntil(options.seconds, {});
    tracker.stop();
    printLine((why == "interrupted" ? std::string("interrupted") : why) + ", stopped after " +
              std::to_string(tracker.markerRequests()) + " marker requests and " +
              std::to_string(tracker.connectionsAccepted()) + " connections");
    return 0;
}

}  // namespace vyx::cli
