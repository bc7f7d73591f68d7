"""What the emitters of the two text codecs (JSON, XML) share: which member values are coded by
their named type's functions, and the constraint checks compiled into the coders (the value
range of an INTEGER and the size of a string or list, for roots that are not extensible)."""

from .ctypes import constraint_key, int_ctype
from .emit_per import lit


def ctype_limits(ct):
    bits = int("".join(ch for ch in ct if ch.isdigit()))
    if ct.startswith("QSU"):
        return 0, (1 << bits) - 1
    return -(1 << (bits - 1)), (1 << (bits - 1)) - 1


def range_conds(ct, lo, hi, expr):
    """Comparisons that find `expr` (of C type ct) outside lo..hi, leaving out those that the
    type itself already rules out."""
    tlo, thi = ctype_limits(ct)
    conds = []
    if lo > tlo:
        conds.append("%s < %s" % (expr, lit(lo)))
    if hi < thi:
        conds.append("%s > %s" % (expr, lit(hi)))
    return conds


class TextEmitter:
    """Encoders refuse a value outside its root without recording it (the caller records where
    it passes the failure up); decoders record it with the element's name and the value."""

    @staticmethod
    def check(w, call):
        w.line("if ((stat = %s) != 0) return LOG_RTERR(ctxt, stat);" % call)

    def uses_typedef_codec(self, rt):
        td = rt.typedef
        if td is None:
            return False
        return constraint_key(rt.cons) == constraint_key(td.body.cons) \
            or rt.kind in ("SEQUENCE", "CHOICE", "SEQUENCE_OF")

    @staticmethod
    def new_value(w, t, var, cleanup=""):
        """`var`, a new value-initialised `t` on the context heap; `cleanup` runs before the
        out-of-memory return."""
        w.line("%s* %s = (%s*)rtxMemHeapAlloc(ctxt, sizeof(%s));" % (t, var, t, t))
        fail = "return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);"
        w.line("if (%s == 0) %s" % (var, ("{ %s %s }" % (cleanup, fail)) if cleanup else fail))
        w.line("new (%s) %s();" % (var, t))

    @staticmethod
    def new_item(w, t, lst):
        """`elem`, a new value-initialised `t` on the context heap appended to the list `lst`."""
        w.line("%s* elem = (%s*)rtxDListAppendNew(ctxt, &%s, sizeof(%s));" % (t, t, lst, t))
        w.line("if (elem == 0) return LOG_RTERR(ctxt, RTERR_NO_DYNAMIC_MEMORY);")
        w.line("new (elem) %s();" % t)

    def range_check(self, w, rt, expr):
        c = rt.cons
        if not c.has_range() or c.ext:
            return
        conds = range_conds(int_ctype(c), c.lo, c.hi, expr)
        if conds:
            w.line("if (%s) return RTERR_VALUE_CONSTRAINT_VIOLATION;" % " || ".join(conds))

    def size_check(self, w, c, count):
        if not c.has_size() or c.size_ext:
            return
        conds = range_conds("QSUINT32", c.size_lo, c.size_hi, count)
        if conds:
            w.line("if (%s) return RTERR_VALUE_CONSTRAINT_VIOLATION;" % " || ".join(conds))

    def string_size_check(self, w, c, expr):
        """The byte count of the character string `expr` (null counts as empty) in its root size."""
        if not c.has_size() or c.size_ext:
            return
        w.line("{")
        w.line("   size_t nbytes = %s != 0 ? strlen(%s) : 0;" % (expr, expr))
        w.indent()
        self.size_check(w, c, "nbytes")
        w.dedent()
        w.line("}")

    def dec_range_check(self, w, rt, expr):
        c = rt.cons
        if not c.has_range() or c.ext:
            return
        conds = range_conds(int_ctype(c), c.lo, c.hi, expr)
        if not conds:
            return
        self.violation(w, conds, "rtxErrAddInt64Parm(ctxt, (QSINT64)%s)" % expr)

    def violation(self, w, conds, parm):
        """A constraint check of a decoded value: the element name and one parameter recorded."""
        w.line("if (%s) {" % " || ".join(conds))
        w.line("   rtxErrAddElemNameParm(ctxt);")
        w.line("   %s;" % parm)
        w.line("   return LOG_RTERR(ctxt, RTERR_VALUE_CONSTRAINT_VIOLATION);")
        w.line("}")
