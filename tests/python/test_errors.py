"""Every result to its exception and words; no input crashes the interpreter."""

import errno
import os
import pickle
import random
import shutil
import subprocess
import sys
import tempfile
import textwrap

import pytest

import kpz


def test_missing_file_is_file_not_found(tmp_path):
    path = str(tmp_path / "nope.kpz")
    for func in (kpz.screennail, kpz.thumbnail, kpz.info, kpz.open):
        with pytest.raises(FileNotFoundError) as caught:
            func(path)
        err = caught.value
        assert err.errno == errno.ENOENT
        assert err.filename == path
        assert err.strerror == os.strerror(errno.ENOENT)
        assert kpz.error_words(err) == "file not found"


def test_a_directory_is_is_a_directory_error(tmp_path):
    with pytest.raises(IsADirectoryError) as caught:
        kpz.screennail(str(tmp_path))
    assert caught.value.errno == errno.EISDIR
    assert caught.value.filename == str(tmp_path)
    assert kpz.error_words(caught.value) == "is a directory, not a KPZ raw file"


def test_a_path_through_a_file_is_not_a_directory_error(fixtures):
    path = fixtures["byname"]["plain"]["path"] + "/x.kpz"
    with pytest.raises(NotADirectoryError) as caught:
        kpz.info(path)
    assert caught.value.errno == errno.ENOTDIR


def test_the_exceptions_match_what_open_raises(tmp_path):
    path = str(tmp_path / "nope.kpz")
    with pytest.raises(OSError) as ours:
        kpz.screennail(path)
    with pytest.raises(OSError) as theirs:
        open(path, "rb")  # noqa: SIM115 - the comparison
    assert type(ours.value) is type(theirs.value)
    assert ours.value.args == theirs.value.args
    assert str(ours.value) == str(theirs.value)


def test_an_unreadable_file_is_a_permission_error(fixtures):
    # Root reads every file: the call runs in a child that imports kpz and
    # then gives up its privileges, on a file in a directory anyone may enter.
    path = fixtures["byname"]["plain"]["path"]
    open_dir = tempfile.mkdtemp(prefix="kpz-perm-")
    try:
        os.chmod(open_dir, 0o755)
        unreadable = os.path.join(open_dir, "locked.kpz")
        with open(path, "rb") as f, open(unreadable, "wb") as g:
            g.write(f.read())
        os.chmod(unreadable, 0)
        code = textwrap.dedent(f"""
            import errno, os, kpz
            if os.geteuid() == 0:
                os.setgid(65534)
                os.setuid(65534)
            try:
                kpz.screennail({unreadable!r})
            except PermissionError as e:
                assert e.errno == errno.EACCES and e.filename == {unreadable!r}, e
                print(kpz.error_words(e))
            """)
        proc = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                              timeout=60, check=False)
        assert proc.returncode == 0, proc.stderr
        assert proc.stdout.strip() == "the file cannot be opened for reading (permission denied)"
    finally:
        shutil.rmtree(open_dir)


def test_a_named_pipe_is_refused_without_being_read(tmp_path):
    fifo = str(tmp_path / "pipe.kpz")
    os.mkfifo(fifo)
    with pytest.raises(kpz.NotRegularFileError) as caught:
        kpz.screennail(fifo)
    assert isinstance(caught.value, OSError) and not isinstance(caught.value, kpz.KpzError)
    assert caught.value.filename == fifo
    assert caught.value.code == caught.value.errno == errno.ESPIPE  # as Java tells a pipe
    assert caught.value.words == "not a regular file (a device, named pipe or socket), not read"


def test_codes_and_classes(fixtures):
    cases = {
        "not_tiff": (kpz.NotKpzError, -400),
        "no_model": (kpz.NotKpzError, None),
        "no_preview": (kpz.NoPreviewError, -100),
        "empty_preview": (kpz.NoPreviewError, 0),
        "preview_past_end": (kpz.BadPreviewError, None),
        "preview_beyond_2gib": (kpz.BadPreviewError, None),
    }
    for name, (cls, code) in cases.items():
        with pytest.raises(cls) as caught:
            kpz.screennail(fixtures["byname"][name]["path"])
        if code is not None:
            assert caught.value.code == code, name
        else:
            assert caught.value.code is None or caught.value.code < 0, name
        assert isinstance(caught.value, kpz.KpzError)
        assert caught.value.words


def test_a_missing_thumbnail_is_no_thumbnail_and_a_missing_preview_no_preview(fixtures):
    cases = {
        ("no_thumbnail", kpz.thumbnail): (kpz.NoThumbnailError, -100,
                                          "no thumbnail stored in this file"),
        ("empty_thumbnail", kpz.thumbnail): (kpz.NoThumbnailError, 0,
                                             "the thumbnail stored in this file is empty (0 bytes)"),
        ("no_preview", kpz.preview): (kpz.NoPreviewError, -100, "no preview stored in this file"),
    }
    for (name, func), (cls, code, words) in cases.items():
        path = fixtures["byname"][name]["path"]
        for source in (path, open(path, "rb").read()):  # noqa: SIM115
            with pytest.raises(kpz.NoPictureError) as caught:
                func(source)
            assert type(caught.value) is cls, name
            assert isinstance(caught.value, kpz.KpzError)
            assert (caught.value.code, caught.value.words) == (code, words), name
            assert caught.value.kind == {kpz.NoThumbnailError: "no_thumbnail",
                                         kpz.NoPreviewError: "no_preview"}[cls], name
            back = pickle.loads(pickle.dumps(caught.value))
            assert (type(back), back.kind, back.code) == (cls, caught.value.kind, code)
    assert not issubclass(kpz.NoThumbnailError, kpz.NoPreviewError)
    assert not issubclass(kpz.NoPreviewError, kpz.NoThumbnailError)


def test_one_table_gives_every_kind_its_class():
    from kpz import _errors
    table = {
        _errors.KIND_NOT_KPZ: kpz.NotKpzError,
        _errors.KIND_DAMAGED: kpz.BadPreviewError,
        _errors.KIND_NO_PREVIEW: kpz.NoPreviewError,
        _errors.KIND_NO_THUMBNAIL: kpz.NoThumbnailError,
    }
    names = {kpz.NotKpzError: "not_kpz", kpz.BadPreviewError: "damaged",
             kpz.NoPreviewError: "no_preview", kpz.NoThumbnailError: "no_thumbnail"}
    for kind, cls in table.items():
        made = _errors._error_for(kind, "words", -1, "f.kpz")
        assert type(made) is cls
        assert made.kind == names[cls]
        assert (made.words, made.code, made.filename, str(made)) == ("words", -1, "f.kpz",
                                                                      "f.kpz: words")
    gone = _errors._error_for(_errors.KIND_UNREADABLE, "file not found", None, "f.kpz",
                              errno.ENOENT)
    assert type(gone) is FileNotFoundError
    assert (gone.errno, gone.filename, gone.words, gone.code) == (errno.ENOENT, "f.kpz",
                                                                  "file not found", errno.ENOENT)
    pipe = _errors._error_for(_errors.KIND_UNREADABLE, "not a regular file", None, "p.kpz")
    assert type(pipe) is kpz.NotRegularFileError and isinstance(pipe, OSError)
    assert (pipe.kind, gone.kind) == ("unreadable", "unreadable")
    # A damaged picture's result 0 is no result; an empty picture's 0 is.
    assert _errors._error_for(_errors.KIND_DAMAGED, "w", 0).code is None
    assert _errors._error_for(_errors.KIND_NO_THUMBNAIL, "w", 0).code == 0
    assert (pipe.errno, pipe.filename, str(pipe)) == (None, "p.kpz", "p.kpz: not a regular file")
    spipe = _errors._error_for(_errors.KIND_UNREADABLE, "not a regular file", None, "p.kpz",
                               errno.ESPIPE)
    assert type(spipe) is kpz.NotRegularFileError
    assert (spipe.errno, spipe.code, spipe.words) == (errno.ESPIPE, errno.ESPIPE,
                                                      "not a regular file")
    assert str(spipe) == "p.kpz: not a regular file"
    back = pickle.loads(pickle.dumps(pipe))
    assert type(back) is kpz.NotRegularFileError
    assert (back.words, back.code, back.filename, str(back)) == (pipe.words, None, "p.kpz",
                                                                 str(pipe))
    assert back.kind == "unreadable"


def test_exceptions_pickle_whole(fixtures):
    path = fixtures["byname"]["not_tiff"]["path"]
    with pytest.raises(kpz.NotKpzError) as caught:
        kpz.screennail(path)
    back = pickle.loads(pickle.dumps(caught.value))
    assert type(back) is kpz.NotKpzError
    assert (back.words, back.code, back.filename) == (caught.value.words, caught.value.code, path)
    assert str(back) == str(caught.value)


def test_hostile_inputs_never_crash(fixtures):
    """Random bytes, cut and damaged copies of valid files, in every source
    kind: each call returns or raises a KpzError, nothing else."""
    rng = random.Random(20261125)
    valid = [open(e["path"], "rb").read() for e in fixtures["files"]  # noqa: SIM115
             if e["preview"] == "ok"][:8]
    inputs = [bytes(rng.getrandbits(8) for _ in range(rng.randrange(0, 300))) for _ in range(200)]
    inputs += [b"II*\0" + bytes(rng.getrandbits(8) for _ in range(200)) for _ in range(200)]
    inputs += [b"MM\0*" + bytes(rng.getrandbits(8) for _ in range(200)) for _ in range(200)]
    for data in valid:
        for _ in range(150):
            damaged = bytearray(data)
            for _ in range(rng.randrange(1, 12)):
                damaged[rng.randrange(0, min(len(damaged), 600))] = rng.getrandbits(8)
            if rng.random() < 0.3:
                del damaged[rng.randrange(0, len(damaged)):]
            inputs.append(bytes(damaged))
    outcomes = {"ok": 0, "error": 0}
    for data in inputs:
        for func in (kpz.screennail, kpz.thumbnail):
            for upright in (False, True):
                try:
                    func(data, upright=upright)
                    outcomes["ok"] += 1
                except kpz.KpzError as e:
                    assert e.words
                    outcomes["error"] += 1
        try:
            kpz.info(data)
        except kpz.NotKpzError:
            pass
    assert outcomes["ok"] > 0 and outcomes["error"] > 0


def test_library_lines_go_to_the_logger_not_to_standard_error(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    code = textwrap.dedent(f"""
        import logging, sys, kpz
        kpz.screennail({path!r})
        print("quiet", file=sys.stderr)
        logging.basicConfig(level=logging.DEBUG, format="%(name)s|%(message)s",
                            stream=sys.stdout)
        kpz.screennail({path!r})
        """)
    proc = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                          timeout=60, check=False)
    assert proc.returncode == 0, proc.stderr
    assert proc.stderr == "quiet\n"
    lines = proc.stdout.splitlines()
    assert lines, "no library line reached the logger"
    assert all(line.startswith("kpz.library|") for line in lines)
    assert all("\033" not in line for line in lines)
    assert any("DtRaw.cpp" in line for line in lines)


def test_every_os_error_kpz_raises_carries_code_words_and_filename(fixtures, tmp_path):
    cases = [
        (str(tmp_path / "nope.kpz"), FileNotFoundError, errno.ENOENT),
        (str(tmp_path), IsADirectoryError, errno.EISDIR),
        (fixtures["byname"]["plain"]["path"] + "/x.kpz", NotADirectoryError, errno.ENOTDIR),
    ]
    for path, cls, err in cases:
        for func in (kpz.screennail, kpz.thumbnail, kpz.info, kpz.open):
            with pytest.raises(cls) as caught:
                func(path)
            exc = caught.value
            assert type(exc) is cls
            assert exc.code == exc.errno == err, (path, func)
            assert exc.filename == path
            assert exc.words == kpz.error_words(exc) and exc.words
            assert exc.args == (err, os.strerror(err))


def test_orientation_words_of_any_int_in_words():
    assert kpz.orientation_words(0) == "normal"
    for huge in (2**31, 2**40, 2**70, -(2**63), 8, -1):
        with pytest.raises(ValueError) as caught:
            kpz.orientation_words(huge)
        assert str(caught.value) == f"kpz: a rotation code is 0 to 7, not {huge}"
    for wrong in ("1", 1.0, None, True):
        with pytest.raises(TypeError, match="a rotation code is an int"):
            kpz.orientation_words(wrong)


def test_error_words_of_an_os_error_with_any_errno():
    assert kpz.error_words(OSError(2**40, "x")) == "the file cannot be read (unknown error 1099511627776)"
    assert kpz.error_words(OSError(-(2**70), "x")) == \
        f"the file cannot be read (unknown error {-(2**70)})"
    assert kpz.error_words(OSError(errno.ENOENT, "x")) == "file not found"
    # An errno that is no int: the exception's own words.
    assert kpz.error_words(OSError("x", "y")) == str(OSError("x", "y"))
    assert kpz.error_words(OSError()) == ""


def test_error_words_of_a_text_mode_file_carry_no_second_kpz_prefix(fixtures):
    # Once, the words began "kpz: ", so a line printed as the tool prints
    # one read "kpz: FILE: kpz: the file object is in text mode ...".
    path = fixtures["byname"]["plain"]["path"]
    with open(path, "r", encoding="latin-1") as f:  # noqa: SIM115 - the case under test
        for func in (kpz.screennail, kpz.thumbnail, kpz.info, kpz.open):
            with pytest.raises(TypeError) as caught:
                func(f)
            assert str(caught.value) == \
                "kpz: the file object is in text mode: open it in binary mode ('rb')"
            assert kpz.error_words(caught.value) == \
                "the file object is in text mode: open it in binary mode ('rb')"
    # Every other kpz TypeError and ValueError alike; a foreign message is
    # left as it is.
    with pytest.raises(ValueError) as caught:
        kpz.orientation_words(9)
    assert kpz.error_words(caught.value) == "a rotation code is 0 to 7, not 9"
    assert kpz.error_words(ValueError("bad value")) == "bad value"
