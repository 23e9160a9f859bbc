"""python -m parley FILE...: who spoke when, as text, RTTM, JSON or CSV."""
import argparse
import json
import pathlib
import sys
from typing import List, Optional

from . import Diarization, Diarizer, ParleyError, version


def _format(result: Diarization, path: str, form: str) -> str:
    if form == "rttm":
        return result.to_rttm(pathlib.Path(path).stem)
    if form == "json":
        return json.dumps({"file": path, "segments": [segment._asdict() for segment in result]}) + "\n"
    if form == "csv":
        return "start,end,speaker\n" + "".join(f"{s.start:.3f},{s.end:.3f},{s.speaker}\n" for s in result)
    return "".join(f"{s.start:10.3f} {s.end:10.3f}  speaker {s.speaker}\n" for s in result)


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m parley", description="Who spoke when in audio files.")
    parser.add_argument("files", nargs="+", metavar="FILE")
    parser.add_argument("--format", choices=("text", "rttm", "json", "csv"), default="text")
    parser.add_argument("--model", help="a model file instead of the package's own")
    parser.add_argument("--version", action="version", version=version())
    options = parser.parse_args(arguments)
    status = 0
    try:
        with Diarizer(options.model) as diarizer:
            for path in options.files:
                try:
                    sys.stdout.write(_format(diarizer.diarize(path), path, options.format))
                except ParleyError as error:
                    print(f"parley: {error}", file=sys.stderr)
                    status = 1
    except ParleyError as error:
        print(f"parley: {error}", file=sys.stderr)
        return 1
    return status


if __name__ == "__main__":
    sys.exit(main())
