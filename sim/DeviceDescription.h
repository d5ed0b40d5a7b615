// What the virtual tracker tells a host about itself: the manufacture record,
// the image geometry words and the stereo calibration that go into its
// configuration data, the model text it answers with, and the sizes of the
// images it serves.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vyx::sim {

// One camera's calibration as the configuration data stores it. Matrices are
// row-major.
struct CameraCalibration {
    // Intrinsics (fx, 0, cx; 0, fy, cy; 0, 0, 1), pixels.
    std::array<double, 9> cameraMatrix{};
    // Lens distortion k1, k2, p1, p2, k3 of the usual radial-tangential model.
    std::array<double, 5> distCoeffs{};
    // Rotation from this camera's frame to the calibration frame: a viewing
    // ray (x, y, 1) in normalised camera coordinates points along R (x, y, 1).
    std::array<double, 9> rotation{};
    // Camera centre in the calibration frame, millimetres.
    std::array<double, 3> translation{};
};

// Left and right camera of one calibration.
struct StereoCalibration {
    CameraCalibration left;
    CameraCalibration right;
};

// One row of the multi-temperature table of the long configuration form.
struct TemperatureCalibration {
    double temperature = 0.0;  // degrees Celsius
    StereoCalibration cameras;
    double depthFactor = 1.0;  // scale applied to reconstructed depth
};

// Most table rows that fit in the 7680-byte long form.
constexpr std::size_t kMaxTemperatureEntries = 15;

// The long (7680-byte) configuration form, answered to the multi-camera
// configuration request.
struct LongConfiguration {
    // Rows in ascending temperature; rows past kMaxTemperatureEntries are not
    // written.
    std::vector<TemperatureCalibration> entries;
    // Written as the table's entry count in place of the number of rows
    // written, so that a host's handling of bad counts (zero, negative, more
    // rows than fit) can be exercised. The rows themselves are still written.
    std::optional<std::int32_t> entryCountOverride;
};

struct ManufactureDate {
    std::uint16_t year = 2024;
    std::uint8_t month = 6;
    std::uint8_t day = 18;
};

// The sixteen-bit geometry words of the manufacture section. A host reads
// some or all of them depending on the model; a zero count or unit means
// "use the default" to the host and to the virtual tracker alike.
struct GeometryWords {
    std::uint16_t greyWidth = 1280;  // pixels
    std::uint16_t greyHeight = 720;
    std::uint16_t colourWidth = 1280;
    std::uint16_t colourHeight = 720;
    std::uint16_t usbGreyCount = 225;        // transfer units per USB grey block (160 when 0)
    std::uint16_t usbColourCount = 225;      // per USB colour block (225 when 0)
    std::uint16_t ethernetGreyCount = 60;    // per Ethernet grey block (32 when 0)
    std::uint16_t ethernetColourCount = 60;  // per Ethernet colour half-block (60 when 0)
    std::uint16_t transferUnit = 1024;       // bytes per transfer unit (1024 when 0)
};

// Configuration replies as a device sent them, for a replay: served byte for
// byte in place of the ones made from the description.
struct RecordedReplies {
    // The answer to the configuration read: the configuration blocks on USB
    // and Ethernet, the configuration frame on Wi-Fi.
    std::vector<std::uint8_t> configuration;
    // The long configuration form and the model text reply; absent: the
    // request gets no reply.
    std::optional<std::vector<std::uint8_t>> longForm;
    std::optional<std::vector<std::uint8_t>> modelText;
};

struct DeviceDescription {
    // Model text of the manufacture record. At most 20 bytes fit; longer text
    // is cut at 20. A host recognises the model by the code the text starts
    // with.
    std::string modelText;
    // Written to the model length byte in place of the text's length, e.g. 25
    // to check that a host clamps it to 20.
    std::optional<std::uint8_t> modelLengthOverride;
    ManufactureDate manufactured;
    GeometryWords geometry;
    // The address the device reports for itself (not used for any connection).
    std::array<std::uint8_t, 4> deviceIP{127, 0, 0, 1};

    // Bytes of one grey image (per camera) and of one colour image as served
    // block by block. They should agree with what a host derives from the
    // model and the geometry words; descriptionForModel() keeps them so.
    std::uint32_t greyImageBytes = 1280u * 720u;
    std::uint32_t colourImageBytes = 1280u * 720u * 2u;

    // Calibration stored in configuration block 1, and in block 2 (block 2
    // repeats the first set when there is no second one).
    StereoCalibration calibration1;
    std::optional<StereoCalibration> calibration2;
    // Stored in block 2: the temperatures (degrees Celsius) at which the two
    // sets were taken and their depth factors.
    double calibrationTemperature1 = 20.0;
    double calibrationTemperature2 = 40.0;
    double zFactor1 = 1.0;
    double zFactor2 = 1.0;

    // Present: the multi-camera configuration request is answered with the
    // long form carrying this table. Absent: that request gets no reply.
    std::optional<LongConfiguration> longConfiguration;

    // Whether the model text request is answered at all, and with what: the
    // given text, or the manufacture record's text when none is given. The
    // reply is always 20 bytes, zero-filled.
    bool answersModelTextRequest = true;
    std::optional<std::string> modelTextReply;

    // Set: the configuration read, the long configuration read and the model
    // text read are answered with these bytes (FaultSettings in DeviceCore.h
    // tells which faults still apply), and the fields above go only into
    // what is made from them (image sizes, the built-in scene).
    std::shared_ptr<const RecordedReplies> recordedReplies;
};

// The default model text: a model whose image sizes a host reads from the
// geometry words, so the defaults above describe it completely.
extern const char* const kDefaultModelText;

// A realistic stereo rig for grey images of the given size: fx = fy scaled
// from 1400 px at 1280 px width, principal point at the image centre, no
// distortion, the left camera at the origin with R = identity, the right
// camera 500 mm along +x and turned 0.1 rad about y towards the left one.
StereoCalibration defaultStereoCalibration(std::uint32_t imageWidth, std::uint32_t imageHeight);

// The default device: kDefaultModelText, 1280 x 720 grey and colour images,
// the default rig in both calibration sets (20 and 40 degrees, depth factors
// 1.0) and a long form with three identical rows at 20, 30 and 40 degrees.
DeviceDescription defaultDescription();

// The default device with another model text, with the image sizes, geometry
// words and calibration made to agree with how a host treats that model: the
// large-sensor models serve 2472 x 2064 grey images, the medium-sensor models
// 1236 x 1032, the others 1280 x 720.
DeviceDescription descriptionForModel(const std::string& modelText);

// Block sizes the virtual tracker serves on Ethernet, from the geometry words
// with their zero defaults.
std::uint32_t transferUnitBytes(const GeometryWords& geometry);
std::uint32_t ethernetGreyBlockBytes(const GeometryWords& geometry);
std::uint32_t ethernetColourHalfBlockBytes(const GeometryWords& geometry);
// Block sizes it serves on USB: a whole colour block, not a half-block.
std::uint32_t usbGreyBlockBytes(const GeometryWords& geometry);
std::uint32_t usbColourBlockBytes(const GeometryWords& geometry);

}  // namespace vyx::sim
