# Shared helpers: the virtual tracker (`vyx sim`) as a subprocess on a loopback
# address, and a Tracker connected to it the way the example connects.

import contextlib
import os
import subprocess
import sys
import time
from pathlib import Path

import pytest

import vyxposition as vyx

sys.path.insert(0, str(Path(__file__).parents[1] / "examples"))
import track_and_pivot as example  # noqa: E402

VYX = os.environ.get("VYX_COMMAND", "vyx")


@contextlib.contextmanager
def virtual_tracker(address, port, tools, scene=None):
    # Writes the scene's tool files into tools, serves the scene and yields a
    # Tracker connected to it with marker acquisition running.
    scene_args = ["--scene", str(scene)] if scene else []
    subprocess.run([VYX, "sim", *scene_args, "--write-tools", str(tools)], check=True,
                   stdout=subprocess.DEVNULL, timeout=30)
    server = subprocess.Popen([VYX, "sim", *scene_args, "--address", address, "--port",
                               str(port)], stdout=subprocess.DEVNULL)
    tracker = vyx.Tracker()
    try:
        tracker.set_tool_info_file_path(str(tools))
        example.connect(tracker, address, port)  # once it listens; acquisition started
        yield tracker
    finally:
        tracker.close()
        server.terminate()
        with contextlib.suppress(subprocess.TimeoutExpired):
            server.wait(timeout=10)
        server.kill()  # nothing to do once it has ended
        server.wait(timeout=10)


def wait_for(fetch, timeout=10.0):
    # The first result of fetch() that is not None, polled for at most timeout s.
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        result = fetch()
        if result is not None:
            return result
        time.sleep(0.002)
    pytest.fail(f"nothing new within {timeout} s")
