"""python -m parley FILE...: who spoke when, in every format of the command line tool."""
import argparse
import sys
from typing import List, Optional

from . import FORMATS, Diarizer, ParleyError, version
from ._library import OPTIONS

KEYWORDS = {"speakers": "num_speakers", "threshold": "thresholds"}  # where they differ from the option's name


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m parley", description="Who spoke when in audio files.")
    parser.add_argument("files", nargs="+", metavar="FILE")
    parser.add_argument("--format", choices=FORMATS, default="text")
    parser.add_argument("--model", help="a model file instead of the package's own")
    parser.add_argument("--version", action="version", version=version())
    keywords = {}
    for option in OPTIONS:
        name, value = option.name.decode(), option.value and option.value.decode()
        keywords[name.replace("-", "_")] = KEYWORDS.get(name, name.replace("-", "_"))
        how = dict(metavar=value) if value else dict(action="store_true")
        parser.add_argument("--" + name, help=option.purpose.decode(), **how)
    options = parser.parse_args(arguments)
    asked = {keywords[name]: value for name, value in vars(options).items() if name in keywords and value is not None}
    asked["refine"] = not asked.pop("no_refine", False)
    asked.setdefault("channels", "mix")
    status = 0
    try:
        with Diarizer(options.model) as diarizer:
            for path in options.files:
                try:
                    sys.stdout.buffer.write(diarizer.diarize(path, **asked).to_bytes(options.format))
                except (ParleyError, OSError) as error:
                    print(f"parley: {error}", file=sys.stderr)
                    status = 1
    except (ParleyError, OSError) as error:
        print(f"parley: {error}", file=sys.stderr)
        return 1
    return status


if __name__ == "__main__":
    sys.exit(main())
