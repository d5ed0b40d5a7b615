// Scenes in front of the virtual tracker: still markers and rigid bodies with
// scripted motion, and how their frames come out of the virtual cameras.
//
// Positions are in the measurement frame a host reports markers in
// (DeviceProjection.h), millimetres. A scene is evaluated at frame indices
// 0, 1, 2, ..., frame k at time k / frameRateHz seconds.
//
// Frames: every marker is projected through the model a host derives from
// the device's configuration for the camera temperature the frame reports,
// so that a host reconstructs the marker where the scene has it, up to the
// float rounding of the centres and the noise asked for. Then, per camera:
// Gaussian noise (same sigma on u and v of both centres), the marker's
// visibility (a one-camera marker is left out of the other list), stray
// centres (uniform over the image), the image bounds (0 <= u < width,
// 0 <= v < height: a centre outside is dropped, so a point outside one image
// is seen by the other camera only), raster order (by v, then u) and the
// frame's limit of 200 centres. Nothing else is special: a point beyond a
// host's depth limit is projected like any other, and a point behind either
// camera appears in neither list. Noise and strays are drawn from their
// seeds and the frame index alone, so a frame is the same whenever and however
// often it is rendered.
//
// Scene files: SceneFile.h.
#pragma once

#include "sim/DeviceDescription.h"
#include "sim/DeviceProjection.h"
#include "sim/MarkerFrame.h"
#include "sim/VirtualTracker.h"

#include <cstdint>
#include <string>
#include <vector>

namespace vyx::sim {

// Which cameras see a marker.
enum class Visibility { Both, LeftOnly, RightOnly };

struct SceneMarker {
    Point3 position;  // for a body's point: where it is in the body's rest pose
    Visibility visibility = Visibility::Both;
};

// One placement of a Steps motion: a point p goes to R p + translationMm, R
// the rotation by |rotationVector| radians about its direction (right-handed,
// about the measurement frame's origin; the zero vector does not turn).
struct Placement {
    Point3 rotationVector;
    Point3 translationMm;
};

// Scripted motion of a rigid body over time t (seconds since frame 0).
struct Motion {
    enum class Kind { Still, Translate, Rotate, Oscillate, Pivot, Steps };
    Kind kind = Kind::Still;
    // Translate: every point moves by velocity x t.
    Point3 velocityMmPerSecond;
    // Oscillate: every point moves by amplitude x sin(2 pi t / period), back
    // and forth along the amplitude vector without turning (period > 0).
    Point3 amplitudeMm;
    double periodSeconds = 1.0;
    // Rotate: every point turns by radPerSecond x t about the axis through
    // `centre` along `axis` (right-handed; the axis need not be unit length
    // but must not be zero).
    Point3 axis{0.0, 0.0, 1.0};
    Point3 centre;
    double radPerSecond = 0.0;
    // Pivot: the body swings about the fixed point `centre`, as a tool whose
    // tip rests in a dimple. With a = axis / |axis| (the shaft's rest
    // direction, from the pivot towards the body), b the unit vector of
    // a x (1, 0, 0) (of a x (0, 1, 0) when |a.x| > 0.9), phi = precession x t
    // and psi = spin x t, a point p goes to
    //   centre + Rot(a, phi) Rot(b, halfAngle) Rot(a, psi - phi) (p - centre):
    // the shaft sweeps the cone of the half-angle about a (azimuth phi, the
    // shaft leaning towards b x a at t = 0) while the body spins about its own
    // shaft at the spin rate. The points are given in the rest pose, so at
    // time 0 the body is already tilted by the half-angle (0 <= half-angle <
    // pi / 2; the axis must not be zero).
    double halfAngleRad = 0.0;
    double precessionRadPerSecond = 0.0;
    double spinRadPerSecond = 0.0;
    // Steps: the body is put at each placement in turn, as a robot arm
    // driven from pose to pose and held at each: placement k from k x
    // secondsPerStep on (a time within 1e-9 of a step of that start counts
    // as in it, so that steps of whole frames land on their frames), the
    // last one ever after. The points are given in the rest pose, which the
    // body need not take at any time (at least one placement; secondsPerStep
    // positive and finite).
    std::vector<Placement> placements;
    double secondsPerStep = 1.0;

    static Motion still() { return {}; }
    static Motion translate(const Point3& velocityMmPerSecond);
    static Motion rotate(const Point3& axis, const Point3& centre, double radPerSecond);
    static Motion oscillate(const Point3& amplitudeMm, double periodSeconds);
    static Motion pivot(const Point3& pivotPoint, const Point3& axis, double halfAngleRad,
                        double precessionRadPerSecond, double spinRadPerSecond);
    static Motion steps(std::vector<Placement> placements, double secondsPerStep);

    // Where the motion takes a point `seconds` after frame 0: a point that
    // is at `p` at time 0 for every kind but Pivot and Steps, a point at `p`
    // in the rest pose for those two.
    Point3 at(const Point3& p, double seconds) const;
};

// A rigid body, and the tool it stands for (SceneTools.h writes its tool
// file).
//
// A body's points are given in its rest pose: where they are before any
// motion is applied, which is where they are at time 0 unless the body or a
// body carrying it pivots or steps. A body attached to another is carried
// rigidly by it: a point goes first where the body's own motion takes it,
// then where the carrying body's motion (and, in turn, that of whatever
// carries that body) takes that point. The carrying body must come earlier in
// the scene's list.
//
// Tool frame: the origin is the centroid of the body's points in the rest
// pose (all of them, whatever their visibility) and the axes are those of the
// measurement frame, so in the rest pose a tool point p is at centroid + p.
// The tip and the second tip-section point are given in that frame.
struct RigidBody {
    std::string name;
    std::vector<SceneMarker> points;
    Motion motion;
    Point3 tip{0.0, 0.0, -150.0};
    Point3 tipAxis{0.0, 0.0, -50.0};
    // 'T' a tool, 'C' a calibrator (the kind its tool file states).
    char kind = 'T';
    // Name of the body that carries this one; empty: it moves on its own.
    // With several earlier bodies of that name, the nearest one.
    std::string attachedTo;
    // Whether the body has a tool file. An unlisted body is rendered and
    // moves like any other, but writeToolFiles writes no file for it: a tool
    // the host does not know yet, as when a new tool is being made.
    bool listed = true;
    // How far its tool file is off: every point is written this many
    // millimetres from where it is in the tool frame, each in its own
    // direction drawn from filePerturbationSeed and the point's index
    // (SceneTools.h: fileMarkers), while the markers seen stay where the
    // points are. A tool whose file a self-calibration has to correct. Zero
    // or more and finite; 0 writes the true points.
    double filePerturbationMm = 0.0;
    std::uint64_t filePerturbationSeed = 0;
};

struct Scene {
    std::vector<SceneMarker> markers;  // still markers
    std::vector<RigidBody> bodies;
    // Frame k is the scene at k / frameRateHz seconds. A tracker paced at
    // the same rate plays it in real time (sceneFrameSource).
    double frameRateHz = 60.0;

    // Pixel noise: standard deviation of each centre coordinate.
    double noiseSigmaPx = 0.0;
    std::uint64_t noiseSeed = 0;
    // Random extra centres in each camera's image, per frame.
    std::size_t strayCentresPerCamera = 0;
    std::uint64_t straySeed = 0;

    // Camera temperature reported in the status (Temperature1) and
    // compensated for: temperatureCelsius + k x temperatureStepPerFrame at
    // frame k, sent in hundredths (rounded, held to the 16-bit range).
    double temperatureCelsius = 30.0;
    double temperatureStepPerFrame = 0.0;

    // Whether frames carry the extended-id mark and counter.
    bool extendedId = true;
    // The camera values of every frame; a host flags a frame as over the
    // limit above 5.
    std::uint8_t leftCameraValue = 0;
    std::uint8_t rightCameraValue = 0;

    // Seconds from frame 0 to frame `frameIndex`.
    double timeAt(std::uint64_t frameIndex) const;
    // Where a point of body `bodyIndex`, at `p` in the body's rest pose, is
    // `seconds` after frame 0: the body's own motion, then those of the
    // bodies carrying it. Throws std::out_of_range for a body index beyond
    // the bodies and std::invalid_argument when the body (or one carrying
    // it) is attached to a name no earlier body has.
    Point3 bodyPointAt(std::size_t bodyIndex, const Point3& p, double seconds) const;
    // Every marker at that frame: the still markers, then the points of each
    // body, in the order given.
    std::vector<SceneMarker> positionsAt(std::uint64_t frameIndex) const;
    // The points a host should reconstruct from that frame, in the order of
    // positionsAt(): every marker seen by both cameras. A marker that lands
    // outside either image, behind the 200 centres of a crowded image or
    // beyond a host's depth limit is still listed; such scenes are for
    // testing those limits.
    std::vector<Point3> markersAt(std::uint64_t frameIndex) const;
    // Temperature1 of that frame's status, hundredths of a degree.
    std::int16_t temperatureHundredthsAt(std::uint64_t frameIndex) const;

    // Human-readable description, one line per item, for logs.
    std::string summary() const;
};

// Renders a scene's frames through one device's cameras.
class SceneRenderer {
public:
    // Throws std::invalid_argument for a frame rate that is not positive and
    // finite, a negative or non-finite noise sigma, a rotation about a zero
    // axis, an oscillation whose period is not positive and finite, a pivot
    // about a zero or non-finite axis, with a half-angle outside [0, pi / 2)
    // or a rate that is not finite, a steps motion without placements, with
    // a step time that is not positive and finite or a placement that is
    // not finite, a body kind other than 'T' and 'C', a
    // tool file perturbation that is negative or not finite, or a body
    // attached to itself or to a name no earlier body has.
    SceneRenderer(const DeviceDescription& description, Scene scene);

    const Scene& scene() const { return scene_; }

    // The frame at `frameIndex`, carrying `counter` as its frame id (the
    // low byte) and, when the scene has them on, as its extended id; in
    // images of the description's grey width and height.
    MarkerFrame frame(std::uint64_t frameIndex, std::uint32_t counter) const;

private:
    Scene scene_;
    DeviceProjection projection_;
    std::uint32_t imageWidth_;
    std::uint32_t imageHeight_;
};

// A source for VirtualTracker::setMarkerFrameSource that plays the scene
// through the description's cameras. Asked for index i, it renders frame
// i - i0 with counter i - i0 + 1, i0 being the index of its first call (an
// index below i0 gets frame 0): so the first request it answers gets frame 0
// with counter 1 whatever the tracker's own request count, consecutive
// requests of an unpaced tracker get consecutive frames, the same index gets
// the same frame again, and a paced tracker (VirtualTracker::setFrameRate)
// skips the frames that fall between its requests, as a device does. Frame
// k shows the scene at k / scene.frameRateHz seconds: for real-time playback
// set scene.frameRateHz to the rate the tracker is paced with. Throws as
// SceneRenderer.
VirtualTracker::FrameSource sceneFrameSource(const DeviceDescription& description, Scene scene);

}  // namespace vyx::sim
