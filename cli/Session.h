// A connection to a tracker through the public interface, as every vyx
// subcommand opens it: a real device over Ethernet, Wi-Fi or USB, or the
// virtual tracker started in this process on a loopback address.
#pragma once

#include "VyxPositionAPI.h"
#include "sim/Scene.h"
#include "sim/VirtualTracker.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vyx::cli {

// A failure that ends the command: printed as one line on stderr, exit 1.
class CommandError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The connection options shared by every subcommand.
struct ConnectionOptions {
    std::optional<std::string> ethernet;  // ADDR[:PORT]
    std::optional<std::string> wifi;      // ADDR[:PORT]
    bool usb = false;
    // --virtual given, with or without a scene (a built-in name or a file).
    bool virtualTracker = false;
    std::string scene;
    std::string virtualAddress = "127.0.0.1";
    double rateHz = 60.0;  // frame rate of the virtual tracker; 0 unpaced
    std::string toolDirectory = "vyx-tools";
};

// An open handle, connected, with the tool directory loaded.
class Session {
public:
    // Connects as the options say; with no device option, to the virtual
    // tracker playing `defaultScene` (a built-in scene name). Prints the
    // connection line first. Throws CommandError.
    Session(const ConnectionOptions& options, const std::string& defaultScene);
    ~Session();  // stops acquisition, closes the handle and the virtual tracker
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    VyxHandle handle() const { return handle_; }
    E_Interface link() const { return link_; }
    const T_VYXPOS_DATAPARA& device() const { return device_; }
    // The scene the virtual tracker plays, for comparing results with the
    // truth; null on a device.
    const vyx::sim::Scene* scene() const { return scene_ ? &*scene_ : nullptr; }

    // Starts marker and status acquisition.
    void startAcquisition();
    // Waits for the next new frame, up to `timeoutSeconds`. Restarts the
    // acquisition after a failed read. False on time-out or interrupt.
    bool nextFrame(T_MarkerInfo& markers, double timeoutSeconds = 2.0);

private:
    void connectVirtual(const ConnectionOptions& options, const std::string& sceneName,
                        bool byDefault);

    VyxHandle handle_ = nullptr;
    E_Interface link_ = Interface_Ethernet;
    T_VYXPOS_DATAPARA device_{};
    std::optional<vyx::sim::Scene> scene_;
    std::unique_ptr<vyx::sim::VirtualTracker> tracker_;
};

// Sends what the process writes to stdout to /dev/null while it lives.
class QuietStdout {
public:
    QuietStdout();
    ~QuietStdout();
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

private:
    int saved_ = -1;
};

// Loads the tool directory into the handle's library, without the scan's
// progress lines. A missing directory is an empty library.
void loadToolDirectory(VyxHandle handle, const std::string& directory);
// The names of the library's tools, in its order.
std::vector<std::string> toolNames(VyxHandle handle);

// Throws CommandError naming the call when rc is not 0.
void check(int rc, const std::string& what);

// Set by SIGINT or SIGTERM once installStopSignals() ran.
bool stopRequested();
void installStopSignals();

// Parses "a.b.c.d" or "a.b.c.d:port". Throws CommandError.
struct Address {
    unsigned char octets[4] = {0, 0, 0, 0};
    std::optional<unsigned short> port;
    std::string text() const;
};
Address parseAddress(const std::string& text);

}  // namespace vyx::cli
