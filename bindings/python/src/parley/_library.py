"""The C interface by ctypes: the library beside this file, or one named by PARLEY_LIBRARY, or the system's."""
import ctypes
import ctypes.util
import os
import pathlib
from ctypes import POINTER, c_char_p, c_float, c_int16, c_int32, c_void_p

NATIVE = pathlib.Path(__file__).parent / "native"


class CSegment(ctypes.Structure):
    """zx_parley_segment_t"""

    _fields_ = [("start_sec", c_float), ("end_sec", c_float), ("speaker_tag", c_int32)]


def _find_library() -> str:
    if path := os.environ.get("PARLEY_LIBRARY"):
        return path
    bundled = NATIVE / "libparley.so.1"
    if bundled.exists():
        return str(bundled)
    if name := ctypes.util.find_library("parley"):
        return name
    raise ImportError("libparley was not found: install the wheel of this package, or set PARLEY_LIBRARY to libparley.so.1")


def find_model() -> str:
    """The path of the model that comes with the package or with the system's installation."""
    candidates = [os.environ.get("PARLEY_MODEL"), NATIVE / "parley.zx", "/usr/share/parley/parley.zx",
                  "/usr/local/share/parley/parley.zx"]
    for candidate in candidates:
        if candidate and os.path.exists(candidate):
            return str(candidate)
    raise FileNotFoundError("the model parley.zx was not found: name one, or set PARLEY_MODEL")


def _load() -> ctypes.CDLL:
    library = ctypes.CDLL(_find_library())  # CDLL: Python's lock is released during calls
    segments = POINTER(POINTER(CSegment))
    for name, result, arguments in (
        ("zx_parley_init", c_int32, [c_char_p, POINTER(c_void_p)]),
        ("zx_parley_process", c_int32, [c_void_p, POINTER(c_int16), c_int32, POINTER(c_int32), segments]),
        ("zx_parley_process_file", c_int32, [c_void_p, c_char_p, POINTER(c_int32), segments]),
        ("zx_parley_segments_delete", None, [POINTER(CSegment)]),
        ("zx_parley_delete", None, [c_void_p]),
        ("zx_parley_version", c_char_p, []),
        ("zx_sample_rate", c_int32, []),
        ("zx_status_to_string", c_char_p, [c_int32]),
        ("zx_get_error_stack", c_int32, [POINTER(POINTER(c_char_p)), POINTER(c_int32)]),
        ("zx_free_error_stack", None, [POINTER(c_char_p)]),
        ("zx_log_disable", None, []),
    ):
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    library.zx_log_disable()
    return library


library = _load()
