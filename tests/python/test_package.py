"""The ctypes package over libetsiv2x.so: conversions, errors, threads, finding the library."""

import concurrent.futures
import json
import os
import subprocess
import sys

import pytest

import etsi_v2x
from conftest import EXAMPLES, ROOT


@pytest.mark.parametrize("msg", etsi_v2x.MESSAGES)
def test_round_trips_on_the_examples(msg, examples):
    uper = examples[msg]
    text = etsi_v2x.to_json(msg, uper)
    assert etsi_v2x.from_json(msg, text) == uper
    # The decoded value is the hand-written example, and a dict encodes back to the same bytes.
    value = etsi_v2x.decode(msg, uper)
    with open(os.path.join(EXAMPLES, msg + ".json")) as f:
        assert value == json.load(f)
    assert etsi_v2x.encode(msg, value) == uper
    # Hex text is accepted in place of bytes.
    assert etsi_v2x.to_json(msg, uper.hex()) == text
    xml = etsi_v2x.to_xml(msg, uper)
    with open(os.path.join(EXAMPLES, msg + ".xml")) as f:
        assert xml.strip() == f.read().strip()
    assert etsi_v2x.from_xml(msg, xml) == uper
    assert etsi_v2x.guess_message(uper) == msg


def _error(call, *args):
    with pytest.raises(etsi_v2x.EtsiError) as info:
        call(*args)
    err = info.value
    assert err.status < 0
    assert err.text.startswith("ERROR: Status %d\n" % err.status)
    assert err.reason and not err.reason.startswith("ERROR")
    return err


def test_bad_input_raises_with_status_and_full_text(examples):
    cam = examples["CAM"]
    err = _error(etsi_v2x.to_json, "CAM", cam[:10])
    assert "end of buffer" in err.text.lower()
    assert "Stack trace" in err.text  # the full report, not only its first line
    _error(etsi_v2x.to_json, "CAM", b"")
    _error(etsi_v2x.to_xml, "SSEM", b"\xff" * 3)
    _error(etsi_v2x.from_json, "CAM", "{}")
    _error(etsi_v2x.from_json, "CAM", "not json")
    _error(etsi_v2x.from_json, "DENM", etsi_v2x.to_json("CAM", cam))  # the wrong message type
    _error(etsi_v2x.from_xml, "CAM", "<CAM><header>")
    _error(etsi_v2x.from_xml, "CAM", "")
    # A failure leaves nothing behind that breaks the next call.
    assert etsi_v2x.from_json("CAM", etsi_v2x.to_json("CAM", cam)) == cam


def test_misuse_is_refused_before_the_library():
    with pytest.raises(ValueError):
        etsi_v2x.to_json("BSM", b"\x02\x02")
    with pytest.raises(ValueError):
        etsi_v2x.to_json("CAM", "0g")
    with pytest.raises(ValueError):
        etsi_v2x.from_json("CAM", '{"a": "\0"}')


def test_eight_threads_at_once(examples):
    expected = {m: (etsi_v2x.to_json(m, u), etsi_v2x.to_xml(m, u)) for m, u in examples.items()}

    def work(seed):
        for i in range(40):
            msg = etsi_v2x.MESSAGES[(seed + i) % len(etsi_v2x.MESSAGES)]
            uper = examples[msg]
            text, xml = expected[msg]
            if etsi_v2x.to_json(msg, uper) != text or etsi_v2x.from_json(msg, text) != uper:
                return "json %s" % msg
            if etsi_v2x.to_xml(msg, uper) != xml or etsi_v2x.from_xml(msg, xml) != uper:
                return "xml %s" % msg
            try:
                etsi_v2x.to_json(msg, uper[: len(uper) // 2])
                return "no error on a cut %s" % msg
            except etsi_v2x.EtsiError as err:
                if err.status >= 0:
                    return "status %d" % err.status
        return None

    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        assert list(pool.map(work, range(8))) == [None] * 8


def _python(code, env):
    full = {k: v for k, v in os.environ.items() if k not in ("ETSI_V2X_LIB", "ETSI_CONVERT")}
    full.update(env)
    return subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, env=full,
                          cwd="/")


def test_library_by_environment_variable():
    lib = os.environ["ETSI_V2X_LIB"]
    probe = "import etsi_v2x; print(etsi_v2x.library_path())"
    assert _python(probe, {"ETSI_V2X_LIB": os.path.dirname(lib)}).stdout.strip() == \
        os.path.join(os.path.dirname(lib), "libetsiv2x.so")
    bad = _python(probe, {"ETSI_V2X_LIB": "/nonexistent/libetsiv2x.so"})
    assert bad.returncode != 0 and "ETSI_V2X_LIB" in bad.stderr


def test_installed_package_finds_its_library_and_tool(tmp_path):
    build = os.environ.get("ETSI_BUILD_DIR")
    if not build:
        pytest.skip("ETSI_BUILD_DIR not set (ctest sets it)")
    prefix = tmp_path / "prefix"
    done = subprocess.run(["cmake", "--install", build, "--prefix", str(prefix)],
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    site = [p for p in prefix.glob("lib/python3*/dist-packages")]
    assert len(site) == 1
    probe = ("import etsi_v2x, sys; print(etsi_v2x.__file__); print(etsi_v2x.library_path()); "
             "print(etsi_v2x.convert_tool()); print(etsi_v2x.to_json('SSEM', sys.argv[1])[:1])")
    full = {k: v for k, v in os.environ.items() if k not in ("ETSI_V2X_LIB", "ETSI_CONVERT")}
    full["PYTHONPATH"] = str(site[0])
    with open(os.path.join(EXAMPLES, "SSEM.hex")) as f:
        out = subprocess.run([sys.executable, "-c", probe, f.read().strip()], capture_output=True,
                             text=True, env=full, cwd="/")
    assert out.returncode == 0, out.stderr
    lines = out.stdout.split("\n")
    assert lines[0].startswith(str(site[0]))
    assert lines[1] == str(prefix / "lib" / "libetsiv2x.so")
    assert lines[2] == str(prefix / "bin" / "etsi-convert")
    assert lines[3] == "{"
