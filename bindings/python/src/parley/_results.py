"""What a diarization is: segments, and what one does with them."""
from __future__ import annotations

import html
from typing import TYPE_CHECKING, Dict, List, NamedTuple, Tuple

if TYPE_CHECKING:
    import pandas

# Distinct for readers with any kind of colour vision (Okabe and Ito).
_COLORS = ("#0072B2", "#E69F00", "#009E73", "#CC79A7", "#56B4E9", "#D55E00", "#F0E442", "#888888")


class Segment(NamedTuple):
    """A stretch of one speaker."""

    start: float
    """Seconds from the start of the audio."""
    end: float
    """Seconds; the end of the segment's last frame of 32 ms."""
    speaker: int
    """1, 2, ... in order of appearance."""

    @property
    def duration(self) -> float:
        """Seconds."""
        return self.end - self.start


class Diarization(Tuple[Segment, ...]):
    """The segments of a recording in order of time: a tuple, with conversions."""

    @property
    def speakers(self) -> List[int]:
        """The speakers, in order."""
        return sorted({segment.speaker for segment in self})

    def talk_time(self) -> Dict[int, float]:
        """Seconds of speech of each speaker."""
        times = {speaker: 0.0 for speaker in self.speakers}
        for segment in self:
            times[segment.speaker] += segment.duration
        return times

    def to_rttm(self, recording: str = "recording") -> str:
        """Rich Transcription Time Marked lines, as scoring tools read them."""
        name = recording.replace(" ", "_")
        return "".join(f"SPEAKER {name} 1 {s.start:.3f} {s.duration:.3f} <NA> <NA> speaker_{s.speaker} <NA> <NA>\n"
                       for s in self)

    def to_dataframe(self) -> "pandas.DataFrame":
        """A pandas table with the columns start, end, duration (seconds) and speaker. Needs pandas."""
        import pandas

        return pandas.DataFrame([(s.start, s.end, s.duration, s.speaker) for s in self],
                                columns=["start", "end", "duration", "speaker"])

    def _repr_html_(self) -> str:
        """A lane per speaker, for notebooks."""
        if not self:
            return "<p>Nobody speaks.</p>"
        end = max(segment.end for segment in self)
        lanes = []
        for row, (speaker, seconds) in enumerate(self.talk_time().items()):
            color = _COLORS[row % len(_COLORS)]
            bars = "".join(
                f'<rect x="{1000 * s.start / end:.2f}" y="{24 * row + 4}" width="{max(1000 * s.duration / end, 0.5):.2f}" '
                f'height="16" fill="{color}"><title>{html.escape(f"speaker {s.speaker}: {s.start:.2f} to {s.end:.2f} s")}'
                "</title></rect>" for s in self if s.speaker == speaker)
            lanes.append(f'{bars}<text x="1010" y="{24 * row + 17}" font-size="13" fill="currentColor">speaker {speaker}: '
                         f"{seconds:.1f} s</text>")
        return (f'<svg viewBox="0 0 1180 {24 * len(lanes)}" width="100%" role="img" font-family="sans-serif">'
                f'{"".join(lanes)}</svg>')
