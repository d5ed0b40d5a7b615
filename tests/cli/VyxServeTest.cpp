// vyx serve run as a process on loopback, read by OpenIGTLink clients built
// on the same library: each message's body CRC checked on receipt, the poses
// compared with the scene's ground truth, two clients with one leaving
// mid-stream, what it refuses, and the end on SIGTERM.
#include "sim/SceneFile.h"
#include "support/Process.h"
#include "support/SceneSession.h"
#include "tools/ToolTestFiles.h"

#include <igtlClientSocket.h>
#include <igtlMessageFactory.h>
#include <igtlStatusMessage.h>
#include <igtlTrackingDataMessage.h>
#include <igtlTransformMessage.h>

#include <fstream>
#include <set>

namespace sim = vyx::sim;
using namespace std::chrono_literals;

// Still tools: alpha at rest, beta turned about its centroid (90, 13.33, 1306.67),
// and one seen by the left camera only, whose name is as long as allowed.
constexpr const char* kScene =
    "framerate 60\n"
    "body alpha\npoint -60 -40 1400\npoint 10 -40 1400\npoint -60 50 1410\n"
    "body beta\npoint 60 -20 1300\npoint 140 -20 1300\npoint 70 80 1320\n"
    "motion steps 1\nstep 0.25 -0.35 0.15  426.519 340.586 83.835\n"
    "body hidden_tool_20_chars\npoint -200 100 1500 left\npoint -150 100 1500 left\n"
    "point -200 170 1500 left\n";
constexpr const char* kServeHost = "127.0.0.245";

// Messages as a client read them.
struct Frame {
    std::set<std::string> devices;                 // "TYPE:device name", a STATUS's with ":code"
    std::map<std::string, igtl::Matrix4x4> poses;  // "TRANSFORM:tool", and "TDATA:tool" per element
    std::set<std::uint64_t> times;                 // 32.32 fixed point
};

struct Client {
    explicit Client(int port) { EXPECT_EQ(socket_->ConnectToServer(kServeHost, port), 0); }
    // The next `count` messages, each body's CRC checked.
    Frame frame(std::size_t count) {
        socket_->SetReceiveTimeout(5000);  // every read bounded
        Frame f;
        for (std::size_t i = 0; i < count; ++i) {
            igtl::MessageHeader::Pointer header = igtl::MessageHeader::New();
            header->InitPack();
            if (socket_->Receive(header->GetPackPointer(), header->GetPackSize()) != header->GetPackSize()) break;
            header->Unpack();
            igtl::MessageBase::Pointer body = igtl::MessageFactory::New()->GetMessage(header);
            socket_->Receive(body->GetPackBodyPointer(), body->GetPackBodySize());
            EXPECT_TRUE(body->Unpack(1) & igtl::MessageHeader::UNPACK_BODY) << "body CRC";
            unsigned int seconds = 0, fraction = 0;
            header->GetTimeStamp(&seconds, &fraction);
            f.times.insert(std::uint64_t{seconds} << 32 | fraction);
            std::string device = std::string(header->GetDeviceType()) + ":" + header->GetDeviceName();
            if (auto* s = dynamic_cast<igtl::StatusMessage*>(body.GetPointer())) device += ":" + std::to_string(s->GetCode());
            if (auto* t = dynamic_cast<igtl::TransformMessage*>(body.GetPointer())) t->GetMatrix(f.poses[device]);
            auto* tdata = dynamic_cast<igtl::TrackingDataMessage*>(body.GetPointer());
            for (int k = 0; tdata != nullptr && k < tdata->GetNumberOfTrackingDataElements(); ++k) {
                igtl::TrackingDataElement::Pointer element;
                tdata->GetTrackingDataElement(k, element);
                element->GetMatrix(f.poses[std::string("TDATA:") + element->GetName()]);
            }
            f.devices.insert(device);
        }
        return f;
    }
    igtl::ClientSocket::Pointer socket_ = igtl::ClientSocket::New();
};

class VyxServe : public ::testing::Test {
protected:
    VyxServe() { writeFile(scratch_.file("still.scene"), kScene); }
    // vyx serve on the scene, once it listens (or has ended).
    std::unique_ptr<vyx::test::Process> serve(std::vector<std::string> args, int port) const {
        args.insert(args.begin(), {VYX_COMMAND, "serve", "--virtual", scratch_.file("still.scene"),
                                   "--virtual-address", "127.0.0.244", "--tool-dir", scratch_.file("tools"),
                                   "--address", kServeHost, "--port", std::to_string(port)});
        auto process = std::make_unique<vyx::test::Process>(args);
        process->waitForOutput("Ctrl+C stops", 20s);
        return process;
    }
    ScratchDirectory scratch_;
};

TEST_F(VyxServe, StreamsTheToolsOfTheSceneAtTheirTruePoses) {
    const sim::Scene scene = sim::parseScene(std::string(kScene));
    const sim::ToolPose alpha = sim::bodyPoseAt(scene, 0, 0), beta = sim::bodyPoseAt(scene, 1, 0);
    // Tip: the tip with the tool's rotation, and at most 30 frames a second.
    struct Case { std::vector<std::string> args; std::map<std::string, sim::ToolPose> seen; bool tip = false; };
    const std::vector<Case> cases = {
        {{}, {{"alpha", alpha}, {"beta", beta}}},
        {{"--pose", "tip", "--rate", "30"}, {{"alpha", alpha}, {"beta", beta}}, true},
        {{"--reference", "alpha"}, {{"beta", vyx::test::relativePose(alpha, beta)}}},
    };
    int port = 28944;
    for (const Case& c : cases) {
        const auto server = serve(c.args, port);
        Client client(port++);
        const Frame frame = client.frame(c.seen.size() + 2);
        std::set<std::string> devices = {"TDATA:Tracker", "STATUS:hidden_tool_20_chars:4"};  // not found
        for (const auto& seen : c.seen) devices.insert("TRANSFORM:" + seen.first);
        EXPECT_EQ(frame.devices, devices);
        EXPECT_EQ(frame.times.size(), 1u);
        ASSERT_EQ(frame.poses.size(), 2 * c.seen.size());
        for (const auto& [key, pose] : frame.poses) {
            const sim::ToolPose& truth = c.seen.at(key.substr(key.find(':') + 1));
            // Every tool of the scene has the default tip.
            const sim::Point3 at = sim::toMeasurement(truth, c.tip ? scene.bodies[0].tip : sim::Point3{});
            EXPECT_LT(vyx::test::distance({pose[0][3], pose[1][3], pose[2][3]}, at), 0.5) << key;
            // Entries within 0.005: turned by well under half a degree.
            for (int i = 0; i < 9; ++i) EXPECT_NEAR(pose[i / 3][i % 3], truth.R[i], 0.005) << key;
        }
        if (!c.tip) continue;
        // Capped at 30 a second: nine frames on is at least eight intervals
        // of 1/30 s later (one interval may be short after a late frame);
        // uncapped, the tracker's 60 a second would give 0.15 s.
        std::uint64_t last = 0;
        for (int i = 0; i < 9; ++i) last = *client.frame(c.seen.size() + 2).times.begin();
        EXPECT_GE(static_cast<double>(last - *frame.times.begin()) / 4294967296.0, 7.5 / 30);
    }
}

TEST_F(VyxServe, ServesClientsThatComeAndGoRefusesWhatItCannotAndEndsOnSigterm) {
    const auto server = serve({}, 28947);
    Client staying(28947), leaving(28947);
    leaving.socket_->CloseSocket();  // while frames keep coming
    ASSERT_TRUE(server->waitForOutput("left (1 connected)", 10s));
    for (int i = 0; i < 30; ++i) ASSERT_EQ(staying.frame(4).devices.size(), 4u) << i;

    for (const auto& [args, message] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--tools", "alpha,a_tool_name_of_21_chr"}, "hold at most 20"},
             {{"--reference", "a_reference_of_22_chrs"}, "hold at most 20"},
             {{}, "cannot listen on 127.0.0.245:28947: Address already in use"}}) {
        const vyx::test::ProcessResult r = serve(args, 28947)->finish(30s);
        EXPECT_TRUE(r.exitCode == 1 && r.err.find(message) != std::string::npos) << r.exitCode << r.err;
    }

    const auto stop = std::chrono::steady_clock::now();
    server->signal(SIGTERM);
    const vyx::test::ProcessResult r = server->finish(10s);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - stop).count(), 1.0);
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
}
