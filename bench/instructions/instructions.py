#!/usr/bin/env python3
"""Instructions per message under callgrind, beside the peer reference figures.

    instructions.py BENCH_INSTR SHARED_DIR README [--jobs N] [--only MSG,...] [--directions D,...] [--no-linear]

Each figure is (count of a run of 201 conversions - count of a run of 1) / 200, so the start of
the program and the preparation of the input cancel out. The peer figures are read from the
table "Peer reference figures" of README. A second table gives instructions per UPER byte from
the smallest message to the largest ones (a 967-byte SPATEM of the corpus and a MAPEM with 60
random lanes), which should stay roughly flat.
"""
import argparse
import concurrent.futures
import os
import re
import subprocess
import sys
import tempfile

DIRECTIONS = ["to_json", "from_json", "to_xml", "from_xml"]
MESSAGES = [
    ("CAM", "bench/CAM.uper"),
    ("MAPEM", "bench/MAPEM.uper"),
    ("SPATEM", "bench/SPATEM.uper"),
    ("DENM", "corpus/DENM/lb72-1123rx-52.uper"),
    ("SREM", "corpus/SREM/lb72-1028rx-6.uper"),
    ("SSEM", "corpus/SSEM/lb72-1012tx-67.uper"),
]
ITERATIONS = 200


def collected(binary, direction, path, n):
    cmd = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
           binary, direction, path, str(n)]
    res = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if res.returncode != 0:
        raise RuntimeError("%s failed:\n%s" % (" ".join(cmd), res.stderr))
    m = re.search(r"Collected\s*:\s*(\d+)", res.stderr)
    if not m:
        raise RuntimeError("no instruction count in the output of " + " ".join(cmd))
    return int(m.group(1))


def per_message(binary, direction, path):
    return (collected(binary, direction, path, ITERATIONS + 1) -
            collected(binary, direction, path, 1)) / ITERATIONS


def peer_figures(readme):
    """{(message, direction): instructions} from the README's peer table."""
    peers = {}
    in_table = False
    with open(readme, encoding="utf-8") as f:
        for line in f:
            if line.startswith("#"):
                in_table = "Peer reference figures" in line
                continue
            if not in_table or not line.startswith("|"):
                continue
            cells = [c.strip() for c in line.strip().strip("|").split("|")]
            if len(cells) != 5 or not cells[1].replace(",", "").isdigit():
                continue
            for direction, cell in zip(DIRECTIONS, cells[1:]):
                peers[(cells[0], direction)] = int(cell.replace(",", ""))
    return peers


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("binary")
    ap.add_argument("shared")
    ap.add_argument("readme")
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--only", default="")
    ap.add_argument("--no-linear", action="store_true")
    ap.add_argument("--directions", default="", help="comma-separated subset of " + ",".join(DIRECTIONS))
    args = ap.parse_args()
    directions = [d for d in DIRECTIONS if not args.directions or d in args.directions.split(",")]

    only = set(args.only.split(",")) if args.only else None
    messages = [(m, os.path.join(args.shared, p)) for m, p in MESSAGES if only is None or m in only]
    large = []
    if not args.no_linear:
        spatem_dir = os.path.join(args.shared, "corpus", "SPATEM")
        big = sorted(f for f in os.listdir(spatem_dir)
                     if f.endswith(".uper") and os.path.getsize(os.path.join(spatem_dir, f)) == 967)
        if big:
            large.append(("SPATEM %s" % big[0], os.path.join(spatem_dir, big[0])))
        tmp = tempfile.mkdtemp(prefix="bench-instr-")
        mapem = os.path.join(tmp, "MAPEM-60-lanes.uper")
        subprocess.run([args.binary, "mapem-lanes", "60", "2026", mapem], check=True)
        large.append(("MAPEM, 60 random lanes", mapem))

    jobs = {}
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, args.jobs)) as pool:
        for name, path in messages + large:
            for d in directions:
                jobs[(name, d)] = pool.submit(per_message, args.binary, d, path)
        results = {k: v.result() for k, v in jobs.items()}

    peers = peer_figures(args.readme)
    print("Instructions per message (callgrind, (201 runs - 1 run) / 200); ratio = peer / ours")
    print()
    print("| message (UPER bytes) | " + " | ".join("%s ours / peer (ratio)" % d for d in directions) + " |")
    print("|---|" + "---:|" * len(directions))
    worst = None
    for name, path in messages:
        cells = []
        for d in directions:
            ours = results[(name, d)]
            peer = peers.get((name, d))
            if peer:
                ratio = peer / ours
                worst = ratio if worst is None else min(worst, ratio)
                cells.append("{:,.0f} / {:,} ({:.1f})".format(ours, peer, ratio))
            else:
                cells.append("{:,.0f}".format(ours))
        print("| %s (%d) | %s |" % (name, os.path.getsize(path), " | ".join(cells)))
    if worst is not None:
        print()
        print("Lowest ratio: %.2f (target 5, goal 10)" % worst)

    print()
    print("Instructions per UPER byte (linear cost: roughly flat from small to large messages)")
    print()
    print("| message | UPER bytes | " + " | ".join(directions) + " |")
    print("|---|---:|" + "---:|" * len(directions))
    for name, path in sorted(messages + large, key=lambda e: os.path.getsize(e[1])):
        size = os.path.getsize(path)
        print("| %s | %d | %s |" % (name, size,
              " | ".join("%.0f" % (results[(name, d)] / size) for d in directions)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
