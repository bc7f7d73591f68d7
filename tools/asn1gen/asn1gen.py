#!/usr/bin/env python3
"""asn1gen: generates the C++ layer of the ITS message set from its ASN.1 modules.

Usage: asn1gen.py [--asn1 DIR] [--out DIR]

Reads every *.asn file of the ASN.1 directory, resolves the modules into one type model and
writes the generated files into the output directory. Files of the output directory that the
run does not produce are removed, so the directory always matches the modules exactly.
"""

import argparse
import os
import sys

if __package__ in (None, ""):
    sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
    __package__ = "tools.asn1gen"

from tools.asn1gen import emit_codecs, emit_inventory, emit_json, emit_per, emit_xml  # noqa: E402
from tools.asn1gen import emit_testsupport, emit_values  # noqa: E402
from tools.asn1gen.lexer import Asn1Error  # noqa: E402
from tools.asn1gen.model import load_model  # noqa: E402

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_ASN1 = os.path.normpath(os.path.join(HERE, "..", "..", "..", "shared", "asn1"))
DEFAULT_OUT = os.path.normpath(os.path.join(HERE, "..", "..", "src", "etsi"))


def generate(asn1_dir):
    """Returns {file name: text} of the whole generated layer."""
    model = load_model(asn1_dir)
    files = {}
    families = [emit_per.PerFamily(), emit_xml.XmlFamily(), emit_json.JsonFamily()]
    files.update(emit_values.emit(model, families))
    files.update(emit_codecs.emit(model, [emit_per, emit_json, emit_xml]))
    files.update(emit_testsupport.emit(model))
    files.update(emit_inventory.emit(model))
    return files


def write_tree(files, out_dir):
    """Writes `files` (names relative to out_dir) and removes every other file below out_dir."""
    for root, _, names in os.walk(out_dir):
        for name in names:
            rel = os.path.relpath(os.path.join(root, name), out_dir).replace(os.sep, "/")
            if rel not in files:
                os.remove(os.path.join(root, name))
    for name, text in sorted(files.items()):
        path = os.path.join(out_dir, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        data = text.encode("utf-8")
        if os.path.exists(path):
            with open(path, "rb") as f:
                if f.read() == data:
                    continue
        with open(path, "wb") as f:
            f.write(data)


def main(argv=None):
    ap = argparse.ArgumentParser(description="Generate the C++ layer of the ITS message set.")
    ap.add_argument("--asn1", default=os.environ.get("ETSI_ASN1_DIR", DEFAULT_ASN1),
                    help="folder of the ASN.1 modules (default: ../shared/asn1 beside the repository)")
    ap.add_argument("--out", default=DEFAULT_OUT, help="output folder (default: src/etsi)")
    args = ap.parse_args(argv)
    try:
        files = generate(args.asn1)
    except (Asn1Error, OSError) as e:
        print("asn1gen: %s" % e, file=sys.stderr)
        return 1
    write_tree(files, args.out)
    print("asn1gen: %d files written to %s" % (len(files), args.out))
    return 0


if __name__ == "__main__":
    sys.exit(main())
