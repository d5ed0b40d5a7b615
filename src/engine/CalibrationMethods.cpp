// Calibration, accuracy-check and registration operations of the engine:
// thin glue over the procedures in src/calibration and src/tracking (the
// robot's are in RobotMethods.cpp).
// Those not built yet answer RV_FAILED until their procedure lands.
#include "engine/VyxPosFunc.h"

int VyxPosFunc::Zelmor_CalibrationToolTipInit(int calibratorIndex, int toolIndex) {
    return tipCalibration_.init(toolLibrary_, tipProgress_, calibratorIndex, toolIndex);
}

int VyxPosFunc::Zelmor_CalibrationToolTipInit(const char* name1, const char* name2) {
    return tipCalibration_.init(toolLibrary_, tipProgress_, name1, name2);
}

int VyxPosFunc::Zelmor_CalibrationToolTipInfo(T_MarkerInfo& markers, t_ToolTipCalProInfo& info) {
    return tipCalibration_.proceed(toolLibrary_, tipProgress_, markers, info,
                                   toolFindOffset_.load(std::memory_order_relaxed));
}

int VyxPosFunc::Zelmor_SaveToolTipCalibration() {
    return ToolTipCalibration::save(toolLibrary_, tipProgress_);
}

int VyxPosFunc::Zelmor_PivotToolTipInit(const char* name, bool resetAxis) {
    return pivotCalibration_.init(toolLibrary_, tipProgress_, name, resetAxis);
}

int VyxPosFunc::Zelmor_PivotToolTipInfo(T_MarkerInfo& markers, T_ToolTipPivotInfo& info) {
    const auto recognise = [&](const std::string& name, T_VyxToolDataResult& result) {
        return Zelmor_FindSpecificToolInfo(markers, {name}, &result, 0);
    };
    return pivotCalibration_.proceed(toolLibrary_, tipProgress_, recognise, info);
}

int VyxPosFunc::Zelmor_SaveToolTipPivot(int mode) {
    return PivotCalibration::save(toolLibrary_, tipProgress_, mode);
}

int VyxPosFunc::Zelmor_GetToolTipPivotQuality(T_ToolTipPivotQuality& quality) {
    return pivotCalibration_.quality(quality) ? RV_SUCCESS : RV_FAILED;
}

int VyxPosFunc::Zelmor_InitToolSelfCalibration(int toolIndex, int& markerCount) {
    return selfCalibration_.init(toolLibrary_, toolIndex, markerCount);
}

int VyxPosFunc::Zelmor_InitToolSelfCalibration(const char* name, int& markerCount) {
    return selfCalibration_.init(toolLibrary_, name, markerCount);
}

int VyxPosFunc::Zelmor_CalibrateToolSelf(T_MarkerInfo& markers, t_ToolFixProInfo& info) {
    return selfCalibration_.proceed(markers, info, toolFindOffset_.load(std::memory_order_relaxed));
}

int VyxPosFunc::Zelmor_SaveToolSelfCalbation(E_ToolFixRlt decision) {
    return selfCalibration_.save(decision);
}

int VyxPosFunc::Zelmor_InitToolMadeInfo(int markerCount, const char* name) {
    return toolMaking_.init(markerCount, name, selfCalibration_);
}

int VyxPosFunc::Zelmor_ProceedToolMade(T_MarkerInfo& markers, t_ToolMadeProInfo& info) {
    return toolMaking_.proceed(markers, info, selfCalibration_, toolLibrary_.toolInfoFilePath(),
                               toolFindOffset_.load(std::memory_order_relaxed));
}

int VyxPosFunc::Zelmor_SaveToolMadeRlt(bool save) {
    return toolMaking_.save(save, toolLibrary_, selfCalibration_);
}

int VyxPosFunc::Zelmor_CalibrationToolCoordinateRenewInit(const char* name1, const char* name2) {
    return coordinateRenewal_.init(toolLibrary_, name1, name2);
}

int VyxPosFunc::Zelmor_CalibrationToolCoordinateRenew(T_MarkerInfo& markers,
                                                      t_ToolTipCalProInfo& info) {
    return coordinateRenewal_.proceed(toolLibrary_, markers, info,
                                      toolFindOffset_.load(std::memory_order_relaxed));
}

int VyxPosFunc::Zelmor_SaveToolCoordinateRenew() { return coordinateRenewal_.save(toolLibrary_); }

int VyxPosFunc::Zelmor_AccuracyCheckInitTool(const char* artefact, const char* endA,
                                             const char* endB) {
    return accuracyCheck_.init(toolLibrary_, artefact, endA, endB);
}

int VyxPosFunc::Zelmor_AccuracyCheckTool(double** points, int count, T_AccuracyToolResult& result) {
    return accuracyCheck_.checkPoints(points, count, result);
}

int VyxPosFunc::Zelmor_CalculateToolsRt(T_MarkerInfo& markers, T_AccuracyToolResult& result,
                                        bool collect) {
    return accuracyCheck_.measureFrame(markers, result, collect,
                                       toolFindOffset_.load(std::memory_order_relaxed));
}

int VyxPosFunc::Zelmor_AccuracyCheckToolCalculateErro(float& meanError, float& maxError,
                                                      float* errors) {
    return accuracyCheck_.collectedErrors(meanError, maxError, errors);
}

int VyxPosFunc::Zelmor_AccuracyToolMade(double** points, int count) {
    return accuracyCheck_.defineArtefact(points, count);
}

int VyxPosFunc::Zelmor_InitMappingPointSetsForMarkerSpaceReg(const float (*points)[3], int count,
                                                             float tolerance) {
    return markerSpaceRegistration_.init(points, count, tolerance);
}

int VyxPosFunc::Zelmor_MappingPointSetsForMarkerSpaceReg(T_MarkerInfo& markers,
                                                         T_VyxToolDataResult* result,
                                                         int minMatch) {
    if (result == nullptr) return RV_FAILED;
    return markerSpaceRegistration_.map(markers, *result, minMatch, recognitionSettings());
}
