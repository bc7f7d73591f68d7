#!/usr/bin/env python3
"""etsi-convert capture: real captures against tshark, every link type and GeoNetworking header
type, both signed envelopes, and hostile captures (cut, bad lengths, random bytes, not captures).

The real captures are read from the shared folder at run time; every other capture is built here,
from their packets or from scratch, in a temporary folder.
"""

import collections
import json
import os
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ET

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))
CONVERT = os.environ.get("ETSI_CONVERT", os.path.join(ROOT, "build", "etsi-convert"))
CAPTURES = os.path.join(SHARED, "captures")
TSHARK_DECODE = os.path.join(SHARED, "tools", "tshark_decode.py")
sys.path.insert(0, os.path.join(ROOT, "tests", "tshark"))
from tshark_judge import KNOWN_DIFFERENCES  # noqa: E402

MESSAGE_IDS = {1: "DENM", 2: "CAM", 4: "SPATEM", 5: "MAPEM", 6: "IVIM", 9: "SREM", 10: "SSEM"}
LEADING_KEYS = ["file", "frame", "time", "linktype", "message", "port", "secured", "station"]
SNAP_GN = b"\xaa\xaa\x03\x00\x00\x00\x89\x47"


def capture_files():
    return sorted(os.path.join(CAPTURES, f) for f in os.listdir(CAPTURES) if re.search(r"\.pcap(ng)?$", f))


def run(*args):
    p = subprocess.run([CONVERT, "capture", "--quiet"] + list(args), capture_output=True)
    err = p.stderr.decode("utf-8", "replace")
    # Under the sanitizer build a fault must not hide behind an expected exit status.
    if "Sanitizer" in err or "runtime error:" in err:
        raise AssertionError("sanitizer report for %s:\n%s" % (args, err[-3000:]))
    return p.returncode, p.stdout.decode("utf-8"), err


def records(stdout):
    return [json.loads(line, object_pairs_hook=collections.OrderedDict) for line in stdout.splitlines()]


def read_pcap(path):
    """(link type, [frame bytes]) of a classic pcap file."""
    with open(path, "rb") as f:
        data = f.read()
    endian = "<" if data[:4] in (b"\xd4\xc3\xb2\xa1", b"\x4d\x3c\xb2\xa1") else ">"
    linktype = struct.unpack(endian + "I", data[20:24])[0]
    frames, pos = [], 24
    while pos + 16 <= len(data):
        caplen = struct.unpack(endian + "I", data[pos + 8:pos + 12])[0]
        frames.append(data[pos + 16:pos + 16 + caplen])
        pos += 16 + caplen
    return linktype, frames


def pcap_bytes(linktype, frames):
    out = [struct.pack("<IHHiIII", 0xa1b2c3d4, 2, 4, 0, 0, 262144, linktype)]
    for i, frame in enumerate(frames):
        out.append(struct.pack("<IIII", 1700000000 + i, 123456, len(frame), len(frame)) + frame)
    return b"".join(out)


def gn_packets(path):
    """GeoNetworking packets (basic header onwards) of a shared capture, by link type."""
    linktype, frames = read_pcap(path)
    if linktype == 1:
        return [f[14:] for f in frames if f[12:14] == b"\x89\x47"]
    return [f[f.index(SNAP_GN) + 8:] for f in frames if SNAP_GN in f]


# Link layers around a GeoNetworking packet.
def ethernet(gn):
    return b"\xff" * 6 + b"\x02\x00\x00\x00\x00\x01" + b"\x89\x47" + gn


def wlan(gn, qos=True):
    fc = b"\x88\x00" if qos else b"\x08\x00"
    return fc + b"\x00\x00" + b"\xff" * 6 + b"\x02\x00\x00\x00\x00\x01" * 2 + b"\x10\x00" + \
        (b"\x00\x00" if qos else b"") + SNAP_GN + gn


def radiotap(gn):
    # present: TSFT and flags; flags say the frame ends with its FCS.
    header = struct.pack("<BBHI", 0, 0, 17, 0x3) + struct.pack("<Q", 42) + b"\x10"
    return header + wlan(gn) + b"\xde\xad\xbe\xef"


def sll(gn):
    return struct.pack(">HHH8sH", 1, 1, 6, b"\x02\x00\x00\x00\x00\x01", 0x8947) + gn


def sll2(gn):
    return struct.pack(">HHIHBB8s", 0x8947, 0, 1, 1, 1, 6, b"\x02\x00\x00\x00\x00\x01") + gn


# GeoNetworking headers.
def common_header(btp_payload, ht=5, hst=0, nh=2):
    return bytes([nh << 4, ht << 4 | hst, 0, 0]) + struct.pack(">H", len(btp_payload)) + b"\x01\x00"


EXTENDED = {(1, 0): 24, (2, 0): 48, (3, 0): 44, (3, 1): 44, (3, 2): 44, (4, 0): 44, (4, 1): 44,
            (4, 2): 44, (5, 0): 28, (5, 1): 28, (6, 0): 36, (6, 1): 48}


def unsecured_gn(btp_payload, ht=5, hst=0, version=1):
    return bytes([version << 4 | 1, 0, 0x1a, 1]) + common_header(btp_payload, ht, hst) + \
        b"\x00" * EXTENDED[(ht, hst)] + btp_payload


def oer_length(n):
    if n < 128:
        return bytes([n])
    body = n.to_bytes((n.bit_length() + 7) // 8, "big")
    return bytes([0x80 | len(body)]) + body


def v3_signed(inner):
    """Ieee1609Dot2Data signedData holding unsecuredData, then (unread) header info and signer."""
    return b"\x03\x81\x00\x40\x03\x80" + oer_length(len(inner)) + inner + b"\x40\x01\x24" + b"\x80" + b"\x00" * 40


def v2_signed(inner):
    """Version 2 secured message: header fields, signed payload, trailer."""
    header_fields = b"\x00" + b"\x00" * 8 + b"\x05\x24"
    return b"\x02" + bytes([len(header_fields)]) + header_fields + b"\x01" + \
        (bytes([len(inner)]) if len(inner) < 128 else bytes([0x80 | len(inner) >> 8, len(inner) & 255])) + \
        inner + b"\x43\x01" + b"\x00" * 66


def secured_gn(envelope, version=1):
    return bytes([version << 4 | 2, 0, 0x1a, 1]) + envelope


def cam_btp():
    """BTP-B header and CAM of the first CAM of the tcpdump capture."""
    for gn in gn_packets(os.path.join(CAPTURES, "tcpdump-geonet_v1.pcap")):
        if gn[40:42] == b"\x07\xd1":   # basic, common and single-hop headers: 4 + 8 + 28 bytes
            return gn[40:]
    raise AssertionError("no CAM in the tcpdump capture")


class Scratch(unittest.TestCase):
    def setUp(self):
        self.tmp = tempfile.mkdtemp(prefix="capture-test-")

    def tearDown(self):
        shutil.rmtree(self.tmp)

    def write(self, name, data):
        path = os.path.join(self.tmp, name)
        with open(path, "wb") as f:
            f.write(data)
        return path


class RealCaptures(unittest.TestCase):
    """The shared captures: our lines per message type equal tshark's ITS messages; a sample of
    each file agrees with tshark's decode; the record layout."""

    @classmethod
    def setUpClass(cls):
        cls.out = {}
        for path in capture_files():
            code, out, err = run(path)
            cls.out[path] = (code, records(out), out, err)

    def test_counts_equal_tsharks(self):
        if shutil.which("tshark") is None:
            self.skipTest("tshark is not installed")
        for path, (code, recs, _, _) in self.out.items():
            self.assertEqual(code, 0, path)
            tshark = subprocess.run(["tshark", "-r", path, "-Y", "its", "-T", "fields", "-e", "its.messageID"],
                                    capture_output=True, text=True, check=True)
            theirs = collections.Counter(MESSAGE_IDS[int(x)] for x in tshark.stdout.split())
            ours = collections.Counter(r["message"] for r in recs)
            self.assertEqual(ours, theirs, path)
            self.assertFalse([r for r in recs if "json" not in r], path)

    def test_record_layout(self):
        seen_secured = collections.Counter()
        for path, (_, recs, text, err) in self.out.items():
            for line, r in zip(text.splitlines(), recs):
                self.assertEqual(list(r)[:8] + list(r)[8:], LEADING_KEYS + ["json"], line[:200])
                self.assertEqual(r["file"], path)
                self.assertRegex(line, r'"time":\d{10}\.\d{6},')
                self.assertEqual(r["json"]["header"]["stationID"] if "stationID" in r["json"]["header"]
                                 else r["json"]["header"]["stationId"], r["station"])
                seen_secured[(os.path.basename(path), r["linktype"], r["secured"])] += 1
            frames = [r["frame"] for r in recs]
            self.assertEqual(frames, sorted(set(frames)))
            self.assertIn("capture summary: 1 files (0 unreadable)", err)
        self.assertEqual(seen_secured[("scapy-CAM_Recording.pcapng", "EN10MB", True)], 9)
        self.assertEqual(seen_secured[("cits-inspector-lb72-1021-rsu_rxa.pcap", "IEEE802_11_RADIO", True)], 155)
        self.assertEqual(seen_secured[("tcpdump-geonet_v1.pcap", "EN10MB", False)], 13)

    def test_sample_agrees_with_tshark(self):
        if shutil.which("tshark") is None:
            self.skipTest("tshark is not installed")
        rng = random.Random(10)
        problems, judged = [], 0
        for path in self.out:
            code, out, _ = run("--hex", path)
            hexes = {r["frame"]: r["uper"] for r in records(out)}
            by_type = collections.defaultdict(list)
            for r in self.out[path][1]:
                # tshark reads protocolVersion 1 with the older edition's schema: not comparable.
                if r["json"]["header"]["protocolVersion"] >= 2:
                    by_type[r["message"]].append((hexes[r["frame"]], r["json"]))
            for mtype, items in by_type.items():
                sample = rng.sample(items, min(6, len(items)))
                hex_file, json_file = os.path.join(tmp_dir(), "in.hex"), os.path.join(tmp_dir(), "ours.json")
                with open(hex_file, "w") as f:
                    f.write("\n".join(h for h, _ in sample) + "\n")
                with open(json_file, "w") as f:
                    f.write("\n".join(json.dumps(j) for _, j in sample) + "\n")
                p = subprocess.run([sys.executable, TSHARK_DECODE, "-t", mtype.lower(), "-f", hex_file,
                                    "--compare", json_file, "--norm-only"], capture_output=True, text=True)
                results = json.loads(p.stdout)
                judged += len(results)
                for res in results:
                    problems += [d for d in res.get("compare", [])
                                 if not any(re.search(pat, d) for pat, _ in KNOWN_DIFFERENCES)]
                    problems += [e for e in res.get("errors", []) if "unknown sequence extension" not in e]
        self.assertGreater(judged, 40)
        self.assertEqual(problems, [])

    def test_xml_and_hex_forms(self):
        path = os.path.join(CAPTURES, "cits-inspector-lb72-1021-rsu_rxa.pcap")
        code, out, _ = run("--xml", path)
        xml_recs = records(out)
        code2, out2, _ = run("--hex", path)
        hex_recs = records(out2)
        self.assertEqual((code, code2), (0, 0))
        json_recs = self.out[path][1]
        self.assertEqual([r["frame"] for r in xml_recs], [r["frame"] for r in json_recs])
        self.assertEqual([r["frame"] for r in hex_recs], [r["frame"] for r in json_recs])
        for rx, rh, rj in list(zip(xml_recs, hex_recs, json_recs))[::17]:
            self.assertEqual(list(rx)[-1], "xml")
            self.assertEqual(list(rh)[-1], "uper")
            ET.fromstring(rx["xml"].split("?>", 1)[1])
            one = subprocess.run([CONVERT, rj["message"], "to-json", "--batch"], input=rh["uper"] + "\n",
                                 capture_output=True, text=True).stdout
            self.assertEqual(json.loads(one), rj["json"])


_TMP = []


def tmp_dir():
    if not _TMP:
        _TMP.append(tempfile.mkdtemp(prefix="capture-judge-"))
    return _TMP[0]


class Synthesised(Scratch):
    """Every link type, every extended header type, both envelopes, built around one real CAM."""

    def expect_cams(self, path, count, linktype, secured):
        code, out, err = run(path)
        recs = records(out)
        self.assertEqual(code, 0, err)
        self.assertEqual(len(recs), count, out)
        for r in recs:
            self.assertEqual((r["linktype"], r["message"], r["port"], r["secured"]), (linktype, "CAM", 2001, secured))
            self.assertIn("json", r, r)
        return recs

    def test_link_types(self):
        gn = unsecured_gn(cam_btp())
        ref = self.expect_cams(self.write("eth.pcap", pcap_bytes(1, [ethernet(gn)])), 1, "EN10MB", False)
        for name, dlt, frame in [("IEEE802_11", 105, wlan(gn)), ("IEEE802_11", 105, wlan(gn, qos=False)),
                                 ("IEEE802_11_RADIO", 127, radiotap(gn)), ("LINUX_SLL", 113, sll(gn)),
                                 ("LINUX_SLL2", 276, sll2(gn))]:
            recs = self.expect_cams(self.write("l.pcap", pcap_bytes(dlt, [frame, frame[:10]])), 1, name, False)
            self.assertEqual(recs[0]["json"], ref[0]["json"])
        # An 802.11 frame that is not data, or protected: not ours, no line.
        mgmt = b"\x80" + wlan(gn)[1:]
        protected = wlan(gn)[:1] + b"\x40" + wlan(gn)[2:]
        self.expect_cams(self.write("m.pcap", pcap_bytes(105, [mgmt, protected])), 0, "", False)

    def test_unsupported_link_type_is_a_file_line(self):
        path = self.write("raw.pcap", pcap_bytes(101, [b"\x45" + b"\x00" * 40]))
        code, out, _ = run(path)
        self.assertEqual(code, 1)
        self.assertEqual(records(out), [{"file": path, "error": "unsupported link type RAW"}])

    def test_every_extended_header_type(self):
        btp = cam_btp()
        frames = [ethernet(unsecured_gn(btp, ht, hst, version)) for (ht, hst) in sorted(EXTENDED) for version in (0, 1)]
        # Beacons and location service packets carry no BTP: next header 0.
        frames.append(ethernet(bytes([0x11, 0, 0x1a, 1, 0x00, 0x10, 0, 0, 0, 0, 1, 0]) + b"\x00" * 24))
        self.expect_cams(self.write("ht.pcap", pcap_bytes(1, frames)), len(frames) - 1, "EN10MB", False)

    def test_envelopes(self):
        btp = cam_btp()
        inner = common_header(btp) + b"\x00" * 28 + btp
        inner_v0 = common_header(btp, 5, 1) + b"\x00" * 28 + btp
        v3_unsecured = b"\x03\x80" + oer_length(len(inner)) + inner
        frames = [ethernet(secured_gn(v3_signed(inner))), ethernet(secured_gn(v3_unsecured)),
                  ethernet(secured_gn(b"\x03\x81\x00\x40" + v3_signed(inner) + b"\x40\x01\x24" + b"\x00" * 9)),
                  ethernet(secured_gn(v2_signed(inner_v0), version=0)),
                  ethernet(secured_gn(v2_signed(inner_v0 + b"\x00" * 200), version=0))]
        recs = self.expect_cams(self.write("sec.pcap", pcap_bytes(1, frames)), 5, "EN10MB", True)
        self.assertEqual(len({json.dumps(r["json"]) for r in recs}), 1)

    def test_unreadable_envelopes_and_headers_give_reasons(self):
        btp = cam_btp()
        inner = common_header(btp) + b"\x00" * 28 + btp
        cases = [
            (secured_gn(b"\x03\x82\x00" + b"\x00" * 60), "Ieee1609Dot2Data: encrypted data"),
            (secured_gn(b"\x03\x81\x00\x20" + b"\x00" * 60), "Ieee1609Dot2Data: signed data without an embedded payload"),
            (secured_gn(b"\x04\x80\x05" + b"\x00" * 5), "secured packet: envelope version 4"),
            (secured_gn(b"\x02\x00\x02\x05abcde", version=0), "secured message: encrypted payload"),
            (secured_gn(v3_signed(inner)[:-len(btp) - 50]), "Ieee1609Dot2Data: unsecured data of"),
            (bytes([0x21, 0, 0, 1]) + inner, "GeoNetworking version 2"),
            (bytes([0x11, 0, 0, 1]) + bytes([0x20, 0x70]) + inner[2:], "header type 7 subtype 0"),
            (unsecured_gn(btp)[:-1], "GeoNetworking payload length"),
            (unsecured_gn(b"\x07\xd1\x00\x00\x02\x01\x00\x00\x00\x07" + b"\x00" * 20), "message ID 1 on BTP port 2001"),
        ]
        code, out, _ = run(self.write("bad.pcap", pcap_bytes(1, [ethernet(gn) for gn, _ in cases])))
        recs = records(out)
        self.assertEqual(code, 0)
        self.assertEqual(len(recs), len(cases), out)
        for r, (_, why) in zip(recs, cases):
            self.assertIn(why, r["error"], r)
            self.assertEqual(list(r)[:5], LEADING_KEYS[:5])
            self.assertEqual(list(r)[-1], "error")
        self.assertEqual((recs[-1]["message"], recs[-1]["port"], recs[-1]["station"]), ("CAM", 2001, 7))

    def test_conversion_failure_gives_status_and_goes_on(self):
        btp = cam_btp()
        cut = unsecured_gn(btp[:14])   # BTP, ITS PDU header and a few bytes of the CAM
        code, out, err = run(self.write("f.pcap", pcap_bytes(1, [ethernet(cut), ethernet(unsecured_gn(btp))])))
        recs = records(out)
        self.assertEqual(code, 0)
        self.assertEqual(list(recs[0])[-2:], ["status", "error"])
        self.assertLess(recs[0]["status"], 0)
        self.assertIn("json", recs[1])
        self.assertIn("failed conversions: 1", err)


class Arguments(unittest.TestCase):
    def test_bad_arguments_are_explained(self):
        for args, why in [((), "capture: FILE is required"),
                          (("--xml", "--hex", "x.pcap"), "--xml and --hex exclude each other"),
                          (("--frobnicate", "x.pcap"), "unknown option --frobnicate")]:
            p = subprocess.run([CONVERT, "capture"] + list(args), capture_output=True, text=True)
            self.assertEqual((p.returncode, p.stdout), (2, ""), args)
            self.assertIn(why, p.stderr)
        p = subprocess.run([CONVERT, "capture", "--help"], capture_output=True, text=True)
        self.assertEqual(p.returncode, 0)
        self.assertIn("etsi-convert capture [--xml | --hex] [--quiet] FILE...", p.stdout)


class Hostile(Scratch):
    """Cut, damaged and foreign input: a line or a message each, exit 1 only for whole files that
    cannot be read, and (under the sanitizer build) no fault."""

    def sources(self):
        btp = cam_btp()
        inner = common_header(btp) + b"\x00" * 28 + btp
        rxa = gn_packets(os.path.join(CAPTURES, "cits-inspector-lb72-1021-rsu_rxa.pcap"))
        v0_secured = next(g for g in rxa if g[0] == 0x02)
        v1_plain = next(g for g in rxa if g[0] == 0x11)
        return [unsecured_gn(btp), secured_gn(v3_signed(inner)), v0_secured, v1_plain]

    def check_lines(self, out, code):
        self.assertEqual(code, 0)
        for r in records(out):
            self.assertTrue("json" in r or "error" in r, r)

    def test_packets_cut_at_every_byte(self):
        frames = []
        for gn in self.sources():
            frames += [ethernet(gn[:n]) for n in range(len(gn))]
            frames += [radiotap(gn)[:n] for n in range(0, 120)]
        code, out, _ = run(self.write("cut.pcap", pcap_bytes(1, frames[:-120])))
        self.check_lines(out, code)
        code, out, _ = run(self.write("cut80211.pcap", pcap_bytes(127, frames[-120:])))
        self.check_lines(out, code)
        self.assertGreater(len(records(run(self.write("c.pcap", pcap_bytes(1, frames[:-120])))[1])), 900)

    def test_bad_lengths_in_every_header(self):
        frames = []
        for gn in self.sources():
            # Every byte of the first 260 (all length fields of the headers and envelopes live
            # there, also after the 196 bytes of header fields of the real version 2 envelope) set
            # to values that make lengths too long, too short, or of another form.
            for i in range(min(260, len(gn))):
                for v in (0x00, 0x7f, 0x81, 0xc0, 0xff):
                    frames.append(ethernet(gn[:i] + bytes([v]) + gn[i + 1:]))
        code, out, _ = run(self.write("len.pcap", pcap_bytes(1, frames)))
        self.check_lines(out, code)
        rng = random.Random(7)
        radio = [radiotap(self.sources()[0])]
        for _ in range(300):
            f = bytearray(radio[0])
            f[rng.randrange(0, 60)] = rng.randrange(256)
            radio.append(bytes(f))
        code, out, _ = run(self.write("radio.pcap", pcap_bytes(127, radio)))
        self.check_lines(out, code)

    def test_random_bytes(self):
        rng = random.Random(2026)
        frames = []
        for _ in range(3000):
            body = bytes(rng.randrange(256) for _ in range(rng.randrange(0, 120)))
            frames.append(ethernet(bytes([rng.choice([0x01, 0x02, 0x11, 0x12]), 0, 0, 1]) + body))
        code, out, _ = run(self.write("random.pcap", pcap_bytes(1, frames)))
        self.check_lines(out, code)
        for dlt in (1, 105, 113, 127, 276):
            code, out, _ = run(self.write("r.pcap", pcap_bytes(dlt, frames[:500])))
            self.check_lines(out, code)

    def test_whole_files(self):
        good = os.path.join(CAPTURES, "tcpdump-geonet_v1.pcap")
        with open(good, "rb") as f:
            data = f.read()
        with open(os.path.join(CAPTURES, "scapy-CAM_Recording.pcapng"), "rb") as f:
            ng = f.read()
        empty = self.write("empty.pcap", b"")
        text = self.write("notes.txt", b"this is not a capture\n" * 10)
        for path in (empty, text, os.path.join(self.tmp, "missing.pcap"), self.tmp):
            code, out, err = run(path)
            self.assertEqual(code, 1, path)
            recs = records(out)
            self.assertEqual(len(recs), 1)
            self.assertEqual(list(recs[0]), ["file", "error"])
            self.assertTrue(recs[0]["error"])
            self.assertIn("(1 unreadable)", err)
        # Cut anywhere after the file header: what was read is written, the cut is one line.
        for cut in list(range(24, len(data), 37)) + [len(data) - 1]:
            code, out, _ = run(self.write("t.pcap", data[:cut]))
            self.assertEqual(code, 0, cut)
            self.check_lines(out, code)
        for cut in range(0, len(ng), 53):
            code, out, _ = run(self.write("t.pcapng", ng[:cut]))
            self.assertIn(code, (0, 1), cut)
            for r in records(out):
                self.assertTrue("json" in r or "error" in r, r)
        # One unreadable file among good ones: all lines of the good ones, exit 1.
        code, out, _ = run(good, empty, good)
        recs = records(out)
        self.assertEqual(code, 1)
        self.assertEqual(len(recs), 27)
        self.assertEqual(recs[13], {"file": empty, "error": recs[13]["error"]})


if __name__ == "__main__":
    try:
        unittest.main()
    finally:
        for d in _TMP:
            shutil.rmtree(d, ignore_errors=True)
