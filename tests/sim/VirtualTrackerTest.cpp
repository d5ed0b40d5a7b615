// The virtual tracker, driven over loopback TCP by a bare host written here,
// so that what it sends is checked against the wire format itself and not
// against the library's reading of it. Each test has its own address.
#include "sim/ConfigurationImage.h"
#include "sim/MarkerScene.h"
#include "sim/VirtualTracker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

using namespace std::chrono_literals;
using namespace vyx::sim;
using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;

// A bare host: one TCP connection, every wait bounded.
class RawHost {
public:
    explicit RawHost(const std::string& address) {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(kDefaultPort);
        ::inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
        if (fd_ < 0 || ::connect(fd_, reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0)
            throw std::system_error(errno, std::generic_category(), "connect " + address);
    }
    ~RawHost() { ::close(fd_); }
    RawHost(const RawHost&) = delete;
    RawHost& operator=(const RawHost&) = delete;

    void send(const Bytes& bytes) {
        ASSERT_EQ(::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    // Up to `count` bytes, as many as arrive before the timeout.
    Bytes read(std::size_t count, std::chrono::milliseconds timeout = 3000ms) {
        Bytes out;
        const auto deadline = Clock::now() + timeout;
        std::array<std::uint8_t, 65536> buffer{};
        while (out.size() < count) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd readable{fd_, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&readable, 1, static_cast<int>(left.count())) <= 0)
                break;
            const ssize_t n =
                ::recv(fd_, buffer.data(), std::min(buffer.size(), count - out.size()), 0);
            if (n <= 0) {
                peerClosed_ = n == 0;
                break;
            }
            out.insert(out.end(), buffer.begin(), buffer.begin() + n);
        }
        return out;
    }

    // Everything that arrives within `window` (nothing expected: empty).
    Bytes readFor(std::chrono::milliseconds window) { return read(1u << 24, window); }

    Bytes request(const Bytes& command, std::size_t replyBytes) {
        send(command);
        return read(replyBytes);
    }

    // True when the tracker closes the connection within the timeout.
    bool closedByPeer(std::chrono::milliseconds timeout = 2000ms) {
        readFor(timeout);
        return peerClosed_;
    }

private:
    int fd_ = -1;
    bool peerClosed_ = false;
};

// CRC-16/MODBUS, bit by bit.
std::uint16_t crcModbus(const std::uint8_t* data, std::size_t size) {
    std::uint16_t crc = 0xFFFF;
    for (std::size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 1) ? static_cast<std::uint16_t>((crc >> 1) ^ 0xA001) : crc >> 1;
    }
    return crc;
}

bool blockChecksumOk(const Bytes& data, std::size_t block) {
    const std::uint8_t* b = data.data() + block;
    return crcModbus(b, 470) == static_cast<std::uint16_t>(b[509] | (b[510] << 8));
}

std::uint16_t u16(const Bytes& d, std::size_t at) {
    return static_cast<std::uint16_t>(d[at] | (d[at + 1] << 8));
}
std::uint32_t u32(const Bytes& d, std::size_t at) {
    return static_cast<std::uint32_t>(d[at] | (d[at + 1] << 8) | (d[at + 2] << 16)) |
           (static_cast<std::uint32_t>(d[at + 3]) << 24);
}
double f64(const Bytes& d, std::size_t at) {
    double v = 0;
    std::memcpy(&v, d.data() + at, 8);
    return v;
}
float f32(const Bytes& d, std::size_t at) {
    float v = 0;
    std::memcpy(&v, d.data() + at, 4);
    return v;
}
template <std::size_t N>
std::array<double, N> doublesAt(const Bytes& d, std::size_t at) {
    std::array<double, N> out{};
    for (std::size_t i = 0; i < N; ++i) out[i] = f64(d, at + 8 * i);
    return out;
}
Bytes packet10(std::initializer_list<std::uint8_t> head) {
    Bytes p(head);
    p.resize(10, 0);
    return p;
}

// A calibration with every number distinct, so a misplaced matrix shows.
StereoCalibration numberedCalibration(double base) {
    StereoCalibration c;
    CameraCalibration* cams[] = {&c.left, &c.right};
    double v = base;
    for (CameraCalibration* cam : cams) {
        for (double& x : cam->cameraMatrix) x = v += 1;
        for (double& x : cam->distCoeffs) x = v += 1;
        for (double& x : cam->rotation) x = v += 1;
        for (double& x : cam->translation) x = v += 1;
    }
    return c;
}

void expectCalibrationAt(const Bytes& d, std::size_t base, const StereoCalibration& c) {
    EXPECT_EQ((doublesAt<9>(d, base + 0)), c.left.cameraMatrix);
    EXPECT_EQ((doublesAt<9>(d, base + 72)), c.right.cameraMatrix);
    EXPECT_EQ((doublesAt<5>(d, base + 144)), c.left.distCoeffs);
    EXPECT_EQ((doublesAt<5>(d, base + 184)), c.right.distCoeffs);
    EXPECT_EQ((doublesAt<9>(d, base + 224)), c.left.rotation);
    EXPECT_EQ((doublesAt<9>(d, base + 296)), c.right.rotation);
    EXPECT_EQ((doublesAt<3>(d, base + 368)), c.left.translation);
    EXPECT_EQ((doublesAt<3>(d, base + 392)), c.right.translation);
}

Bytes slice(const Bytes& d, std::size_t from, std::size_t size) {
    return Bytes(d.begin() + static_cast<std::ptrdiff_t>(from),
                 d.begin() + static_cast<std::ptrdiff_t>(from + size));
}

// A tracker of its own on the test's loopback address, port 7.
class TrackerTest : public ::testing::Test {
protected:
    void serve(const std::string& address, const DeviceDescription& d = defaultDescription()) {
        address_ = address;
        tracker_ = std::make_unique<VirtualTracker>(d);
        tracker_->start(address, kDefaultPort);
    }
    std::unique_ptr<RawHost> connect() { return std::make_unique<RawHost>(address_); }

    std::string address_;
    std::unique_ptr<VirtualTracker> tracker_;
};

using ConfigurationReply = TrackerTest;
using MarkerFrames = TrackerTest;
using ImageBlocks = TrackerTest;
using CommandLog = TrackerTest;
using Faults = TrackerTest;
using Connections = TrackerTest;

// ---- Configuration ------------------------------------------------------------

TEST_F(ConfigurationReply, BlocksCarryTheDescriptionAtTheirOffsetsWithValidChecksums) {
    DeviceDescription d = defaultDescription();
    d.modelText = "QX-PRO-TEST-1234";
    d.manufactured = {2031, 11, 29};
    d.geometry = {1111, 722, 1333, 744, 155, 166, 177, 188, 512};
    d.deviceIP = {127, 9, 8, 7};
    d.calibration1 = numberedCalibration(0);
    d.calibration2 = numberedCalibration(1000);
    d.calibrationTemperature1 = 18.5;
    d.calibrationTemperature2 = 41.25;
    d.zFactor1 = 0.995;
    d.zFactor2 = 1.004;
    serve("127.0.0.200", d);
    auto host = connect();

    host->send({0xF5});
    const Bytes config = host->request({0x0A}, 1024);
    ASSERT_EQ(config.size(), 1024u);
    EXPECT_TRUE(host->readFor(100ms).empty()) << "nothing beyond the two blocks";
    EXPECT_TRUE(blockChecksumOk(config, 0));
    EXPECT_TRUE(blockChecksumOk(config, 512));

    expectCalibrationAt(config, 0, d.calibration1);
    expectCalibrationAt(config, 512, *d.calibration2);
    EXPECT_EQ(u16(config, 416), 2031);
    EXPECT_EQ(config[418], 11);
    EXPECT_EQ(config[419], 29);
    EXPECT_EQ(config[420], 16);
    EXPECT_EQ(std::string(config.begin() + 421, config.begin() + 437), d.modelText);
    EXPECT_EQ(config[437], 0);
    const std::uint16_t words[] = {1111, 722, 1333, 744};
    for (std::size_t i = 0; i < 4; ++i) EXPECT_EQ(u16(config, 441 + 2 * i), words[i]);
    const std::uint16_t counts[] = {155, 166, 177, 188, 512};
    for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(u16(config, 450 + 2 * i), counts[i]);
    EXPECT_EQ(slice(config, 481, 4), (Bytes{127, 9, 8, 7}));
    EXPECT_EQ(f64(config, 928), 18.5);
    EXPECT_EQ(f64(config, 936), 41.25);
    EXPECT_EQ(f64(config, 944), 0.995);
    EXPECT_EQ(f64(config, 952), 1.004);

    // Without a second set, block 2 repeats the first.
    d.calibration2.reset();
    tracker_->setDescription(d);
    const Bytes single = host->request({0x0A}, 1024);
    ASSERT_EQ(single.size(), 1024u);
    expectCalibrationAt(single, 512, d.calibration1);
    EXPECT_TRUE(blockChecksumOk(single, 512));
}

TEST_F(ConfigurationReply, LongFormRepeatsTheBlocksAndCarriesTheTable) {
    DeviceDescription d = defaultDescription();
    LongConfiguration table;
    for (int i = 0; i < 17; ++i)
        table.entries.push_back({10.0 + i, numberedCalibration(100.0 * i), 1.0 + i / 1000.0});
    d.longConfiguration = table;
    serve("127.0.0.201", d);
    auto host = connect();

    const Bytes shortForm = host->request({0x0A}, 1024);
    const Bytes longForm = host->request({0x1A}, 7680);
    ASSERT_EQ(longForm.size(), 7680u);
    EXPECT_TRUE(host->readFor(100ms).empty());
    EXPECT_EQ(slice(longForm, 0, 1024), shortForm);
    // Only 15 rows fit; the count says how many were written.
    EXPECT_EQ(u32(longForm, 1024), 15u);
    for (std::size_t i = 0; i < 15; ++i) {
        const std::size_t at = 1028 + 432 * i;
        EXPECT_EQ(f64(longForm, at), 10.0 + i);
        expectCalibrationAt(longForm, at + 8, table.entries[i].cameras);
        EXPECT_EQ(f64(longForm, at + 424), 1.0 + i / 1000.0);
    }
    const Bytes tail = slice(longForm, 1028 + 15 * 432, 7680 - (1028 + 15 * 432));
    EXPECT_EQ(tail, Bytes(tail.size(), 0));

    // A raw count is written as given, the rows regardless.
    for (std::int32_t raw : {0, -3, 16}) {
        d.longConfiguration->entryCountOverride = raw;
        tracker_->setDescription(d);
        const Bytes overridden = host->request({0x1A}, 7680);
        ASSERT_EQ(overridden.size(), 7680u);
        EXPECT_EQ(static_cast<std::int32_t>(u32(overridden, 1024)), raw);
        EXPECT_EQ(f64(overridden, 1028), 10.0);
    }
}

TEST_F(ConfigurationReply, ModelTextReplyAndLengthByte) {
    DeviceDescription d = defaultDescription();
    d.modelText = "ZR-C857-ABCDEFGHIJKLMNOP";  // 24 bytes, cut at 20
    serve("127.0.0.202", d);
    auto host = connect();

    const Bytes config = host->request({0x0A}, 1024);
    ASSERT_EQ(config.size(), 1024u);
    EXPECT_EQ(config[420], 20);
    EXPECT_EQ(std::string(config.begin() + 421, config.begin() + 441), d.modelText.substr(0, 20));
    EXPECT_EQ(u16(config, 441), 1280) << "the text does not run into the geometry words";
    Bytes reply = host->request({0xF8}, 20);
    EXPECT_EQ(std::string(reply.begin(), reply.end()), d.modelText.substr(0, 20));

    d.modelText = "QX-MIN";
    d.modelLengthOverride = 25;
    d.modelTextReply = "ZR-D640-X";
    tracker_->setDescription(d);
    const Bytes clamped = host->request({0x0A}, 1024);
    ASSERT_EQ(clamped.size(), 1024u);
    EXPECT_EQ(clamped[420], 25);
    EXPECT_TRUE(blockChecksumOk(clamped, 0));
    reply = host->request({0xF8}, 20);
    Bytes expected(20, 0);
    std::memcpy(expected.data(), "ZR-D640-X", 9);
    EXPECT_EQ(reply, expected);
}

// ---- Marker frames ------------------------------------------------------------

TEST_F(MarkerFrames, FixedFrameIsLaidOutAtTheDocumentedOffsets) {
    serve("127.0.0.203");
    MarkerFrame f;
    f.frameId = 0x42;
    f.extendedId = 0xA1B2C3D4;
    f.leftValue = 6;
    f.rightValue = 2;
    for (int i = 0; i < 210; ++i) f.left.push_back({10.5f + i, 20.25f + i});
    f.right = {{100.0f, 200.0f}, {300.5f, 400.5f}};
    f.status.temperature0Hundredths = -1234;
    f.status.temperature1Hundredths = 2950;
    f.status.sensorValue0Hundredths = 4321;
    f.status.sensorValue1Hundredths = 65000;
    f.status.secondLayoutSensorValue2 = 0x1122;
    f.status.secondLayoutSensorValue3 = 0x3344;
    f.status.firstLayoutSensorValue2 = -5;
    f.status.firstLayoutSensorValue3 = 7;
    f.status.linkState = 2;
    f.status.stateByte0 = 0x5A;
    f.status.stateByte1 = 0xA5;
    f.status.stateWord = 0xDEADBEEF;
    f.status.hardwareCheckLanes = {1, 0x2233, 0x4455, 0x6677};
    tracker_->setMarkerFrame(f);
    auto host = connect();

    const Bytes frame = host->request({0x0F}, 4096);
    ASSERT_EQ(frame.size(), 4096u);
    EXPECT_EQ(slice(frame, 0, 2), (Bytes{0xA5, 0x5A}));
    EXPECT_EQ(slice(frame, 4094, 2), (Bytes{0xFF, 0xFE}));
    EXPECT_EQ(frame[2], 0x42);
    EXPECT_EQ(frame[3], 6);
    EXPECT_EQ(frame[4], 200) << "the left list is cut at 200";
    EXPECT_EQ(frame[7], 2);
    EXPECT_EQ(frame[8], 2);
    EXPECT_EQ(f32(frame, 10), 10.5f);
    EXPECT_EQ(f32(frame, 14), 20.25f);
    EXPECT_EQ(f32(frame, 10 + 199 * 8), 10.5f + 199);
    EXPECT_EQ(f32(frame, 1610), 100.0f);
    EXPECT_EQ(f32(frame, 1610 + 12), 400.5f);
    EXPECT_EQ(slice(frame, 1610 + 16, 8), Bytes(8, 0));
    EXPECT_EQ(slice(frame, 3212, 2), (Bytes{0xB5, 0x5B}));
    EXPECT_EQ(u32(frame, 3214), 0xA1B2C3D4u);
    EXPECT_EQ(u32(frame, 3220), 0x33441122u);
    EXPECT_EQ(u16(frame, 3224), 4321);
    EXPECT_EQ(u16(frame, 3226), 65000);
    EXPECT_EQ(static_cast<std::int16_t>(u16(frame, 4000)), -1234);
    EXPECT_EQ(u16(frame, 4002), 2950);
    EXPECT_EQ(frame[4010], 2);
    EXPECT_EQ(slice(frame, 4020, 4), (Bytes{0xFB, 7, 0x5A, 0xA5}));
    EXPECT_EQ(u32(frame, 4030), 0xDEADBEEFu);
    EXPECT_EQ(slice(frame, 4040, 8), (Bytes{1, 0, 0x33, 0x22, 0x55, 0x44, 0x77, 0x66}));

    // The same frame again, and without the extended id neither mark nor
    // counter; raw counts go out as given.
    EXPECT_EQ(host->request({0x0F}, 4096), frame);
    f.extendedId.reset();
    f.leftCountOverride = 255;
    tracker_->setMarkerFrame(f);
    const Bytes plain = host->request({0x0F}, 4096);
    ASSERT_EQ(plain.size(), 4096u);
    EXPECT_EQ(slice(plain, 3212, 6), Bytes(6, 0));
    EXPECT_EQ(plain[4], 255);
}

// Midpoint of the two viewing rays, the tracker's own reconstruction rule:
// the output origin lies midway between the cameras (left camera at 0).
Point3 triangulate(const StereoCalibration& c, ImagePoint l, ImagePoint r) {
    auto ray = [](const CameraCalibration& cam, ImagePoint p) {
        const auto& k = cam.cameraMatrix;
        const double y = (p.y - k[5]) / k[4];
        const double x = (p.x - k[2] - k[1] * y) / k[0];
        const auto& m = cam.rotation;
        return std::array<double, 3>{m[0] * x + m[1] * y + m[2], m[3] * x + m[4] * y + m[5],
                                     m[6] * x + m[7] * y + m[8]};
    };
    const auto dl = ray(c.left, l);
    const auto dr = ray(c.right, r);
    const auto& t = c.right.translation;
    // Normal equations of [dl, -dr] lambda = t.
    double a = 0, b = 0, e = 0, g = 0, h = 0;
    for (int i = 0; i < 3; ++i) {
        a += dl[i] * dl[i];
        b -= dl[i] * dr[i];
        e += dr[i] * dr[i];
        g += dl[i] * t[i];
        h -= dr[i] * t[i];
    }
    const double det = a * e - b * b;
    const double ll = (e * g - b * h) / det;
    const double lr = (a * h - b * g) / det;
    return {(ll * dl[0] + lr * dr[0]) / 2, (ll * dl[1] + lr * dr[1]) / 2,
            (ll * dl[2] + lr * dr[2]) / 2};
}

TEST_F(MarkerFrames, BuiltInSceneAdvancesTheCounterAndTriangulatesBack) {
    serve("127.0.0.204");
    auto host = connect();
    const StereoCalibration rig = defaultDescription().calibration1;

    for (std::uint32_t request = 0; request < 257; ++request) {
        const Bytes frame = host->request({0x0F}, 4096);
        ASSERT_EQ(frame.size(), 4096u);
        ASSERT_EQ(u32(frame, 3214), request + 1);
        ASSERT_EQ(frame[2], (request + 1) & 0xFF);
        if (request % 64 != 0) continue;

        // Every scene marker is seen by both cameras and comes back from its
        // pair of image points.
        ASSERT_EQ(frame[4], 4);
        ASSERT_EQ(frame[8], 4);
        for (const Point3& truth : sceneMarkers(request)) {
            double best = 1e9;
            for (std::size_t i = 0; i < 4; ++i)
                for (std::size_t j = 0; j < 4; ++j) {
                    const Point3 p =
                        triangulate(rig, {f32(frame, 10 + 8 * i), f32(frame, 14 + 8 * i)},
                                    {f32(frame, 1610 + 8 * j), f32(frame, 1614 + 8 * j)});
                    best = std::min(best, std::hypot(p.x - truth.x, p.y - truth.y, p.z - truth.z));
                }
            EXPECT_LT(best, 0.01) << "request " << request;
        }
    }
    EXPECT_EQ(tracker_->markerRequests(), 257u);
}

// ---- Images ---------------------------------------------------------------------

TEST(ImagePattern, TellsCamerasImagesAndBlockOffsetsApart) {
    const std::size_t size = 3 * 65536;
    const Bytes left0 = expectedImage(ImageCamera::LeftGrey, 0, size);
    for (const Bytes& other : {expectedImage(ImageCamera::RightGrey, 0, size),
                               expectedImage(ImageCamera::Colour, 0, size),
                               expectedImage(ImageCamera::LeftGrey, 1, size)}) {
        std::size_t equal = 0;
        for (std::size_t i = 0; i < size; ++i) equal += left0[i] == other[i];
        EXPECT_EQ(equal, 0u);
    }
    // A block put at the wrong multiple of 256 bytes does not match.
    for (std::size_t shift : {256u, 1024u, 4096u, 32768u, 61440u, 65536u}) {
        EXPECT_NE(slice(left0, 0, 8192), slice(left0, shift, 8192)) << shift;
    }
}

// Requests blocks of one camera until the image is complete; returns the
// block sizes and the image.
std::pair<std::vector<std::size_t>, Bytes> readImage(RawHost& host, std::uint8_t first,
                                                     std::uint8_t next, std::size_t imageBytes,
                                                     std::size_t blockBytes) {
    std::vector<std::size_t> sizes;
    Bytes image;
    while (image.size() < imageBytes && sizes.size() < 1000) {
        const std::size_t expected = std::min(blockBytes, imageBytes - image.size());
        const Bytes block = host.request({sizes.empty() ? first : next}, expected);
        sizes.push_back(block.size());
        if (block.size() != expected) break;
        image.insert(image.end(), block.begin(), block.end());
    }
    return {sizes, image};
}

TEST_F(ImageBlocks, GreyBlocksEndShortAndRestartOnTheFirstRequest) {
    DeviceDescription d = defaultDescription();
    d.geometry.transferUnit = 1024;
    d.geometry.ethernetGreyCount = 4;
    d.greyImageBytes = 10000;
    serve("127.0.0.205", d);
    auto host = connect();

    // Left and right alternate block by block, as a host reads them.
    Bytes left = host->request({0xA4}, 4096);
    Bytes right = host->request({0xA8}, 4096);
    for (const std::size_t size : {4096u, 1808u}) {
        const Bytes l = host->request({0x04}, size);
        const Bytes r = host->request({0x08}, size);
        left.insert(left.end(), l.begin(), l.end());
        right.insert(right.end(), r.begin(), r.end());
    }
    EXPECT_TRUE(host->readFor(100ms).empty()) << "the last block carries 1808 bytes only";
    EXPECT_EQ(left, expectedImage(ImageCamera::LeftGrey, 0, 10000));
    EXPECT_EQ(right, expectedImage(ImageCamera::RightGrey, 0, 10000));

    // A first request in the middle of an image starts the next one at 0.
    const Bytes partial = host->request({0xA4}, 4096);
    EXPECT_EQ(partial, slice(expectedImage(ImageCamera::LeftGrey, 1, 10000), 0, 4096));
    const auto [sizes, image] = readImage(*host, 0xA4, 0x04, 10000, 4096);
    EXPECT_EQ(sizes, (std::vector<std::size_t>{4096, 4096, 1808}));
    EXPECT_EQ(image, expectedImage(ImageCamera::LeftGrey, 2, 10000));
    // A next request after the end goes on with the following image.
    EXPECT_EQ(host->request({0x04}, 4096),
              slice(expectedImage(ImageCamera::LeftGrey, 3, 10000), 0, 4096));
}

TEST_F(ImageBlocks, ColourHalfBlocksAndZeroGeometryWordsUseTheDefaults) {
    DeviceDescription d = defaultDescription();
    d.geometry.transferUnit = 0;         // 1024
    d.geometry.ethernetGreyCount = 0;    // 32 units
    d.geometry.ethernetColourCount = 0;  // 60 units
    d.greyImageBytes = 40000;
    d.colourImageBytes = 70000;
    serve("127.0.0.206", d);
    auto host = connect();

    const auto [colourSizes, colour] = readImage(*host, 0xA1, 0x01, 70000, 61440);
    EXPECT_EQ(colourSizes, (std::vector<std::size_t>{61440, 8560}));
    EXPECT_EQ(colour, expectedImage(ImageCamera::Colour, 0, 70000));
    const auto [greySizes, grey] = readImage(*host, 0xA8, 0x08, 40000, 32768);
    EXPECT_EQ(greySizes, (std::vector<std::size_t>{32768, 7232}));
    EXPECT_EQ(grey, expectedImage(ImageCamera::RightGrey, 0, 40000));
    EXPECT_TRUE(host->readFor(100ms).empty());
}

TEST_F(ImageBlocks, LargeAndMediumSensorModelsEndInTheirKnownShortBlocks) {
    serve("127.0.0.207", descriptionForModel("ZR-C857-LARGE"));
    auto host = connect();
    const auto [largeSizes, large] = readImage(*host, 0xA4, 0x04, 5102208, 32768);
    ASSERT_EQ(largeSizes.size(), 156u);
    EXPECT_EQ(largeSizes.back(), 23168u);
    EXPECT_EQ(large, expectedImage(ImageCamera::LeftGrey, 0, 5102208));

    tracker_->setDescription(descriptionForModel("ZR-C544-MEDIUM"));
    const auto [mediumSizes, medium] = readImage(*host, 0xA4, 0x04, 1275552, 32768);
    ASSERT_EQ(mediumSizes.size(), 39u);
    EXPECT_EQ(mediumSizes.back(), 30368u);
    EXPECT_EQ(medium, expectedImage(ImageCamera::LeftGrey, 1, 1275552));
}

// ---- Command framing and replies ------------------------------------------------

TEST_F(CommandLog, FramesOneTwoAndTenByteCommandsWhateverTheSegmentation) {
    serve("127.0.0.208");
    auto host = connect();
    const std::vector<Bytes> sent = {
        {0xF5},       packet10({0x62, 0x20, 0x03, 0x20, 0x03}),
        {0x0C, 0x02}, packet10({0x4D}),
        {0x77},       packet10({0x90, 127, 0, 0, 9, 0x90, 0xFE}),
        {0x0D},       packet10({0x80, 0xFA, 0x05, 0x64, 10, 20, 20, 19}),
        {0x0C, 0x00},
    };
    Bytes stream;
    for (const Bytes& c : sent) stream.insert(stream.end(), c.begin(), c.end());
    // Odd pieces that cut packets apart.
    for (std::size_t at = 0; at < stream.size(); at += 7) {
        host->send(slice(stream, at, std::min<std::size_t>(7, stream.size() - at)));
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_TRUE(tracker_->waitForCommands(sent.size(), 2000ms));
    EXPECT_EQ(tracker_->commands(), sent);

    tracker_->clearCommands();
    host->send(stream);  // all in one piece
    ASSERT_TRUE(tracker_->waitForCommands(sent.size(), 2000ms));
    EXPECT_EQ(tracker_->commands(), sent);
}

TEST_F(CommandLog, RepliesOnlyWhereTheProtocolHasOne) {
    serve("127.0.0.209");
    auto host = connect();
    Bytes stream = {0xF5, 0x77, 0x0D, 0x0C, 0x01, 0x0E};
    for (const Bytes& p :
         {packet10({0x23, 5}), packet10({0x5A, 0x00, 0x10}), packet10({0x63, 10, 20, 0x63, 0xFE}),
          packet10({0xA0, 0x0A, 1}), packet10({0xF7, 1, 2, 3, 4}), packet10({0x72})})
        stream.insert(stream.end(), p.begin(), p.end());
    stream.push_back(0x0D);
    host->send(stream);
    // The trigger and the mode command answer with their code; nothing else
    // answers.
    EXPECT_EQ(host->readFor(300ms), (Bytes{0x0D, 0x0C, 0x0D}));
    EXPECT_EQ(tracker_->commands().size(), 12u);
}

TEST_F(CommandLog, IncompletePacketIsLoggedAfterItsTimeoutAndFramingRecovers) {
    serve("127.0.0.210");
    auto host = connect();
    const auto sentAt = Clock::now();
    host->send({0x62, 0x01, 0x02});
    ASSERT_TRUE(tracker_->waitForCommands(1, 3000ms));
    EXPECT_GE(Clock::now() - sentAt, 400ms);
    EXPECT_EQ(tracker_->commands().front(), (Bytes{0x62, 0x01, 0x02}));
    EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u);
}

// ---- Faults ---------------------------------------------------------------------

TEST_F(Faults, CloseAfterMarkerFramesDropsTheLinkOnceThenServesAReconnect) {
    serve("127.0.0.211");
    FaultSettings fault;
    fault.closeAfterMarkerFrames = 2;
    tracker_->setFaults(fault);
    {
        auto host = connect();
        EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u);
        EXPECT_EQ(tracker_->faults().closeAfterMarkerFrames, std::size_t{1});
        EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u);
        EXPECT_TRUE(host->closedByPeer());
    }
    EXPECT_FALSE(tracker_->faults().closeAfterMarkerFrames.has_value());
    {
        auto host = connect();
        EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u);
        // Zero closes at the next request, unanswered.
        fault.closeAfterMarkerFrames = 0;
        tracker_->setFaults(fault);
        EXPECT_TRUE(host->request({0x0F}, 4096).empty());
        EXPECT_TRUE(host->closedByPeer());
    }
    EXPECT_EQ(tracker_->connectionsAccepted(), 2u);
}

TEST_F(Faults, StopAnsweringKeepsTheLinkOpenAndSilent) {
    serve("127.0.0.212");
    auto host = connect();
    FaultSettings fault;
    fault.stopAnswering = true;
    tracker_->setFaults(fault);
    host->send({0x0F, 0x0A, 0xA4, 0x0D});
    ASSERT_TRUE(tracker_->waitForCommands(4, 2000ms));
    EXPECT_FALSE(host->closedByPeer(300ms));
    EXPECT_TRUE(tracker_->isHostConnected());

    tracker_->setFaults({});
    EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u);
}

TEST_F(Faults, CorruptEndMarkAndShortFrame) {
    serve("127.0.0.213");
    auto host = connect();
    FaultSettings fault;
    fault.corruptEndMark = true;
    tracker_->setFaults(fault);
    const Bytes corrupt = host->request({0x0F}, 4096);
    ASSERT_EQ(corrupt.size(), 4096u);
    EXPECT_EQ(slice(corrupt, 0, 2), (Bytes{0xA5, 0x5A}));
    EXPECT_EQ(slice(corrupt, 4094, 2), (Bytes{0xFE, 0xFE}));

    fault = {};
    fault.shortMarkerFrameBytes = 1000;
    tracker_->setFaults(fault);
    host->send({0x0F});
    const Bytes cut = host->readFor(300ms);
    ASSERT_EQ(cut.size(), 1000u);
    EXPECT_EQ(slice(cut, 0, 2), (Bytes{0xA5, 0x5A}));

    tracker_->setFaults({});
    const Bytes whole = host->request({0x0F}, 4096);
    ASSERT_EQ(whole.size(), 4096u);
    EXPECT_EQ(slice(whole, 4094, 2), (Bytes{0xFF, 0xFE}));
}

TEST_F(Faults, BadChecksumSpoilsOnlyItsBlock) {
    serve("127.0.0.214");
    auto host = connect();
    for (int spoilt : {1, 2}) {
        FaultSettings fault;
        fault.badChecksumBlock1 = spoilt == 1;
        fault.badChecksumBlock2 = spoilt == 2;
        tracker_->setFaults(fault);
        const Bytes config = host->request({0x0A}, 1024);
        ASSERT_EQ(config.size(), 1024u);
        EXPECT_EQ(blockChecksumOk(config, 0), spoilt != 1);
        EXPECT_EQ(blockChecksumOk(config, 512), spoilt != 2);
        const Bytes longForm = host->request({0x1A}, 7680);
        EXPECT_EQ(slice(longForm, 0, 1024), config);
    }
}

TEST_F(Faults, MissingSecondBlockLongFormAndModelText) {
    serve("127.0.0.215");
    auto host = connect();
    const Bytes full = host->request({0x0A}, 1024);

    FaultSettings fault;
    fault.omitSecondConfigBlock = true;
    fault.noLongForm = true;
    fault.noModelTextReply = true;
    tracker_->setFaults(fault);
    host->send({0x0A});
    EXPECT_EQ(host->readFor(300ms), slice(full, 0, 512));
    host->send({0x1A, 0xF8});
    EXPECT_TRUE(host->readFor(300ms).empty());

    // The same silence from a device that has neither.
    tracker_->setFaults({});
    DeviceDescription d = defaultDescription();
    d.longConfiguration.reset();
    d.answersModelTextRequest = false;
    tracker_->setDescription(d);
    host->send({0x1A, 0xF8});
    EXPECT_TRUE(host->readFor(300ms).empty());
    EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u) << "the link is still served";
}

TEST_F(Faults, ThrowingFrameSourceAndDroppedConnection) {
    serve("127.0.0.219");
    auto host = connect();
    tracker_->setMarkerFrameSource(
        [](std::uint64_t) -> MarkerFrame { throw std::runtime_error("no frame"); });
    host->send({0x0F});
    EXPECT_FALSE(host->closedByPeer(300ms));

    tracker_->setMarkerFrameSource(nullptr);
    EXPECT_EQ(host->request({0x0F}, 4096).size(), 4096u);
    tracker_->dropConnection();
    EXPECT_TRUE(host->closedByPeer());
    auto again = connect();
    EXPECT_EQ(again->request({0x0D}, 1), (Bytes{0x0D}));
}

// ---- Connections ----------------------------------------------------------------

TEST_F(Connections, NewConnectionReplacesTheOldOne) {
    serve("127.0.0.216");
    auto first = connect();
    ASSERT_TRUE(tracker_->waitForConnections(1, 2000ms));
    auto second = connect();
    ASSERT_TRUE(tracker_->waitForConnections(2, 2000ms));
    EXPECT_TRUE(first->closedByPeer());
    EXPECT_EQ(second->request({0x0F}, 4096).size(), 4096u);
}

TEST_F(Connections, StopIsPromptWithAHostConnectedAndTheAddressIsReusable) {
    serve("127.0.0.217");
    auto host = connect();
    ASSERT_EQ(host->request({0x0F}, 4096).size(), 4096u);
    const auto before = Clock::now();
    tracker_->stop();
    EXPECT_LT(Clock::now() - before, 300ms);
    EXPECT_FALSE(tracker_->isRunning());
    EXPECT_TRUE(host->closedByPeer());
    tracker_->stop();  // idempotent

    tracker_->start("127.0.0.217", kDefaultPort);
    auto again = connect();
    EXPECT_EQ(again->request({0x0D}, 1), (Bytes{0x0D}));
}

TEST_F(Connections, RefusesNonLoopbackAndBusyAddresses) {
    VirtualTracker idle;
    EXPECT_THROW(idle.start("192.0.2.1", kDefaultPort), std::invalid_argument);
    EXPECT_THROW(idle.start("localhost", kDefaultPort), std::invalid_argument);
    EXPECT_FALSE(idle.isRunning());

    serve("127.0.0.218");
    EXPECT_THROW(idle.start("127.0.0.218", kDefaultPort), std::system_error);
    EXPECT_THROW(tracker_->start("127.0.0.218", kDefaultPort), std::logic_error);
}

}  // namespace
