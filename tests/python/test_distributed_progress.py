"""kpz.distributed's progress bar on a clock the test controls: not drawn
for a short run until it lasts over a second, redrawn at most every
kit.PROGRESS_REDRAW_MS, drawn at the end, cleared, and never drawn on a
stream that is not a terminal."""

import io

from kpz._kpz import kit
from kpz.distributed._progress import Progress


class Terminal(io.StringIO):
    def isatty(self):
        return True


class Clock:
    def __init__(self):
        self.now = 100.0

    def __call__(self):
        return self.now


def test_bar_drawn_when_long_at_most_every_redraw_interval():
    clock, term = Clock(), Terminal()
    bar = Progress(10, term, clock)
    bar.update(1)
    assert term.getvalue() == ""  # 10 files, no time passed: a short run
    clock.now += 1.001
    bar.update(2)
    assert term.getvalue() == "\r" + kit.progress_text(2, 10, 80)
    clock.now += (kit.PROGRESS_REDRAW_MS - 1) / 1000
    bar.update(3)
    assert term.getvalue().count("\r") == 1  # too soon to draw again
    clock.now += 2 / 1000
    bar.update(4)
    assert term.getvalue().endswith("\r" + kit.progress_text(4, 10, 80))
    bar.update(10)  # the end is always drawn
    assert term.getvalue().endswith("\r" + kit.progress_text(10, 10, 80))
    bar.clear()
    assert term.getvalue().endswith("\r\x1b[K") and not bar.shown


def test_many_files_drawn_at_once_and_never_on_a_file():
    clock, term = Clock(), Terminal()
    Progress(51, term, clock).update(1)
    assert term.getvalue() == "\r" + kit.progress_text(1, 51, 80)
    plain = io.StringIO()
    bar = Progress(51, plain, clock)
    bar.update(1)
    clock.now += 5
    bar.update(51)
    bar.clear()
    assert plain.getvalue() == ""


def test_inputs_still_being_found_shown_with_a_plus():
    clock, term = Clock(), Terminal()
    bar = Progress(0, term, clock)
    bar.update(10, 60, more=True)
    assert term.getvalue() == "\r" + kit.progress_text(10, 60, 79).replace("/60 files",
                                                                            "/60+ files")
    clock.now += 1
    bar.update(60, 75)  # all found
    assert term.getvalue().endswith("\r" + kit.progress_text(60, 75, 80))
