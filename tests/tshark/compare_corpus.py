#!/usr/bin/env python3
"""Outside judge: tshark's independent decode of every corpus message must agree with our JSON.

Runs build/etsi-convert --batch on the payloads of each message type and hands the JSON lines to
../shared/tools/tshark_decode.py --compare. Messages that tshark cannot judge (older editions,
payloads tshark reports problems for) are left out, and the differences that our JSON form has on
purpose are accepted, each with its reason (KNOWN_DIFFERENCES). Anything else fails.
"""

import json
import os
import re
import shutil
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))
CONVERT = os.environ.get("ETSI_CONVERT", os.path.join(ROOT, "build", "etsi-convert"))
TSHARK_DECODE = os.path.join(SHARED, "tools", "tshark_decode.py")

# (pattern on the difference text, reason). A difference matching one of these is prescribed by
# our JSON form and does not count as a disagreement.
KNOWN_DIFFERENCES = [
    (r"_ext_\d+", "an unknown extension addition is written as an \"_ext_N\" key with the hex of its "
                  "open-type bytes; tshark marks it as an unknown extension instead"),
]


def corpus():
    rows = []
    with open(os.path.join(SHARED, "corpus", "MANIFEST.tsv"), encoding="utf-8") as f:
        next(f)
        for line in f:
            cols = line.rstrip("\n").split("\t")
            rows.append({"file": cols[0], "type": cols[1], "pv": int(cols[2]), "notes": cols[7] if len(cols) > 7 else ""})
    return rows


def judged(row):
    """tshark is a judge of current-edition payloads it decodes cleanly."""
    return row["pv"] >= 2 and "tshark 4.0.17: clean" in row["notes"]


def main():
    if shutil.which("tshark") is None:
        print("tshark not installed: the outside-judge comparison needs it (apt-get install tshark)")
        return 1
    rows = [r for r in corpus() if judged(r)]
    by_type = {}
    for r in rows:
        by_type.setdefault(r["type"], []).append(r)
    failures = 0
    compared = 0
    accepted = {}
    for mtype, items in sorted(by_type.items()):
        hexes = []
        for r in items:
            with open(os.path.join(SHARED, "corpus", r["file"]), "rb") as f:
                hexes.append(f.read().hex())
        ours = subprocess.run([CONVERT, mtype, "to-json", "--batch"], input="\n".join(hexes) + "\n",
                              capture_output=True, text=True)
        lines = ours.stdout.splitlines()
        keep = [(r, h, l) for r, h, l in zip(items, hexes, lines) if not l.startswith("ERROR")]
        for r, l in zip(items, lines):
            if l.startswith("ERROR"):
                failures += 1
                print("%s: our JSON encoding failed: %s" % (r["file"], l))
        tmp = os.path.join(os.environ.get("TMPDIR", "/tmp"), "etsi_tshark_%d_%s" % (os.getpid(), mtype))
        with open(tmp + ".hex", "w") as f:
            f.write("\n".join(h for _, h, _ in keep) + "\n")
        with open(tmp + ".json", "w") as f:
            f.write("\n".join(l for _, _, l in keep) + "\n")
        judge = subprocess.run([sys.executable, TSHARK_DECODE, "-t", mtype.lower(), "-f", tmp + ".hex",
                                "--compare", tmp + ".json", "--norm-only"], capture_output=True, text=True)
        os.remove(tmp + ".hex")
        os.remove(tmp + ".json")
        try:
            results = json.loads(judge.stdout)
        except ValueError:
            print("tshark_decode.py gave no JSON for %s:\n%s" % (mtype, judge.stderr[-2000:]))
            return 1
        for (r, _, _), res in zip(keep, results):
            compared += 1
            for diff in res.get("compare", []):
                reason = next((why for pat, why in KNOWN_DIFFERENCES if re.search(pat, diff)), None)
                if reason:
                    accepted[reason] = accepted.get(reason, 0) + 1
                else:
                    failures += 1
                    print("%s: %s" % (r["file"], diff))
    for reason, n in accepted.items():
        print("accepted %d difference(s): %s" % (n, reason))
    print("compared %d corpus messages with tshark: %d unexplained difference(s)" % (compared, failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
