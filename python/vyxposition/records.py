"""The enumerations, and the records as Python values: a frame's markers as an
(N, 3) array, a recognised tool as a ToolResult, the other records as small
frozen dataclasses whose fields are the C fields in snake case."""

import ctypes
import dataclasses
import enum
from dataclasses import dataclass

import numpy as np

from . import _records as c


class Interface(enum.IntEnum):
    USB = 0
    ETHERNET = 1
    WIFI = 2


class DataType(enum.IntEnum):
    NONE = 0
    MARKER_AND_STATUS = 1
    MASK_BIT0 = 2
    MASK_BIT1 = 3
    GREY_IMAGES = 4
    COLOR_IMAGE = 5
    MARKER_AND_GREY = 6
    MARKER_AND_COLOR = 7
    ALL = 8


class AcquireMode(enum.IntEnum):
    FREE_RUNNING = 0
    TRIGGER1 = 1
    TRIGGER2 = 2


class RTDirection(enum.IntEnum):
    TOOL_TO_TRACKER = 0
    TRACKER_TO_TOOL = 1


class ToolFixRlt(enum.IntEnum):
    DISCARD = 0
    RETRY = 1
    SAVE = 2


class PivotVerdict(enum.IntEnum):
    GOOD = 0
    SINGULAR = 1
    TOO_LITTLE_ROTATION = 2
    RESIDUAL_TOO_HIGH = 3


def _value(value):
    if isinstance(value, bytes):
        return value.decode("utf-8", "replace")
    if isinstance(value, ctypes.Array):
        return np.ctypeslib.as_array(value).copy()
    return value


def _record_class(name, structure, doc, trims=None):
    """A frozen dataclass with the structure's fields (reserved ones left
    out) in snake case; arrays become NumPy arrays, texts str. trims: array
    field -> count field, keeping the array's first count rows."""
    names = [(c_name, c.snake_case(c_name)) for c_name, _ in structure._fields_
             if not c_name.startswith("Reserved")]
    cls = dataclasses.make_dataclass(name, [n for _, n in names], frozen=True, eq=False)
    cls.__doc__ = f"{doc} (from {structure.__name__}). Fields: " + ", ".join(n for _, n in names)
    cls.__module__ = __name__

    def from_c(struct):
        values = {py: _value(getattr(struct, c_name)) for c_name, py in names}
        for field, count in (trims or {}).items():
            values[field] = values[field][:max(values[count], 0)]
        return cls(**values)

    cls.from_c = staticmethod(from_c)
    return cls


DeviceInfo = _record_class("DeviceInfo", c.T_VYXPOS_DATAPARA,
                           "Device data parameters read at connection")
StatusInfo = _record_class("StatusInfo", c.T_VyxPosStatusInfo,
                           "Device status of the newest frame")
ManufactureInfo = _record_class("ManufactureInfo", c.T_ManufactureInfo,
                                "Manufacture record of the connected device")
ToolFileData = _record_class("ToolFileData", c.T_ToolFileData, "Content of a tool file",
                             {"marker_position": "marker_count"})
TipCalibrationProgress = _record_class("TipCalibrationProgress", c.t_ToolTipCalProInfo,
                                       "Progress of a tip calibration or coordinate renewal")
PivotProgress = _record_class("PivotProgress", c.T_ToolTipPivotInfo,
                              "Progress of a pivot calibration")
PivotQuality = _record_class("PivotQuality", c.T_ToolTipPivotQuality,
                             "Quality of the last finished pivot calibration")
RobotCalibration = _record_class("RobotCalibration", c.T_RobotCalibrationResult,
                                 "Robot hand-eye calibration")
SelfCalibrationProgress = _record_class("SelfCalibrationProgress", c.t_ToolFixProInfo,
                                        "Progress of a tool self-calibration")
ToolMakingProgress = _record_class("ToolMakingProgress", c.t_ToolMadeProInfo,
                                   "Progress of tool making")
AccuracyResult = _record_class("AccuracyResult", c.T_AccuracyToolResult,
                               "Accuracy check result", {"point_error": "point_count"})
RecordingInfo = _record_class("RecordingInfo", c.T_RecordingInfo,
                              "Figures of the running or the last recording")


@dataclass(frozen=True)
class ToolBaseInfo:
    """One tool of the tool library: name, kind (0 tool, 1 calibrator), marker count."""
    name: str
    kind: int
    marker_count: int


def as_array(value, shape, what, dtype=np.float64, max_rows=None):
    """value as a C-contiguous array of the given shape (None: any length),
    or ValueError naming what it is and what was expected."""
    try:
        array = np.ascontiguousarray(value, dtype=dtype)
    except (TypeError, ValueError) as error:
        raise ValueError(f"{what}: not an array of numbers ({error})") from None
    expected = "(" + ", ".join("N" if n is None else str(n) for n in shape) + ")"
    if array.ndim != len(shape) or any(n is not None and n != m for n, m in zip(shape, array.shape)):
        raise ValueError(f"{what}: shape {array.shape}, expected {expected}")
    if max_rows is not None and len(array) > max_rows:
        raise ValueError(f"{what}: {len(array)} rows, at most {max_rows}")
    if array.dtype.kind == "f" and not np.all(np.isfinite(array)):
        raise ValueError(f"{what}: values must be finite")
    return array


@dataclass(frozen=True, eq=False)
class Frame:
    """One marker frame: id, markers (N, 3) in mm, each marker's stereo pair
    index, and whether a camera flagged the frame as over its limit."""
    id: int
    markers: np.ndarray
    pair_index: np.ndarray
    over_limit: bool

    @staticmethod
    def from_c(m):
        n = min(m.MarkerNumber, c.MAX_MARKERS)
        return Frame(m.ID, np.ctypeslib.as_array(m.MarkerCoordinate)[:n].copy(),
                     np.ctypeslib.as_array(m.MarkerPairIndex)[:n].copy(), bool(m.OverLimitFlag))

    @staticmethod
    def of(frame):
        """A Frame as it is, or one made of an (N, 3) array of markers."""
        if isinstance(frame, Frame):
            return frame
        markers = as_array(frame, (None, 3), "markers", max_rows=c.MAX_MARKERS)
        return Frame(0, markers, np.arange(len(markers), dtype=np.uint32), False)

    def select(self, rows):
        return Frame(self.id, self.markers[rows], self.pair_index[rows], self.over_limit)

    def to_c(self):
        markers = as_array(self.markers, (None, 3), "frame markers", max_rows=c.MAX_MARKERS)
        m = c.T_MarkerInfo()
        n = len(markers)
        m.ID, m.MarkerNumber, m.OverLimitFlag = self.id, n, int(self.over_limit)
        np.ctypeslib.as_array(m.MarkerCoordinate)[:n] = markers
        np.ctypeslib.as_array(m.MarkerPairIndex)[:n] = np.asarray(self.pair_index)[:n]
        return m


@dataclass(frozen=True, eq=False)
class ToolResult:
    """One recognised tool: its pose p_tracker = R p_tool + t, tip and second
    tip-section point in tracker coordinates, quaternion (w, x, y, z),
    rotation vector, fit error (mean inter-marker distance error, mm), and
    per tool marker the index of the frame marker it matched (-1: none)."""
    name: str
    valid: bool
    kind: int
    R: np.ndarray
    t: np.ndarray
    tip: np.ndarray
    tip_axis: np.ndarray
    quaternion: np.ndarray
    rotation_vector: np.ndarray
    error: float
    error_spread: float
    tips_local: np.ndarray
    matched: np.ndarray

    @staticmethod
    def from_c(r):
        f = lambda field: np.ctypeslib.as_array(getattr(r, field)).astype(np.float64)
        count = max(0, min(r.MatchedMarkerCount, c.MAX_MARKERS))
        return ToolResult(
            r.ToolName.decode("utf-8", "replace"), bool(r.ValidFlag), r.ToolType,
            f("RotationMatrix"), f("Translation"), f("TipCoordinate"), f("TipAxisCoordinate"),
            f("Quaternion"), f("RotationVector"), float(r.MeanError), float(r.ErrorSpread),
            f("ToolTipsLocal").reshape(2, 3),
            np.ctypeslib.as_array(r.MatchedMarkerIndex)[:count].copy())

    def in_frame_of(self, reference):
        """This result re-expressed in the frame of a recognised reference tool."""
        inverse_r = reference.R.T
        local = lambda p: inverse_r @ (p - reference.t)
        rotation = inverse_r @ self.R
        quaternion = rotation_to_quaternion(rotation)
        half = np.arctan2(np.linalg.norm(quaternion[1:]), quaternion[0])
        axis = quaternion[1:] / max(np.linalg.norm(quaternion[1:]), 1e-300)
        return dataclasses.replace(self, R=rotation, t=local(self.t), tip=local(self.tip),
                                   tip_axis=local(self.tip_axis), quaternion=quaternion,
                                   rotation_vector=2.0 * half * axis)


def rotation_to_quaternion(R):
    """Unit quaternion (w, x, y, z), w >= 0, of a rotation matrix."""
    w = np.sqrt(max(0.0, 1.0 + np.trace(R))) / 2.0
    x = np.copysign(np.sqrt(max(0.0, 1.0 + R[0, 0] - R[1, 1] - R[2, 2])) / 2.0, R[2, 1] - R[1, 2])
    y = np.copysign(np.sqrt(max(0.0, 1.0 - R[0, 0] + R[1, 1] - R[2, 2])) / 2.0, R[0, 2] - R[2, 0])
    z = np.copysign(np.sqrt(max(0.0, 1.0 - R[0, 0] - R[1, 1] + R[2, 2])) / 2.0, R[1, 0] - R[0, 1])
    q = np.array([w, x, y, z])
    return q / np.linalg.norm(q)
