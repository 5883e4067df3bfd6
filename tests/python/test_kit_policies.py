"""The policies every front end shares, written once in the kit and bound on
kpz._kpz.kit: the words for no files, an output already written and a
rotation code out of range, the exit statuses; each
checked against what the kpz tool says."""

import shutil
import subprocess

import pytest

from kpz._kpz import kit


def test_no_files_words_are_the_tool_s(tool, tmp_path):
    empty = tmp_path / "empty"
    empty.mkdir()
    proc = subprocess.run([tool, "info", str(empty), "--ext", "kpz,RAW"], capture_output=True,
                          text=True, timeout=60, check=False)
    assert proc.returncode == int(kit.ExitStatus.INPUT)
    assert proc.stderr == "kpz: " + kit.no_files_words(["kpz", "RAW"]) + "\n"
    assert kit.no_files_words([]) == (
        "no files to work on: the directories named hold no file ending in .kpz")
    assert kit.no_files_words(["a\nb"]).endswith(" " + kit.shown_name(".a\nb"))


def test_already_written_words_are_the_tool_s(tool, fixtures, tmp_path):
    src = fixtures["byname"]["plain"]["path"]
    (tmp_path / "one").mkdir()
    (tmp_path / "two").mkdir()
    a = str(tmp_path / "one" / "x.kpz")
    b = str(tmp_path / "two" / "x.kpz")
    shutil.copyfile(src, a)
    shutil.copyfile(src, b)
    out = tmp_path / "out"
    proc = subprocess.run([tool, "preview", a, b, "-o", str(out)], capture_output=True,
                          text=True, timeout=60, check=False)
    assert proc.returncode == int(kit.ExitStatus.OUTPUT)
    target = str(out / "x.preview.jpg")
    line = "kpz: %s: %s\n" % (kit.shown_name(b), kit.already_written_words(target, a))
    assert line in proc.stderr
    assert kit.ALREADY_WRITTEN_REASON in proc.stderr  # the summary's reason
    assert kit.already_written_words("o\n.jpg", "i.kpz") == (
        "not written: 'o\\n.jpg' is already written by i.kpz")


def test_rotation_code_range_and_its_words(tool, fixtures, tmp_path):
    import kpz

    for code in range(-2, 11):
        if 0 <= code <= 7:
            assert kpz.orientation_words(code)
            continue
        with pytest.raises(ValueError) as e:
            kpz.orientation_words(code)
        assert str(e.value) == "kpz: a rotation code is 0 to 7, not %d" % code
    with pytest.raises(ValueError) as e:
        kpz.orientation_words(2 ** 80)
    assert str(e.value) == "kpz: a rotation code is 0 to 7, not %d" % 2 ** 80
    for odd in (True, 1.0):
        with pytest.raises(TypeError):
            kpz.orientation_words(odd)
    proc = subprocess.run([tool, "rotate", "--code", "8", fixtures["byname"]["plain"]["path"]],
                          capture_output=True, text=True, timeout=60, check=False)
    assert proc.returncode == int(kit.ExitStatus.USAGE)
    assert proc.stderr == "kpz: --code takes a rotation code from 0 to 7\n"


def test_exit_statuses_are_the_tool_s_numbers():
    assert [int(s) for s in (kit.ExitStatus.OK, kit.ExitStatus.INPUT, kit.ExitStatus.USAGE,
                             kit.ExitStatus.OUTPUT)] == [0, 1, 2, 3]
