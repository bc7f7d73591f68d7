#!/usr/bin/env python3
"""Cost of one call of the Python package etsi_v2x, per message type, beside the same library
function called through ctypes with nothing around it, measured in the same run.

    make bench-python                      # the library of build/, the examples of examples/
    python3 bench/bench_python.py --repeat 5 --seconds 0.3

Columns (microseconds per call, the best of --repeat rounds of about --seconds each):
  bare to_json   etsi_<M>_to_json through ctypes on prepared arguments, plus etsi_delete_array
  to_json        etsi_v2x.to_json (bytes in, str out)
  decode         etsi_v2x.decode (to_json and json.loads)
  bare from_json etsi_<M>_from_json through ctypes, plus etsi_delete_array
  from_json      etsi_v2x.from_json (str in, bytes out)
  to_xml, from_xml  the package's XML pair
The first row is the floor of any ctypes call: etsi_delete_array(NULL).
"""

import argparse
import ctypes
import os
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(ROOT, "python"))
os.environ.setdefault("ETSI_V2X_LIB", os.path.join(ROOT, "build", "libetsiv2x.so"))

import etsi_v2x  # noqa: E402


def per_call(fn, seconds, repeat):
    """Best time per call, in microseconds, over `repeat` rounds."""
    n = 1
    while True:  # calibrate the number of calls of one round
        t = time.perf_counter()
        for _ in range(n):
            fn()
        dt = time.perf_counter() - t
        if dt >= seconds / 4:
            break
        n *= 2
    n = max(1, int(n * seconds / max(dt, 1e-9)))
    best = float("inf")
    for _ in range(repeat):
        t = time.perf_counter()
        for _ in range(n):
            fn()
        best = min(best, (time.perf_counter() - t) / n)
    return best * 1e6


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--seconds", type=float, default=0.3)
    p.add_argument("--repeat", type=int, default=5)
    args = p.parse_args()
    etsi_v2x._load()
    delete = etsi_v2x._lib.etsi_delete_array
    floor = per_call(lambda: delete(None), args.seconds, args.repeat)
    print("library: %s" % etsi_v2x.library_path())
    print("python: %s %s" % (sys.executable, sys.version.split()[0]))
    print("ctypes floor, etsi_delete_array(NULL): %.2f us per call" % floor)
    print()
    cols = ["bare to_json", "to_json", "decode", "bare from_json", "from_json", "to_xml", "from_xml"]
    print("| message | " + " | ".join(cols) + " | to_json / bare | from_json / bare | to_json calls/s |")
    print("|---|" + "---:|" * (len(cols) + 3))
    for msg in etsi_v2x.MESSAGES:
        with open(os.path.join(ROOT, "examples", msg + ".hex")) as f:
            uper = bytes.fromhex(f.read().strip())
        text = etsi_v2x.to_json(msg, uper)
        xml = etsi_v2x.to_xml(msg, uper)
        raw_text = text.encode()
        to_fn = etsi_v2x._function(msg, "to_json")
        from_fn = etsi_v2x._function(msg, "from_json")
        out, err, n = ctypes.c_void_p(), ctypes.c_void_p(), ctypes.c_size_t()
        pout, perr, pn = ctypes.byref(out), ctypes.byref(err), ctypes.byref(n)

        def bare_to():
            to_fn(uper, len(uper), pout, perr, False)
            delete(out.value)

        def bare_from():
            from_fn(raw_text, pout, pn, perr, False)
            delete(out.value)

        t = {
            "bare to_json": per_call(bare_to, args.seconds, args.repeat),
            "to_json": per_call(lambda: etsi_v2x.to_json(msg, uper), args.seconds, args.repeat),
            "decode": per_call(lambda: etsi_v2x.decode(msg, uper), args.seconds, args.repeat),
            "bare from_json": per_call(bare_from, args.seconds, args.repeat),
            "from_json": per_call(lambda: etsi_v2x.from_json(msg, text), args.seconds, args.repeat),
            "to_xml": per_call(lambda: etsi_v2x.to_xml(msg, uper), args.seconds, args.repeat),
            "from_xml": per_call(lambda: etsi_v2x.from_xml(msg, xml), args.seconds, args.repeat),
        }
        print("| %s | %s | %.2f | %.2f | %s |" % (
            msg, " | ".join("%.1f" % t[c] for c in cols), t["to_json"] / t["bare to_json"],
            t["from_json"] / t["bare from_json"], "{:,.0f}".format(1e6 / t["to_json"])))


if __name__ == "__main__":
    main()
