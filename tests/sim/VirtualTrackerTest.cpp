// The virtual tracker, driven over loopback TCP by a bare host written here,
// so that what it sends is checked against the wire format itself and not
// against the library's reading of it. Each test has its own address, all
// on one unprivileged port, so that no test needs root.
#include "sim/ConfigurationImage.h"
#include "sim/MarkerScene.h"
#include "sim/VirtualTracker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <type_traits>

namespace {

using namespace std::chrono_literals;
using namespace vyx::sim;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t kTestPort = 17700;
constexpr auto kWiFi = LinkFraming::WiFi;
using Clock = std::chrono::steady_clock;

// A bare host: one TCP connection, every wait bounded.
class RawHost {
public:
    explicit RawHost(const std::string& address) {
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(kTestPort);
        ::inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
        if (::connect(fd_, reinterpret_cast<sockaddr*>(&peer), sizeof peer) != 0)
            throw std::system_error(errno, std::generic_category(), "connect " + address);
    }
    ~RawHost() { ::close(fd_); }
    RawHost(const RawHost&) = delete;  // owns the socket

    // Sends the command, then returns up to `count` bytes: as many as arrive
    // within the timeout or before the tracker closes the connection.
    Bytes request(const Bytes& command, std::size_t count, std::chrono::milliseconds timeout = 3s) {
        if (!command.empty()) {
            EXPECT_EQ(::send(fd_, command.data(), command.size(), MSG_NOSIGNAL),
                      static_cast<ssize_t>(command.size()));
        }
        Bytes out(count);
        std::size_t got = 0;
        for (const auto deadline = Clock::now() + timeout; got < count;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now());
            const timeval wait{left.count() / 1000000, left.count() % 1000000};
            if (left.count() <= 0 || ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait))
                break;
            const ssize_t n = ::recv(fd_, out.data() + got, count - got, 0);
            closed_ = closed_ || n == 0;
            if (n <= 0) break;
            got += static_cast<std::size_t>(n);
        }
        out.resize(got);
        return out;
    }
    // Everything the command brings within the window (empty: no reply).
    Bytes replyWithin(const Bytes& command, std::chrono::milliseconds window = 300ms) {
        return request(command, 1 << 16, window);
    }
    bool closedByPeer(std::chrono::milliseconds timeout = 2s) {
        replyWithin({}, timeout);
        return closed_;
    }

private:
    int fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool closed_ = false;
};

// A tracker on the test's own address, with a host connected to it.
struct Served {
    explicit Served(const std::string& addr, const DeviceDescription& d = defaultDescription(),
                    LinkFraming framing = LinkFraming::Ethernet)
        : tracker(d), address(addr) {
        tracker.setFraming(framing);
        tracker.start(address, kTestPort);
        host = connect();
    }
    std::unique_ptr<RawHost> connect() const { return std::make_unique<RawHost>(address); }

    VirtualTracker tracker;
    std::string address;
    std::unique_ptr<RawHost> host;
};

// A little-endian value (the test host's own byte order) at a byte offset.
template <typename T>
T at(const Bytes& d, std::size_t offset) {
    d.at(offset + sizeof(T) - 1);  // throws rather than read past the reply
    T value{};
    std::memcpy(&value, d.data() + offset, sizeof value);
    return value;
}
// Bytes `from` to `from + size`, as many of them as the reply has.
Bytes slice(const Bytes& d, std::size_t from, std::size_t size) {
    const auto to = [&d](std::size_t i) {
        return d.begin() + static_cast<long>(std::min(i, d.size()));
    };
    return {to(from), to(from + size)};
}
Bytes padded(Bytes b, std::size_t size) { return b.resize(size, 0), b; }
Bytes text20(const std::string& s) { return padded(Bytes(s.begin(), s.end()), 20); }
Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}
// The values' bytes one after another, little-endian as on the wire.
template <typename... T>
Bytes le(const T&... values) {
    Bytes out;
    const auto append = [&out](const auto& v) {
        static_assert(std::is_trivially_copyable_v<std::decay_t<decltype(v)>>, "plain values only");
        const auto* p = reinterpret_cast<const std::uint8_t*>(&v);
        out.insert(out.end(), p, p + sizeof v);
    };
    (append(values), ...);
    return out;
}
// Each field's bytes at its offset.
void expectFields(const Bytes& d, std::initializer_list<std::pair<std::size_t, Bytes>> fields) {
    for (const auto& [offset, bytes] : fields)
        EXPECT_EQ(slice(d, offset, bytes.size()), bytes) << "at byte " << offset;
}

// Sends the commands back to back in pieces of `piece` bytes that cut them
// anywhere; returns the whole stream.
Bytes sendInPieces(RawHost& host, const std::vector<Bytes>& commands, std::size_t piece) {
    Bytes stream;
    for (const Bytes& c : commands) stream.insert(stream.end(), c.begin(), c.end());
    for (std::size_t from = 0; from < stream.size(); from += piece) {
        host.request(slice(stream, from, piece), 0);
        std::this_thread::sleep_for(5ms);
    }
    return stream;
}

// A fault, a command it concerns and the whole reply that command then gets.
struct FaultCase {
    void (*set)(FaultSettings&);
    Bytes command, reply;
};
void expectFaultReplies(Served& s, std::initializer_list<FaultCase> cases) {
    for (const FaultCase& c : cases) {
        FaultSettings fault;
        c.set(fault);
        s.tracker.setFaults(fault);
        s.tracker.clearCommands();
        EXPECT_EQ(s.host->replyWithin(c.command), c.reply) << "command " << int{c.command[0]};
        EXPECT_EQ(s.tracker.commands().size(), c.command.size()) << "all still logged";
    }
}

// CRC-16/MODBUS, bit by bit, over a block's bytes 0-469, stored at 509-510.
bool blockChecksumOk(const Bytes& d, std::size_t block) {
    std::uint16_t crc = 0xFFFF;
    for (std::size_t i = block; i < block + 470; ++i) {
        crc = static_cast<std::uint16_t>(crc ^ d.at(i));
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<std::uint16_t>((crc & 1) ? (crc >> 1) ^ 0xA001 : crc >> 1);
    }
    return crc == at<std::uint16_t>(d, block + 509);
}

// A calibration with every number distinct, so a misplaced matrix shows.
StereoCalibration numbered(double v) {
    StereoCalibration c;
    for (CameraCalibration* cam : {&c.left, &c.right}) {
        for (double& x : cam->cameraMatrix) x = ++v;
        for (double& x : cam->distCoeffs) x = ++v;
        for (double& x : cam->rotation) x = ++v;
        for (double& x : cam->translation) x = ++v;
    }
    return c;
}
// A calibration set as a block holds it, 416 bytes: both camera matrices,
// both distortion vectors, both rotations, both translations.
Bytes calibrationBytes(const StereoCalibration& c) {
    return le(c.left.cameraMatrix, c.right.cameraMatrix, c.left.distCoeffs, c.right.distCoeffs,
              c.left.rotation, c.right.rotation, c.left.translation, c.right.translation);
}

TEST(ConfigurationReply, BlocksLongFormAndWifiFrameCarryTheDescriptionAtTheirOffsets) {
    DeviceDescription d = defaultDescription();
    d.modelText = "ZR-C857-ABCDEFGHIJKLMNOP";  // 24 bytes, cut at 20
    d.manufactured = {2031, 11, 29};
    d.geometry = {1111, 722, 1333, 744, 155, 166, 177, 188, 512};
    d.deviceIP = {127, 9, 8, 7};
    d.calibration1 = numbered(0);
    d.calibration2 = numbered(1000);
    d.calibrationTemperature1 = 18.5;
    d.calibrationTemperature2 = 41.25;
    d.zFactor1 = 0.995;
    d.zFactor2 = 1.004;
    d.longConfiguration->entries.clear();
    for (int i = 0; i < 17; ++i)
        d.longConfiguration->entries.push_back({10.0 + i, numbered(100.0 * i), 1.0 + i / 1000.0});
    Served s("127.0.0.200", d), wifi("127.0.0.220", d, kWiFi);

    const Bytes config = s.host->replyWithin({0x0A});
    ASSERT_EQ(config.size(), 1024u);
    EXPECT_TRUE(blockChecksumOk(config, 0));
    EXPECT_TRUE(blockChecksumOk(config, 512));
    expectFields(config, {{0, calibrationBytes(d.calibration1)},
                          {512, calibrationBytes(*d.calibration2)},
                          {416, le(std::uint16_t{2031})}, {418, {11, 29, 20}},
                          {421, text20(d.modelText)},
                          {441, le(std::array<std::uint16_t, 4>{1111, 722, 1333, 744})},
                          {450, le(std::array<std::uint16_t, 5>{155, 166, 177, 188, 512})},
                          {481, {127, 9, 8, 7}}, {928, le(18.5, 41.25, 0.995, 1.004)}});
    for (Served* on : {&s, &wifi}) EXPECT_EQ(on->host->request({0xF8}, 20), text20(d.modelText));
    // The Wi-Fi module wraps the same two blocks in a frame of its own.
    const Bytes wifiConfig = wifi.host->replyWithin({0x0A});
    EXPECT_EQ(wifiConfig, cat({{0xA5, 0x5A, 0x08, 0x04}, config, {0, 0, 0xFF, 0xFE}}));

    // The long form: the blocks, then the count and as many rows as fit, 15
    // of the 17 (up to byte 7508), then zeros.
    Bytes rows = le(std::int32_t{15});
    for (std::size_t i = 0; i < 15; ++i) {
        const TemperatureCalibration& row = d.longConfiguration->entries[i];
        rows = cat({rows, le(row.temperature), calibrationBytes(row.cameras), le(row.depthFactor)});
    }
    EXPECT_EQ(s.host->request({0x1A}, 7680), cat({config, rows, Bytes(172, 0)}));

    // A spoilt checksum of either block shows in the short and the long form
    // and in the Wi-Fi frame alike; without block 2 each reply ends after
    // block 1.
    for (const int spoilt : {1, 2, 3}) {
        SCOPED_TRACE(spoilt);
        FaultSettings fault;
        fault.badChecksumBlock1 = spoilt == 1;
        fault.badChecksumBlock2 = spoilt == 2;
        fault.omitSecondConfigBlock = spoilt == 3;
        s.tracker.setFaults(fault);
        wifi.tracker.setFaults(fault);
        const Bytes shortForm = s.host->replyWithin({0x0A}), frame = wifi.host->replyWithin({0x0A});
        if (spoilt == 3) {
            EXPECT_EQ(shortForm, slice(config, 0, 512));
            EXPECT_EQ(frame, slice(wifiConfig, 0, 516));
            continue;
        }
        ASSERT_EQ(shortForm.size(), 1024u);
        EXPECT_EQ(blockChecksumOk(shortForm, 0), spoilt != 1);
        EXPECT_EQ(blockChecksumOk(shortForm, 512), spoilt != 2);
        EXPECT_EQ(frame, cat({slice(wifiConfig, 0, 4), shortForm, slice(wifiConfig, 1028, 4)}));
        EXPECT_EQ(slice(s.host->request({0x1A}, 7680), 0, 1024), shortForm);
    }
    s.tracker.setFaults({});

    // Raw counts and length bytes go out as given, a short text is
    // zero-filled, the reply may differ from the record, and block 2 repeats
    // a lone first set.
    d.modelText = "QX-MIN";
    d.modelLengthOverride = 25;
    d.modelTextReply = "ZR-D640-X";
    d.calibration2.reset();
    Bytes overridden;
    for (std::int32_t raw : {0, -3, 16}) {
        d.longConfiguration->entryCountOverride = raw;
        s.tracker.setDescription(d);
        overridden = s.host->request({0x1A}, 7680);
        expectFields(overridden, {{1024, le(raw, 10.0)}});
        EXPECT_TRUE(blockChecksumOk(overridden, 0) && blockChecksumOk(overridden, 512)) << raw;
    }
    expectFields(overridden, {{420, cat({{25}, text20("QX-MIN")})},
                              {512, calibrationBytes(d.calibration1)}});
    EXPECT_EQ(s.host->request({0xF8}, 20), text20("ZR-D640-X"));
}

TEST(MarkerFrames, FixedFrameIsLaidOutAtTheDocumentedOffsets) {
    Served s("127.0.0.202");
    MarkerFrame f;
    f.frameId = 0x42;
    f.extendedId = 0xA1B2C3D4;
    f.leftValue = 6;
    f.rightValue = 2;
    for (int i = 0; i < 210; ++i) f.left.push_back({10.5f + i, 20.25f + i});
    f.right = {{100.0f, 200.0f}, {300.5f, 400.5f}};
    // Temperatures, sensor values 0-1, second-layout 2-3, first-layout 2-3,
    // link state, state bytes, state word, hardware check lanes.
    f.status = {-1234, 2950, 4321, 65000, 0x1122, 0x3344, -5, 7,
                2,     0x5A, 0xA5, 0xDEADBEEF, {1, 0x2233, 0x4455, 0x6677}};
    s.tracker.setMarkerFrame(f);

    const Bytes frame = s.host->request({0x0F}, 4096);
    ASSERT_EQ(frame.size(), 4096u);
    expectFields(frame, {{0, {0xA5, 0x5A, 0x42, 6, 200, 0, 0, 2, 2, 0}},  // 200 points at most
                         {10, le(10.5f, 20.25f)}, {10 + 199 * 8, le(10.5f + 199, 20.25f + 199)},
                         {1610, le(100.0f, 200.0f, 300.5f, 400.5f, 0.0f, 0.0f)},
                         {3212, {0xB5, 0x5B}}, {3214, le(0xA1B2C3D4u)},
                         {3220, le(0x33441122u, 65000u << 16 | 4321u)},
                         {4000, le(std::int16_t{-1234}, std::int16_t{2950})}, {4010, {2}},
                         {4020, {0xFB, 7, 0x5A, 0xA5}}, {4030, le(0xDEADBEEFu)},
                         {4040, {1, 0, 0x33, 0x22, 0x55, 0x44, 0x77, 0x66}}, {4094, {0xFF, 0xFE}}});

    // Served unchanged each time; without the extended id neither mark nor
    // counter, and a raw count goes out as given.
    EXPECT_EQ(s.host->request({0x0F}, 4096), frame);
    f.extendedId.reset();
    f.leftCountOverride = 255;
    s.tracker.setMarkerFrame(f);
    const Bytes plain = s.host->request({0x0F}, 4096);
    EXPECT_EQ(slice(plain, 3212, 6), Bytes(6, 0));
    EXPECT_EQ(plain.at(4), 255);
}

TEST(MarkerFrames, BuiltInSceneAdvancesTheCounterPerRequest) {
    Served s("127.0.0.203");
    for (std::uint32_t request = 0; request < 257; ++request) {
        const Bytes frame = s.host->request({0x0F}, 4096);
        ASSERT_EQ(at<std::uint32_t>(frame, 3214), request + 1);
        ASSERT_EQ(frame[2], (request + 1) & 0xFF);
        if (request % 64 != 0) continue;
        const auto scene = encodeMarkerFrame(sceneFrame(defaultDescription(), request));
        EXPECT_EQ(frame, Bytes(scene.begin(), scene.end())) << "request " << request;
        EXPECT_EQ(frame[4] + frame[8], 8) << "the four tool markers in both images";
    }
    EXPECT_EQ(s.tracker.markerRequests(), 257u);
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

TEST(ImageBlocks, BlockSizesAndWhereEachImageStarts) {
    DeviceDescription d = defaultDescription();
    d.geometry.transferUnit = 1024;
    d.geometry.ethernetGreyCount = 4;
    d.greyImageBytes = 10000;
    Served s("127.0.0.204", d);
    // The pattern's own formula, (31 x 65793 + 17 x 257 + 59 + 7 + 85) mod
    // 256: every factor odd, so a change to any coefficient shows.
    EXPECT_EQ(imagePatternByte(ImageCamera::RightGrey, 1, 65793), 199);

    // Left and right alternate block by block, as a host reads them.
    Bytes left = s.host->request({0xA4}, 4096), right = s.host->request({0xA8}, 4096);
    for (const std::size_t size : {4096u, 1808u}) {
        left = cat({left, s.host->request({0x04}, size)});
        right = cat({right, s.host->request({0x08}, size)});
    }
    EXPECT_TRUE(s.host->replyWithin({}, 100ms).empty()) << "the last block carries 1808 bytes";
    EXPECT_EQ(left, expectedImage(ImageCamera::LeftGrey, 0, 10000));
    EXPECT_EQ(right, expectedImage(ImageCamera::RightGrey, 0, 10000));
    // A first request in mid-image starts the next image; a next request
    // after the end starts the one after.
    EXPECT_EQ(s.host->request({0xA4}, 4096),
              slice(expectedImage(ImageCamera::LeftGrey, 1, 10000), 0, 4096));
    const auto [sizes, image] = readImage(*s.host, 0xA4, 0x04, 10000, 4096);
    EXPECT_EQ(sizes, (std::vector<std::size_t>{4096, 4096, 1808}));
    EXPECT_EQ(image, expectedImage(ImageCamera::LeftGrey, 2, 10000));
    EXPECT_EQ(s.host->request({0x04}, 4096),
              slice(expectedImage(ImageCamera::LeftGrey, 3, 10000), 0, 4096));

    // Zero geometry words: 1024-byte units, 32 per grey and 60 per colour
    // block; and the block counts of the large sensors.
    d.geometry.transferUnit = 0;
    d.geometry.ethernetGreyCount = 0;
    d.geometry.ethernetColourCount = 0;
    d.greyImageBytes = 40000;
    d.colourImageBytes = 70000;
    const struct {
        DeviceDescription description;
        ImageCamera camera;
        std::uint8_t first, next;
        std::size_t imageBytes, blockBytes, blocks, lastBlock;
        std::uint32_t index;  // images of that camera served before
    } cases[] = {{d, ImageCamera::Colour, 0xA1, 0x01, 70000, 61440, 2, 8560, 0},
                 {d, ImageCamera::RightGrey, 0xA8, 0x08, 40000, 32768, 2, 7232, 1},
                 {descriptionForModel("ZR-C857-LARGE"), ImageCamera::LeftGrey, 0xA4, 0x04, 5102208,
                  32768, 156, 23168, 4},
                 {descriptionForModel("ZR-C544-MEDIUM"), ImageCamera::LeftGrey, 0xA4, 0x04, 1275552,
                  32768, 39, 30368, 5}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.imageBytes);
        s.tracker.setDescription(c.description);
        const auto [blocks, bytes] =
            readImage(*s.host, c.first, c.next, c.imageBytes, c.blockBytes);
        ASSERT_EQ(blocks.size(), c.blocks);
        EXPECT_EQ(blocks.front(), c.blocks > 1 ? c.blockBytes : c.lastBlock);
        EXPECT_EQ(blocks.back(), c.lastBlock);
        EXPECT_EQ(bytes, expectedImage(c.camera, c.index, c.imageBytes));
    }
}

TEST(CommandLog, FramesOneTwoAndTenByteCommandsWhateverTheSegmentationAndAnswersFew) {
    Served s("127.0.0.206");
    const std::vector<Bytes> sent = {
        {0xF5},       padded({0x62, 0x20, 0x03, 0x20, 0x03}, 10),
        {0x0C, 0x02}, padded({0x4D}, 10),
        {0x77},       padded({0x90, 127, 0, 0, 9, 0x90, 0xFE}, 10),
        {0x0D},       padded({0x80, 0xFA, 0x05, 0x64, 10, 20, 20, 19}, 10),
        {0x0C, 0x00},
    };
    Bytes stream = sendInPieces(*s.host, sent, 7);
    ASSERT_TRUE(s.tracker.waitForCommands(sent.size(), 2000ms));
    EXPECT_EQ(s.tracker.commands(), sent);
    s.tracker.clearCommands();
    s.host->request(stream, 0);
    ASSERT_TRUE(s.tracker.waitForCommands(sent.size(), 2000ms));
    EXPECT_EQ(s.tracker.commands(), sent);

    // Only trigger and mode answer, and an incomplete packet times out.
    EXPECT_EQ(s.host->replyWithin({}), (Bytes{0x0C, 0x0D, 0x0C, 0x0C, 0x0D, 0x0C}));
    s.tracker.clearCommands();
    stream = cat({{0xF5, 0x77, 0x0D, 0x0C, 0x01, 0x0E}, padded({0x23, 5}, 10),
                  padded({0x5A, 0x00, 0x10}, 10), padded({0x63, 10, 20, 0x63, 0xFE}, 10),
                  padded({0xA0, 0x0A, 1}, 10), padded({0xF7, 1, 2, 3, 4}, 10), padded({0x72}, 10),
                  {0x0D}});
    EXPECT_EQ(s.host->replyWithin(stream), (Bytes{0x0D, 0x0C, 0x0D}));
    EXPECT_EQ(s.tracker.commands().size(), 12u);

    s.tracker.clearCommands();
    const auto sentAt = Clock::now();
    s.host->request({0x62, 0x01, 0x02}, 0);
    ASSERT_TRUE(s.tracker.waitForCommands(1, 3000ms));
    EXPECT_GE(Clock::now() - sentAt, 400ms);
    EXPECT_EQ(s.tracker.commands().front(), (Bytes{0x62, 0x01, 0x02}));
    EXPECT_EQ(s.host->request({0x0F}, 4096).size(), 4096u) << "framing recovers";
}

TEST(Faults, CloseAfterMarkerFramesDropsTheLinkOnceThenServesAReconnect) {
    Served s("127.0.0.208");
    FaultSettings fault;
    fault.closeAfterMarkerFrames = 2;
    s.tracker.setFaults(fault);
    EXPECT_EQ(s.host->request({0x0F}, 4096).size(), 4096u);
    EXPECT_EQ(s.tracker.faults().closeAfterMarkerFrames, std::size_t{1});
    EXPECT_EQ(s.host->request({0x0F}, 4096).size(), 4096u);
    EXPECT_TRUE(s.host->closedByPeer());
    EXPECT_FALSE(s.tracker.faults().closeAfterMarkerFrames.has_value());

    s.host = s.connect();
    EXPECT_EQ(s.host->request({0x0F}, 4096).size(), 4096u);
    fault.closeAfterMarkerFrames = 0;  // closes at the next request, unanswered
    s.tracker.setFaults(fault);
    EXPECT_TRUE(s.host->request({0x0F}, 4096).empty());
    EXPECT_TRUE(s.host->closedByPeer());
    EXPECT_EQ(s.tracker.connectionsAccepted(), 2u);
}

// The checksum faults and the missing second block are checked with the
// configuration reply above.
TEST(Faults, EachFaultChangesOnlyItsReplyAndTheLinkStaysServed) {
    Served s("127.0.0.209");
    s.tracker.setMarkerFrame(MarkerFrame{});
    const Bytes frame = s.host->request({0x0F}, 4096);
    ASSERT_EQ(frame.size(), 4096u);
    Bytes corrupt = frame;
    corrupt.at(4094) = 0xFE;
    expectFaultReplies(s, {
        {[](FaultSettings& f) { f.corruptEndMark = true; }, {0x0F}, corrupt},
        {[](FaultSettings& f) { f.shortMarkerFrameBytes = 1000; }, {0x0F}, slice(frame, 0, 1000)},
        {[](FaultSettings& f) { f.unansweredConfigReads = 1; }, {0x0A}, {}},
        {[](FaultSettings& f) { f.noLongForm = true; }, {0x1A}, {}},
        {[](FaultSettings& f) { f.noModelTextReply = true; }, {0xF8}, {}},
        {[](FaultSettings& f) { f.stopAnswering = true; }, {0x0F, 0x0A, 0xA4, 0x0D}, {}},
    });
    // A device without long form or model text reply is just as silent.
    s.tracker.setFaults({});
    DeviceDescription d = defaultDescription();
    d.longConfiguration.reset();
    d.answersModelTextRequest = false;
    s.tracker.setDescription(d);
    EXPECT_TRUE(s.host->replyWithin({0x1A, 0xF8}).empty());
    EXPECT_EQ(s.host->request({0x0F}, 4096), frame);
}

TEST(Connections, OneHostAtATimeADropIsServedAgainAndStopIsPrompt) {
    Served s("127.0.0.210");
    ASSERT_TRUE(s.tracker.waitForConnections(1, 2000ms));
    auto second = s.connect();
    ASSERT_TRUE(s.tracker.waitForConnections(2, 2000ms));
    EXPECT_TRUE(s.host->closedByPeer()) << "a new connection replaces the old one";
    // A throwing frame source leaves the request unanswered, the link open.
    s.tracker.setMarkerFrameSource(
        [](std::uint64_t) -> MarkerFrame { throw std::runtime_error("no frame"); });
    EXPECT_TRUE(second->replyWithin({0x0F}).empty());
    s.tracker.setMarkerFrameSource(nullptr);
    EXPECT_EQ(second->request({0x0F}, 4096).size(), 4096u);
    s.tracker.dropConnection();
    EXPECT_TRUE(second->closedByPeer());
    s.host = s.connect();
    EXPECT_EQ(s.host->request({0x0D}, 1), (Bytes{0x0D}));

    // Stop closes the host's link promptly; the address can be bound again.
    const auto before = Clock::now();
    s.tracker.stop();
    EXPECT_LT(Clock::now() - before, 300ms);
    EXPECT_FALSE(s.tracker.isRunning());
    EXPECT_TRUE(s.host->closedByPeer());
    s.tracker.stop();  // idempotent
    s.tracker.start(s.address, kTestPort);
    EXPECT_EQ(s.connect()->request({0x0D}, 1), (Bytes{0x0D}));
}

TEST(Connections, RefusesNonLoopbackAndBusyAddresses) {
    VirtualTracker idle;
    EXPECT_THROW(idle.start("192.0.2.1", kTestPort), std::invalid_argument);
    EXPECT_THROW(idle.start("localhost", kTestPort), std::invalid_argument);
    EXPECT_FALSE(idle.isRunning());
    Served s("127.0.0.212");
    EXPECT_THROW(idle.start(s.address, kTestPort), std::system_error);
    EXPECT_THROW(s.tracker.start(s.address, kTestPort), std::logic_error);
}

// ---- Wi-Fi framing ------------------------------------------------------------

// Reads one Wi-Fi marker frame: the header, then as many bytes as it announces.
Bytes wifiMarkerFrame(RawHost& host) {
    const Bytes header = host.request({0x0E}, 4);
    if (header.size() < 4) return header;
    return cat({header, host.request({}, at<std::uint16_t>(header, 2) - 4u)});
}

TEST(WifiFraming, MarkerFramesCarryPointsAndTheTrailerOrClosingWord) {
    Served s("127.0.0.221", defaultDescription(), kWiFi);
    const struct {
        std::optional<std::uint32_t> extendedId;
        std::size_t left, right;  // points given; at most 200 are sent
        std::size_t length;
    } cases[] = {{0xA1B2C3D4, 3, 2, (3 + 2 + 2) * 8 + 12},
                 {std::nullopt, 3, 2, 4 + 8 + 5 * 8 + 4},
                 {std::nullopt, 0, 0, 16},
                 {7, 0, 1, (0 + 1 + 2) * 8 + 12},
                 {0x01020304, 210, 200, (200 + 200 + 2) * 8 + 12}};
    for (const auto& c : cases) {
        MarkerFrame f;
        f.frameId = static_cast<std::uint8_t>(c.left + 1);
        f.extendedId = c.extendedId;
        f.leftValue = 6;
        f.rightValue = 3;
        for (std::size_t i = 0; i < c.left; ++i) f.left.push_back({1.5f + i, 2.5f + i});
        for (std::size_t i = 0; i < c.right; ++i) f.right.push_back({-1.0f - i, 1000.0f + i});
        s.tracker.setMarkerFrame(f);
        const Bytes frame = wifiMarkerFrame(*s.host);
        ASSERT_EQ(frame.size(), c.length) << c.left << " + " << c.right;
        const std::uint8_t left = std::min<std::uint8_t>(c.left, 200);
        const std::uint8_t right = std::min<std::uint8_t>(c.right, 200);
        EXPECT_EQ(slice(frame, 0, 12), cat({{0xA5, 0x5A}, le(std::uint16_t(c.length)),
                                            {f.frameId, 6, left, 0, 0, 3, right, 0}}));
        for (std::size_t i = 0; i < left; ++i)
            ASSERT_EQ(slice(frame, 12 + 8 * i, 8), le(1.5f + i, 2.5f + i));
        for (std::size_t i = 0; i < right; ++i)
            ASSERT_EQ(slice(frame, 12 + 8 * (left + i), 8), le(-1.0f - i, 1000.0f + i));
        // The closing word, after the trailer if there is an id.
        const Bytes end = c.extendedId ? cat({{0, 0, 0xB5, 0x5B}, le(*c.extendedId), Bytes(6, 0),
                                              {0xFF, 0xFE}})
                                       : Bytes{0, 0, 0xFF, 0xFE};
        EXPECT_EQ(slice(frame, c.length - end.size(), end.size()), end);
    }
    EXPECT_EQ(s.tracker.markerRequests(), std::size(cases));
}

TEST(WifiFraming, StatusFrameReportsTheLastMarkerFramesStatus) {
    Served s("127.0.0.222", defaultDescription(), kWiFi);
    MarkerFrame f;
    f.status = {-1234, 2950, 4321, 65000, 0xFF85, 0x3344, -5, 7,
                2,     0x5A, 0xA5, 0xDEADBEEF, {0, 800 * 16, 500 * 16, 500 * 16}};
    s.tracker.setMarkerFrame(f);
    // Header, temperatures -1234 and 2950, sensor values 4321 and 65000,
    // -123, 0x3344, state bytes, state word, link state, check code, trailer.
    EXPECT_EQ(s.host->request({0x0F}, 32),
              (Bytes{0xA5, 0x5A, 32,   0,    0x2E, 0xFB, 0x86, 0x0B, 0xE1, 0x10, 0xE8,
                     0xFD, 0x85, 0xFF, 0x44, 0x33, 0x5A, 0xA5, 0xEF, 0xBE, 0xAD, 0xDE,
                     2,    0,    0,    0,    0,    0,    0,    0,    0xFF, 0xFE}));
    EXPECT_EQ(s.tracker.markerRequests(), 0u) << "a status request is not a marker request";

    // The hardware check lanes become the code of the first failing check.
    const struct {
        std::array<std::uint16_t, 4> lanes;
        std::uint32_t code;
    } checks[] = {{{1, 800 * 16, 500 * 16, 500 * 16}, 7},   {{0, 699 * 16, 500 * 16, 500 * 16}, 1},
                  {{0, 1001 * 16, 500 * 16, 500 * 16}, 2},  {{0, 700 * 16, 199 * 16, 0}, 3},
                  {{0, 1000 * 16, 1001 * 16, 0}, 4},        {{0, 800 * 16, 200 * 16, 0xFFF0}, 5},
                  {{0, 800 * 16, 1000 * 16, 1001 * 16}, 6}, {{0, 700 * 16, 200 * 16, 16000}, 0}};
    for (const auto& c : checks) {
        f.status.hardwareCheckLanes = c.lanes;
        s.tracker.setMarkerFrame(f);
        EXPECT_EQ(at<std::uint32_t>(s.host->request({0x0F}, 32), 24), c.code) << c.code;
    }

    // From a source: the frame of the last marker request, else the next one.
    s.tracker.setMarkerFrameSource([](std::uint64_t index) {
        MarkerFrame m;
        m.status.temperature1Hundredths = static_cast<std::int16_t>(100 + index);
        return m;
    });
    EXPECT_EQ(at<std::int16_t>(s.host->request({0x0F}, 32), 6), 100);
    EXPECT_EQ(wifiMarkerFrame(*s.host).size(), 16u);
    EXPECT_EQ(wifiMarkerFrame(*s.host).size(), 16u);
    EXPECT_EQ(at<std::int16_t>(s.host->request({0x0F}, 32), 6), 101);
    EXPECT_EQ(s.tracker.markerRequests(), 2u);
}

TEST(WifiFraming, CommandsArriveAtTheirOwnLengthAndUncarriedOnesGetNoReply) {
    Served s("127.0.0.223", defaultDescription(), kWiFi);
    const std::vector<Bytes> silent = {
        {0x23, 5},  {0x62, 0x20, 0x03, 0x20, 0x03}, {0xF7, 1, 2, 3, 4}, {0x5A, 0x00, 0x10},
        {0x90, 127, 0, 0, 9, 0x90, 0xFE},           {0x4D},             {0x0D},
        {0x0C},     {0x63},                         {0xA0},             {0x80},
        {0xA4},     {0x04},                         {0xA8},             {0x08},
        {0xA1},     {0x01},                         {0xF5},             {0x1A}};
    sendInPieces(*s.host, silent, 3);
    EXPECT_TRUE(s.host->replyWithin({}).empty());
    ASSERT_TRUE(s.tracker.waitForCommands(silent.size(), 2000ms));
    EXPECT_EQ(s.tracker.commands(), silent);

    // A two-byte setting directly followed by a status request.
    s.tracker.clearCommands();
    EXPECT_EQ(s.host->replyWithin({0x23, 0x0F, 0x0F}).size(), 32u);
    EXPECT_EQ(s.tracker.commands(), (std::vector<Bytes>{{0x23, 0x0F}, {0x0F}}));
}

TEST(WifiFraming, EachFaultChangesOnlyItsReply) {
    Served s("127.0.0.224", defaultDescription(), kWiFi);
    MarkerFrame oneLeftPoint;
    oneLeftPoint.left = {{1, 2}};
    s.tracker.setMarkerFrame(oneLeftPoint);
    const Bytes frame = s.host->replyWithin({0x0E}), status = s.host->request({0x0F}, 32);
    ASSERT_EQ(frame.size(), 4u + 8 + 8 + 4);
    ASSERT_EQ(status.size(), 32u);
    Bytes oversized = frame, corrupt = frame, badStatus = status;
    oversized[2] = 0x10;  // 3600
    oversized[3] = 0x0E;
    corrupt[frame.size() - 2] = 0xFE;
    badStatus[30] = 0xFE;
    expectFaultReplies(s, {
        {[](FaultSettings& f) { f.wifiAnnouncedLength = 3600; }, {0x0E}, oversized},
        {[](FaultSettings& f) { f.corruptEndMark = true; }, {0x0E}, corrupt},
        {[](FaultSettings& f) { f.shortMarkerFrameBytes = 10; }, {0x0E}, slice(frame, 0, 10)},
        {[](FaultSettings& f) { f.badWifiStatusFrame = true; }, {0x0F}, badStatus},
        {[](FaultSettings& f) { f.unansweredConfigReads = 1; }, {0x0A}, {}},
        {[](FaultSettings& f) { f.noModelTextReply = true; }, {0xF8}, {}},
        {[](FaultSettings& f) { f.stopAnswering = true; }, {0x0E, 0x0F, 0x0A, 0xF8}, {}},
    });
    FaultSettings fault;
    fault.closeAfterMarkerFrames = 1;  // the status frame does not count
    s.tracker.setFaults(fault);
    EXPECT_EQ(s.host->request({0x0F}, 32).size(), 32u);
    EXPECT_EQ(s.host->request({0x0E}, frame.size()), frame);
    EXPECT_TRUE(s.host->closedByPeer());
}

}  // namespace
