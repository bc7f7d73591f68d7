"""Recursive-descent parser for the ASN.1 notation of the ITS modules."""

from . import ast
from .lexer import Asn1Error, tokenize

STRING_TYPES = {
    "IA5String", "UTF8String", "NumericString", "VisibleString", "PrintableString", "BMPString",
    "UniversalString", "TeletexString", "T61String", "VideotexString", "GraphicString",
    "GeneralString", "ISO646String",
}

# Object identifier arcs that may be written by name alone.
_WELL_KNOWN_ARCS = {"itu-t": 0, "ccitt": 0, "iso": 1, "joint-iso-itu-t": 2, "joint-iso-ccitt": 2}


def _is_type_ref(name):
    return name[:1].isupper()


class Parser:
    def __init__(self, text, filename="<asn1>"):
        self.filename = filename
        self.toks = tokenize(text, filename)
        self.pos = 0

    # ---- token helpers -------------------------------------------------------------------------
    def peek(self, k=0):
        return self.toks[min(self.pos + k, len(self.toks) - 1)]

    def at(self, text, k=0):
        t = self.peek(k)
        return t.kind in ("sym", "id") and t.text == text

    def next(self):
        t = self.toks[self.pos]
        if t.kind != "eof":
            self.pos += 1
        return t

    def error(self, msg, tok=None):
        tok = tok or self.peek()
        found = tok.text if tok.kind != "eof" else "end of file"
        return Asn1Error("%s (found %r)" % (msg, found), self.filename, tok.line)

    def expect(self, text):
        if not self.at(text):
            raise self.error("expected %r" % text)
        return self.next()

    def accept(self, text):
        if self.at(text):
            return self.next()
        return None

    def ident(self, what="identifier"):
        t = self.peek()
        if t.kind != "id":
            raise self.error("expected %s" % what)
        return self.next().text

    def number(self):
        neg = bool(self.accept("-"))
        t = self.peek()
        if t.kind != "num":
            raise self.error("expected a number")
        self.next()
        return -int(t.text) if neg else int(t.text)

    # ---- modules -------------------------------------------------------------------------------
    def parse_modules(self):
        mods = []
        while self.peek().kind != "eof":
            mods.append(self.parse_module())
        return mods

    def parse_module(self):
        name = self.ident("module name")
        mod = ast.Module(name, None, self.filename)
        if self.at("{"):
            mod.oid = self.parse_oid()
        self.expect("DEFINITIONS")
        while not self.at("::="):
            t = self.next()
            if t.kind == "eof":
                raise self.error("expected '::='")
            if t.text in ("AUTOMATIC", "IMPLICIT", "EXPLICIT"):
                mod.tag_default = t.text
            elif t.text == "IMPLIED":
                mod.extensibility_implied = True
        self.expect("::=")
        self.expect("BEGIN")
        if self.accept("EXPORTS"):
            while not self.accept(";"):
                if self.next().kind == "eof":
                    raise self.error("unterminated EXPORTS")
        if self.accept("IMPORTS"):
            self.parse_imports(mod)
        while not self.at("END"):
            if self.peek().kind == "eof":
                raise self.error("missing END of module %s" % name)
            mod.assignments.append(self.parse_assignment())
        self.expect("END")
        return mod

    def parse_oid(self):
        self.expect("{")
        arcs = []
        while not self.accept("}"):
            t = self.peek()
            if t.kind == "num":
                arcs.append(int(self.next().text))
            elif t.kind == "id":
                nm = self.next().text
                if self.accept("("):
                    arcs.append(self.number())
                    self.expect(")")
                elif nm in _WELL_KNOWN_ARCS and not arcs:
                    arcs.append(_WELL_KNOWN_ARCS[nm])
                elif nm == "standard" and arcs == [1]:
                    arcs.append(0)
                else:
                    arcs.append(nm)     # a value reference: kept by name
            else:
                raise self.error("bad object identifier component")
        return tuple(arcs)

    def parse_imports(self, mod):
        while not self.accept(";"):
            symbols = []
            while True:
                symbols.append(self.ident("imported symbol"))
                if self.at("{") and self.at("}", 1):
                    self.next()
                    self.next()
                if not self.accept(","):
                    break
            self.expect("FROM")
            src = self.ident("module name")
            oid = self.parse_oid() if self.at("{") else None
            mod.imports.append(ast.Import(symbols, src, oid))

    # ---- assignments ---------------------------------------------------------------------------
    def parse_assignment(self):
        t = self.peek()
        if t.kind != "id":
            raise self.error("expected an assignment")
        name = t.text
        line = t.line
        if _is_type_ref(name):
            if self.at("::=", 1):
                self.next()
                self.next()
                if self.at("CLASS"):
                    return self.parse_class(name, line)
                return ast.TypeAssignment(name, [], self.parse_type(), line)
            if self.at("{", 1):
                self.next()
                params = self.parse_params()
                self.expect("::=")
                return ast.TypeAssignment(name, params, self.parse_type(), line)
            if self.peek(1).kind == "id" and self.at("::=", 2):
                self.next()
                cls = self.next().text
                self.expect("::=")
                return self.parse_object_set(name, cls, line)
            raise self.error("cannot parse assignment of %s" % name)
        # value assignment: name Type ::= Value
        self.next()
        typ = self.parse_type()
        self.expect("::=")
        return ast.ValueAssignment(name, typ, self.parse_value(), line)

    def parse_params(self):
        self.expect("{")
        params = []
        while True:
            first = self.ident("parameter")
            if self.accept(":"):
                params.append(ast.Param(first, self.ident("parameter")))
            else:
                params.append(ast.Param(None, first))
            if not self.accept(","):
                break
        self.expect("}")
        return params

    def parse_class(self, name, line):
        self.expect("CLASS")
        self.expect("{")
        fields = []
        while True:
            t = self.peek()
            if t.kind != "field":
                raise self.error("expected a class field")
            fname = self.next().text
            ftype = None
            if not (self.at(",") or self.at("}") or self.at("UNIQUE") or self.at("OPTIONAL")
                    or self.at("DEFAULT")):
                ftype = self.parse_type()
            unique = bool(self.accept("UNIQUE"))
            optional = bool(self.accept("OPTIONAL"))
            if self.accept("DEFAULT"):
                optional = True
                self.parse_value()
            fields.append(ast.ClassField(fname, ftype, unique, optional))
            if not self.accept(","):
                break
        self.expect("}")
        syntax = None
        if self.accept("WITH"):
            self.expect("SYNTAX")
            self.expect("{")
            syntax = []
            while not self.accept("}"):
                t = self.next()
                if t.kind == "eof":
                    raise self.error("unterminated WITH SYNTAX")
                syntax.append(t.text)
        return ast.ClassAssignment(name, fields, syntax, line)

    def parse_object_set(self, name, cls, line):
        self.expect("{")
        objects = []
        extensible = False
        while not self.at("}"):
            if self.accept("..."):
                extensible = True
            else:
                objects.append(self.parse_object())
            if not self.accept(","):
                break
        self.expect("}")
        return ast.ObjectSetAssignment(name, cls, objects, extensible, line)

    def parse_object(self):
        """Parses `{ ... }` of one object; the WITH SYNTAX is applied later by the resolver."""
        self.expect("{")
        items = []      # sequence of ('word', text) and ('type', Type) / ('value', Value)
        while not self.at("}"):
            t = self.peek()
            if t.kind == "id" and t.text.isupper() and t.text not in ("TRUE", "FALSE", "NULL"):
                items.append(("word", self.next().text))
            elif t.kind == "id" and _is_type_ref(t.text):
                items.append(("type", self.parse_type()))
            else:
                items.append(("value", self.parse_value()))
        self.expect("}")
        return items

    # ---- types ---------------------------------------------------------------------------------
    def parse_type(self):
        t = self.peek()
        line = t.line
        if self.accept("["):
            # A tag: [class number] IMPLICIT/EXPLICIT. Tags do not affect PER.
            if self.at("UNIVERSAL") or self.at("APPLICATION") or self.at("PRIVATE"):
                self.next()
            self.number()
            self.expect("]")
            if not self.accept("IMPLICIT"):
                self.accept("EXPLICIT")
            return self.parse_type()
        typ = self.parse_builtin_or_ref(line)
        while self.at("("):
            typ.constraints.append(self.parse_constraint())
        return typ

    def parse_builtin_or_ref(self, line):
        t = self.peek()
        if t.kind != "id":
            raise self.error("expected a type")
        kw = t.text
        if kw in ("BOOLEAN", "NULL", "REAL"):
            self.next()
            return ast.Type(kw, line)
        if kw == "INTEGER":
            self.next()
            named = self.parse_named_numbers() if self.at("{") else []
            return ast.Type("INTEGER", line, named=named)
        if kw == "ENUMERATED":
            self.next()
            return self.parse_enumerated(line)
        if kw == "BIT":
            self.next()
            self.expect("STRING")
            named = self.parse_named_numbers() if self.at("{") else []
            return ast.Type("BIT_STRING", line, named=named)
        if kw == "OCTET":
            self.next()
            self.expect("STRING")
            return ast.Type("OCTET_STRING", line)
        if kw == "OBJECT":
            self.next()
            self.expect("IDENTIFIER")
            return ast.Type("OID", line)
        if kw in STRING_TYPES:
            self.next()
            return ast.Type("STRING", line, string_type=kw)
        if kw in ("SEQUENCE", "SET"):
            self.next()
            if self.at("{"):
                return self.parse_sequence(kw, line)
            size = None
            if self.at("SIZE"):
                self.next()
                size = ast.Constraint(ast.ElementSet([[ast.Element("size", constraint=self.parse_constraint())]]))
            elif self.at("("):
                size = self.parse_constraint()
            self.expect("OF")
            elem_name = None
            if self.peek().kind == "id" and not _is_type_ref(self.peek().text) and \
                    self.peek(1).kind in ("id", "sym") and not self.at("(", 1):
                elem_name = self.next().text
            element = self.parse_type()
            typ = ast.Type(kw + "_OF", line, element=element, element_name=elem_name)
            if size is not None:
                typ.constraints.append(size)
            return typ
        if kw == "CHOICE":
            self.next()
            return self.parse_choice(line)
        if not _is_type_ref(kw):
            raise self.error("expected a type")
        self.next()
        if self.at(".") and self.peek(1).kind == "field":
            self.next()
            field = self.next().text
            return ast.Type("CLASSFIELD", line, class_name=kw, field=field)
        module = None
        name = kw
        if self.at(".") and self.peek(1).kind == "id":
            self.next()
            module, name = kw, self.next().text
        if self.at("{"):
            return ast.Type("PARAMREF", line, name=name, module=module, args=self.parse_actuals())
        return ast.Type("REF", line, name=name, module=module)

    def parse_actuals(self):
        self.expect("{")
        args = []
        while True:
            if self.at("{"):
                self.next()
                args.append(ast.Actual("objectset", self.ident("object set")))
                self.expect("}")
            elif self.peek().kind == "id" and _is_type_ref(self.peek().text):
                args.append(ast.Actual("type", self.parse_type()))
            else:
                args.append(ast.Actual("value", self.parse_value()))
            if not self.accept(","):
                break
        self.expect("}")
        return args

    def parse_named_numbers(self):
        self.expect("{")
        items = []
        while True:
            nm = self.ident("named number")
            self.expect("(")
            if self.peek().kind == "id":
                items.append((nm, ast.Value("ref", self.next().text)))
            else:
                items.append((nm, self.number()))
            self.expect(")")
            if not self.accept(","):
                break
        self.expect("}")
        return items

    def parse_enumerated(self, line):
        self.expect("{")
        root, ext = [], None
        while True:
            if self.accept("..."):
                if ext is not None:
                    raise self.error("second extension marker in ENUMERATED")
                ext = []
                if self.at("!"):
                    self.next()
                    self.parse_value()
            else:
                nm = self.ident("enumeration item")
                val = None
                if self.accept("("):
                    val = self.number()
                    self.expect(")")
                (root if ext is None else ext).append((nm, val))
            if not self.accept(","):
                break
        self.expect("}")
        return ast.Type("ENUMERATED", line, root=root, ext=ext)

    def parse_component_list(self, allow_optional):
        """Returns (root, extensible, additions, tail) of a SEQUENCE, SET or CHOICE body."""
        self.expect("{")
        root, additions, tail = [], [], []
        markers = 0
        if self.accept("}"):
            return root, False, additions, tail
        while True:
            if self.accept("..."):
                markers += 1
                if markers > 2:
                    raise self.error("third extension marker")
                if self.accept("!"):
                    self.parse_value()
            elif self.at("[["):
                if markers != 1:
                    raise self.error("extension addition group outside the extensions")
                self.next()
                version = None
                if self.peek().kind == "num" and self.at(":", 1):
                    version = self.number()
                    self.next()
                comps = []
                while True:
                    comps.append(self.parse_component(allow_optional))
                    if not self.accept(","):
                        break
                self.expect("]]")
                additions.append(ast.ExtGroup(comps, version))
            elif self.at("COMPONENTS"):
                raise self.error("COMPONENTS OF is not supported")
            else:
                comp = self.parse_component(allow_optional)
                [root, additions, tail][markers].append(comp)
            if not self.accept(","):
                break
        self.expect("}")
        return root, markers > 0, additions, tail

    def parse_component(self, allow_optional):
        t = self.peek()
        name = self.ident("component name")
        if _is_type_ref(name):
            raise self.error("component name must start with a lower-case letter", t)
        typ = self.parse_type()
        comp = ast.Component(name, typ, line=t.line)
        if allow_optional:
            if self.accept("OPTIONAL"):
                comp.optional = True
            elif self.accept("DEFAULT"):
                comp.default = self.parse_value()
        return comp

    def parse_sequence(self, kw, line):
        root, ext, additions, tail = self.parse_component_list(True)
        return ast.Type(kw, line, components=root, extensible=ext, additions=additions, tail=tail)

    def parse_choice(self, line):
        root, ext, additions, tail = self.parse_component_list(False)
        if tail:
            raise self.error("CHOICE cannot have root alternatives after the extensions")
        return ast.Type("CHOICE", line, alternatives=root, extensible=ext, additions=additions)

    # ---- constraints ---------------------------------------------------------------------------
    def parse_constraint(self):
        self.expect("(")
        if self.at("..."):
            root = ast.ElementSet([])
        else:
            root = self.parse_element_set()
        c = ast.Constraint(root)
        if self.accept(",") or self.at("..."):
            self.expect("...")
            c.extensible = True
            if self.accept("!"):
                c.exception = self.parse_value()
            if self.accept(","):
                c.additions = self.parse_element_set()
        if self.accept("!"):
            c.exception = self.parse_value()
        self.expect(")")
        return c

    def parse_element_set(self):
        unions = []
        while True:
            inter = [self.parse_element()]
            while self.accept("^") or self.accept("INTERSECTION"):
                inter.append(self.parse_element())
            unions.append(inter)
            if not (self.accept("|") or self.accept("UNION")):
                break
        return ast.ElementSet(unions)

    def parse_element(self):
        if self.accept("SIZE"):
            return ast.Element("size", constraint=self.parse_constraint())
        if self.accept("FROM"):
            return ast.Element("from", constraint=self.parse_constraint())
        if self.at("WITH"):
            self.next()
            if self.accept("COMPONENT"):
                return ast.Element("inner1", constraint=self.parse_constraint())
            self.expect("COMPONENTS")
            return self.parse_inner_components()
        if self.accept("ALL"):
            self.expect("EXCEPT")
            return ast.Element("all_except", element=self.parse_element())
        if self.accept("PATTERN"):
            return ast.Element("pattern", value=self.parse_value())
        if self.accept("CONTAINING"):
            return ast.Element("containing", type=self.parse_type())
        if self.at("("):
            return ast.Element("nested", constraint=self.parse_constraint())
        if self.at("{"):
            self.next()
            objset = self.ident("object set")
            self.expect("}")
            refs = []
            if self.at("{") and self.at("@", 1):
                self.next()
                while not self.accept("}"):
                    refs.append(self.next().text)
            return ast.Element("table", set=objset, refs="".join(refs))
        t = self.peek()
        if t.kind == "id" and _is_type_ref(t.text) and t.text not in ("MIN", "MAX", "TRUE", "FALSE",
                                                                      "NULL", "PLUS-INFINITY",
                                                                      "MINUS-INFINITY"):
            return ast.Element("type", type=self.parse_type())
        lo = self.parse_value()
        lo_excl = bool(self.accept("<"))
        if self.accept(".."):
            hi_excl = bool(self.accept("<"))
            hi = self.parse_value()
            return ast.Element("range", lo=lo, hi=hi, lo_excl=lo_excl, hi_excl=hi_excl)
        return ast.Element("value", value=lo)

    def parse_inner_components(self):
        self.expect("{")
        partial = False
        comps = []
        if self.accept("..."):
            partial = True
            self.expect(",")
        while True:
            nm = self.ident("component name")
            cons = self.parse_constraint() if self.at("(") else None
            presence = None
            for p in ("PRESENT", "ABSENT", "OPTIONAL"):
                if self.accept(p):
                    presence = p
            comps.append(ast.InnerComponent(nm, cons, presence))
            if not self.accept(","):
                break
        self.expect("}")
        return ast.Element("inner", components=comps, partial=partial)

    # ---- values --------------------------------------------------------------------------------
    def parse_value(self):
        t = self.peek()
        line = t.line
        if t.kind == "num" or self.at("-"):
            return ast.Value("int", self.number(), line)
        if t.kind == "str":
            self.next()
            return ast.Value("str", t.text, line)
        if t.kind in ("bstr", "hstr"):
            self.next()
            return ast.Value(t.kind, t.text, line)
        if t.kind == "id":
            self.next()
            if t.text in ("TRUE", "FALSE"):
                return ast.Value("bool", t.text == "TRUE", line)
            if t.text == "NULL":
                return ast.Value("null", None, line)
            if t.text == "MIN":
                return ast.Value("min", None, line)
            if t.text == "MAX":
                return ast.Value("max", None, line)
            return ast.Value("ref", t.text, line)
        if t.kind == "sym" and t.text == "{":
            # A braced value: kept as its token texts (object identifiers, bit lists, SEQUENCE values).
            depth = 0
            texts = []
            while True:
                tok = self.next()
                if tok.kind == "eof":
                    raise self.error("unterminated value")
                if tok.text == "{" and tok.kind == "sym":
                    depth += 1
                elif tok.text == "}" and tok.kind == "sym":
                    depth -= 1
                texts.append(tok.text)
                if depth == 0:
                    break
            return ast.Value("braced", texts[1:-1], line)
        raise self.error("expected a value")


def parse_text(text, filename="<asn1>"):
    """Parses all modules of one ASN.1 text."""
    return Parser(text, filename).parse_modules()


def parse_file(path):
    with open(path, "rb") as f:
        raw = f.read()
    text = raw.decode("utf-8", errors="replace")
    return parse_text(text, path)
