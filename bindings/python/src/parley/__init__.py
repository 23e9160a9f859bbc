# SPDX-License-Identifier: Apache-2.0
"""Who spoke when, on your own machine.

>>> import parley
>>> with parley.Diarizer() as diarizer:
...     result = diarizer.diarize("meeting.wav")
>>> for segment in result:
...     print(f"{segment.start:7.2f} {segment.end:7.2f} speaker {segment.speaker}")

One Diarizer holds the loaded network (about 4 MB) and serves any number of recordings, one at a time; Diarizers in
different threads run side by side, and Python's other threads run on meanwhile.
"""
from ._engine import SAMPLE_RATE, Diarizer, version
from ._errors import ParleyError, Status
from ._library import FORMATS as _FORMATS
from ._library import TRANSCRIPT_FORMATS as _TRANSCRIPT_FORMATS
from ._results import Diarization, Segment, Word, read
from ._voices import Sample, Voices
from ._words import Score, assign_speakers, match, score

FORMATS = [f.name.decode() for f in _FORMATS]
"""In which a result can be written."""
TRANSCRIPT_FORMATS = [f.name.decode() for f in _TRANSCRIPT_FORMATS]
"""In which its words can."""
__all__ = ["FORMATS", "SAMPLE_RATE", "TRANSCRIPT_FORMATS", "Diarization", "Diarizer", "ParleyError", "Sample", "Score", "Segment", "Status",
           "Voices", "Word", "assign_speakers", "match", "read", "score", "transcribe", "version"]
__version__ = version()


def transcribe(path, recognizer="pocketsphinx", arguments=(), **options):
    """Who said what in a recording: Diarizer.transcribe with the shipped model."""
    with Diarizer() as diarizer:
        return diarizer.transcribe(path, recognizer, arguments, **options)
