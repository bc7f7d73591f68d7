"""Shared set-up of the Python package tests: the package from python/ of this checkout, the
library and etsi-convert from the build folder (ETSI_V2X_LIB, ETSI_CONVERT, set by ctest)."""

import os
import sys

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PACKAGE_DIR = os.path.join(ROOT, "python")
if PACKAGE_DIR not in sys.path:
    sys.path.insert(0, PACKAGE_DIR)
# Subprocesses and Dask worker processes import the package too.
os.environ["PYTHONPATH"] = os.pathsep.join(
    p for p in (PACKAGE_DIR, os.environ.get("PYTHONPATH")) if p)
if "ETSI_V2X_LIB" not in os.environ and os.path.exists(os.path.join(ROOT, "build", "libetsiv2x.so")):
    os.environ["ETSI_V2X_LIB"] = os.path.join(ROOT, "build", "libetsiv2x.so")

import etsi_v2x  # noqa: E402

EXAMPLES = os.path.join(ROOT, "examples")
SHARED = os.environ.get("ETSI_SHARED_DIR") or os.path.join(os.path.dirname(ROOT), "shared")
CAPTURES = os.path.join(SHARED, "captures")


def example_hex(msg):
    with open(os.path.join(EXAMPLES, msg + ".hex")) as f:
        return f.read().strip()


@pytest.fixture(scope="session")
def examples():
    """{message: UPER bytes} of the seven example messages."""
    return {m: bytes.fromhex(example_hex(m)) for m in etsi_v2x.MESSAGES}


def capture_files():
    if not os.path.isdir(CAPTURES):
        return []
    return sorted(os.path.join(CAPTURES, f) for f in os.listdir(CAPTURES)
                  if f.endswith((".pcap", ".pcapng")))


@pytest.fixture(scope="session")
def capture_tool():
    """etsi-convert, when it knows the `capture` command; the test is skipped otherwise."""
    tool = etsi_v2x.convert_tool()
    if not tool:
        pytest.skip("etsi-convert not found (set ETSI_CONVERT)")
    if not etsi_v2x.capture_supported(tool):
        pytest.skip("this etsi-convert has no `capture` command yet (capture input is built "
                    "on another branch); the capture tests run once it is merged")
    if not capture_files():
        pytest.skip("no captures in %s" % CAPTURES)
    return tool
