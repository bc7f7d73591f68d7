#!/usr/bin/env python3
"""Outside check of the XML form: our XML and our JSON of the same UPER bytes carry the same value.

  xml_json_judge.py [corpus]   every message of ../shared/corpus/ and the seven examples/<MSG>.hex
                               (the corpus has no IVIM): etsi-convert to-json and to-xml
                               of the same bytes, parsed with json and xml.etree, compared value by
                               value; also every line of to-xml --batch against its document
  xml_json_judge.py selftest   plants differences into real XML/JSON pairs (an integer, a dropped
                               member, an enumerator, a bit, a hex digit, a list item, an integer
                               inside a regional extension, a digit of an unknown extension) and
                               checks that the comparison reports each one at its place

Nothing of our C++ code interprets anything here: the two texts come from the command-line tool
and are read with Python's own parsers. The correspondence, without the ASN.1 types at hand:

  XML                                          JSON
  root element named after the message         the top-level object
  element with child elements                  object (members by name, same order), or array
                                               (items in order; XML items are named by their
                                               type, or "SEQUENCE") when the JSON side is one
  element holding one empty element <x/>       the enumerator string "x"
  element holding <true/> or <false/>          true or false
  decimal text                                 number
  upper-case hex text                          lower-case hex string (OCTET STRING)
  0/1 digits                                   hex of the bits, first bit in the high bit, pad
                                               bits zero (fixed size), or {"value", "length"}
  text, entities resolved                      the same string
  empty element                                {}, [], "", null, or a bit string of no bits
  regExtValue holding one element named after  regExtValue holding the members directly
  the extension type, which holds the members
  binext element with hex                      "_ext" or "_ext_N" member with hex (any case)

Whitespace-only text between elements is ignored. Known limitation: with no types at hand, a
character string whose XML and JSON texts differ only in letter case and are both hex digits
would pass as an OCTET STRING.

Exit status 0 when nothing differs, 1 otherwise; the last line reads "N passed, M failed".
"""

import collections
import json
import os
import re
import subprocess
import sys
import xml.etree.ElementTree as ET

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))
CONVERT = os.environ.get("ETSI_CONVERT", os.path.join(ROOT, "build", "etsi-convert"))
MESSAGES = ["CAM", "DENM", "SPATEM", "MAPEM", "IVIM", "SREM", "SSEM"]
DECLARATION = b'<?xml version="1.0" encoding="UTF-8"?>\n'
SHOW = 30  # differences printed in full

# Conversions that fail on purpose, in both forms with the same status: (test, status, reason).
EXPECTED_FAILURES = [
    (lambda m: m["type"] == "CAM" and m["version"] == 1, -4,
     "older-edition CAM (protocolVersion 1): the current edition's CAM does not decode it"),
]

HEX_UPPER = re.compile(r"(?:[0-9A-F]{2})*")
HEX_LOWER = re.compile(r"(?:[0-9a-f]{2})*")
BITS = re.compile(r"[01]*")
INTEGER = re.compile(r"-?[0-9]+")
EXT_KEY = re.compile(r"_ext(?:_[0-9]+)?")

# What the comparison met, by kind: shows in the summary how much each message type exercised.
SEEN = collections.Counter()


# ------------------------------------------------------------------------------------------------
# The comparison

def hex_bits(hex_text):
    return "".join(format(int(c, 16), "04b") for c in hex_text)


def bits_equal(bits, hex_text):
    """The 0/1 digits against the hex of the same bits: first bit in the high bit of the first
    byte, as many bytes as the bits need, pad bits zero."""
    if not BITS.fullmatch(bits) or not HEX_LOWER.fullmatch(hex_text):
        return False
    if len(hex_text) != 2 * ((len(bits) + 7) // 8):
        return False
    packed = hex_bits(hex_text)
    return packed[:len(bits)] == bits and "1" not in packed[len(bits):]


def text_equal(text, value):
    """A leaf: character string, OCTET STRING or fixed-size BIT STRING."""
    if text == value:
        return True
    t = text.strip()
    if HEX_UPPER.fullmatch(t) and HEX_LOWER.fullmatch(value) and t.lower() == value:
        return True
    return bits_equal(t, value)


def is_bit_string_object(value):
    return (isinstance(value, dict) and set(value) == {"value", "length"}
            and isinstance(value["value"], str) and isinstance(value["length"], int)
            and not isinstance(value["length"], bool))


def describe(value):
    text = json.dumps(value)
    return text if len(text) <= 60 else text[:57] + "..."


def xml_text(elem):
    """A short picture of an element for a difference report."""
    if len(elem):
        return "<%s>..." % elem.tag
    if not elem.text:
        return "<%s/>" % elem.tag
    return "<%s>%s" % (elem.tag, elem.text.strip()[:50])


def kind_of(x, j):
    """The construct that element x and JSON value j stand for, for the summary counts."""
    if isinstance(j, bool):
        return "boolean"
    if j is None:
        return "null"
    if isinstance(j, int):
        return "integer"
    if isinstance(j, str):
        return "enumerated" if len(x) else "text"
    if isinstance(j, list):
        return "list"
    if not isinstance(j, dict):
        return "other"
    if not len(x) and is_bit_string_object(j):
        return "bit string"
    return "regional" if x.tag == "regExtValue" else "object"


def compare(x, j, path, diffs):
    """Appends (path, what) for every place where element x and JSON value j differ."""
    def differ(what):
        diffs.append((path, what))

    kids = list(x)
    text = x.text or ""
    if x.attrib:
        differ("XML attributes %s" % dict(x.attrib))
    if kids and text.strip():
        differ("XML element has both text %r and child elements" % text.strip())
    for k in kids:
        if (k.tail or "").strip():
            differ("XML text %r after <%s>" % (k.tail.strip(), k.tag))

    SEEN[kind_of(x, j)] += 1
    if isinstance(j, bool):
        want = "true" if j else "false"
        if len(kids) != 1 or kids[0].tag != want or len(kids[0]) or (kids[0].text or "").strip():
            differ("BOOLEAN: XML %s, JSON %s" % ("".join(xml_text(k) for k in kids) or repr(text), want))
    elif j is None:
        if kids or text.strip():
            differ("NULL: XML element is not empty")
    elif isinstance(j, int):
        t = text.strip()
        if kids or not INTEGER.fullmatch(t) or int(t) != j:
            differ("INTEGER: XML %s, JSON %d" % (xml_text(x) if kids else repr(t), j))
    elif isinstance(j, str):
        if kids:
            k = kids[0]
            if len(kids) != 1 or len(k) or (k.text or "").strip() or k.tag != j:
                differ("ENUMERATED: XML %s, JSON %s" % ("".join(xml_text(k) for k in kids), describe(j)))
        elif not text_equal(text, j):
            differ("XML text %r, JSON %s" % (text[:80], describe(j)))
    elif isinstance(j, list):
        if not kids:
            if j or text.strip():
                differ("list: XML %r without items, JSON %d items" % (text.strip()[:40], len(j)))
            return
        if len({k.tag for k in kids}) > 1:
            differ("list items named differently: %s" % sorted({k.tag for k in kids}))
        if len(kids) != len(j):
            differ("list: XML %d items, JSON %d items" % (len(kids), len(j)))
        for i, (k, v) in enumerate(zip(kids, j)):
            compare(k, v, "%s[%d]" % (path, i), diffs)
    elif isinstance(j, dict):
        if not kids:
            if is_bit_string_object(j):
                t = text.strip()
                if len(t) != j["length"] or not bits_equal(t, j["value"]):
                    differ("BIT STRING: XML %r, JSON %s" % (t, describe(j)))
            elif j or text.strip():
                differ("XML %s without child elements, JSON %s" % (xml_text(x), describe(j)))
            return
        if x.tag == "regExtValue":
            # The typed value of a known region sits in one element named after its type.
            if len(kids) != 1:
                differ("regExtValue: %d child elements, one expected" % len(kids))
                return
            compare(kids[0], j, "%s/{%s}" % (path, kids[0].tag), diffs)
            return
        compare_members(kids, j, path, diffs)
    else:
        differ("JSON value %s of unexpected kind" % describe(j))


def member_name(tag):
    return "_ext" if tag == "binext" else tag


def compare_members(kids, j, path, diffs):
    xml_names = [member_name(k.tag) for k in kids]
    json_names = ["_ext" if EXT_KEY.fullmatch(k) else k for k in j]
    if xml_names != json_names:
        missing = [n for n in json_names if n not in xml_names]
        extra = [n for n in xml_names if n not in json_names]
        parts = []
        if missing:
            parts.append("not in XML: %s" % ", ".join(missing))
        if extra:
            parts.append("not in JSON: %s" % ", ".join(extra))
        if not parts:
            parts.append("XML order %s, JSON order %s" % (xml_names, json_names))
        diffs.append((path, "members differ; " + "; ".join(parts)))
    # Pair the members by name, in order, and compare what both sides have.
    used = set()
    for (key, value), name in zip(j.items(), json_names):
        idx = next((i for i, n in enumerate(xml_names) if n == name and i not in used), None)
        if idx is None:
            continue
        used.add(idx)
        k = kids[idx]
        if name == "_ext":
            SEEN["binext"] += 1
            t = (k.text or "").strip()
            if len(k) or not isinstance(value, str) or not re.fullmatch(r"[0-9A-Fa-f]*", t) \
                    or t.upper() != value.upper():
                diffs.append(("%s/%s" % (path, key), "unknown extension: XML binext %r, JSON %s"
                              % (t[:40], describe(value))))
        else:
            compare(k, value, "%s/%s" % (path, key), diffs)


def compare_documents(xml_bytes, json_bytes, mtype):
    """Differences between one XML document and one JSON document, [(path, what)]."""
    diffs = []
    if not xml_bytes.startswith(DECLARATION):
        diffs.append(("", "XML does not begin with the declaration line: %r" % xml_bytes[:50]))
    try:
        root = ET.fromstring(xml_bytes)
    except ET.ParseError as e:
        return diffs + [("", "XML does not parse: %s" % e)]
    try:
        top = json.loads(json_bytes)
    except ValueError as e:
        return diffs + [("", "JSON does not parse: %s" % e)]
    if root.tag != mtype:
        diffs.append(("", "XML root element <%s>, expected <%s>" % (root.tag, mtype)))
    if not isinstance(top, dict):
        return diffs + [("", "JSON top level is not an object")]
    compare(root, top, "", diffs)
    return diffs


def same_document(a, b):
    """Two XML texts parse to the same elements and leaf texts."""
    try:
        return same_tree(ET.fromstring(a), ET.fromstring(b))
    except ET.ParseError:
        return False


def same_tree(a, b):
    """Two parsed documents hold the same elements and the same leaf texts (layout aside)."""
    if a.tag != b.tag or a.attrib != b.attrib or len(a) != len(b):
        return False
    if len(a) == 0:
        return (a.text or "") == (b.text or "")
    return all(same_tree(c, d) for c, d in zip(a, b))


# ------------------------------------------------------------------------------------------------
# Running the converter

def convert(mtype, direction, hex_text, batch=False):
    """(status, output bytes): status 0, the negative status of the error report, or None when
    the tool gave no report."""
    args = [CONVERT, mtype, direction, "--batch" if batch else "--hex"]
    p = subprocess.run(args, input=hex_text.encode(), capture_output=True)
    if p.returncode == 0:
        return 0, p.stdout
    m = re.match(rb"ERROR: Status (-?[0-9]+)", p.stderr)
    return (int(m.group(1)) if m else None), p.stdout


def example_messages():
    """The bundled examples/<MSG>.hex: they add the types that the corpus lacks (IVIM)."""
    messages = []
    for mtype in MESSAGES:
        path = os.path.join(ROOT, "examples", mtype + ".hex")
        if os.path.exists(path):
            with open(path) as f:
                messages.append({"file": "examples/%s.hex" % mtype, "type": mtype, "version": 2,
                                 "hex": "".join(f.read().split())})
    return messages


def corpus_messages():
    messages = []
    with open(os.path.join(SHARED, "corpus", "MANIFEST.tsv"), encoding="utf-8") as f:
        next(f)
        for line in f:
            cols = line.rstrip("\n").split("\t")
            with open(os.path.join(SHARED, "corpus", cols[0]), "rb") as m:
                messages.append({"file": cols[0], "type": cols[1], "version": int(cols[2]),
                                 "hex": m.read().hex()})
    return messages


def pair(mtype, hex_text):
    """(json status, json bytes, xml status, xml bytes) of one message."""
    js, jt = convert(mtype, "to-json", hex_text)
    xs, xt = convert(mtype, "to-xml", hex_text)
    return js, jt, xs, xt


def judge_corpus():
    examples = example_messages()
    messages = corpus_messages() + examples
    passed = failed = 0
    shown = []
    skipped = {}
    print("xml_json_judge: our XML against our JSON of the same UPER bytes, %d corpus messages "
          "and %d examples" % (len(messages) - len(examples), len(examples)))
    for mtype in MESSAGES:
        group = [m for m in messages if m["type"] == mtype]
        compared = differing = unconverted = skipped_here = 0
        batch_docs = []
        for m in group:
            js, jt, xs, xt = pair(mtype, m["hex"])
            if js != 0 or xs != 0:
                reason = next((why for test, status, why in EXPECTED_FAILURES
                               if test(m) and js == status and xs == status), None)
                if reason:
                    skipped[reason] = skipped.get(reason, 0) + 1
                    skipped_here += 1
                else:
                    failed += 1
                    unconverted += 1
                    shown.append(("%s (%s)" % (m["file"], mtype), "", "conversion failed: to-json status %s, to-xml status %s"
                                  % (js, xs)))
                continue
            compared += 1
            batch_docs.append((m, xt, compare_documents(xt.rstrip(b"\n"), jt, mtype)))
        # The batch form of the same messages: one line per document, with the same value.
        if batch_docs:
            status, out = convert(mtype, "to-xml", "\n".join(m["hex"] for m, _, _ in batch_docs) + "\n",
                                  batch=True)
            lines = out.split(b"\n")[:-1]
            if status != 0 or len(lines) != len(batch_docs):
                failed += 1
                shown.append((mtype + " batch", "", "to-xml --batch: status %s, %d lines for %d messages"
                              % (status, len(lines), len(batch_docs))))
                lines = [None] * len(batch_docs)
            for (m, doc, diffs), line in zip(batch_docs, lines):
                if line is not None and not same_document(doc, line):
                    diffs.append(("", "its to-xml --batch line is not the same document"))
                if diffs:
                    failed += 1
                    differing += 1
                    shown.extend(("%s (%s)" % (m["file"], mtype), p or "/", what) for p, what in diffs)
                else:
                    passed += 1
        print("%-7s %3d messages: %3d compared, %d with differences, %d not converted, %d skipped; "
              "values: %s" % (mtype, len(group), compared, differing, unconverted, skipped_here,
                              ", ".join("%s %d" % kv for kv in sorted(SEEN.items())) or "none"))
        SEEN.clear()
    for reason, n in skipped.items():
        print("skipped %d: %s" % (n, reason))
    if shown:
        print("\nfirst differences (of %d):" % len(shown))
        for where, path, what in shown[:SHOW]:
            print("  %s %s: %s" % (where, path, what))
    print("%d passed, %d failed" % (passed, failed))
    return 0 if failed == 0 else 1


# ------------------------------------------------------------------------------------------------
# Self-test: planted differences must be found

def sites(x, j, path, regional=False):
    """Places of a clean pair where a difference can be planted: (kind, path, xml element,
    JSON container, key), walked in document order. Integers and enumerators inside the typed
    value of a regional extension are offered as kind "regional"."""
    kids = list(x)
    if isinstance(j, dict) and kids:
        if x.tag == "regExtValue" and len(kids) == 1:
            yield from sites(kids[0], j, "%s/{%s}" % (path, kids[0].tag), True)
            return
        for (key, value), k in zip(j.items(), kids):
            p = "%s/%s" % (path, key)
            if len(j) >= 2:
                yield ("member", path, x, j, key)
            if EXT_KEY.fullmatch(key):
                yield ("extension", p, k, j, key)
                continue
            if isinstance(value, bool) or value is None:
                continue
            if isinstance(value, int):
                yield ("regional" if regional else "integer", p, k, j, key)
            elif isinstance(value, str):
                t = (k.text or "").strip()
                if len(k) == 1:
                    yield ("regional" if regional else "enumerated", p, k, j, key)
                elif t and HEX_UPPER.fullmatch(t) and t.lower() == value and not BITS.fullmatch(t):
                    yield ("octets", p, k, j, key)
                elif t and bits_equal(t, value):
                    yield ("bits", p, k, j, key)
            elif is_bit_string_object(value) and value["length"] > 0:
                yield ("bits", p, k, j, key)
            else:
                yield from sites(k, value, p, regional)
    elif isinstance(j, list) and kids:
        yield ("item", path, x, j, None)
        for i, (k, v) in enumerate(zip(kids, j)):
            yield from sites(k, v, "%s[%d]" % (path, i), regional)


def plant(kind, x, j, key):
    """Makes one difference at a site; returns a description."""
    if kind in ("integer", "regional") and isinstance(j[key], int):
        j[key] += 1
        return "JSON integer %s + 1" % key
    if kind == "member":
        x.remove(list(x)[list(j).index(key)])
        return "XML member %s dropped" % key
    if kind in ("enumerated", "regional"):
        list(x)[0].tag += "X"
        return "XML enumerator renamed to %s" % list(x)[0].tag
    if kind == "bits":
        t = x.text.strip()
        x.text = ("1" if t[0] == "0" else "0") + t[1:]
        return "XML first bit flipped"
    if kind == "octets":
        v = j[key]
        j[key] = ("1" if v[0] != "1" else "2") + v[1:]
        return "JSON first hex digit changed"
    if kind == "extension":
        t = x.text.strip()
        x.text = ("1" if t[0] != "1" else "2") + t[1:]
        return "XML first hex digit of binext changed"
    if kind == "item":
        j.pop()
        return "JSON last list item dropped"
    raise ValueError(kind)


def selftest():
    kinds = ["integer", "member", "enumerated", "bits", "octets", "item", "regional", "extension"]
    candidates = [(m["type"], m["hex"]) for m in example_messages()]
    candidates += [(m["type"], m["hex"]) for m in corpus_messages() if m["version"] >= 2]
    passed = failed = 0
    need = set(kinds)
    chosen = []  # (mtype, xml, json, kinds taken from this pair)
    for mtype, hex_text in candidates:
        if not need:
            break
        js, jt, xs, xt = pair(mtype, hex_text)
        if js or xs:
            continue
        found = {s[0] for s in sites(ET.fromstring(xt), json.loads(jt), "")} & need
        if found:
            chosen.append((mtype, xt, jt, sorted(found)))
            need -= found
    if need:
        print("selftest: no real pair offers a place for: %s" % ", ".join(sorted(need)))
        failed += len(need)
    for mtype, xt, jt, found in chosen:
        diffs = compare_documents(xt.rstrip(b"\n"), jt, mtype)
        ok = not diffs
        print("%s clean pair (%d bytes of XML): %s" % (mtype, len(xt), "no difference" if ok else
                                                          "%d differences, first %s" % (len(diffs), diffs[0])))
        passed, failed = passed + ok, failed + (not ok)
        for kind in found:
            x, j = ET.fromstring(xt), json.loads(jt)
            site = next(s for s in sites(x, j, "") if s[0] == kind)
            what = plant(kind, site[2], site[3], site[4])
            diffs = []
            compare(x, j, "", diffs)
            hit = [d for d in diffs if d[0] == site[1]]
            ok = bool(hit) and len(diffs) == len(hit)
            print("  %-10s %-45s at %s: %s" % (kind, what, site[1] or "/",
                                               ("found: " + hit[0][1]) if ok else "NOT FOUND as expected: %s" % diffs))
            passed, failed = passed + ok, failed + (not ok)
    # The same pair through the document-level entry: a planted difference fails it, too.
    if chosen:
        mtype, xt, jt, _ = chosen[0]
        broken = xt.replace(b"<header>", b"<header><extra/>", 1)
        ok = any("not in JSON: extra" in what for _, what in compare_documents(broken.rstrip(b"\n"), jt, mtype))
        print("  %-10s %-45s: %s" % ("document", "XML element <extra/> added", "found" if ok else "NOT FOUND"))
        passed, failed = passed + ok, failed + (not ok)
    print("%d passed, %d failed" % (passed, failed))
    return 0 if failed == 0 else 1


def main(argv):
    if not os.access(CONVERT, os.X_OK):
        print("xml_json_judge: %s is not built" % CONVERT)
        return 2
    if argv in ([], ["corpus"]):
        return judge_corpus()
    if argv == ["selftest"]:
        return selftest()
    print(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
