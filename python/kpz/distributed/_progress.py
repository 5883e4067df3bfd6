"""kpz's progress bar on standard error, drawn by the client."""

import os
import time
from typing import Any, Callable, Optional

from kpz._kpz import kit


class Progress:
    """The bar for a run of `total` files on `stream`, drawn when the stream
    is a terminal and the run is long (kit.progress_is_long), redrawn at most
    every kit.PROGRESS_REDRAW_MS. `clock` gives seconds (a test gives its own).
    A run whose inputs are still being found gives update() the number found
    so far and more=True: the bar shows that number with a '+' after it.
    The bar's text (count, rate, time left) is kpz's, drawn by the kit
    (kit.progress_line)."""

    def __init__(self, total: int, stream: Any,
                 clock: Callable[[], float] = time.monotonic) -> None:
        self._total = total
        self._stream = stream
        self._clock = clock
        self._enabled = stream is not None and hasattr(stream, "isatty") and stream.isatty()
        self._start = clock()
        self._last = None
        self.shown = False

    def update(self, done: int, total: Optional[int] = None, more: bool = False) -> None:
        if total is not None:
            self._total = total
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
