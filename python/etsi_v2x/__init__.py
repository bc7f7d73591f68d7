"""Conversion of C-ITS messages (CAM, DENM, SPATEM, MAPEM, IVIM, SREM, SSEM) between unaligned
PER (UPER) bytes and JSON or XML text, over the shared library ``libetsiv2x.so`` through ctypes.

    >>> import etsi_v2x
    >>> text = etsi_v2x.to_json("CAM", uper_bytes)        # str, the library's JSON
    >>> value = etsi_v2x.decode("CAM", uper_bytes)        # dict
    >>> uper = etsi_v2x.from_json("CAM", text)            # bytes (text may also be a dict)
    >>> for record in etsi_v2x.read_capture("log.pcap"):  # one dict per C-ITS message
    ...     print(record["message"], record.get("json"))

Failures raise EtsiError, which carries the library's negative status and its full error text.
Every call is independent of the others; the functions may be called from many threads at once
(the library keeps no state between calls, and ctypes releases the GIL while it runs).

The shared library is looked up, in this order: the environment variable ETSI_V2X_LIB (a file,
or a folder holding libetsiv2x.so), the package's own folder, the library folder recorded by
``make install``, the system's library path, and build/ of the checkout the package is in.
"""

import ctypes
import ctypes.util
import json
import os
import shutil
import subprocess
import threading

__all__ = [
    "MESSAGES", "EtsiError", "to_json", "from_json", "to_xml", "from_xml", "decode", "encode",
    "read_capture", "library_path", "convert_tool", "capture_supported",
]

MESSAGES = ("CAM", "DENM", "SPATEM", "MAPEM", "IVIM", "SREM", "SSEM")

# Message type by the messageID of the ITS PDU header.
MESSAGE_IDS = {1: "DENM", 2: "CAM", 4: "SPATEM", 5: "MAPEM", 6: "IVIM", 9: "SREM", 10: "SSEM"}

_LIB_NAME = "libetsiv2x.so"
_HERE = os.path.dirname(os.path.abspath(__file__))


class EtsiError(Exception):
    """A conversion failed. ``status`` is the library's negative status, ``text`` its full error
    report (which begins with "ERROR: Status N")."""

    def __init__(self, status, text):
        super().__init__(status, text)
        self.status = status
        self.text = text

    def __str__(self):
        return self.text.strip() or "status %d" % self.status

    @property
    def reason(self):
        """The first line of the report after its "ERROR: Status N" line: what went wrong, as
        the records of the bulk conversion carry it (beside the status)."""
        lines = [l for l in self.text.strip().split("\n") if l.strip()]
        if lines and lines[0].startswith("ERROR: Status") and len(lines) > 1:
            return lines[1].strip()
        return lines[0].strip() if lines else "status %d" % self.status


def _installed_paths():
    """(libdir, bindir) written into the package by `make install`, or (None, None)."""
    try:
        from . import _installed  # created at install time only
    except ImportError:
        return None, None
    return getattr(_installed, "LIBDIR", None), getattr(_installed, "BINDIR", None)


def _library_candidates():
    env = os.environ.get("ETSI_V2X_LIB")
    if env:
        yield os.path.join(env, _LIB_NAME) if os.path.isdir(env) else env
        return  # an explicit choice is not second-guessed
    yield os.path.join(_HERE, _LIB_NAME)
    libdir, _ = _installed_paths()
    if libdir:
        yield os.path.join(libdir, _LIB_NAME)
    found = ctypes.util.find_library("etsiv2x")
    if found:
        yield found
    # Run from a checkout (python/ of the repository): the library of its default build folder.
    yield os.path.join(os.path.dirname(os.path.dirname(_HERE)), "build", _LIB_NAME)


_lib = None
_lib_path = None
_lib_lock = threading.Lock()
_functions = {}


def _load():
    global _lib, _lib_path
    if _lib is not None:
        return _lib
    with _lib_lock:
        if _lib is not None:
            return _lib
        tried = []
        for path in _library_candidates():
            if os.sep in path and not os.path.exists(path):
                tried.append(path)
                continue
            try:
                lib = ctypes.CDLL(path)
            except OSError as exc:
                tried.append("%s (%s)" % (path, exc))
                continue
            _declare(lib)
            _lib_path = path
            _lib = lib
            return lib
        raise OSError("etsi_v2x: cannot load %s; tried: %s. Set ETSI_V2X_LIB to the library file."
                      % (_LIB_NAME, ", ".join(tried) or "nothing"))


def _declare(lib):
    """Sets the prototypes of the 29 exported functions once, before any call uses them."""
    lib.etsi_delete_array.argtypes = [ctypes.c_void_p]
    lib.etsi_delete_array.restype = None
    for msg in MESSAGES:
        for form in ("json", "xml"):
            to = getattr(lib, "etsi_%s_to_%s" % (msg, form))
            # The results are taken as raw pointers (c_void_p), not c_char_p: ctypes would copy a
            # c_char_p result and lose the pointer that etsi_delete_array must receive.
            to.argtypes = [ctypes.c_char_p, ctypes.c_size_t, ctypes.POINTER(ctypes.c_void_p),
                           ctypes.POINTER(ctypes.c_void_p), ctypes.c_bool]
            to.restype = ctypes.c_int
            frm = getattr(lib, "etsi_%s_from_%s" % (msg, form))
            frm.argtypes = [ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p),
                            ctypes.POINTER(ctypes.c_size_t), ctypes.POINTER(ctypes.c_void_p),
                            ctypes.c_bool]
            frm.restype = ctypes.c_int
            _functions[(msg, "to_" + form)] = to
            _functions[(msg, "from_" + form)] = frm


def library_path():
    """The path of the shared library in use (loading it if needed)."""
    _load()
    return _lib_path


def _function(msg, name):
    _load()
    try:
        return _functions[(msg, name)]
    except KeyError:
        raise ValueError("unknown message %r; expected one of %s" % (msg, ", ".join(MESSAGES))) from None


def _as_bytes(data):
    if isinstance(data, str):
        try:
            return bytes.fromhex(data)
        except ValueError:
            raise ValueError("UPER given as text must be hex digits") from None
    return bytes(data)


def _take_error(lib, status, err):
    text = ""
    if err.value:
        text = ctypes.string_at(err.value).decode("utf-8", "replace")
        lib.etsi_delete_array(err.value)
        err.value = None
    return EtsiError(status, text)


def _to_text(msg, form, data, trace):
    fn = _function(msg, "to_" + form)
    raw = _as_bytes(data)
    out = ctypes.c_void_p()
    err = ctypes.c_void_p()
    status = fn(raw, len(raw), ctypes.byref(out), ctypes.byref(err), bool(trace))
    try:
        if status != 0:
            raise _take_error(_lib, status, err)
        return ctypes.string_at(out.value).decode("utf-8")
    finally:
        # Both results are released whatever happened (null is harmless).
        _lib.etsi_delete_array(out.value)
        _lib.etsi_delete_array(err.value)


def _from_text(msg, form, text, trace):
    fn = _function(msg, "from_" + form)
    if isinstance(text, str):
        raw = text.encode("utf-8")
    else:
        raw = bytes(text)
    if b"\0" in raw:
        raise ValueError("text holds a NUL character")
    out = ctypes.c_void_p()
    n = ctypes.c_size_t()
    err = ctypes.c_void_p()
    status = fn(raw, ctypes.byref(out), ctypes.byref(n), ctypes.byref(err), bool(trace))
    try:
        if status != 0:
            raise _take_error(_lib, status, err)
        return ctypes.string_at(out.value, n.value) if n.value else b""
    finally:
        # Both results are released whatever happened (null is harmless).
        _lib.etsi_delete_array(out.value)
        _lib.etsi_delete_array(err.value)


def to_json(msg, data, trace=False):
    """UPER bytes (or hex text) of message type ``msg`` -> the library's JSON text."""
    return _to_text(msg, "json", data, trace)


def from_json(msg, text, trace=False):
    """JSON text (or a dict, serialized with json.dumps) -> UPER bytes."""
    if not isinstance(text, (str, bytes, bytearray, memoryview)):
        text = json.dumps(text)
    return _from_text(msg, "json", text, trace)


def to_xml(msg, data, trace=False):
    """UPER bytes (or hex text) -> the library's XML text."""
    return _to_text(msg, "xml", data, trace)


def from_xml(msg, text, trace=False):
    """XML text -> UPER bytes."""
    return _from_text(msg, "xml", text, trace)


def decode(msg, data):
    """UPER bytes (or hex text) -> the message as a dict (the JSON form, parsed)."""
    return json.loads(to_json(msg, data))


def encode(msg, value):
    """A dict in the JSON form -> UPER bytes."""
    return from_json(msg, value)


def guess_message(data):
    """Message type from the messageID of the ITS PDU header (the second byte), or None."""
    raw = _as_bytes(data)
    return MESSAGE_IDS.get(raw[1]) if len(raw) >= 2 else None


def station_id(data):
    """stationID of the ITS PDU header (bytes 2 to 5), or None for a shorter input."""
    raw = _as_bytes(data)
    return int.from_bytes(raw[2:6], "big") if len(raw) >= 6 else None


# ------------------------------------------------------------------------------------------------
# Captures, through the command-line converter.

def convert_tool():
    """Path of the etsi-convert program: ETSI_CONVERT, next to the shared library, the bin
    folder recorded by `make install`, or the PATH. None when none is found."""
    env = os.environ.get("ETSI_CONVERT")
    if env:
        return env
    candidates = []
    try:
        candidates.append(os.path.join(os.path.dirname(os.path.abspath(library_path())), "etsi-convert"))
    except OSError:
        pass
    _, bindir = _installed_paths()
    if bindir:
        candidates.append(os.path.join(bindir, "etsi-convert"))
    for path in candidates:
        if os.path.isfile(path) and os.access(path, os.X_OK):
            return path
    return shutil.which("etsi-convert")


def capture_supported(tool=None):
    """True when etsi-convert knows the `capture` command."""
    tool = tool or convert_tool()
    if not tool:
        return False
    try:
        done = subprocess.run([tool, "--help"], capture_output=True, text=True, timeout=30)
    except OSError:
        return False
    return "capture" in done.stdout + done.stderr


def read_capture(path, form="json", tool=None):
    """Yields the records of a pcap/pcapng file as dicts, one per C-ITS message (or per problem),
    as `etsi-convert capture` writes them: file, frame, time, linktype, message, port, secured,
    station, then "json" (form="json"), "xml" (form="xml") or "uper" hex (form="hex"); a failed
    conversion has "status" and "error" instead, a file-level problem only "file" and "error".

    Raises EtsiError when the program fails without telling why in a record."""
    tool = tool or convert_tool()
    if not tool:
        raise OSError("etsi_v2x: etsi-convert not found; set ETSI_CONVERT")
    args = [tool, "capture", "--quiet"]
    if form == "xml":
        args.append("--xml")
    elif form == "hex":
        args.append("--hex")
    elif form != "json":
        raise ValueError("form must be 'json', 'xml' or 'hex'")
    args.append(os.fspath(path))
    proc = subprocess.Popen(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            stdin=subprocess.DEVNULL)
    # stderr (the summary) is drained on a thread so that a large one cannot block the program.
    err_chunks = []
    drain = threading.Thread(target=lambda: err_chunks.append(proc.stderr.read()), daemon=True)
    drain.start()
    file_error = False
    finished = False
    try:
        for line in proc.stdout:
            line = line.strip()
            if not line:
                continue
            record = json.loads(line)
            if "error" in record and "frame" not in record:
                file_error = True
            yield record
        finished = True
    finally:
        if not finished and proc.poll() is None:
            proc.kill()  # the caller stopped early
        proc.stdout.close()
        rc = proc.wait()
        drain.join()
        proc.stderr.close()
    if rc != 0 and not file_error:
        text = b"".join(err_chunks).decode("utf-8", "replace")
        raise EtsiError(-abs(rc), "etsi-convert capture %s exited with status %d\n%s"
                        % (path, rc, text))
