// The built-in scene of the virtual tracker: a four-marker tool in front of
// the cameras, projected through the device's own compensated camera model so
// that a host reconstructs it where it is. Also the projection of a plain list
// of markers, for users who put their own markers in front of the virtual
// cameras.
#pragma once

#include "sim/DeviceDescription.h"
#include "sim/DeviceProjection.h"
#include "sim/MarkerFrame.h"
#include "sim/Scene.h"

#include <cstdint>
#include <vector>

namespace vyx::sim {

// Replaces frame.left and frame.right with the centres of points of the
// measurement frame, projected through the model a host derives from the
// description's configuration for the temperature frame.status reports
// (Temperature1). A point appears in a camera's list only when it falls
// inside that camera's image of the description's grey width and height;
// each list is in raster order (by row, then column), as a sensor reads its
// centres out, and holds at most 200 centres.
void projectMarkers(const DeviceDescription& description, const std::vector<Point3>& markers,
                    MarkerFrame& frame);

// The built-in scene: a tool of four markers whose centre sits 1.5 m straight
// ahead, turning about the viewing axis by 0.01 rad per frame (0.6 rad/s at
// 60 frames per second); default temperature, no noise, extended ids on.
Scene builtInScene();

// The built-in scene's markers at frame `frameIndex` (builtInScene().markersAt).
std::vector<Point3> sceneMarkers(std::uint64_t frameIndex);

// The frame served for marker request `requestIndex` when no other source is
// set: the built-in scene's frame `requestIndex` with frame counter
// requestIndex + 1, sent as the id byte (its low byte) and as the extended id.
// Builds the device's camera model on every call; a SceneRenderer of
// builtInScene() keeps it.
MarkerFrame sceneFrame(const DeviceDescription& description, std::uint64_t requestIndex);

}  // namespace vyx::sim
