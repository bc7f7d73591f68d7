#!/usr/bin/env python3
"""Outside judge: tshark's independent decode of the same UPER bytes must agree with our JSON.

  tshark_judge.py corpus            every corpus message that tshark can judge
  tshark_judge.py random N SEED     N random messages of each of the seven types
  tshark_judge.py rich N SEED       the same with most optional members present, deeper

Our JSON comes from build/etsi-convert --batch; ../shared/tools/tshark_decode.py --compare lists
the differences. Differences that are prescribed by our JSON form, or that come from the oracle
itself, are accepted with their reason (KNOWN_DIFFERENCES); anything else fails.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))
BUILD = os.environ.get("ETSI_BUILD_DIR", os.path.join(ROOT, "build"))
CONVERT = os.environ.get("ETSI_CONVERT", os.path.join(BUILD, "etsi-convert"))
RANDOM = os.environ.get("ETSI_RANDOM_MESSAGES", os.path.join(BUILD, "random_messages"))
TSHARK_DECODE = os.path.join(SHARED, "tools", "tshark_decode.py")
MESSAGES = ["CAM", "DENM", "SPATEM", "MAPEM", "IVIM", "SREM", "SSEM"]

# (pattern on the difference text, reason).
KNOWN_DIFFERENCES = [
    (r"_ext_\d+", "an unknown extension addition is written as an \"_ext_N\" key with the hex of its "
                  "open-type bytes; tshark marks it as an unknown extension instead"),
    (r"roadWorksContainerBasic/(roadworksSubCauseCode|subCauseCode): missing",
     "the oracle renames every cause-specific sub-cause field to subCauseCode, also the "
     "roadworksSubCauseCode member of the CAM's RoadWorksContainerBasic, which really has that name"),
    (r"/validity/(month-day/dateRange(Start|End)Month(Day|Date)|durationHour[mM]inute): missing",
     "tshark was built from a GDD edition whose InternationalSign-applicablePeriod members are named "
     "dateRangeStartMonthDate, dateRangeEndMonthDate and durationHourminute; ours (GDD.asn) names them "
     "dateRangeStartMonthDay, dateRangeEndMonthDay and durationHourMinute. The values agree"),
]


def judge(mtype, hexes):
    """Returns (number judged, [unexplained differences], {reason: count})."""
    ours = subprocess.run([CONVERT, mtype, "to-json", "--batch"], input="\n".join(hexes) + "\n",
                          capture_output=True, text=True)
    lines = ours.stdout.splitlines()
    problems, accepted = [], {}
    keep = []
    for h, line in zip(hexes, lines):
        if line.startswith("ERROR"):
            problems.append("%s %s: our JSON encoding failed: %s" % (mtype, h[:40], line))
        else:
            keep.append((h, line))
    with tempfile.TemporaryDirectory() as tmp:
        hex_file, json_file = os.path.join(tmp, "in.hex"), os.path.join(tmp, "ours.json")
        with open(hex_file, "w") as f:
            f.write("\n".join(h for h, _ in keep) + "\n")
        with open(json_file, "w") as f:
            f.write("\n".join(l for _, l in keep) + "\n")
        out = subprocess.run([sys.executable, TSHARK_DECODE, "-t", mtype.lower(), "-f", hex_file,
                              "--compare", json_file, "--norm-only"], capture_output=True, text=True)
    try:
        results = json.loads(out.stdout)
    except ValueError:
        return 0, ["tshark_decode.py gave no JSON for %s:\n%s" % (mtype, out.stderr[-2000:])], {}
    for (h, _), res in zip(keep, results):
        for err in res.get("errors", []):
            problems.append("%s %s: tshark: %s" % (mtype, h[:40], err))
        for diff in res.get("compare", []):
            reason = next((why for pat, why in KNOWN_DIFFERENCES if re.search(pat, diff)), None)
            if reason:
                accepted[reason] = accepted.get(reason, 0) + 1
            else:
                problems.append("%s %s: %s" % (mtype, h[:40], diff))
    return len(results), problems, accepted


def corpus_hexes():
    """Hex payloads per type of the corpus messages tshark can judge: the current edition,
    decoded cleanly by tshark."""
    by_type = {}
    with open(os.path.join(SHARED, "corpus", "MANIFEST.tsv"), encoding="utf-8") as f:
        next(f)
        for line in f:
            cols = line.rstrip("\n").split("\t")
            if int(cols[2]) >= 2 and "tshark 4.0.17: clean" in cols[7]:
                with open(os.path.join(SHARED, "corpus", cols[0]), "rb") as m:
                    by_type.setdefault(cols[1], []).append(m.read().hex())
    return by_type


def random_hexes(count, seed, rich):
    by_type = {}
    for mtype in MESSAGES:
        out = subprocess.run([RANDOM, mtype, str(count), str(seed)] + (["rich"] if rich else []),
                             capture_output=True, text=True, check=True)
        by_type[mtype] = out.stdout.split()
    return by_type


def main(argv):
    if shutil.which("tshark") is None:
        print("tshark is not installed: this outside judge needs it (apt-get install tshark)")
        return 1
    if argv[:1] == ["corpus"]:
        by_type, what = corpus_hexes(), "corpus messages"
    elif argv[:1] in (["random"], ["rich"]) and len(argv) == 3:
        by_type, what = random_hexes(int(argv[1]), int(argv[2]), argv[0] == "rich"), argv[0] + " random messages"
    else:
        print(__doc__)
        return 2
    total, problems, accepted = 0, [], {}
    for mtype in sorted(by_type):
        n, p, a = judge(mtype, by_type[mtype])
        total += n
        problems += p
        for k, v in a.items():
            accepted[k] = accepted.get(k, 0) + v
    for p in problems[:200]:
        print(p)
    for reason, n in accepted.items():
        print("accepted %d difference(s): %s" % (n, reason))
    print("tshark judged %d %s: %d unexplained difference(s)" % (total, what, len(problems)))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
