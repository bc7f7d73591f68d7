"""C++ representation of resolved types: value-structure types and dependencies."""

from .lexer import Asn1Error

STRUCT_KINDS = ("SEQUENCE", "CHOICE")


def constraint_key(cons):
    """The constraints that shape an encoding: two expressions with equal keys code alike."""
    return (cons.lo, cons.hi, cons.ext, cons.size_lo, cons.size_hi, cons.size_ext, cons.alphabet)


def int_ctype(cons):
    """Narrowest integer type holding the values a constrained INTEGER can carry.

    An extensible or open range can carry values beyond its root, so it gets at least 32 bits.
    """
    lo, hi = cons.lo, cons.hi
    if lo is None:
        return "QSINT64"
    if hi is None or cons.ext:
        top = hi if hi is not None else 1 << 64
        if lo >= 0:
            return "QSUINT32" if top <= 0xFFFFFFFF else "QSUINT64"
        return "QSINT32" if lo >= -(1 << 31) and top < (1 << 31) else "QSINT64"
    if lo >= 0:
        for bits, name in ((8, "QSUINT8"), (16, "QSUINT16"), (32, "QSUINT32"), (64, "QSUINT64")):
            if hi < (1 << bits):
                return name
    else:
        for bits, name in ((8, "QSINT8"), (16, "QSINT16"), (32, "QSINT32"), (64, "QSINT64")):
            if lo >= -(1 << (bits - 1)) and hi < (1 << (bits - 1)):
                return name
    raise Asn1Error("integer range %s..%s does not fit 64 bits" % (lo, hi))


def is_small_bitstring(rt):
    c = rt.cons
    return c.size_hi is not None and c.size_hi <= 32


def scalar_ctype(rt):
    """C type of a non-structured type expression, ignoring any name it has."""
    k = rt.kind
    if k == "BOOLEAN":
        return "QSBOOL"
    if k == "NULL":
        return "QSOCTET"
    if k == "INTEGER":
        return int_ctype(rt.cons)
    if k == "ENUMERATED":
        return "QSUINT32"
    if k == "BIT_STRING":
        return "ASN1TBitStr32" if is_small_bitstring(rt) else "ASN1TDynBitStr"
    if k == "OCTET_STRING":
        return "ASN1TDynOctStr"
    if k == "STRING":
        return "const char*"
    if k == "OPEN":
        return "ASN1TOpenType"
    if k == "REAL":
        return "double"
    if k == "SEQUENCE_OF":
        return "ASN1TSeqOfList"
    raise Asn1Error("type of kind %s has no scalar representation" % k)


def ctype(rt):
    """C type of a type expression: its generated name when it has one."""
    if rt.typedef is not None:
        return "ASN1T_" + rt.typedef.cname
    return scalar_ctype(rt)


def is_struct(td):
    """True when the value structure of `td` is a struct of its own (it can be forward-declared)."""
    return td.alias is None and td.body.kind in STRUCT_KINDS


def needs_free(rt, _memo={}):
    """True when values of the type can own heap memory that the release functions give back."""
    td = rt.typedef
    if td is not None:
        if td in _memo:
            return _memo[td]
        _memo[td] = True            # a recursive type owns memory through its recursion
        res = needs_free_body(td.body)
        _memo[td] = res
        return res
    return needs_free_body(rt)


def needs_free_body(rt):
    if rt.typedef is not None:
        return needs_free(rt)
    k = rt.kind
    if k in ("STRING", "OCTET_STRING", "OPEN", "SEQUENCE_OF", "CHOICE"):
        return True
    if k == "BIT_STRING":
        return not is_small_bitstring(rt)
    if k == "SEQUENCE":
        return rt.extensible or rt.regional or any(needs_free(c.type) for c in rt.components)
    return False


def present_bit(comp):
    return comp.cname + "Present"
