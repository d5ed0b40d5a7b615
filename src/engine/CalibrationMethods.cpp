// Calibration, accuracy-check, registration and robot operations of the
// engine that are not built yet. Each answers RV_FAILED until its procedure
// lands.
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_CalibrationToolTipInit(int, int) { return RV_FAILED; }
int VyxPosFunc::Zelmor_CalibrationToolTipInit(const char*, const char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_CalibrationToolTipInfo(T_MarkerInfo&, t_ToolTipCalProInfo&) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_SaveToolTipCalibration() { return RV_FAILED; }
int VyxPosFunc::Zelmor_CalibrationToolCoordinateRenewInit(const char*, const char*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_CalibrationToolCoordinateRenew(T_MarkerInfo&, t_ToolTipCalProInfo&) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_SaveToolCoordinateRenew() { return RV_FAILED; }
int VyxPosFunc::Zelmor_PivotToolTipInit(const char*, bool) { return RV_FAILED; }
int VyxPosFunc::Zelmor_PivotToolTipInfo(T_MarkerInfo&, T_ToolTipPivotInfo&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_SaveToolTipPivot(int) { return RV_FAILED; }
int VyxPosFunc::Zelmor_InitToolSelfCalibration(int, int&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_InitToolSelfCalibration(const char*, int&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_CalibrateToolSelf(T_MarkerInfo&, t_ToolFixProInfo&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_SaveToolSelfCalbation(E_ToolFixRlt) { return RV_FAILED; }
int VyxPosFunc::Zelmor_AccuracyCheckInitTool(const char*, const char*, const char*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_AccuracyCheckTool(double**, int, T_AccuracyToolResult&) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_CalculateToolsRt(T_MarkerInfo&, T_AccuracyToolResult&, bool) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_AccuracyCheckToolCalculateErro(float&, float&, float*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_AccuracyToolMade(double**, int) { return RV_FAILED; }
int VyxPosFunc::Zelmor_InitToolMadeInfo(int, const char*) { return RV_FAILED; }
int VyxPosFunc::Zelmor_ProceedToolMade(T_MarkerInfo&, t_ToolMadeProInfo&) { return RV_FAILED; }
int VyxPosFunc::Zelmor_SaveToolMadeRlt(bool) { return RV_FAILED; }
int VyxPosFunc::Zelmor_InitMappingPointSetsForMarkerSpaceReg(const float (*)[3], int, float) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_MappingPointSetsForMarkerSpaceReg(T_MarkerInfo&, T_VyxToolDataResult*,
                                                         int) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_SetRobotCalculateRlt(const double (*)[4], const double (*)[4],
                                            const char*) {
    return RV_FAILED;
}
int VyxPosFunc::Zelmor_CalculateRobotTargetPose(const double (*)[3], float*) { return RV_FAILED; }
