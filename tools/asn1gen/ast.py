"""Syntax tree of parsed ASN.1 modules (before any reference is resolved)."""


class Node:
    def __repr__(self):
        fields = ", ".join("%s=%r" % kv for kv in sorted(vars(self).items()) if kv[0] != "line")
        return "%s(%s)" % (type(self).__name__, fields)


class Module(Node):
    def __init__(self, name, oid, filename):
        self.name = name
        self.oid = oid              # tuple of arc numbers, or None
        self.filename = filename
        self.tag_default = "EXPLICIT"
        self.extensibility_implied = False
        self.imports = []           # list of Import
        self.assignments = []       # list of assignments in text order


class Import(Node):
    def __init__(self, symbols, module, oid):
        self.symbols = symbols      # names (a trailing '{}' of parameterized names is dropped)
        self.module = module
        self.oid = oid


class TypeAssignment(Node):
    def __init__(self, name, params, type_, line):
        self.name = name
        self.params = params        # list of Param, empty for ordinary types
        self.type = type_
        self.line = line


class Param(Node):
    def __init__(self, governor, name):
        self.governor = governor    # e.g. 'REG-EXT-ID-AND-TYPE', or None for a type parameter
        self.name = name


class ValueAssignment(Node):
    def __init__(self, name, type_, value, line):
        self.name = name
        self.type = type_
        self.value = value
        self.line = line


class ClassAssignment(Node):
    def __init__(self, name, fields, syntax, line):
        self.name = name
        self.fields = fields        # list of ClassField
        self.syntax = syntax        # list of tokens text of WITH SYNTAX, or None
        self.line = line


class ClassField(Node):
    def __init__(self, name, type_, unique, optional):
        self.name = name            # '&id', '&Type'
        self.type = type_           # Type for fixed-type value fields, None for type fields
        self.unique = unique
        self.optional = optional


class ObjectSetAssignment(Node):
    def __init__(self, name, class_name, objects, extensible, line):
        self.name = name
        self.class_name = class_name
        self.objects = objects      # list of dict field -> Type or value (by WITH SYNTAX)
        self.extensible = extensible
        self.line = line


# ---- types -------------------------------------------------------------------------------------

class Type(Node):
    """A type expression. `kind` selects which attributes are meaningful."""

    def __init__(self, kind, line=None, **attrs):
        self.kind = kind
        self.line = line
        self.constraints = []       # list of Constraint applied in order
        for k, v in attrs.items():
            setattr(self, k, v)


# kinds: BOOLEAN NULL INTEGER ENUMERATED BIT_STRING OCTET_STRING STRING REAL OID
#        SEQUENCE SET CHOICE SEQUENCE_OF SET_OF REF PARAMREF CLASSFIELD
# INTEGER: named (list of (name, value))
# ENUMERATED: root (list of (name, value or None)), ext (list or None when not extensible)
# BIT_STRING: named (list of (name, bit))
# STRING: string_type ('IA5String', ...)
# SEQUENCE/SET: components (list of Component), extensible, additions (list of Component or
#               ExtGroup), tail (root components after the second extension marker)
# CHOICE: alternatives (list of Component), extensible, additions (list of Component)
# SEQUENCE_OF/SET_OF: element (Type), element_name (str or None), size (Constraint or None)
# REF: module (str or None), name
# PARAMREF: name, module, args (list of Actual)
# CLASSFIELD: class_name, field, table (TableConstraint or None)


class Component(Node):
    def __init__(self, name, type_, optional=False, default=None, line=None):
        self.name = name
        self.type = type_
        self.optional = optional
        self.default = default      # Value or None
        self.line = line


class ExtGroup(Node):
    """An extension addition group `[[ ... ]]`."""

    def __init__(self, components, version=None):
        self.components = components
        self.version = version


class Actual(Node):
    """An actual parameter: a type, a value, or an object set written `{Name}`."""

    def __init__(self, kind, value):
        self.kind = kind            # 'type', 'value', 'objectset'
        self.value = value


# ---- values and constraints --------------------------------------------------------------------

class Value(Node):
    def __init__(self, kind, v, line=None):
        self.kind = kind            # 'int', 'ref', 'bool', 'null', 'str', 'bstr', 'hstr', 'oid', 'bits', 'min', 'max', 'seq'
        self.v = v
        self.line = line


class Constraint(Node):
    """One parenthesised constraint: root element set, extension marker and additions."""

    def __init__(self, root, extensible=False, additions=None, exception=None):
        self.root = root            # ElementSet
        self.extensible = extensible
        self.additions = additions  # ElementSet or None
        self.exception = exception


class ElementSet(Node):
    """Union of intersections of elements."""

    def __init__(self, unions):
        self.unions = unions        # list of list of Element (outer = union, inner = intersection)


class Element(Node):
    def __init__(self, kind, **attrs):
        self.kind = kind
        # kinds: 'value' (value), 'range' (lo, hi, lo_excl, hi_excl), 'size' (constraint),
        #        'from' (constraint), 'type' (type: contained subtype), 'inner' (components, partial),
        #        'inner1' (constraint: WITH COMPONENT), 'nested' (constraint), 'table' (set, refs),
        #        'all_except' (elements), 'pattern' (value), 'containing' (type)
        for k, v in attrs.items():
            setattr(self, k, v)


class InnerComponent(Node):
    def __init__(self, name, constraint, presence):
        self.name = name
        self.constraint = constraint    # Constraint or None
        self.presence = presence        # 'PRESENT', 'ABSENT', 'OPTIONAL' or None
