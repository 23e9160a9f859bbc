"""Who spoke when, on your own machine.

>>> import parley
>>> with parley.Diarizer() as diarizer:
...     result = diarizer.diarize("meeting.wav")
>>> for segment in result:
...     print(f"{segment.start:7.2f} {segment.end:7.2f} speaker {segment.speaker}")

One Diarizer holds the loaded network (about 4 MB) and serves any number of recordings, one at a time; Diarizers in
different threads run side by side, and Python's other threads run on meanwhile.
"""
from ._engine import SAMPLE_RATE, Diarizer, ParleyError, Status, version
from ._results import Diarization, Segment
from ._words import assign_speakers

__all__ = ["SAMPLE_RATE", "Diarization", "Diarizer", "ParleyError", "Segment", "Status", "assign_speakers", "version"]
__version__ = "1.0.0"
