"""Bulk conversion of many capture files and hex logs, in parallel on Dask.

    python3 -m etsi_v2x.bulk 'logs/**/*.pcap' --out DIR [--scheduler tcp://host:8786]

Every input gives one NDJSON output file in DIR (same relative path as the input below the
inputs' common folder, with ".ndjson" appended). Inputs are told apart by their name or their first bytes:

* pcap and pcapng captures go through `etsi-convert capture` (one record per C-ITS message);
* anything else is read as a hex log, one UPER message per line in hex, converted here through
  the package: {"file", "line", "message", "station", "json"}, or "status" and "error" in place
  of "json" for a message that fails, or "error" alone for a line that is not a message. The
  message type comes from --message, or else from the messageID of the ITS PDU header.

Without --scheduler a local Dask cluster is started (--workers processes, one thread each); with
it, the files are converted on that cluster, whose workers must be able to import etsi_v2x and
load the library (and run etsi-convert for captures) and must see the input and output paths.
--serial converts in this process, one file after the other, without Dask. A summary table is
printed at the end; the exit status is 1 when some input could not be read at all.
"""

import argparse
import collections
import glob
import json
import os
import subprocess
import sys
import time

import etsi_v2x

_CAPTURE_MAGIC = (b"\xd4\xc3\xb2\xa1", b"\xa1\xb2\xc3\xd4",   # pcap, microseconds
                  b"\x4d\x3c\xb2\xa1", b"\xa1\xb2\x3c\x4d",   # pcap, nanoseconds
                  b"\x0a\x0d\x0d\x0a")                        # pcapng section header


_CAPTURE_SUFFIXES = (".pcap", ".pcapng", ".cap")


def is_capture(path):
    """A capture by its name or its first bytes (so that a broken capture still goes to
    etsi-convert, which says what is wrong with it); anything else is a hex log."""
    if path.lower().endswith(_CAPTURE_SUFFIXES):
        return True
    with open(path, "rb") as f:
        return f.read(4) in _CAPTURE_MAGIC


def _dumps(record):
    return json.dumps(record, ensure_ascii=False, separators=(",", ":"))


def hex_log_records(path, message=None, form="json"):
    """Yields the records of a hex log (see the module text). Blank lines and lines starting
    with '#' are skipped; line numbers count every line, from 1."""
    with open(path, "r", encoding="utf-8", errors="replace") as f:
        for number, line in enumerate(f, 1):
            text = line.strip()
            if not text or text.startswith("#"):
                continue
            record = {"file": path, "line": number}
            try:
                data = bytes.fromhex(text)
            except ValueError:
                record["error"] = "not a hex message"
                yield record
                continue
            msg = message or etsi_v2x.guess_message(data)
            if msg is None:
                record["error"] = ("unknown messageID %d" % data[1] if len(data) >= 2
                                   else "too short for an ITS PDU header")
                yield record
                continue
            record["message"] = msg
            record["station"] = etsi_v2x.station_id(data)
            try:
                if form == "xml":
                    record["xml"] = etsi_v2x.to_xml(msg, data)
                else:
                    record["json"] = json.loads(etsi_v2x.to_json(msg, data))
            except etsi_v2x.EtsiError as exc:
                record["status"] = exc.status
                record["error"] = exc.reason
            yield record


def _run_capture(path, out, form):
    """etsi-convert capture on path, its NDJSON straight into the open file out; returns the
    exit status and stderr (the summary)."""
    tool = etsi_v2x.convert_tool()
    if not tool:
        raise OSError("etsi-convert not found (set ETSI_CONVERT)")
    args = [tool, "capture", "--quiet"] + (["--" + form] if form != "json" else []) + [path]
    done = subprocess.run(args, stdout=out, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL)
    return done.returncode, done.stderr.decode("utf-8", "replace")


def _tally(summary, counts, record, file_errors):
    if "error" in record and "frame" not in record and "line" not in record:
        file_errors.append(record["error"])  # about the file, e.g. cut off after some packets
    elif "status" in record:
        summary["failed"] += 1
        counts[record.get("message", "?")] += 1
    elif "error" in record:
        summary["errors"] += 1  # a packet or line that holds no readable message
    else:
        counts[record.get("message", "?")] += 1


def convert_file(path, out_path, message=None, form="json"):
    """Converts one input into out_path; returns a summary dict (picklable, for Dask): kind,
    messages per type (failed conversions included), failed, errors (packets or lines without a
    readable message), unreadable (why the whole file could not be read, or None), seconds."""
    start = time.perf_counter()
    summary = {"file": path, "out": out_path, "kind": "?", "messages": {}, "failed": 0,
               "errors": 0, "unreadable": None, "seconds": 0.0}
    os.makedirs(os.path.dirname(out_path) or ".", exist_ok=True)
    counts = collections.Counter()
    file_errors = []
    try:
        capture = is_capture(path)
    except OSError as exc:
        capture = None
        summary["unreadable"] = exc.strerror or str(exc)
    with open(out_path, "w", encoding="utf-8") as out:
        if capture:
            summary["kind"] = "capture"
            rc, err = _run_capture(path, out, form)
        elif capture is False:
            summary["kind"] = "hex"
            for record in hex_log_records(path, message, form):
                out.write(_dumps(record) + "\n")
                _tally(summary, counts, record, file_errors)
    if capture:
        with open(out_path, "r", encoding="utf-8") as f:
            for line in f:
                if line.strip():
                    _tally(summary, counts, json.loads(line), file_errors)
        # A non-zero exit means that a whole file could not be read; a file-level record
        # without it (a capture cut off after some packets) counts among the errors.
        if rc != 0:
            summary["unreadable"] = (file_errors[-1] if file_errors else
                                     (err.strip().splitlines() or ["exit status %d" % rc])[-1])
        else:
            summary["errors"] += len(file_errors)
    summary["messages"] = dict(counts)
    summary["seconds"] = time.perf_counter() - start
    return summary


def expand_inputs(patterns):
    """Glob patterns ('**' matches any depth) -> sorted unique files."""
    files = set()
    for pattern in patterns:
        matched = glob.glob(pattern, recursive=True)
        if not matched and os.path.exists(pattern):
            matched = [pattern]
        files.update(p for p in matched if os.path.isfile(p))
    return sorted(files)


def output_paths(files, out_dir):
    """One output per input: its path below the inputs' common folder, plus '.ndjson'."""
    if not files:
        return []
    base = os.path.commonpath([os.path.dirname(os.path.abspath(f)) for f in files])
    return [os.path.join(out_dir, os.path.relpath(os.path.abspath(f), base) + ".ndjson")
            for f in files]


def run(files, out_dir, scheduler=None, workers=2, serial=False, message=None, form="json"):
    """Converts the files; returns their summaries in input order."""
    outs = output_paths(files, out_dir)
    if serial or not files:
        return [convert_file(f, o, message, form) for f, o in zip(files, outs)]
    from dask.distributed import Client, LocalCluster
    if scheduler:
        client, cluster = Client(scheduler), None
    else:
        cluster = LocalCluster(n_workers=workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
    try:
        futures = client.map(convert_file, files, outs, message=message, form=form,
                             pure=False)
        return client.gather(futures)
    finally:
        client.close()
        if cluster is not None:
            cluster.close()


def format_summary(summaries, seconds):
    types = [m for m in etsi_v2x.MESSAGES if any(m in s["messages"] for s in summaries)]
    head = ["file", "kind"] + types + ["failed", "errors", "seconds"]
    rows = []
    totals = collections.Counter()
    for s in summaries:
        row = [s["file"], s["kind"]] + [str(s["messages"].get(m, 0)) for m in types]
        row += [str(s["failed"]), str(s["errors"]), "%.2f" % s["seconds"]]
        if s["unreadable"]:
            row[1] += " (unreadable: %s)" % s["unreadable"]
        rows.append(row)
        for m in types:
            totals[m] += s["messages"].get(m, 0)
        totals["failed"] += s["failed"]
        totals["errors"] += s["errors"]
    rows.append(["total (%d files)" % len(summaries), ""] + [str(totals[m]) for m in types]
                + [str(totals["failed"]), str(totals["errors"]), "%.2f" % seconds])
    widths = [max(len(r[i]) for r in [head] + rows) for i in range(len(head))]

    def fmt(r):
        return "  ".join(c.ljust(w) if i < 2 else c.rjust(w)
                         for i, (c, w) in enumerate(zip(r, widths))).rstrip()
    lines = [fmt(head), fmt(["-" * w for w in widths])] + [fmt(r) for r in rows]
    return "\n".join(lines) + "\n"


def main(argv=None):
    p = argparse.ArgumentParser(
        prog="python3 -m etsi_v2x.bulk",
        description="Converts capture files (pcap, pcapng) and hex logs to NDJSON, one output "
                    "file per input, in parallel on Dask.")
    p.add_argument("inputs", nargs="+", help="files or glob patterns (quote them; ** recurses)")
    p.add_argument("--out", required=True, help="output folder")
    p.add_argument("--scheduler", help="address of an existing Dask scheduler, e.g. "
                   "tcp://host:8786; without it a local cluster is started")
    p.add_argument("--workers", type=int, default=2, help="worker processes of the local "
                   "cluster (default 2)")
    p.add_argument("--serial", action="store_true", help="convert here, one file at a time, "
                   "without Dask")
    p.add_argument("--message", choices=etsi_v2x.MESSAGES, help="message type of every line "
                   "of the hex logs (default: from the ITS PDU header)")
    p.add_argument("--xml", action="store_true", help="XML text in place of the JSON")
    args = p.parse_args(argv)
    files = expand_inputs(args.inputs)
    if not files:
        print("etsi_v2x.bulk: no input matches %s" % " ".join(args.inputs), file=sys.stderr)
        return 2
    start = time.perf_counter()
    summaries = run(files, args.out, args.scheduler, args.workers, args.serial, args.message,
                    "xml" if args.xml else "json")
    sys.stdout.write(format_summary(summaries, time.perf_counter() - start))
    return 1 if any(s["unreadable"] for s in summaries) else 0


if __name__ == "__main__":
    # Run as `python3 -m etsi_v2x.bulk`: call main of the module imported under its own name, so
    # that the functions sent to the Dask workers are found there by name, not copied from
    # __main__.
    from etsi_v2x.bulk import main as _main
    sys.exit(_main())
