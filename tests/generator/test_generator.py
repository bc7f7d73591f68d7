"""Tests of the ASN.1 code generator on small ASN.1 texts and on the real module set."""

import os
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
if ROOT not in sys.path:
    sys.path.insert(0, ROOT)

from tools.asn1gen import emit_values, emit_xml  # noqa: E402
from tools.asn1gen.asn1gen import generate  # noqa: E402
from tools.asn1gen.lexer import Asn1Error, tokenize  # noqa: E402
from tools.asn1gen.model import load_model, load_texts  # noqa: E402
from tools.asn1gen.parser import parse_text  # noqa: E402

SHARED = os.environ.get("ETSI_SHARED_DIR", os.path.join(ROOT, "..", "shared"))
ASN1_DIR = os.path.join(SHARED, "asn1")


def module(body, name="M", imports=""):
    return "%s DEFINITIONS AUTOMATIC TAGS ::= BEGIN\n%s\n%s\nEND\n" % (name, imports, body)


def model_of(body, **extra):
    texts = {"m.asn": module(body)}
    texts.update(extra)
    return load_texts(texts)


def td(model, asn1_name):
    return next(t for t in model.typedefs if t.asn1_name == asn1_name)


class LexerTest(unittest.TestCase):
    def test_comments_end_at_double_dash_or_line_end(self):
        toks = [t.text for t in tokenize("A -- one -- ::= -- two\nINTEGER /* x /* y */ z */ (0..7)")]
        self.assertEqual(toks, ["A", "::=", "INTEGER", "(", "0", "..", "7", ")", ""])

    def test_crlf_and_missing_final_newline(self):
        toks = tokenize("A ::=\r\n  BOOLEAN\r\nB::=INTEGER")
        self.assertEqual([t.text for t in toks][:-1], ["A", "::=", "BOOLEAN", "B", "::=", "INTEGER"])
        self.assertEqual(toks[3].line, 3)

    def test_strings_and_symbols(self):
        toks = tokenize("\"a\"\"b\" '0101'B 'FF'H [[ ]] ... &Type")
        self.assertEqual([(t.kind, t.text) for t in toks][:-1],
                         [("str", 'a"b'), ("bstr", "0101"), ("hstr", "FF"), ("sym", "[["),
                          ("sym", "]]"), ("sym", "..."), ("field", "&Type")])

    def test_bad_character_reports_line(self):
        with self.assertRaisesRegex(Asn1Error, r"x.asn:2: unexpected character"):
            tokenize("A ::= BOOLEAN\n#", "x.asn")


class ParserTest(unittest.TestCase):
    def test_module_header_and_imports(self):
        mods = parse_text("M {iso(1) standard(0) 42 x(7)} DEFINITIONS AUTOMATIC TAGS ::= BEGIN\n"
                          "IMPORTS A, B{} FROM N {iso(1) standard(0) 9} C FROM O;\nEND")
        m = mods[0]
        self.assertEqual(m.oid, (1, 0, 42, 7))
        self.assertEqual(m.tag_default, "AUTOMATIC")
        self.assertEqual([(i.symbols, i.module, i.oid) for i in m.imports],
                         [(["A", "B"], "N", (1, 0, 9)), (["C"], "O", None)])

    def test_syntax_error_names_file_and_line(self):
        with self.assertRaisesRegex(Asn1Error, r"bad.asn:3: expected a type"):
            parse_text("M DEFINITIONS ::= BEGIN\nA ::= SEQUENCE {\n a , b INTEGER }\nEND", "bad.asn")

    def test_missing_end(self):
        with self.assertRaisesRegex(Asn1Error, "missing END"):
            parse_text("M DEFINITIONS ::= BEGIN\nA ::= BOOLEAN\n")


class ConstructTest(unittest.TestCase):
    def test_sequence_optional_default_extensions_and_groups(self):
        m = model_of("S ::= SEQUENCE { a BOOLEAN, b INTEGER (0..7) OPTIONAL, c INTEGER DEFAULT 5, ...,"
                     " d BOOLEAN, [[ e BOOLEAN, f INTEGER (1..2) OPTIONAL ]], g BOOLEAN OPTIONAL }")
        s = td(m, "S").body
        self.assertTrue(s.extensible)
        self.assertEqual([c.name for c in s.root_components], ["a", "b", "c"])
        self.assertEqual([(c.name, c.ext_index, c.group) for c in s.addition_components],
                         [("d", 0, None), ("e", 1, 1), ("f", 1, 1), ("g", 2, None)])
        self.assertEqual(s.components[2].default, 5)
        self.assertEqual([c.name for c in s.components if c.has_present_bit], list("bcdefg"))

    def test_choice_with_extension_alternatives(self):
        c = td(model_of("C ::= CHOICE { a BOOLEAN, b NULL, ..., c INTEGER (0..3) }"), "C").body
        self.assertTrue(c.extensible)
        self.assertEqual([(a.name, a.ext_index) for a in c.alternatives], [("a", None), ("b", None), ("c", 0)])

    def test_enumerated_numbering(self):
        e = td(model_of("E ::= ENUMERATED { a, b(5), c, ..., d, e(9), f }"), "E").body
        self.assertEqual(e.root, [("a", 0), ("b", 5), ("c", 1)])
        self.assertEqual(e.ext_items, [("d", 6), ("e", 9), ("f", 10)])

    def test_integer_constraints(self):
        m = model_of("I ::= INTEGER { low(0), high(15) } (0..15)\n"
                     "J ::= I (2..4 | 6..8)\n"
                     "K ::= INTEGER (-5..1000, ...)\n"
                     "L ::= INTEGER\n"
                     "v I ::= 3\n"
                     "N ::= INTEGER (v..MAX)\n")
        self.assertEqual(td(m, "I").body.named, [("low", 0), ("high", 15)])
        j = td(m, "J").body.cons
        self.assertEqual((j.lo, j.hi, j.ext), (2, 8, False))
        k = td(m, "K").body.cons
        self.assertEqual((k.lo, k.hi, k.ext), (-5, 1000, True))
        self.assertFalse(td(m, "L").body.cons.has_range())
        n = td(m, "N").body.cons
        self.assertEqual((n.lo, n.hi), (3, None))
        self.assertIs(td(m, "J").alias, td(m, "I"))

    def test_size_constraints_and_alphabets(self):
        m = model_of("A ::= SEQUENCE (SIZE(1..8),...) OF BOOLEAN\n"
                     "B ::= SEQUENCE SIZE(0..40) OF BOOLEAN\n"
                     "C ::= OCTET STRING (SIZE(6))\n"
                     "D ::= IA5String (SIZE(1..24, ...))\n"
                     "E ::= NumericString (SIZE(1..16))\n"
                     "F ::= IA5String (FROM(\"A\"..\"D\" | \"z\"))\n"
                     "G ::= BIT STRING { x(0), y(1) } (SIZE(2))\n"
                     "H ::= SEQUENCE (SIZE(1..32, ..., 100)) OF BOOLEAN\n")
        c = lambda n: td(m, n).body.cons
        self.assertEqual((c("A").size_lo, c("A").size_hi, c("A").size_ext), (1, 8, True))
        self.assertEqual((c("B").size_lo, c("B").size_hi, c("B").size_ext), (0, 40, False))
        self.assertEqual((c("C").size_lo, c("C").size_hi), (6, 6))
        self.assertEqual((c("D").size_lo, c("D").size_hi, c("D").size_ext), (1, 24, True))
        self.assertEqual(c("E").alphabet, " 0123456789")
        self.assertEqual(c("F").alphabet, "ABCDz")
        self.assertEqual(td(m, "G").body.named, [("x", 0), ("y", 1)])
        # sizes after the extension marker are not part of the root
        self.assertEqual((c("H").size_lo, c("H").size_hi, c("H").size_ext), (1, 32, True))

    def test_inner_subtype_constraints(self):
        m = model_of("S ::= SEQUENCE { a BOOLEAN OPTIONAL, b BOOLEAN OPTIONAL }\n"
                     "T ::= SEQUENCE { s S (WITH COMPONENTS {..., a ABSENT}) }\n"
                     "U ::= SEQUENCE { a BOOLEAN OPTIONAL, b BOOLEAN OPTIONAL }"
                     " (WITH COMPONENTS {..., a PRESENT} | WITH COMPONENTS {..., b PRESENT})\n")
        self.assertEqual(td(m, "T").body.components[0].type.cons.inner, [(True, {"a": "ABSENT"})])
        self.assertEqual(td(m, "U").body.cons.inner,
                         [("union", [(True, {"a": "PRESENT"}), (True, {"b": "PRESENT"})])])

    def test_nested_types_get_parent_component_names(self):
        m = model_of("P ::= SEQUENCE { inner SEQUENCE { e ENUMERATED { x, y } }, "
                     "list SEQUENCE (SIZE(1..2)) OF CHOICE { a BOOLEAN, b BOOLEAN }, "
                     "n INTEGER { one(1) } (0..3), plain INTEGER (0..3) }")
        self.assertEqual([t.cname for t in m.typedefs],
                         ["P", "P_inner", "P_inner_e", "P_list", "P_list_element", "P_n"])

    def test_recursive_type_through_a_list(self):
        m = model_of("G ::= SEQUENCE { attrs SEQUENCE OF A OPTIONAL }\n"
                     "A ::= SEQUENCE { g G (WITH COMPONENTS {..., attrs ABSENT}) OPTIONAL }")
        self.assertIs(td(m, "A").body.components[0].type.typedef, td(m, "G"))


REGIONAL = """
RegionId ::= INTEGER (0..255)
addGrpC RegionId ::= 3
REG-EXT-ID-AND-TYPE ::= CLASS { &id RegionId UNIQUE, &Type } WITH SYNTAX {&Type IDENTIFIED BY &id}
RegionalExtension {REG-EXT-ID-AND-TYPE : Set} ::= SEQUENCE {
  regionId     REG-EXT-ID-AND-TYPE.&id( {Set} ),
  regExtValue  REG-EXT-ID-AND-TYPE.&Type( {Set}{@regionId} ) }
Pos ::= SEQUENCE { lat INTEGER (0..9),
  regional SEQUENCE (SIZE(1..4)) OF RegionalExtension {{Reg-Pos}} OPTIONAL, ... }
Other ::= SEQUENCE { regional RegionalExtension {{Reg-Other}} }
Pos-addGrpC ::= SEQUENCE { alt INTEGER (0..7) }
Reg-Pos REG-EXT-ID-AND-TYPE ::= { {Pos-addGrpC IDENTIFIED BY addGrpC}, ... }
Reg-Other REG-EXT-ID-AND-TYPE ::= { ... }
"""


class RegionalTest(unittest.TestCase):
    def test_object_sets_bind_regions(self):
        m = model_of(REGIONAL)
        names = [t.cname for t in m.typedefs]
        self.assertNotIn("RegionalExtension", names)    # a template is no type of its own
        self.assertIn("Pos_regional", names)
        el = td(m, "Pos.regional.element").body
        self.assertTrue(el.regional)
        self.assertEqual(el.components[0].type.typedef.asn1_name, "RegionId")
        opent = el.components[1].type
        self.assertEqual([(rid, t.typedef.asn1_name, n) for rid, t, n in opent.objects],
                         [(3, "Pos-addGrpC", "addGrpC")])
        self.assertEqual(td(m, "Other.regional").body.components[1].type.objects, [])

    def test_import_by_object_identifier(self):
        a = "A {1 2 3} DEFINITIONS AUTOMATIC TAGS ::= BEGIN\nX ::= BOOLEAN\nEND"
        b = ("B DEFINITIONS AUTOMATIC TAGS ::= BEGIN\nIMPORTS X FROM OtherName {1 2 3};\n"
             "Y ::= SEQUENCE { x X }\nEND")
        m = load_texts({"a.asn": a, "b.asn": b})
        self.assertEqual(td(m, "Y").body.components[0].type.typedef.module.name, "A")

    def test_resolution_errors(self):
        with self.assertRaisesRegex(Asn1Error, "undefined reference Nope"):
            model_of("A ::= SEQUENCE { x Nope }")
        with self.assertRaisesRegex(Asn1Error, "does not define Z"):
            load_texts({"a.asn": module("X ::= BOOLEAN", "A"),
                        "b.asn": module("Y ::= BOOLEAN", "B", "IMPORTS Z FROM A;")})


class EmitTest(unittest.TestCase):
    def test_value_structures(self):
        m = model_of("S ::= SEQUENCE { a BOOLEAN, b INTEGER (-1..300) OPTIONAL, s IA5String, ... }\n"
                     "C ::= CHOICE { x S, y INTEGER (0..70000), z NULL, ... }\n"
                     "L ::= SEQUENCE OF S\n"
                     "E ::= ENUMERATED { zz, aa, mm }\n")
        h = emit_values.emit_header(m, m.modules[0])
        self.assertIn("struct {\n      unsigned bPresent : 1;\n   } m{};", h)
        self.assertIn("QSINT16 b{};", h)
        self.assertIn("const char* s{};", h)
        self.assertIn("ASN1TSeqExt extElem1{};", h)
        self.assertIn("ASN1T_S* x;  /* t = 1 */", h)
        self.assertIn("QSUINT32* y;  /* t = 2 */", h)
        self.assertIn("typedef ASN1TSeqOfList ASN1T_L;", h)
        self.assertIn("typedef QSUINT32 ASN1T_E;", h)
        src = emit_values.emit_source(m, m.modules[0])
        # Name table sorted by name; transidx maps a value to its entry in one step.
        self.assertIn('{ (const QSUTF8CHAR*)"aa", 1, 2, 2 },\n'
                      '   { (const QSUTF8CHAR*)"mm", 2, 2, 0 },\n'
                      '   { (const QSUTF8CHAR*)"zz", 0, 2, 1 },', src)


@unittest.skipUnless(os.path.isdir(ASN1_DIR), "ASN.1 modules not found beside the repository")
class RealModulesTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.model = load_model(ASN1_DIR)

    def test_type_counts(self):
        counts = {}
        for t in self.model.typedefs:
            counts[t.module.name] = counts.get(t.module.name, 0) + 1
        self.assertEqual(len(self.model.typedefs), 682)
        self.assertEqual(counts["ITS-Container"], 136)
        self.assertEqual(counts["IVI"], 116)
        self.assertEqual(counts["DSRC"], 223)
        self.assertEqual(counts["AddGrpC"], 25)
        self.assertEqual(sum(n for mod, n in counts.items()
                             if mod not in ("ITS-Container", "IVI", "DSRC", "AddGrpC")), 182)

    def test_messages(self):
        msgs = {t.asn1_name: t.body.components[1].type.typedef.cname for t in self.model.messages()}
        self.assertEqual(msgs, {"CAM": "CoopAwareness", "DENM": "DecentralizedEnvironmentalNotificationMessage",
                                "SPATEM": "ETSI_DSRC_SPAT", "MAPEM": "ETSI_DSRC_MapData",
                                "IVIM": "IVI_IviStructure", "SREM": "ETSI_DSRC_SignalRequestMessage",
                                "SSEM": "ETSI_DSRC_SignalStatusMessage", "RTCMEM": "ETSI_DSRC_RTCMcorrections"})

    def test_region_three_bound_in_eleven_sets(self):
        bound = {}
        for t in self.model.typedefs:
            b = t.body
            if t.alias is None and b.kind == "SEQUENCE" and b.regional:
                ot = b.components[1].type
                bound[ot.objset] = [(rid, o.typedef.cname) for rid, o, _ in ot.objects]
        self.assertEqual(len(bound), 27)
        with_region = {k: v for k, v in bound.items() if v}
        self.assertEqual(len(with_region), 11)
        self.assertEqual(with_region["Reg-MapData"], [(3, "ETSI_GrpC_MapData_addGrpC")])
        self.assertEqual(with_region["Reg-NodeAttributeSetXY"], [(3, "ETSI_GrpC_NodeAttributeSet_addGrpC")])

    def test_effective_constraints_of_known_types(self):
        t = {x.asn1_name: x for x in self.model.typedefs}
        lat = t["Latitude"].body.cons
        self.assertEqual((lat.lo, lat.hi, lat.ext), (-900000000, 900000001, False))
        unit = next(c for c in t["InternationalSign-speedLimits"].body.components if c.name == "unit")
        self.assertEqual((unit.type.cons.lo, unit.type.cons.hi), (0, 1))
        tc = [c for c in t["TcPart"].body.components if c.ext_index is not None]
        self.assertEqual([(c.name, c.group) for c in tc],
                         [("iviType", 0), ("laneStatus", 0), ("vehicleCharacteristics", 0)])

    def test_generation_is_deterministic(self):
        self.assertEqual(generate(ASN1_DIR), generate(ASN1_DIR))

    def test_three_files_per_module(self):
        """<Module> (header and source), <Module>Enc and <Module>Dec hold everything of a
        module, the coders of every encoding included; besides them only the inventory and the
        test support."""
        files = generate(ASN1_DIR)
        top = sorted(n for n in files if "/" not in n)
        want = sorted([m.name + s for m in self.model.modules for s in (".h", ".cpp", "Enc.cpp", "Dec.cpp")]
                      + ["INVENTORY.tsv", "etsiInventory.h", "etsiInventory.cpp"])
        self.assertEqual(top, want)
        self.assertTrue(all(n.startswith("testsupport/") for n in files if "/" in n))
        cam_dec = files["CAM-PDU-DescriptionsDec.cpp"]
        self.assertIn('THIS_FILE = "../src/etsi/CAM-PDU-DescriptionsDec.cpp"', cam_dec)
        for coder in ("int asn1PD_CAM(", "int asn1JsonDec_CAM(", "int XmlDec_CAM("):
            self.assertIn(coder, cam_dec)

    def test_xml_sequence_groups(self):
        """The member groups of a SEQUENCE decoder: a member with the optional members that may
        stand in its place, unknown elements allowed only after the last mandatory member."""
        t = {x.asn1_name: x for x in self.model.typedefs}
        b = t["CamParameters"].body
        groups, last = emit_xml.sequence_groups(b.components, b.extensible)
        self.assertEqual(groups, [(0, 1, -1), (1, 1, -1), (2, 2, 4), (3, 1, 4), (4, 0, 4)])
        self.assertEqual(last, 1)
        self.assertEqual(emit_xml.item_name(t["PathHistory"].body.element), "PathPoint")
        self.assertEqual(emit_xml.item_name(t["MapData.regional"].body.element), "SEQUENCE")


if __name__ == "__main__":
    unittest.main()
