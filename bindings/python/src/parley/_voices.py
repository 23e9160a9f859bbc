# SPDX-License-Identifier: Apache-2.0
"""People who are known from earlier recordings."""
from __future__ import annotations

import ctypes
import os
import pathlib
from ctypes import byref, c_char, c_double, c_int32, c_void_p
from typing import Any, Callable, Dict, List, NamedTuple, Optional, Union

from ._errors import check
from ._library import library
from ._results import Diarization


class Sample(NamedTuple):
    """What is remembered of a person."""

    seconds: float
    """Of speech; 0 in files that do not tell."""
    date: str
    """On which it was added, such as "2025-01-31"."""
    source: str
    """The recording's name."""


def _text_of(call: Callable[..., int], *arguments: Any) -> Optional[str]:
    text = c_void_p()
    check(call(*arguments, byref(text)))
    if not text:
        return None
    try:
        return ctypes.string_at(text.value).decode()
    finally:
        library.parley_free(text)


class Voices:
    """A list of voices, as `parley voices` keeps it in a file; give it to diarize(voices=...), and who is near enough to one of
    them gets that name.

    text: the content of such a file; "" is the empty list.
    """

    def __init__(self, text: str = ""):
        self._text = text
        self.people()  # what is no list is refused here

    @classmethod
    def load(cls, path: Union[str, "os.PathLike[str]"]) -> "Voices":
        return cls(pathlib.Path(path).read_text(encoding="utf-8"))

    def save(self, path: Union[str, "os.PathLike[str]"]) -> None:
        """Writes the file, for its owner alone: it tells what people sound like."""
        with open(path, "w", encoding="utf-8", opener=lambda name, flags: os.open(name, flags, 0o600)) as file:
            file.write(self._text)

    def add(self, name: str, result: Diarization, speaker: int, start: float = 0, end: float = 0) -> None:
        """Remembers a speaker (1, 2, ...) of a result under a name: what is said between start and end, in seconds, of a result of
        diarize(keep_embeddings=True), or without these all of it. At least 3 s."""
        self._text = _text_of(library.parley_voices_add, self._text.encode(), name.encode(), result._address(), speaker - 1, start, end)

    def remove(self, name: str) -> None:
        """Forgets a person."""
        self._text = _text_of(library.parley_voices_remove, self._text.encode(), name.encode())

    def people(self) -> Dict[str, List[Sample]]:
        """Everybody's samples."""
        people: Dict[str, List[Sample]] = {}
        text = self._text.encode()
        while (name := _text_of(lambda out: library.parley_voices_at(text, len(people), out, None))) is not None:
            samples: List[Sample] = []
            seconds, date = c_double(), (c_char * 11)()
            while (source := _text_of(library.parley_voices_sample_at, text, len(people), len(samples), byref(seconds), date)) is not None:
                samples.append(Sample(seconds.value, date.value.decode(), source))
            people[name] = samples
        return people

    def __str__(self) -> str:
        """The content of the file."""
        return self._text

    def __repr__(self) -> str:
        return f"<Voices of {', '.join(self.people()) or 'nobody'}>"
