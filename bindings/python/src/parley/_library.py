# SPDX-License-Identifier: Apache-2.0
"""The C interface (parley.h) by ctypes: the library beside this file, or one named by PARLEY_LIBRARY, or the
system's."""
import ctypes
import ctypes.util
import os
import pathlib
from ctypes import CFUNCTYPE, POINTER, c_char_p, c_double, c_float, c_int, c_int16, c_int32, c_int64, c_size_t, c_void_p

NATIVE = pathlib.Path(__file__).parent / "native"
OPTIONS_SIZE = 1024  # bytes: room for the record of options, which is filled by name alone
Progress = CFUNCTYPE(c_int, c_void_p, c_double)


class Option(ctypes.Structure):
    """parley_option"""

    _fields_ = [("name", c_char_p), ("value", c_char_p), ("purpose", c_char_p), ("minimum", c_double), ("maximum", c_double)]


class Format(ctypes.Structure):
    """parley_format"""

    _fields_ = [("name", c_char_p), ("extension", c_char_p), ("purpose", c_char_p), ("media_type", c_char_p)]


class CSegment(ctypes.Structure):
    """parley_segment"""

    _fields_ = [("start", c_double), ("end", c_double), ("speaker", c_int32), ("confidence", c_double)]


class CSpeaker(ctypes.Structure):
    """parley_speaker"""

    _fields_ = [("name", c_char_p), ("seconds", c_double), ("embedding", POINTER(c_float)), ("embedding_size", c_int32), ("similarity", c_double)]


class CWord(ctypes.Structure):
    """parley_word"""

    _fields_ = [("start", c_double), ("end", c_double), ("text", c_char_p), ("speaker", c_char_p)]


class CTranscription(ctypes.Structure):
    """parley_transcription"""

    _fields_ = [("size", c_size_t), ("recognizer", c_char_p), ("arguments", POINTER(c_char_p)), ("num_arguments", c_int32),
                ("time_limit", c_double), ("by_turn", c_int32), ("rule", c_int32), ("reach", c_double)]


class CTurn(ctypes.Structure):
    """parley_turn"""

    _fields_ = [("start", c_double), ("end", c_double), ("speaker", c_char_p)]


class CScore(ctypes.Structure):
    """parley_score"""

    _fields_ = [("speech", c_double), ("missed", c_double), ("false_alarm", c_double), ("confusion", c_double),
                ("jaccard_errors", c_double), ("num_speakers", c_int32), ("num_found", c_int32)]


def _find_library() -> str:
    if path := os.environ.get("PARLEY_LIBRARY"):
        return path
    bundled = NATIVE / "libparley-diarization.so.1"
    if bundled.exists():
        return str(bundled)
    if name := ctypes.util.find_library("parley-diarization"):
        return name
    raise ImportError("libparley-diarization was not found: install the wheel of this package, or set PARLEY_LIBRARY to "
                      "libparley-diarization.so.1")


def _load() -> ctypes.CDLL:
    library = ctypes.CDLL(_find_library())  # CDLL: Python's lock is released during calls
    handle, text, size = POINTER(c_void_p), POINTER(c_void_p), POINTER(c_size_t)
    turns = POINTER(CTurn)
    for name, result, arguments in (
        ("parley_message", c_char_p, []),
        ("parley_details", c_char_p, []),
        ("parley_version", c_char_p, []),
        ("parley_options_init", None, [c_void_p, c_size_t]),
        ("parley_option_at", POINTER(Option), [c_int32]),
        ("parley_options_set", c_int32, [c_void_p, c_char_p, c_char_p]),
        ("parley_open", c_int32, [c_char_p, handle]),
        ("parley_close", None, [c_void_p]),
        ("parley_diarize_file", c_int32, [c_void_p, c_char_p, c_void_p, Progress, c_void_p, handle]),
        ("parley_diarize_memory", c_int32, [c_void_p, c_char_p, c_size_t, c_char_p, c_void_p, Progress, c_void_p, handle]),
        ("parley_diarize_samples", c_int32, [c_void_p, POINTER(c_int16), c_int64, c_int32, c_int32, c_char_p, c_void_p,
                                             Progress, c_void_p, handle]),
        ("parley_listen", c_int32, [c_void_p, c_char_p, c_int32, c_int32, c_void_p, handle]),
        ("parley_session_feed", c_int32, [c_void_p, POINTER(c_int16), c_int64]),
        ("parley_session_update", c_int32, [c_void_p, c_double, handle]),
        ("parley_session_end", c_int32, [c_void_p, handle]),
        ("parley_session_delete", None, [c_void_p]),
        ("parley_recluster", c_int32, [c_void_p, c_void_p, c_void_p, handle]),
        ("parley_write_embeddings", c_int32, [c_void_p, text, size]),
        ("parley_read_embeddings", c_int32, [c_void_p, c_char_p, c_size_t, c_char_p, c_void_p, handle]),
        ("parley_result_delete", None, [c_void_p]),
        ("parley_result_duration", c_double, [c_void_p]),
        ("parley_result_num_segments", c_int32, [c_void_p]),
        ("parley_result_num_speakers", c_int32, [c_void_p]),
        ("parley_result_segment", CSegment, [c_void_p, c_int32]),
        ("parley_result_speaker", CSpeaker, [c_void_p, c_int32]),
        ("parley_result_waveform", POINTER(c_float), [c_void_p, POINTER(c_int32), POINTER(c_int32)]),
        ("parley_result_note", c_char_p, [c_void_p]),
        ("parley_result_rename", c_int32, [c_void_p, c_char_p]),
        ("parley_result_name_voices", c_int32, [c_void_p, c_char_p, c_double]),
        ("parley_voices_add", c_int32, [c_char_p, c_char_p, c_void_p, c_int32, c_double, c_double, text]),
        ("parley_voices_remove", c_int32, [c_char_p, c_char_p, text]),
        ("parley_voices_at", c_int32, [c_char_p, c_int32, text, POINTER(c_int32)]),
        ("parley_voices_sample_at", c_int32, [c_char_p, c_int32, c_int32, POINTER(c_double), c_char_p, text]),
        ("parley_result_link_audio", c_int32, [c_void_p, c_char_p, c_int64]),
        ("parley_url_of_path", c_int32, [c_char_p, text]),
        ("parley_read_result", c_int32, [c_char_p, c_size_t, c_char_p, handle]),
        ("parley_result_read_audio", c_int32, [c_void_p, c_void_p, c_char_p, c_void_p, Progress, c_void_p]),
        ("parley_result_add_words", c_int32, [c_void_p, c_char_p, c_size_t, c_double, c_int32]),
        ("parley_result_num_words", c_int32, [c_void_p]),
        ("parley_result_word", CWord, [c_void_p, c_int32]),
        ("parley_transcription_init", None, [POINTER(CTranscription), c_size_t]),
        ("parley_transcribe", c_int32, [c_void_p, c_void_p, c_char_p, POINTER(CTranscription), c_void_p, Progress, c_void_p]),
        ("parley_transcript_format_at", POINTER(Format), [c_int32]),
        ("parley_write_words", c_int32, [c_void_p, c_char_p, text, size]),
        ("parley_format_at", POINTER(Format), [c_int32]),
        ("parley_write_text", c_int32, [c_void_p, c_char_p, text, size]),
        ("parley_free", None, [c_void_p]),
        ("parley_color", c_char_p, [c_int32]),
        ("parley_assign", c_int32, [c_char_p, c_size_t, turns, c_int32, c_double, c_char_p, text, size]),
        ("parley_match", c_int32, [POINTER(c_float), c_int32, POINTER(c_float), c_int32, c_int32, c_double, POINTER(c_int32),
                                   POINTER(c_double)]),
        ("parley_score_turns", c_int32, [turns, c_int32, turns, c_int32, POINTER(c_double), c_int32, c_double, c_int32,
                                         POINTER(CScore)]),
    ):
        function = getattr(library, name)
        function.restype = result
        function.argtypes = arguments
    return library


library = _load()


def _table(at, count=0):
    found = []
    while entry := at(len(found)):
        found.append(entry.contents)
    return found


OPTIONS = _table(library.parley_option_at)
FORMATS = _table(library.parley_format_at)
TRANSCRIPT_FORMATS = _table(library.parley_transcript_format_at)
