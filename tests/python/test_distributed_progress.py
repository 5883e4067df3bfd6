"""kpz.distributed's progress bar on a clock the test controls: not drawn
for a short run until it lasts over a second, redrawn at most every
kit.PROGRESS_REDRAW_MS, drawn at the end, cleared, and never drawn on a
stream that is not a terminal. Its text is kpz's, with the rate and the
time left; any terminal width gives a bar or none, never an error."""

import io
import os
import re

import pytest

from kpz._kpz import kit
from kpz.distributed import _progress
from kpz.distributed._progress import Progress


class Terminal(io.StringIO):
    def isatty(self):
        return True


class Clock:
    def __init__(self):
        self.now = 100.0

    def __call__(self):
        return self.now


def line(text):
    """The bar as kpz draws it over the line: carriage return, text, ESC [K."""
    return "\rkpz: " + text + "\x1b[K"


def test_bar_drawn_when_long_at_most_every_redraw_interval():
    clock, term = Clock(), Terminal()
    bar = Progress(10, term, clock)
    bar.update(1)
    assert term.getvalue() == ""  # 10 files, no time passed: a short run
    clock.now += 1.001
    bar.update(2)
    assert term.getvalue() == line("[########--------------------------------] 2/10 files, "
                                      "2.0/s, 0:04 left")
    clock.now += (kit.PROGRESS_REDRAW_MS - 1) / 1000
    bar.update(3)
    assert term.getvalue().count("\r") == 1  # too soon to draw again
    clock.now += 2 / 1000
    bar.update(4)
    assert kit.PROGRESS_REDRAW_MS == 100
    assert term.getvalue().endswith(line("[################------------------------] 4/10 files, "
                                         "3.6/s, 0:02 left"))
    bar.update(10)  # the end is always drawn
    assert term.getvalue().endswith(line("[########################################] 10/10 files, "
                                         "9.1/s"))
    bar.clear()
    assert term.getvalue().endswith("\r\x1b[K") and not bar.shown


def test_many_files_drawn_at_once_and_never_on_a_file():
    clock, term = Clock(), Terminal()
    Progress(51, term, clock).update(1)
    assert term.getvalue() == line("[----------------------------------------] 1/51 files")
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
    assert term.getvalue() == line("[######----------------------------------] 10/60+ files")
    assert "10/60+ files" in term.getvalue()
    clock.now += 1
    bar.update(60, 75)  # all found
    assert term.getvalue().endswith(line("[################################--------] 60/75 files, "
                                         "60.0/s, 0:00 left"))


def test_bar_tells_the_rate_and_the_time_left():
    clock, term = Clock(), Terminal()
    bar = Progress(100, term, clock)
    clock.now += 10
    bar.update(25)  # 25 files in 10 s: 2.5 a second, 75 more take 30 s
    assert term.getvalue().startswith("\rkpz: [")
    assert term.getvalue().endswith("] 25/100 files, 2.5/s, 0:30 left\x1b[K")


def _drawn(monkeypatch, columns):
    """What the bar draws for 0 then 49 of 51 files, a second apart, on a
    terminal of `columns` columns."""
    monkeypatch.setattr(_progress.os, "get_terminal_size",
                        lambda fd: os.terminal_size((columns, 24)))
    term = Terminal()
    term.fileno = lambda: 2
    clock = Clock()
    bar = Progress(51, term, clock)
    bar.update(0, 51, more=True)
    clock.now += 1
    bar.update(49, 51)
    return term.getvalue()


@pytest.mark.parametrize("columns", [0, -1, -5, 1, 3, 5, 12, 25, 40, 80, 1000, 10 ** 6, 2 ** 31,
                                     2 ** 64, 2 ** 80, 10 ** 30, -10 ** 30, -2 ** 80])
def test_any_terminal_width_draws_or_skips_the_bar(monkeypatch, columns):
    # A terminal of 0 columns is what `script` and some CI runners report.
    drawn = _drawn(monkeypatch, columns)
    if columns <= 0 or columns > 80:
        assert "49/51 files" in drawn  # unknown: 80 assumed; wide: the bar stays at most 40
        assert drawn.count("#") + drawn.count("-") <= 80
    else:  # within the line, one column spare, or nothing at all
        assert all(len(part.replace("\x1b[K", "")) < columns for part in drawn.split("\r"))
    if columns == 3:  # not even the count fits: nothing
        assert drawn.replace("\r", "").replace("\x1b[K", "") == ""


def test_an_unknown_width_draws_as_eighty_columns(monkeypatch):
    assert _drawn(monkeypatch, 0) == _drawn(monkeypatch, -1) == _drawn(monkeypatch, 80)


def test_skip_existing_words_are_the_kits():
    # kpz --skip-existing and kpz.distributed count skipped outputs in the
    # same words, kept once in the kit.
    from kpz.distributed import _results
    assert _results.SKIPPED_NOTE == "already present, not written again (--skip-existing)"
    assert _results.REWRITTEN_NOTE == (
        "written again, as the file present was not a whole JPEG (--skip-existing)")


# -- the total counted ahead of the work, as kpz counts it -------------------

def _files(folder, n, ext=".kpz"):
    folder.mkdir(parents=True, exist_ok=True)
    names = []
    for i in range(n):
        p = folder / ("f%03d%s" % (i, ext))
        p.write_bytes(b"not a raw file")
        names.append(str(p))
    return names


def _counted(bar):
    # The count runs on a thread of its own; its end is waited for by
    # yielding, not by a time: the test holds under any load.
    while not bar._count.finished:
        os.sched_yield()


def test_folder_total_counted_ahead_of_the_work(tmp_path):
    _files(tmp_path / "shots", 60)
    _files(tmp_path / "shots" / "sub", 5)
    (tmp_path / "shots" / "notes.txt").write_text("x")
    clock, term = Clock(), Terminal()
    bar = Progress(0, term, clock)
    bar.count_ahead([str(tmp_path / "shots")], True, ())
    _counted(bar)
    bar.update(10, 12, more=True)  # 12 found so far by the work's walk
    assert term.getvalue() == line("[######----------------------------------] 10/65 files")
    assert "10/65 files" in term.getvalue()
    bar.close()
    assert term.getvalue().endswith("\r\x1b[K")


def test_pattern_total_counted_ahead_whatever_the_extension(tmp_path):
    _files(tmp_path, 55, ".xyz")
    clock, term = Clock(), Terminal()
    bar = Progress(0, term, clock)
    bar.count_ahead([str(tmp_path / "*.xyz")], False, ())
    _counted(bar)
    bar.update(3, 4, more=True)
    assert term.getvalue() == line("[##--------------------------------------] 3/55 files")
    bar.close()


def test_files_named_counted_at_once(tmp_path):
    names = _files(tmp_path, 3)
    clock, term = Clock(), Terminal()
    bar = Progress(0, term, clock)
    bar.count_ahead(names, False, ())
    assert bar._count.finished and bar._count.counted == 3  # no walk to wait for
    clock.now += 1.001
    bar.update(1, 1, more=True)
    assert term.getvalue() == line("[#############---------------------------] 1/3 files, "
                                   "1.0/s, 0:02 left")
    bar.close()


def test_remote_source_total_is_found_so_far(tmp_path):
    # Counting a listing ahead would list it twice: the bar keeps the '+'.
    clock, term = Clock(), Terminal()
    bar = Progress(0, term, clock)
    bar.count_ahead([str(tmp_path), "http://127.0.0.1:9/dir/", "s3://bucket/raw/"], True, ())
    assert bar._count is None
    bar.update(10, 60, more=True)
    assert term.getvalue() == line("[######----------------------------------] 10/60+ files")
    bar.close()


def test_no_count_ahead_without_a_bar(tmp_path):
    bar = Progress(0, io.StringIO(), Clock())
    bar.count_ahead([str(tmp_path)], True, ())
    assert bar._count is None


def test_count_ahead_stops_when_the_run_ends(tmp_path):
    _files(tmp_path / "a", 3)
    bar = Progress(0, Terminal(), Clock())
    bar.count_ahead([str(tmp_path)], True, ())
    bar.close()  # stops the walk and waits for it; what it counted stays readable
    counted = bar._count.counted
    assert counted <= 3 and bar._count.counted == counted
    bar.close()  # twice is harmless


def test_python_m_kpz_bar_total_is_the_files_named(tmp_path, monkeypatch, capsys):
    # python3 -m kpz, batches of 8 files (--max-in-flight 1): the bar's total
    # is the 20 files named from its first drawing, with no '+'.
    import sys

    from kpz import __main__ as kpz_main

    names = _files(tmp_path / "in", 20)

    class Ticking(Clock):
        # Each reading two seconds later: the run is long from its first
        # update on, and every update is due.
        def __call__(self):
            self.now += 2
            return self.now

    class TickingProgress(_progress.Progress):
        def __init__(self, total, stream):
            super().__init__(total, stream, Ticking())

    term = Terminal()
    monkeypatch.setattr(_progress, "Progress", TickingProgress)
    monkeypatch.setattr(sys, "stderr", term)
    status = kpz_main.main(["preview", "--max-in-flight", "1", "-o", str(tmp_path / "out")]
                           + names)
    assert status == 1  # none of them is a raw file
    drawn = re.findall(r"\rkpz: \[[#-]*\] (\d+)/(\d+)(\+?) files", term.getvalue())
    assert drawn and drawn[0] == ("8", "20", "")
    assert all(total == "20" and not more for _, total, more in drawn)
    assert drawn[-1] == ("20", "20", "")
    # The bar drawn last is taken off the line before the summary.
    text = term.getvalue()
    assert text.rindex("\rkpz: [") < text.rindex("\r\x1b[K") < text.index("kpz: 20 files:")
