# SPDX-License-Identifier: Apache-2.0
"""The tables of docs/performance.md, which its measuring programs write."""
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent


def write_tables(tables):
    path = ROOT / "docs" / "performance.md"
    text = path.read_text()
    for name, table in tables.items():
        text = re.sub(f"(<!-- {name} -->\n).*?(<!-- end -->)", lambda m: m[1] + table + "\n" + m[2], text, flags=re.S)
    path.write_text(text)
