# SPDX-License-Identifier: Apache-2.0
"""python -m parley FILE...: who spoke when, in every format of the command line tool."""
import argparse
import os
import sys
from pathlib import Path
from typing import List, Optional

from . import FORMATS, Diarizer, ParleyError, Voices, version
from ._library import FORMATS as _FORMATS
from ._library import OPTIONS

KEYWORDS = {"speakers": "num_speakers", "threshold": "thresholds"}  # where they differ from the option's name


def main(arguments: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(prog="python -m parley", description="Who spoke when in audio files.")
    parser.add_argument("files", nargs="+", metavar="FILE")
    parser.add_argument("-f", "--format", choices=FORMATS, default="text")
    parser.add_argument("-o", "--output-dir", metavar="DIR", help="folder for the results; otherwise standard output")
    parser.add_argument("-m", "--model", metavar="FILE", help="model file instead of the package's own")
    parser.add_argument("--voices", metavar="FILE", default=os.environ.get("PARLEY_VOICES"),
                        help="known voices, whose names are used ($PARLEY_VOICES)")
    parser.add_argument("--version", action="version", version=version())
    keywords = {}
    for option in OPTIONS:
        name, value = option.name.decode(), option.value and option.value.decode()
        keywords[name.replace("-", "_")] = KEYWORDS.get(name, name.replace("-", "_"))
        how = dict(metavar=value) if value else dict(action="store_true")
        short = {"speakers": ["-n"], "jobs": ["-j"]}.get(name, [])
        parser.add_argument(*short, "--" + name, help=option.purpose.decode(), **how)
    options = parser.parse_args(arguments)
    asked = {keywords[name]: value for name, value in vars(options).items() if name in keywords and value is not None}
    asked["refine"] = not asked.pop("no_refine", False)
    asked.setdefault("channels", "mix")
    status = 0
    try:
        if options.voices and os.path.exists(options.voices):
            asked["voices"] = Voices.load(options.voices)
        extension = next(f.extension.decode() for f in _FORMATS if f.name.decode() == options.format)
        with Diarizer(options.model) as diarizer:
            for path in options.files:
                try:
                    result = diarizer.diarize(path, **asked)
                    if options.output_dir is None:
                        sys.stdout.buffer.write(result.to_bytes(options.format))
                        continue
                    Path(options.output_dir).mkdir(parents=True, exist_ok=True)
                    result.write(Path(options.output_dir) / (Path(path).stem + extension), options.format)
                except (ParleyError, OSError) as error:
                    print(f"parley: {error}", file=sys.stderr)
                    status = 1
    except (ParleyError, OSError) as error:
        print(f"parley: {error}", file=sys.stderr)
        return 1
    return status


if __name__ == "__main__":
    sys.exit(main())
