"""kpz's progress bar on standard error, drawn by the client."""

import os
import time
from typing import Any, Callable, Optional, Sequence

from kpz._kpz import kit


class Progress:
    """The bar for a run of `total` files on `stream`, drawn when the stream
    is a terminal. `clock` gives seconds (a test gives its own). A run whose
    inputs are still being found gives update() the number found so far and
    more=True: the bar shows that number with a '+' after it, unless
    count_ahead() counts them ahead of the work, as kpz does: then the total
    is the larger of the two, and the '+' goes once the count has ended.
    The bar is kpz's own (kit.ProgressBar): its text, when it is drawn (once
    the run is long, at most every kit.PROGRESS_REDRAW_MS, the end always)
    and how it is cleared; this class writes the kit's bytes to the stream."""

    def __init__(self, total: int, stream: Any,
                 clock: Callable[[], float] = time.monotonic) -> None:
        self._total = total
        self._stream = stream
        self._enabled = stream is not None and hasattr(stream, "isatty") and stream.isatty()
        self._bar = kit.ProgressBar(self._enabled, clock)
        self._count: Any = None

    def count_ahead(self, sources: Sequence[str], recursive: bool,
                    extensions: Sequence[str]) -> None:
        """Counts the files `sources` name ahead of the work, for the bar's
        total, when the bar is drawn and every source is local: files named
        are counted at once; folders and patterns by a second walk of their
        own on a thread (kit.InputCount), which keeps only its count (bounded
        memory) and which close() stops. A remote source (an http(s)://
        listing, an s3:// prefix, any fsspec URL) would cost a second
        listing: with one, the bar's total is the count found so far."""
        from kpz import _s3

        from ._inputs import is_url, local_path

        if not self._enabled or self._count is not None:
            return
        names = [os.fspath(s) for s in sources]
        if any(_s3.is_s3(n) or is_url(n) for n in names):
            return
        self._count = kit.InputCount([local_path(n) for n in names], recursive,
                                     list(extensions))

    def update(self, done: int, total: Optional[int] = None, more: bool = False) -> None:
        if total is not None:
            self._total = total
        if more and self._count is not None:
            self._total = max(self._total, self._count.counted)
            more = not self._count.finished
        if not self._enabled:
            return
        try:
            width = os.get_terminal_size(self._stream.fileno()).columns
        except (OSError, ValueError, AttributeError):  # not a terminal after all, or no fileno
            width = 0  # unknown: the kit assumes 80
        # Any width, 0 and absurd ones included, gives a line or nothing.
        self._put(self._bar.next(done, self._total, more, width))

    @property
    def shown(self) -> bool:
        """True while the bar is on the line."""
        return self._bar.shown

    def clear(self) -> None:
        """Takes the bar off the line when it is shown."""
        self._put(self._bar.clearing())

    def _put(self, text: str) -> None:
        if text:
            self._stream.write(text)
            self._stream.flush()

    def close(self) -> None:
        """Clears the bar and stops the count ahead (the run has ended)."""
        self.clear()
        if self._count is not None:
            self._count.close()
