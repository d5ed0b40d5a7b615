"""Loads libVyxPosition and declares the prototype of every Vyx_ function."""

import ctypes
import ctypes.util
import os
from ctypes import POINTER, c_bool, c_char_p, c_double, c_float, c_int, c_ubyte, c_ushort, c_void_p
from pathlib import Path

from . import _layout
from ._records import (T_AccuracyToolResult, T_ManufactureInfo, T_MarkerInfo,
                       T_RecordingInfo, T_RobotCalibrationResult, T_RobotPosePair,
                       T_ToolFileData, T_ToolTipPivotInfo, T_ToolTipPivotQuality,
                       T_VYXPOS_DATAPARA, T_VyxPosStatusInfo, T_VyxSingleToolDataResult,
                       T_VyxToolDataResult, t_ToolBaseInfo, t_ToolFixProInfo,
                       t_ToolMadeProInfo, t_ToolTipCalProInfo, snake_case)

H = c_void_p  # VyxHandle
I = c_int     # int and the 32-bit enumerations
S = c_char_p  # const char*
B = c_bool
U8 = c_ubyte
P = POINTER
MARKERS = P(T_MarkerInfo)
IMAGE = c_void_p  # char* image buffer
IP_OUT = [P(U8)] * 4

# Vyx_ function: (result type, argument types).
PROTOTYPES = {
    "Vyx_API_GetLibVersion": (S, []),
    "Vyx_API_Initial": (I, [P(H)]),
    "Vyx_API_Close": (I, [P(H)]),
    # Tool library
    "Vyx_GetToolInfoFilePath": (S, [H]),
    "Vyx_SetToolInfoFilePath": (I, [H, S, B]),
    "Vyx_AddToolInfoFile": (I, [H, S]),
    "Vyx_CheckToolFile": (I, [H, S, P(T_ToolFileData)]),
    "Vyx_GetCountOfToolInfo": (I, [H, P(I)]),
    "Vyx_GetAllToolFilesBaseInfo": (I, [H, P(t_ToolBaseInfo)]),
    "Vyx_GetSpecificToolFileInfoArray": (I, [H, S, P(I), P(c_float)]),
    "Vyx_ConvertNDIrom2Vyxtool": (I, [H, S]),
    # Connection and acquisition
    "Vyx_ConnectDevice": (I, [H, I, P(T_VYXPOS_DATAPARA)]),
    "Vyx_SetAcquireMode": (I, [H, I, I]),
    "Vyx_SetAcquireData": (I, [H, I, I]),
    "Vyx_GetMarkerInfo": (I, [H, I, MARKERS]),
    "Vyx_GetStatusInfo": (I, [H, I, P(T_VyxPosStatusInfo)]),
    "Vyx_GetMarkerAndStatusFromHardware": (I, [H, I, MARKERS, P(T_VyxPosStatusInfo)]),
    "Vyx_GetMarkerStatusAndGreyImageFromHardware":
        (I, [H, I, MARKERS, P(T_VyxPosStatusInfo), IMAGE, IMAGE]),
    "Vyx_GetColorImageFromHardware": (I, [H, I, IMAGE]),
    "Vyx_GetGreyImageFromHardware": (I, [H, I, IMAGE, IMAGE]),
    "Vyx_GetGreyImageDual": (I, [H, I, IMAGE, IMAGE]),
    "Vyx_GetColorImageMiddle": (I, [H, I, IMAGE]),
    "Vyx_Calculate3DPoints": (I, [H, P(c_float), I, P(c_float), I, MARKERS]),
    "Vyx_SetColineThreshold": (I, [H, I, I]),
    # Device settings
    "Vyx_GetManufactureInfo": (I, [H, I, P(T_ManufactureInfo)]),
    "Vyx_SetSystemCommand": (I, [H, I, I]),
    "Vyx_SetDualExpTime": (I, [H, I, I]),
    "Vyx_SetDualExpTimeByDistance": (I, [H, I, I]),
    "Vyx_SetFlashDelay": (I, [H, I, I, I]),
    "Vyx_SetColorExpTime": (I, [H, I, I]),
    "Vyx_SetCollisinoDetectLevel": (I, [H, I, U8]),
    "Vyx_SetVyxPositionIP": (I, [H, I, U8, U8, U8, U8]),
    "Vyx_GetVyxPositionIP": (I, [H, I] + IP_OUT),
    "Vyx_SetEthernetConnectIP": (I, [H, U8, U8, U8, U8]),
    "Vyx_GetEthernetConnectIP": (I, [H] + IP_OUT),
    "Vyx_SetLCDShowRawPoint": (I, [H, I, B]),
    "Vyx_SetMarkerParameters": (I, [H, I, I, I, I, I, I]),
    "Vyx_GetVyxPositonMacAddress": (I, [H, c_char_p]),
    # Tool recognition
    "Vyx_SetToolFindOffset": (I, [H, c_float]),
    "Vyx_GetToolFindOffset": (I, [H, P(c_float)]),
    "Vyx_SetToolFindPointMatchOptimizeEnable": (I, [H, B]),
    "Vyx_GetToolFindPointMatchOptimizeEnable": (I, [H, P(B)]),
    "Vyx_SetToolFindRTDirection": (I, [H, I]),
    "Vyx_GetToolFindRTDirection": (I, [H, P(I)]),
    "Vyx_FindToolInfo": (I, [H, MARKERS, P(T_VyxToolDataResult), I]),
    "Vyx_FindSingleToolInfo": (I, [H, MARKERS, S, P(T_VyxSingleToolDataResult), I]),
    "Vyx_SetReferenceTool": (I, [H, S]),
    "Vyx_CancelRef": (I, [H]),
    # Tool calibration procedures
    "Vyx_InitToolTipCalibration": (I, [H, I, I]),
    "Vyx_InitToolTipCalibrationWithToolId": (I, [H, S, S]),
    "Vyx_ProceedToolTipCalibration": (I, [H, MARKERS, P(t_ToolTipCalProInfo)]),
    "Vyx_SaveToolTipCalibration": (I, [H]),
    "Vyx_InitToolCoordinateRenewWithToolId": (I, [H, S, S]),
    "Vyx_ProceedToolCoordinateRenew": (I, [H, MARKERS, P(t_ToolTipCalProInfo)]),
    "Vyx_SaveToolCoordinateRenew": (I, [H]),
    "Vyx_InitToolTipPivotWithToolId": (I, [H, S, I]),
    "Vyx_ProceedToolTipPivot": (I, [H, MARKERS, P(T_ToolTipPivotInfo)]),
    "Vyx_SaveToolTipPivot": (I, [H, I]),
    "Vyx_InitToolSelfCalibration": (I, [H, I, P(I)]),
    "Vyx_InitToolSelfCalibrationWithToolId": (I, [H, S, P(I)]),
    "Vyx_ProceedToolSelfCalibration": (I, [H, MARKERS, P(t_ToolFixProInfo)]),
    "Vyx_SaveToolSelfCalibration": (I, [H, I]),
    "Vyx_InitAccuracyCheckTool": (I, [H, S, S, S]),
    "Vyx_AccuracyCheckTool": (I, [H, P(P(c_double)), I, P(T_AccuracyToolResult)]),
    "Vyx_CalculateTool": (I, [H, MARKERS, P(T_AccuracyToolResult), B]),
    "Vyx_AccuracyCheckToolCalculateError": (I, [H, P(c_float), P(c_float), P(c_float)]),
    "Vyx_AccuracyToolMade": (I, [H, P(P(c_double)), I]),
    "Vyx_InitToolMadeInfo": (I, [H, I, S]),
    "Vyx_ProceedToolMade": (I, [H, MARKERS, P(t_ToolMadeProInfo)]),
    "Vyx_SaveToolMadeRlt": (I, [H, I]),
    # Registration and robot
    "Vyx_InitMappingPointSetsForMarkerSpaceReg": (I, [H, P(c_float * 3), I]),
    "Vyx_MappingPointSetsForMarkerSpaceReg": (I, [H, MARKERS, P(T_VyxToolDataResult), I]),
    "Vyx_SetRobotCalculateRlt": (I, [H, P(c_double * 4), P(c_double * 4), S]),
    "Vyx_CalculateRobotTargetPose": (I, [H, P(c_double * 3), P(c_float)]),
    # Extensions
    "Vyx_GetToolTipPivotQuality": (I, [H, P(T_ToolTipPivotQuality)]),
    "Vyx_CalculateRobotCalibration":
        (I, [H, P(T_RobotPosePair), I, P(T_RobotCalibrationResult)]),
    "Vyx_SetEthernetConnectPort": (I, [H, c_ushort]),
    "Vyx_GetEthernetConnectPort": (I, [H, P(c_ushort)]),
    "Vyx_SetWifiConnectAddress": (I, [H, U8, U8, U8, U8, c_ushort]),
    "Vyx_GetWifiConnectAddress": (I, [H] + IP_OUT + [P(c_ushort)]),
    "Vyx_StartRecording": (I, [H, S]),
    "Vyx_StopRecording": (I, [H]),
    "Vyx_GetRecordingInfo": (I, [H, P(T_RecordingInfo)]),
}

# Exported with C linkage but taking C++ containers: ctypes cannot call them,
# so the package builds each on the functions above (see Tracker).
CPP_ONLY = ("Vyx_FindSpecificToolInfo", "Vyx_FindToolInfo_Map", "Vyx_GetToolInfoInRef",
            "Vyx_GetSpecificToolFileInfoList")

# Python names that the mechanical rule (below) would get wrong or that the
# handle's lifecycle takes over.
_NAME_EXCEPTIONS = {
    "Vyx_API_Initial": "__init__",
    "Vyx_API_Close": "close",
    "Vyx_API_GetLibVersion": "get_lib_version",
    "Vyx_ConvertNDIrom2Vyxtool": "convert_rom_to_vyxtool",
    "Vyx_Calculate3DPoints": "calculate_3d_points",
    "Vyx_FindToolInfo_Map": "find_tool_info_map",
}


def python_name(c_name):
    """The Python name of a Vyx_ function: Vyx_GetStatusInfo -> get_status_info."""
    if c_name in _NAME_EXCEPTIONS:
        return _NAME_EXCEPTIONS[c_name]
    return snake_case(c_name[4:])


def _candidates():
    """Where the library is looked for, in order: $VYXPOSITION_LIBRARY alone
    when set; a copy or link next to the package (the build tree); the
    installed library directory recorded at install time; the loader path."""
    explicit = os.environ.get("VYXPOSITION_LIBRARY")
    if explicit:
        return [explicit]
    here = Path(__file__).resolve().parent
    found = [str(here / _layout.SONAME)]
    try:
        from . import _location
        found.append(str((here / _location.LIBRARY_DIR / _layout.SONAME).resolve()))
    except ImportError:
        pass
    found.append(_layout.SONAME)
    by_loader = ctypes.util.find_library("VyxPosition")
    if by_loader:
        found.append(by_loader)
    return found


def _load():
    errors = []
    for candidate in _candidates():
        if os.sep in candidate and not os.path.exists(candidate):
            continue
        try:
            return ctypes.CDLL(candidate)
        except OSError as error:
            errors.append(str(error))
    raise ImportError("vyxposition: cannot load " + _layout.SONAME + " (set VYXPOSITION_LIBRARY "
                      "to its path, or install it where the loader finds it): " +
                      ("; ".join(errors) or "not found"))


def _declare(library):
    for name, (restype, argtypes) in PROTOTYPES.items():
        try:
            function = getattr(library, name)
        except AttributeError:
            raise ImportError(f"vyxposition: {library._name} has no {name}: an older library?")
        function.restype = restype
        function.argtypes = argtypes
    return library


lib = _declare(_load())
