"""kpz's progress bar on standard error, drawn by the client."""

import os
import time
from typing import Any, Callable, Optional, Sequence

from kpz._kpz import kit


class Progress:
    """The bar for a run of `total` files on `stream`, drawn when the stream
    is a terminal and the run is long (kit.progress_is_long), redrawn at most
    every kit.PROGRESS_REDRAW_MS. `clock` gives seconds (a test gives its own).
    A run whose inputs are still being found gives update() the number found
    so far and more=True: the bar shows that number with a '+' after it,
    unless count_ahead() counts them ahead of the work, as kpz does: then
    the total is the larger of the two, and the '+' goes once the count has
    ended. The bar's text (count, rate, time left) is kpz's, drawn by the kit
    (kit.progress_line)."""

    def __init__(self, total: int, stream: Any,
                 clock: Callable[[], float] = time.monotonic) -> None:
        self._total = total
        self._stream = stream
        self._clock = clock
        self._enabled = stream is not None and hasattr(stream, "isatty") and stream.isatty()
        self._start = clock()
        self._last = None
        self._count: Any = None
        self.shown = False

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
        now = self._clock()
        if not kit.progress_is_long(self._total, int((now - self._start) * 1000)):
            return
        if (more or done < self._total) and self._last is not None and \
                (now - self._last) * 1000 < kit.PROGRESS_REDRAW_MS:
            return
        try:
            width = os.get_terminal_size(self._stream.fileno()).columns
        except (OSError, ValueError, AttributeError):  # not a terminal after all, or no fileno
            width = 0  # unknown: the kit assumes 80
        # The kit draws the bar (kpz's own): any width, 0 and absurd ones
        # included, gives a line or nothing.
        line = kit.progress_line(done, self._total, width, more=more,
                                 elapsed_ms=int((now - self._start) * 1000))
        self._last = now
        if not line:
            self.clear()  # too narrow for the count: no bar
            return
        self._stream.write(line)
        self._stream.flush()
        self.shown = True

    def clear(self) -> None:
        if self.shown:
            self._stream.write("\r\x1b[K")
            self._stream.flush()
            self.shown = False

    def close(self) -> None:
        """Clears the bar and stops the count ahead (the run has ended)."""
        self.clear()
        if self._count is not None:
            self._count.close()
