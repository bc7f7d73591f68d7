"""Tokeniser for the ASN.1 notation used by the ITS modules."""

import re


class Asn1Error(Exception):
    """A problem in an ASN.1 text, reported with file and line."""

    def __init__(self, msg, filename=None, line=None):
        where = ""
        if filename:
            where = "%s:%s: " % (filename, line if line is not None else "?")
        super().__init__(where + msg)


class Token:
    __slots__ = ("kind", "text", "line")

    def __init__(self, kind, text, line):
        self.kind = kind    # 'id', 'num', 'str', 'bstr', 'hstr', 'sym', 'field', 'eof'
        self.text = text
        self.line = line

    def __repr__(self):
        return "Token(%s,%r,%d)" % (self.kind, self.text, self.line)


# Longest symbols first so that '::=' wins over ':' and '...' over '..'.
_SYMBOLS = ["::=", "...", "..", "[[", "]]", "{", "}", "(", ")", "[", "]", ",", ";",
            "|", "^", "<", ">", "@", ".", ":", "!", "-"]

_ID = re.compile(r"[A-Za-z][A-Za-z0-9]*(?:-[A-Za-z0-9]+)*")
_NUM = re.compile(r"[0-9]+")
_FIELD = re.compile(r"&[A-Za-z][A-Za-z0-9]*(?:-[A-Za-z0-9]+)*")
_BHSTR = re.compile(r"'([0-9A-Fa-f\s]*)'([BH])")


def tokenize(text, filename="<asn1>"):
    """Splits an ASN.1 text into tokens; comments and white space are dropped.

    `--` comments end at the next `--` or at the end of the line; `/* */` comments nest.
    """
    toks = []
    i = 0
    n = len(text)
    line = 1
    while i < n:
        c = text[i]
        if c == "\n":
            line += 1
            i += 1
            continue
        if c in " \t\r\f\v" or c == "\ufeff" or c == "\xa0":
            i += 1
            continue
        if text.startswith("--", i):
            j = i + 2
            while j < n and text[j] != "\n":
                if text.startswith("--", j):
                    j += 2
                    break
                j += 1
            i = j
            continue
        if text.startswith("/*", i):
            depth = 1
            j = i + 2
            while j < n and depth:
                if text.startswith("/*", j):
                    depth += 1
                    j += 2
                elif text.startswith("*/", j):
                    depth -= 1
                    j += 2
                else:
                    if text[j] == "\n":
                        line += 1
                    j += 1
            i = j
            continue
        if c == '"':
            j = i + 1
            buf = []
            while True:
                if j >= n:
                    raise Asn1Error("unterminated string", filename, line)
                if text[j] == '"':
                    if j + 1 < n and text[j + 1] == '"':
                        buf.append('"')
                        j += 2
                        continue
                    break
                if text[j] == "\n":
                    line += 1
                buf.append(text[j])
                j += 1
            toks.append(Token("str", "".join(buf), line))
            i = j + 1
            continue
        if c == "'":
            m = _BHSTR.match(text, i)
            if not m:
                raise Asn1Error("bad bit or hex string", filename, line)
            digits = re.sub(r"\s", "", m.group(1))
            toks.append(Token("bstr" if m.group(2) == "B" else "hstr", digits, line))
            line += m.group(0).count("\n")
            i = m.end()
            continue
        if c == "&":
            m = _FIELD.match(text, i)
            if not m:
                raise Asn1Error("bad field reference", filename, line)
            toks.append(Token("field", m.group(0), line))
            i = m.end()
            continue
        if c.isalpha():
            m = _ID.match(text, i)
            toks.append(Token("id", m.group(0), line))
            i = m.end()
            continue
        if c.isdigit():
            m = _NUM.match(text, i)
            toks.append(Token("num", m.group(0), line))
            i = m.end()
            continue
        for s in _SYMBOLS:
            if text.startswith(s, i):
                toks.append(Token("sym", s, line))
                i += len(s)
                break
        else:
            raise Asn1Error("unexpected character %r" % c, filename, line)
    toks.append(Token("eof", "", line))
    return toks
