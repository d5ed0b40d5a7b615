"""Tracker: one engine handle of libVyxPosition, with a method per Vyx_
function."""

import dataclasses
import ipaddress
import os
import weakref
from ctypes import (POINTER, byref, c_bool, c_double, c_float, c_int, c_ubyte, c_ushort,
                    c_void_p, create_string_buffer)

import numpy as np

from . import _records as c
from ._library import lib
from .errors import VyxError
from .records import (AccuracyResult, DeviceInfo, Frame, Interface, ManufactureInfo,
                      PivotProgress, PivotQuality, RecordingInfo, RobotCalibration,
                      RTDirection, SelfCalibrationProgress, StatusInfo, TipCalibrationProgress,
                      ToolBaseInfo, ToolFileData, ToolMakingProgress, ToolResult, as_array)


def _check(function, code):
    """True on success, False for 5 (no new frame); VyxError for the rest."""
    if code == 0:
        return True
    if code == 5:
        return False
    raise VyxError(code, function)


def get_lib_version():
    """Vyx_API_GetLibVersion: the library's version text."""
    return lib.Vyx_API_GetLibVersion().decode()


def _text(value, what):
    """A name or path as the bytes of a C string."""
    if isinstance(value, os.PathLike):
        value = os.fspath(value)
    if not isinstance(value, str):
        raise TypeError(f"{what}: expected a str, not {type(value).__name__}")
    data = value.encode()
    if b"\0" in data:
        raise ValueError(f"{what}: contains a NUL character")
    return data


def _integer(value, low, high, what):
    if isinstance(value, bool) or not isinstance(value, (int, np.integer)):
        raise TypeError(f"{what}: expected an int, not {type(value).__name__}")
    if not low <= value <= high:
        raise ValueError(f"{what}: {value} is not in {low}..{high}")
    return int(value)


def _int32(value, what):
    return _integer(value, -2**31, 2**31 - 1, what)


def _address(text):
    """The four bytes of a dotted IPv4 address."""
    try:
        return tuple(ipaddress.IPv4Address(text).packed)
    except (ipaddress.AddressValueError, ValueError, TypeError):
        raise ValueError(f"not an IPv4 address: {text!r}") from None


def _rows(array, dtype):
    """Row pointers of a 2-D array, as a double** or float (*)[n] wants them."""
    return (POINTER(dtype) * len(array))(*[row.ctypes.data_as(POINTER(dtype)) for row in array])


def _close_handle(handle):
    if handle.value:
        lib.Vyx_API_Close(byref(handle))


class Tracker:
    """One tracker engine (Vyx_API_Initial). Closes itself when used as a
    context manager or collected; close() ends it at once (Vyx_API_Close).

    Methods map one to one onto the Vyx_ functions (Vyx_GetStatusInfo ->
    get_status_info). A result code other than 0 raises VyxError, except 5
    (no new frame), which returns None. Calls that address a transport take
    iface, by default the one of the last connect_device (Ethernet before).
    Frames are Frame records; wherever a frame is taken, an (N, 3) array of
    markers in mm does as well."""

    def __init__(self):
        self._handle = c_void_p()
        _check("Vyx_API_Initial", lib.Vyx_API_Initial(byref(self._handle)))
        self._finalizer = weakref.finalize(self, _close_handle, self._handle)
        self._iface = Interface.ETHERNET
        # Image buffers are sized by the last connect's geometry; until then
        # by the library's defaults.
        self._device = DeviceInfo.from_c(c.T_VYXPOS_DATAPARA(100, 1280, 720, 1, 1280, 720, 2))
        self._connected = False
        self._reference = None

    def close(self):
        """Vyx_API_Close. Later calls raise VyxError 7; closing twice does nothing."""
        if self._finalizer.detach() is not None:
            _check("Vyx_API_Close", lib.Vyx_API_Close(byref(self._handle)))

    @property
    def device(self):
        """DeviceInfo of the last successful connect_device (None before)."""
        return self._device if self._connected else None

    @property
    def closed(self):
        return not self._handle.value

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def _call(self, function, *args):
        return _check(function, getattr(lib, function)(self._handle, *args))

    def _io(self, iface):
        return int(self._iface if iface is None else Interface(iface))

    # ---- Tool library -------------------------------------------------------

    def get_tool_info_file_path(self):
        path = lib.Vyx_GetToolInfoFilePath(self._handle)
        if path is None:
            raise VyxError(7, "Vyx_GetToolInfoFilePath")
        return path.decode()

    def set_tool_info_file_path(self, path, clear_first=True):
        self._call("Vyx_SetToolInfoFilePath", _text(path, "path"), bool(clear_first))

    def add_tool_info_file(self, path):
        """Loads path + ".vyxtool" (the tool count tells whether it loaded)."""
        self._call("Vyx_AddToolInfoFile", _text(path, "path"))

    def check_tool_file(self, path):
        data = c.T_ToolFileData()
        self._call("Vyx_CheckToolFile", _text(path, "path"), byref(data))
        return ToolFileData.from_c(data)

    def get_count_of_tool_info(self):
        count = c_int()
        self._call("Vyx_GetCountOfToolInfo", byref(count))
        return count.value

    def get_all_tool_files_base_info(self):
        """The loaded tools as ToolBaseInfo, in library order ([] when none)."""
        count = self.get_count_of_tool_info()
        if count == 0:
            return []
        info = (c.t_ToolBaseInfo * count)()
        self._call("Vyx_GetAllToolFilesBaseInfo", info)
        return [ToolBaseInfo(i.ToolName.decode(), i.ToolKind, i.MarkerCount) for i in info]

    def get_specific_tool_file_info_array(self, name):
        """The named tool's marker positions, (N, 3), tool frame, mm."""
        count = c_int()
        positions = np.zeros((c.MAX_MARKERS, 3), dtype=np.float32)
        self._call("Vyx_GetSpecificToolFileInfoArray", _text(name, "name"), byref(count),
                   positions.ctypes.data_as(POINTER(c_float)))
        return positions[:max(0, min(count.value, c.MAX_MARKERS))].astype(np.float64)

    def get_specific_tool_file_info_list(self, name):
        """The named tool's marker positions as a flat list x, y, z, ... (the
        C++-only Vyx_GetSpecificToolFileInfoList, built on the array form)."""
        return self.get_specific_tool_file_info_array(name).ravel().tolist()

    def convert_rom_to_vyxtool(self, rom_path):
        self._call("Vyx_ConvertNDIrom2Vyxtool", _text(rom_path, "rom_path"))

    # ---- Connection and acquisition -----------------------------------------

    def connect_device(self, iface=Interface.ETHERNET):
        """Opens the link and returns the DeviceInfo; later calls address
        this interface by default. Set the address first."""
        para = c.T_VYXPOS_DATAPARA()
        iface = _int32(int(iface), "iface")
        self._call("Vyx_ConnectDevice", iface, byref(para))
        self._iface, self._device = iface, DeviceInfo.from_c(para)
        self._connected = True
        return self._device

    def set_acquire_mode(self, mode, *, iface=None):
        self._call("Vyx_SetAcquireMode", self._io(iface), _int32(int(mode), "mode"))

    def set_acquire_data(self, data_type, *, iface=None):
        self._call("Vyx_SetAcquireData", self._io(iface), _int32(int(data_type), "data_type"))

    def get_marker_info(self, *, iface=None):
        """The newest frame, or None when there is none new."""
        m = c.T_MarkerInfo()
        return Frame.from_c(m) if self._call("Vyx_GetMarkerInfo", self._io(iface), byref(m)) else None

    def get_status_info(self, *, iface=None):
        s = c.T_VyxPosStatusInfo()
        return StatusInfo.from_c(s) if self._call("Vyx_GetStatusInfo", self._io(iface), byref(s)) else None

    def get_marker_and_status_from_hardware(self, *, iface=None):
        """Triggered: (Frame, StatusInfo)."""
        m, s = c.T_MarkerInfo(), c.T_VyxPosStatusInfo()
        if self._call("Vyx_GetMarkerAndStatusFromHardware", self._io(iface), byref(m), byref(s)):
            return Frame.from_c(m), StatusInfo.from_c(s)
        return None

    def _grey_pair(self):
        shape = (self._device.marker_image_height, self._device.marker_image_width)
        return np.zeros(shape, np.uint8), np.zeros(shape, np.uint8)

    def _colour(self):
        d = self._device
        return np.zeros((d.color_image_height, d.color_image_width, 2), np.uint8)

    def get_marker_status_and_grey_image_from_hardware(self, *, iface=None):
        """Triggered: (Frame, StatusInfo, left, right), images (H, W) uint8."""
        m, s = c.T_MarkerInfo(), c.T_VyxPosStatusInfo()
        left, right = self._grey_pair()
        if self._call("Vyx_GetMarkerStatusAndGreyImageFromHardware", self._io(iface), byref(m),
                      byref(s), left.ctypes.data, right.ctypes.data):
            return Frame.from_c(m), StatusInfo.from_c(s), left, right
        return None

    def get_color_image_from_hardware(self, *, iface=None):
        """Triggered: the colour image, (H, W, 2) uint8, two bytes per pixel."""
        image = self._colour()
        ok = self._call("Vyx_GetColorImageFromHardware", self._io(iface), image.ctypes.data)
        return image if ok else None

    def get_grey_image_from_hardware(self, *, iface=None):
        """Triggered: (left, right), (H, W) uint8."""
        left, right = self._grey_pair()
        ok = self._call("Vyx_GetGreyImageFromHardware", self._io(iface), left.ctypes.data,
                        right.ctypes.data)
        return (left, right) if ok else None

    def get_grey_image_dual(self, *, iface=None):
        """The newest (left, right) grey images, (H, W) uint8, or None."""
        left, right = self._grey_pair()
        ok = self._call("Vyx_GetGreyImageDual", self._io(iface), left.ctypes.data,
                        right.ctypes.data)
        return (left, right) if ok else None

    def get_color_image_middle(self, *, iface=None):
        """The newest colour image, (H, W, 2) uint8, or None."""
        image = self._colour()
        ok = self._call("Vyx_GetColorImageMiddle", self._io(iface), image.ctypes.data)
        return image if ok else None

    def calculate_3d_points(self, left, right):
        """A Frame reconstructed from 2D centres, (N, 2) and (M, 2) pixels."""
        left = as_array(left, (None, 2), "left", np.float32, c.MAX_MARKERS)
        right = as_array(right, (None, 2), "right", np.float32, c.MAX_MARKERS)
        m = c.T_MarkerInfo()
        self._call("Vyx_Calculate3DPoints", left.ctypes.data_as(POINTER(c_float)), len(left),
                   right.ctypes.data_as(POINTER(c_float)), len(right), byref(m))
        return Frame.from_c(m)

    def set_coline_threshold(self, threshold, *, iface=None):
        self._call("Vyx_SetColineThreshold", self._io(iface), _int32(threshold, "threshold"))

    # ---- Device settings ----------------------------------------------------

    def get_manufacture_info(self, *, iface=None):
        info = c.T_ManufactureInfo()
        self._call("Vyx_GetManufactureInfo", self._io(iface), byref(info))
        return ManufactureInfo.from_c(info)

    def set_system_command(self, command, *, iface=None):
        self._call("Vyx_SetSystemCommand", self._io(iface), _integer(command, 0, 22, "command"))

    def set_dual_exp_time(self, exposure, *, iface=None):
        self._call("Vyx_SetDualExpTime", self._io(iface), _int32(exposure, "exposure"))

    def set_dual_exp_time_by_distance(self, distance_mm, *, iface=None):
        self._call("Vyx_SetDualExpTimeByDistance", self._io(iface),
                   _int32(distance_mm, "distance_mm"))

    def set_flash_delay(self, first_delay, second_delay, *, iface=None):
        self._call("Vyx_SetFlashDelay", self._io(iface), _int32(first_delay, "first_delay"),
                   _int32(second_delay, "second_delay"))

    def set_color_exp_time(self, exposure, *, iface=None):
        self._call("Vyx_SetColorExpTime", self._io(iface), _int32(exposure, "exposure"))

    def set_collisino_detect_level(self, level, *, iface=None):
        """Collision detection level 1..10 (the C name's spelling is kept)."""
        self._call("Vyx_SetCollisinoDetectLevel", self._io(iface), _integer(level, 0, 255, "level"))

    def set_vyx_position_ip(self, address, *, iface=None):
        """Writes the device's own IP address, "a.b.c.d"."""
        self._call("Vyx_SetVyxPositionIP", self._io(iface), *_address(address))

    def get_vyx_position_ip(self, *, iface=None):
        ip = [c_ubyte() for _ in range(4)]
        self._call("Vyx_GetVyxPositionIP", self._io(iface), *map(byref, ip))
        return ".".join(str(b.value) for b in ip)

    def set_ethernet_connect_ip(self, address):
        """Address of the next Ethernet connect, "a.b.c.d"."""
        self._call("Vyx_SetEthernetConnectIP", *_address(address))

    def get_ethernet_connect_ip(self):
        ip = [c_ubyte() for _ in range(4)]
        self._call("Vyx_GetEthernetConnectIP", *map(byref, ip))
        return ".".join(str(b.value) for b in ip)

    def set_lcd_show_raw_point(self, show, *, iface=None):
        self._call("Vyx_SetLCDShowRawPoint", self._io(iface), bool(show))

    def set_marker_parameters(self, a, b, c_, d, e, *, iface=None):
        values = [_int32(v, "marker parameter") for v in (a, b, c_, d, e)]
        self._call("Vyx_SetMarkerParameters", self._io(iface), *values)

    def get_vyx_positon_mac_address(self):
        """The device's MAC address text (the C name's spelling is kept)."""
        text = create_string_buffer(64)
        self._call("Vyx_GetVyxPositonMacAddress", text)
        return text.value.decode()

    # ---- Tool recognition ---------------------------------------------------

    def set_tool_find_offset(self, offset_mm):
        self._call("Vyx_SetToolFindOffset", float(offset_mm))

    def get_tool_find_offset(self):
        value = c_float()
        self._call("Vyx_GetToolFindOffset", byref(value))
        return value.value

    def set_tool_find_point_match_optimize_enable(self, enable):
        self._call("Vyx_SetToolFindPointMatchOptimizeEnable", bool(enable))

    def get_tool_find_point_match_optimize_enable(self):
        value = c_bool()
        self._call("Vyx_GetToolFindPointMatchOptimizeEnable", byref(value))
        return value.value

    def set_tool_find_rt_direction(self, direction):
        self._call("Vyx_SetToolFindRTDirection", _int32(int(direction), "direction"))

    def get_tool_find_rt_direction(self):
        value = c_int()
        self._call("Vyx_GetToolFindRTDirection", byref(value))
        return RTDirection(value.value)

    def find_tool_info(self, frame, min_match=0):
        """Every library tool found in the frame, as ToolResult, in library order."""
        first = c.T_VyxToolDataResult()
        self._call("Vyx_FindToolInfo", byref(Frame.of(frame).to_c()), byref(first),
                   _int32(min_match, "min_match"))
        found, record = [], first
        while True:
            if record.ValidFlag:
                found.append(ToolResult.from_c(record))
            if not record.next:
                return found
            record = record.next.contents

    def find_single_tool_info(self, frame, name, min_match=0):
        """The named tool in the frame, as a ToolResult (valid tells whether found)."""
        result = c.T_VyxSingleToolDataResult()
        self._call("Vyx_FindSingleToolInfo", byref(Frame.of(frame).to_c()), _text(name, "name"),
                   byref(result), _int32(min_match, "min_match"))
        return ToolResult.from_c(result)

    def find_specific_tool_info(self, frame, names, min_match=0):
        """The named tools found, in the order of the names, an earlier name
        winning a shared marker. Vyx_FindSpecificToolInfo takes a C++
        vector, so this searches for one name at a time with
        Vyx_FindSingleToolInfo among the markers no earlier tool took."""
        names = [names] if isinstance(names, str) else list(names)
        if not names:
            raise VyxError(-1, "Vyx_FindSpecificToolInfo")
        frame = Frame.of(frame)
        rows = np.arange(len(frame.markers))  # frame row of each remaining marker
        found = []
        for name in names:
            if len(rows) < 3:
                break
            result = self.find_single_tool_info(frame.select(rows), name, min_match)
            if not result.valid:
                continue
            taken = result.matched[result.matched >= 0]
            matched = np.where(result.matched >= 0, rows[np.maximum(result.matched, 0)], -1)
            found.append(dataclasses.replace(result, matched=matched))
            rows = np.delete(rows, taken)
        return found

    def find_tool_info_map(self, frame, names, min_match=0):
        """find_specific_tool_info keyed by tool name (Vyx_FindToolInfo_Map)."""
        return {r.name: r for r in self.find_specific_tool_info(frame, names, min_match)}

    def set_reference_tool(self, name):
        self._call("Vyx_SetReferenceTool", _text(name, "name"))
        self._reference = name

    def cancel_ref(self):
        self._call("Vyx_CancelRef")
        self._reference = None

    def get_tool_info_in_ref(self, frame, names, min_match=0):
        """find_tool_info_map with the poses in the reference tool's frame
        when the reference is in the frame (Vyx_GetToolInfoInRef takes C++
        containers; this finds the reference set through this object with
        find_single_tool_info and re-expresses the results)."""
        if self._reference is None or min_match < 0 or min_match in (1, 2):
            raise VyxError(-1, "Vyx_GetToolInfoInRef")
        frame = Frame.of(frame)
        reference = self.find_single_tool_info(frame, self._reference, min_match)
        results = self.find_tool_info_map(frame, names, min_match)
        if not reference.valid:
            return results
        return {name: r.in_frame_of(reference) for name, r in results.items()}

    # ---- Tool calibration procedures ----------------------------------------

    def _proceed(self, function, frame, structure, record):
        info = structure()
        self._call(function, byref(Frame.of(frame).to_c()), byref(info))
        return record.from_c(info)

    def init_tool_tip_calibration(self, calibrator_index, tool_index):
        self._call("Vyx_InitToolTipCalibration", _int32(calibrator_index, "calibrator_index"),
                   _int32(tool_index, "tool_index"))

    def init_tool_tip_calibration_with_tool_id(self, name1, name2):
        self._call("Vyx_InitToolTipCalibrationWithToolId", _text(name1, "name1"),
                   _text(name2, "name2"))

    def proceed_tool_tip_calibration(self, frame):
        return self._proceed("Vyx_ProceedToolTipCalibration", frame, c.t_ToolTipCalProInfo,
                             TipCalibrationProgress)

    def save_tool_tip_calibration(self):
        self._call("Vyx_SaveToolTipCalibration")

    def init_tool_coordinate_renew_with_tool_id(self, name1, name2):
        self._call("Vyx_InitToolCoordinateRenewWithToolId", _text(name1, "name1"),
                   _text(name2, "name2"))

    def proceed_tool_coordinate_renew(self, frame):
        return self._proceed("Vyx_ProceedToolCoordinateRenew", frame, c.t_ToolTipCalProInfo,
                             TipCalibrationProgress)

    def save_tool_coordinate_renew(self):
        self._call("Vyx_SaveToolCoordinateRenew")

    def init_tool_tip_pivot_with_tool_id(self, name, reset_axis=False):
        self._call("Vyx_InitToolTipPivotWithToolId", _text(name, "name"), int(bool(reset_axis)))

    def proceed_tool_tip_pivot(self, frame):
        """Adds the frame's pose; VyxError -1 when the tool is not in the frame."""
        return self._proceed("Vyx_ProceedToolTipPivot", frame, c.T_ToolTipPivotInfo,
                             PivotProgress)

    def save_tool_tip_pivot(self, mode=1):
        self._call("Vyx_SaveToolTipPivot", _int32(mode, "mode"))

    def init_tool_self_calibration(self, tool_index):
        """Returns the tool's marker count."""
        count = c_int()
        self._call("Vyx_InitToolSelfCalibration", _int32(tool_index, "tool_index"), byref(count))
        return count.value

    def init_tool_self_calibration_with_tool_id(self, name):
        """Returns the tool's marker count."""
        count = c_int()
        self._call("Vyx_InitToolSelfCalibrationWithToolId", _text(name, "name"), byref(count))
        return count.value

    def proceed_tool_self_calibration(self, frame):
        return self._proceed("Vyx_ProceedToolSelfCalibration", frame, c.t_ToolFixProInfo,
                             SelfCalibrationProgress)

    def save_tool_self_calibration(self, decision):
        self._call("Vyx_SaveToolSelfCalibration", _integer(int(decision), 0, 2, "decision"))

    def init_accuracy_check_tool(self, artefact, end_a, end_b):
        self._call("Vyx_InitAccuracyCheckTool", _text(artefact, "artefact"),
                   _text(end_a, "end_a"), _text(end_b, "end_b"))

    def accuracy_check_tool(self, points):
        """Compares measured points, (4, 3) or (8, 3) mm, with the artefact."""
        points = as_array(points, (None, 3), "points")
        if len(points) not in (4, 8):
            raise ValueError(f"points: {len(points)} rows, expected 4 or 8")
        result = c.T_AccuracyToolResult()
        self._call("Vyx_AccuracyCheckTool", _rows(points, c_double), len(points), byref(result))
        return AccuracyResult.from_c(result)

    def calculate_tool(self, frame, collect=False):
        result = c.T_AccuracyToolResult()
        self._call("Vyx_CalculateTool", byref(Frame.of(frame).to_c()), byref(result),
                   bool(collect))
        return AccuracyResult.from_c(result)

    def accuracy_check_tool_calculate_error(self):
        """(mean, largest absolute, each collected frame's signed) length error, mm."""
        mean, largest = c_float(), c_float()
        errors = np.full(c.MAX_MARKERS, np.nan, dtype=np.float32)
        self._call("Vyx_AccuracyCheckToolCalculateError", byref(mean), byref(largest),
                   errors.ctypes.data_as(POINTER(c_float)))
        collected = np.flatnonzero(np.isnan(errors))
        count = collected[0] if len(collected) else len(errors)
        return mean.value, largest.value, errors[:count].astype(np.float64)

    def accuracy_tool_made(self, points):
        """Defines the artefact from its certified points, (8, 3) mm."""
        points = as_array(points, (8, 3), "points")
        self._call("Vyx_AccuracyToolMade", _rows(points, c_double), len(points))

    def init_tool_made_info(self, marker_count, name):
        self._call("Vyx_InitToolMadeInfo", _int32(marker_count, "marker_count"),
                   _text(name, "name"))

    def proceed_tool_made(self, frame):
        return self._proceed("Vyx_ProceedToolMade", frame, c.t_ToolMadeProInfo,
                             ToolMakingProgress)

    def save_tool_made_rlt(self, save):
        self._call("Vyx_SaveToolMadeRlt", int(bool(save)))

    # ---- Registration and robot ---------------------------------------------

    def init_mapping_point_sets_for_marker_space_reg(self, points):
        """Hands over the point set to find, (N, 3) mm, N >= 3."""
        points = as_array(points, (None, 3), "points", np.float32)
        self._call("Vyx_InitMappingPointSetsForMarkerSpaceReg",
                   points.ctypes.data_as(POINTER(c_float * 3)), len(points))

    def mapping_point_sets_for_marker_space_reg(self, frame, min_match=0):
        """The point set's transform into tracker coordinates, as a ToolResult."""
        result = c.T_VyxToolDataResult()
        self._call("Vyx_MappingPointSetsForMarkerSpaceReg", byref(Frame.of(frame).to_c()),
                   byref(result), _int32(min_match, "min_match"))
        return ToolResult.from_c(result)

    def set_robot_calculate_rlt(self, tracker_to_base, tool_to_flange, name):
        """Sets the robot calibration: two [R|t], (3, 4), and the flange tool's name."""
        first = as_array(tracker_to_base, (3, 4), "tracker_to_base")
        second = as_array(tool_to_flange, (3, 4), "tool_to_flange")
        self._call("Vyx_SetRobotCalculateRlt", first.ctypes.data_as(POINTER(c_double * 4)),
                   second.ctypes.data_as(POINTER(c_double * 4)), _text(name, "name"))

    def calculate_robot_target_pose(self, pose):
        """Flange pose (x, y, z, rx, ry, rz) for target, entry and roll points, (3, 3)."""
        pose = as_array(pose, (3, 3), "pose")
        target = np.zeros(6, dtype=np.float32)
        self._call("Vyx_CalculateRobotTargetPose", pose.ctypes.data_as(POINTER(c_double * 3)),
                   target.ctypes.data_as(POINTER(c_float)))
        return target.astype(np.float64)

    # ---- Extensions ---------------------------------------------------------

    def get_tool_tip_pivot_quality(self):
        quality = c.T_ToolTipPivotQuality()
        self._call("Vyx_GetToolTipPivotQuality", byref(quality))
        return PivotQuality.from_c(quality)

    def calculate_robot_calibration(self, flange_in_base, tool_in_tracker):
        """Hand-eye calibration from N pose pairs, each (N, 3, 4) [R|t]."""
        flange = as_array(flange_in_base, (None, 3, 4), "flange_in_base")
        tool = as_array(tool_in_tracker, (len(flange), 3, 4), "tool_in_tracker")
        if len(flange) > c.MAX_ROBOT_POSE_PAIRS:
            raise ValueError(f"at most {c.MAX_ROBOT_POSE_PAIRS} pose pairs, not {len(flange)}")
        pairs = (c.T_RobotPosePair * max(len(flange), 1))()
        for pair, f, t in zip(pairs, flange, tool):
            np.ctypeslib.as_array(pair.FlangeInBase)[:] = f
            np.ctypeslib.as_array(pair.ToolInTracker)[:] = t
        result = c.T_RobotCalibrationResult()
        self._call("Vyx_CalculateRobotCalibration", pairs, len(flange), byref(result))
        return RobotCalibration.from_c(result)

    def set_ethernet_connect_port(self, port):
        self._call("Vyx_SetEthernetConnectPort", _integer(port, 0, 65535, "port"))

    def get_ethernet_connect_port(self):
        port = c_ushort()
        self._call("Vyx_GetEthernetConnectPort", byref(port))
        return port.value

    def set_wifi_connect_address(self, address, port):
        self._call("Vyx_SetWifiConnectAddress", *_address(address),
                   _integer(port, 0, 65535, "port"))

    def get_wifi_connect_address(self):
        """("a.b.c.d", port)."""
        ip, port = [c_ubyte() for _ in range(4)], c_ushort()
        self._call("Vyx_GetWifiConnectAddress", *map(byref, ip), byref(port))
        return ".".join(str(b.value) for b in ip), port.value

    def start_recording(self, path):
        self._call("Vyx_StartRecording", _text(path, "path"))

    def stop_recording(self):
        self._call("Vyx_StopRecording")

    def get_recording_info(self):
        info = c.T_RecordingInfo()
        self._call("Vyx_GetRecordingInfo", byref(info))
        return RecordingInfo.from_c(info)

