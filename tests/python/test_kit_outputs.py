"""The kit's output rules for Python front ends (kpz._kpz.kit): names shown on
a line, the output directory and its words, the check of an output already
present, and the --upright note the summary counts; each compared with what
the kpz tool does."""
import os
import subprocess

import pytest

import kpz
from kpz import _kpz
from kpz._kpz import kit
from kpz.distributed import _task


def test_shown_name_escapes_what_would_forge_a_line():
    assert kit.shown_name("shots/a.kpz") == "shots/a.kpz"
    assert kit.shown_name("évian.kpz") == "évian.kpz"
    forging = "evil\nwrote out-fake.preview.jpg (1 bytes)\nkpz: x.kpz"
    assert kit.shown_name(forging) == \
        "'evil\\nwrote out-fake.preview.jpg (1 bytes)\\nkpz: x.kpz'"
    assert kit.shown_name("\x1b[2J.kpz") == "'\\033[2J.kpz'"
    assert kit.shown_name("it's\t") == "'it\\'s\\t'"


def test_shown_name_takes_bytes_and_surrogate_escaped_names():
    assert kit.shown_name(b"a\xff.kpz") == "'a\\377.kpz'"
    assert kit.shown_name(os.fsdecode(b"a\xff.kpz")) == "'a\\377.kpz'"


def test_shown_name_is_what_the_tool_prints(tool, tmp_path):
    name = "gone\x1b[2J\n.kpz"
    proc = subprocess.run([tool, "info", name], cwd=tmp_path, capture_output=True, timeout=60,
                          check=False)
    assert proc.stderr.decode() == "kpz: %s: file not found\n" % kit.shown_name(name)


def test_make_output_directory_words_are_the_tools(tool, tmp_path, fixtures):
    (tmp_path / "afile").write_bytes(b"x")
    assert kit.make_output_directory(str(tmp_path / "new" / "sub")) is None
    assert (tmp_path / "new" / "sub").is_dir()
    assert kit.make_output_directory(str(tmp_path / "new")) is None
    src = fixtures["byname"]["plain"]["path"]
    for out in ("afile/", "afile/sub/"):
        proc = subprocess.run([tool, "preview", src, "-o", out], cwd=tmp_path,
                              capture_output=True, timeout=60, check=False)
        cwd = os.getcwd()
        os.chdir(tmp_path)
        try:
            words = kit.make_output_directory(out)
        finally:
            os.chdir(cwd)
        assert words == "%s: cannot make the output directory: Not a directory" % out.rstrip("/")
        assert proc.returncode == 3
        assert proc.stderr.decode() == "kpz: " + words + "\n"


def test_output_is_whole_takes_only_a_whole_jpeg(tmp_path):
    whole = tmp_path / "whole.jpg"
    whole.write_bytes(b"\xff\xd8\xff\xe0" + b"\x00" * 10 + b"\xff\xd9")
    assert kit.output_is_whole(str(whole))
    (tmp_path / "empty.jpg").write_bytes(b"")
    (tmp_path / "garbage.jpg").write_bytes(b"GIF89a" * 10)
    (tmp_path / "cut.jpg").write_bytes(b"\xff\xd8\xff\xe0" + b"\x00" * 10)
    (tmp_path / "folder.jpg").mkdir()
    os.symlink("nowhere.jpg", tmp_path / "dangling.jpg")
    for name in ("empty.jpg", "garbage.jpg", "cut.jpg", "folder.jpg", "dangling.jpg",
                 "absent.jpg"):
        assert not kit.output_is_whole(str(tmp_path / name)), name


def test_jpeg_ends_whole_checks_remote_ends():
    assert kit.jpeg_ends_whole(b"\xff\xd8\xff", b"\xff\xd9", 100)
    assert not kit.jpeg_ends_whole(b"\xff\xd8\xff", b"\xff\xd9\x00", 100)
    assert not kit.jpeg_ends_whole(b"\x89PN", b"\xff\xd9", 100)
    assert not kit.jpeg_ends_whole(b"\xff\xd8\xff", b"\xff\xd9", 3)
    assert not kit.jpeg_ends_whole(b"", b"", 0)


def test_upright_note_renders_as_the_tools_summary(tool, tmp_path, fixtures):
    path = fixtures["byname"]["orient6_partial"]["path"]
    jpeg, note, words = _task._picture(path, "preview", True)
    assert words == ""
    assert jpeg == kpz.screennail(path, upright=True)
    assert note.startswith("re-encoded at quality 95")
    s = kit.Summary()
    s.add(0, "")
    s.add_note("preview", note)
    proc = subprocess.run([tool, "preview", "--upright", path, "-o", str(tmp_path / "o.jpg")],
                          capture_output=True, timeout=60, check=False)
    assert proc.returncode == 0
    assert proc.stderr.decode() == s.render_notes()
    # Several files: the tool's summary ends with the same count.
    s.add(0, "")
    s.add_note("preview", note)
    copies = []
    for name in ("a.kpz", "b.kpz"):
        (tmp_path / name).write_bytes(open(path, "rb").read())  # noqa: SIM115
        copies.append(str(tmp_path / name))
    proc = subprocess.run([tool, "preview", "--upright", *copies, "-o", str(tmp_path / "d")],
                          capture_output=True, timeout=60, check=False)
    assert proc.stderr.decode().endswith(s.render_notes())


def test_upright_without_a_turn_gives_the_stored_bytes(fixtures):
    path = fixtures["byname"]["no_orientation"]["path"]
    assert _task._picture(path, "preview", True) == (kpz.screennail(path), "", "")


@pytest.mark.parametrize("name", ["orient6_partial", "orient3_whole", "no_orientation"])
def test_a_head_in_memory_is_located_and_turned_as_the_whole_file(fixtures, name):
    path = fixtures["byname"][name]["path"]
    with open(path, "rb") as f:
        data = f.read()
    whole = _kpz.picture(path, "preview", upright=True, detail=True)
    found = _kpz.picture(data[:kpz.HEAD_SIZE], "preview", upright=True, file_size=len(data))
    assert found.data is None
    assert (found.offset, found.length) == (whole.offset, whole.length)
    assert found.turns == whole.turns
    got = found.turn(data[found.offset:found.offset + found.length])
    assert (got.data, got.note) == (whole.data, whole.note)
    assert got.data == kpz.screennail(path, upright=True)


@pytest.mark.parametrize("name", ["not_tiff", "empty", "single_directory", "truncated",
                                  "exif_past_end", "no_ifd1", "no_preview", "empty_preview",
                                  "preview_past_end", "preview_beyond_2gib"])
def test_a_head_in_memory_fails_in_the_words_and_class_of_the_whole_file(fixtures, name):
    data = open(fixtures["byname"][name]["path"], "rb").read()  # noqa: SIM115
    with pytest.raises(kpz.KpzError) as whole:
        kpz.screennail(data)
    with pytest.raises(kpz.KpzError) as head:
        _kpz.picture(data[:kpz.HEAD_SIZE], "preview", file_size=len(data))
    assert type(head.value) is type(whole.value)
    assert (head.value.words, head.value.code) == (whole.value.words, whole.value.code)


def test_a_turn_that_fails_after_the_head_was_located_says_what_kpz_says(fixtures):
    path = fixtures["byname"]["orient6_not_jpeg"]["path"]
    data = open(path, "rb").read()  # noqa: SIM115
    found = _kpz.picture(data[:kpz.HEAD_SIZE], "preview", upright=True, file_size=len(data))
    assert found.turns
    with pytest.raises(kpz.BadPreviewError) as whole:
        kpz.screennail(path, upright=True)
    with pytest.raises(kpz.BadPreviewError) as turned:
        found.turn(data[found.offset:found.offset + found.length])
    assert turned.value.words == whole.value.words


def test_a_head_s_file_size_is_checked_in_words(fixtures):
    path = fixtures["byname"]["no_orientation"]["path"]
    with pytest.raises(TypeError, match="file_size goes with a file's first bytes"):
        _kpz.picture(path, file_size=10)
    with pytest.raises(ValueError, match="file_size -1 is no file size"):
        _kpz.picture(b"II*\0", file_size=-1)
    with pytest.raises(TypeError, match="file_size is an int, not 'str'"):
        _kpz.picture(b"II*\0", file_size="10")
