"""Assembles the codec files of each module: `<Module>Enc.cpp` holds the encoders of every
encoding (PER, JSON, XML) and `<Module>Dec.cpp` the decoders, so that a failure recorded by a
generated coder names one of these two files."""

from .emit_values import codec_file_head
from .writer import CodeWriter


def emit(model, families):
    """`families`: modules with RUNTIME_HEADER and emit_functions(mi, we, wd)."""
    headers = [f.RUNTIME_HEADER for f in families]
    out = {}
    for mi in model.modules:
        we, wd = CodeWriter(), CodeWriter()
        codec_file_head(we, mi, "Enc", headers)
        codec_file_head(wd, mi, "Dec", headers)
        for fam in families:
            fam.emit_functions(mi, we, wd)
        out[mi.name + "Enc.cpp"] = we.text()
        out[mi.name + "Dec.cpp"] = wd.text()
    return out
