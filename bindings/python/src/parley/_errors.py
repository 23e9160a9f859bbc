# SPDX-License-Identifier: Apache-2.0
"""What goes wrong, as exceptions."""
import enum
from typing import List

from ._library import library


class Status(enum.IntEnum):
    """Why a call failed, as the C interface says it."""

    OK = 0
    OUT_OF_MEMORY = 1
    UNREADABLE = 2
    INVALID = 3
    CANCELLED = 4
    MISSING = 5
    FAILED = 7


class ParleyError(Exception):
    """A call failed; the text says what is wrong and what helps.

    status: why.
    messages: what the engine said about it, the innermost fault first.
    """

    def __init__(self, what: str, status: Status, messages: List[str]):
        self.status = status
        self.messages = messages
        super().__init__(what)


def check(status: int) -> None:
    if status == Status.OK:
        return
    what = library.parley_message().decode(errors="replace")
    if status == Status.OUT_OF_MEMORY:
        raise MemoryError(what)
    if status == Status.MISSING:
        raise FileNotFoundError(what)
    raise ParleyError(what, Status(status), library.parley_details().decode(errors="replace").splitlines())
