"""Emits the value layer: value structures, initialisation, release, allocation, enumeration
tables and the control classes of the messages (`<Module>.h` and `<Module>.cpp`)."""

from .ctypes import ctype, int_ctype, is_struct, needs_free, present_bit, scalar_ctype, STRUCT_KINDS
from .lexer import Asn1Error
from .model import c_ident
from .writer import CodeWriter, guard_name, banner


# ---- dependencies ------------------------------------------------------------------------------

def type_deps(td):
    """(full, forward): TypeDefs whose complete definition `td`'s structure needs, and struct
    TypeDefs it only points to."""
    full, fwd = [], []
    b = td.body
    if td.alias is not None:
        full.append(td.alias)
        return full, fwd
    if b.kind == "SEQUENCE":
        for c in b.components:
            t = c.type
            if b.regional and t.kind == "OPEN":
                for _, ot, _ in t.objects:
                    if ot.typedef is not None:
                        (fwd if is_struct(ot.typedef) else full).append(ot.typedef)
            elif t.typedef is not None:
                full.append(t.typedef)
    elif b.kind == "CHOICE":
        for c in b.alternatives:
            if c.type.typedef is not None:
                (fwd if is_struct(c.type.typedef) else full).append(c.type.typedef)
    return full, fwd


def all_refs(td):
    """Every TypeDef that the functions of `td` call into."""
    out = []
    b = td.body
    if td.alias is not None:
        out.append(td.alias)
    for c in list(getattr(b, "components", [])) + list(getattr(b, "alternatives", [])):
        if c.type.typedef is not None:
            out.append(c.type.typedef)
        if c.type.kind == "OPEN" and c.type.typedef is None:
            out.extend(ot.typedef for _, ot, _ in c.type.objects if ot.typedef is not None)
    if b.kind == "SEQUENCE_OF" and b.element.typedef is not None:
        out.append(b.element.typedef)
    return out


def codec_file_head(w, mi, suffix, runtime_headers):
    """Start of a codec source file `<Module><suffix>.cpp`: the headers of every module its
    types refer to (regional extensions included), the runtime support of every encoding and
    the error macro."""
    banner(w, mi)
    w.line('#include "%s.h"' % mi.name)
    refs = {d.module for td in mi.typedefs for d in all_refs(td)}
    for td in mi.typedefs:
        b = td.body
        if b.kind == "SEQUENCE" and b.regional:
            refs.update(ot.typedef.module for _, ot, _ in b.components[1].type.objects)
    for dm in sorted(refs - {mi}, key=lambda m: m.name):
        w.line('#include "%s.h"' % dm.name)
    for h in runtime_headers:
        w.line('#include "%s"' % h)
    w.line("#include <new>")
    w.line("#include <string.h>")
    w.blank()
    w.line('static const char* const THIS_FILE = "../src/etsi/%s%s.cpp";' % (mi.name, suffix))
    w.line("#define LOG_RTERR(ctxt, stat) rtxErrSetData(ctxt, stat, THIS_FILE, __LINE__)")
    w.blank()


def order_types(mi):
    """The module's TypeDefs ordered so that every structure follows what it contains."""
    done, busy, out = set(), set(), []

    def visit(td):
        if td in done:
            return
        if td in busy:
            raise Asn1Error("types of %s contain each other by value (%s)" % (mi.name, td.asn1_name))
        busy.add(td)
        for d in type_deps(td)[0]:
            if d.module is mi:
                visit(d)
        busy.discard(td)
        done.add(td)
        out.append(td)

    for td in mi.typedefs:
        visit(td)
    return out


def module_header_deps(mi):
    full, fwd = set(), set()
    for td in mi.typedefs:
        f, w = type_deps(td)
        full.update(d.module for d in f if d.module is not mi)
        fwd.update(d for d in w)
    return full, fwd


# ---- naming ------------------------------------------------------------------------------------

def tname(td):
    return "ASN1T_" + td.cname


def const_name(td, item):
    return "ASN1V_%s_%s" % (td.cname, item.replace("-", "_"))


def choice_const(td, alt):
    return "T_%s_%s" % (td.cname, alt.replace("-", "_"))


# ---- structures --------------------------------------------------------------------------------

def emit_struct_sequence(w, td, base=None):
    b = td.body
    opt = [c for c in b.components if c.has_present_bit]
    head = "struct %s%s {" % (tname(td), " : public " + base if base else "")
    w.line(head)
    w.indent()
    if opt:
        w.line("struct {")
        w.indent()
        for c in opt:
            w.line("unsigned %s : 1;" % present_bit(c))
        w.dedent()
        w.line("} m{};")
    for c in b.components:
        if b.regional and c.type.kind == "OPEN":
            emit_open_selector(w, td, c)
        elif c.type.kind == "NULL" and c.type.typedef is None:
            w.line("/* %s: NULL, carries no data */" % c.name)
        else:
            w.line("%s %s{};" % (ctype(c.type), c.cname))
    if b.extensible:
        w.line("ASN1TSeqExt extElem1{};     /* extension additions not known to this version */")
    if base:
        w.line("%s() {}" % tname(td))
        w.line("~%s();" % tname(td))
    w.dedent()
    w.line("};")


def emit_open_selector(w, td, comp):
    """The value of a regional extension: selector t (0 = raw, n = n-th object of the set)."""
    ot = comp.type
    w.line("struct {")
    w.indent()
    w.line("QSUINT16 t;   /* 0: unknown region, raw content in extElem1; %s */"
           % ", ".join("%d: %s" % (i + 1, name) for i, (_, _, name) in enumerate(ot.objects)) or "none bound")
    w.line("union {")
    w.indent()
    for _, t, name in ot.objects:
        w.line("%s* %s;" % (ctype(t), c_ident(name)))
    w.line("ASN1TOpenType* extElem1;")
    w.dedent()
    w.line("} u;")
    w.dedent()
    w.line("} %s{};" % comp.cname)


def emit_struct_choice(w, td):
    b = td.body
    w.line("struct %s {" % tname(td))
    w.indent()
    w.line("QSUINT32 t{};  /* 1-based alternative number, 0 = no value */")
    w.line("union {")
    w.indent()
    members = 0
    for i, c in enumerate(b.alternatives):
        if c.type.kind == "NULL" and c.type.typedef is None:
            w.line("/* t = %d: %s (NULL) */" % (i + 1, c.name))
            continue
        w.line("%s* %s;  /* t = %d */" % (ctype(c.type), c.cname, i + 1))
        members += 1
    if b.extensible:
        w.line("ASN1TOpenType* extElem1;  /* t > %d: unknown alternative */" % len(b.alternatives))
    elif not members:
        w.line("void* none_;")
    w.dedent()
    w.line("} u{};")
    w.dedent()
    w.line("};")


def scalar_typedef(td):
    """C type that a non-structured TypeDef is defined as (an alias keeps its name when equal)."""
    own = scalar_ctype(td.body)
    if td.alias is not None and td.alias.body.kind not in STRUCT_KINDS:
        if scalar_typedef(td.alias) == own:
            return tname(td.alias)
    return own


def emit_typedef(w, td):
    b = td.body
    w.line("/* %s: %s */" % (td.asn1_name, td.construct()))
    if td.alias is not None and b.kind in STRUCT_KINDS:
        w.line("typedef %s %s;" % (tname(td.alias), tname(td)))
    elif b.kind == "SEQUENCE":
        emit_struct_sequence(w, td, "ASN1TPDU" if td.is_message else None)
    elif b.kind == "CHOICE":
        emit_struct_choice(w, td)
    else:
        w.line("typedef %s %s;" % (scalar_typedef(td), tname(td)))
    emit_constants(w, td)
    w.blank()


def emit_constants(w, td):
    b = td.body
    if b.kind == "ENUMERATED":
        for name, v in b.root + (b.ext_items or []):
            w.line("constexpr QSUINT32 %s = %d;" % (const_name(td, name), v))
    elif b.kind == "INTEGER" and b.named:
        ct = int_ctype(b.cons)
        for name, v in b.named:
            w.line("constexpr %s %s = %d%s;" % (ct, const_name(td, name), v,
                                                  "LL" if "64" in ct else ""))
    elif b.kind == "BIT_STRING" and b.named:
        for name, v in b.named:
            w.line("constexpr QSUINT32 %s = %d;  /* bit number */" % (const_name(td, name), v))
    elif b.kind == "CHOICE" and td.alias is None:
        for i, c in enumerate(b.alternatives):
            w.line("constexpr QSUINT32 %s = %d;" % (choice_const(td, c.name), i + 1))


def emit_prototypes(w, td):
    t = tname(td)
    pt = "ASN1TSeqOfList" if td.body.kind == "SEQUENCE_OF" else t
    w.line("int asn1Init_%s(%s* pvalue, unsigned char freeFirst = 0, QSCTXT* ctxt = 0);" % (td.cname, pt))
    w.line("void asn1Free_%s(QSCTXT* ctxt, %s* pvalue);" % (td.cname, pt))
    w.line("%s* new_%s(ASN1XType& control);" % (t, t))
    if td.body.kind == "ENUMERATED":
        n = len(td.body.root) + len(td.body.ext_items or [])
        w.line("extern const QSRTEnumTableEntry %s_ENUMTAB[%d];" % (t, n))
        w.line("const char* %s_ToString(QSINT32 value);" % t)
        w.line("int %s_ToEnum(QSCTXT* ctxt, const QSUTF8CHAR* value, QSUINT32* pvalue);" % t)
        w.line("int %s_ToEnum2(QSCTXT* ctxt, const QSUTF8CHAR* value, size_t valueLen, QSUINT32* pvalue);" % t)


def emit_control_class(w, td):
    t = tname(td)
    x = "ASN1X_" + td.cname
    w.line("/* Control class of the %s message: binds a value to a message buffer. */" % td.asn1_name)
    w.line("class %s : public ASN1XType {" % x)
    w.line(" protected:")
    w.line("   %s& msgData;" % t)
    w.line(" public:")
    w.line("   explicit %s(%s& data);" % (x, t))
    w.line("   %s(QSRTMessageBufferIF& msgBuf, %s& data);" % (x, t))
    w.line("   %s& getData() { return msgData; }" % t)
    w.line("   int EncodeTo(QSRTMessageBufferIF& msgBuf) override;")
    w.line("   int DecodeFrom(QSRTMessageBufferIF& msgBuf, unsigned char flag = 0) override;")
    w.line("   void MemFree() override;")
    w.line("};")
    w.blank()


class Family:
    """What an encoding family adds to the value layer: prototypes of its coders in the module
    header, includes of the .cpp, and the branches of the control classes' EncodeTo / DecodeFrom."""

    def prototypes(self, td):
        return []

    def source_includes(self):
        return []

    def encode_branch(self, w, td):
        pass

    def decode_branch(self, w, td):
        pass

    def message_functions(self, w, td):
        """Functions of a message type that its control class calls, written before the class."""
        pass

    @staticmethod
    def call_branch(w, td, buffer_kind, prefix):
        """A branch that hands a buffer of the kind to the function prefix_<T> of the value."""
        w.line("if (msgBuf.isA(QSRTMessageBufferIF::%s)) {" % buffer_kind)
        w.line("   return %s_%s(msgBuf.getCtxtPtr(), &msgData);" % (prefix, td.cname))
        w.line("}")


def emit_header(model, mi, families=()):
    w = CodeWriter()
    banner(w, mi)
    g = guard_name(mi.name)
    w.line("#ifndef %s" % g)
    w.line("#define %s" % g)
    w.blank()
    w.line('#include "rtsrc/asn1CppTypes.h"')
    full, fwd = module_header_deps(mi)
    for dm in sorted(full, key=lambda m: m.name):
        w.line('#include "%s.h"' % dm.name)
    w.blank()
    fwd_structs = sorted({tname(td) for td in fwd} | {tname(td) for td in mi.typedefs if is_struct(td)})
    if fwd_structs:
        for s in fwd_structs:
            w.line("struct %s;" % s)
        w.blank()
    for td in order_types(mi):
        emit_typedef(w, td)
    w.line("/* Initialisation, release and allocation of the value structures. */")
    for td in mi.typedefs:
        emit_prototypes(w, td)
    w.blank()
    for fam in families:
        for td in mi.typedefs:
            for line in fam.prototypes(td):
                w.line(line)
        w.blank()
    for td in mi.typedefs:
        if td.is_message:
            emit_control_class(w, td)
    w.line("#endif")
    return w.text()


# ---- functions ---------------------------------------------------------------------------------

def free_stmts(w, rt, expr):
    """Statements that release what the value `expr` of type `rt` owns."""
    if not needs_free(rt):
        return
    if rt.typedef is not None:
        w.line("asn1Free_%s(ctxt, &%s);" % (rt.typedef.cname, expr))
        return
    k = rt.kind
    if k == "STRING":
        w.line("rtxMemHeapFreePtr(ctxt, (void*)%s);" % expr)
        w.line("%s = 0;" % expr)
    elif k in ("OCTET_STRING", "OPEN"):
        w.line("rtxMemHeapFreePtr(ctxt, (void*)%s.data);" % expr)
        w.line("%s.numocts = 0; %s.data = 0;" % (expr, expr))
    elif k == "BIT_STRING":
        w.line("rtxMemHeapFreePtr(ctxt, (void*)%s.data);" % expr)
        w.line("%s.numbits = 0; %s.data = 0;" % (expr, expr))
    else:
        raise Asn1Error("no release for inline %s" % k)


def free_open_list(w, expr):
    w.line("if (!rtxMemHeapIsEmpty(ctxt)) {")
    w.indent()
    w.line("for (QSRTDListNode* node = %s.head; node != 0; node = node->next) {" % expr)
    w.line("   ASN1TOpenType* ot = (ASN1TOpenType*)node->data;")
    w.line("   if (ot != 0) rtxMemHeapFreePtr(ctxt, (void*)ot->data);")
    w.line("}")
    w.line("rtxDListFreeAll(ctxt, &%s);" % expr)
    w.dedent()
    w.line("}")
    w.line("rtxDListInit(&%s);" % expr)


def free_pointer(w, rt, ptr):
    """Releases a heap-held value `*ptr` of type `rt` and the holder itself."""
    if needs_free(rt):
        w.line("if (%s != 0) {" % ptr)
        w.indent()
        free_stmts(w, rt, "(*%s)" % ptr)
        w.dedent()
        w.line("}")
    w.line("rtxMemHeapFreePtr(ctxt, (void*)%s);" % ptr)
    w.line("%s = 0;" % ptr)


def emit_free(w, td):
    b = td.body
    t = tname(td)
    pt = "ASN1TSeqOfList" if b.kind == "SEQUENCE_OF" else t
    w.line("void asn1Free_%s(QSCTXT* ctxt, %s* pvalue)" % (td.cname, pt))
    w.line("{")
    w.indent()
    delegate = td.alias is not None and (b.kind in ("SEQUENCE", "CHOICE", "SEQUENCE_OF")
                                         or scalar_typedef(td) == tname(td.alias))
    if delegate and needs_free(b):
        w.line("asn1Free_%s(ctxt, pvalue);" % td.alias.cname)
    elif not needs_free(b):
        w.line("(void)ctxt; (void)pvalue;")
    else:
        w.line("if (pvalue == 0) return;")
        if b.kind == "SEQUENCE":
            for c in b.components:
                if b.regional and c.type.kind == "OPEN":
                    free_selector(w, c)
                    continue
                if not needs_free(c.type):
                    continue
                if c.has_present_bit:
                    w.line("if (pvalue->m.%s) {" % present_bit(c))
                    w.indent()
                    free_stmts(w, c.type, "pvalue->" + c.cname)
                    w.dedent()
                    w.line("}")
                else:
                    free_stmts(w, c.type, "pvalue->" + c.cname)
            if b.extensible:
                free_open_list(w, "pvalue->extElem1")
        elif b.kind == "CHOICE":
            w.line("switch (pvalue->t) {")
            for i, c in enumerate(b.alternatives):
                if c.type.kind == "NULL" and c.type.typedef is None:
                    continue
                w.line("case %d:" % (i + 1))
                w.indent()
                free_pointer(w, c.type, "pvalue->u." + c.cname)
                w.line("break;")
                w.dedent()
            w.line("default:")
            w.indent()
            if b.extensible:
                w.line("if (pvalue->t > %d && pvalue->u.extElem1 != 0) {" % len(b.alternatives))
                w.line("   if (!(ctxt->flags & 0x800)) rtxMemHeapFreePtr(ctxt, (void*)pvalue->u.extElem1->data);")
                w.line("   rtxMemHeapFreePtr(ctxt, pvalue->u.extElem1);")
                w.line("   pvalue->u.extElem1 = 0;")
                w.line("}")
            w.line("break;")
            w.dedent()
            w.line("}")
        elif b.kind == "SEQUENCE_OF":
            el = b.element
            if needs_free(el):
                w.line("for (QSRTDListNode* node = pvalue->head; node != 0; node = node->next) {")
                w.indent()
                w.line("%s* elem = (%s*)node->data;" % (ctype(el), ctype(el)))
                w.line("if (elem == 0) continue;")
                free_stmts(w, el, "(*elem)")
                w.dedent()
                w.line("}")
            w.line("rtxDListFreeAll(ctxt, pvalue);")
        else:
            free_stmts(w, b, "(*pvalue)")
    w.dedent()
    w.line("}")
    w.blank()


def free_selector(w, comp):
    sel = "pvalue->%s" % comp.cname
    w.line("switch (%s.t) {" % sel)
    w.line("case 0:")
    w.line("   if (%s.u.extElem1 != 0) {" % sel)
    w.line("      rtxMemHeapFreePtr(ctxt, (void*)%s.u.extElem1->data);" % sel)
    w.line("      rtxMemHeapFreePtr(ctxt, %s.u.extElem1);" % sel)
    w.line("      %s.u.extElem1 = 0;" % sel)
    w.line("   }")
    w.line("   break;")
    for i, (_, ot, name) in enumerate(comp.type.objects):
        w.line("case %d:" % (i + 1))
        w.indent()
        free_pointer(w, ot, "%s.u.%s" % (sel, c_ident(name)))
        w.line("break;")
        w.dedent()
    w.line("default:")
    w.line("   break;")
    w.line("}")


def init_component(w, comp, expr):
    """Initialisation of one SEQUENCE component: nested structures are initialised in turn,
    pointers owned by strings are cleared, other scalars are left as they are."""
    rt = comp.type
    base = rt.typedef.body if rt.typedef is not None else rt
    while base.typedef is not None:
        base = base.typedef.body
    if rt.typedef is not None and base.kind in ("SEQUENCE", "CHOICE", "SEQUENCE_OF"):
        w.line("asn1Init_%s(&%s, freeFirst, ctxt);" % (rt.typedef.cname, expr))
    elif needs_free(rt):
        w.line("if (freeFirst) {")
        w.indent()
        free_stmts(w, rt, expr)
        w.dedent()
        w.line("}")
        w.line("%s = {};" % expr)


def emit_init(w, td):
    b = td.body
    t = tname(td)
    pt = "ASN1TSeqOfList" if b.kind == "SEQUENCE_OF" else t
    w.line("int asn1Init_%s(%s* pvalue, unsigned char freeFirst, QSCTXT* ctxt)" % (td.cname, pt))
    w.line("{")
    w.indent()
    if td.alias is not None and b.kind in ("SEQUENCE", "CHOICE", "SEQUENCE_OF"):
        w.line("return asn1Init_%s(pvalue, freeFirst, ctxt);" % td.alias.cname)
    elif b.kind == "SEQUENCE":
        w.line("(void)freeFirst; (void)ctxt;")
        w.line("if (pvalue == 0) return 0;")
        if any(c.has_present_bit for c in b.components):
            w.line("memset(&pvalue->m, 0, sizeof(pvalue->m));")
        for c in b.components:
            if b.regional and c.type.kind == "OPEN":
                w.line("if (freeFirst) {")
                w.indent()
                free_selector(w, c)
                w.dedent()
                w.line("}")
                w.line("pvalue->%s.t = 0;" % c.cname)
                w.line("pvalue->%s.u.extElem1 = 0;" % c.cname)
            else:
                init_component(w, c, "pvalue->" + c.cname)
        if b.extensible:
            w.line("if (freeFirst) {")
            w.indent()
            free_open_list(w, "pvalue->extElem1")
            w.dedent()
            w.line("}")
            w.line("rtxDListInit(&pvalue->extElem1);")
        w.line("return 0;")
    elif b.kind == "CHOICE":
        # Re-initialising in place keeps the selector; the pointer is cleared in any case,
        # also when the release found nothing to free (t = 0, unknown alternative without data).
        w.line("if (pvalue == 0) return 0;")
        w.line("if (freeFirst == 0) pvalue->t = 0;")
        w.line("else asn1Free_%s(ctxt, pvalue);" % td.cname)
        w.line("memset(&pvalue->u, 0, sizeof(pvalue->u));")
        w.line("return 0;")
    elif b.kind == "SEQUENCE_OF":
        w.line("if (pvalue == 0) return 0;")
        w.line("if (freeFirst) asn1Free_%s(ctxt, pvalue);" % td.cname)
        w.line("rtxDListInit(pvalue);")
        w.line("return 0;")
    else:
        w.line("(void)pvalue; (void)freeFirst; (void)ctxt;")
        w.line("return 0;")
    w.dedent()
    w.line("}")
    w.blank()


def emit_new(w, td):
    t = tname(td)
    w.line("%s* new_%s(ASN1XType& control)" % (t, t))
    w.line("{")
    w.line("   void* mem = control.memAlloc(sizeof(%s));" % t)
    w.line("   return mem != 0 ? new (mem) %s() : 0;" % t)
    w.line("}")
    w.blank()


def emit_enum_functions(w, td):
    b = td.body
    t = tname(td)
    items = b.root + (b.ext_items or [])
    by_name = sorted(items, key=lambda it: it[0].encode("utf-8"))
    pos_of_value = {v: i for i, (_, v) in enumerate(by_name)}
    values_sorted = sorted(v for _, v in items)
    w.line("const QSRTEnumTableEntry %s_ENUMTAB[%d] = {" % (t, len(items)))
    for i, (name, v) in enumerate(by_name):
        trans = pos_of_value[values_sorted[i]]
        w.line('   { (const QSUTF8CHAR*)"%s", %d, %d, %d },' % (name, v, len(name.encode("utf-8")), trans))
    w.line("};")
    w.blank()
    # Names are given for values 0 to n-1 only, even where an identifier carries a value beyond.
    w.line("const char* %s_ToString(QSINT32 value)" % t)
    w.line("{")
    w.line("   if (value < 0 || value >= %d) return \"_UNKNOWN_\";" % len(items))
    w.line("   return rtxEnumValueToString(%s_ENUMTAB, %d, value);" % (t, len(items)))
    w.line("}")
    w.blank()
    w.line("int %s_ToEnum(QSCTXT* ctxt, const QSUTF8CHAR* value, QSUINT32* pvalue)" % t)
    w.line("{")
    w.line("   return %s_ToEnum2(ctxt, value, rtxUTF8LenBytes(value), pvalue);" % t)
    w.line("}")
    w.blank()
    w.line("int %s_ToEnum2(QSCTXT* ctxt, const QSUTF8CHAR* value, size_t valueLen, QSUINT32* pvalue)" % t)
    w.line("{")
    w.line("   int idx = rtxLookupEnum(ctxt, value, valueLen, %s_ENUMTAB, %d);" % (t, len(items)))
    w.line("   if (idx < 0) return idx;")
    w.line("   *pvalue = (QSUINT32)%s_ENUMTAB[idx].value;" % t)
    w.line("   return 0;")
    w.line("}")
    w.blank()


def emit_control_functions(w, td, families):
    t = tname(td)
    x = "ASN1X_" + td.cname
    w.line("%s::%s(%s& data) : ASN1XType(), msgData(data) {}" % (x, x, t))
    w.blank()
    w.line("%s::%s(QSRTMessageBufferIF& msgBuf, %s& data) : ASN1XType(msgBuf), msgData(data) {}" % (x, x, t))
    w.blank()
    w.line("%s::~%s()" % (t, t))
    w.line("{")
    w.line("   QSCTXT* ctxt = getCtxtPtr();")
    w.line("   if (ctxt != 0 && !rtxMemHeapIsEmpty(ctxt)) asn1Free_%s(ctxt, this);" % td.cname)
    w.line("}")
    w.blank()
    w.line("int %s::EncodeTo(QSRTMessageBufferIF& msgBuf)" % x)
    w.line("{")
    w.line("   int stat = setMsgBuf(msgBuf, 1);")
    w.line("   if (stat != 0) return stat;")
    w.indent()
    for fam in families:
        fam.encode_branch(w, td)
    w.dedent()
    w.line("   return RTERR_FEATURE_NOT_SUPPORTED;")
    w.line("}")
    w.blank()
    w.line("int %s::DecodeFrom(QSRTMessageBufferIF& msgBuf, unsigned char flag)" % x)
    w.line("{")
    w.line("   int stat = setMsgBuf(msgBuf, 1);")
    w.line("   if (stat != 0) return stat;")
    w.line("   asn1Init_%s(&msgData, flag, getCtxtPtr());" % td.cname)
    w.line("   /* The decoded contents live in the buffer's heap: keep its context alive. */")
    w.line("   msgData.setContext(msgBuf.getContext().get());")
    w.indent()
    for fam in families:
        fam.decode_branch(w, td)
    w.dedent()
    w.line("   return RTERR_FEATURE_NOT_SUPPORTED;")
    w.line("}")
    w.blank()
    w.line("void %s::MemFree()" % x)
    w.line("{")
    w.line("   asn1Free_%s(getCtxtPtr(), &msgData);" % td.cname)
    w.line("}")
    w.blank()


def emit_source(model, mi, families=()):
    w = CodeWriter()
    banner(w, mi)
    w.line('#include "%s.h"' % mi.name)
    for fam in families:
        for inc in fam.source_includes():
            w.line('#include "%s"' % inc)
    refs = {d.module for td in mi.typedefs for d in all_refs(td)} - {mi}
    for dm in sorted(refs, key=lambda m: m.name):
        w.line('#include "%s.h"' % dm.name)
    w.line("#include <new>")
    w.line("#include <string.h>")
    w.blank()
    for td in mi.typedefs:
        emit_init(w, td)
        emit_free(w, td)
        emit_new(w, td)
        if td.body.kind == "ENUMERATED":
            emit_enum_functions(w, td)
        if td.is_message:
            for fam in families:
                fam.message_functions(w, td)
            emit_control_functions(w, td, families)
    return w.text()


def emit(model, families=()):
    """Returns {file name: text} of the value layer of every module."""
    out = {}
    for mi in model.modules:
        out[mi.name + ".h"] = emit_header(model, mi, families)
        out[mi.name + ".cpp"] = emit_source(model, mi, families)
    return out
