"""Who owns an output name that several inputs of a run share.

The rule, the same for kpz, kpz.remote.fetch, python3 -m kpz and
kpz.distributed: the first input, in input order, whose output is written
owns the name. An input that fails (it cannot be read, holds no such
picture, its output cannot be written) takes nothing, and the next input of
the name may write it. A later input of a name already written is refused
in the kit's words ("not written: out/a.preview.jpg is already written by
b/a.kpz"), with the summary's reason kit.ALREADY_WRITTEN_REASON.

    claims = Claims()
    for each input in input order:
        refusal = claims.refusal(name, shown)   # None: the name is free
        if refusal: fail the input with it, ALREADY_WRITTEN_REASON
        elif written: claims.wrote(name, source)

Inputs whose outcomes come in any order (many read at once) are put back in
the order the rule needs by InOrder: each input's turn comes once every
earlier input of its name has had its own.

Claims keeps the names written as digests (kit.NameSet, 12 to 24 bytes
each) and the inputs that wrote the last `kept` of them; a name written
longer ago is refused all the same, its writer told as "an earlier input".
"""

import collections
from typing import Any, Dict, Hashable, List, Optional, Sequence

from kpz._kpz import kit

# The summary's reason for an input refused its output name.
REASON = kit.ALREADY_WRITTEN_REASON


class Claims:
    """The names written so far in one run, and who wrote the recent ones."""

    def __init__(self, kept: int = 8192) -> None:
        self._written = kit.NameSet()
        self._writers: "collections.OrderedDict[str, str]" = collections.OrderedDict()
        self.kept = max(0, int(kept))

    def __contains__(self, name: str) -> bool:
        """True when an earlier input wrote `name`."""
        return name in self._written

    def wrote(self, name: str, source: str) -> None:
        """`source` wrote `name`: it owns it (the first writer only)."""
        if not self._written.add(name):
            return
        if self.kept:
            self._writers[name] = source
            while len(self._writers) > self.kept:
                self._writers.popitem(last=False)

    def refusal(self, name: str, shown: str) -> Optional[str]:
        """None when `name` is free; else the words refusing it to a later
        input, its output shown as `shown`: its writer named while kept,
        else "an earlier input"."""
        if name not in self._written:
            return None
        owner = self._writers.get(name)
        if owner is None:
            return kit.already_written_earlier_words(shown)
        return kit.already_written_words(shown, owner)


class InOrder:
    """Turns at output names taken in input order when the inputs end in
    any order. keys[i] is input i's name (None: it shares with nobody).
    ready(i, item) says input i has ended, with `item`; it returns the items
    whose turn has come, in the order to take them: item i once every
    earlier input of its name has been returned, then those that were
    waiting behind it. Holds only the items waiting."""

    def __init__(self, keys: Sequence[Optional[Hashable]]) -> None:
        last: Dict[Hashable, int] = {}
        self._previous: List[Optional[int]] = []
        for i, key in enumerate(keys):
            self._previous.append(None if key is None else last.get(key))
            if key is not None:
                last[key] = i
        self._done: set = set()
        self._parked: Dict[int, Any] = {}  # earlier input -> (index, item) waiting for it

    def ready(self, index: int, item: Any) -> List[Any]:
        earlier = self._previous[index]
        if earlier is not None and earlier not in self._done:
            self._parked[earlier] = (index, item)
            return []
        out = []
        while True:  # each pass takes one input; the chain is finite
            out.append(item)
            self._done.add(index)
            nxt = self._parked.pop(index, None)
            if nxt is None:
                return out
            index, item = nxt
