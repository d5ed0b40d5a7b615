// Robot operations of the engine: thin glue over the hand-eye calibration
// and the target pose in src/calibration.
#include "calibration/HandEyeCalibration.h"
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_SetRobotCalculateRlt(const double (*first)[4], const double (*second)[4],
                                            const char* name) {
    RobotCalibration calibration;
    if (!makeRobotCalibration(first, second, toolLibrary_, name, calibration)) return RV_FAILED;
    robotCalibration_ = calibration;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_CalculateRobotTargetPose(const double (*pose)[3], float* target) {
    if (!robotCalibration_) return RV_FAILED;
    return robotTargetPose(*robotCalibration_, pose, target) ? RV_SUCCESS : RV_FAILED;
}

int VyxPosFunc::Zelmor_CalculateRobotCalibration(const T_RobotPosePair* pairs, int count,
                                                 T_RobotCalibrationResult& result) {
    return calculateRobotCalibration(pairs, count, result);
}
