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


# The plumbing of read_capture and of the bulk conversion of captures, against a stand-in for
# etsi-convert that writes fixed records: it runs whatever etsi-convert can do.
STAND_IN = r'''#!/usr/bin/env python3
import json, sys
args = sys.argv[1:]
if args == ["--help"]:
    print("usage: etsi-convert capture [--quiet] [--xml|--hex] FILE...")
    sys.exit(0)
assert args[:2] == ["capture", "--quiet"], args
path = args[-1]
head = dict(file=path, frame=1, time=1.5, linktype="EN10MB", message="CAM", port=2001,
            secured=False, station=7)
try:
    kind = open(path).read().strip()
except OSError as e:
    print(json.dumps({"file": path, "error": str(e)})); sys.exit(1)
if kind == "good":
    print(json.dumps(dict(head, json={"a": 1})))
    print(json.dumps(dict(head, frame=2, message="DENM", status=-2, error="cut")))
    print(json.dumps({"file": path, "frame": 3, "error": "packet too short"}))
    print("progress", file=sys.stderr)
elif kind == "many":
    for i in range(100000):
        print(json.dumps(dict(head, frame=i + 1, json={})))
elif kind == "cut":
    print(json.dumps(dict(head, json={})))
    print(json.dumps({"file": path, "error": "truncated dump file"}))
elif kind == "crash":
    print("bad things", file=sys.stderr); sys.exit(3)
else:
    print(json.dumps({"file": path, "error": "not a capture"})); sys.exit(1)
'''


@pytest.fixture
def stand_in(tmp_path, monkeypatch):
    tool = tmp_path / "etsi-convert"
    tool.write_text(STAND_IN)
    tool.chmod(0o755)
    monkeypatch.setenv("ETSI_CONVERT", str(tool))
    return str(tool)


def test_read_capture_plumbing(stand_in, tmp_path):
    assert etsi_v2x.convert_tool() == stand_in and etsi_v2x.capture_supported()
    files = {}
    for kind in ("good", "many", "crash", "bad"):
        files[kind] = tmp_path / (kind + ".pcap")
        files[kind].write_text(kind)
    good = list(etsi_v2x.read_capture(files["good"]))
    assert [r["frame"] for r in good] == [1, 2, 3]
    assert good[0]["json"] == {"a": 1} and good[1]["status"] == -2
    # A file-level record is the answer, not an exception, though the exit status is 1.
    assert list(etsi_v2x.read_capture(files["bad"])) == [
        {"file": str(files["bad"]), "error": "not a capture"}]
    # A failure that no record explains raises, with the program's stderr.
    with pytest.raises(etsi_v2x.EtsiError) as info:
        list(etsi_v2x.read_capture(files["crash"]))
    assert "bad things" in info.value.text and info.value.status < 0
    # Stopping early ends the program without an error.
    reader = etsi_v2x.read_capture(files["many"])
    assert next(reader)["frame"] == 1
    reader.close()


def test_bulk_summary_of_captures(stand_in, tmp_path):
    from etsi_v2x import bulk
    for kind in ("good", "bad", "cut"):
        (tmp_path / (kind + ".pcap")).write_text(kind)
    files = bulk.expand_inputs([str(tmp_path / "*.pcap")])
    bad, cut, good = bulk.run(files, str(tmp_path / "out"), serial=True)  # sorted by name
    # Cut off after a message: read as far as it goes, the file error among the errors.
    assert cut["messages"] == {"CAM": 1} and cut["errors"] == 1 and cut["unreadable"] is None
    assert good["kind"] == "capture" and good["messages"] == {"CAM": 1, "DENM": 1}
    assert good["failed"] == 1 and good["errors"] == 1 and good["unreadable"] is None
    assert bad["unreadable"] == "not a capture"
    with open(good["out"]) as f:
        assert [json.loads(l)["frame"] for l in f] == [1, 2, 3]
    table = bulk.format_summary([good, bad], 0.5)
    assert "unreadable: not a capture" in table and table.splitlines()[-1].startswith("total")
