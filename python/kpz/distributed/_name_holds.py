"""Output names while a run's batches are on the cluster: which batch holds
each name, the inputs waiting for a name held by a batch already sent, and
the names written (kpz._claims: the first input written owns a name).

Inputs of one name in the same batch are settled by the task (run_batch),
in input order. An input whose name a batch already cut holds waits for that
batch's end: then it is refused when the name was written, else it goes
into the batch being filled, with the others that waited for it."""

from typing import Dict, Iterable, List, Optional, Tuple

from kpz._claims import Claims

from ._batches import Job

OPEN = -1  # the holder of a name whose inputs are in the batch being filled


class NameHolds:
    """The holds on the names of one run; `claims` keeps the names written."""

    def __init__(self, claims: Claims) -> None:
        self.claims = claims
        self._holders: Dict[str, int] = {}  # name -> id of the batch holding it, or OPEN
        self._waiting: Dict[str, List[Job]] = {}

    def holder(self, name: str) -> Optional[int]:
        """The batch holding `name`, OPEN, or None when none does."""
        return self._holders.get(name)

    def open(self, name: str) -> None:
        """`name`'s inputs go into the batch being filled."""
        self._holders[name] = OPEN

    def wait(self, job: Job) -> None:
        """`job` waits for the batch holding its name to end."""
        self._waiting.setdefault(job[2], []).append(job)

    def hold(self, bid: int, jobs: Iterable[Job]) -> None:
        """Batch `bid`, cut, holds the names of its `jobs`."""
        for _, _, name in jobs:
            self._holders[name] = bid

    def release(self, bid: int, names: Iterable[str]) -> Tuple[List[Job], List[Job]]:
        """Batch `bid` ended and its outputs written are in `claims`: its
        names are let go. Returns the inputs that waited for them, (those
        refused: their name was written; those to put in the batch being
        filled, whose names are OPEN again)."""
        refused: List[Job] = []
        reopened: List[Job] = []
        for name in dict.fromkeys(names):
            if self._holders.get(name) == bid:
                del self._holders[name]
            behind = self._waiting.pop(name, None)
            if not behind:
                continue
            if name in self.claims:
                refused.extend(behind)
            else:
                self._holders[name] = OPEN
                reopened.extend(behind)
        return refused, reopened

    def waiting(self) -> int:
        """Names with inputs waiting for them."""
        return len(self._waiting)
