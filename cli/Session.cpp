#include "cli/Session.h"

#include "cli/Commands.h"
#include "cli/Scenes.h"
#include "sim/DeviceDescription.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <thread>

namespace vyx::cli {
namespace {

std::atomic<bool> stopFlag{false};

void onStopSignal(int) { stopFlag.store(true); }

const char* linkName(E_Interface link) {
    switch (link) {
        case Interface_USB: return "USB";
        case Interface_Ethernet: return "Ethernet";
        default: return "Wi-Fi";
    }
}

// What a failed connect usually means, for the error line.
std::string connectAdvice(E_Interface link, int rc) {
    if (link == Interface_USB)
        return rc == RV_USB_NOT_FOUND
                   ? "plug the tracker in and give your user access to it (udev rule, see README)"
                   : "unplug and replug the tracker, then try again";
    return "check the address, the cable or network, and that the tracker is switched on";
}

}  // namespace

QuietStdout::QuietStdout() {
    std::fflush(stdout);
    saved_ = dup(STDOUT_FILENO);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (saved_ >= 0 && null >= 0) dup2(null, STDOUT_FILENO);
    if (null >= 0) close(null);
}

QuietStdout::~QuietStdout() {
    std::fflush(stdout);
    if (saved_ < 0) return;
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
}

std::string Address::text() const {
    std::string out = std::to_string(octets[0]) + "." + std::to_string(octets[1]) + "." +
                      std::to_string(octets[2]) + "." + std::to_string(octets[3]);
    if (port) out += ":" + std::to_string(*port);
    return out;
}

Address parseAddress(const std::string& text) {
    Address address;
    std::string host = text;
    const auto colon = text.find(':');
    if (colon != std::string::npos) {
        host = text.substr(0, colon);
        const std::string port = text.substr(colon + 1);
        char* end = nullptr;
        const long value = std::strtol(port.c_str(), &end, 10);
        if (port.empty() || *end != '\0' || value < 1 || value > 65535)
            throw CommandError("bad port in '" + text + "': give ADDR[:PORT], port 1 to 65535");
        address.port = static_cast<unsigned short>(value);
    }
    in_addr parsed{};
    if (inet_pton(AF_INET, host.c_str(), &parsed) != 1)
        throw CommandError("bad address '" + text + "': give a dotted IPv4 address, e.g. 192.168.31.10");
    const std::uint32_t value = ntohl(parsed.s_addr);
    for (int i = 0; i < 4; ++i) address.octets[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
    return address;
}

void check(int rc, const std::string& what) {
    if (rc != RV_SUCCESS) throw CommandError(what + " failed (result " + std::to_string(rc) + ")");
}

bool stopRequested() { return stopFlag.load(); }

void installStopSignals() {
    struct sigaction action {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

Session::Session(const ConnectionOptions& options, const std::string& defaultScene) {
    const int chosen = (options.ethernet ? 1 : 0) + (options.wifi ? 1 : 0) +
                       (options.usb ? 1 : 0) + (options.virtualTracker ? 1 : 0);
    if (chosen > 1)
        throw CommandError("give one of --ethernet, --wifi, --usb and --virtual, not several");
    check(Vyx_API_Initial(&handle_), "Vyx_API_Initial");

    std::string description;
    if (options.ethernet) {
        const Address address = parseAddress(*options.ethernet);
        link_ = Interface_Ethernet;
        check(Vyx_SetEthernetConnectIP(handle_, address.octets[0], address.octets[1],
                                       address.octets[2], address.octets[3]),
              "setting the Ethernet address");
        if (address.port) check(Vyx_SetEthernetConnectPort(handle_, *address.port), "setting the port");
        description = "Ethernet " + address.text();
    } else if (options.wifi) {
        const Address address = parseAddress(*options.wifi);
        link_ = Interface_WiFi;
        check(Vyx_SetWifiConnectAddress(handle_, address.octets[0], address.octets[1],
                                        address.octets[2], address.octets[3],
                                        address.port.value_or(8899)),
              "setting the Wi-Fi address");
        description = "Wi-Fi " + address.text();
    } else if (options.usb) {
        link_ = Interface_USB;
        description = "USB";
    } else {
        connectVirtual(options, options.virtualTracker ? options.scene : defaultScene,
                       !options.virtualTracker);
    }
    if (!tracker_) std::printf("Connecting to the tracker over %s\n", description.c_str());
    std::fflush(stdout);

    const int rc = Vyx_ConnectDevice(handle_, link_, &device_);
    if (rc != RV_SUCCESS) {
        Vyx_API_Close(&handle_);
        throw CommandError(std::string("cannot connect over ") + linkName(link_) + " (result " +
                           std::to_string(rc) + "): " + connectAdvice(link_, rc));
    }
    loadToolDirectory(handle_, options.toolDirectory);
}

void Session::connectVirtual(const ConnectionOptions& options, const std::string& sceneName,
                             bool byDefault) {
    if (!vyx::sim::isLoopbackAddress(options.virtualAddress))
        throw CommandError("the virtual tracker serves on loopback only: give a 127.x.x.x address");
    if (!(options.rateHz >= 0.0 && options.rateHz <= 1000.0))
        throw CommandError("--rate takes 0 (unpaced) to 1000 frames per second");
    scene_ = loadScene(sceneName);
    if (options.rateHz > 0.0) scene_->frameRateHz = options.rateHz;
    const auto description = vyx::sim::defaultDescription();
    tracker_ = std::make_unique<vyx::sim::VirtualTracker>(description);
    tracker_->setMarkerFrameSource(vyx::sim::sceneFrameSource(description, *scene_));
    tracker_->setFrameRate(options.rateHz);
    try {
        tracker_->start(options.virtualAddress, 0);
    } catch (const std::exception& e) {
        throw CommandError("cannot start the virtual tracker on " + options.virtualAddress +
                           ": " + e.what());
    }
    const Address address = parseAddress(options.virtualAddress);
    check(Vyx_SetEthernetConnectIP(handle_, address.octets[0], address.octets[1],
                                   address.octets[2], address.octets[3]),
          "setting the Ethernet address");
    check(Vyx_SetEthernetConnectPort(handle_, tracker_->port()), "setting the port");
    link_ = Interface_Ethernet;

    const std::string written = writeMissingToolFiles(*scene_, options.toolDirectory);
    const std::string rate =
        options.rateHz > 0.0 ? std::to_string(static_cast<int>(options.rateHz)) + " frames/s"
                             : "unpaced";
    std::printf("%s virtual tracker (scene %s, %s) on %s:%u%s\n",
                byDefault ? "No device given: using the built-in" : "Using the",
                sceneName.empty() ? "workbench" : sceneName.c_str(), rate.c_str(),
                options.virtualAddress.c_str(), static_cast<unsigned>(tracker_->port()),
                byDefault ? " (--ethernet, --wifi or --usb for a tracker)" : "");
    if (!written.empty())
        std::printf("Wrote the scene's tool files into %s: %s\n", options.toolDirectory.c_str(),
                    written.c_str());
}

void loadToolDirectory(VyxHandle handle, const std::string& directory) {
    std::string path = directory;
    if (!path.empty() && path.back() != '/') path += '/';
    // The scan's progress lines are the library's own diagnostics; they
    // would only clutter the command's output.
    QuietStdout quiet;
    Vyx_SetToolInfoFilePath(handle, path.c_str(), true);
}

std::vector<std::string> toolNames(VyxHandle handle) {
    int count = 0;
    Vyx_GetCountOfToolInfo(handle, &count);
    std::vector<t_ToolBaseInfo> tools(static_cast<std::size_t>(std::max(count, 0)));
    std::vector<std::string> names;
    if (count > 0 && Vyx_GetAllToolFilesBaseInfo(handle, tools.data()) == RV_SUCCESS)
        for (const auto& tool : tools) names.emplace_back(tool.ToolName);
    return names;
}

Session::~Session() {
    if (handle_ != nullptr) {
        Vyx_SetAcquireData(handle_, link_, DataType_None);
        Vyx_API_Close(&handle_);
    }
    if (tracker_) tracker_->stop();
}

void Session::startAcquisition() {
    check(Vyx_SetAcquireData(handle_, link_, DataType_MarkerAndStatus), "starting acquisition");
}

bool Session::nextFrame(T_MarkerInfo& markers, double timeoutSeconds) {
    const auto deadline = std::chrono::steady_clock::now() +
                          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                              std::chrono::duration<double>(timeoutSeconds));
    while (!stopRequested() && std::chrono::steady_clock::now() < deadline) {
        const int rc = Vyx_GetMarkerInfo(handle_, link_, &markers);
        if (rc == RV_SUCCESS) return true;
        if (rc != RV_NO_NEW_FRAME) Vyx_SetAcquireData(handle_, link_, DataType_MarkerAndStatus);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

std::string serveUntil(std::optional<double> seconds, const std::function<bool()>& done) {
    const auto start = std::chrono::steady_clock::now();
    for (;;) {
        if (stopRequested()) return "interrupted";
        if (seconds && std::chrono::duration<double>(std::chrono::steady_clock::now() - start)
                               .count() >= *seconds)
            return "time is up";
        if (done && done()) return "done";
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

}  // namespace vyx::cli
