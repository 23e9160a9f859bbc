# SPDX-License-Identifier: Apache-2.0
"""Results put to use: who said which word, who is who in two recordings, how right a result is."""
from __future__ import annotations

import ctypes
import json
from ctypes import POINTER, byref, c_double, c_float, c_int32, c_size_t, c_void_p
from typing import Any, Dict, Iterable, List, Mapping, NamedTuple, Sequence, Tuple, Union

import numpy as np

from ._errors import check
from ._library import CScore, CTurn, library
from ._results import Diarization, Segment

_ANYWHERE = 1e9  # seconds: a word belongs to the nearest segment however far it is


def _turns(segments: Iterable[Tuple[float, float, Any]]) -> Any:
    found = list(segments)
    return (CTurn * len(found))(*(CTurn(start, end, str(speaker).encode()) for start, end, speaker in found)), len(found)


def assign_speakers(words: Union[Mapping[str, Any], Iterable[Mapping[str, Any]]],
                    segments: Sequence[Segment]) -> List[Dict[str, Any]]:
    """Gives every word, or caption, the speaker who talks during most of it.

    words: dictionaries with "start" and "end" in seconds and whatever else they hold; or the result of a Whisper-style
        recogniser, whose words (or else segments) are taken.
    segments: what Diarizer.diarize returned.

    Returns copies with "speaker": the number, or where nobody talks that of the segment nearest to the word, or None
    without any segment.
    """
    if isinstance(words, Mapping):
        parts = words.get("segments", [])
        words = [word for part in parts for word in part.get("words") or [part]] if parts else words.get("words", [])
    words = list(words)
    # Words without times (numbers, often) go with their neighbours.
    times = json.dumps({"words": [{"word": "x", **{k: float(w[k]) for k in ("start", "end") if w.get(k) is not None}} for w in words]}).encode()
    text, size = c_void_p(), c_size_t()
    check(library.parley_assign(times, len(times), *_turns(segments), _ANYWHERE, None, byref(text), byref(size)))
    try:
        results = json.loads(ctypes.string_at(text.value, size.value))["words"]
    finally:
        library.parley_free(text)
    numbers = [a.get("speaker") for a in results]
    return [{**word, "speaker": None if number is None else int(number)} for word, number in zip(words, numbers)]


def match(here: Diarization, there: Diarization, threshold: float = 0.5) -> Dict[int, Tuple[int, float]]:
    """Which speakers of two recordings are the same: {speaker here: (speaker there, cosine)}, each used once, so that the sum
    of the cosines above the threshold is largest."""
    ours, theirs = (np.array(list(d.embeddings.values()), np.float32) for d in (here, there))
    if not len(ours) or not len(theirs):
        return {}
    others, cosines = (c_int32 * len(ours))(), (c_double * len(ours))()
    address = lambda a: a.ctypes.data_as(POINTER(c_float))
    check(library.parley_match(address(ours), len(ours), address(theirs), len(theirs), ours.shape[1], threshold, others,
                               cosines))
    return {i + 1: (others[i] + 1, cosines[i]) for i in range(len(ours)) if others[i] >= 0}


class Score(NamedTuple):
    """Seconds of a recording's errors."""

    speech: float
    missed: float
    false_alarm: float
    confusion: float
    num_speakers: int
    num_found: int

    @property
    def der(self) -> float:
        """The diarization error rate: 1 is 100 %."""
        errors = self.missed + self.false_alarm + self.confusion
        return errors / self.speech if self.speech else float("inf") if errors else 0.0


def score(reference: Iterable[Tuple[float, float, Any]], hypothesis: Iterable[Tuple[float, float, Any]],
          collar: float = 0.25, skip_overlap: bool = False) -> Score:
    """How well a hypothesis agrees with a reference, both (start, end, speaker): `collar` seconds to either side of the
    reference's boundaries do not count."""
    found = CScore()
    check(library.parley_score_turns(*_turns(reference), *_turns(hypothesis), None, 0, collar, skip_overlap, byref(found)))
    return Score(found.speech, found.missed, found.false_alarm, found.confusion, found.num_speakers, found.num_found)
