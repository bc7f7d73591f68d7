"""Emits test support for every type (compiled into the tests only): a random-value builder
`asn1Rand_<T>` that stays inside every constraint, and a canonical printer `asn1Print_<T>` that
turns a value into text, so that two values compare equal exactly when their texts do."""

from .ctypes import constraint_key, ctype, int_ctype, is_small_bitstring
from .emit_per import lit, string_params, cstring
from .emit_xml import POINTER_KINDS as XML_POINTER_KINDS
from .emit_values import tname
from .model import c_ident
from .writer import CodeWriter

DIR = "testsupport/"


def param_type(td):
    return "ASN1TSeqOfList" if td.body.kind == "SEQUENCE_OF" else tname(td)


def inner_rules(inner):
    """Flattens WITH COMPONENTS constraints to (component, presence) rules the builder obeys;
    of alternatives, the first is taken."""
    rules = []
    for entry in inner:
        if entry[0] == "union":
            entry = entry[1][0]
        rules.extend((n, p) for n, p in entry[1].items() if p in ("PRESENT", "ABSENT"))
    return rules


def unbound_regional(rt):
    """A regional extension (or a list of them) whose object set binds no region: its values
    can only be raw, which the text forms do not carry back."""
    if rt.kind == "SEQUENCE_OF":
        rt = rt.element
    return rt.kind == "SEQUENCE" and rt.regional and not rt.components[1].type.objects


class TestEmitter:
    def __init__(self, mi):
        self.mi = mi

    # ---- random values -------------------------------------------------------------------------
    def rand_value(self, w, rt, expr):
        """Statements giving the lvalue `expr` of ctype(rt) a random valid value."""
        if rt.kind == "NULL":
            return
        if rt.typedef is not None and self.same_limits(rt):
            w.line("asn1Rand_%s(r, ctxt, &%s);" % (rt.typedef.cname, expr))
        else:
            self.rand_inline(w, rt, expr)
        if rt.kind == "SEQUENCE":
            self.enforce(w, rt, expr, rt.cons.inner if rt.typedef is None else
                         [x for x in rt.cons.inner if x not in rt.typedef.body.cons.inner])

    @staticmethod
    def same_limits(rt):
        return constraint_key(rt.cons) == constraint_key(rt.typedef.body.cons)

    def enforce(self, w, rt, expr, inner):
        comps = {c.name: c for c in rt.components}
        for name, presence in inner_rules(inner):
            c = comps.get(name)
            if c is None or not c.has_present_bit:
                continue
            if presence == "ABSENT":
                w.line("%s.m.%sPresent = 0;" % (expr, c.cname))
            else:
                w.line("if (!%s.m.%sPresent) {" % (expr, c.cname))
                w.indent()
                w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
                self.rand_value(w, c.type, "%s.%s" % (expr, c.cname))
                w.dedent()
                w.line("}")

    @staticmethod
    def size_bounds(c, default_hi):
        lo = c.size_lo if c.size_lo is not None else 0
        hi = c.size_hi if c.size_hi is not None else lo + default_hi
        return lo, hi

    def rand_inline(self, w, rt, expr):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            w.line("%s = (QSBOOL)r.below(2);" % expr)
        elif k == "INTEGER":
            ct = int_ctype(c)
            if not c.has_range():
                lo = lit(c.lo) if c.lo is not None else "INT64_MIN"
                w.line("%s = (%s)r.anyInt64(%s);" % (expr, ct, lo))
            elif c.ext:
                w.line("%s = (%s)r.extInt(%s, %s, %s);" % (expr, ct, lit(c.lo), lit(c.hi),
                                                         "1" if ct.startswith("QSU") else "0"))
            else:
                w.line("%s = (%s)r.range(%s, %s);" % (expr, ct, lit(c.lo), lit(c.hi)))
        elif k == "ENUMERATED":
            vals = [v for _, v in rt.root + (rt.ext_items or [])]
            w.line("{")
            w.line("   static const QSUINT32 vals[%d] = { %s };" % (len(vals), ", ".join(map(str, vals))))
            w.line("   %s = vals[r.below(r.textSafe ? %d : %d)];" % (expr, len(rt.root), len(vals)))
            w.line("}")
        elif k == "BIT_STRING":
            lo, hi = self.size_bounds(c, 70)
            if is_small_bitstring(rt):
                w.line("r.bits32(%s, %d, %d);" % (expr, lo, hi))
            else:
                w.line("r.dynBits(ctxt, %s, %d, %d);" % (expr, lo, hi))
        elif k == "OCTET_STRING":
            lo, hi = self.size_bounds(c, 24)
            w.line("r.octets(ctxt, %s, %d, %d);" % (expr, lo, hi))
        elif k == "STRING":
            lo, hi = self.size_bounds(c, 16)
            sp = string_params(rt)
            if sp is None:
                w.line("%s = r.utf8(ctxt, %d, %d);" % (expr, lo, hi))
            else:
                alpha = sp[0]
                if alpha is None:
                    alpha = "".join(chr(x) for x in range(32, 127))
                w.line("%s = r.chars(ctxt, %s, %d, %d);" % (expr, cstring(alpha), lo, hi))
        elif k == "OPEN":
            w.line("r.octets(ctxt, %s, 1, 6);" % expr)
        elif k == "SEQUENCE":
            self.rand_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.rand_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            self.rand_seqof(w, rt, expr)

    def rand_sequence(self, w, rt, expr):
        w.line("r.depth++;")
        if any(c.has_present_bit for c in rt.components):
            w.line("memset(&%s.m, 0, sizeof(%s.m));" % (expr, expr))
        positions = sorted({c.ext_index for c in rt.addition_components})
        for c in rt.components:
            if rt.regional and c.type.kind == "OPEN":
                self.rand_regional(w, rt, c, expr)
                continue
            if c.ext_index is not None:
                continue
            if c.has_present_bit:
                w.line("if (r.optional()%s) {" % (" && !r.textSafe" if unbound_regional(c.type) else ""))
                w.indent()
                w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
            self.rand_value(w, c.type, "%s.%s" % (expr, c.cname))
            if c.has_present_bit:
                w.dedent()
                w.line("}")
        for p in positions:
            members = [c for c in rt.addition_components if c.ext_index == p]
            w.line("if (r.addition()) {")
            w.indent()
            for c in members:
                mandatory = not (c.optional or c.default is not None)
                if not mandatory:
                    w.line("if (r.optional()) {")
                    w.indent()
                w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
                self.rand_value(w, c.type, "%s.%s" % (expr, c.cname))
                if not mandatory:
                    w.dedent()
                    w.line("}")
            w.dedent()
            w.line("}")
        if rt.extensible:
            w.line("r.unknownAdditions(ctxt, %s.extElem1);" % expr)
        self.enforce(w, rt, expr, rt.cons.inner)
        w.line("r.depth--;")

    def rand_regional(self, w, rt, c, expr):
        idc = next(x for x in rt.components if x.name == c.type.id_component)
        objs = c.type.objects
        sel = "%s.%s" % (expr, c.cname)
        ids = [rid for rid, _, _ in objs]
        w.line("{")
        w.indent()
        if objs:
            w.line("QSUINT32 pick = (QSUINT32)(r.textSafe ? 1 + r.below(%d) : r.below(%d));"
                   % (len(objs), len(objs) + 1))
        else:
            w.line("QSUINT32 pick = 0;")
            w.line("if (r.textSafe) r.spoiled = true;")
            w.line("(void)pick;")
        for i, (rid, ot, name) in enumerate(objs):
            t = ctype(ot)
            w.line("if (pick == %d) {" % (i + 1))
            w.indent()
            w.line("%s.%s = %d;" % (expr, idc.cname, rid))
            w.line("%s.t = %d;" % (sel, i + 1))
            w.line("%s* pv = new (rtxMemHeapAlloc(ctxt, sizeof(%s))) %s();" % (t, t, t))
            w.line("%s.u.%s = pv;" % (sel, c_ident(name)))
            self.rand_value(w, ot, "(*pv)")
            w.dedent()
            w.line("}")
            w.line("else")
        w.line("{")
        w.indent()
        w.line("%s.t = 0;" % sel)
        w.line("do %s.%s = (%s)r.range(0, 255); while (%s);" % (
            expr, idc.cname, ctype(idc.type),
            " || ".join("%s.%s == %d" % (expr, idc.cname, i) for i in ids) or "0"))
        w.line("%s.u.extElem1 = new (rtxMemHeapAlloc(ctxt, sizeof(ASN1TOpenType))) ASN1TOpenType();" % sel)
        w.line("r.octets(ctxt, *%s.u.extElem1, 1, 6);" % sel)
        w.dedent()
        w.line("}")
        w.dedent()
        w.line("}")

    def rand_choice(self, w, rt, expr):
        alts = rt.alternatives
        n = len(alts)
        w.line("r.depth++;")
        w.line("QSUINT32 pick = (QSUINT32)r.below(%d);" % n)
        avoid = [i for i, a in enumerate(alts) if unbound_regional(a.type)]
        if avoid and len(avoid) < n:
            w.line("while (r.textSafe && (%s)) pick = (QSUINT32)r.below(%d);"
                   % (" || ".join("pick == %d" % i for i in avoid), n))
        if rt.extensible:
            w.line("if (r.unknownAlternative()) {")
            w.line("   %s.t = %d + (QSUINT32)r.below(3);" % (expr, n + 1))
            w.line("   %s.u.extElem1 = new (rtxMemHeapAlloc(ctxt, sizeof(ASN1TOpenType))) ASN1TOpenType();" % expr)
            w.line("   r.octets(ctxt, *%s.u.extElem1, 1, 6);" % expr)
            w.line("   r.depth--;")
            w.line("   return;")
            w.line("}")
        w.line("%s.t = pick + 1;" % expr)
        w.line("switch (pick) {")
        for i, a in enumerate(alts):
            w.line("case %d: {" % i)
            w.indent()
            if a.type.kind != "NULL":
                t = ctype(a.type)
                w.line("%s* pv = new (rtxMemHeapAlloc(ctxt, sizeof(%s))) %s();" % (t, t, t))
                w.line("%s.u.%s = pv;" % (expr, a.cname))
                self.rand_value(w, a.type, "(*pv)")
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default: break;")
        w.line("}")
        w.line("r.depth--;")

    def rand_seqof(self, w, rt, expr):
        c = rt.cons
        lo, hi = self.size_bounds(c, 4)
        el = rt.element
        t = ctype(el)
        w.line("rtxDListInit(&%s);" % expr)
        w.line("r.depth++;")
        w.line("QSSIZE n = r.count(%d, %d);" % (lo, hi))
        w.line("for (QSSIZE i = 0; i < n; i++) {")
        w.indent()
        w.line("%s* pv = new (rtxMemHeapAlloc(ctxt, sizeof(%s))) %s();" % (t, t, t))
        self.rand_value(w, el, "(*pv)")
        w.line("rtxDListAppend(ctxt, &%s, pv);" % expr)
        w.dedent()
        w.line("}")
        w.line("r.depth--;")

    # ---- printing ------------------------------------------------------------------------------
    def print_value(self, w, rt, expr):
        if rt.kind == "NULL":
            w.line('out += "null";')
            return
        if rt.typedef is not None:
            w.line("asn1Print_%s(out, &%s);" % (rt.typedef.cname, expr))
            return
        k = rt.kind
        if k == "BOOLEAN":
            w.line("out += std::to_string((int)%s);" % expr)
        elif k == "ENUMERATED":
            w.line("out += std::to_string(%s);" % expr)
        elif k == "INTEGER":
            cast = "long long" if int_ctype(rt.cons).startswith("QSI") else "unsigned long long"
            w.line("out += std::to_string((%s)%s);" % (cast, expr))
        elif k == "BIT_STRING":
            w.line("asn1PrintBits(out, %s.numbits, %s.data);" % (expr, expr))
        elif k in ("OCTET_STRING", "OPEN"):
            w.line("asn1PrintHex(out, %s.numocts, %s.data);" % (expr, expr))
        elif k == "STRING":
            w.line("asn1PrintString(out, %s);" % expr)
        elif k == "SEQUENCE":
            self.print_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.print_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            el = rt.element
            t = ctype(el)
            w.line('out += "[";')
            w.line("for (const QSRTDListNode* node = %s.head; node != 0; node = node->next) {" % expr)
            w.indent()
            w.line('if (node != %s.head) out += ",";' % expr)
            self.print_value(w, el, "(*(const %s*)node->data)" % t)
            w.dedent()
            w.line("}")
            w.line('out += "]";')

    def print_sequence(self, w, rt, expr):
        w.line('out += "{";')
        for c in rt.components:
            if rt.regional and c.type.kind == "OPEN":
                sel = "%s.%s" % (expr, c.cname)
                w.line('out += "%s=";' % c.name)
                w.line("switch (%s.t) {" % sel)
                w.line("case 0: out += \"raw:\"; if (%s.u.extElem1) asn1PrintHex(out, %s.u.extElem1->numocts, "
                       "%s.u.extElem1->data); break;" % (sel, sel, sel))
                for i, (_, ot, name) in enumerate(c.type.objects):
                    w.line("case %d:" % (i + 1))
                    w.indent()
                    w.line('out += "%s:";' % name)
                    self.print_value(w, ot, "(*%s.u.%s)" % (sel, c_ident(name)))
                    w.line("break;")
                    w.dedent()
                w.line('default: out += "?"; break;')
                w.line("}")
                w.line('out += ";";')
                continue
            if c.has_present_bit:
                w.line("if (%s.m.%sPresent) {" % (expr, c.cname))
                w.indent()
            w.line('out += "%s=";' % c.name)
            self.print_value(w, c.type, "%s.%s" % (expr, c.cname))
            w.line('out += ";";')
            if c.has_present_bit:
                w.dedent()
                w.line("}")
        if rt.extensible:
            w.line("asn1PrintExtList(out, %s.extElem1);" % expr)
        w.line('out += "}";')

    def print_choice(self, w, rt, expr):
        w.line("switch (%s.t) {" % expr)
        for i, a in enumerate(rt.alternatives):
            w.line("case %d:" % (i + 1))
            w.indent()
            w.line('out += "%s:";' % a.name)
            if a.type.kind != "NULL":
                self.print_value(w, a.type, "(*%s.u.%s)" % (expr, a.cname))
            w.line("break;")
            w.dedent()
        w.line("default:")
        w.indent()
        w.line('out += "alt" + std::to_string(%s.t) + ":";' % expr)
        if rt.extensible:
            w.line("if (%s.u.extElem1) asn1PrintHex(out, %s.u.extElem1->numocts, %s.u.extElem1->data);"
                   % (expr, expr, expr))
        w.line("break;")
        w.dedent()
        w.line("}")

    # ---- functions -----------------------------------------------------------------------------
    def functions(self, w, td):
        pt = param_type(td)
        b = td.body
        w.line("void asn1Rand_%s(Asn1Random& r, QSCTXT* ctxt, %s* pvalue)" % (td.cname, pt))
        w.line("{")
        w.indent()
        if b.kind == "NULL":
            w.line("(void)r; (void)ctxt; (void)pvalue;")
        else:
            if td.alias is not None and self.same_limits_alias(td):
                w.line("asn1Rand_%s(r, ctxt, pvalue);" % td.alias.cname)
            else:
                body = CodeWriter()
                body.level = w.level
                self.rand_inline(body, b, "(*pvalue)")
                txt = "\n".join(body.lines)
                if "ctxt" not in txt:
                    w.line("(void)ctxt;")
                w.lines.extend(body.lines)
        w.dedent()
        w.line("}")
        w.blank()
        w.line("void asn1Print_%s(std::string& out, const %s* pvalue)" % (td.cname, pt))
        w.line("{")
        w.indent()
        self.print_value(w, b, "(*pvalue)")
        w.dedent()
        w.line("}")
        w.blank()

    @staticmethod
    def same_limits_alias(td):
        return constraint_key(td.body.cons) == constraint_key(td.alias.body.cons)


def emit_type_table(model):
    """Untyped wrappers and the table `etsiTestTypes` of every type."""
    w = CodeWriter()
    w.line("/* Generated by asn1gen: table of every type for tests. Do not edit. */")
    w.line('#include "etsiTestSupport.h"')
    w.line("#include <new>")
    w.blank()
    w.line("namespace {")
    for td in model.typedefs:
        pt = param_type(td)
        t = tname(td)
        by_pointer = td.body.kind in ("SEQUENCE", "CHOICE", "SEQUENCE_OF", "OPEN")
        w.line("void* make_%s(QSCTXT* ctxt) { void* p = rtxMemHeapAlloc(ctxt, sizeof(%s)); "
               "return p ? new (p) %s() : 0; }" % (td.cname, t, t))
        w.line("void rand_%s(Asn1Random& r, QSCTXT* ctxt, void* v) { asn1Rand_%s(r, ctxt, (%s*)v); }"
               % (td.cname, td.cname, pt))
        w.line("void print_%s(std::string& out, const void* v) { asn1Print_%s(out, (const %s*)v); }"
               % (td.cname, td.cname, pt))
        w.line("int enc_%s(QSCTXT* ctxt, void* v) { return asn1PE_%s(ctxt, %s(%s*)v); }"
               % (td.cname, td.cname, "" if by_pointer else "*", pt))
        w.line("int dec_%s(QSCTXT* ctxt, void* v) { return asn1PD_%s(ctxt, (%s*)v); }"
               % (td.cname, td.cname, pt))
        w.line("int jenc_%s(QSCTXT* ctxt, void* v) { return asn1JsonEnc_%s(ctxt, (%s*)v); }"
               % (td.cname, td.cname, pt))
        w.line("int jdec_%s(QSCTXT* ctxt, void* v) { return asn1JsonDec_%s(ctxt, (%s*)v); }"
               % (td.cname, td.cname, pt))
        w.line("int xenc_%s(QSCTXT* ctxt, void* v, const QSUTF8CHAR* name) "
               "{ return XmlEnc_%s(ctxt, %s(%s*)v, name, 0); }"
               % (td.cname, td.cname, "" if td.body.kind in XML_POINTER_KINDS else "*", pt))
        w.line("int xdec_%s(QSCTXT* ctxt, void* v) { return XmlDec_%s(ctxt, (%s*)v); }"
               % (td.cname, td.cname, pt))
    w.line("}")
    w.blank()
    w.line("const EtsiTestType etsiTestTypes[] = {")
    for td in model.typedefs:
        c = td.cname
        w.line('   { "%s", %s, make_%s, rand_%s, print_%s, enc_%s, dec_%s, jenc_%s, jdec_%s, xenc_%s, xdec_%s },'
               % (c, "true" if td.is_message else "false", c, c, c, c, c, c, c, c, c))
    w.line("};")
    w.line("const size_t etsiTestTypeCount = sizeof(etsiTestTypes) / sizeof(etsiTestTypes[0]);")
    return w.text()


def emit(model):
    out = {}
    h = CodeWriter()
    h.line("/* Generated by asn1gen: random values and canonical printing of every type (tests only). */")
    h.line("#ifndef ETSI_TEST_SUPPORT_H")
    h.line("#define ETSI_TEST_SUPPORT_H")
    h.blank()
    h.line("#include <string>")
    h.line('#include "tests/support/asn1TestSupport.h"')
    for mi in model.modules:
        h.line('#include "../%s.h"' % mi.name)
    h.blank()
    for td in model.typedefs:
        pt = param_type(td)
        h.line("void asn1Rand_%s(Asn1Random& r, QSCTXT* ctxt, %s* pvalue);" % (td.cname, pt))
        h.line("void asn1Print_%s(std::string& out, const %s* pvalue);" % (td.cname, pt))
    h.blank()
    h.line("#endif")
    out[DIR + "etsiTestSupport.h"] = h.text()
    out[DIR + "etsiTestTypes.cpp"] = emit_type_table(model)
    for mi in model.modules:
        te = TestEmitter(mi)
        w = CodeWriter()
        w.line("/* Generated by asn1gen from ASN.1 module %s: test support. Do not edit. */" % mi.name)
        w.line('#include "etsiTestSupport.h"')
        w.line("#include <new>")
        w.line("#include <string.h>")
        w.line("#include <stdint.h>")
        w.blank()
        for td in mi.typedefs:
            te.functions(w, td)
        out[DIR + mi.name + "Test.cpp"] = w.text()
    return out
