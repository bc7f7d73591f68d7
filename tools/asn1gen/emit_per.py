"""Emits the unaligned PER codecs: `asn1PE_<T>` in `<Module>Enc.cpp` and `asn1PD_<T>` in
`<Module>Dec.cpp`, one fixed scheme per construct with every constraint compiled in."""

import re

from .ctypes import constraint_key as per_key, ctype, int_ctype, is_small_bitstring
from .emit_values import Family, tname
from .lexer import Asn1Error
from .model import STRING_ALPHABETS, c_ident
from .writer import CodeWriter

# Bits per character of the known-multiplier string types before any alphabet constraint.
CANONICAL_BITS = {"NumericString": 4, "PrintableString": 7, "IA5String": 7, "VisibleString": 7,
                  "ISO646String": 7, "BMPString": 16, "UniversalString": 32}

POINTER_KINDS = ("SEQUENCE", "CHOICE", "SEQUENCE_OF", "OPEN")

def decoder_events(lines):
    """Decoders report the components they descend into as named events."""
    out = []
    for line in lines:
        line = line.replace("asn1PushElem(", "asn1DecStartElem(")
        line = line.replace("asn1PushArrayElem(", "asn1DecStartArrayElem(")
        out.append(line.replace("asn1PopElem(ctxt)", "asn1DecEndElem(ctxt)"))
    return out


# A failure return of generated code, rewritten where a temporary state must be undone first.
RETURN_LOG = re.compile(r"return LOG_RTERR\(ctxt, (.*)\);")


def bitlen(n):
    return n.bit_length()


def lit(v):
    """C literal of an integer bound."""
    if -(1 << 31) <= v < (1 << 31):
        return str(v)
    return "%dLL" % v if v < 0 else "%dULL" % v


def cstring(s):
    out = []
    for ch in s:
        o = ord(ch)
        if ch in '"\\':
            out.append("\\" + ch)
        elif 32 <= o < 127:
            out.append(ch)
        else:
            out.append("\\%03o" % o)
    return '"%s"' % "".join(out)


def string_params(rt):
    """(alphabet for index mode or None, aligned bits, unaligned bits, canonical bits) of a
    known-multiplier string, or None for an octet-counted one."""
    st = rt.string_type
    if st not in CANONICAL_BITS:
        return None
    canon = CANONICAL_BITS[st]
    alpha = rt.cons.alphabet
    if alpha is None:
        std = STRING_ALPHABETS[st]
        if isinstance(std, str):
            alpha = std
            n = len(alpha)
        else:
            n = std[1] - std[0] + 1
    else:
        n = len(alpha)
    ubits = bitlen(n - 1) if n > 1 else 0
    abits = 1
    while abits < ubits:
        abits *= 2
    if ubits < canon or canon < 5:
        if alpha is None:
            raise Asn1Error("%s needs its alphabet" % st)
        return alpha, abits, ubits, canon
    return None, abits, ubits, canon


class PerEmitter:
    def __init__(self, mi):
        self.mi = mi

    # ---- signatures ----------------------------------------------------------------------------
    @staticmethod
    def enc_param(td):
        k = td.body.kind
        if k == "SEQUENCE_OF":
            return "ASN1TSeqOfList* pvalue"
        if k in POINTER_KINDS:
            return "%s* pvalue" % tname(td)
        return "%s value" % tname(td)

    @staticmethod
    def value_expr(td):
        return "(*pvalue)" if td.body.kind in POINTER_KINDS else "value"

    @staticmethod
    def prototypes(td):
        dec_t = "ASN1TSeqOfList" if td.body.kind == "SEQUENCE_OF" else tname(td)
        return ["int asn1PE_%s(QSCTXT* ctxt, %s);" % (td.cname, PerEmitter.enc_param(td)),
                "int asn1PD_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, dec_t)]

    # ---- helpers -------------------------------------------------------------------------------
    @staticmethod
    def check(w, call):
        w.line("if ((stat = %s) != 0) return LOG_RTERR(ctxt, stat);" % call)

    @staticmethod
    def check_len(w, call):
        """For the length encoders, which return the (non-negative) number of items to write."""
        w.line("if ((stat = %s) < 0) return LOG_RTERR(ctxt, stat);" % call)

    @staticmethod
    def size_args(c):
        return "%s, %s, %d" % (lit(c.size_lo), lit(c.size_hi), 1 if c.size_ext else 0)

    def set_size(self, w, c):
        if c.has_size():
            self.check(w, "pu_setSizeConstraint(ctxt, %s)" % self.size_args(c))

    def uses_typedef_codec(self, rt):
        """True when a component of type `rt` is coded by its named type's functions (possibly
        after making a narrower SIZE pending); False when it must be coded inline."""
        td = rt.typedef
        if td is None:
            return False
        mine, theirs = rt.cons, td.body.cons
        if per_key(mine) == per_key(theirs):
            return True
        if rt.kind in ("SEQUENCE_OF", "OCTET_STRING", "STRING") or \
                (rt.kind == "BIT_STRING" and not is_small_bitstring(rt)):
            return (mine.lo, mine.hi, mine.ext, mine.alphabet) == \
                   (theirs.lo, theirs.hi, theirs.ext, theirs.alphabet)
        return rt.kind in ("SEQUENCE", "CHOICE")

    def extra_inner(self, rt):
        if rt.typedef is None:
            return rt.cons.inner
        own = rt.typedef.body.cons.inner
        return [x for x in rt.cons.inner if x not in own]

    def presence_check(self, w, inner, expr, comps):
        """Checks WITH COMPONENTS presence rules on a SEQUENCE value `expr`."""
        cmap = {c.name: c for c in comps}

        def conds(entry):
            partial, rules = entry
            out = []
            for name, presence in rules.items():
                c = cmap.get(name)
                if c is None or not c.has_present_bit or presence not in ("PRESENT", "ABSENT"):
                    continue
                bit = "%s.m.%sPresent" % (expr, c.cname)
                out.append((bit if presence == "PRESENT" else "!" + bit, name, presence))
            return out

        for entry in inner:
            if entry[0] == "union":
                alts = [conds(e) for e in entry[1]]
                alts = [a for a in alts if a]
                if not alts:
                    continue
                test = " || ".join("(%s)" % " && ".join(c for c, _, _ in a) for a in alts)
                w.line("if (!(%s)) {" % test)
                w.line('   rtxErrAddStrParm(ctxt, "%s");' % " | ".join(
                    ", ".join("element '%s' %s" % (n, "absent" if p == "PRESENT" else "present")
                              for _, n, p in a) for a in alts))
                w.line('   rtxErrAddStrParm(ctxt, "WITH COMPONENTS");')
                w.line("   return LOG_RTERR(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);")
                w.line("}")
            else:
                for cond, name, presence in conds(entry):
                    w.line("if (!(%s)) {" % cond)
                    w.line("   rtxErrAddStrParm(ctxt, \"element '%s' %s\");"
                           % (name, "absent" if presence == "PRESENT" else "present"))
                    w.line('   rtxErrAddStrParm(ctxt, "WITH COMPONENTS");')
                    w.line("   return LOG_RTERR(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);")
                    w.line("}")

    # ---- encoding ------------------------------------------------------------------------------
    def enc_value(self, w, rt, expr):
        """Statements encoding the value `expr` (an lvalue of ctype(rt))."""
        if rt.kind == "NULL":
            return
        inner = self.extra_inner(rt)
        if inner and rt.kind == "SEQUENCE":
            self.presence_check(w, inner, expr, rt.components)
        if self.uses_typedef_codec(rt):
            td = rt.typedef
            if per_key(rt.cons) != per_key(td.body.cons):
                self.set_size(w, rt.cons)
            arg = "&" + expr if td.body.kind in POINTER_KINDS else expr
            self.check(w, "asn1PE_%s(ctxt, %s)" % (td.cname, arg))
            return
        self.enc_inline(w, rt, expr)

    def enc_inline(self, w, rt, expr):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            self.check(w, "pe_BoolField(ctxt, (QSBOOL)(%s != 0))" % expr)
        elif k == "INTEGER":
            self.enc_integer(w, rt, expr)
        elif k == "ENUMERATED":
            self.enc_enum(w, rt, expr)
        elif k == "BIT_STRING":
            if is_small_bitstring(rt):
                if c.size_ext:
                    self.set_size(w, c)
                self.check(w, "pe_BitString32(ctxt, &%s, %s, %s)" % (expr, lit(c.size_lo), lit(c.size_hi)))
            else:
                self.set_size(w, c)
                self.check(w, "pe_BitString(ctxt, %s.numbits, %s.data)" % (expr, expr))
        elif k == "OCTET_STRING":
            self.set_size(w, c)
            self.check(w, "pe_OctetString(ctxt, %s.numocts, %s.data)" % (expr, expr))
        elif k == "STRING":
            sp = string_params(rt)
            if sp is None:
                self.set_size(w, c)
                self.check(w, "pe_VarWidthCharString(ctxt, %s)" % expr)
            else:
                alpha, abits, ubits, canon = sp
                self.set_size(w, c)
                self.check(w, "pe_ConstrainedStringEx(ctxt, %s, %s, %d, %d, %d)"
                           % (expr, cstring(alpha) if alpha else "0", abits, ubits, canon))
        elif k == "OPEN":
            self.check(w, "pe_OpenType(ctxt, %s.numocts, %s.data)" % (expr, expr))
        elif k == "SEQUENCE":
            self.enc_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.enc_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            self.enc_seqof(w, rt, expr)
        else:
            raise Asn1Error("no PER encoding for %s" % k)

    def int_offset(self, rt, expr, wide):
        c = rt.cons
        ct = int_ctype(c)
        if c.lo == 0 and ct.startswith("QSU"):
            return "(%s)%s" % ("QSUINT64" if wide else "QSUINT32", expr)
        return "(%s)((QSINT64)%s - (%s))" % ("QSUINT64" if wide else "QSUINT32", expr, lit(c.lo))

    def enc_integer(self, w, rt, expr):
        c = rt.cons
        ct = int_ctype(c)
        signed = not ct.startswith("QSU")
        wide = "64" in ct
        uncons = "pe_Uncons%s%sUnaligned" % ("Int" if signed else "UInt", "64" if wide else "32")
        if not c.has_range():
            if c.lo is None:
                self.check(w, "pe_UnconsInt64Unaligned(ctxt, (QSINT64)%s)" % expr)
            else:
                self.check(w, "pe_SemiConsInt64(ctxt, (QSINT64)%s, %s)" % (expr, lit(c.lo)))
            return
        nbits = bitlen(c.hi - c.lo)
        root = self.root_int_call(rt, expr, nbits)
        if c.ext:
            outside = ("%s > %s" % (expr, lit(c.hi))) if (c.lo == 0 and not signed) else \
                      ("(%s < %s || %s > %s)" % (expr, lit(c.lo), expr, lit(c.hi)))
            w.line("if (%s) {" % outside)
            w.indent()
            self.check(w, "pe_ExtBit(ctxt, 1)")
            self.check(w, "%s(ctxt, %s)" % (uncons, expr))
            w.dedent()
            w.line("}")
            w.line("else {")
            w.indent()
            self.check(w, "pe_ExtBit(ctxt, 0)")
            if root:
                self.check(w, root)
            w.dedent()
            w.line("}")
        elif root:
            self.check(w, root)

    def root_int_call(self, rt, expr, nbits):
        if nbits == 0:
            return None
        wide = nbits > 32
        return "pe_ConsBits%s(ctxt, %s, %d)" % ("64" if wide else "", self.int_offset(rt, expr, wide), nbits)

    @staticmethod
    def enum_tables(rt):
        root = sorted(v for _, v in rt.root)
        identity = root == list(range(len(root)))
        ext = [v for _, v in (rt.ext_items or [])]
        return root, identity, ext

    def enc_enum(self, w, rt, expr):
        root, identity, ext = self.enum_tables(rt)
        nbits = bitlen(len(root) - 1) if len(root) > 1 else 0
        w.line("QSUINT32 ui;")
        if identity:
            w.line("QSBOOL inRoot = (QSBOOL)(%s < %d);" % (expr, len(root)))
            w.line("ui = %s;" % expr)
        else:
            w.line("QSBOOL inRoot = 1;")
            w.line("switch (%s) {" % expr)
            for i, v in enumerate(root):
                w.line("case %d: ui = %d; break;" % (v, i))
            w.line("default: ui = 0; inRoot = 0; break;")
            w.line("}")
        if rt.ext_items is not None:
            self.check(w, "pe_ExtBit(ctxt, (QSBOOL)!inRoot)")
            w.line("if (!inRoot) {")
            w.indent()
            w.line("switch (%s) {" % expr)
            for i, v in enumerate(ext):
                w.line("case %d: ui = %d; break;" % (v, i))
            w.line("default:")
            w.line("   rtxErrAddUIntParm(ctxt, %s);" % expr)
            w.line("   return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);")
            w.line("}")
            self.check(w, "pe_SmallNonNegWholeNumber(ctxt, ui)")
            w.line("return 0;")
            w.dedent()
            w.line("}")
        else:
            w.line("if (!inRoot) {")
            w.line("   rtxErrAddUIntParm(ctxt, %s);" % expr)
            w.line("   return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);")
            w.line("}")
        if nbits:
            self.check(w, "pe_ConsBits(ctxt, ui, %d)" % nbits)
        else:
            w.line("(void)ui;")

    def enc_sequence(self, w, rt, expr):
        comps = rt.components
        root = rt.root_components
        adds = rt.addition_components
        positions = sorted({c.ext_index for c in adds})
        if rt.extensible:
            conds = ["%s.extElem1.count > 0" % expr]
            conds += ["%s.m.%sPresent" % (expr, c.cname) for c in adds]
            w.line("QSBOOL extbit = (QSBOOL)(%s);" % " || ".join(conds))
        opt = [c for c in root if c.has_present_bit]
        # The extension bit and the presence bits in one write when there is room (the per-bit
        # writes remain for tracing, the end of a fixed buffer and buffer growth).
        nbits = len(opt) + (1 if rt.extensible else 0)
        batched = bool(opt) and 3 <= nbits <= 32
        if batched:
            parts = ["((QSUINT32)extbit << %d)" % len(opt)] if rt.extensible else []
            for i, c in enumerate(opt):
                shift = len(opt) - 1 - i
                term = "(QSUINT32)%s.m.%sPresent" % (expr, c.cname)
                parts.append("(%s << %d)" % (term, shift) if shift else term)
            w.line("if (!pe_PreambleFast(ctxt, %s, %d)) {" % (" | ".join(parts), nbits))
            w.indent()
        if rt.extensible:
            self.check(w, "pe_ExtBit(ctxt, extbit)")
        if opt:
            w.line("/* optional components */")
            for c in opt:
                self.check(w, "pe_OptBit(ctxt, (QSBOOL)%s.m.%sPresent)" % (expr, c.cname))
        if batched:
            w.dedent()
            w.line("}")
        if rt.cons.inner:
            self.presence_check(w, rt.cons.inner, expr, comps)
        for c in root:
            if rt.regional and c.type.kind == "OPEN":
                self.enc_regional_value(w, c, expr)
                continue
            self.component(w, c, expr, lambda: self.enc_value(w, c.type, "%s.%s" % (expr, c.cname)))
        if rt.extensible:
            w.line("if (extbit) {")
            w.indent()
            if positions:
                w.line("QSSIZE nadd = %s.extElem1.count;" % expr)
                w.line("/* known additions are all counted once any addition is there */")
                self.check_len(w, "pe_SmallLength(ctxt, %d + nadd)" % len(positions))
                for p in positions:
                    members = [c for c in adds if c.ext_index == p]
                    test = " || ".join("%s.m.%sPresent" % (expr, c.cname) for c in members)
                    self.check(w, "pe_OptBit(ctxt, (QSBOOL)(%s))" % test)
                self.check(w, "pe_OpenTypeExtBits(ctxt, &%s.extElem1)" % expr)
                for p in positions:
                    members = [c for c in adds if c.ext_index == p]
                    test = " || ".join("%s.m.%sPresent" % (expr, c.cname) for c in members)
                    w.line("if (%s) {" % test)
                    w.indent()
                    w.line("QSPEROpenTypeState ots;")
                    self.check(w, "pe_OpenTypeBegin(ctxt, &ots)")
                    w.line("stat = asn1PE_addition%d_%s(ctxt, &%s);" % (p, self.cur_td.cname, expr)
                           if self.is_group(members) else "stat = 0;")
                    if not self.is_group(members):
                        c = members[0]
                        w.line("do {")
                        w.indent()
                        self.component(w, c, expr, lambda: self.enc_value_nolog(w, c.type, "%s.%s" % (expr, c.cname)))
                        w.dedent()
                        w.line("} while (0);")
                    self.check(w, "pe_OpenTypeEnd(ctxt, &ots, stat)")
                    w.dedent()
                    w.line("}")
                self.check(w, "pe_OpenTypeExt(ctxt, &%s.extElem1)" % expr)
            else:
                self.check_len(w, "pe_SmallLength(ctxt, %s.extElem1.count)" % expr)
                self.check(w, "pe_OpenTypeExtBits(ctxt, &%s.extElem1)" % expr)
                self.check(w, "pe_OpenTypeExt(ctxt, &%s.extElem1)" % expr)
            w.dedent()
            w.line("}")

    @staticmethod
    def is_group(members):
        return members[0].group is not None

    def enc_value_nolog(self, w, rt, expr):
        """Like enc_value, but a failure breaks out to the enclosing `do {} while (0)` so that
        the temporary open-type buffer is released by pe_OpenTypeEnd."""
        sub = CodeWriter()
        sub.level = w.level
        self.enc_value(sub, rt, expr)
        for line in sub.lines:
            w.lines.append(RETURN_LOG.sub(r"{ stat = LOG_RTERR(ctxt, \1); break; }", line))

    def component(self, w, c, expr, body):
        """Wraps the coding of component `c` in its presence test and element name."""
        if c.type.kind == "NULL":
            return
        opt = c.has_present_bit and c.ext_index is None
        if opt:
            w.line("if (%s.m.%sPresent) {" % (expr, c.cname))
            w.indent()
        w.line('asn1PushElem(ctxt, "%s");' % c.name)
        body()
        w.line("asn1PopElem(ctxt);")
        if opt:
            w.dedent()
            w.line("}")

    def enc_regional_value(self, w, c, expr):
        sel = "%s.%s" % (expr, c.cname)
        objs = c.type.objects
        w.line('asn1PushElem(ctxt, "%s");' % c.name)
        w.line("if (%s.t == 0) {" % sel)
        w.line("   const ASN1TOpenType* raw = %s.u.extElem1;" % sel)
        self.check(w, "pe_OpenType(ctxt, raw != 0 ? raw->numocts : 0, raw != 0 ? raw->data : 0)")
        w.line("}")
        for i, (_, ot, name) in enumerate(objs):
            w.line("else if (%s.t == %d) {" % (sel, i + 1))
            w.indent()
            w.line("QSPEROpenTypeState ots;")
            self.check(w, "pe_OpenTypeBegin(ctxt, &ots)")
            w.line("stat = asn1PE_%s(ctxt, %s.u.%s);" % (ot.typedef.cname, sel, c_ident(name)))
            self.check(w, "pe_OpenTypeEnd(ctxt, &ots, stat)")
            w.dedent()
            w.line("}")
        w.line("else {")
        w.line("   rtxErrAddUIntParm(ctxt, %s.t);" % sel)
        w.line("   return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.line("}")
        w.line("asn1PopElem(ctxt);")

    def enc_choice(self, w, rt, expr):
        alts = rt.alternatives
        nroot = len(rt.root_alternatives)
        nbits = bitlen(nroot - 1) if nroot > 1 else 0
        if rt.extensible:
            self.check(w, "pe_ExtBit(ctxt, (QSBOOL)(%s.t > %d))" % (expr, nroot))
            w.line("if (%s.t > %d) {" % (expr, nroot))
            w.indent()
            self.check(w, "pe_SmallNonNegWholeNumber(ctxt, %s.t - %d)" % (expr, nroot + 1))
            w.line("switch (%s.t) {" % expr)
            for i, a in enumerate(alts):
                if a.ext_index is None:
                    continue
                w.line("case %d: {" % (i + 1))
                w.indent()
                w.line("QSPEROpenTypeState ots;")
                self.check(w, "pe_OpenTypeBegin(ctxt, &ots)")
                w.line("stat = 0;")
                w.line("do {")
                w.indent()
                self.alt_body(w, a, expr, self.enc_value_nolog)
                w.dedent()
                w.line("} while (0);")
                self.check(w, "pe_OpenTypeEnd(ctxt, &ots, stat)")
                w.line("break;")
                w.dedent()
                w.line("}")
            w.line("default: {")
            w.line("   const ASN1TOpenType* raw = %s.u.extElem1;" % expr)
            self.check(w, "pe_OpenType(ctxt, raw != 0 ? raw->numocts : 0, raw != 0 ? raw->data : 0)")
            w.line("}")
            w.line("}")
            w.line("return 0;")
            w.dedent()
            w.line("}")
        w.line("if (%s.t < 1 || %s.t > %d) {" % (expr, expr, nroot))
        w.line("   rtxErrAddUIntParm(ctxt, %s.t);" % expr)
        w.line("   return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.line("}")
        if nbits:
            self.check(w, "pe_ChoiceIndex(ctxt, %s.t - 1, %d)" % (expr, nbits))
        w.line("switch (%s.t) {" % expr)
        for i, a in enumerate(alts):
            if a.ext_index is not None:
                continue
            w.line("case %d:" % (i + 1))
            w.indent()
            self.alt_body(w, a, expr, self.enc_value)
            w.line("break;")
            w.dedent()
        w.line("default: break;")
        w.line("}")

    def alt_body(self, w, a, expr, fn):
        if a.type.kind == "NULL":
            return
        ptr = "%s.u.%s" % (expr, a.cname)
        w.line("if (%s == 0) return LOG_RTERR(ctxt, RTERR_UNEXPECTED_NULL_POINTER);" % ptr)
        w.line('asn1PushElem(ctxt, "%s");' % a.name)
        fn(w, a.type, "(*%s)" % ptr)
        w.line("asn1PopElem(ctxt);")

    def enc_seqof(self, w, rt, expr):
        c = rt.cons
        el = rt.element
        et = ctype(el)
        direct = c.has_size() and not c.size_ext and c.size_hi < 65536
        w.line("QSSIZE count = %s.count;" % expr)
        if direct:
            w.line("if (!ctxt->sizeCnst.constrained) {")
            w.indent()
            w.line("if (count < %s || count > %s) {" % (lit(c.size_lo), lit(c.size_hi))
                   if c.size_lo > 0 else "if (count > %s) {" % lit(c.size_hi))
            w.line("   return LOG_RTERR(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);   /* no parameters */")
            w.line("}")
            nbits = bitlen(c.size_hi - c.size_lo)
            if nbits:
                self.check(w, "pe_LengthBits(ctxt, (QSUINT32)(count - %s), %d)" % (lit(c.size_lo), nbits))
            w.dedent()
            w.line("}")
            w.line("else if ((stat = pe_Length(ctxt, count)) < 0) return LOG_RTERR(ctxt, stat);")
            w.line("QSSIZE xx = 0;")
            w.line("for (QSRTDListNode* node = %s.head; node != 0 && xx < count; node = node->next, xx++) {"
                   % expr)
            w.indent()
            w.line('asn1PushArrayElem(ctxt, "elem", xx);')
            self.enc_value(w, el, "(*(%s*)node->data)" % et)
            w.line("asn1PopElem(ctxt);")
            w.dedent()
            w.line("}")
            return
        self.set_size(w, c)
        w.line("QSRTDListNode* node = %s.head;" % expr)
        w.line("QSSIZE done = 0;")
        w.line("for (;;) {")
        w.indent()
        w.line("int n = pe_Length(ctxt, count - done);")
        w.line("if (n < 0) return LOG_RTERR(ctxt, n);")
        w.line("for (int xx = 0; xx < n && node != 0; xx++, node = node->next) {")
        w.indent()
        w.line('asn1PushArrayElem(ctxt, "elem", done + xx);')
        self.enc_value(w, el, "(*(%s*)node->data)" % et)
        w.line("asn1PopElem(ctxt);")
        w.dedent()
        w.line("}")
        w.line("done += (QSSIZE)n;")
        w.line("if (done >= count) {")
        w.line("   if (n >= 16384) { if ((stat = pe_Length(ctxt, 0)) < 0) return LOG_RTERR(ctxt, stat); }")
        w.line("   break;")
        w.line("}")
        w.dedent()
        w.line("}")

    # ---- decoding ------------------------------------------------------------------------------
    def dec_value(self, w, rt, expr):
        """Statements decoding into the lvalue `expr` of ctype(rt)."""
        if rt.kind == "NULL":
            return
        if self.uses_typedef_codec(rt):
            td = rt.typedef
            if per_key(rt.cons) != per_key(td.body.cons):
                self.set_size(w, rt.cons)
            self.check(w, "asn1PD_%s(ctxt, &%s)" % (td.cname, expr))
        else:
            self.dec_inline(w, rt, expr)
        inner = self.extra_inner(rt)
        if inner and rt.kind == "SEQUENCE":
            self.presence_check(w, inner, expr, rt.components)

    def dec_inline(self, w, rt, expr):
        k = rt.kind
        c = rt.cons
        if k == "BOOLEAN":
            self.check(w, "pd_BoolField(ctxt, &%s)" % expr)
        elif k == "INTEGER":
            self.dec_integer(w, rt, expr)
            self.int_event(w, rt, expr)
        elif k == "ENUMERATED":
            self.dec_enum(w, rt, expr)
            w.line("asn1EvtEnum(ctxt, %s, %s_ToString);" % (expr, tname(self.cur_td)))
        elif k == "BIT_STRING":
            if is_small_bitstring(rt):
                if c.size_ext:
                    self.set_size(w, c)
                self.check(w, "pd_BitString32(ctxt, &%s, %s, %s)" % (expr, lit(c.size_lo), lit(c.size_hi)))
            else:
                self.set_size(w, c)
                self.check(w, "pd_DynBitString(ctxt, &%s)" % expr)
            w.line("asn1EvtBitStr(ctxt, %s.numbits, %s.data);" % (expr, expr))
        elif k == "OCTET_STRING":
            self.set_size(w, c)
            self.check(w, "pd_DynOctetString(ctxt, &%s)" % expr)
        elif k == "STRING":
            sp = string_params(rt)
            if sp is None:
                self.set_size(w, c)
                self.check(w, "pd_VarWidthCharString(ctxt, &%s)" % expr)
            else:
                alpha, abits, ubits, canon = sp
                self.set_size(w, c)
                self.check(w, "pd_ConstrainedStringEx(ctxt, &%s, %s, %d, %d, %d)"
                           % (expr, cstring(alpha) if alpha else "0", abits, ubits, canon))
        elif k == "OPEN":
            self.check(w, "pd_OpenType(ctxt, &%s.data, &%s.numocts)" % (expr, expr))
        elif k == "SEQUENCE":
            self.dec_sequence(w, rt, expr)
        elif k == "CHOICE":
            self.dec_choice(w, rt, expr)
        elif k == "SEQUENCE_OF":
            self.dec_seqof(w, rt, expr)
        else:
            raise Asn1Error("no PER decoding for %s" % k)

    def dec_integer(self, w, rt, expr):
        c = rt.cons
        ct = int_ctype(c)
        signed = not ct.startswith("QSU")
        wide = "64" in ct
        if not c.has_range():
            if c.lo is None:
                self.check(w, "pd_UnconsInt64(ctxt, &%s)" % expr)
            else:
                w.line("{")
                w.line("   QSINT64 v;")
                self.check(w, "pd_SemiConsInt64(ctxt, &v, %s)" % lit(c.lo))
                w.line("   %s = (%s)v;" % (expr, ct))
                w.line("}")
            return
        nbits = bitlen(c.hi - c.lo)
        if c.ext:
            w.line("{")
            w.indent()
            w.line("QSBOOL extbit = 0;")
            self.check(w, "pd_ExtBit(ctxt, &extbit)")
            w.line("if (extbit) {")
            w.indent()
            fn = "pd_Uncons%s" % ({(True, False): "Integer", (False, False): "Unsigned",
                                   (True, True): "Int64", (False, True): "UInt64"}[(signed, wide)])
            self.check(w, "%s(ctxt, &%s)" % (fn, expr))
            w.dedent()
            w.line("}")
            w.line("else {")
            w.indent()
            self.dec_root_int(w, rt, expr, nbits)
            w.dedent()
            w.line("}")
            w.dedent()
            w.line("}")
        else:
            self.dec_root_int(w, rt, expr, nbits)

    @staticmethod
    def int_event(w, rt, expr):
        signed = not int_ctype(rt.cons).startswith("QSU")
        w.line("asn1Evt%s(ctxt, (%s)%s);" % ("Int" if signed else "UInt", "QSINT64" if signed else "QSUINT64", expr))

    def dec_root_int(self, w, rt, expr, nbits):
        c = rt.cons
        ct = int_ctype(c)
        if nbits == 0:
            w.line("%s = (%s)%s;" % (expr, ct, lit(c.lo)))
            return
        wide = nbits > 32
        w.line("{")
        w.indent()
        w.line("%s ui;" % ("QSUINT64" if wide else "QSUINT32"))
        self.check(w, "pd_ConsBits%s(ctxt, &ui, %d)" % ("64" if wide else "", nbits))
        if c.lo == 0:
            w.line("%s = (%s)ui;" % (expr, ct))
        else:
            w.line("%s = (%s)((QSINT64)ui + (%s));" % (expr, ct, lit(c.lo)))
        w.dedent()
        w.line("}")

    def dec_enum(self, w, rt, expr):
        root, identity, ext = self.enum_tables(rt)
        nbits = bitlen(len(root) - 1) if len(root) > 1 else 0
        w.line("QSUINT32 ui = 0;")
        if rt.ext_items is not None:
            w.line("QSBOOL extbit = 0;")
            w.line("pd_ExtBit(ctxt, &extbit);  /* at the end of the input the next read fails */")
            w.line("if (extbit) {")
            w.indent()
            self.check(w, "pd_SmallNonNegWholeNumber(ctxt, &ui)")
            if ext:
                w.line("static const QSUINT32 extValues[%d] = { %s };" % (len(ext), ", ".join(map(str, ext))))
                w.line("%s = ui < %d ? extValues[ui] : 0xFFFFFFFFu;" % (expr, len(ext)))
            else:
                w.line("(void)ui;")
                w.line("%s = 0xFFFFFFFFu;" % expr)
            w.line("asn1EvtEnum(ctxt, %s, %s_ToString);" % (expr, tname(self.cur_td)))
            w.line("return 0;")
            w.dedent()
            w.line("}")
        if nbits:
            self.check(w, "pd_ConsBits(ctxt, &ui, %d)" % nbits)
        if identity:
            w.line("%s = ui;" % expr)
        else:
            w.line("static const QSUINT32 rootValues[%d] = { %s };" % (len(root), ", ".join(map(str, root))))
            w.line("if (ui >= %d) {" % len(root))
            w.line("   rtxErrAddUIntParm(ctxt, ui);")
            w.line("   return LOG_RTERR(ctxt, RTERR_ENUM_NOT_IN_SET);")
            w.line("}")
            w.line("%s = rootValues[ui];" % expr)

    def dec_sequence(self, w, rt, expr):
        root = rt.root_components
        adds = rt.addition_components
        positions = sorted({c.ext_index for c in adds})
        opt = [c for c in root if c.has_present_bit]
        # The extension bit and the presence bits in one read when they are all at hand (the
        # per-bit reads below remain for tracing, the end of the input and every failure).
        # Worth it from three bits on; fewer are cheaper one by one.
        batched = 3 <= len(opt) + (1 if rt.extensible else 0) <= 56
        if rt.extensible:
            w.line("QSBOOL extbit = 0;")
            if not batched:
                w.line("pd_ExtBit(ctxt, &extbit);  /* at the end of the input the next read fails */")
        if any(c.has_present_bit for c in rt.components):
            w.line("memset(&%s.m, 0, sizeof(%s.m));" % (expr, expr))
        if rt.extensible:
            w.line("rtxDListInit(&%s.extElem1);" % expr)
        if opt:
            w.line("QSBOOL optbits[%d];" % len(opt))
            if batched:
                w.line("if (!pd_PreambleFast(ctxt, %s, optbits, %d)) {"
                       % ("&extbit" if rt.extensible else "0", len(opt)))
                w.indent()
                if rt.extensible:
                    w.line("pd_ExtBit(ctxt, &extbit);  /* at the end of the input the next read fails */")
            for i, _ in enumerate(opt):
                self.check(w, "pd_OptBit(ctxt, &optbits[%d])" % i)
            if batched:
                w.dedent()
                w.line("}")
        oi = {c.name: i for i, c in enumerate(opt)}
        for c in root:
            if rt.regional and c.type.kind == "OPEN":
                self.dec_regional_value(w, c, expr, rt)
                continue
            if c.type.kind == "NULL":
                continue
            if c.name in oi:
                w.line("if (optbits[%d]) {" % oi[c.name])
                w.indent()
                w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
            w.line('asn1PushElem(ctxt, "%s");' % c.name)
            self.dec_value(w, c.type, "%s.%s" % (expr, c.cname))
            w.line("asn1PopElem(ctxt);")
            if c.name in oi:
                w.dedent()
                w.line("}")
                if c.default is not None and isinstance(c.default, int) and c.type.kind in ("INTEGER", "ENUMERATED"):
                    w.line("else %s.%s = %s;" % (expr, c.cname, lit(c.default)))
                elif c.default is not None and isinstance(c.default, bool):
                    w.line("else %s.%s = %d;" % (expr, c.cname, int(c.default)))
        if rt.extensible:
            w.line("if (extbit) {")
            w.indent()
            w.line("ASN1TExtOptBits bits;")
            self.check(w, "pd_ExtOptElemBits(ctxt, &bits)")
            w.line("for (QSUINT32 i = 0; i < bits.count; i++) {")
            w.indent()
            if positions:
                w.line("if (i < %d) {" % len(positions))
                w.indent()
                w.line("if (!bits.data[i]) continue;")
                w.line("QSUINT64 endBit;")
                w.line("if ((stat = pd_OpenTypeBegin(ctxt, &endBit)) != 0) { rtxMemHeapFreePtr(ctxt, bits.data); "
                       "return LOG_RTERR(ctxt, stat); }")
                w.line("switch (i) {")
                for pi, p in enumerate(positions):
                    members = [c for c in adds if c.ext_index == p]
                    w.line("case %d:" % pi)
                    w.indent()
                    if self.is_group(members):
                        w.line("stat = asn1PD_addition%d_%s(ctxt, &%s);" % (p, self.cur_td.cname, expr))
                    else:
                        c = members[0]
                        w.line("%s.m.%sPresent = 1;" % (expr, c.cname))
                        w.line("stat = 0;")
                        w.line("do {")
                        w.indent()
                        w.line('asn1PushElem(ctxt, "%s");' % c.name)
                        sub = CodeWriter()
                        sub.level = w.level
                        self.dec_value(sub, c.type, "%s.%s" % (expr, c.cname))
                        for line in sub.lines:
                            w.lines.append(RETURN_LOG.sub(r"{ stat = LOG_RTERR(ctxt, \1); break; }", line))
                        w.line("asn1PopElem(ctxt);")
                        w.dedent()
                        w.line("} while (0);")
                    w.line("break;")
                    w.dedent()
                w.line("default: break;")
                w.line("}")
                w.line("if (stat == 0) stat = pd_OpenTypeEnd(ctxt, endBit);")
                w.line("if (stat != 0) { rtxMemHeapFreePtr(ctxt, bits.data); return LOG_RTERR(ctxt, stat); }")
                w.line("continue;")
                w.dedent()
                w.line("}")
            w.line("ASN1TOpenType* ot = 0;")
            w.line("if (bits.data[i]) {")
            w.indent()
            w.line("ot = (ASN1TOpenType*)rtxMemHeapAllocZ(ctxt, sizeof(ASN1TOpenType));")
            w.line("if (ot == 0) { rtxMemHeapFreePtr(ctxt, bits.data); return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY); }")
            w.line("if ((stat = pd_OpenType(ctxt, &ot->data, &ot->numocts)) != 0) {")
            w.line("   rtxMemHeapFreePtr(ctxt, bits.data);")
            w.line("   return LOG_RTERR(ctxt, stat);")
            w.line("}")
            w.dedent()
            w.line("}")
            w.line("if (rtxDListAppend(ctxt, &%s.extElem1, ot) == 0) {" % expr)
            w.line("   rtxMemHeapFreePtr(ctxt, bits.data);")
            w.line("   return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);")
            w.line("}")
            w.dedent()
            w.line("}")
            w.line("rtxMemHeapFreePtr(ctxt, bits.data);")
            w.dedent()
            w.line("}")
        if rt.cons.inner:
            self.presence_check(w, rt.cons.inner, expr, rt.components)

    def dec_regional_value(self, w, c, expr, rt):
        sel = "%s.%s" % (expr, c.cname)
        idc = next(x for x in rt.components if x.name == c.type.id_component)
        w.line('asn1PushElem(ctxt, "%s");' % c.name)
        w.line("{")
        w.indent()
        w.line("QSUINT64 endBit;")
        self.check(w, "pd_OpenTypeBegin(ctxt, &endBit)")
        w.line("switch (%s.%s) {" % (expr, idc.cname))
        for i, (rid, ot, name) in enumerate(c.type.objects):
            t = ctype(ot)
            w.line("case %d: {" % rid)
            w.indent()
            w.line("%s.t = %d;" % (sel, i + 1))
            w.line("%s* pv = (%s*)rtxMemHeapAlloc(ctxt, sizeof(%s));" % (t, t, t))
            w.line("if (pv == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);")
            w.line("%s.u.%s = new (pv) %s();" % (sel, c_ident(name), t))
            w.line('asn1PushElem(ctxt, "_%s_REG_%s_%s");' % (self.mi.prefix.rstrip("_").split("_")[0] or "ASN1",
                                                             c.type.objset.replace("-", "_"), name))
            self.check(w, "asn1PD_%s(ctxt, pv)" % ot.typedef.cname)
            w.line("asn1PopElem(ctxt);")
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default:")
        w.indent()
        w.line("%s.t = 0;" % sel)
        self.check(w, "pd_OpenTypeRaw(ctxt, endBit, &%s.u.extElem1)" % sel)
        w.line("asn1EvtOpenType(ctxt, %s.u.extElem1->numocts, %s.u.extElem1->data);" % (sel, sel))
        w.line("break;")
        w.dedent()
        w.line("}")
        self.check(w, "pd_OpenTypeEnd(ctxt, endBit)")
        w.dedent()
        w.line("}")
        w.line("asn1PopElem(ctxt);")

    def alloc_alt(self, w, a, expr):
        t = ctype(a.type)
        ptr = "%s.u.%s" % (expr, a.cname)
        w.line("%s = (%s*)rtxMemHeapAlloc(ctxt, sizeof(%s));" % (ptr, t, t))
        w.line("if (%s == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);" % ptr)
        w.line("new (%s) %s();" % (ptr, t))
        return ptr

    def dec_choice(self, w, rt, expr):
        alts = rt.alternatives
        nroot = len(rt.root_alternatives)
        nbits = bitlen(nroot - 1) if nroot > 1 else 0
        w.line("QSUINT32 ui = 0;")
        if rt.extensible:
            w.line("QSBOOL extbit = 0;")
            w.line("pd_ExtBit(ctxt, &extbit);  /* at the end of the input the next read fails */")
            w.line("if (extbit) {")
            w.indent()
            self.check(w, "pd_SmallNonNegWholeNumber(ctxt, &ui)")
            w.line("if (ui > 0xFFFFFFFFu - %d) return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);" % (nroot + 1))
            w.line("%s.t = ui + %d;" % (expr, nroot + 1))
            w.line("switch (%s.t) {" % expr)
            for i, a in enumerate(alts):
                if a.ext_index is None:
                    continue
                w.line("case %d: {" % (i + 1))
                w.indent()
                w.line("QSUINT64 endBit;")
                self.check(w, "pd_OpenTypeBegin(ctxt, &endBit)")
                if a.type.kind != "NULL":
                    ptr = self.alloc_alt(w, a, expr)
                    w.line('asn1PushElem(ctxt, "%s");' % a.name)
                    self.dec_value(w, a.type, "(*%s)" % ptr)
                    w.line("asn1PopElem(ctxt);")
                self.check(w, "pd_OpenTypeEnd(ctxt, endBit)")
                w.line("break;")
                w.dedent()
                w.line("}")
            w.line("default: {")
            w.indent()
            w.line("ASN1TOpenType* ot = (ASN1TOpenType*)rtxMemHeapAllocZ(ctxt, sizeof(ASN1TOpenType));")
            w.line("if (ot == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);")
            w.line("%s.u.extElem1 = ot;" % expr)
            self.check(w, "pd_OpenType(ctxt, &ot->data, &ot->numocts)")
            w.line("break;")
            w.dedent()
            w.line("}")
            w.line("}")
            w.line("return 0;")
            w.dedent()
            w.line("}")
        if nbits:
            self.check(w, "pd_ChoiceIndex(ctxt, &ui, %d)" % nbits)
        w.line("if (ui >= %d) {" % nroot)
        w.line("   rtxErrAddUIntParm(ctxt, ui);")
        w.line("   return LOG_RTERR(ctxt, RTERR_INVALID_CHOICE_OPTION);")
        w.line("}")
        w.line("%s.t = ui + 1;" % expr)
        w.line("switch (ui) {")
        for i, a in enumerate(alts):
            if a.ext_index is not None:
                continue
            w.line("case %d: {" % i)
            w.indent()
            if a.type.kind != "NULL":
                ptr = self.alloc_alt(w, a, expr)
                w.line('asn1PushElem(ctxt, "%s");' % a.name)
                self.dec_value(w, a.type, "(*%s)" % ptr)
                w.line("asn1PopElem(ctxt);")
            w.line("break;")
            w.dedent()
            w.line("}")
        w.line("default: break;")
        w.line("}")

    def dec_seqof(self, w, rt, expr):
        c = rt.cons
        el = rt.element
        et = ctype(el)
        w.line("rtxDListInit(&%s);" % expr)
        if c.has_size():
            w.line("if (!ctxt->sizeCnst.constrained) {")
            self.check(w, "pu_setSizeConstraint(ctxt, %s)" % self.size_args(c))
            w.line("}")
        w.line("for (;;) {")
        w.indent()
        w.line("QSUINT32 count;")
        w.line("int lstat = pd_Length(ctxt, &count);")
        w.line("if (lstat < 0) return LOG_RTERR(ctxt, lstat);")
        w.line("for (QSUINT32 xx = 0; xx < count; xx++) {")
        w.indent()
        w.line("%s* elem = (%s*)rtxDListAppendNew(ctxt, &%s, sizeof(%s));" % (et, et, expr, et))
        w.line("if (elem == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);")
        w.line("new (elem) %s();" % et)
        w.line('asn1PushArrayElem(ctxt, "elem", %s.count - 1);' % expr)
        self.dec_value(w, el, "(*elem)")
        w.line("asn1PopElem(ctxt);")
        w.dedent()
        w.line("}")
        w.line("if (lstat != 2) break;")
        w.dedent()
        w.line("}")

    # ---- functions -----------------------------------------------------------------------------
    def group_functions(self, we, wd, td):
        """Coders of the known extension-addition groups of a SEQUENCE, each group coded as a
        SEQUENCE of its members inside an open type."""
        b = td.body
        adds = b.addition_components
        for p in sorted({c.ext_index for c in adds}):
            members = [c for c in adds if c.ext_index == p]
            if not self.is_group(members):
                continue
            t = tname(td)
            opt = [c for c in members if c.optional or c.default is not None]
            we.line("static int asn1PE_addition%d_%s(QSCTXT* ctxt, %s* pvalue)" % (p, td.cname, t))
            we.line("{")
            we.indent()
            we.line("int stat = 0;")
            for c in opt:
                self.check(we, "pe_OptBit(ctxt, (QSBOOL)pvalue->m.%sPresent)" % c.cname)
            for c in members:
                if c in opt:
                    we.line("if (pvalue->m.%sPresent) {" % c.cname)
                    we.indent()
                we.line('asn1PushElem(ctxt, "%s");' % c.name)
                self.enc_value(we, c.type, "pvalue->%s" % c.cname)
                we.line("asn1PopElem(ctxt);")
                if c in opt:
                    we.dedent()
                    we.line("}")
            we.line("return stat;")
            we.dedent()
            we.line("}")
            we.blank()
            start = len(wd.lines)
            wd.line("static int asn1PD_addition%d_%s(QSCTXT* ctxt, %s* pvalue)" % (p, td.cname, t))
            wd.line("{")
            wd.indent()
            wd.line("int stat = 0;")
            if opt:
                wd.line("QSBOOL optbits[%d];" % len(opt))
                for i, _ in enumerate(opt):
                    self.check(wd, "pd_OptBit(ctxt, &optbits[%d])" % i)
            oi = {c.name: i for i, c in enumerate(opt)}
            for c in members:
                if c.name in oi:
                    wd.line("if (optbits[%d]) {" % oi[c.name])
                    wd.indent()
                wd.line("pvalue->m.%sPresent = 1;" % c.cname)
                wd.line('asn1PushElem(ctxt, "%s");' % c.name)
                self.dec_value(wd, c.type, "pvalue->%s" % c.cname)
                wd.line("asn1PopElem(ctxt);")
                if c.name in oi:
                    wd.dedent()
                    wd.line("}")
            wd.line("return stat;")
            wd.dedent()
            wd.line("}")
            wd.lines[start:] = decoder_events(wd.lines[start:])
            wd.blank()

    def encoder(self, w, td):
        self.cur_td = td
        w.line("int asn1PE_%s(QSCTXT* ctxt, %s)" % (td.cname, self.enc_param(td)))
        w.line("{")
        w.indent()
        expr = self.value_expr(td)
        body = CodeWriter()
        body.level = w.level
        if td.alias is not None and self.uses_typedef_codec(td.body):
            a = td.alias
            if per_key(td.body.cons) != per_key(a.body.cons):
                self.set_size(body, td.body.cons)
            arg = "pvalue" if a.body.kind in POINTER_KINDS else "value"
            body.line("return asn1PE_%s(ctxt, %s);" % (a.cname, arg))
        else:
            self.enc_inline(body, td.body, expr)
            body.line("return 0;")
        text = "\n".join(body.lines)
        if "stat" in text:
            w.line("int stat;")
        w.lines.extend(body.lines)
        w.dedent()
        w.line("}")
        w.blank()

    def decoder(self, w, td):
        self.cur_td = td
        pt = "ASN1TSeqOfList" if td.body.kind == "SEQUENCE_OF" else tname(td)
        w.line("int asn1PD_%s(QSCTXT* ctxt, %s* pvalue)" % (td.cname, pt))
        w.line("{")
        w.indent()
        body = CodeWriter()
        body.level = w.level
        if td.alias is not None and self.uses_typedef_codec(td.body):
            a = td.alias
            if per_key(td.body.cons) != per_key(a.body.cons):
                self.set_size(body, td.body.cons)
            body.line("return asn1PD_%s(ctxt, pvalue);" % a.cname)
        else:
            self.dec_inline(body, td.body, "(*pvalue)")
            if td.is_message:
                body.line("return rtxErrCheckNonFatal(ctxt);")
            else:
                body.line("return 0;")
        text = "\n".join(body.lines)
        if "stat" in text:
            w.line("int stat;")
        w.lines.extend(decoder_events(body.lines))
        w.dedent()
        w.line("}")
        w.blank()


class PerFamily(Family):
    def prototypes(self, td):
        return PerEmitter.prototypes(td)

    def source_includes(self):
        return ["rtpersrc/asn1PerCppTypes.h"]

    def encode_branch(self, w, td):
        w.line("if (msgBuf.isA(QSRTMessageBufferIF::PEREncode)) {")
        w.line("   stat = asn1PE_%s(msgBuf.getCtxtPtr(), &msgData);" % td.cname)
        w.line("   static_cast<ASN1PEREncodeBuffer&>(msgBuf).byteAlign();")
        w.line("   return stat;")
        w.line("}")

    def decode_branch(self, w, td):
        w.line("if (msgBuf.isA(QSRTMessageBufferIF::PERDecode)) {")
        w.line("   stat = asn1PD_%s(msgBuf.getCtxtPtr(), &msgData);" % td.cname)
        w.line("   static_cast<ASN1PERDecodeBuffer&>(msgBuf).byteAlign();")
        w.line("   return stat;")
        w.line("}")


RUNTIME_HEADER = "rtpersrc/asn1PerGen.h"


def emit_functions(mi, we, wd):
    """Writes the PER encoders into `we` and the decoders into `wd`."""
    pe = PerEmitter(mi)
    for td in mi.typedefs:
        if td.alias is None and td.body.kind == "SEQUENCE":
            pe.group_functions(we, wd, td)
        pe.encoder(we, td)
        pe.decoder(wd, td)
