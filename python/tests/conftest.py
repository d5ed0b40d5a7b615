"""Shared helpers: the virtual tracker (`vyx sim`) as a subprocess on a loopback
address, and a Tracker connected to it."""

import contextlib
import os
import socket
import subprocess
import time

import pytest

import vyxposition as vyx

VYX = os.environ.get("VYX_COMMAND", "vyx")


@contextlib.contextmanager
def virtual_tracker(address, port, tools, scene=None):
    """Writes the scene's tool files into tools, serves the scene and yields
    a Tracker connected to it with marker acquisition running."""
    scene_args = ["--scene", str(scene)] if scene else []
    subprocess.run([VYX, "sim", *scene_args, "--write-tools", str(tools)], check=True,
                   stdout=subprocess.DEVNULL, timeout=30)
    server = subprocess.Popen([VYX, "sim", *scene_args, "--address", address, "--port",
                               str(port)], stdout=subprocess.DEVNULL)
    tracker = vyx.Tracker()
    try:
        tracker.set_tool_info_file_path(str(tools))
        tracker.set_ethernet_connect_ip(address)
        tracker.set_ethernet_connect_port(port)
        wait_for(lambda: listening(address, port))
        tracker.connect_device(vyx.Interface.ETHERNET)
        tracker.set_acquire_data(vyx.DataType.MARKER_AND_STATUS)
        yield tracker
    finally:
        tracker.close()
        server.terminate()
        try:
            server.wait(timeout=10)
        except subprocess.TimeoutExpired:
            server.kill()
            server.wait(timeout=10)


def listening(address, port):
    """True when the port takes connections, else None."""
    try:
        socket.create_connection((address, port), timeout=1.0).close()
        return True
    except OSError:
        return None


def wait_for(fetch, timeout=10.0):
    """The first result of fetch() that is not None, polled for at most timeout s."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        result = fetch()
        if result is not None:
            return result
        time.sleep(0.002)
    pytest.fail(f"nothing new within {timeout} s")
