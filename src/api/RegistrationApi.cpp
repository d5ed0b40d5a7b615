// Marker-space point registration and robot hand-eye calibration.
#include "api/ApiGuard.h"

using namespace vyx::api;

namespace {
// Distance tolerance, mm, with which a host point set is matched to markers.
constexpr float kMarkerSpaceRegistrationTolerance = 1.8f;
}  // namespace

extern "C" {

VYX_API int Vyx_InitMappingPointSetsForMarkerSpaceReg(VyxHandle handle, const float (*points)[3],
                                                      int count) {
    if (points == nullptr || count < 3) return RV_FAILED;
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_InitMappingPointSetsForMarkerSpaceReg(points, count,
                                                              kMarkerSpaceRegistrationTolerance);
    });
}

VYX_API int Vyx_MappingPointSetsForMarkerSpaceReg(VyxHandle handle, T_MarkerInfo* markers,
                                                  T_VyxToolDataResult* result, int minMatch) {
    if (markers == nullptr || markers->MarkerNumber < 3) return RV_FAILED;
    return connectedCall(handle, result != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_MappingPointSetsForMarkerSpaceReg(*markers, result, minMatch);
    });
}

VYX_API int Vyx_SetRobotCalculateRlt(VyxHandle handle, const double (*first)[4],
                                     const double (*second)[4], const char* name) {
    if (name == nullptr) return RV_FAILED;
    return connectedCall(handle, first != nullptr && second != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_SetRobotCalculateRlt(first, second, name);
    });
}

VYX_API int Vyx_CalculateRobotTargetPose(VyxHandle handle, const double (*pose)[3], float* target) {
    if (target == nullptr) return RV_FAILED;
    return connectedCall(handle, pose != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalculateRobotTargetPose(pose, target);
    });
}

VYX_API int Vyx_CalculateRobotCalibration(VyxHandle handle, const T_RobotPosePair* pairs,
                                          int count, T_RobotCalibrationResult* result) {
    const bool valid = pairs != nullptr && result != nullptr && count >= 3 &&
                       count <= VYX_MAX_ROBOT_POSE_PAIRS;
    return lockedCall(handle, valid, [&](VyxPosFunc& e) {
        return e.Zelmor_CalculateRobotCalibration(pairs, count, *result);
    });
}

}  // extern "C"
