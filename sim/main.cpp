// vyx_virtual_tracker: serves a virtual tracker on a loopback address, for
// developing and trying hosts without tracker hardware.
#include "sim/MarkerScene.h"
#include "sim/SceneFile.h"
#include "sim/SceneTools.h"
#include "sim/VirtualTracker.h"

#include <arpa/inet.h>
#include <csignal>
#include <ctime>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using vyx::sim::DeviceDescription;

const char* const kUsage =
    "Usage: vyx_virtual_tracker [options]\n"
    "\n"
    "Plays a stereo optical tracker on its Ethernet protocol (TCP), or on its Wi-Fi\n"
    "module's protocol with --wifi, so that a host can connect, read the\n"
    "configuration and calibration, and receive marker frames of a scene (by\n"
    "default a turning four-marker tool) and, over Ethernet, patterned camera\n"
    "images.\n"
    "\n"
    "Options:\n"
    "  --address A     loopback IPv4 address to listen on (default 127.0.0.1;\n"
    "                  only 127.0.0.0/8 is accepted)\n"
    "  --port P        TCP port (default 7, with --wifi 8899; ports below 1024 need\n"
    "                  root; 0 picks one)\n"
    "  --wifi          serve the Wi-Fi module's framing: commands at their own\n"
    "                  length, the 1032-byte configuration frame, Wi-Fi marker\n"
    "                  frames (0x0E) and status frames (0x0F), no images\n"
    "  --model TEXT    model text to report (default ZR-D87001-VT-00042); the image\n"
    "                  sizes follow the model family\n"
    "  --no-long-form  do not answer the long configuration request\n"
    "  --scene FILE    play the markers of a scene file (format: sim/scenes/README.md)\n"
    "  --write-tools DIR\n"
    "                  write a tool file (NAME.vyxtool) for each body of the scene\n"
    "                  into DIR, creating it if needed, and exit without serving\n"
    "  --seconds N     stop after N seconds (default: run until SIGINT or SIGTERM)\n"
    "  --help          show this text\n";

std::mutex outputMutex;

void printLine(const std::string& line) {
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    localtime_r(&now, &local);
    std::lock_guard<std::mutex> lock(outputMutex);
    std::cout << std::put_time(&local, "%H:%M:%S") << "  " << line << std::endl;
}

struct Options {
    std::string address = "127.0.0.1";
    std::optional<long> port;
    std::optional<std::string> model;
    std::optional<long> seconds;
    std::optional<std::string> sceneFile;
    std::optional<std::string> toolDirectory;
    bool longForm = true;
    bool wifi = false;
};

bool parseNumber(const std::string& text, long low, long high, long& value) {
    try {
        std::size_t used = 0;
        value = std::stol(text, &used);
        return used == text.size() && value >= low && value <= high;
    } catch (const std::exception&) {
        return false;
    }
}

// Returns the exit code to end with, or nothing to go on.
std::optional<int> parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help" || option == "-h") {
            std::cout << kUsage;
            return 0;
        }
        if (option == "--no-long-form") {
            options.longForm = false;
            continue;
        }
        if (option == "--wifi") {
            options.wifi = true;
            continue;
        }
        if (option != "--address" && option != "--port" && option != "--model" &&
            option != "--seconds" && option != "--scene" && option != "--write-tools") {
            std::cerr << "vyx_virtual_tracker: unknown option " << option << "\n" << kUsage;
            return 2;
        }
        if (i + 1 >= argc) {
            std::cerr << "vyx_virtual_tracker: " << option << " needs a value\n" << kUsage;
            return 2;
        }
        const std::string value = argv[++i];
        bool ok = true;
        if (option == "--address") {
            options.address = value;
        } else if (option == "--port") {
            long port = 0;
            ok = parseNumber(value, 0, 65535, port);
            options.port = port;
        } else if (option == "--model") {
            options.model = value;
        } else if (option == "--scene") {
            options.sceneFile = value;
        } else if (option == "--write-tools") {
            options.toolDirectory = value;
            ok = !value.empty();
        } else {
            long seconds = 0;
            ok = parseNumber(value, 1, 365L * 24 * 3600, seconds);
            options.seconds = seconds;
        }
        if (!ok) {
            std::cerr << "vyx_virtual_tracker: bad value '" << value << "' for " << option << "\n";
            return 2;
        }
    }
    return std::nullopt;
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

}  // namespace

// Writes the scene's tool files into the directory; returns the exit code.
int writeTools(const vyx::sim::Scene& scene, const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        std::cerr << "vyx_virtual_tracker: cannot create " << directory << ": " << error.message()
                  << "\n";
        return 1;
    }
    if (!vyx::sim::writeToolFiles(scene, directory)) {
        std::cerr << "vyx_virtual_tracker: cannot write the tool files into " << directory
                  << " (body names must be distinct single words, bodies 1 to 30 points)\n";
        return 1;
    }
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

int main(int argc, char** argv) {
    Options options;
    if (const auto exitCode = parseOptions(argc, argv, options)) return *exitCode;

    if (!vyx::sim::isLoopbackAddress(options.address)) {
        std::cerr << "vyx_virtual_tracker: refusing to serve on '" << options.address
                  << "': only loopback addresses (127.0.0.0/8) are allowed\n";
        return 2;
    }

    DeviceDescription description = options.model ? vyx::sim::descriptionForModel(*options.model)
                                                  : vyx::sim::defaultDescription();
    in_addr own{};
    inet_pton(AF_INET, options.address.c_str(), &own);
    const std::uint32_t hostOrder = ntohl(own.s_addr);
    for (int i = 0; i < 4; ++i)
        description.deviceIP[static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>((hostOrder >> (24 - 8 * i)) & 0xFF);
    if (!options.longForm) description.longConfiguration.reset();

    vyx::sim::Scene scene = vyx::sim::builtInScene();
    std::string sceneName = "built-in (a four-marker tool 1.5 m ahead, turning)";
    if (options.sceneFile) {
        try {
            scene = vyx::sim::loadSceneFile(*options.sceneFile);
        } catch (const vyx::sim::SceneFileError& e) {
            std::cerr << "vyx_virtual_tracker: " << e.what() << "\n";
            return 2;
        }
        sceneName = *options.sceneFile;
    }
    if (options.toolDirectory) return writeTools(scene, *options.toolDirectory);
    vyx::sim::VirtualTracker::FrameSource frames;
    try {
        frames = vyx::sim::sceneFrameSource(description, scene);
    } catch (const std::invalid_argument& e) {
        std::cerr << "vyx_virtual_tracker: " << e.what() << "\n";
        return 2;
    }

    // The signals are taken synchronously below; block them before the server
    // thread starts so that it inherits the mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    vyx::sim::VirtualTracker tracker(description);
    tracker.setEventSink(printLine);
    tracker.setMarkerFrameSource(std::move(frames));
    if (options.wifi) tracker.setFraming(vyx::sim::LinkFraming::WiFi);
    const long port = options.port.value_or(options.wifi ? vyx::sim::kDefaultWifiPort
                                                         : vyx::sim::kDefaultPort);
    try {
        tracker.start(options.address, static_cast<std::uint16_t>(port));
    } catch (const std::exception& e) {
        std::cerr << "vyx_virtual_tracker: " << e.what() << "\n";
        if (port > 0 && port < 1024)
            std::cerr << "(ports below 1024 need root or CAP_NET_BIND_SERVICE)\n";
        return 1;
    }
    printSummary(description, scene, sceneName, options.address, tracker.port(), options.wifi);

    const auto deadline =
        options.seconds ? std::chrono::steady_clock::now() + std::chrono::seconds(*options.seconds)
                        : std::chrono::steady_clock::time_point::max();
    for (;;) {
        timespec pollInterval{0, 200 * 1000 * 1000};
        const int signal = sigtimedwait(&stopSignals, nullptr, &pollInterval);
        if (signal == SIGINT || signal == SIGTERM) {
            printLine(signal == SIGINT ? "interrupted, stopping" : "terminated, stopping");
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            printLine("time is up, stopping");
            break;
        }
    }
    tracker.stop();
    printLine("stopped after " + std::to_string(tracker.markerRequests()) +
              " marker requests and " + std::to_string(tracker.connectionsAccepted()) +
              " connections");
    return 0;
}
