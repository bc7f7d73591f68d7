"""read_capture over the shared captures equals the NDJSON of `etsi-convert capture`."""

import json
import subprocess

import pytest

import etsi_v2x
from conftest import capture_files

REQUIRED = ("file", "frame", "time", "linktype", "message", "port", "secured", "station")


def _cli_records(tool, path, *options):
    done = subprocess.run([tool, "capture", "--quiet", *options, path], capture_output=True,
                          text=True)
    return [json.loads(l) for l in done.stdout.splitlines() if l.strip()], done.returncode


@pytest.mark.parametrize("form,option,key", [("json", None, "json"), ("hex", "--hex", "uper")])
def test_read_capture_equals_the_cli(capture_tool, form, option, key):
    for path in capture_files():
        expected, rc = _cli_records(capture_tool, path, *([option] if option else []))
        assert rc == 0, path
        got = list(etsi_v2x.read_capture(path, form=form))
        assert got == expected, path
        messages = [r for r in got if "message" in r]
        assert messages, path
        for r in messages:
            assert list(r)[: len(REQUIRED)] == list(REQUIRED)
            assert (key in r) != ("status" in r)
            if key in r and form == "hex":
                # The raw bytes decode through the package to the same message type.
                assert etsi_v2x.guess_message(r["uper"]) in (r["message"], None)


def test_read_capture_of_unreadable_files(capture_tool, tmp_path):
    empty = tmp_path / "empty.pcap"
    empty.write_bytes(b"")
    text = tmp_path / "notes.pcap"
    text.write_text("not a capture\n")
    for path in (str(empty), str(text), str(tmp_path / "missing.pcap")):
        records = list(etsi_v2x.read_capture(path))
        assert len(records) == 1 and set(records[0]) == {"file", "error"}, records
        assert records[0]["file"] == path


def test_stopping_early_ends_the_program(capture_tool):
    path = max(capture_files(), key=lambda p: len(list(etsi_v2x.read_capture(p))))
    reader = etsi_v2x.read_capture(path)
    first = next(reader)
    reader.close()
    assert first["frame"] >= 1
