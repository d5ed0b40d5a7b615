"""ctypes declarations of the records in VyxPositionTypes.h, and their check
against the layout table that the build generates from that header."""

import ctypes
import re
from ctypes import (POINTER, Structure, c_bool, c_char, c_char_p, c_double, c_float, c_int16,
                    c_int32, c_uint8, c_uint16, c_uint32, c_uint64)

MAX_MARKERS = 200
TOOL_NAME_SIZE = 200
MODEL_TEXT_SIZE = 20
MAX_ROBOT_POSE_PAIRS = 1000


def snake_case(name):
    """MarkerNumber -> marker_number, FRE -> fre, GetRMSValue -> get_rms_value."""
    return re.sub(r"(?<=[a-z0-9])(?=[A-Z])|(?<=[A-Z])(?=[A-Z][a-z])", "_", name).lower()


class T_MarkerInfo(Structure):
    _fields_ = [
        ("ID", c_uint32),
        ("MarkerNumber", c_uint32),
        ("MarkerCoordinate", c_double * 3 * MAX_MARKERS),
        ("MarkerPairIndex", c_uint32 * MAX_MARKERS),
        ("Reserved0", c_uint32),
        ("OverLimitFlag", c_uint32),
        ("Reserved1", c_uint8 * 200),
        ("Reserved2", c_uint8 * 600),
        ("Reserved3", c_uint32 * 2),
    ]


class T_VyxPosStatusInfo(Structure):
    _fields_ = [
        ("Temperature0", c_float),
        ("Temperature1", c_float),
        ("SensorValue0", c_float),
        ("SensorValue1", c_float),
        ("SensorValue2", c_int16),
        ("SensorValue3", c_int16),
        ("StateByte0", c_uint8),
        ("StateByte1", c_uint8),
        ("StateWord0", c_uint16),
        ("StateWord1", c_uint16),
        ("LinkState", c_uint32),
        ("HardwareCheck", c_uint32),
    ]


class T_ManufactureInfo(Structure):
    _fields_ = [
        ("ManufactureYear", c_uint16),
        ("ManufactureMonth", c_uint8),
        ("ManufactureDay", c_uint8),
        ("DeviceModel", c_char * MODEL_TEXT_SIZE),
        ("DeviceModelLength", c_uint8),
    ]


class T_VYXPOS_DATAPARA(Structure):
    _fields_ = [
        ("DeviceType", c_uint32),
        ("MarkerImageWidth", c_uint32),
        ("MarkerImageHeight", c_uint32),
        ("MarkerImagePixelBytes", c_uint32),
        ("ColorImageWidth", c_uint32),
        ("ColorImageHeight", c_uint32),
        ("ColorImagePixelBytes", c_uint32),
        ("DeviceModel", c_char * MODEL_TEXT_SIZE),
    ]


class T_ToolFileData(Structure):
    _fields_ = [
        ("ToolName", c_char * TOOL_NAME_SIZE),
        ("ToolKind", c_char),
        ("MarkerCount", c_int32),
        ("MarkerPosition", c_float * 3 * MAX_MARKERS),
        ("TipSectionCount", c_int32),
        ("TipPoint", c_float * 3),
        ("TipAxisPoint", c_float * 3),
        ("Reserved", c_uint8 * 256),
    ]


class t_ToolBaseInfo(Structure):
    _fields_ = [
        ("ToolName", c_char_p),
        ("ToolKind", c_uint8),
        ("MarkerCount", c_uint8),
    ]


_TOOL_RESULT_FIELDS = [
    ("ToolType", c_int32),
    ("ValidFlag", c_uint8),
    ("ToolName", c_char * TOOL_NAME_SIZE),
    ("MeanError", c_float),
    ("ErrorSpread", c_float),
    ("RotationVector", c_float * 3),
    ("Quaternion", c_float * 4),
    ("RotationMatrix", c_float * 3 * 3),
    ("Translation", c_float * 3),
    ("OriginCoordinate", c_float * 3),
    ("TipCoordinate", c_float * 3),
    ("TipAxisCoordinate", c_float * 3),
    ("ToolTipsLocal", c_float * 6),
    ("MatchedMarkerCount", c_int32),
    ("MatchedMarkerIndex", c_int32 * MAX_MARKERS),
]


class T_VyxToolDataResult(Structure):
    pass


T_VyxToolDataResult._fields_ = _TOOL_RESULT_FIELDS + [("next", POINTER(T_VyxToolDataResult))]


class T_VyxSingleToolDataResult(Structure):
    _fields_ = _TOOL_RESULT_FIELDS


class t_ToolTipCalProInfo(Structure):
    _fields_ = [
        ("calibratorFound", c_bool),
        ("toolFound", c_bool),
        ("frameAccepted", c_bool),
        ("finished", c_bool),
        ("meanError", c_float),
        ("progress", c_float),
        ("tipDistanceStdDev", c_float),
    ]


class T_ToolTipPivotInfo(Structure):
    _fields_ = [
        ("toolFound", c_bool),
        ("finished", c_bool),
        ("progress", c_float),
        ("pivotError", c_float),
    ]


class T_ToolTipPivotQuality(Structure):
    _fields_ = [
        ("TipPoint", c_double * 3),
        ("PivotPoint", c_double * 3),
        ("RmsResidual", c_float),
        ("MaxResidual", c_float),
        ("OutlierCount", c_int32),
        ("PoseCount", c_int32),
        ("AngularSpreadDeg", c_float),
        ("ShaftSpreadDeg", c_float),
        ("SmallestSingularValue", c_float),
        ("TipPrecision", c_float),
        ("PivotPrecision", c_float),
        ("Verdict", c_int32),
    ]


class T_RobotPosePair(Structure):
    _fields_ = [
        ("FlangeInBase", c_double * 4 * 3),
        ("ToolInTracker", c_double * 4 * 3),
    ]


class T_RobotCalibrationResult(Structure):
    _fields_ = [
        ("TrackerToBase", c_double * 4 * 3),
        ("ToolToFlange", c_double * 4 * 3),
        ("RmsResidualMm", c_double),
        ("RmsResidualDeg", c_double),
        ("MaxResidualMm", c_double),
        ("MaxResidualDeg", c_double),
        ("PairCount", c_int32),
        ("WorstPairIndex", c_int32),
    ]


class t_ToolFixProInfo(Structure):
    _fields_ = [
        ("frameUsed", c_bool),
        ("frameCounted", c_bool),
        ("frameCount", c_int32),
        ("finished", c_bool),
        ("meanError", c_float),
    ]


class t_ToolMadeProInfo(Structure):
    _fields_ = [
        ("madeFlag", c_bool),
        ("progress", c_float),
        ("finished", c_bool),
        ("meanError", c_float),
    ]


class T_AccuracyToolResult(Structure):
    _fields_ = [
        ("ValidFlag", c_uint8),
        ("PointCount", c_int32),
        ("MeanError", c_float),
        ("RMSError", c_float),
        ("MaxError", c_float),
        ("PointError", c_float * MAX_MARKERS),
        ("RotationMatrix", c_float * 3 * 3),
        ("Translation", c_float * 3),
        ("Length", c_float),
        ("LengthError", c_float),
        ("CollectedCount", c_int32),
    ]


class T_RecordingInfo(Structure):
    _fields_ = [
        ("Active", c_uint32),
        ("LastError", c_int32),
        ("FramesRecorded", c_uint64),
        ("FramesDropped", c_uint64),
        ("BytesWritten", c_uint64),
    ]


RECORDS = {cls.__name__: cls for cls in (
    T_MarkerInfo, T_VyxPosStatusInfo, T_ManufactureInfo, T_VYXPOS_DATAPARA, T_ToolFileData,
    t_ToolBaseInfo, T_VyxToolDataResult, T_VyxSingleToolDataResult, t_ToolTipCalProInfo,
    T_ToolTipPivotInfo, T_ToolTipPivotQuality, T_RobotPosePair, T_RobotCalibrationResult,
    t_ToolFixProInfo, t_ToolMadeProInfo, T_AccuracyToolResult, T_RecordingInfo)}

# Scalars the prototypes take: C bool, the 32-bit enumerations, pointers.
SCALARS = {"bool": c_bool, "enum": c_int32, "pointer": ctypes.c_void_p}


def check_layout(table):
    """Compares the ctypes declarations with a layout table (the generated
    _layout module or one shaped like it). Raises ImportError naming the
    first record and field that differ, so that a header change cannot make
    the package misread memory."""
    for name, ctype in SCALARS.items():
        expected = table.SCALARS.get(name)
        if expected != ctypes.sizeof(ctype):
            raise ImportError(f"vyxposition: C {name} has {expected} bytes, ctypes "
                              f"{ctypes.sizeof(ctype)}: the package does not match its library")
    missing = set(table.RECORDS) ^ set(RECORDS)
    if missing:
        raise ImportError(f"vyxposition: records {sorted(missing)} are not in both the "
                          f"layout table and the package")
    for name, (size, fields) in table.RECORDS.items():
        cls = RECORDS[name]
        ours = [(f, getattr(cls, f).offset, getattr(cls, f).size) for f, _ in cls._fields_]
        for index in range(max(len(fields), len(ours))):
            theirs = fields[index] if index < len(fields) else None
            mine = ours[index] if index < len(ours) else None
            if theirs != mine:
                field = (theirs or mine)[0]
                raise ImportError(
                    f"vyxposition: record {name}, field {field}: the header has "
                    f"{_describe(theirs)}, the package {_describe(mine)}")
        if size != ctypes.sizeof(cls):
            raise ImportError(f"vyxposition: record {name}: the header says {size} bytes, "
                              f"the package {ctypes.sizeof(cls)}")


def _describe(field):
    if field is None:
        return "no such field"
    return f"{field[0]} at offset {field[1]}, {field[2]} bytes"
