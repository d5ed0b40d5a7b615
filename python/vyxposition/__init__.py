"""Python interface of libVyxPosition, the host library of a stereo optical
position tracker, through ctypes.

    import vyxposition as vyx
    with vyx.Tracker() as tracker:
        tracker.set_ethernet_connect_ip("127.0.0.1")
        tracker.set_ethernet_connect_port(7000)
        tracker.connect_device(vyx.Interface.ETHERNET)
        frame = tracker.get_marker_info()       # None when nothing is new
        print(frame.markers)                    # (N, 3) mm

Tracker has a method per Vyx_ function (Vyx_GetStatusInfo ->
get_status_info); result codes other than 0 and 5 raise VyxError.
"""

from . import _layout
from ._records import check_layout as _check_layout

# Before anything touches the library: the records must match its header.
_check_layout(_layout)

from .errors import MEANINGS, VyxError  # noqa: E402
from .records import (AccuracyResult, AcquireMode, DataType, DeviceInfo, Frame,  # noqa: E402
                      Interface, ManufactureInfo, PivotProgress, PivotQuality, PivotVerdict,
                      RecordingInfo, RobotCalibration, RTDirection, SelfCalibrationProgress,
                      StatusInfo, TipCalibrationProgress, ToolBaseInfo, ToolFileData,
                      ToolFixRlt, ToolMakingProgress, ToolResult)
from .tracker import Tracker, get_lib_version  # noqa: E402

__all__ = [
    "AccuracyResult", "AcquireMode", "DataType", "DeviceInfo", "Frame", "Interface",
    "MEANINGS", "ManufactureInfo", "PivotProgress", "PivotQuality", "PivotVerdict",
    "RTDirection", "RecordingInfo", "RobotCalibration", "SelfCalibrationProgress", "StatusInfo",
    "TipCalibrationProgress", "ToolBaseInfo", "ToolFileData", "ToolFixRlt",
    "ToolMakingProgress", "ToolResult", "Tracker", "VyxError", "get_lib_version",
]
