"""Who said which word: merging with a transcript."""
from __future__ import annotations

from typing import Any, Dict, Iterable, List, Mapping, Optional, Sequence, Union

from ._results import Segment


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
    return [{**word, "speaker": _speaker_at(float(word["start"]), float(word["end"]), segments)} for word in words]


def _speaker_at(start: float, end: float, segments: Sequence[Segment]) -> Optional[int]:
    overlaps: Dict[int, float] = {}
    for segment in segments:
        overlap = min(end, segment.end) - max(start, segment.start)
        if overlap > 0:
            overlaps[segment.speaker] = overlaps.get(segment.speaker, 0.0) + overlap
    if overlaps:
        return max(overlaps, key=lambda speaker: (overlaps[speaker], -speaker))
    middle = (start + end) / 2
    nearest = min(segments, key=lambda s: max(s.start - middle, middle - s.end), default=None)
    return nearest.speaker if nearest else None
