#include "sim/Scene.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>

namespace vyx::sim {
namespace {

constexpr double kTwoPi = 6.283185307179586;

// Separate random streams per purpose, so that turning strays on does not
// change the noise of a frame.
enum class RandomStream : std::uint32_t { Noise = 1, Strays = 2 };

std::mt19937_64 frameRandom(std::uint64_t seed, std::uint64_t frameIndex, RandomStream stream) {
    std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                           static_cast<std::uint32_t>(frameIndex),
                           static_cast<std::uint32_t>(frameIndex >> 32),
                           static_cast<std::uint32_t>(stream)};
    return std::mt19937_64(sequence);
}

double norm(const Point3& p) { return std::sqrt(p.x * p.x + p.y * p.y + p.z * p.z); }

// Rodrigues' rotation of `p` by `angle` about the unit vector `k`.
Point3 rotateAbout(const Point3& p, const Point3& k, double angle) {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double dot = k.x * p.x + k.y * p.y + k.z * p.z;
    const Point3 cross{k.y * p.z - k.z * p.y, k.z * p.x - k.x * p.z, k.x * p.y - k.y * p.x};
    return {p.x * c + cross.x * s + k.x * dot * (1.0 - c),
            p.y * c + cross.y * s + k.y * dot * (1.0 - c),
            p.z * c + cross.z * s + k.z * dot * (1.0 - c)};
}

Point3 unitOf(const Point3& v) {
    const double length = norm(v);
    return {v.x / length, v.y / length, v.z / length};
}

// The fixed axis a pivot tilts its shaft about: perpendicular to the unit
// shaft direction `a`, from a x (1, 0, 0), or from a x (0, 1, 0) when `a`
// lies too close to the x axis for that cross product to be well defined.
Point3 pivotTiltAxis(const Point3& a) {
    if (std::abs(a.x) > 0.9) return unitOf({-a.z, 0.0, a.x});
    return unitOf({0.0, a.z, -a.y});
}

bool rasterOrder(const ImagePoint& a, const ImagePoint& b) {
    return a.y != b.y ? a.y < b.y : a.x < b.x;
}

std::string fixed(double value, int decimals) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(decimals) << value;
    return text.str();
}

std::string vector3(const Point3& p) {
    std::ostringstream text;
    text << "(" << p.x << ", " << p.y << ", " << p.z << ")";
    return text.str();
}

std::string describe(const Motion& motion) {
    switch (motion.kind) {
        case Motion::Kind::Still:
            return "still";
        case Motion::Kind::Translate:
            return "moving at " + vector3(motion.velocityMmPerSecond) + " mm/s";
        case Motion::Kind::Rotate: {
            std::ostringstream text;
            text << "turning " << motion.radPerSecond << " rad/s about " << vector3(motion.axis)
                 << " through " << vector3(motion.centre);
            return text.str();
        }
        case Motion::Kind::Oscillate: {
            std::ostringstream text;
            text << "swinging by " << vector3(motion.amplitudeMm) << " mm every "
                 << motion.periodSeconds << " s";
            return text.str();
        }
        case Motion::Kind::Pivot: {
            std::ostringstream text;
            text << "pivoting about " << vector3(motion.centre) << " on a cone of "
                 << motion.halfAngleRad << " rad about " << vector3(motion.axis) << " at "
                 << motion.precessionRadPerSecond << " rad/s, spinning "
                 << motion.spinRadPerSecond << " rad/s";
            return text.str();
        }
        case Motion::Kind::Steps: {
            std::ostringstream text;
            text << "stepping through " << motion.placements.size() << " placements, "
                 << motion.secondsPerStep << " s each";
            return text.str();
        }
    }
    return "";
}

std::size_t oneCameraCount(const std::vector<SceneMarker>& markers) {
    return static_cast<std::size_t>(std::count_if(
        markers.begin(), markers.end(),
        [](const SceneMarker& m) { return m.visibility != Visibility::Both; }));
}

// Index of the body that carries body `index` (the nearest earlier body of
// that name), or `index` itself when it moves on its own.
std::size_t carrierIndex(const Scene& scene, std::size_t index) {
    if (index >= scene.bodies.size())
        throw std::out_of_range("body index " + std::to_string(index) + " beyond the " +
                                std::to_string(scene.bodies.size()) + " bodies of the scene");
    const RigidBody& body = scene.bodies[index];
    if (body.attachedTo.empty()) return index;
    for (std::size_t i = index; i-- > 0;)
        if (scene.bodies[i].name == body.attachedTo) return i;
    if (body.attachedTo == body.name)
        throw std::invalid_argument("body '" + body.name + "' is attached to itself");
    throw std::invalid_argument("body '" + body.name + "' is attached to '" + body.attachedTo +
                                "', which is not an earlier body");
}

bool isFinite(const Point3& p) {
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

void checkPivot(const RigidBody& body) {
    const Motion& m = body.motion;
    if (!isFinite(m.axis) || !(norm(m.axis) > 0.0) || !isFinite(m.centre))
        throw std::invalid_argument("body '" + body.name +
                                    "' pivots about a zero or non-finite axis or point");
    if (!(m.halfAngleRad >= 0.0 && m.halfAngleRad < kTwoPi / 4.0))
        throw std::invalid_argument("body '" + body.name + "' pivots with a half-angle of " +
                                    std::to_string(m.halfAngleRad) +
                                    " rad, outside [0, pi / 2)");
    if (!std::isfinite(m.precessionRadPerSecond) || !std::isfinite(m.spinRadPerSecond))
        throw std::invalid_argument("body '" + body.name + "' pivots at a non-finite rate");
}

void checkSteps(const RigidBody& body) {
    const Motion& m = body.motion;
    if (m.placements.empty())
        throw std::invalid_argument("body '" + body.name + "' steps through no placements");
    if (!(m.secondsPerStep > 0.0) || !std::isfinite(m.secondsPerStep))
        throw std::invalid_argument("body '" + body.name +
                                    "' steps with a step time that is not positive: " +
                                    std::to_string(m.secondsPerStep));
    for (const Placement& p : m.placements)
        if (!isFinite(p.rotationVector) || !isFinite(p.translationMm))
            throw std::invalid_argument("body '" + body.name + "' has a non-finite placement");
}

void checkScene(const Scene& scene) {
    if (!(scene.frameRateHz > 0.0) || !std::isfinite(scene.frameRateHz))
        throw std::invalid_argument("scene frame rate must be positive, not " +
                                    std::to_string(scene.frameRateHz));
    if (!(scene.noiseSigmaPx >= 0.0) || !std::isfinite(scene.noiseSigmaPx))
        throw std::invalid_argument("scene noise sigma must be zero or more, not " +
                                    std::to_string(scene.noiseSigmaPx));
    for (const RigidBody& body : scene.bodies) {
        const Motion& m = body.motion;
        if (m.kind == Motion::Kind::Rotate && !(norm(m.axis) > 0.0))
            throw std::invalid_argument("body '" + body.name + "' rotates about a zero axis");
        if (m.kind == Motion::Kind::Oscillate &&
            (!(m.periodSeconds > 0.0) || !std::isfinite(m.periodSeconds)))
            throw std::invalid_argument("body '" + body.name +
                                        "' oscillates with a period that is not positive: " +
                                        std::to_string(m.periodSeconds));
        if (m.kind == Motion::Kind::Pivot) checkPivot(body);
        if (m.kind == Motion::Kind::Steps) checkSteps(body);
        if (body.kind != 'T' && body.kind != 'C')
            throw std::invalid_argument("body '" + body.name + "' has kind '" +
                                        std::string(1, body.kind) + "', not 'T' or 'C'");
        if (!(body.filePerturbationMm >= 0.0) || !std::isfinite(body.filePerturbationMm))
            throw std::invalid_argument("body '" + body.name +
                                        "' has a tool file perturbation of " +
                                        std::to_string(body.filePerturbationMm) +
                                        " mm, not zero or more");
    }
    for (std::size_t i = 0; i < scene.bodies.size(); ++i) carrierIndex(scene, i);
}

}  // namespace

Motion Motion::translate(const Point3& velocityMmPerSecond) {
    Motion motion;
    motion.kind = Kind::Translate;
    motion.velocityMmPerSecond = velocityMmPerSecond;
    return motion;
}

Motion Motion::rotate(const Point3& axis, const Point3& centre, double radPerSecond) {
    Motion motion;
    motion.kind = Kind::Rotate;
    motion.axis = axis;
    motion.centre = centre;
    motion.radPerSecond = radPerSecond;
    return motion;
}

Motion Motion::oscillate(const Point3& amplitudeMm, double periodSeconds) {
    Motion motion;
    motion.kind = Kind::Oscillate;
    motion.amplitudeMm = amplitudeMm;
    motion.periodSeconds = periodSeconds;
    return motion;
}

Motion Motion::pivot(const Point3& pivotPoint, const Point3& axis, double halfAngleRad,
                     double precessionRadPerSecond, double spinRadPerSecond) {
    Motion motion;
    motion.kind = Kind::Pivot;
    motion.centre = pivotPoint;
    motion.axis = axis;
    motion.halfAngleRad = halfAngleRad;
    motion.precessionRadPerSecond = precessionRadPerSecond;
    motion.spinRadPerSecond = spinRadPerSecond;
    return motion;
}

Motion Motion::steps(std::vector<Placement> placements, double secondsPerStep) {
    Motion motion;
    motion.kind = Kind::Steps;
    motion.placements = std::move(placements);
    motion.secondsPerStep = secondsPerStep;
    return motion;
}

Point3 Motion::at(const Point3& p, double seconds) const {
    switch (kind) {
        case Kind::Still:
            break;
        case Kind::Translate: {
            const Point3& v = velocityMmPerSecond;
            return {p.x + v.x * seconds, p.y + v.y * seconds, p.z + v.z * seconds};
        }
        case Kind::Rotate: {
            const Point3 unit = unitOf(axis);
            const double angle = std::fmod(radPerSecond * seconds, kTwoPi);
            const Point3& c = centre;
            const Point3 r = rotateAbout({p.x - c.x, p.y - c.y, p.z - c.z}, unit, angle);
            return {c.x + r.x, c.y + r.y, c.z + r.z};
        }
        case Kind::Oscillate: {
            // The phase is taken modulo one period first, so that long runs
            // keep the precision of the first swing.
            const double phase = kTwoPi * std::fmod(seconds, periodSeconds) / periodSeconds;
            const double s = std::sin(phase);
            const Point3& a = amplitudeMm;
            return {p.x + a.x * s, p.y + a.y * s, p.z + a.z * s};
        }
        case Kind::Pivot: {
            // Spin about the shaft (less the precession, which the last turn
            // adds back), tilt the shaft onto the cone, then carry the tilt
            // round to its azimuth. Angles are reduced modulo a turn so that
            // long runs keep the precision of the first turn.
            const Point3 a = unitOf(axis);
            const double azimuth = std::fmod(precessionRadPerSecond * seconds, kTwoPi);
            const double ownTurn =
                std::fmod((spinRadPerSecond - precessionRadPerSecond) * seconds, kTwoPi);
            const Point3& c = centre;
            Point3 v = rotateAbout({p.x - c.x, p.y - c.y, p.z - c.z}, a, ownTurn);
            v = rotateAbout(v, pivotTiltAxis(a), halfAngleRad);
            v = rotateAbout(v, a, azimuth);
            return {c.x + v.x, c.y + v.y, c.z + v.z};
        }
        case Kind::Steps: {
            if (placements.empty()) break;
            const double step = std::floor(seconds / secondsPerStep + 1e-9);
            const std::size_t last = placements.size() - 1;
            const Placement& placed =
                placements[step <= 0.0 ? 0
                                       : static_cast<std::size_t>(
                                             std::min(step, static_cast<double>(last)))];
            const double angle = norm(placed.rotationVector);
            const Point3 r =
                angle > 0.0 ? rotateAbout(p, unitOf(placed.rotationVector), angle) : p;
            const Point3& t = placed.translationMm;
            return {r.x + t.x, r.y + t.y, r.z + t.z};
        }
    }
    return p;
}

double Scene::timeAt(std::uint64_t frameIndex) const {
    return static_cast<double>(frameIndex) / frameRateHz;
}

Point3 Scene::bodyPointAt(std::size_t bodyIndex, const Point3& p, double seconds) const {
    Point3 q = p;
    // Carriers come earlier in the list, so the chain ends.
    for (std::size_t index = bodyIndex;;) {
        const std::size_t carrier = carrierIndex(*this, index);
        q = bodies[index].motion.at(q, seconds);
        if (carrier == index) return q;
        index = carrier;
    }
}

std::vector<SceneMarker> Scene::positionsAt(std::uint64_t frameIndex) const {
    const double seconds = timeAt(frameIndex);
    std::vector<SceneMarker> all = markers;
    for (std::size_t i = 0; i < bodies.size(); ++i)
        for (const SceneMarker& point : bodies[i].points)
            all.push_back({bodyPointAt(i, point.position, seconds), point.visibility});
    return all;
}

std::vector<Point3> Scene::markersAt(std::uint64_t frameIndex) const {
    std::vector<Point3> points;
    for (const SceneMarker& marker : positionsAt(frameIndex))
        if (marker.visibility == Visibility::Both) points.push_back(marker.position);
    return points;
}

std::int16_t Scene::temperatureHundredthsAt(std::uint64_t frameIndex) const {
    const double celsius =
        temperatureCelsius + temperatureStepPerFrame * static_cast<double>(frameIndex);
    const double hundredths = std::round(celsius * 100.0);
    if (std::isnan(hundredths)) return 0;
    return static_cast<std::int16_t>(std::clamp(hundredths, -32768.0, 32767.0));
}

std::string Scene::summary() const {
    std::ostringstream out;
    std::size_t bodyPoints = 0;
    for (const RigidBody& body : bodies) bodyPoints += body.points.size();
    out << markers.size() + bodyPoints << " markers: " << markers.size() << " still, "
        << bodyPoints << " on " << bodies.size() << (bodies.size() == 1 ? " body" : " bodies");
    std::size_t oneCamera = oneCameraCount(markers);
    for (const RigidBody& body : bodies) oneCamera += oneCameraCount(body.points);
    if (oneCamera > 0) out << ", " << oneCamera << " seen by one camera only";
    out << "\n";
    for (const RigidBody& body : bodies) {
        out << "body " << body.name << ": " << body.points.size() << " points, "
            << describe(body.motion);
        if (body.kind != 'T') out << ", kind " << body.kind;
        if (!body.attachedTo.empty()) out << ", carried by " << body.attachedTo;
        if (!body.listed) out << ", no tool file";
        if (body.filePerturbationMm != 0.0)
            out << ", tool file off by " << body.filePerturbationMm << " mm (seed "
                << body.filePerturbationSeed << ")";
        out << "\n";
    }
    out << "frame rate " << frameRateHz << " Hz\n";
    out << "noise ";
    if (noiseSigmaPx > 0.0)
        out << noiseSigmaPx << " px (seed " << noiseSeed << ")\n";
    else
        out << "none\n";
    out << "stray centres " << strayCentresPerCamera << " per camera";
    if (strayCentresPerCamera > 0) out << " (seed " << straySeed << ")";
    out << "\ntemperature " << fixed(temperatureCelsius, 2) << " degrees C";
    if (temperatureStepPerFrame != 0.0) out << ", " << temperatureStepPerFrame << " per frame";
    out << "\nextended id " << (extendedId ? "on" : "off") << ", camera values "
        << int{leftCameraValue} << " / " << int{rightCameraValue};
    return out.str();
}

SceneRenderer::SceneRenderer(const DeviceDescription& description, Scene scene)
    : scene_(std::move(scene)),
      projection_(description),
      imageWidth_(description.geometry.greyWidth),
      imageHeight_(description.geometry.greyHeight) {
    checkScene(scene_);
}

MarkerFrame SceneRenderer::frame(std::uint64_t frameIndex, std::uint32_t counter) const {
    MarkerFrame frame;
    frame.frameId = static_cast<std::uint8_t>(counter & 0xFF);
    if (scene_.extendedId) frame.extendedId = counter;
    frame.leftValue = scene_.leftCameraValue;
    frame.rightValue = scene_.rightCameraValue;
    frame.status.temperature1Hundredths = scene_.temperatureHundredthsAt(frameIndex);
    const double temperature =
        DeviceProjection::hostTemperature(frame.status.temperature1Hundredths);

    const float width = static_cast<float>(imageWidth_);
    const float height = static_cast<float>(imageHeight_);
    const auto keepInside = [&](std::vector<ImagePoint>& list, double u, double v) {
        const ImagePoint p{static_cast<float>(u), static_cast<float>(v)};
        if (p.x >= 0.0f && p.y >= 0.0f && p.x < width && p.y < height) list.push_back(p);
    };

    std::mt19937_64 noiseRandom = frameRandom(scene_.noiseSeed, frameIndex, RandomStream::Noise);
    std::normal_distribution<double> noise(0.0, 1.0);
    const auto jitter = [&]() {
        return scene_.noiseSigmaPx > 0.0 ? scene_.noiseSigmaPx * noise(noiseRandom) : 0.0;
    };
    for (const SceneMarker& marker : scene_.positionsAt(frameIndex)) {
        StereoPixels pixels;
        if (!projection_.project(marker.position, temperature, pixels)) continue;
        // Four draws per projected marker whatever its visibility, so that
        // hiding one marker from a camera leaves the others' noise alone.
        pixels.leftU += jitter();
        pixels.leftV += jitter();
        pixels.rightU += jitter();
        pixels.rightV += jitter();
        if (marker.visibility != Visibility::RightOnly)
            keepInside(frame.left, pixels.leftU, pixels.leftV);
        if (marker.visibility != Visibility::LeftOnly)
            keepInside(frame.right, pixels.rightU, pixels.rightV);
    }

    if (scene_.strayCentresPerCamera > 0) {
        std::mt19937_64 strayRandom =
            frameRandom(scene_.straySeed, frameIndex, RandomStream::Strays);
        std::uniform_real_distribution<double> across(0.0, imageWidth_);
        std::uniform_real_distribution<double> down(0.0, imageHeight_);
        for (std::vector<ImagePoint>* list : {&frame.left, &frame.right})
            for (std::size_t i = 0; i < scene_.strayCentresPerCamera; ++i) {
                const double u = across(strayRandom);
                keepInside(*list, u, down(strayRandom));
            }
    }

    for (std::vector<ImagePoint>* list : {&frame.left, &frame.right}) {
        std::sort(list->begin(), list->end(), rasterOrder);
        if (list->size() > kMaxPointsPerCamera) list->resize(kMaxPointsPerCamera);
    }
    return frame;
}

VirtualTracker::FrameSource sceneFrameSource(const DeviceDescription& description, Scene scene) {
    struct Playback {
        Playback(const DeviceDescription& d, Scene s) : renderer(d, std::move(s)) {}
        SceneRenderer renderer;
        std::mutex mutex;
        std::optional<std::uint64_t> firstIndex;
    };
    auto playback = std::make_shared<Playback>(description, std::move(scene));
    return [playback](std::uint64_t index) {
        std::uint64_t frameIndex = 0;
        {
            std::lock_guard<std::mutex> lock(playback->mutex);
            if (!playback->firstIndex) playback->firstIndex = index;
            frameIndex = index > *playback->firstIndex ? index - *playback->firstIndex : 0;
        }
        return playback->renderer.frame(frameIndex, static_cast<std::uint32_t>(frameIndex + 1));
    };
}

}  // namespace vyx::sim
