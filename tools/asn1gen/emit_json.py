"""Emits the JSON codecs: `asn1JsonEnc_<T>` into `<Module>Enc.cpp` and `asn1JsonDec_<T>` into
`<Module>Dec.cpp`. The JSON form follows the ASN.1 value: member names and identifiers as
defined, members in definition order, CHOICEs as objects with one member."""

from .ctypes import ctype, int_ctype, is_small_bitstring
from .emit_text import TextEmitter, ctype_limits, range_conds
from .emit_values import Family, tname
from .lexer import Asn1Error
from .model import c_ident
from .writer import CodeWriter


def param_type(td):
    return "ASN1TSeqOfList" if td.body.kind == "SEQUENCE_OF" else tname(td)


def enum_id_table(rt):
    """The identifier of each value 0..largest root value (None where no item has the value),
    or None when the values do not suit such a table."""
    items = rt.root + (rt.ext_items or [])
    top = max(v for _, v in rt.root)
    if any(v < 0 for _, v in items) or top > 255:
        return None
    ids = [None] * (top + 1)
    for name, v in items:
        if v <= top:
            ids[v] = name
    return ids


def name_table(w, var, names):
    w.line("static const QSJsonElemName %s[%d] = {" % (var, len(names)))
    for n in names:
        w.line('   { "%s", %d },' % (n, len(n.encode("utf-8"))))
    w.line("};")


class JsonEmitter(TextEmitter):
    def __init__(self, mi):
        self.mi = mi

    # ---- encoding ------------------------------------------------------------------------------
    def enc_value(self, w, rt, expr):
        if self.uses_typedef_codec(rt):
            self.check(w, "asn1JsonEnc_%s(ctxt, &%s)" % (rt.typedef.cname, expr))
        else:
            self.enc_inline(w, rt, expr)

    def enc_inline(self, w, rt, expr):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            self.check(w, "rtJsonEncBoolValue(ctxt, %s)" % expr)
        elif k == "NULL":
            self.check(w, "rtJsonEncStringNull(ctxt)")
        elif k == "INTEGER":
            self.range_check(w, rt, expr)
            ct = int_ctype(c)
            fn = {"QSINT64": "rtxTxtWriteInt64", "QSUINT64": "rtxTxtWriteUInt64"}.get(
                ct, "rtxTxtWriteUInt" if ct.startswith("QSU") else "rtxTxtWriteInt")
            self.check(w, "%s(ctxt, %s)" % (fn, expr))
        elif k == "ENUMERATED" and enum_id_table(rt) is not None:
            top = max(v for _, v in rt.root)
            w.line("if (%s > %d) return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);" % (expr, top))
            w.line("{")
            w.indent()
            ids = enum_id_table(rt)
            w.line("static const QSJsonElemName ids[%d] = {" % len(ids))
            for name in ids:
                if name is None:
                    w.line("   { 0, 0 },")
                else:
                    w.line('   { "\\"%s\\"", %d },' % (name, len(name.encode("utf-8")) + 2))
            w.line("};")
            w.line("QSUINT32 v = (QSUINT32)%s;" % expr)
            w.line("if (v > %d || ids[v].name == 0) return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);" % top)
            self.check(w, "rtJsonEncQuoted(ctxt, ids[v].name, ids[v].nameLen)")
            w.dedent()
            w.line("}")
        elif k == "ENUMERATED":
            top = max(v for _, v in rt.root)
            w.line("if (%s > %d) return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);" % (expr, top))
            w.line("{")
            w.line("   const char* id = rtxEnumValueToString(%s_ENUMTAB, %d, (QSINT32)%s);"
                   % (tname(self.cur_td), len(rt.root) + len(rt.ext_items or []), expr))
            w.line('   if (strcmp(id, "_UNKNOWN_") == 0) return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);')
            self.check(w, "rtJsonEncStringValue(ctxt, id)")
            w.line("}")
        elif k == "BIT_STRING":
            self.size_check(w, c, "%s.numbits" % expr)
            fixed = c.has_size() and c.size_lo == c.size_hi and not c.size_ext
            if fixed:
                self.check(w, "rtJsonEncFixedBitStrValue(ctxt, %s.numbits, %s.data)" % (expr, expr))
            elif c.size_ext and is_small_bitstring(rt):
                self.check(w, "rtJsonEncBitStrValueExt(ctxt, %s.numbits, %s.data, sizeof(%s.data), 0)"
                           % (expr, expr, expr))
            else:
                self.check(w, "rtJsonEncBitStrValue(ctxt, %s.numbits, %s.data)" % (expr, expr))
        elif k == "OCTET_STRING":
            self.size_check(w, c, "%s.numocts" % expr)
            self.check(w, "rtJsonEncHexStr(ctxt, %s.numocts, %s.data)" % (expr, expr))
        elif k == "STRING":
            self.string_size_check(w, c, expr)
            self.check(w, "rtJsonEncStringValue(ctxt, %s)" % expr)
        elif k == "OPEN":
            self.check(w, "rtJsonAsn1EncOpenType(ctxt, %s.numocts, %s.data)" % (expr, expr))
        elif k == "SEQUENCE":
            self.enc_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.enc_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            self.enc_seqof(w, rt, expr)
        else:
            raise Asn1Error("no JSON encoding for %s" % k)

    def member(self, w, name, inline=True):
        """The separator, the new line and the key before a member, in one step (written inline
        unless `inline` is false, as on the rarely taken general path of an integer member)."""
        self.check(w, '%s(ctxt, first, "\\"%s\\":", %d)'
                   % ("rtJsonEncFastMemberKey" if inline else "rtJsonEncMemberKey",
                      name, len(name.encode("utf-8")) + 3))
        w.line("first = 0;")

    def enc_int_member(self, w, c, expr):
        """An INTEGER member within its range is written whole by one call when the buffer has
        room; otherwise (and for a value out of range) the general code writes it."""
        rt = c.type
        cons = rt.cons
        ct = int_ctype(cons)
        conds = []
        if cons.has_range() and not cons.ext:
            conds = range_conds(ct, cons.lo, cons.hi, expr)
        key = '"\\"%s\\":", %d' % (c.name, len(c.name.encode("utf-8")) + 3)
        if ct.startswith("QSU"):
            fast = "rtJsonEncFastMemberUInt(ctxt, first, %s, (QSUINT64)%s)" % (key, expr)
        else:
            fast = "rtJsonEncFastMemberInt(ctxt, first, %s, (QSINT64)%s)" % (key, expr)
        w.line("if (%s!%s) {" % ("".join(x + " || " for x in conds), fast))
        w.indent()
        self.member(w, c.name, inline=False)
        self.enc_value(w, rt, expr)
        w.dedent()
        w.line("}")
        w.line("first = 0;")

    def enc_sequence(self, w, rt, expr):
        self.check(w, "rtJsonEncFastOpen(ctxt, '{')")
        w.line("QSBOOL first = 1;")
        for c in rt.components:
            if c.has_present_bit:
                w.line("if (%s.m.%sPresent) {" % (expr, c.cname))
                w.indent()
            if c.type.kind == "INTEGER" and not (rt.regional and c.type.kind == "OPEN"):
                self.enc_int_member(w, c, "%s.%s" % (expr, c.cname))
            else:
                self.member(w, c.name)
                if rt.regional and c.type.kind == "OPEN":
                    self.enc_regional_value(w, c, expr)
                else:
                    self.enc_value(w, c.type, "%s.%s" % (expr, c.cname))
            if c.has_present_bit:
                w.dedent()
                w.line("}")
        if rt.extensible:
            w.line("if (rtJsonHasExtElems(&%s.extElem1)) {" % expr)
            w.indent()
            self.check(w, "rtJsonEncMember(ctxt, first)")
            w.line("first = 0;")
            self.check(w, "rtJsonAsn1EncOpenTypeExt(ctxt, &%s.extElem1, 0)" % expr)
            w.dedent()
            w.line("}")
        w.line("(void)first;")
        self.check(w, "rtJsonEncFastClose(ctxt, '}')")

    def enc_regional_value(self, w, c, expr):
        sel = "%s.%s" % (expr, c.cname)
        w.line("switch (%s.t) {" % sel)
        w.line("case 0:")
        w.line("   if (%s.u.extElem1 == 0) return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);" % sel)
        w.line("   if ((stat = rtJsonAsn1EncOpenType(ctxt, %s.u.extElem1->numocts, %s.u.extElem1->data)) != 0)"
               % (sel, sel))
        w.line("      return LOG_RTERR(ctxt, stat);")
        w.line("   break;")
        for i, (_, ot, name) in enumerate(c.type.objects):
            w.line("case %d:" % (i + 1))
            w.indent()
            self.check(w, "asn1JsonEnc_%s(ctxt, %s.u.%s)" % (ot.typedef.cname, sel, c_ident(name)))
            w.line("break;")
            w.dedent()
        w.line("default:")
        w.line("   return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.line("}")

    def enc_choice(self, w, rt, expr):
        self.check(w, "rtJsonEncFastOpen(ctxt, '{')")
        w.line("QSBOOL first = 1;")
        w.line("switch (%s.t) {" % expr)
        for i, a in enumerate(rt.alternatives):
            w.line("case %d:" % (i + 1))
            w.indent()
            self.member(w, a.name)
            if a.type.kind == "NULL":
                self.check(w, "rtJsonEncStringNull(ctxt)")
            else:
                w.line("if (%s.u.%s == 0) return LOG_RTERR(ctxt, RTERR_UNEXPECTED_NULL_POINTER);" % (expr, a.cname))
                self.enc_value(w, a.type, "(*%s.u.%s)" % (expr, a.cname))
            w.line("break;")
            w.dedent()
        w.line("default:")
        w.indent()
        if rt.extensible:
            w.line("if (%s.t > %d && %s.u.extElem1 != 0) {" % (expr, len(rt.alternatives), expr))
            self.check(w, "rtJsonEncMember(ctxt, first)")
            w.line("   first = 0;")
            self.check(w, "rtJsonAsn1EncExtElem(ctxt, %s.u.extElem1)" % expr)
            w.line("   break;")
            w.line("}")
        w.line("rtxErrAddUIntParm(ctxt, %s.t);" % expr)
        w.line("return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.dedent()
        w.line("}")
        w.line("(void)first;")
        self.check(w, "rtJsonEncFastClose(ctxt, '}')")

    def enc_seqof(self, w, rt, expr):
        el = rt.element
        self.check(w, "rtJsonEncFastOpen(ctxt, '[')")
        w.line("QSBOOL first = 1;")
        w.line("for (QSRTDListNode* node = %s.head; node != 0; node = node->next) {" % expr)
        w.indent()
        self.check(w, "rtJsonEncMember(ctxt, first)")
        w.line("first = 0;")
        self.enc_value(w, el, "(*(%s*)node->data)" % ctype(el))
        w.dedent()
        w.line("}")
        self.check(w, "rtJsonEncFastClose(ctxt, ']')")

    # ---- decoding ------------------------------------------------------------------------------
    @staticmethod
    def match_char(w, ch):
        """rtJsonDecMatchChar for ch, with the character taken inline when it stands at the cursor."""
        w.line("if (!rtJsonDecTakeChar(ctxt, '%s') && (stat = rtJsonDecMatchChar(ctxt, '%s')) != 0) "
               "return LOG_RTERR(ctxt, stat);" % (ch, ch))

    def dec_value(self, w, rt, expr):
        if self.uses_typedef_codec(rt):
            self.check(w, "asn1JsonDec_%s(ctxt, &%s)" % (rt.typedef.cname, expr))
        else:
            self.dec_inline(w, rt, expr)

    def dec_inline(self, w, rt, expr):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            self.check(w, "rtJsonDecBool(ctxt, &%s)" % expr)
        elif k == "NULL":
            self.check(w, "rtJsonDecNull(ctxt)")
        elif k == "INTEGER":
            ct = int_ctype(c)
            reader = "rtxTxtRead%sInt%s" % ("U" if ct.startswith("QSU") else "",
                                             "".join(ch for ch in ct if ch.isdigit()))
            self.check(w, "%s(ctxt, &%s)" % (reader, expr))
            self.dec_range_check(w, rt, expr)
        elif k == "ENUMERATED":
            top = max(v for _, v in rt.root)
            n = len(rt.root) + len(rt.ext_items or [])
            t = tname(self.cur_td)
            # a plain identifier of the root is looked up in place; anything else is read
            # again from the same position by the general code below
            w.line("{")
            w.indent()
            w.line("QSSIZE start = ctxt->buffer.byteIndex;")
            w.line("const QSOCTET* s = 0;")
            w.line("int slen = rtJsonDecStringFast(ctxt, &s);")
            items = [(name, v) for name, v in rt.root + (rt.ext_items or []) if v <= top]
            w.line("QSINT64 fv = -1;")
            w.line("if (slen >= 0) {")
            w.indent()
            self.enum_switch(w, items)
            w.dedent()
            w.line("}")
            w.line("if (fv >= 0) {")
            w.line("   %s = (QSUINT32)fv;" % expr)
            w.line("}")
            w.line("else {")
            w.indent()
            w.line("ctxt->buffer.byteIndex = start;")
            w.line("char* id = 0;")
            self.check(w, "rtJsonDecStringValue(ctxt, &id)")
            w.line("int idx = rtxLookupEnum(ctxt, (const QSUTF8CHAR*)id, strlen(id), %s_ENUMTAB, %d);" % (t, n))
            w.line("if (idx < 0 || %s_ENUMTAB[idx].value > %d) {" % (t, top))
            w.line("   rtxErrAddStrParm(ctxt, id);")
            w.line("   rtxMemHeapFreePtr(ctxt, id);")
            w.line("   return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);")
            w.line("}")
            w.line("rtxMemHeapFreePtr(ctxt, id);")
            w.line("%s = (QSUINT32)%s_ENUMTAB[idx].value;" % (expr, t))
            w.dedent()
            w.line("}")
            w.dedent()
            w.line("}")
        elif k == "BIT_STRING":
            fixed = c.has_size() and c.size_lo == c.size_hi and not c.size_ext
            small = is_small_bitstring(rt)
            if fixed and small:
                self.check(w, "rtJsonDecFixedBitStrValue(ctxt, %d, %s.data, sizeof(%s.data))" % (c.size_lo, expr, expr))
                w.line("%s.numbits = %d;" % (expr, c.size_lo))
            elif fixed:
                w.line("{")
                w.line("   QSOCTET* bits = (QSOCTET*)rtxMemHeapAllocZ(ctxt, %d);" % ((c.size_lo + 7) // 8 + 1))
                w.line("   if (bits == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);")
                self.check(w, "rtJsonDecFixedBitStrValue(ctxt, %d, bits, %d)" % (c.size_lo, (c.size_lo + 7) // 8))
                w.line("   %s.numbits = %d;" % (expr, c.size_lo))
                w.line("   %s.data = bits;" % expr)
                w.line("}")
            elif small:
                self.check(w, "rtJsonDecBitStrValue(ctxt, &%s.numbits, %s.data, sizeof(%s.data))" % (expr, expr, expr))
            else:
                self.check(w, "rtJsonDecDynBitStr(ctxt, &%s)" % expr)
        elif k == "OCTET_STRING":
            self.check(w, "rtJsonDecDynHexStr(ctxt, &%s)" % expr)
            if c.has_size() and not c.size_ext:
                w.line("if (%s.numocts > %d) return LOG_RTERR(ctxt, RTERR_MAX_STRING_ITEMS_EXCEEDED);" % (expr, c.size_hi))
                if c.size_lo > 0:
                    self.violation(w, ["%s.numocts < %d" % (expr, c.size_lo)], "rtxErrAddUIntParm(ctxt, %s.numocts)" % expr)
        elif k == "STRING":
            self.check(w, "rtJsonDecStringValue(ctxt, &%s)" % expr)
            if c.has_size() and not c.size_ext:
                w.line("{")
                w.line("   size_t nbytes = strlen(%s);" % expr)
                conds = ["nbytes > %d" % c.size_hi]
                if c.size_lo > 0:
                    conds.insert(0, "nbytes < %d" % c.size_lo)
                w.indent()
                self.violation(w, conds, "rtxErrAddSizeParm(ctxt, nbytes)")
                w.dedent()
                w.line("}")
        elif k == "OPEN":
            w.line("{")
            w.line("   ASN1TOpenType* ot = 0;")
            self.check(w, "rtJsonDecCaptureOpenType(ctxt, &ot)")
            w.line("   %s = *ot;" % expr)
            w.line("   rtxMemHeapFreePtr(ctxt, ot);")
            w.line("}")
        elif k == "SEQUENCE":
            self.dec_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.dec_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            self.dec_seqof(w, rt, expr)
        else:
            raise Asn1Error("no JSON decoding for %s" % k)

    @staticmethod
    def key_switch(w, names):
        """Sets `idx` to the place of the key `k` (klen bytes) in `names`, or -1."""
        w.line("idx = -1;")
        if not names:
            w.line("(void)k;")
            return
        JsonEmitter.length_switch(w, "k", "klen", "idx", [(n, i) for i, n in enumerate(names)])

    @staticmethod
    def enum_switch(w, items):
        """Sets `fv` to the value of the identifier `s` (slen bytes) among `items`, if any."""
        JsonEmitter.length_switch(w, "s", "slen", "fv", items)

    @staticmethod
    def length_switch(w, text, length, target, items):
        """Sets `target` to the value of the first (name, value) of `items` whose name is the
        `length` bytes at `text`: a switch on the length, then whole-name comparisons of that
        length."""
        by_len = {}
        for name, v in items:
            by_len.setdefault(len(name.encode("utf-8")), []).append((name, v))
        w.line("switch (%s) {" % length)
        for n in sorted(by_len):
            w.line("case %d:" % n)
            for j, (name, v) in enumerate(by_len[n]):
                w.line('   %sif (memcmp(%s, "%s", %d) == 0) %s = %d;' % ("else " if j else "", text, name, n, target, v))
            w.line("   break;")
        w.line("default: break;")
        w.line("}")

    def read_key(self, w, names):
        """Reads a member key and its colon: `idx` is its place in the name table, or -1 with
        the key's text in `key` (heap) for a member the table does not know. The key is pushed
        as element name. A plain key is looked up in place; any other form goes through
        rtJsonGetElemIdx from the same position."""
        count = len(names)
        w.line("QSSIZE keyStart = ctxt->buffer.byteIndex;")
        w.line("int idx;")
        w.line("{")
        w.indent()
        w.line("const QSOCTET* k = 0;")
        w.line("int klen = rtJsonDecKeyFast(ctxt, &k);")
        w.line("if (klen >= 0) {")
        w.indent()
        self.key_switch(w, names)
        w.dedent()
        w.line("}")
        w.line("else {")
        w.line("   idx = rtJsonGetElemIdx(ctxt, %s, %d);" % ("names" if count else "0", count))
        w.line("   if (idx < -1) return LOG_RTERR(ctxt, idx);")
        w.line("}")
        w.dedent()
        w.line("}")
        w.line("char* key = 0;")
        w.line("if (idx < 0) {")
        self.check(w, "rtJsonDecRereadKey(ctxt, keyStart, &key)")
        w.line("   rtxCtxtPushElemNameCopy(ctxt, (const QSUTF8CHAR*)key);  /* the key text dies first */")
        w.line("}")
        w.line("else rtxCtxtPushElemName(ctxt, (const QSUTF8CHAR*)names[idx].name);")

    def dec_int_member(self, w, rt, expr):
        """An INTEGER member in its plain form and within the values its decoder accepts is
        read in place by one call; anything else is left, from the same position, to the
        member's decoder."""
        c = rt.cons
        ct = int_ctype(c)
        lo, hi = ctype_limits(ct)
        if c.has_range() and not c.ext:
            lo, hi = max(lo, c.lo), min(hi, c.hi)
        hi = min(hi, (1 << 63) - 1)

        def lit64(v):
            return "(-9223372036854775807LL - 1)" if v == -(1 << 63) else "%dLL" % v
        w.line("{")
        w.indent()
        w.line("QSINT64 iv;")
        w.line("if (rtJsonDecIntFast(ctxt, %s, %s, &iv)) %s = (%s)iv;" % (lit64(lo), lit64(hi), expr, ct))
        w.line("else {")
        w.indent()
        self.dec_value(w, rt, expr)
        w.dedent()
        w.line("}")
        w.dedent()
        w.line("}")

    def dec_sequence(self, w, rt, expr):
        comps = rt.components
        names = [c.name for c in comps]
        self.match_char(w, "{")
        if any(c.has_present_bit for c in comps):
            w.line("memset(&%s.m, 0, sizeof(%s.m));" % (expr, expr))
        if rt.extensible:
            w.line("rtxDListInit(&%s.extElem1);" % expr)
        if comps:
            name_table(w, "names", names)
            w.line("QSOCTET seen[%d] = { 0 };" % len(comps))
        w.line("if (!rtJsonDecNextIs(ctxt, '}')) {")
        w.indent()
        w.line("for (;;) {")
        w.indent()
        self.read_key(w, names)
        w.line("switch (idx) {")
        for i, c in enumerate(comps):
            w.line("case %d:" % i)
            w.indent()
            w.line("if (seen[%d]) {" % i)
            w.line("   rtxMemHeapFreePtr(ctxt, key);")
            w.line("   return LOG_RTERR(ctxt, RTERR_DUPLICATE_ELEMENT);")
            w.line("}")
            w.line("seen[%d] = 1;" % i)
            if c.has_present_bit:
                w.line("if (rtJsonDecNextIs(ctxt, 'n') && %s) {" %
                       ("1" if c.type.kind != "NULL" else "0"))
                self.check(w, "rtJsonDecNull(ctxt)")
                w.line("   break;")
                w.line("}")
                w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
            if rt.regional and c.type.kind == "OPEN":
                w.line("%s.%s.t = 0;" % (expr, c.cname))
                self.check(w, "rtJsonDecCaptureOpenType(ctxt, &%s.%s.u.extElem1)" % (expr, c.cname))
            elif c.type.kind == "INTEGER":
                self.dec_int_member(w, c.type, "%s.%s" % (expr, c.cname))
            else:
                self.dec_value(w, c.type, "%s.%s" % (expr, c.cname))
            w.line("break;")
            w.dedent()
        w.line("default:")
        w.indent()
        if rt.extensible:
            w.line("{")
            w.line("   ASN1TOpenType* ot = 0;")
            w.line("   stat = rtJsonDecUnknownMember(ctxt, key, &ot);")
            w.line("   if (stat == 0 && rtxDListAppend(ctxt, &%s.extElem1, ot) == 0) stat = RTERR_NO_DYNAMIC_MEMORY;"
                   % expr)
            w.line("   if (stat != 0) {")
            w.line("      rtxMemHeapFreePtr(ctxt, key);")
            w.line("      return LOG_RTERR(ctxt, stat);")
            w.line("   }")
            w.line("}")
            w.line("break;")
        else:
            w.line("rtxErrAddStrParm(ctxt, key);")
            w.line("rtxMemHeapFreePtr(ctxt, key);")
            w.line("return LOG_RTERR(ctxt, RTERR_SET_INDEX_OUT_OF_BOUNDS);")
        w.dedent()
        w.line("}")
        w.line("rtxCtxtPopElemName(ctxt);")
        w.line("if (key != 0) rtxMemHeapFreePtr(ctxt, key);")
        w.line("if (!rtJsonDecMore(ctxt)) break;")
        w.dedent()
        w.line("}")
        w.dedent()
        w.line("}")
        self.match_char(w, "}")
        for i, c in enumerate(comps):
            if not c.has_present_bit:
                w.line('if (!seen[%d]) return rtJsonMissingMember(ctxt, "%s", THIS_FILE, __LINE__);' % (i, c.name))
        if rt.regional:
            self.dec_regional_typed(w, rt, expr)

    def dec_regional_typed(self, w, rt, expr):
        c = next(x for x in rt.components if x.type.kind == "OPEN")
        idc = next(x for x in rt.components if x.name == c.type.id_component)
        sel = "%s.%s" % (expr, c.cname)
        if not c.type.objects:
            return
        w.line("switch (%s.%s) {" % (expr, idc.cname))
        for i, (rid, ot, name) in enumerate(c.type.objects):
            t = ctype(ot)
            w.line("case %d: {" % rid)
            w.indent()
            w.line("ASN1TOpenType* text = %s.u.extElem1;" % sel)
            self.new_value(w, t, "pv")
            w.line("QSJsonSavedInput saved;")
            w.line("rtJsonDecBeginText(ctxt, &saved, text->data, text->numocts);")
            w.line("stat = asn1JsonDec_%s(ctxt, pv);" % ot.typedef.cname)
            w.line("rtJsonDecEndText(ctxt, &saved);")
            w.line("if (stat != 0) return LOG_RTERR(ctxt, stat);")
            w.line("rtxMemHeapFreePtr(ctxt, (void*)text->data);")
            w.line("rtxMemHeapFreePtr(ctxt, text);")
            w.line("%s.t = %d;" % (sel, i + 1))
            w.line("%s.u.%s = pv;" % (sel, c_ident(name)))
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default: break;")
        w.line("}")

    def dec_choice(self, w, rt, expr):
        alts = rt.alternatives
        self.match_char(w, "{")
        name_table(w, "names", [a.name for a in alts])
        self.read_key(w, [a.name for a in alts])
        w.line("switch (idx) {")
        for i, a in enumerate(alts):
            w.line("case %d: {" % i)
            w.indent()
            if a.type.kind == "NULL":
                w.line("if ((stat = rtJsonDecNull(ctxt)) != 0) { rtxMemHeapFreePtr(ctxt, key); return LOG_RTERR(ctxt, stat); }")
            else:
                t = ctype(a.type)
                self.new_value(w, t, "pv", "rtxMemHeapFreePtr(ctxt, key);")
                w.line("%s.u.%s = pv;" % (expr, a.cname))
                self.dec_value(w, a.type, "(*pv)")
            w.line("%s.t = %d;" % (expr, i + 1))
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default:")
        w.indent()
        if rt.extensible:
            w.line("stat = rtJsonDecUnknownMember(ctxt, key, &%s.u.extElem1);" % expr)
            w.line("if (stat != 0) { rtxMemHeapFreePtr(ctxt, key); return LOG_RTERR(ctxt, stat); }")
            w.line("%s.t = %d;" % (expr, len(alts) + 1))
            w.line("break;")
        else:
            w.line("rtxErrAddStrParm(ctxt, key);")
            w.line("rtxMemHeapFreePtr(ctxt, key);")
            w.line("return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.dedent()
        w.line("}")
        w.line("rtxCtxtPopElemName(ctxt);")
        w.line("if (key != 0) rtxMemHeapFreePtr(ctxt, key);")
        self.match_char(w, "}")

    def dec_seqof(self, w, rt, expr):
        el = rt.element
        t = ctype(el)
        w.line("rtxDListInit(&%s);" % expr)
        self.match_char(w, "[")
        w.line("if (!rtJsonDecNextIs(ctxt, ']')) {")
        w.indent()
        w.line("for (;;) {")
        w.indent()
        self.new_item(w, t, expr)
        w.line('rtxCtxtPushArrayElemName(ctxt, (const QSUTF8CHAR*)"elem", %s.count - 1);' % expr)
        self.dec_value(w, el, "(*elem)")
        w.line("rtxCtxtPopElemName(ctxt);")
        w.line("if (!rtJsonDecMore(ctxt)) break;")
        w.dedent()
        w.line("}")
        w.dedent()
        w.line("}")
        self.match_char(w, "]")

    # ---- functions -----------------------------------------------------------------------------
    def function(self, w, td, enc):
        self.cur_td = td
        pt = param_type(td)
        name = "asn1JsonEnc_%s" if enc else "asn1JsonDec_%s"
        w.line("int %s(QSCTXT* ctxt, %s* pvalue)" % (name % td.cname, pt))
        w.line("{")
        w.indent()
        body = CodeWriter()
        body.level = w.level
        if td.alias is not None and self.uses_typedef_codec(td.body):
            body.line("return %s(ctxt, pvalue);" % (name % td.alias.cname))
        else:
            (self.enc_inline if enc else self.dec_inline)(body, td.body, "(*pvalue)")
            body.line("return 0;")
        if "stat" in "\n".join(body.lines):
            w.line("int stat;")
        w.lines.extend(body.lines)
        w.dedent()
        w.line("}")
        w.blank()


class JsonFamily(Family):
    def prototypes(self, td):
        pt = param_type(td)
        return ["int asn1JsonEnc_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, pt),
                "int asn1JsonDec_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, pt)]

    def source_includes(self):
        return ["rtjsonsrc/QSJSONMessageBuffer.h"]

    def encode_branch(self, w, td):
        self.call_branch(w, td, "JSONEncode", "asn1JsonEnc")

    def decode_branch(self, w, td):
        self.call_branch(w, td, "JSONDecode", "asn1JsonDec")


RUNTIME_HEADER = "rtjsonsrc/asn1JsonGen.h"


def emit_functions(mi, we, wd):
    """Writes the JSON encoders into `we` and the decoders into `wd`."""
    je = JsonEmitter(mi)
    for td in mi.typedefs:
        je.function(we, td, True)
        je.function(wd, td, False)
