#!/usr/bin/env python3
"""Messages per second for captures through `etsi-convert capture`, beside `tshark -T json` on the
same files in the same run.

  bench/capture_vs_tshark.py [--convert build/etsi-convert] [--repeat 5] [--copies 20] [FILE...]

Default files: the captures in ../shared/captures (ETSI_SHARED_DIR), and one made at run time in a
temporary folder by concatenating --copies copies of the largest (mergecap -a), where the start-up
of the two programs weighs little. Each command runs --repeat
times per file, alternating between the two tools, output to /dev/null; the table gives the median
wall time and the median CPU time (user + system of the child) per run, messages per second on
each, and the ratio tshark / ours. The message count is our NDJSON line count (equal to tshark's
ITS message count on these files, which the capture tests check).
"""

import argparse
import os
import resource
import statistics
import subprocess
import shutil
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))


def timed(cmd):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    t0 = time.perf_counter()
    with open(os.devnull, "wb") as null:
        subprocess.run(cmd, stdout=null, stderr=null, check=True)
    wall = time.perf_counter() - t0
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return wall, cpu


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--convert", default=os.path.join(ROOT, "build", "etsi-convert"))
    ap.add_argument("--tshark", default="tshark")
    ap.add_argument("--repeat", type=int, default=5)
    ap.add_argument("--copies", type=int, default=20)
    ap.add_argument("files", nargs="*")
    args = ap.parse_args()
    tmp = tempfile.mkdtemp(prefix="capture-bench-")
    try:
        files = args.files
        if not files:
            files = sorted(os.path.join(SHARED, "captures", f) for f in os.listdir(os.path.join(SHARED, "captures"))
                           if f.endswith((".pcap", ".pcapng")))
            largest = max(files, key=os.path.getsize)
            big = os.path.join(tmp, "%dx-%s" % (args.copies, os.path.basename(largest)))
            subprocess.run(["mergecap", "-a", "-F", "pcap", "-w", big] + [largest] * args.copies, check=True)
            files.append(big)
        return table(args, files)
    finally:
        shutil.rmtree(tmp)


def table(args, files):
    print("| file | messages | ours: wall ms | ours: CPU ms | tshark -T json: wall ms | tshark: CPU ms "
          "| ours: msg/s (CPU) | tshark: msg/s (CPU) | tshark / ours (CPU) |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---:|")
    totals = [0, 0.0, 0.0]
    for path in files:
        out = subprocess.run([args.convert, "capture", "--quiet", path], capture_output=True, check=True).stdout
        messages = out.count(b"\n")
        ours, theirs = [], []
        for _ in range(args.repeat):
            ours.append(timed([args.convert, "capture", "--quiet", path]))
            theirs.append(timed([args.tshark, "-r", path, "-T", "json"]))
        ow, oc = statistics.median(w for w, _ in ours), statistics.median(c for _, c in ours)
        tw, tc = statistics.median(w for w, _ in theirs), statistics.median(c for _, c in theirs)
        totals[0] += messages
        totals[1] += oc
        totals[2] += tc
        print("| %s | %d | %.1f | %.1f | %.0f | %.0f | %.0f | %.0f | %.0f |" % (
            os.path.basename(path), messages, ow * 1e3, oc * 1e3, tw * 1e3, tc * 1e3,
            messages / max(oc, 1e-4), messages / max(tc, 1e-4), tc / max(oc, 1e-4)))
    print("| all | %d | | %.1f | | %.0f | %.0f | %.0f | %.0f |" % (
        totals[0], totals[1] * 1e3, totals[2] * 1e3, totals[0] / max(totals[1], 1e-4),
        totals[0] / max(totals[2], 1e-4), totals[2] / max(totals[1], 1e-4)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
