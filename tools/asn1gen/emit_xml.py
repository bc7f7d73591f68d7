"""Emits the XML codecs: `XmlEnc_<T>` into `<Module>Enc.cpp` and `XmlDec_<T>` into
`<Module>Dec.cpp`. The XML form is XER-like: one element per member named by its identifier,
members in definition order, enumerators and booleans as empty child elements, octets as
upper-case hex, bits as 0/1 digits, list items named by their type."""

from .ctypes import ctype, int_ctype, is_small_bitstring
from .emit_text import TextEmitter, range_conds
from .emit_values import Family, tname
from .lexer import Asn1Error
from .model import c_ident
from .writer import CodeWriter

RUNTIME_HEADER = "rtxmlsrc/asn1XmlGen.h"

# Element names of list items whose type has no name of its own.
BUILTIN_NAMES = {
    "BOOLEAN": "BOOLEAN", "NULL": "NULL", "INTEGER": "INTEGER", "ENUMERATED": "ENUMERATED",
    "BIT_STRING": "BIT_STRING", "OCTET_STRING": "OCTET_STRING", "OPEN": "OPEN_TYPE",
    "SEQUENCE": "SEQUENCE", "CHOICE": "CHOICE", "SEQUENCE_OF": "SEQUENCE_OF", "REAL": "REAL",
}

POINTER_KINDS = ("SEQUENCE", "CHOICE", "SEQUENCE_OF", "OPEN", "BIT_STRING", "OCTET_STRING")

END = "QSXML_END_OF_CONTENT"


def qs(name):
    return '(const QSUTF8CHAR*)"%s"' % name


def item_name(rt):
    """Element name of a list item of type `rt`: its type's name, or the built-in type's."""
    td = rt.typedef
    if td is not None and not td.nested:
        return td.asn1_name
    body = td.body if td is not None else rt
    if body.kind == "STRING":
        return body.string_type
    return BUILTIN_NAMES[body.kind]


def enc_param(td):
    k = td.body.kind
    if k == "SEQUENCE_OF":
        return "ASN1TSeqOfList* pvalue"
    if k in POINTER_KINDS:
        return "%s* pvalue" % tname(td)
    return "%s value" % tname(td)


def dec_type(td):
    return "ASN1TSeqOfList" if td.body.kind == "SEQUENCE_OF" else tname(td)


def elem_table(w, var, names):
    """Static table of expected child elements, identifiers in table order."""
    w.line("static const QSXmlElemDescr %s[%d] = {" % (var, max(len(names), 1)))
    for i, n in enumerate(names):
        w.line('   { "%s", %d, 0, %d },' % (n, len(n.encode("utf-8")), i))
    if not names:
        w.line('   { 0, 0, 0, 0 },')
    w.line("};")


def sequence_groups(comps, extensible):
    """(groups, last mandatory group): per member, the entries that may come in its place (the
    member and the optional members after it up to the next mandatory one), plus one group for
    unknown elements after the last member of an extensible type. Unknown elements are taken as
    extensions only in groups after the last mandatory one."""
    n = len(comps)
    last_mand = max([i for i, c in enumerate(comps) if not c.has_present_bit], default=-1)
    groups = []
    for i in range(n):
        j = i
        while j < n - 1 and comps[j].has_present_bit:
            j += 1
        any_id = n if extensible and i > last_mand else -1
        groups.append((i, j - i + 1, any_id))
    if extensible:
        groups.append((n, 0, n))
    return groups, last_mand


class XmlEmitter(TextEmitter):
    def __init__(self, mi):
        self.mi = mi
        self.cur_td = None
        self.fast_names = {}   # element name -> C array of the name padded for block copies

    # ---- encoding ------------------------------------------------------------------------------
    def fast_name(self, name):
        """The static array holding `name` padded with NULs to a multiple of 16 bytes (the fast
        element writers copy names in 16-byte blocks)."""
        var = self.fast_names.get(name)
        if var is None:
            var = "XmlName_%d" % len(self.fast_names)
            self.fast_names[name] = var
        return var

    def emit_fast_names(self):
        lines = []
        for name, var in self.fast_names.items():
            size = (len(name.encode("utf-8")) // 16 + 1) * 16
            lines.append('static const char %s[%d] = "%s";' % (var, size, name))
        return lines

    def fast_leaf(self, rt, expr, raw):
        """The call of a fast element writer for a member value of a simple type (nonzero when
        it did not write), with the checks of the value's encoder that must pass first; None
        when the type has no fast writer."""
        body = rt.typedef.body if self.uses_typedef_codec(rt) else rt
        k = body.kind
        if k not in ("INTEGER", "BOOLEAN", "BIT_STRING", "STRING") and \
                not (k == "ENUMERATED" and self.uses_typedef_codec(rt)):
            return None
        nm = "@NAME@"
        if k == "INTEGER":
            ct = int_ctype(body.cons)
            conds = []
            if body.cons.has_range() and not body.cons.ext and self.uses_typedef_codec(rt):
                conds = range_conds(ct, body.cons.lo, body.cons.hi, expr)
            if ct.startswith("QSU"):
                call = "rtXmlEncFastUInt(ctxt, (QSUINT64)%s, %s)" % (expr, nm)
            else:
                call = "rtXmlEncFastInt(ctxt, (QSINT64)%s, %s)" % (expr, nm)
            return conds, call
        if k == "ENUMERATED":
            top = max(v for _, v in body.root)
            n = len(body.root) + len(body.ext_items or [])
            t = tname(rt.typedef)
            return ["%s > %d" % (expr, top)], \
                "rtXmlEncFastEnum(ctxt, %s_ENUMTAB, %d, (QSINT32)%s, %s)" % (t, n, expr, nm)
        if k == "BOOLEAN":
            return [], "rtXmlEncFastBool(ctxt, %s, %s)" % (expr, nm)
        if k == "STRING":
            # the byte length checks of a type's own encoder are made by the fast writer too
            c = body.cons
            lo, hi = 0, 1 << 40
            if c.has_size() and not c.size_ext and self.uses_typedef_codec(rt):
                lo, hi = c.size_lo, c.size_hi
            return [], "rtXmlEncFastStr(ctxt, %s, %d, %d, %s)" % (expr, lo, hi, nm)
        if k == "BIT_STRING":
            c = body.cons
            conds = []
            if c.has_size() and not c.size_ext and self.uses_typedef_codec(rt):
                conds = range_conds("QSUINT32", c.size_lo, c.size_hi, "%s.numbits" % expr)
            limit = "8 * sizeof(%s.data)" % expr if is_small_bitstring(body) else "%s.numbits" % expr
            return conds, "rtXmlEncFastBits(ctxt, %s.numbits, %s.data, %s, %s)" % (expr, expr, limit, nm)
        return None

    def enc_value(self, w, rt, expr, name, raw=None):
        """Encodes the member value `expr` as the element `name` (a C expression) in the
        members' namespace. With the name's text `raw`, a value of a simple type is written by
        the fast writer when it can, else by the general code."""
        fast = self.fast_leaf(rt, expr, raw) if raw is not None else None
        if fast is not None:
            conds, call = fast
            sub = CodeWriter()
            self.enc_value(sub, rt, expr, name)
            general = sub.lines[-1].strip()
            prefix = "if ((stat = "
            suffix = ") != 0) return LOG_RTERR(ctxt, stat);"
            if general.startswith(prefix) and general.endswith(suffix):
                # the checks of an inline value stay in front, as they are
                for line in sub.lines[:-1]:
                    w.line(line.rstrip())
                gcall = general[len(prefix):-len(suffix)]
                call = call.replace("@NAME@", "%s, %d" % (self.fast_name(raw), len(raw.encode("utf-8"))))
                w.line("if ((%s != 0) && (stat = %s) != 0) return LOG_RTERR(ctxt, stat);"
                       % (" || ".join(conds + [call]), gcall))
                return
        if raw is not None and self.uses_typedef_codec(rt) and \
                rt.typedef.body.kind in ("SEQUENCE", "CHOICE", "SEQUENCE_OF"):
            self.enc_container(w, rt, expr, name, raw)
            return
        if self.uses_typedef_codec(rt):
            arg = "&%s" % expr if rt.typedef.body.kind in POINTER_KINDS else expr
            self.check(w, "XmlEnc_%s(ctxt, %s, %s, ns.childURI)" % (rt.typedef.cname, arg, name))
        else:
            self.enc_inline(w, rt, expr, name, "ns.pChild")

    def enc_container(self, w, rt, expr, name, raw):
        """A member of a structured type with an encoder of its own: its start and end tag are
        written here by the fast writers around the encoder called with an empty name (which
        writes the content straight in), the name pushed in between as the encoder would; when
        the fast start does not apply, or a check that the encoder makes before its start tag
        would fail, the encoder is called with the name."""
        td = rt.typedef
        while td.alias is not None and self.uses_typedef_codec(td.body):
            td = td.alias
        conds = []
        c = td.body.cons
        if td.body.kind == "SEQUENCE_OF" and c.has_size() and not c.size_ext:
            conds = range_conds("QSUINT32", c.size_lo, c.size_hi, "%s.count" % expr)
        nm = "%s, %d" % (self.fast_name(raw), len(raw.encode("utf-8")))
        call = "XmlEnc_%s(ctxt, &%s, %%s, ns.childURI)" % (rt.typedef.cname, expr)
        w.line("if (%srtXmlEncFastStart(ctxt, %s) == 0) {" % ("".join("!(%s) && " % x for x in conds), nm))
        w.indent()
        self.check(w, call % qs(""))
        w.line("if ((stat = rtXmlEncFastEnd(ctxt, %s)) != 0) {" % nm)
        # the encoder's own end tag would have recorded the failure there first
        w.line('   rtxErrSetData(ctxt, stat, "../src/etsi/%sEnc.cpp", __LINE__);' % td.module.name)
        w.line("   return LOG_RTERR(ctxt, stat);")
        w.line("}")
        w.dedent()
        w.line("}")
        w.line("else if ((stat = %s) != 0) return LOG_RTERR(ctxt, stat);" % (call % name))

    def start_elem(self, w, name, rec):
        """Start tag of a structured value; the name given to an encoder may be empty (content
        straight into the open element), which the inline form passes over without a call."""
        fn = "rtXmlEncStartContent(ctxt, %s, %s)" if name == "elemName" else "rtXmlEncStartElement(ctxt, %s, %s, 0, 1)"
        self.check(w, fn % (name, rec))

    def end_elem(self, w, name, rec):
        fn = "rtXmlEncEndContent(ctxt, %s, %s)" if name == "elemName" else "rtXmlEncEndElement(ctxt, %s, %s)"
        self.check(w, fn % (name, rec))

    def enc_inline(self, w, rt, expr, name, rec):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            self.check(w, "rtXmlEncBool(ctxt, %s, %s, %s)" % (expr, name, rec))
        elif k == "NULL":
            self.check(w, "rtXmlEncNull(ctxt, %s, %s)" % (name, rec))
        elif k == "INTEGER":
            self.range_check(w, rt, expr)
            ct = int_ctype(c)
            fn = {"QSINT64": "rtXmlEncInt64", "QSUINT64": "rtXmlEncUInt64"}.get(
                ct, "rtXmlEncUInt" if ct.startswith("QSU") else "rtXmlEncInt")
            self.check(w, "%s(ctxt, %s, %s, %s)" % (fn, expr, name, rec))
        elif k == "ENUMERATED":
            top = max(v for _, v in rt.root)
            n = len(rt.root) + len(rt.ext_items or [])
            t = tname(self.cur_td)
            w.line("if (%s > %d) return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);" % (expr, top))
            self.check(w, "rtXmlEncEnumValue(ctxt, %s_ENUMTAB, %d, (QSINT32)%s, %s, %s)" % (t, n, expr, name, rec))
        elif k == "BIT_STRING":
            self.size_check(w, c, "%s.numbits" % expr)
            if c.size_ext and is_small_bitstring(rt):
                self.check(w, "rtXmlEncBitStringExt(ctxt, %s.numbits, %s.data, sizeof(%s.data), 0, %s, %s)"
                           % (expr, expr, expr, name, rec))
            else:
                self.check(w, "rtXmlEncBitString(ctxt, %s.numbits, %s.data, %s, %s)" % (expr, expr, name, rec))
        elif k == "OCTET_STRING":
            self.size_check(w, c, "%s.numocts" % expr)
            self.check(w, "rtXmlEncHexBinary(ctxt, %s.numocts, %s.data, %s, %s)" % (expr, expr, name, rec))
        elif k == "STRING":
            self.string_size_check(w, c, expr)
            self.check(w, "rtXmlEncUTF8Str(ctxt, (const QSUTF8CHAR*)%s, %s, %s)" % (expr, name, rec))
        elif k == "OPEN":
            self.check(w, "rtAsn1XmlEncOpenType(ctxt, %s.data, %s.numocts, %s, %s)" % (expr, expr, name, rec))
        elif k == "SEQUENCE":
            self.enc_sequence(w, rt, expr, name, rec)
        elif k == "CHOICE":
            self.enc_choice(w, rt, expr, name, rec)
        elif k == "SEQUENCE_OF":
            self.enc_seqof(w, rt, expr, name, rec)
        else:
            raise Asn1Error("no XML encoding for %s" % k)

    def enc_sequence(self, w, rt, expr, name, rec):
        self.start_elem(w, name, rec)
        for c in rt.components:
            if c.has_present_bit:
                w.line("if (%s.m.%sPresent) {" % (expr, c.cname))
                w.indent()
            if rt.regional and c.type.kind == "OPEN":
                self.enc_regional_value(w, c, expr)
            elif c.type.kind == "NULL" and c.type.typedef is None:
                self.check(w, "rtXmlEncNull(ctxt, %s, ns.pChild)" % qs(c.name))
            else:
                self.enc_value(w, c.type, "%s.%s" % (expr, c.cname), qs(c.name), c.name)
            if c.has_present_bit:
                w.dedent()
                w.line("}")
        if rt.extensible:
            w.line("if (%s.extElem1.head != 0 && (stat = rtAsn1XmlEncOpenTypeExt(ctxt, &%s.extElem1)) != 0) "
                   "return LOG_RTERR(ctxt, stat);" % (expr, expr))
        self.end_elem(w, name, rec)

    def enc_regional_value(self, w, c, expr):
        """The open type of a regional extension: an element holding the typed extension of the
        region, named by the extension's type. Values kept as raw bytes cannot be written."""
        sel = "%s.%s" % (expr, c.cname)
        self.check(w, "rtXmlEncStartElement(ctxt, %s, ns.pChild, 0, 1)" % qs(c.name))
        w.line("switch (%s.t) {" % sel)
        for i, (_, ot, oname) in enumerate(c.type.objects):
            w.line("case %d:" % (i + 1))
            w.indent()
            w.line("if (%s.u.%s == 0) return LOG_RTERR(ctxt, RTERR_UNEXPECTED_NULL_POINTER);" % (sel, c_ident(oname)))
            self.check(w, "XmlEnc_%s(ctxt, %s.u.%s, %s, ns.childURI)"
                       % (ot.typedef.cname, sel, c_ident(oname), qs(ot.typedef.asn1_name)))
            w.line("break;")
            w.dedent()
        w.line("default:")
        w.line("   rtxErrAddUIntParm(ctxt, %s.t);" % sel)
        w.line("   return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.line("}")
        self.check(w, "rtXmlEncEndElement(ctxt, %s, ns.pChild)" % qs(c.name))

    def enc_choice(self, w, rt, expr, name, rec):
        self.start_elem(w, name, rec)
        w.line("switch (%s.t) {" % expr)
        for i, a in enumerate(rt.alternatives):
            w.line("case %d:" % (i + 1))
            w.indent()
            if a.type.kind == "NULL" and a.type.typedef is None:
                self.check(w, "rtXmlEncNull(ctxt, %s, ns.pChild)" % qs(a.name))
            else:
                w.line("if (%s.u.%s == 0) return LOG_RTERR(ctxt, RTERR_UNEXPECTED_NULL_POINTER);" % (expr, a.cname))
                self.enc_value(w, a.type, "(*%s.u.%s)" % (expr, a.cname), qs(a.name), a.name)
            w.line("break;")
            w.dedent()
        w.line("default:")
        w.indent()
        if rt.extensible:
            w.line("if (%s.t == %d && %s.u.extElem1 != 0) {" % (expr, len(rt.alternatives) + 1, expr))
            w.indent()
            self.check(w, "rtAsn1XmlEncOpenType(ctxt, %s.u.extElem1->data, %s.u.extElem1->numocts, 0, 0)"
                       % (expr, expr))
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("rtxErrAddUIntParm(ctxt, %s.t);" % expr)
        w.line("return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.dedent()
        w.line("}")
        self.end_elem(w, name, rec)

    def enc_seqof(self, w, rt, expr, name, rec):
        el = rt.element
        self.size_check(w, rt.cons, "%s.count" % expr)
        self.start_elem(w, name, rec)
        w.line("for (QSRTDListNode* node = %s.head; node != 0; node = node->next) {" % expr)
        w.indent()
        self.enc_value(w, el, "(*(%s*)node->data)" % ctype(el), qs(item_name(el)), item_name(el))
        w.dedent()
        w.line("}")
        self.end_elem(w, name, rec)

    # ---- decoding ------------------------------------------------------------------------------
    def dec_value(self, w, rt, expr):
        if self.uses_typedef_codec(rt):
            self.check(w, "XmlDec_%s(ctxt, &%s)" % (rt.typedef.cname, expr))
        else:
            self.dec_inline(w, rt, expr)

    def dec_size_check(self, w, c, count):
        if not c.has_size() or c.size_ext:
            return
        conds = range_conds("QSUINT32", c.size_lo, c.size_hi, count)
        if not conds:
            return
        self.violation(w, conds, "rtxErrAddSizeParm(ctxt, (QSSIZE)%s)" % count)

    def dec_inline(self, w, rt, expr):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            self.check(w, "rtXmlpDecBoolElem(ctxt, &%s)" % expr)
        elif k == "NULL":
            self.check(w, "rtXmlDecEmptyElement(ctxt)")
        elif k == "INTEGER":
            ct = int_ctype(c)
            width = "".join(ch for ch in ct if ch.isdigit())
            reader = "rtXmlpDec%sInt%s" % ("U" if ct.startswith("QSU") else "", "" if width == "32" else width)
            self.check(w, "%s(ctxt, &%s)" % (reader, expr))
            self.dec_range_check(w, rt, expr)
        elif k == "ENUMERATED":
            top = max(v for _, v in rt.root)
            t = tname(self.cur_td)
            n = len(rt.root) + len(rt.ext_items or [])
            self.check(w, "rtXmlpDecEnumElem(ctxt, %s_ENUMTAB, %d, %s_ToEnum2, %d, &%s)" % (t, n, t, top, expr))
        elif k == "BIT_STRING":
            if is_small_bitstring(rt):
                self.check(w, "rtXmlpDecBitString(ctxt, %s.data, &%s.numbits, sizeof(%s.data))" % (expr, expr, expr))
            else:
                self.check(w, "rtXmlpDecDynBitString(ctxt, &%s)" % expr)
            self.dec_size_check(w, c, "%s.numbits" % expr)
        elif k == "OCTET_STRING":
            self.check(w, "rtXmlpDecDynHexStr(ctxt, &%s)" % expr)
            self.dec_size_check(w, c, "%s.numocts" % expr)
        elif k == "STRING":
            self.check(w, "rtXmlpDecDynUTF8Str(ctxt, (const QSUTF8CHAR**)&%s)" % expr)
            if c.has_size() and not c.size_ext:
                w.line("{")
                w.line("   size_t nbytes = strlen(%s);" % expr)
                sub = CodeWriter()
                sub.level = w.level + 1
                self.dec_size_check(sub, c, "nbytes")
                w.lines.extend(sub.lines)
                w.line("}")
        elif k == "OPEN":
            self.check(w, "rtAsn1XmlpDecOpenType(ctxt, &%s)" % expr)
        elif k == "SEQUENCE":
            self.dec_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.dec_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            self.dec_seqof(w, rt, expr)
        else:
            raise Asn1Error("no XML decoding for %s" % k)

    def dec_sequence(self, w, rt, expr):
        comps = rt.components
        n = len(comps)
        if any(c.has_present_bit for c in comps):
            w.line("memset(&%s.m, 0, sizeof(%s.m));" % (expr, expr))
        if rt.extensible:
            w.line("rtxDListInit(&%s.extElem1);" % expr)
        if n == 0 and not rt.extensible:
            return
        groups, last_mand = sequence_groups(comps, rt.extensible)
        elem_table(w, "elemtab", [c.name for c in comps])
        w.line("static const QSXmlGroupDesc groupDesc[%d] = {" % len(groups))
        for g in groups:
            w.line("   { %d, %d, %d }," % g)
        w.line("};")
        # The end tag of each member is matched together with the lookup of the next one.
        ext = 1 if rt.extensible else 0
        first = "rtXmlpGetNextSeqElemID(ctxt, elemtab, groupDesc, 0, %d, %d)" % (last_mand, ext)
        if rt.extensible:
            w.line("for (int grp = 0, id = %s;;) {" % first)
        else:
            w.line("for (int id = %s;;) {" % first)
        w.indent()
        w.line("if (id < 0) return LOG_RTERR(ctxt, id);")
        w.line("if (id == %s) break;" % END)
        w.line("switch (id) {")
        for i, c in enumerate(comps):
            w.line("case %d:" % i)
            w.indent()
            if c.has_present_bit:
                w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
            if rt.regional and c.type.kind == "OPEN":
                self.dec_regional_value(w, rt, c, expr)
            elif c.type.kind == "NULL" and c.type.typedef is None:
                self.check(w, "rtXmlDecEmptyElement(ctxt)")
            else:
                self.dec_value(w, c.type, "%s.%s" % (expr, c.cname))
            w.line("break;")
            w.dedent()
        if rt.extensible:
            w.line("default:")
            w.indent()
            self.check(w, "rtXmlpDecExtElems(ctxt, &%s.extElem1, elemtab, %d)" % (expr, n))
            w.line("id = rtXmlpGetNextSeqElemID(ctxt, elemtab, groupDesc, grp, %d, 1);" % last_mand)
            w.line("continue;")
            w.dedent()
        w.line("}")
        if rt.extensible:
            w.line("grp = id + 1;")
        w.line("id = rtXmlpEndNextSeqElemID(ctxt, elemtab, groupDesc, %d, id + 1, %d, %d);"
               % (len(groups), last_mand, ext))
        w.dedent()
        w.line("}")

    def dec_regional_value(self, w, rt, c, expr):
        """The element holding the typed extension: its name is not checked, the region named by
        the identifier member decides the type; other regions are refused."""
        idc = next(x for x in rt.components if x.name == c.type.id_component)
        sel = "%s.%s" % (expr, c.cname)
        self.check(w, "rtXmlpDecRegionalStart(ctxt)")
        w.line("switch (%s.%s) {" % (expr, idc.cname))
        for i, (rid, ot, oname) in enumerate(c.type.objects):
            t = ctype(ot)
            w.line("case %d: {" % rid)
            w.indent()
            self.new_value(w, t, "pv")
            w.line("%s.t = %d;" % (sel, i + 1))
            w.line("%s.u.%s = pv;" % (sel, c_ident(oname)))
            self.check(w, "XmlDec_%s(ctxt, pv)" % ot.typedef.cname)
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default:")
        w.line("   rtxErrAddInt64Parm(ctxt, (QSINT64)%s.%s);" % (expr, idc.cname))
        w.line("   return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.line("}")
        self.check(w, "rtXmlpMatchEndTag(ctxt, -1)")

    def dec_choice(self, w, rt, expr):
        alts = rt.alternatives
        elem_table(w, "elemtab", [a.name for a in alts])
        w.line("int id = rtXmlpGetNextElemID(ctxt, elemtab, %d, -1, 0);" % len(alts))
        if rt.extensible:
            w.line("if (id == RTERR_UNEXPECTED_ELEMENT) {")
            w.indent()
            self.check(w, "rtXmlpDecUnknownAlt(ctxt, &%s.u.extElem1)" % expr)
            w.line("%s.t = %d;" % (expr, len(alts) + 1))
            self.check(w, "rtXmlpMatchEndTag(ctxt, -1)")
            w.line("return 0;")
            w.dedent()
            w.line("}")
        w.line("if (id < 0) return LOG_RTERR(ctxt, id);")
        w.line("switch (id) {")
        for i, a in enumerate(alts):
            w.line("case %d: {" % i)
            w.indent()
            if a.type.kind == "NULL" and a.type.typedef is None:
                self.check(w, "rtXmlDecEmptyElement(ctxt)")
            else:
                t = ctype(a.type)
                self.new_value(w, t, "pv")
                w.line("%s.u.%s = pv;" % (expr, a.cname))
                self.dec_value(w, a.type, "(*pv)")
            w.line("%s.t = %d;" % (expr, i + 1))
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default:   /* no alternative: the selector stays 0 */")
        w.line("   return 0;")
        w.line("}")
        self.check(w, "rtXmlpMatchEndTag(ctxt, -1)")

    def dec_seqof(self, w, rt, expr):
        el = rt.element
        t = ctype(el)
        w.line("rtxDListInit(&%s);" % expr)
        elem_table(w, "itemtab", [item_name(el)])
        # The end tag of each item is matched together with the lookup of the next one.
        w.line("for (int id = rtXmlpGetNextElemID(ctxt, itemtab, 1, -1, 1);;) {")
        w.indent()
        w.line("if (id < 0) return LOG_RTERR(ctxt, id);")
        w.line("if (id == %s) break;" % END)
        self.new_item(w, t, expr)
        self.dec_value(w, el, "(*elem)")
        w.line("id = rtXmlpEndNextElemID(ctxt, itemtab, 1, 1);")
        w.dedent()
        w.line("}")
        self.dec_size_check(w, rt.cons, "%s.count" % expr)

    # ---- functions -----------------------------------------------------------------------------
    def encoder(self, w, td):
        self.cur_td = td
        w.line("int XmlEnc_%s(QSCTXT* ctxt, %s, const QSUTF8CHAR* elemName, const QSUTF8CHAR* nsURI)"
               % (td.cname, enc_param(td)))
        w.line("{")
        w.indent()
        body = CodeWriter()
        body.level = w.level
        expr = "(*pvalue)" if td.body.kind in POINTER_KINDS else "value"
        if td.alias is not None and self.uses_typedef_codec(td.body):
            body.line("return XmlEnc_%s(ctxt, %s, elemName, nsURI);"
                      % (td.alias.cname, "value" if expr == "value" else "pvalue"))
        else:
            self.enc_inline(body, td.body, expr, "elemName", "ns.pOwn")
            body.line("return 0;")
        text = "\n".join(body.lines)
        if "stat" in text:
            w.line("int stat;")
        if "ns." in text:
            w.line("QSXmlNS ns(ctxt, nsURI, &XML_NS);")
        w.lines.extend(body.lines)
        w.dedent()
        w.line("}")
        w.blank()

    def decoder(self, w, td):
        self.cur_td = td
        w.line("int XmlDec_%s(QSCTXT* ctxt, %s* pvalue)" % (td.cname, dec_type(td)))
        w.line("{")
        w.indent()
        body = CodeWriter()
        body.level = w.level
        if td.alias is not None and self.uses_typedef_codec(td.body):
            body.line("return XmlDec_%s(ctxt, pvalue);" % td.alias.cname)
        else:
            self.dec_inline(body, td.body, "(*pvalue)")
            body.line("return 0;")
        if "stat" in "\n".join(body.lines):
            w.line("int stat;")
        w.lines.extend(body.lines)
        w.dedent()
        w.line("}")
        w.blank()


def emit_functions(mi, we, wd):
    """Writes the XML encoders into `we` and the decoders into `wd`."""
    xe = XmlEmitter(mi)
    we.line("/* Namespace of the module's elements outside ASN.1 XML mode. */")
    we.line('static const QSXmlNamespace XML_NS = {(const QSUTF8CHAR*)"%s", 0};' % mi.name)
    we.blank()
    wd.line("/* Namespace of the module's elements outside ASN.1 XML mode. */")
    wd.line('static const char* const XML_NS = "%s";' % mi.name)
    wd.blank()
    names_at = len(we.lines)
    for td in mi.typedefs:
        xe.encoder(we, td)
        xe.decoder(wd, td)
    names = xe.emit_fast_names()
    if names:
        we.lines[names_at:names_at] = ["/* Element names of the fast element writers. */"] + names + [""]


class XmlFamily(Family):
    def prototypes(self, td):
        protos = ["int XmlEnc_%s(QSCTXT* ctxt, %s, const QSUTF8CHAR* elemName, const QSUTF8CHAR* nsURI);"
                  % (td.cname, enc_param(td)),
                  "int XmlDec_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, dec_type(td))]
        if td.is_message:
            protos += ["int XmlEncDoc_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, dec_type(td)),
                       "int XmlDecDoc_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, dec_type(td))]
        return protos

    def source_includes(self):
        return ["rtxmlsrc/asn1XmlGen.h"]

    def message_functions(self, w, td):
        root = td.asn1_name
        t = dec_type(td)
        w.line("/* The XML document of a %s on a context set up for writing XML: the declaration and the" % root)
        w.line("   root element %s around the members of the value. */" % root)
        w.line("int XmlEncDoc_%s(QSCTXT* ctxt, %s* pvalue)" % (td.cname, t))
        w.line("{")
        w.line("   int stat;")
        # the root name padded for the inline end tag, which finds it on the name stack
        size = (len(root.encode("utf-8")) // 16 + 1) * 16
        w.line('   static const char root[%d] = "%s";' % (size, root))
        w.line("   if ((stat = rtXmlEncBeginDocument(ctxt, (const QSUTF8CHAR*)root)) != 0) return stat;")
        w.line("   if ((stat = XmlEnc_%s(ctxt, pvalue, %s, 0)) != 0) return stat;" % (td.cname, qs("")))
        w.line("   return rtXmlEncFastEnd(ctxt, root, %d);" % len(root.encode("utf-8")))
        w.line("}")
        w.blank()
        w.line("/* A %s read from the XML document of a context set up for reading XML; the status of" % root)
        w.line("   the errors recorded on the way decides the result. */")
        w.line("int XmlDecDoc_%s(QSCTXT* ctxt, %s* pvalue)" % (td.cname, t))
        w.line("{")
        w.line("   int stat;")
        w.line("   if ((stat = rtXmlpBeginDocument(ctxt)) != 0) return stat;")
        w.line("   if ((stat = rtXmlpMatchStartTag(ctxt, %s, 0)) != 0)" % qs(root))
        w.line('      return rtxErrSetData(ctxt, stat, "../src/etsi/%s", __LINE__);' % td.module.name)
        w.line("   if ((stat = XmlDec_%s(ctxt, pvalue)) != 0) return stat;" % td.cname)
        w.line("   if ((stat = rtXmlpMatchEndTag(ctxt, -1)) != 0)")
        w.line('      return rtxErrSetData(ctxt, stat, "../src/etsi/%s", __LINE__);' % td.module.name)
        w.line("   return rtXmlpDecodeResult(ctxt);")
        w.line("}")
        w.blank()

    def encode_branch(self, w, td):
        self.call_branch(w, td, "XMLEncode", "XmlEncDoc")

    def decode_branch(self, w, td):
        self.call_branch(w, td, "XMLDecode", "XmlDecDoc")

