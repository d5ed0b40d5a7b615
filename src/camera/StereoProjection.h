// Projection of a reconstructed point back into both images: the inverse of
// undistortion, triangulation and depth scaling. Used to synthesise marker
// centres for tests and for the virtual tracker.
#pragma once

#include "camera/StereoCompensation.h"

// Projects a point given in the output frame of the reconstruction, with the
// depth factor already applied (X, Y, Z * zFactor, millimetres), to pixel
// coordinates in the left and right images of the working model.
//
// The depth factor is divided out first. Triangulation reports a point at
// offset P from the left camera's centre as P - T/2, T being the right
// camera's translation (the right camera's centre lies at T from the left
// one), so the point sits at Q + T/2 from the left centre and at Q - T/2
// from the right centre. Each offset is taken into its camera by the inverse
// of the camera's R (a general inverse, matching rays d = R * (x, y, 1)),
// divided by its depth, distorted with k1, k2, p1, p2, k3 and mapped through
// the camera matrix, whose last row is taken as (0, 0, 1).
//
// Returns false, leaving the outputs unchanged, when the point is not in
// front of both cameras (depth along the ray at or below zero), when the
// depth factor is zero or when a camera rotation is singular.
bool projectToImages(const double point[3], const StereoWorkingModel& model, double leftUv[2],
                     double rightUv[2]);
