"""Resolution of parsed modules into one type model.

Every generated type is a `TypeDef`: the top-level type assignments (parameterized templates
excluded) and the anonymous types nested in them that get a name of their own (inline SEQUENCE,
SET, CHOICE, ENUMERATED, SEQUENCE OF, INTEGER with named numbers, BIT STRING with named bits,
and every instantiation of a parameterized type). Every type expression resolves to an `RType`
that knows its base construct, the named type it stands for (if any) and its effective,
PER-visible constraints.
"""

import os

from . import ast
from .lexer import Asn1Error
from .parser import parse_file

# Type-name prefixes of the modules whose names would otherwise collide.
MODULE_PREFIXES = {
    "ITS-Container": "ITS_",
    "IVI": "IVI_",
    "DSRC": "ETSI_DSRC_",
    "AddGrpC": "ETSI_GrpC_",
}

CPP_KEYWORDS = {
    "alignas", "alignof", "and", "and_eq", "asm", "auto", "bitand", "bitor", "bool", "break", "case",
    "catch", "char", "char16_t", "char32_t", "class", "compl", "const", "constexpr", "const_cast",
    "continue", "decltype", "default", "delete", "do", "double", "dynamic_cast", "else", "enum",
    "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if", "inline", "int",
    "long", "mutable", "namespace", "new", "noexcept", "not", "not_eq", "nullptr", "operator", "or",
    "or_eq", "private", "protected", "public", "register", "reinterpret_cast", "return", "short",
    "signed", "sizeof", "static", "static_assert", "static_cast", "struct", "switch", "template",
    "this", "thread_local", "throw", "true", "try", "typedef", "typeid", "typename", "union",
    "unsigned", "using", "virtual", "void", "volatile", "wchar_t", "while", "m", "t", "u",
    "extElem1", "NULL", "TRUE", "FALSE", "errno", "stdin", "stdout", "stderr", "unix", "linux",
}

# Character sets of the known-multiplier character string types: (alphabet or None for a
# contiguous code range, lowest code, highest code).
STRING_ALPHABETS = {
    "NumericString": " 0123456789",
    "PrintableString": " '()+,-./0123456789:=?ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz",
    "IA5String": (0, 127),
    "VisibleString": (32, 126),
    "ISO646String": (32, 126),
    "BMPString": (0, 65535),
    "UniversalString": (0, 0xFFFFFFFF),
}


def c_ident(name):
    """C++ identifier for an ASN.1 identifier."""
    s = name.replace("-", "_")
    return s + "_" if s in CPP_KEYWORDS else s


class Constraints:
    """Effective PER-visible constraints of a type expression."""

    def __init__(self):
        self.lo = None          # value range (None = unbounded)
        self.hi = None
        self.ext = False        # value range extensible
        self.size_lo = None
        self.size_hi = None
        self.size_ext = False
        self.alphabet = None    # permitted alphabet as a sorted string, or None
        self.inner = []         # WITH COMPONENTS constraints: list of (partial, {name: presence})

    def copy(self):
        c = Constraints()
        c.__dict__.update(self.__dict__)
        c.inner = list(self.inner)
        return c

    def has_range(self):
        return self.lo is not None and self.hi is not None

    def has_size(self):
        return self.size_lo is not None and self.size_hi is not None


class RComponent:
    def __init__(self, name, rtype, optional=False, default=None, ext_index=None, group=None):
        self.name = name            # ASN.1 identifier
        self.cname = c_ident(name)
        self.type = rtype
        self.optional = optional
        self.default = default      # resolved default value (int, bool, str) or None
        self.ext_index = ext_index  # None for root components; 0-based addition position otherwise
        self.group = group          # group number within the additions when in [[ ]], else None

    @property
    def has_present_bit(self):
        return self.optional or self.default is not None or self.ext_index is not None


class RType:
    """A resolved type expression.

    A reference to a generated type (`typedef` set) shares the construct data of that type's
    definition; it is looked up lazily, so that recursive definitions resolve. Its own extra
    constraints are applied on top of the definition's when first needed.
    """

    def __init__(self, kind=None, td=None):
        self.typedef = td           # TypeDef this expression names, if any
        self.line = None
        self._pending = []          # constraints still to apply: (resolver, module, constraint, env)
        if td is not None:
            self._td = td
            self._cons = None
            return
        self._td = None
        self._cons = Constraints()
        self.kind = kind            # BOOLEAN NULL INTEGER ENUMERATED BIT_STRING OCTET_STRING STRING
                                    # SEQUENCE CHOICE SEQUENCE_OF OPEN REAL OID
        self.named = []             # INTEGER named numbers / BIT STRING named bits: (name, value)
        self.root = []              # ENUMERATED root items: (name, value)
        self.ext_items = None       # ENUMERATED extension items or None when not extensible
        self.string_type = None
        self.components = []        # SEQUENCE: RComponent (root, then additions)
        self.alternatives = []      # CHOICE: RComponent (root, then additions with ext_index)
        self.extensible = False
        self.element = None         # SEQUENCE_OF element RType
        self.objects = []           # OPEN: list of (id value, RType, object name) of the object set
        self.objset = None          # OPEN: object-set name
        self.objset_ext = True
        self.id_component = None    # OPEN: name of the component holding the identifier
        self.regional = False       # SEQUENCE: a {regionId, regExtValue} regional extension

    def __getattr__(self, name):
        td = self.__dict__.get("_td")
        if td is None or name.startswith("_"):
            raise AttributeError(name)
        if td.body is None:
            raise AttributeError("%s of %s used before its definition is complete" % (name, td.asn1_name))
        return getattr(td.body, name)

    @property
    def cons(self):
        if self._cons is None:
            self._cons = self._td.body.cons.copy()
        while self._pending:
            resolver, mi, c, env = self._pending.pop(0)
            resolver.apply(mi, self, c, env)
        return self._cons

    @property
    def root_components(self):
        return [c for c in self.components if c.ext_index is None]

    @property
    def addition_components(self):
        return [c for c in self.components if c.ext_index is not None]

    @property
    def root_alternatives(self):
        return [c for c in self.alternatives if c.ext_index is None]


class TypeDef:
    """A generated type: one value structure with its companion functions."""

    def __init__(self, module, asn1_name, cname, line, nested=False):
        self.module = module        # ModuleInfo
        self.asn1_name = asn1_name  # 'CamParameters', 'Position3D.regional.element'
        self.cname = cname          # 'ITS_PathPoint' (without ASN1T_)
        self.line = line
        self.nested = nested
        self.body = None            # RType of the definition
        self.is_message = False
        self.parent = None
        self.alias = None           # TypeDef this definition merely refers to

    @property
    def kind(self):
        return self.body.kind

    def construct(self):
        """Human-readable construct of the definition."""
        b = self.body
        names = {"BIT_STRING": "BIT STRING", "OCTET_STRING": "OCTET STRING",
                 "SEQUENCE_OF": "SEQUENCE OF", "OID": "OBJECT IDENTIFIER"}
        if b.kind == "STRING":
            return b.string_type
        if b.kind == "SEQUENCE" and b.regional:
            return "SEQUENCE (regional extension)"
        return names.get(b.kind, b.kind)


class ModuleInfo:
    def __init__(self, ast_mod):
        self.ast = ast_mod
        self.name = ast_mod.name
        self.prefix = MODULE_PREFIXES.get(ast_mod.name, "")
        self.filename = ast_mod.filename
        self.assignments = {}       # name -> assignment
        self.imports = {}           # symbol -> source module name
        self.typedefs = []          # TypeDef in order of definition (nested after their parents)


class Model:
    def __init__(self):
        self.modules = []           # ModuleInfo in file-name order
        self.by_name = {}
        self.typedefs = []          # all TypeDef

    def messages(self):
        return [td for td in self.typedefs if td.is_message]


class Resolver:
    def __init__(self, ast_modules):
        self.model = Model()
        by_oid = {}
        for am in ast_modules:
            mi = ModuleInfo(am)
            if am.name in self.model.by_name:
                raise Asn1Error("module %s defined twice" % am.name, am.filename)
            self.model.modules.append(mi)
            self.model.by_name[am.name] = mi
            if am.oid:
                by_oid[tuple(a for a in am.oid if isinstance(a, int))] = mi
            for a in am.assignments:
                if a.name in mi.assignments:
                    raise Asn1Error("%s defined twice in %s" % (a.name, am.name), am.filename, a.line)
                mi.assignments[a.name] = a
        # Imports name their module by OID where one is given and by name otherwise.
        for mi in self.model.modules:
            for imp in mi.ast.imports:
                src = None
                if imp.oid:
                    src = by_oid.get(tuple(a for a in imp.oid if isinstance(a, int)))
                if src is None:
                    src = self.model.by_name.get(imp.module)
                if src is None:
                    raise Asn1Error("module %s imports from unknown module %s" % (mi.name, imp.module),
                                    mi.filename)
                for sym in imp.symbols:
                    if sym not in src.assignments:
                        raise Asn1Error("%s does not define %s imported by %s" % (src.name, sym, mi.name),
                                        mi.filename)
                    mi.imports[sym] = src.name
        self.td_by_key = {}         # (module name, type name) -> TypeDef of top-level types
        self.cnames = {}

    # ---- lookups -------------------------------------------------------------------------------
    def lookup(self, mi, name, line=None):
        """Finds the assignment of `name` as seen from module `mi`: (defining module, assignment)."""
        seen = set()
        while True:
            if name in mi.assignments:
                return mi, mi.assignments[name]
            src = mi.imports.get(name)
            if src is None or (src, name) in seen:
                raise Asn1Error("undefined reference %s in module %s" % (name, mi.name), mi.filename, line)
            seen.add((src, name))
            mi = self.model.by_name[src]

    def value_of(self, mi, val, env=None):
        """Evaluates a value to a Python int/bool/str; value references are followed."""
        if val is None:
            return None
        if isinstance(val, int):
            return val
        if val.kind in ("int", "bool", "str"):
            return val.v
        if val.kind == "ref":
            if env and val.v in env:
                return self.value_of(mi, env[val.v][1], None)
            m2, a = self.lookup(mi, val.v, val.line)
            if not isinstance(a, ast.ValueAssignment):
                raise Asn1Error("%s is not a value" % val.v, mi.filename, val.line)
            return self.value_of(m2, a.value)
        if val.kind in ("min", "max"):
            return val.kind
        if val.kind == "null":
            return None
        return val.v

    # ---- type definitions ----------------------------------------------------------------------
    def register(self, td):
        if td.cname in self.cnames:
            other = self.cnames[td.cname]
            raise Asn1Error("generated name ASN1T_%s of %s.%s collides with %s.%s"
                            % (td.cname, td.module.name, td.asn1_name, other.module.name, other.asn1_name),
                            td.module.filename, td.line)
        self.cnames[td.cname] = td
        td.module.typedefs.append(td)
        self.model.typedefs.append(td)

    def top_typedef(self, mi, name):
        key = (mi.name, name)
        td = self.td_by_key.get(key)
        if td is None:
            a = mi.assignments[name]
            td = TypeDef(mi, name, mi.prefix + name.replace("-", "_"), a.line)
            self.td_by_key[key] = td
            self.register(td)
            td.body = self.resolve(mi, a.type, {}, td, None)
            # A definition that is a reference to another type is an alias of it.
            td.alias = td.body.typedef
            td.body.typedef = None
        return td

    def resolve_all(self):
        for mi in self.model.modules:
            for name, a in mi.assignments.items():
                if isinstance(a, ast.TypeAssignment) and not a.params:
                    self.top_typedef(mi, name)
        # Order every module's types as in the text: top-level types in text order, each followed
        # by its nested types in the order of their components.
        seq = {td: i for i, td in enumerate(self.model.typedefs)}
        for mi in self.model.modules:
            names = {a.name: i for i, a in enumerate(mi.ast.assignments)}

            def key(td):
                root = td
                while root.parent is not None:
                    root = root.parent
                return names[root.asn1_name], seq[td]
            mi.typedefs.sort(key=key)
        self.model.typedefs = [td for mi in self.model.modules for td in mi.typedefs]
        for td in self.model.typedefs:
            td.is_message = self.is_message(td)
        return self.model

    @staticmethod
    def is_message(td):
        """A message is a top-level SEQUENCE that starts with the ITS PDU header."""
        b = td.body
        if td.nested or b.kind != "SEQUENCE" or not b.components:
            return False
        first = b.components[0]
        return (first.name == "header" and first.type.typedef is not None
                and first.type.typedef.asn1_name == "ItsPduHeader")

    def nested_typedef(self, mi, owner, comp_name, line):
        asn1_name = owner.asn1_name + "." + comp_name
        cname = owner.cname + "_" + comp_name.replace("-", "_")
        td = TypeDef(mi, asn1_name, cname, line, nested=True)
        td.parent = owner
        self.register(td)
        return td

    # ---- type expressions ----------------------------------------------------------------------
    def resolve(self, mi, t, env, owner, comp_name):
        """Resolves type expression `t` of module `mi`.

        `owner` is the TypeDef being defined; `comp_name` is set when `t` is nested in it (a
        component, alternative or list element), so that anonymous types get their own TypeDef.
        `env` maps parameter names to actual parameters of a parameterized type.
        """
        if t.kind == "REF":
            if t.name in env:
                actual_mi, actual = env[t.name]
                if actual.kind != "type":
                    raise Asn1Error("parameter %s is not a type" % t.name, mi.filename, t.line)
                base = self.resolve(actual_mi, actual.value, {}, owner, comp_name)
            else:
                src_mi = self.model.by_name[t.module] if t.module else mi
                dm, a = self.lookup(src_mi, t.name, t.line)
                if not isinstance(a, ast.TypeAssignment) or a.params:
                    raise Asn1Error("%s is not a type" % t.name, mi.filename, t.line)
                base = self.ref_to(self.top_typedef(dm, t.name))
            return self.constrain(mi, base, t.constraints, env)

        if t.kind == "PARAMREF":
            src_mi = self.model.by_name[t.module] if t.module else mi
            dm, a = self.lookup(src_mi, t.name, t.line)
            if not isinstance(a, ast.TypeAssignment) or not a.params:
                raise Asn1Error("%s is not a parameterized type" % t.name, mi.filename, t.line)
            if len(a.params) != len(t.args):
                raise Asn1Error("%s takes %d parameters" % (t.name, len(a.params)), mi.filename, t.line)
            new_env = {p.name: (mi, arg) for p, arg in zip(a.params, t.args)}
            if comp_name is None:
                # A top-level type that is an instantiation: the type itself is the instance.
                base = self.resolve(dm, a.type, new_env, owner, None)
            else:
                td = self.nested_typedef(mi, owner, comp_name, t.line)
                td.body = self.resolve(dm, a.type, new_env, td, None)
                base = self.ref_to(td)
            return self.constrain(mi, base, t.constraints, env)

        if t.kind == "CLASSFIELD":
            return self.resolve_class_field(mi, t, env, owner, comp_name)

        named_kind = t.kind in ("SEQUENCE", "SET", "CHOICE", "ENUMERATED", "SEQUENCE_OF", "SET_OF") \
            or (t.kind in ("INTEGER", "BIT_STRING") and t.named)
        if comp_name is not None and named_kind:
            td = self.nested_typedef(mi, owner, comp_name, t.line)
            td.body = self.resolve(mi, t, env, td, None)
            return self.ref_to(td)

        r = RType(t.kind)
        r.line = t.line
        if t.kind == "SET":
            r.kind = "SEQUENCE"
        if t.kind == "SET_OF":
            r.kind = "SEQUENCE_OF"
        if t.kind == "INTEGER":
            r.named = [(n, self.value_of(mi, v, env)) for n, v in t.named]
        elif t.kind == "BIT_STRING":
            r.named = [(n, self.value_of(mi, v, env)) for n, v in t.named]
        elif t.kind == "ENUMERATED":
            r.root, r.ext_items = self.number_enum(mi, t)
        elif t.kind == "STRING":
            r.string_type = t.string_type
            alpha = STRING_ALPHABETS.get(t.string_type)
            if isinstance(alpha, str):
                r.cons.alphabet = alpha
        elif t.kind in ("SEQUENCE", "SET"):
            self.resolve_components(mi, t, env, owner, r)
        elif t.kind == "CHOICE":
            r.extensible = t.extensible
            for c in t.alternatives:
                r.alternatives.append(RComponent(c.name, self.resolve(mi, c.type, env, owner, c.name)))
            for i, c in enumerate(self.flatten_additions(t.additions)):
                comp, _ = c
                r.alternatives.append(RComponent(comp.name, self.resolve(mi, comp.type, env, owner, comp.name),
                                                 ext_index=i))
            self.check_unique(mi, r.alternatives, t.line)
        elif t.kind in ("SEQUENCE_OF", "SET_OF"):
            r.element = self.resolve(mi, t.element, env, owner, "element")
        return self.constrain(mi, r, t.constraints, env)

    @staticmethod
    def flatten_additions(additions):
        """Yields (component, group number or None) for the extension additions in order."""
        out = []
        for gi, item in enumerate(additions):
            if isinstance(item, ast.ExtGroup):
                out.extend((c, gi) for c in item.components)
            else:
                out.append((item, None))
        return out

    def resolve_components(self, mi, t, env, owner, r):
        r.extensible = t.extensible
        for c in list(t.components) + list(t.tail):
            r.components.append(self.make_component(mi, c, env, owner))
        # Additions are numbered by position: a group takes one position.
        for gi, item in enumerate(t.additions):
            comps = item.components if isinstance(item, ast.ExtGroup) else [item]
            for c in comps:
                rc = self.make_component(mi, c, env, owner)
                rc.ext_index = gi
                rc.group = gi if isinstance(item, ast.ExtGroup) else None
                r.components.append(rc)
        self.check_unique(mi, r.components, t.line)
        # Regional extensions: {identifier field, open type constrained by it}.
        if len(r.components) == 2 and r.components[1].type._td is None \
                and r.components[1].type.kind == "OPEN" \
                and r.components[1].type.id_component == r.components[0].name:
            r.regional = True

    def make_component(self, mi, c, env, owner):
        rt = self.resolve(mi, c.type, env, owner, c.name)
        default = None
        if c.default is not None:
            default = self.value_of(mi, c.default, env)
            if c.default.kind == "ref" and rt.kind == "ENUMERATED":
                default = dict(rt.root + (rt.ext_items or [])).get(c.default.v, default)
        return RComponent(c.name, rt, optional=c.optional, default=default)

    @staticmethod
    def check_unique(mi, comps, line):
        seen = set()
        for c in comps:
            if c.name in seen:
                raise Asn1Error("duplicate component %s" % c.name, mi.filename, line)
            seen.add(c.name)

    def number_enum(self, mi, t):
        """Assigns values to the items of an ENUMERATED type."""
        used = {v for _, v in t.root + (t.ext or []) if v is not None}
        root = []
        nxt = 0
        for name, v in t.root:
            if v is None:
                while nxt in used:
                    nxt += 1
                v = nxt
                used.add(v)
            root.append((name, v))
        ext = None
        if t.ext is not None:
            ext = []
            last = max([v for _, v in root], default=-1)
            for name, v in t.ext:
                if v is None:
                    v = last + 1
                    while v in used:
                        v += 1
                    used.add(v)
                last = v
                ext.append((name, v))
        names = [n for n, _ in root + (ext or [])]
        if len(set(names)) != len(names):
            raise Asn1Error("duplicate ENUMERATED item", mi.filename, t.line)
        return root, ext

    @staticmethod
    def ref_to(td):
        """A type expression that names `td`."""
        return RType(td=td)

    def resolve_class_field(self, mi, t, env, owner, comp_name):
        dm, cls = self.lookup(mi, t.class_name, t.line)
        if not isinstance(cls, ast.ClassAssignment):
            raise Asn1Error("%s is not a class" % t.class_name, mi.filename, t.line)
        field = next((f for f in cls.fields if f.name == t.field), None)
        if field is None:
            raise Asn1Error("class %s has no field %s" % (t.class_name, t.field), mi.filename, t.line)
        table = None
        rest = []
        for c in t.constraints:
            els = [e for inter in c.root.unions for e in inter]
            if len(els) == 1 and els[0].kind == "table":
                table = els[0]
            else:
                rest.append(c)
        if field.type is not None:
            # A fixed-type value field: the field's type, restricted to the set's identifiers.
            base = self.resolve(dm, field.type, {}, owner, comp_name)
            return self.constrain(mi, base, rest, env)
        r = RType("OPEN")
        r.line = t.line
        if table is not None:
            setname = table.set
            if setname in env:
                actual_mi, actual = env[setname]
                setname = actual.value
                set_mi = actual_mi
            else:
                set_mi = mi
            r.objset = setname
            r.objects, r.objset_ext = self.object_set(set_mi, setname, cls, t.line)
            r.id_component = table.refs.lstrip("@").lstrip(".") or None
        return r

    def object_set(self, mi, name, cls, line):
        """Resolves object set `name` of class `cls`: ([(identifier value, RType, value name)], extensible)."""
        dm, a = self.lookup(mi, name, line)
        if not isinstance(a, ast.ObjectSetAssignment):
            raise Asn1Error("%s is not an object set" % name, mi.filename, line)
        syntax = cls.syntax
        objects = []
        for items in a.objects:
            fields = {}
            if syntax is None:
                raise Asn1Error("objects of class %s need WITH SYNTAX" % cls.name, dm.filename, a.line)
            # Match the object's items against the class syntax: words must match, & fields capture.
            si = 0
            for kind, v in items:
                while si < len(syntax) and syntax[si] in ("[", "]"):
                    si += 1
                if si >= len(syntax):
                    raise Asn1Error("object does not match WITH SYNTAX", dm.filename, a.line)
                s = syntax[si]
                si += 1
                if s.startswith("&"):
                    fields[s] = (kind, v)
                elif kind != "word" or v != s:
                    raise Asn1Error("object does not match WITH SYNTAX at %r" % s, dm.filename, a.line)
            type_field = next(f.name for f in cls.fields if f.type is None)
            id_field = next(f.name for f in cls.fields if f.unique)
            tk, tv = fields[type_field]
            ik, iv = fields[id_field]
            rt = self.resolve(dm, tv, {}, None, None)
            objects.append((self.value_of(dm, iv), rt, iv.v if iv.kind == "ref" else str(iv.v)))
        return objects, a.extensible

    # ---- constraints ---------------------------------------------------------------------------
    def constrain(self, mi, r, constraints, env):
        """Adds `constraints` to the freshly made expression `r` (applied when first needed)."""
        r._pending.extend((self, mi, c, env) for c in constraints)
        return r

    def apply(self, mi, r, c, env):
        """Applies one parenthesised constraint serially to the constraints of `r`."""
        base = r._cons
        ext = c.extensible or c.additions is not None
        vr = self.value_range(mi, c.root, base, env)
        if vr is not None:
            lo, hi = vr
            base.lo = lo if base.lo is None or (lo is not None and lo > base.lo) else base.lo
            base.hi = hi if base.hi is None or (hi is not None and hi < base.hi) else base.hi
            base.ext = ext
        sr = self.size_range(mi, c.root, env)
        if sr is not None:
            (lo, hi), inner_ext = sr
            base.size_lo, base.size_hi = lo, hi
            base.size_ext = inner_ext or ext
        alpha = self.alphabet(mi, c.root, env)
        if alpha is not None and not ext:
            base.alphabet = alpha
        # WITH COMPONENTS: one (partial, {component: presence}) entry, or ("union", [entries]) when
        # the constraint offers alternatives.
        inners = [[(e.partial, {ic.name: ic.presence for ic in e.components})
                   for e in inter if e.kind == "inner"] for inter in c.root.unions]
        inners = [x for x in inners if x]
        if len(inners) == 1:
            base.inner.extend(inners[0])
        elif inners:
            base.inner.append(("union", [x[0] for x in inners]))

    def value_range(self, mi, es, base, env):
        """Value range of an element set as (lo, hi), or None when it has no value constraint."""
        hull = None
        for inter in es.unions:
            rng = None
            for e in inter:
                er = self.element_range(mi, e, base, env)
                if er is None:
                    continue
                if rng is None:
                    rng = er
                else:
                    rng = (max_none(rng[0], er[0]), min_none(rng[1], er[1]))
            if rng is None:
                if any(e.kind in ("value", "range", "type", "nested") for e in inter):
                    continue
                return None
            hull = rng if hull is None else (min_none_lo(hull[0], rng[0]), max_none_hi(hull[1], rng[1]))
        return hull

    def element_range(self, mi, e, base, env):
        if e.kind == "value":
            v = self.value_of(mi, e.value, env)
            return (v, v) if isinstance(v, int) and not isinstance(v, bool) else None
        if e.kind == "range":
            lo = self.value_of(mi, e.lo, env)
            hi = self.value_of(mi, e.hi, env)
            if isinstance(lo, str) and lo != "min" or isinstance(hi, str) and hi != "max":
                return None     # a character range: an alphabet, not a value range
            lo = base.lo if lo == "min" else lo
            hi = base.hi if hi == "max" else hi
            if e.lo_excl and lo is not None:
                lo += 1
            if e.hi_excl and hi is not None:
                hi -= 1
            return (lo, hi)
        if e.kind == "nested":
            return self.value_range(mi, e.constraint.root, base, env)
        if e.kind == "type":
            rt = self.resolve(mi, e.type, env, None, None)
            return (rt.cons.lo, rt.cons.hi) if rt.cons.has_range() else None
        return None

    def size_range(self, mi, es, env):
        for inter in es.unions:
            for e in inter:
                if e.kind == "size":
                    sc = e.constraint
                    tmp = Constraints()
                    rng = self.value_range(mi, sc.root, tmp, env)
                    if rng is None:
                        continue
                    # Sizes listed after the extension marker are extensions, not root sizes.
                    return rng, sc.extensible
                if e.kind == "nested":
                    got = self.size_range(mi, e.constraint.root, env)
                    if got is not None:
                        return got
        return None

    def alphabet(self, mi, es, env):
        for inter in es.unions:
            for e in inter:
                if e.kind == "from":
                    chars = set()
                    for inter2 in e.constraint.root.unions:
                        for e2 in inter2:
                            if e2.kind == "value":
                                chars.update(str(self.value_of(mi, e2.value, env)))
                            elif e2.kind == "range":
                                lo = str(self.value_of(mi, e2.lo, env))
                                hi = str(self.value_of(mi, e2.hi, env))
                                chars.update(chr(x) for x in range(ord(lo), ord(hi) + 1))
                    return "".join(sorted(chars))
        return None


def max_none(a, b):
    return b if a is None else a if b is None else max(a, b)


def min_none(a, b):
    return b if a is None else a if b is None else min(a, b)


def min_none_lo(a, b):
    return None if a is None or b is None else min(a, b)


def max_none_hi(a, b):
    return None if a is None or b is None else max(a, b)


def load_model(asn1_dir):
    """Parses every `*.asn` file of `asn1_dir` (sorted by name) and resolves them."""
    files = sorted(f for f in os.listdir(asn1_dir) if f.endswith(".asn"))
    if not files:
        raise Asn1Error("no .asn files in %s" % asn1_dir)
    mods = []
    for f in files:
        mods.extend(parse_file(os.path.join(asn1_dir, f)))
    return Resolver(mods).resolve_all()


def load_texts(texts):
    """Resolves modules given as {filename: text} (used by tests)."""
    from .parser import parse_text
    mods = []
    for name in sorted(texts):
        mods.extend(parse_text(texts[name], name))
    return Resolver(mods).resolve_all()
