"""Who owns an output name several inputs share (kpz._claims): the first
input written, in input order; a failed first input owns nothing. The rule
as the package's callers apply it: the batch a worker runs
(kpz.distributed's run_batch) and python3 -m kpz across its batches, each
compared with the kpz tool's lines. (kpz.remote.fetch: test_remote_hostile;
kpz.distributed.extract across tasks: test_distributed_bounded.)"""

import shutil
import subprocess
import sys

import pytest

from kpz import _claims
from kpz._kpz import kit


def test_the_first_input_written_owns_a_name_and_is_named():
    claims = _claims.Claims()
    assert "out/x.jpg" not in claims
    assert claims.refusal("out/x.jpg", "out/x.jpg") is None
    claims.wrote("out/x.jpg", "b/x.kpz")
    claims.wrote("out/x.jpg", "c/x.kpz")  # a second writer owns nothing
    assert "out/x.jpg" in claims
    assert claims.refusal("out/x.jpg", "shown.jpg") == kit.already_written_words(
        "shown.jpg", "b/x.kpz")
    assert claims.refusal("out/y.jpg", "out/y.jpg") is None
    assert _claims.REASON == kit.ALREADY_WRITTEN_REASON


def test_writers_beyond_those_kept_are_told_as_an_earlier_input():
    claims = _claims.Claims(kept=2)
    for i in range(5):
        claims.wrote("n%d" % i, "in%d" % i)
    assert all("n%d" % i in claims for i in range(5))  # every name stays refused
    assert claims.refusal("n0", "n0") == kit.already_written_earlier_words("n0")
    assert claims.refusal("n2", "n2") == kit.already_written_earlier_words("n2")
    assert claims.refusal("n3", "n3") == kit.already_written_words("n3", "in3")
    assert claims.refusal("n4", "n4") == kit.already_written_words("n4", "in4")


def test_turns_come_in_input_order_whatever_order_the_inputs_end_in():
    turns = _claims.InOrder(["a", "b", "a", None, "a"])
    assert turns.ready(4, "e") == []  # waits for input 2, which waits for 0
    assert turns.ready(2, "c") == []
    assert turns.ready(3, "d") == ["d"]  # no name: no wait
    assert turns.ready(0, "a") == ["a", "c", "e"]
    assert turns.ready(1, "b") == ["b"]


def _three_of_one_name(fixtures, where):
    """a/x.kpz (not a raw file), b/x.kpz and c/x.kpz (good ones): one output
    name."""
    named = []
    for d, src in (("a", fixtures["byname"]["not_tiff"]["path"]),
                   ("b", fixtures["many"][0]), ("c", fixtures["many"][1])):
        (where / d).mkdir(parents=True)
        shutil.copy(src, where / d / "x.kpz")
        named.append(str(where / d / "x.kpz"))
    return named


def test_a_worker_s_batch_gives_the_name_to_the_first_written(fixtures, tmp_path):
    pytest.importorskip("fsspec")
    from kpz.distributed._task import run_batch

    bad, first, later = _three_of_one_name(fixtures, tmp_path / "in")
    out = tmp_path / "out"
    out.mkdir()
    got = run_batch([(0, bad, "x.preview.jpg"), (1, first, "x.preview.jpg"),
                     (2, later, "x.preview.jpg")], "preview", False, str(out))
    assert [r.status for r in got] == [1, 0, 3]
    target = str(out / "x.preview.jpg")
    assert got[1].out == "wrote %s (%d bytes)\n" % (target, (out / "x.preview.jpg").stat().st_size)
    assert got[2].err == "kpz: %s: %s\n" % (later, kit.already_written_words(target, first))
    assert got[2].reason == kit.ALREADY_WRITTEN_REASON


def test_python_m_kpz_keeps_the_rule_across_its_batches(fixtures, tool, tmp_path):
    pytest.importorskip("fsspec")
    # Batches of 8 (--max-in-flight 1): the three inputs of x.preview.jpg
    # come in three batches, ten other files between them.
    bad, first, later = _three_of_one_name(fixtures, tmp_path / "in")
    fillers = []
    for i in range(20):
        p = tmp_path / "in" / ("f%02d.kpz" % i)
        shutil.copy(fixtures["many"][2 + i], p)
        fillers.append(str(p))
    named = [bad] + fillers[:10] + [first] + fillers[10:] + [later]
    got = subprocess.run([sys.executable, "-m", "kpz", "preview", "--max-in-flight", "1",
                          *named, "-o", str(tmp_path / "out")],
                         capture_output=True, text=True, timeout=120)
    want = subprocess.run([tool, "preview", *named, "-o", str(tmp_path / "ref")],
                          capture_output=True, text=True, timeout=60)
    assert got.returncode == want.returncode == 3
    assert got.stdout == want.stdout.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    assert got.stderr == want.stderr.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    target = str(tmp_path / "out" / "x.preview.jpg")
    assert "kpz: %s: %s\n" % (later, kit.already_written_words(target, first)) in got.stderr
