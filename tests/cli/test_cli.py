#!/usr/bin/env python3
"""The command-line converter: conversions, batch mode, and clear answers to bad input."""

import os
import subprocess
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))
CONVERT = os.environ.get("ETSI_CONVERT", os.path.join(ROOT, "build", "etsi-convert"))
CAM = os.path.join(SHARED, "corpus", "CAM", "gn-rs-2.uper")
EXAMPLES = os.path.join(ROOT, "examples")
XML_DECLARATION = '<?xml version="1.0" encoding="UTF-8"?>'


def cam_bytes():
    with open(CAM, "rb") as f:
        return f.read()


def run(*args, stdin=b""):
    p = subprocess.run([CONVERT] + list(args), input=stdin, capture_output=True)
    return p.returncode, p.stdout.decode("utf-8", "replace"), p.stderr.decode("utf-8", "replace")


class ConvertTest(unittest.TestCase):
    def test_binary_and_hex_to_json_and_back(self):
        raw = cam_bytes()
        code, json_text, _ = run("CAM", "to-json", CAM)
        self.assertEqual(code, 0)
        self.assertTrue(json_text.startswith('{\n   "header":{'))
        code2, same, _ = run("cam", "to-json", "--hex", stdin=raw.hex().encode())
        self.assertEqual((code2, same), (0, json_text))
        code, hex_out, _ = run("CAM", "from-json", "--hex", stdin=json_text.encode())
        self.assertEqual((code, hex_out.strip()), (0, raw.hex()))
        code, bin_out, _ = run("CAM", "from-json", stdin=json_text.encode())
        self.assertEqual(code, 0)

    def test_batch_goes_on_after_a_failure(self):
        raw = cam_bytes().hex()
        code, out, _ = run("CAM", "to-json", "--batch", stdin=("%s\n0202\nzz\n%s\n" % (raw, raw)).encode())
        lines = out.splitlines()
        self.assertEqual(code, 1)
        self.assertEqual(len(lines), 4)
        self.assertTrue(lines[0].startswith('{"header":{"protocolVersion":2'))
        self.assertEqual(lines[1], "ERROR: Status -2: Unexpected end of buffer on decode")
        self.assertEqual(lines[2], "ERROR: invalid hex text")
        self.assertEqual(lines[3], lines[0])

    def test_bad_arguments_are_explained(self):
        for args, why in [((), "MESSAGE and DIRECTION are required"),
                          (("XYZ", "to-json"), "unknown message 'XYZ'"),
                          (("CAM", "sideways"), "unknown direction 'sideways'"),
                          (("CAM", "to-json", "--frobnicate"), "unknown option --frobnicate"),
                          (("CAM", "from-json", "--batch"), "--batch works with to-json and to-xml only"),
                          (("CAM", "from-xml", "--batch"), "--batch works with to-json and to-xml only")]:
            code, _, err = run(*args)
            self.assertEqual(code, 2, args)
            self.assertIn(why, err)
            self.assertIn("usage: etsi-convert", err)
        code, _, err = run("CAM", "to-json", "/nonexistent/file")
        self.assertEqual(code, 2)
        self.assertIn("cannot read /nonexistent/file", err)
        code, out, _ = run("--help")
        self.assertEqual(code, 0)
        self.assertIn("DIRECTION", out)

    def test_bad_input_gives_the_error_report(self):
        code, out, err = run("CAM", "to-json", "--hex", stdin=b"0202")
        self.assertEqual((code, out), (1, ""))
        self.assertTrue(err.startswith("ERROR: Status -2\nUnexpected end of buffer on decode\n"), err)
        code, out, err = run("CAM", "to-json", "--hex", stdin=b"02x2")
        self.assertEqual(code, 2)
        self.assertIn("not hex text", err)
        code, out, err = run("DENM", "from-json", stdin=b'{"header":{}}')
        self.assertEqual(code, 1)
        self.assertTrue(err.startswith("ERROR: Status -6\n"), err)



class XmlTest(unittest.TestCase):
    def test_binary_and_hex_to_xml_and_back(self):
        raw = cam_bytes()
        code, xml_text, _ = run("CAM", "to-xml", CAM)
        self.assertEqual(code, 0)
        self.assertTrue(xml_text.startswith(XML_DECLARATION + "\n<CAM>\n   <header>\n      <protocolVersion>2<"),
                        xml_text[:120])
        self.assertTrue(xml_text.endswith("\n</CAM>\n"), xml_text[-40:])
        code2, same, _ = run("cam", "to-xml", "--hex", stdin=raw.hex().encode())
        self.assertEqual((code2, same), (0, xml_text))
        code, hex_out, _ = run("CAM", "from-xml", "--hex", stdin=xml_text.encode())
        self.assertEqual((code, hex_out.strip()), (0, raw.hex()))
        p = subprocess.run([CONVERT, "CAM", "from-xml"], input=xml_text.encode(), capture_output=True)
        self.assertEqual((p.returncode, p.stdout), (0, raw))

    def test_batch_writes_one_document_per_line(self):
        raw = cam_bytes().hex()
        code, out, _ = run("CAM", "to-xml", "--batch", stdin=("%s\n0202\nzz\n\n%s\n" % (raw, raw)).encode())
        lines = out.splitlines()
        self.assertEqual(code, 1)
        self.assertEqual(len(lines), 4)
        self.assertTrue(lines[0].startswith(XML_DECLARATION + "<CAM><header><protocolVersion>2</protocolVersion>"),
                        lines[0][:120])
        self.assertTrue(lines[0].endswith("</cam></CAM>"), lines[0][-40:])
        self.assertEqual(lines[1], "ERROR: Status -2: Unexpected end of buffer on decode")
        self.assertEqual(lines[2], "ERROR: invalid hex text")
        self.assertEqual(lines[3], lines[0])
        # Each line is a document of its own and gives back the message.
        code, hex_out, err = run("CAM", "from-xml", "--hex", stdin=lines[0].encode())
        self.assertEqual((code, hex_out.strip()), (0, raw), err)

    def test_batch_keeps_line_breaks_inside_text(self):
        # A name with a line feed, a carriage return and the five escaped characters: on one line
        # the breaks become character references, and the line reads back as the same message.
        with open(os.path.join(EXAMPLES, "MAPEM.json"), encoding="utf-8") as f:
            doc = f.read()
        self.assertIn('"Leopoldstr / Ungererstr"', doc)
        doc = doc.replace('"Leopoldstr / Ungererstr"', '"Leopoldstr\\n   <&>\\r\'\\"  \\n"')
        code, uper, err = run("MAPEM", "from-json", "--hex", stdin=doc.encode())
        self.assertEqual(code, 0, err)
        code, xml_text, err = run("MAPEM", "to-xml", "--hex", stdin=uper.encode())
        self.assertEqual(code, 0, err)
        self.assertIn("<name>Leopoldstr\n   &lt;&amp;&gt;\r&apos;&quot;  \n</name>", xml_text)
        code, out, err = run("MAPEM", "to-xml", "--batch", stdin=uper.encode())
        self.assertEqual(code, 0, err)
        self.assertEqual(len(out.splitlines()), 1)
        self.assertIn("<name>Leopoldstr&#xA;   &lt;&amp;&gt;&#xD;&apos;&quot;  &#xA;</name>", out)
        code, back, err = run("MAPEM", "from-xml", "--hex", stdin=out.encode())
        self.assertEqual((code, back.strip()), (0, uper.strip()), err)

    def test_failures_give_the_error_report(self):
        code, out, err = run("CAM", "to-xml", "--hex", stdin=b"0202")
        self.assertEqual((code, out), (1, ""))
        self.assertTrue(err.startswith("ERROR: Status -2\nUnexpected end of buffer on decode\n"), err)
        code, xml_text, _ = run("CAM", "to-xml", CAM)
        self.assertEqual(code, 0)
        code, out, err = run("DENM", "from-xml", stdin=xml_text.encode())
        self.assertEqual((code, out), (1, ""))
        self.assertTrue(err.startswith("ERROR: Status -213\n"), err)
        code, out, err = run("CAM", "from-xml", stdin=xml_text.replace("<header>", "<header>\n<bogus/>", 1).encode())
        self.assertEqual((code, out), (1, ""))
        self.assertTrue(err.startswith("ERROR: Status "), err)
        self.assertIn("bogus", err)


if __name__ == "__main__":
    unittest.main()
