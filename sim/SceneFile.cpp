#include "sim/SceneFile.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <utility>
#include <vector>

namespace vyx::sim {
namespace {

constexpr double kLowestTemperature = -327.68;  // the status word's range
constexpr double kHighestTemperature = 327.67;
constexpr double kQuarterTurn = 1.5707963267948966;  // pi / 2

std::vector<std::string> wordsOf(const std::string& line) {
    std::istringstream in(line.substr(0, line.find('#')));
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

// One line's words, with the checks that name the line when they fail.
class Statement {
public:
    Statement(const std::string& source, std::size_t line, std::vector<std::string> words)
        : source_(source), line_(line), words_(std::move(words)) {}

    const std::string& keyword() const { return words_[0]; }
    std::size_t arguments() const { return words_.size() - 1; }
    const std::string& argument(std::size_t i) const { return words_[i]; }

    [[noreturn]] void fail(const std::string& message) const {
        throw SceneFileError(source_, line_, message);
    }

    void expectArguments(std::size_t low, std::size_t high, const char* form) const {
        if (arguments() < low || arguments() > high)
            fail("'" + keyword() + "' takes " + form + ", got " + std::to_string(arguments()) +
                 (arguments() == 1 ? " word" : " words"));
    }

    // Argument i (1-based) as a finite number.
    double number(std::size_t i) const {
        const std::string& text = words_[i];
        const char* begin = text.data() + (text.size() > 1 && text[0] == '+' ? 1 : 0);
        const char* end = text.data() + text.size();
        double value = 0.0;
        const auto [stop, error] = std::from_chars(begin, end, value);
        if (error != std::errc() || stop != end || !std::isfinite(value))
            fail("'" + text + "' is not a number");
        return value;
    }

    // Argument i as a whole number from 0 to `highest`.
    std::uint64_t whole(std::size_t i, std::uint64_t highest) const {
        const std::string& text = words_[i];
        std::uint64_t value = 0;
        const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
        if (error != std::errc() || stop != text.data() + text.size() || value > highest)
            fail("'" + text + "' is not a whole number from 0 to " + std::to_string(highest));
        return value;
    }

    Point3 point(std::size_t first) const {
        return {number(first), number(first + 1), number(first + 2)};
    }

    // Argument i, which must be one of the two words given.
    bool choice(std::size_t i, const char* yes, const char* no) const {
        if (words_[i] == yes) return true;
        if (words_[i] == no) return false;
        fail("expected '" + std::string(yes) + "' or '" + no + "' after '" + keyword() +
             "', got '" + words_[i] + "'");
    }

    // "seed N" at argument i, when present.
    std::uint64_t seedAt(std::size_t i) const {
        if (arguments() < i) return 0;
        if (words_[i] != "seed" || arguments() != i + 1)
            fail("expected 'seed N' after '" + keyword() + " " + words_[1] + "'");
        return whole(i + 1, UINT64_MAX);
    }

    // The optional camera word of a marker or point line.
    Visibility visibility() const {
        if (arguments() < 4) return Visibility::Both;
        return choice(4, "left", "right") ? Visibility::LeftOnly : Visibility::RightOnly;
    }

private:
    const std::string& source_;
    std::size_t line_;
    std::vector<std::string> words_;
};

struct BodyLines {
    std::size_t bodyLine = 0;
    std::size_t motionLine = 0;  // 0: no motion line yet
};

void applyMotion(const Statement& s, RigidBody& body) {
    if (s.arguments() < 1)
        s.fail("'motion' needs 'still', 'translate', 'rotate', 'oscillate', 'pivot' or 'steps'");
    const std::string& kind = s.argument(1);
    if (kind == "still") {
        s.expectArguments(1, 1, "nothing after 'still'");
        body.motion = Motion::still();
    } else if (kind == "translate") {
        s.expectArguments(4, 4, "'translate VX VY VZ'");
        body.motion = Motion::translate(s.point(2));
    } else if (kind == "rotate") {
        s.expectArguments(8, 8, "'rotate AX AY AZ CX CY CZ RAD_PER_SECOND'");
        const Point3 axis = s.point(2);
        if (axis.x == 0.0 && axis.y == 0.0 && axis.z == 0.0) s.fail("rotation axis is zero");
        body.motion = Motion::rotate(axis, s.point(5), s.number(8));
    } else if (kind == "oscillate") {
        s.expectArguments(5, 5, "'oscillate AX AY AZ PERIOD'");
        const double period = s.number(5);
        if (!(period > 0.0)) s.fail("oscillation period must be above 0");
        body.motion = Motion::oscillate(s.point(2), period);
    } else if (kind == "pivot") {
        s.expectArguments(10, 10,
                          "'pivot PX PY PZ AX AY AZ HALF_ANGLE_RAD PRECESSION_RAD_PER_S "
                          "SPIN_RAD_PER_S'");
        const Point3 axis = s.point(5);
        if (axis.x == 0.0 && axis.y == 0.0 && axis.z == 0.0) s.fail("pivot axis is zero");
        const double halfAngle = s.number(8);
        if (!(halfAngle >= 0.0 && halfAngle < kQuarterTurn))
            s.fail("pivot half-angle must be from 0 to below pi / 2 rad");
        body.motion = Motion::pivot(s.point(2), axis, halfAngle, s.number(9), s.number(10));
    } else if (kind == "steps") {
        s.expectArguments(2, 2, "'steps SECONDS_PER_STEP'");
        const double secondsPerStep = s.number(2);
        if (!(secondsPerStep > 0.0)) s.fail("step time must be above 0");
        body.motion = Motion::steps({}, secondsPerStep);
    } else {
        s.fail("unknown motion '" + kind +
               "' (expected still, translate, rotate, oscillate, pivot or steps)");
    }
}

void applyTemperature(const Statement& s, Scene& scene) {
    if (s.arguments() >= 1 && s.argument(1) == "ramp") {
        s.expectArguments(3, 3, "'CELSIUS' or 'ramp START STEP'");
        scene.temperatureCelsius = s.number(2);
        scene.temperatureStepPerFrame = s.number(3);
    } else {
        s.expectArguments(1, 1, "'CELSIUS' or 'ramp START STEP'");
        scene.temperatureCelsius = s.number(1);
        scene.temperatureStepPerFrame = 0.0;
    }
    if (scene.temperatureCelsius < kLowestTemperature ||
        scene.temperatureCelsius > kHighestTemperature)
        s.fail("temperature " + s.argument(s.arguments() == 1 ? 1 : 2) +
               " is outside the status range -327.68 to 327.67");
}

void apply(const Statement& s, Scene& scene, std::vector<BodyLines>& bodyLines,
           std::size_t line) {
    const std::string& keyword = s.keyword();
    const auto currentBody = [&]() -> RigidBody& {
        if (scene.bodies.empty()) s.fail("'" + keyword + "' before any 'body' line");
        return scene.bodies.back();
    };

    if (keyword == "framerate") {
        s.expectArguments(1, 1, "one number");
        scene.frameRateHz = s.number(1);
        if (!(scene.frameRateHz > 0.0)) s.fail("frame rate must be above 0");
    } else if (keyword == "marker") {
        s.expectArguments(3, 4, "'X Y Z [left|right]'");
        scene.markers.push_back({s.point(1), s.visibility()});
    } else if (keyword == "body") {
        s.expectArguments(1, 1, "one name (a single word)");
        RigidBody body;
        body.name = s.argument(1);
        scene.bodies.push_back(std::move(body));
        bodyLines.push_back({line, 0});
    } else if (keyword == "point") {
        s.expectArguments(3, 4, "'X Y Z [left|right]'");
        RigidBody& body = currentBody();
        body.points.push_back({s.point(1), s.visibility()});
    } else if (keyword == "motion") {
        RigidBody& body = currentBody();
        if (bodyLines.back().motionLine != 0)
            s.fail("body '" + body.name + "' already has a motion (line " +
                   std::to_string(bodyLines.back().motionLine) + ")");
        applyMotion(s, body);
        bodyLines.back().motionLine = line;
    } else if (keyword == "step") {
        s.expectArguments(6, 6, "'RX RY RZ TX TY TZ'");
        RigidBody& body = currentBody();
        if (body.motion.kind != Motion::Kind::Steps)
            s.fail("'step' needs a 'motion steps' line of its body before it");
        body.motion.placements.push_back({s.point(1), s.point(4)});
    } else if (keyword == "kind") {
        s.expectArguments(1, 1, "'T' or 'C'");
        currentBody().kind = s.choice(1, "T", "C") ? 'T' : 'C';
    } else if (keyword == "attach") {
        s.expectArguments(1, 1, "the name of an earlier body");
        RigidBody& body = currentBody();
        const std::string& carrier = s.argument(1);
        const bool earlier =
            std::any_of(scene.bodies.begin(), scene.bodies.end() - 1,
                        [&](const RigidBody& other) { return other.name == carrier; });
        if (!earlier)
            s.fail(carrier == body.name ? "body '" + body.name + "' cannot carry itself"
                                        : "no body '" + carrier + "' before this one");
        body.attachedTo = carrier;
    } else if (keyword == "unlisted") {
        s.expectArguments(0, 0, "nothing");
        currentBody().listed = false;
    } else if (keyword == "perturb") {
        s.expectArguments(1, 3, "'MM [seed N]'");
        RigidBody& body = currentBody();
        body.filePerturbationMm = s.number(1);
        if (body.filePerturbationMm < 0.0) s.fail("tool file perturbation must not be negative");
        body.filePerturbationSeed = s.seedAt(2);
    } else if (keyword == "tip") {
        s.expectArguments(3, 3, "'X Y Z'");
        currentBody().tip = s.point(1);
    } else if (keyword == "tipaxis") {
        s.expectArguments(3, 3, "'X Y Z'");
        currentBody().tipAxis = s.point(1);
    } else if (keyword == "noise") {
        s.expectArguments(1, 3, "'SIGMA [seed N]'");
        scene.noiseSigmaPx = s.number(1);
        if (scene.noiseSigmaPx < 0.0) s.fail("noise sigma must not be negative");
        scene.noiseSeed = s.seedAt(2);
    } else if (keyword == "stray") {
        s.expectArguments(1, 3, "'COUNT [seed N]'");
        scene.strayCentresPerCamera = static_cast<std::size_t>(s.whole(1, kMaxPointsPerCamera));
        scene.straySeed = s.seedAt(2);
    } else if (keyword == "temperature") {
        applyTemperature(s, scene);
    } else if (keyword == "extendedid") {
        s.expectArguments(1, 1, "'on' or 'off'");
        scene.extendedId = s.choice(1, "on", "off");
    } else if (keyword == "cameravalues") {
        s.expectArguments(2, 2, "'LEFT RIGHT'");
        scene.leftCameraValue = static_cast<std::uint8_t>(s.whole(1, 255));
        scene.rightCameraValue = static_cast<std::uint8_t>(s.whole(2, 255));
    } else {
        s.fail("unknown keyword '" + keyword + "'");
    }
}

// Shortest text that reads back as exactly this number.
std::string exact(double value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string exact(const Point3& p) { return exact(p.x) + " " + exact(p.y) + " " + exact(p.z); }

std::string markerLine(const char* keyword, const SceneMarker& marker) {
    std::string line = std::string(keyword) + " " + exact(marker.position);
    if (marker.visibility == Visibility::LeftOnly) line += " left";
    if (marker.visibility == Visibility::RightOnly) line += " right";
    return line + "\n";
}

std::string nameWord(const std::string& name) {
    if (name.empty()) return "body";
    std::string word = name;
    for (char& c : word)
        if (c == '#' || std::isspace(static_cast<unsigned char>(c))) c = '_';
    return word;
}

}  // namespace

SceneFileError::SceneFileError(const std::string& source, std::size_t line,
                               const std::string& message)
    : std::runtime_error(source + ":" + (line > 0 ? std::to_string(line) + ": " : " ") + message),
      line_(line) {}

Scene parseScene(std::istream& text, const std::string& source) {
    Scene scene;
    std::vector<BodyLines> bodyLines;
    std::size_t lineNumber = 0;
    for (std::string line; std::getline(text, line);) {
        ++lineNumber;
        std::vector<std::string> words = wordsOf(line);
        if (words.empty()) continue;
        apply(Statement(source, lineNumber, std::move(words)), scene, bodyLines, lineNumber);
    }
    if (text.bad()) throw SceneFileError(source, lineNumber + 1, "read error");
    for (std::size_t i = 0; i < scene.bodies.size(); ++i) {
        const RigidBody& body = scene.bodies[i];
        if (body.points.empty())
            throw SceneFileError(source, bodyLines[i].bodyLine,
                                 "body '" + body.name + "' has no 'point' lines");
        if (body.motion.kind == Motion::Kind::Steps && body.motion.placements.empty())
            throw SceneFileError(source, bodyLines[i].motionLine,
                                 "body '" + body.name + "' steps but has no 'step' lines");
    }
    return scene;
}

Scene parseScene(const std::string& text, const std::string& source) {
    std::istringstream in(text);
    return parseScene(in, source);
}

Scene loadSceneFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw SceneFileError(path, 0, "cannot open the file");
    return parseScene(file, path);
}

std::string formatScene(const Scene& scene) {
    std::string out = "framerate " + exact(scene.frameRateHz) + "\n";
    out += "noise " + exact(scene.noiseSigmaPx) + " seed " + std::to_string(scene.noiseSeed) + "\n";
    out += "stray " + std::to_string(scene.strayCentresPerCamera) + " seed " +
           std::to_string(scene.straySeed) + "\n";
    if (scene.temperatureStepPerFrame != 0.0)
        out += "temperature ramp " + exact(scene.temperatureCelsius) + " " +
               exact(scene.temperatureStepPerFrame) + "\n";
    else
        out += "temperature " + exact(scene.temperatureCelsius) + "\n";
    out += std::string("extendedid ") + (scene.extendedId ? "on" : "off") + "\n";
    out += "cameravalues " + std::to_string(scene.leftCameraValue) + " " +
           std::to_string(scene.rightCameraValue) + "\n";
    for (const SceneMarker& marker : scene.markers) out += markerLine("marker", marker);
    for (const RigidBody& body : scene.bodies) {
        out += "body " + nameWord(body.name) + "\n";
        for (const SceneMarker& point : body.points) out += markerLine("point", point);
        const Motion& m = body.motion;
        switch (m.kind) {
            case Motion::Kind::Still:
                out += "motion still\n";
                break;
            case Motion::Kind::Translate:
                out += "motion translate " + exact(m.velocityMmPerSecond) + "\n";
                break;
            case Motion::Kind::Rotate:
                out += "motion rotate " + exact(m.axis) + " " + exact(m.centre) + " " +
                       exact(m.radPerSecond) + "\n";
                break;
            case Motion::Kind::Oscillate:
                out += "motion oscillate " + exact(m.amplitudeMm) + " " + exact(m.periodSeconds) +
                       "\n";
                break;
            case Motion::Kind::Pivot:
                out += "motion pivot " + exact(m.centre) + " " + exact(m.axis) + " " +
                       exact(m.halfAngleRad) + " " + exact(m.precessionRadPerSecond) + " " +
                       exact(m.spinRadPerSecond) + "\n";
                break;
            case Motion::Kind::Steps:
                out += "motion steps " + exact(m.secondsPerStep) + "\n";
                for (const Placement& p : m.placements)
                    out += "step " + exact(p.rotationVector) + " " + exact(p.translationMm) + "\n";
                break;
        }
        if (body.kind != 'T') out += std::string("kind ") + body.kind + "\n";
        if (!body.attachedTo.empty()) out += "attach " + nameWord(body.attachedTo) + "\n";
        if (!body.listed) out += "unlisted\n";
        if (body.filePerturbationMm != 0.0 || body.filePerturbationSeed != 0)
            out += "perturb " + exact(body.filePerturbationMm) + " seed " +
                   std::to_string(body.filePerturbationSeed) + "\n";
        out += "tip " + exact(body.tip) + "\n";
        out += "tipaxis " + exact(body.tipAxis) + "\n";
    }
    return out;
}

}  // namespace vyx::sim
