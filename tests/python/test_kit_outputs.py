"""The kit's output rules for Python front ends (kpz._kpz.kit): names shown on
a line, the output directory and its words, the check of an output already
present, and the --upright note the summary counts; each compared with what
the kpz tool does."""
import os
import subprocess

import kpz
from kpz._kpz import kit


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
    with open(path, "rb") as f:
        head = f.read(kpz.HEAD_SIZE)
    found = kit.locate(head, os.path.getsize(path), "preview", upright=True)
    assert found.ok and found.turns, found.words
    status, jpeg, note, words = found.turn(kpz.screennail(path))
    assert status == 0, words
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
    with open(path, "rb") as f:
        head = f.read(kpz.HEAD_SIZE)
    stored = kpz.screennail(path)
    found = kit.locate(head, os.path.getsize(path), "preview", upright=True)
    assert found.ok and not found.turns
    status, jpeg, note, _ = found.turn(stored)
    assert (status, jpeg, note) == (0, stored, "")
