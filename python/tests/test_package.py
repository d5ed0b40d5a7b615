# The package without a device: layout check, coverage of the exported
# functions, installation, errors and the handle's lifecycle.

import os
import subprocess
import sys
from pathlib import Path
from types import SimpleNamespace

import numpy as np
import pytest

import vyxposition as vyx
from vyxposition import _layout, _library, _records


def mutated(record, change):
    size, fields = _layout.RECORDS[record]
    return SimpleNamespace(SCALARS=_layout.SCALARS,
                           RECORDS={**_layout.RECORDS, record: change(size, list(fields))})


@pytest.mark.parametrize("record, field, change", [
    ("T_MarkerInfo", "OverLimitFlag", lambda s, f: (s, f[:5] + [("OverLimitFlag", 5616, 4)] + f[6:])),
    ("T_VyxPosStatusInfo", "HardwareCheck", lambda s, f: (s, f[:-1] + [("HardwareCheck", 32, 2)])),
    ("T_RecordingInfo", "Extra", lambda s, f: (s + 8, f + [("Extra", s, 8)])),
    ("T_ToolTipPivotInfo", "", lambda s, f: (s + 4, f)),
])
def test_a_layout_that_differs_is_refused(record, field, change):
    with pytest.raises(ImportError, match=f"{record}.*{field}"):
        _records.check_layout(mutated(record, change))


def test_every_exported_function_has_its_python_counterpart():
    exported = Path(os.environ["VYX_EXPORTED_SYMBOLS"]).read_text().split()
    assert sorted(exported) == sorted([*_library.PROTOTYPES, *_library.CPP_ONLY])
    missing = [f for f in exported
               if not hasattr(vyx.Tracker, _library.python_name(f))
               and not hasattr(vyx, _library.python_name(f))]
    assert missing == []


def test_the_installed_package_finds_the_installed_library(tmp_path):
    build = os.environ["VYX_BUILD_DIR"]
    subprocess.run(["cmake", "--install", build, "--prefix", str(tmp_path)], check=True,
                   stdout=subprocess.DEVNULL, timeout=120)
    site = tmp_path / os.environ["VYX_PYTHON_INSTALL_DIR"]
    env = {k: v for k, v in os.environ.items() if k not in ("VYXPOSITION_LIBRARY", "PYTHONPATH")}
    shown = subprocess.run(
        [sys.executable, "-c", "import vyxposition as v; print(v._library.lib._name); "
                               "print(v.get_lib_version())"],
        env={**env, "PYTHONPATH": str(site)}, cwd=tmp_path, capture_output=True, text=True,
        check=True, timeout=60).stdout.splitlines()
    assert Path(shown[0]).resolve().is_relative_to(tmp_path.resolve())
    assert shown[1] == vyx.get_lib_version()


@pytest.mark.parametrize("setter, getter, value", [
    ("set_ethernet_connect_ip", "get_ethernet_connect_ip", "127.0.0.94"),
    ("set_ethernet_connect_port", "get_ethernet_connect_port", 19094),
    ("set_wifi_connect_address", "get_wifi_connect_address", ("127.0.0.95", 19095)),
    ("set_tool_find_offset", "get_tool_find_offset", 2.5),
    ("set_tool_find_point_match_optimize_enable", "get_tool_find_point_match_optimize_enable", False),
])
def test_settings_read_back(setter, getter, value):
    with vyx.Tracker() as tracker:
        getattr(tracker, setter)(*(value if isinstance(value, tuple) else (value,)))
        assert getattr(tracker, getter)() == value


BAD_CALLS = [  # call on an unconnected tracker, the error expected, its result code
    (lambda t: t.get_marker_info(), vyx.VyxError, 2),
    (lambda t: t.get_count_of_tool_info(), vyx.VyxError, 2),
    (lambda t: t.set_ethernet_connect_port(0), vyx.VyxError, -1),
    (lambda t: t.set_ethernet_connect_ip("300.0.0.1"), ValueError, None),
    (lambda t: t.set_ethernet_connect_port(70000), ValueError, None),
    (lambda t: t.set_collisino_detect_level(256), ValueError, None),
    (lambda t: t.find_tool_info(np.zeros((4, 2))), ValueError, None),
    (lambda t: t.find_tool_info(np.zeros((201, 3))), ValueError, None),
    (lambda t: t.calculate_3d_points([[np.nan, 0.0]], [[0.0, 0.0]]), ValueError, None),
    (lambda t: t.accuracy_tool_made(np.zeros((7, 3))), ValueError, None),
    (lambda t: t.calculate_robot_calibration(np.zeros((3, 3, 4)), np.zeros((2, 3, 4))), ValueError, None),
    (lambda t: t.add_tool_info_file(None), TypeError, None),
    (lambda t: t.find_single_tool_info(np.zeros((3, 3)), "a\0b"), ValueError, None),
]


@pytest.mark.parametrize("call, error, code", BAD_CALLS)
def test_errors_are_exceptions(call, error, code):
    with vyx.Tracker() as tracker, pytest.raises(error) as raised:
        call(tracker)
    if code is not None:
        assert (raised.value.code, raised.value.meaning) == (code, vyx.MEANINGS[code])
        assert raised.value.function.startswith("Vyx_")


def test_a_closed_tracker_answers_null_handle():
    with vyx.Tracker() as tracker:
        assert not tracker.closed
    assert tracker.closed
    tracker.close()
    with pytest.raises(vyx.VyxError) as raised:
        tracker.get_tool_find_offset()
    assert raised.value.code == 7
