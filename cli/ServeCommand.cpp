// vyx serve: tracks the chosen tools and streams them to OpenIGTLink clients.
// Every frame sent is a TRANSFORM per tool in view, one TDATA holding all of
// them and a STATUS per tool out of view, all stamped with the time the
// frame reached the host. The messages are packed once per frame and the
// bytes shared by every client (IgtlServer.h).
#include "cli/Commands.h"
#include "cli/IgtlServer.h"
#include "cli/Terminal.h"

#include <igtlStatusMessage.h>
#include <igtlTimeStamp.h>
#include <igtlTrackingDataMessage.h>
#include <igtlTransformMessage.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <map>

namespace vyx::cli {
namespace {

using Clock = std::chrono::steady_clock;

// Device names (and TDATA element names) are fixed fields of this many bytes.
constexpr std::size_t kMaxNameLength = 20;
// The device name of the TDATA message.
constexpr const char* kTdataName = "Tracker";

void checkNameLength(const std::string& name, bool reference) {
    if (name.size() > kMaxNameLength)
        throw CommandError(std::string(reference ? "the reference's" : "tool") + " name '" + name +
                           "' has " + std::to_string(name.size()) +
                           " characters; OpenIGTLink device names hold at most 20: rename the tool" +
                           (reference ? "" : ", or leave it out with --tools"));
}

struct SeenTool {
    std::string name;
    igtl::Matrix4x4 pose;
};

void append(std::vector<std::uint8_t>& bytes, igtl::MessageBase& message,
            const std::string& device, igtl::TimeStamp::Pointer& stamp) {
    message.SetDeviceName(device.c_str());
    message.SetTimeStamp(stamp);
    message.Pack();
    const auto* data = static_cast<const std::uint8_t*>(message.GetPackPointer());
    bytes.insert(bytes.end(), data, data + message.GetPackSize());
}

// One frame's messages, packed one after the other.
IgtlServer::Frame packFrame(std::vector<SeenTool>& seen, const std::vector<std::string>& unseen,
                            const std::string& why, igtl::TimeStamp::Pointer& stamp) {
    auto bytes = std::make_shared<std::vector<std::uint8_t>>();
    igtl::TrackingDataMessage::Pointer tdata = igtl::TrackingDataMessage::New();
    for (SeenTool& tool : seen) {
        igtl::TransformMessage::Pointer transform = igtl::TransformMessage::New();
        transform->SetMatrix(tool.pose);
        append(*bytes, *transform, tool.name, stamp);
        igtl::TrackingDataElement::Pointer element = igtl::TrackingDataElement::New();
        element->SetName(tool.name.c_str());
        element->SetType(igtl::TrackingDataElement::TYPE_6D);
        element->SetMatrix(tool.pose);
        tdata->AddTrackingDataElement(element);
    }
    if (!seen.empty()) append(*bytes, *tdata, kTdataName, stamp);
    for (const std::string& name : unseen) {
        igtl::StatusMessage::Pointer status = igtl::StatusMessage::New();
        status->SetCode(igtl::StatusMessage::STATUS_NOT_FOUND);
        status->SetErrorName("NOT_IN_VIEW");
        status->SetStatusString(why.c_str());
        append(*bytes, *status, name, stamp);
    }
    return bytes;
}

// The tool's pose, or its tip with the tool's rotation, as a 4 x 4 matrix.
void poseMatrix(const T_VyxToolDataResult& r, bool tip, igtl::Matrix4x4& m) {
    const float* t = tip ? r.TipCoordinate : r.Translation;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) m[i][j] = r.RotationMatrix[i][j];
        m[i][3] = t[i];
        m[3][i] = 0.0f;
    }
    m[3][3] = 1.0f;
}

}  // namespace

int runServe(const ConnectionOptions& connection, const ServeOptions& options) {
    Session session(connection, "workbench");
    const VyxHandle h = session.handle();
    const std::vector<std::string> library = toolNames(h);
    const std::string& reference = options.reference;
    std::vector<std::string> names = options.tools;
    if (names.empty())
        std::copy_if(library.begin(), library.end(), std::back_inserter(names),
                     [&](const std::string& name) { return name != reference; });
    if (!reference.empty()) checkNameLength(reference, true);
    for (const std::string& name : names) checkNameLength(name, false);
    for (const std::string& name : names)
        if (std::find(library.begin(), library.end(), name) == library.end())
            throw CommandError("no tool '" + name + "' in " + connection.toolDirectory +
                               " ('vyx tools list' shows the library)");
    if (names.empty())
        throw CommandError("no tool to serve: " + connection.toolDirectory + " holds none");
    if (!reference.empty() && Vyx_SetReferenceTool(h, reference.c_str()) != RV_SUCCESS)
        throw CommandError("no tool '" + reference + "' to use as the reference");
    // The reference is recognised too, to tell whether the frame is in its
    // coordinates; it goes first so that it wins a marker it shares.
    std::vector<std::string> search = names;
    if (!reference.empty() && std::find(names.begin(), names.end(), reference) == names.end())
        search.insert(search.begin(), reference);

    IgtlServer server(options.address, options.port);
    std::string toolList;
    for (const std::string& name : names) toolList += (toolList.empty() ? "" : ", ") + name;
    std::printf("Serving OpenIGTLink on %s:%u%s: %s, %s in %s coordinates, %s\n",
                options.address.c_str(), static_cast<unsigned>(options.port),
                vyx::sim::isLoopbackAddress(options.address) ? "" : " (open to the network)",
                toolList.c_str(), options.tipPose ? "tips" : "tool poses",
                reference.empty() ? "tracker" : (reference + "'s").c_str(),
                options.maxRateHz > 0.0 ? format("at most %g frames/s", options.maxRateHz).c_str()
                                        : "every frame");
    std::printf("Ctrl+C stops\n");
    std::fflush(stdout);
    session.startAcquisition();

    const auto start = Clock::now();
    const Clock::duration period =
        options.maxRateHz > 0.0 ? std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(1.0 / options.maxRateHz))
                                : Clock::duration::zero();
    auto nextSend = start;
    auto lastFrame = start;
    std::uint64_t sent = 0;
    bool stalled = false;
    T_MarkerInfo markers{};
    const auto elapsed = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };
    while (!stopRequested() && (!options.seconds || elapsed() < *options.seconds)) {
        if (!session.nextFrame(markers, 0.2)) {
            stalled = !stopRequested() && Clock::now() - lastFrame > std::chrono::seconds(3);
            if (stalled) break;
            continue;
        }
        igtl::TimeStamp::Pointer stamp = igtl::TimeStamp::New();
        stamp->GetTime();  // the host's clock, as the frame arrives
        lastFrame = Clock::now();
        if (lastFrame < nextSend) continue;  // over the rate cap
        // Re-anchored when far behind, so that a pause brings no burst.
        nextSend = (lastFrame - nextSend > period ? lastFrame : nextSend) + period;

        std::map<std::string, const T_VyxToolDataResult*> found;
        T_VyxToolDataResult first{};
        if (Vyx_FindSpecificToolInfo(h, &markers, search, &first, 0) == RV_SUCCESS)
            for (const T_VyxToolDataResult* r = &first; r != nullptr; r = r->next)
                if (r->ValidFlag) found.emplace(r->ToolName, r);
        const bool inFrame = reference.empty() || found.count(reference) > 0;
        std::vector<SeenTool> seen;
        std::vector<std::string> unseen;
        for (const std::string& name : names) {
            const auto match = found.find(name);
            if (!inFrame || match == found.end()) {
                unseen.push_back(name);
                continue;
            }
            seen.push_back({name, {}});
            poseMatrix(*match->second, options.tipPose, seen.back().pose);
        }
        server.broadcast(packFrame(seen, unseen,
                                   inFrame ? "tool not in view"
                                           : "reference " + reference + " not in view",
                                   stamp));
        ++sent;
    }

    const double seconds = elapsed();
    std::printf("Served %llu frames in %.1f s (%.1f per second), %zu clients connected at the end\n",
                static_cast<unsigned long long>(sent), seconds,
                seconds > 0 ? static_cast<double>(sent) / seconds : 0.0, server.clientCount());
    if (stalled) throw CommandError("no frame for 3 s: the tracker stopped sending; check the link");
    return 0;
}

}  // namespace vyx::cli
