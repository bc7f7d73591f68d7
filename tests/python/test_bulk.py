"""Bulk conversion: hex logs through the package, captures through etsi-convert, on a local Dask
cluster of two workers and serially, with the same files as the result."""

import json
import os
import subprocess
import sys

import pytest

import etsi_v2x
from etsi_v2x import bulk
from conftest import capture_files, example_hex


def _read_tree(folder):
    out = {}
    for base, _, files in os.walk(folder):
        for name in files:
            path = os.path.join(base, name)
            with open(path, "rb") as f:
                out[os.path.relpath(path, folder)] = f.read()
    return out


@pytest.fixture
def hex_logs(tmp_path):
    """Two folders of hex logs: every example message, a cut one, a line that is not hex, an
    unknown messageID, blank and comment lines; and a CAM-only log for --message."""
    logs = tmp_path / "logs"
    (logs / "a").mkdir(parents=True)
    (logs / "b" / "c").mkdir(parents=True)
    lines = ["# recorded at the test bench", ""] + [example_hex(m) for m in etsi_v2x.MESSAGES]
    cam = example_hex("CAM")
    lines += [cam[:30], "zz12", "02ff" + cam[4:], "02"]
    (logs / "a" / "mixed.log").write_text("\n".join(lines) + "\n")
    (logs / "b" / "c" / "cams.log").write_text("\n".join([cam, cam.upper(), " " + cam]) + "\n")
    (logs / "b" / "empty.log").write_text("")
    return logs


def test_hex_log_records(hex_logs):
    records = list(bulk.hex_log_records(str(hex_logs / "a" / "mixed.log")))
    assert [r["line"] for r in records] == list(range(3, 14))
    ok = records[:7]
    assert [r["message"] for r in ok] == list(etsi_v2x.MESSAGES)
    for r in ok:
        assert list(r) == ["file", "line", "message", "station", "json"]
        assert r["station"] == r["json"]["header"]["stationID"]
    cut, not_hex, unknown, short = records[7:]
    assert cut["message"] == "CAM" and cut["status"] < 0 and cut["error"]
    assert "json" not in cut
    assert not_hex["error"] == "not a hex message" and "message" not in not_hex
    assert unknown["error"] == "unknown messageID 255"
    assert short["error"] == "too short for an ITS PDU header"
    # A given type overrides the header: every line is read as DENM, so the CAMs fail.
    forced = list(bulk.hex_log_records(str(hex_logs / "b" / "c" / "cams.log"), "DENM"))
    assert [r["message"] for r in forced] == ["DENM"] * 3
    assert all("status" in r for r in forced)


def test_dask_cluster_gives_the_serial_files(hex_logs, tmp_path):
    from dask.distributed import LocalCluster
    files = bulk.expand_inputs([str(hex_logs / "**" / "*.log")])
    assert len(files) == 3
    serial = bulk.run(files, str(tmp_path / "serial"), serial=True)
    # An existing cluster, reached through its scheduler's address.
    with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster:
        dask = bulk.run(files, str(tmp_path / "dask"), scheduler=cluster.scheduler_address)
    assert _read_tree(tmp_path / "serial") == _read_tree(tmp_path / "dask")
    assert sorted(_read_tree(tmp_path / "dask")) == [
        os.path.join("a", "mixed.log.ndjson"), os.path.join("b", "c", "cams.log.ndjson"),
        os.path.join("b", "empty.log.ndjson")]
    strip = [{k: v for k, v in s.items() if k not in ("seconds", "out")} for s in serial]
    assert strip == [{k: v for k, v in s.items() if k not in ("seconds", "out")} for s in dask]
    mixed = strip[files.index(str(hex_logs / "a" / "mixed.log"))]
    assert mixed["messages"]["CAM"] == 2 and mixed["failed"] == 1 and mixed["errors"] == 3
    # Every output line is one JSON object.
    for data in _read_tree(tmp_path / "dask").values():
        for line in data.decode().splitlines():
            assert isinstance(json.loads(line), dict)


def test_command_line_on_its_own_local_cluster(hex_logs, tmp_path):
    pattern = str(hex_logs / "**" / "*.log")
    done = subprocess.run([sys.executable, "-m", "etsi_v2x.bulk", pattern, "--out",
                           str(tmp_path / "out"), "--workers", "2"],
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    bulk.run(bulk.expand_inputs([pattern]), str(tmp_path / "serial"), serial=True)
    assert _read_tree(tmp_path / "out") == _read_tree(tmp_path / "serial")
    lines = done.stdout.splitlines()
    assert lines[0].split()[:3] == ["file", "kind", "CAM"]
    total = lines[-1].split()
    assert total[:3] == ["total", "(3", "files)"]
    assert total[3] == "5"  # CAMs, failed ones included: two in the mixed log, three alone
    nothing = subprocess.run([sys.executable, "-m", "etsi_v2x.bulk", str(tmp_path / "none*"),
                              "--out", str(tmp_path / "o2")], capture_output=True, text=True)
    assert nothing.returncode == 2 and "no input" in nothing.stderr


def test_dask_on_the_shared_captures(capture_tool, tmp_path):
    files = capture_files()
    serial = bulk.run(files, str(tmp_path / "serial"), serial=True)
    dask = bulk.run(files, str(tmp_path / "dask"), workers=2)
    assert _read_tree(tmp_path / "serial") == _read_tree(tmp_path / "dask")
    assert len(_read_tree(tmp_path / "dask")) == len(files)
    assert all(s["kind"] == "capture" and not s["unreadable"] for s in dask)
    assert sum(sum(s["messages"].values()) for s in dask) > 0


def test_real_corpus_as_hex_logs(tmp_path):
    """The real messages of the shared corpus, one hex log per type: the type guessed from the
    header is the folder's, every current-edition message converts, and its JSON encodes back
    to the same bytes through the package (unknown extension additions aside)."""
    from conftest import SHARED
    corpus = os.path.join(SHARED, "corpus")
    if not os.path.isdir(corpus):
        pytest.skip("no corpus in %s" % corpus)
    logs = tmp_path / "logs"
    logs.mkdir()
    originals = {}
    for msg in sorted(os.listdir(corpus)):
        folder = os.path.join(corpus, msg)
        if not os.path.isdir(folder):
            continue
        blobs = []
        for name in sorted(os.listdir(folder)):
            with open(os.path.join(folder, name), "rb") as f:
                blobs.append(f.read())
        (logs / (msg + ".log")).write_text("".join(b.hex() + "\n" for b in blobs))
        originals[msg] = blobs
    assert originals
    summaries = bulk.run(bulk.expand_inputs([str(logs / "*.log")]), str(tmp_path / "out"),
                         serial=True)
    for s in summaries:
        msg = os.path.basename(s["file"])[:-4]
        with open(s["out"]) as f:
            records = [json.loads(line) for line in f]
        assert len(records) == len(originals[msg])
        for record, blob in zip(records, originals[msg]):
            assert record["message"] == msg and record["station"] == etsi_v2x.station_id(blob)
            if blob[0] == 2:
                assert "json" in record, record
            else:
                assert "json" in record or record["status"] < 0
            if "json" in record and "_ext_" not in json.dumps(record["json"]):
                # Back to the same bytes (a capture may carry zero padding after the message).
                back = etsi_v2x.encode(msg, record["json"])
                assert blob[: len(back)] == back and not blob[len(back):].strip(b"\0")
