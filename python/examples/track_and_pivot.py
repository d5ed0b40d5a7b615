#!/usr/bin/env python3
"""Tracks the tools of the virtual tracker's workbench scene for a few seconds,
then runs a pivot calibration of its pointer and compares the tip found with
the true one.

    track_and_pivot.py [--vyx PATH] [--address 127.0.0.1] [--port N] [--seconds S]
    track_and_pivot.py --connect ADDR:PORT --tools DIR

Without --connect it starts `vyx sim` (the program from --vyx, or from PATH)
on the loopback address and a free port, with the scene's tool files written
into a scratch directory, and stops it at the end. With --connect it uses a
virtual tracker that already runs the workbench scene, and its tool files.
Exit status: 0 when the pivot finished with a good verdict, 1 otherwise.
"""

import argparse
import contextlib
import ipaddress
import shutil
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np

import vyxposition as vyx

POINTER = "pointer"


def free_port(address):
    with socket.socket() as s:
        s.bind((address, 0))
        return s.getsockname()[1]


@contextlib.contextmanager
def virtual_tracker(vyx_command, address, port, tools):
    """Runs `vyx sim` with the workbench scene until the block ends."""
    subprocess.run([vyx_command, "sim", "--write-tools", str(tools)], check=True,
                   stdout=subprocess.DEVNULL, timeout=30)
    server = subprocess.Popen([vyx_command, "sim", "--address", address, "--port", str(port)],
                              stdout=subprocess.DEVNULL)
    try:
        yield
    finally:
        server.terminate()
        try:
            server.wait(timeout=10)
        except subprocess.TimeoutExpired:
            server.kill()
            server.wait(timeout=10)


def connect(tracker, address, port, timeout=10.0):
    """Connects over Ethernet once the tracker listens, and starts acquisition."""
    deadline = time.monotonic() + timeout
    while True:
        try:
            socket.create_connection((address, port), timeout=1.0).close()
            break
        except OSError:
            if time.monotonic() > deadline:
                raise
            time.sleep(0.1)
    tracker.set_ethernet_connect_ip(address)
    tracker.set_ethernet_connect_port(port)
    device = tracker.connect_device(vyx.Interface.ETHERNET)
    tracker.set_acquire_data(vyx.DataType.MARKER_AND_STATUS)
    return device


def next_frame(tracker, timeout=2.0):
    """The next new frame, or None when none came within the timeout."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        frame = tracker.get_marker_info()
        if frame is not None:
            return frame
        time.sleep(0.002)
    return None


def track(tracker, seconds):
    end, shown = time.monotonic() + seconds, 0.0
    while time.monotonic() < end:
        frame = next_frame(tracker)
        if frame is None or time.monotonic() - shown < 0.5:
            continue
        shown = time.monotonic()
        print(f"frame {frame.id}: {len(frame.markers)} markers")
        for tool in tracker.find_tool_info(frame):
            x, y, z = tool.tip
            print(f"  {tool.name:<10} tip {x:8.2f} {y:8.2f} {z:8.2f} mm  error {tool.error:.3f} mm")


def pivot(tracker, tools, timeout=60.0):
    """Pivot calibration of the pointer; True when it finished well."""
    true_tip = tracker.check_tool_file(Path(tools) / f"{POINTER}.vyxtool").tip_point
    tracker.init_tool_tip_pivot_with_tool_id(POINTER)
    deadline, progress = time.monotonic() + timeout, None
    while time.monotonic() < deadline and not (progress and progress.finished):
        frame = next_frame(tracker)
        if frame is None:
            continue
        try:
            progress = tracker.proceed_tool_tip_pivot(frame)
        except vyx.VyxError:
            pass  # the pointer is not in this frame
    if not (progress and progress.finished):
        print("the pivot calibration did not finish in time")
        return False
    quality = tracker.get_tool_tip_pivot_quality()
    tip = quality.tip_point
    print(f"pivot of {POINTER} over {quality.pose_count} poses, "
          f"mean residual {progress.pivot_error:.3f} mm")
    print(f"  tip      {tip[0]:8.3f} {tip[1]:8.3f} {tip[2]:8.3f} mm (tool frame)")
    print(f"  true tip {true_tip[0]:8.3f} {true_tip[1]:8.3f} {true_tip[2]:8.3f} mm; "
          f"off by {np.linalg.norm(tip - true_tip):.3f} mm")
    print(f"  verdict  {vyx.PivotVerdict(quality.verdict).name.lower()}")
    return quality.verdict == vyx.PivotVerdict.GOOD


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--vyx", default=shutil.which("vyx"), help="the vyx program")
    parser.add_argument("--address", default="127.0.0.1", help="loopback address to serve on")
    parser.add_argument("--port", type=int, help="port to serve on (default: a free one)")
    parser.add_argument("--connect", metavar="ADDR:PORT", help="a virtual tracker that runs")
    parser.add_argument("--tools", help="its tool directory (with --connect)")
    parser.add_argument("--seconds", type=float, default=3.0, help="how long to track")
    args = parser.parse_args()

    if args.connect and not args.tools:
        parser.error("--connect needs --tools")
    if not args.connect and not args.vyx:
        parser.error("no vyx program on PATH: give --vyx")
    address, _, port = args.connect.rpartition(":") if args.connect else (args.address, "", "")
    if not ipaddress.IPv4Address(address).is_loopback:
        parser.error(f"{address} is not a loopback address")

    print(vyx.get_lib_version())
    with contextlib.ExitStack() as stack:
        if args.connect:
            tools, port = args.tools, int(port)
        else:
            port = args.port or free_port(address)
            tools = stack.enter_context(tempfile.TemporaryDirectory())
            stack.enter_context(virtual_tracker(args.vyx, address, port, tools))
        tracker = stack.enter_context(vyx.Tracker())
        tracker.set_tool_info_file_path(tools)
        device = connect(tracker, address, port)
        print(f"connected to {device.device_model!r} at {address}:{port}, "
              f"tools: {', '.join(t.name for t in tracker.get_all_tool_files_base_info())}")
        track(tracker, args.seconds)
        return 0 if pivot(tracker, tools) else 1


if __name__ == "__main__":
    sys.exit(main())
