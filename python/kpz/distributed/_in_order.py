"""Results handed on in input order: tasks end in any order, the caller
(the Summary, on_result, the lines of the command line) sees input 0, 1,
2 ... each as soon as it and every earlier one are there."""

from typing import Callable, Dict, Optional

from ._progress import Progress
from ._results import Result, Summary


class ResultsInOrder:
    """Holds each Result put until every earlier input's is there, then
    hands it on: counted by `summary`, given to `on_result`, the bar taken
    off the line first and drawn again after. Holds only the Results that
    wait for an earlier one."""

    def __init__(self, summary: Summary, on_result: Optional[Callable[[Result], None]],
                 bar: Progress) -> None:
        self.summary = summary
        self._on_result = on_result
        self._bar = bar
        self._ready: Dict[int, Result] = {}
        self.delivered = 0  # inputs handed on: 0 .. delivered - 1

    def put(self, r: Result) -> None:
        """Input r.index's Result, in any order; each input once."""
        self._ready[r.index] = r

    def hand_on(self, found: int, more: bool) -> None:
        """Hands on every Result whose turn has come, then draws the bar:
        `found` inputs so far, `more` while others may still be found."""
        while self.delivered in self._ready:
            r = self._ready.pop(self.delivered)
            self._bar.clear()
            self.summary._add(r)
            if self._on_result is not None:
                self._on_result(r)
            self.delivered += 1
        self._bar.update(self.delivered, found, more)

    def waiting(self) -> int:
        """Results held for an earlier one."""
        return len(self._ready)
