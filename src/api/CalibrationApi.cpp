// Tool calibration procedures: tip, coordinate renewal, pivot,
// self-calibration, accuracy check and tool making.
#include "api/ApiGuard.h"

using namespace vyx::api;

extern "C" {

VYX_API int Vyx_InitToolTipCalibration(VyxHandle handle, int calibratorIndex, int toolIndex) {
    return connectedCall(handle, calibratorIndex >= 0 && toolIndex >= 0, [&](VyxPosFunc& e) {
        return e.Zelmor_CalibrationToolTipInit(calibratorIndex, toolIndex);
    });
}

VYX_API int Vyx_InitToolTipCalibrationWithToolId(VyxHandle handle, const char* name1,
                                                 const char* name2) {
    return connectedCall(handle, name1 != nullptr && name2 != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalibrationToolTipInit(name1, name2);
    });
}

VYX_API int Vyx_ProceedToolTipCalibration(VyxHandle handle, T_MarkerInfo* markers,
                                          t_ToolTipCalProInfo* info) {
    return connectedCall(handle, markers != nullptr && info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalibrationToolTipInfo(*markers, *info);
    });
}

VYX_API int Vyx_SaveToolTipCalibration(VyxHandle handle) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SaveToolTipCalibration(); });
}

VYX_API int Vyx_InitToolCoordinateRenewWithToolId(VyxHandle handle, const char* name1,
                                                  const char* name2) {
    return connectedCall(handle, name1 != nullptr && name2 != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalibrationToolCoordinateRenewInit(name1, name2);
    });
}

VYX_API int Vyx_ProceedToolCoordinateRenew(VyxHandle handle, T_MarkerInfo* markers,
                                           t_ToolTipCalProInfo* info) {
    return connectedCall(handle, markers != nullptr && info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalibrationToolCoordinateRenew(*markers, *info);
    });
}

VYX_API int Vyx_SaveToolCoordinateRenew(VyxHandle handle) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SaveToolCoordinateRenew(); });
}

VYX_API int Vyx_InitToolTipPivotWithToolId(VyxHandle handle, const char* name, int resetAxis) {
    return connectedCall(handle, name != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_PivotToolTipInit(name, resetAxis != 0);
    });
}

VYX_API int Vyx_ProceedToolTipPivot(VyxHandle handle, T_MarkerInfo* markers,
                                    T_ToolTipPivotInfo* info) {
    return connectedCall(handle, markers != nullptr && info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_PivotToolTipInfo(*markers, *info);
    });
}

VYX_API int Vyx_SaveToolTipPivot(VyxHandle handle, int mode) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SaveToolTipPivot(mode); });
}

VYX_API int Vyx_GetToolTipPivotQuality(VyxHandle handle, T_ToolTipPivotQuality* quality) {
    return connectedCall(handle, quality != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_GetToolTipPivotQuality(*quality);
    });
}

VYX_API int Vyx_InitToolSelfCalibration(VyxHandle handle, int toolIndex, int* markerCount) {
    return connectedCall(handle, toolIndex >= 0 && markerCount != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_InitToolSelfCalibration(toolIndex, *markerCount);
    });
}

VYX_API int Vyx_InitToolSelfCalibrationWithToolId(VyxHandle handle, const char* name,
                                                  int* markerCount) {
    return connectedCall(handle, name != nullptr && markerCount != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_InitToolSelfCalibration(name, *markerCount);
    });
}

VYX_API int Vyx_ProceedToolSelfCalibration(VyxHandle handle, T_MarkerInfo* markers,
                                           t_ToolFixProInfo* info) {
    return connectedCall(handle, markers != nullptr && info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalibrateToolSelf(*markers, *info);
    });
}

VYX_API int Vyx_SaveToolSelfCalibration(VyxHandle handle, E_ToolFixRlt decision) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SaveToolSelfCalbation(decision); });
}

VYX_API int Vyx_InitAccuracyCheckTool(VyxHandle handle, const char* artefact, const char* endA,
                                      const char* endB) {
    if (artefact == nullptr || endA == nullptr || endB == nullptr) return RV_FAILED;
    return connectedCall(handle, [&](VyxPosFunc& e) {
        return e.Zelmor_AccuracyCheckInitTool(artefact, endA, endB);
    });
}

VYX_API int Vyx_AccuracyCheckTool(VyxHandle handle, double** points, int count,
                                  T_AccuracyToolResult* result) {
    return connectedCall(handle, result != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_AccuracyCheckTool(points, count, *result);
    });
}

VYX_API int Vyx_CalculateTool(VyxHandle handle, T_MarkerInfo* markers,
                              T_AccuracyToolResult* result, bool collect) {
    return connectedCall(handle, markers != nullptr && result != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_CalculateToolsRt(*markers, *result, collect);
    });
}

VYX_API int Vyx_AccuracyCheckToolCalculateError(VyxHandle handle, float* meanError,
                                                float* maxError, float* errors) {
    return connectedCall(handle, meanError != nullptr && maxError != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_AccuracyCheckToolCalculateErro(*meanError, *maxError, errors);
    });
}

VYX_API int Vyx_AccuracyToolMade(VyxHandle handle, double** points, int count) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_AccuracyToolMade(points, count); });
}

VYX_API int Vyx_InitToolMadeInfo(VyxHandle handle, int markerCount, const char* name) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_InitToolMadeInfo(markerCount, name); });
}

VYX_API int Vyx_ProceedToolMade(VyxHandle handle, T_MarkerInfo* markers, t_ToolMadeProInfo* info) {
    return connectedCall(handle, markers != nullptr && info != nullptr, [&](VyxPosFunc& e) {
        return e.Zelmor_ProceedToolMade(*markers, *info);
    });
}

VYX_API int Vyx_SaveToolMadeRlt(VyxHandle handle, int save) {
    return connectedCall(handle, [&](VyxPosFunc& e) { return e.Zelmor_SaveToolMadeRlt(save != 0); });
}

}  // extern "C"
