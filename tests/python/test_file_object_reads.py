"""A file object is read at offsets by the same extraction as a path and a
buffer: short reads are carried on, readinto() is used where the object's
class has its own, an exception raised inside the object reaches the caller
unchanged with its traceback, odd answers are refused in words, and where
the calls succeed the bytes are those of the path."""

import concurrent.futures
import io
import pathlib
import pickle
import traceback

import pytest

import kpz


class Source(io.RawIOBase):
    """A binary file object over `data` whose read() gives at most `chunk`
    bytes (0: as many as asked) and raises `fail` once a read would reach
    byte `fail_at`."""

    def __init__(self, data, chunk=0, fail_at=None, fail=None):
        self.data = data
        self.pos = 0
        self.chunk = chunk
        self.fail_at = fail_at
        self.fail = fail
        self.calls = []

    def readable(self):
        return True

    def seekable(self):
        return True

    def seek(self, offset, whence=0):
        self.calls.append(("seek", offset, whence))
        self.pos = {0: 0, 1: self.pos, 2: len(self.data)}[whence] + offset
        return self.pos

    def tell(self):
        return self.pos

    def _take(self, n):
        give = n if self.chunk <= 0 else min(n, self.chunk)
        if self.fail_at is not None and self.pos <= self.fail_at < self.pos + max(give, 1):
            raise self.fail
        out = self.data[self.pos:self.pos + give]
        self.pos += len(out)
        return out

    def read(self, n=-1):
        assert n is not None and n >= 0, "kpz must never read a whole file"
        self.calls.append(("read", self.pos, n))
        return self._take(n)


class IntoSource(Source):
    """The same, read with its own readinto()."""

    def read(self, n=-1):
        raise AssertionError("a file object with its own readinto() is read with it")

    def readinto(self, buffer):
        view = memoryview(buffer)
        self.calls.append(("readinto", self.pos, len(view)))
        out = self._take(len(view))
        view[:len(out)] = out
        return len(out)


@pytest.fixture(scope="module")
def large(fixtures):
    entry = fixtures["byname"]["large"]
    return entry["path"], pathlib.Path(entry["path"]).read_bytes()


def everything(source_of, path):
    """Each picture call on a fresh source from `source_of()`, beside the
    path's (info's "file", the name, left out)."""
    for func, kwargs in ((kpz.screennail, {}), (kpz.thumbnail, {}),
                         (kpz.screennail, {"upright": True}), (kpz.info, {})):
        got = func(source_of(), **kwargs)
        want = func(path, **kwargs)
        if func is kpz.info:
            got, want = {**got, "file": None}, {**want, "file": None}
        yield func.__name__, kwargs, got, want


@pytest.mark.parametrize("cls", [Source, IntoSource])
@pytest.mark.parametrize("chunk", [1, 7, 4096, 65535])
def test_short_reads_give_the_bytes_of_the_path(fixtures, cls, chunk):
    path = fixtures["byname"]["plain"]["path"]
    data = pathlib.Path(path).read_bytes()
    for name, kwargs, got, want in everything(lambda: cls(data, chunk=chunk), path):
        assert got == want, (name, kwargs)


def test_short_reads_of_a_large_picture_give_the_bytes_of_the_path(large):
    path, data = large
    expected = kpz.screennail(path)
    for cls in (Source, IntoSource):
        source = cls(data, chunk=100003)
        assert kpz.screennail(source) == expected
        reads = [c for c in source.calls if c[0] != "seek"]
        assert len(reads) > 2  # the picture came in several pieces


@pytest.mark.parametrize("opener", ["buffered", "unbuffered", "bytesio"])
def test_real_file_objects_give_the_bytes_of_the_path(large, opener):
    path, data = large
    opened = {
        "buffered": lambda: open(path, "rb"),  # noqa: SIM115 - closed below
        "unbuffered": lambda: open(path, "rb", buffering=0),  # noqa: SIM115
        "bytesio": lambda: io.BytesIO(data),
    }[opener]
    for name, kwargs, got, want in everything(opened, path):
        assert got == want, (name, kwargs)


def test_a_file_object_with_its_own_readinto_is_read_into_the_picture(large):
    path, data = large
    source = IntoSource(data)
    assert kpz.screennail(source) == kpz.screennail(path)
    raw = kpz.open(path)
    assert [c for c in source.calls if c[0] == "readinto"] == [
        ("readinto", 0, kpz.HEAD_SIZE),
        ("readinto", raw.screennail_offset, raw.screennail_size)]


class Boom(Exception):
    """An exception of the caller's own, raised inside its file object."""


def raise_inside(cls, data, at):
    """What kpz.screennail raises when `cls`'s read fails at byte `at`."""
    error = Boom(f"the disk went away at {at}")
    source = cls(data, chunk=5000, fail_at=at, fail=error)
    with pytest.raises(Boom) as caught:
        kpz.screennail(source)
    return error, caught, source


@pytest.mark.parametrize("cls", [Source, IntoSource])
@pytest.mark.parametrize("where", ["head", "picture"])
def test_an_exception_inside_the_file_object_reaches_the_caller_unchanged(large, cls, where):
    path, data = large
    raw = kpz.open(path)
    at = 1234 if where == "head" else raw.screennail_offset + raw.screennail_size // 2
    error, caught, source = raise_inside(cls, data, at)
    assert caught.value is error  # the very object, not a copy or a wrapper
    assert caught.value.__cause__ is None
    frames = [frame.name for frame in traceback.extract_tb(caught.tb)]
    assert "_take" in frames, frames  # raised where the object raised it
    # Nothing was asked of the object after it raised.
    reads = [c for c in source.calls if c[0] != "seek"]
    assert reads[-1][1] <= at < reads[-1][1] + 5000
    assert source.calls[-1][0] != "seek"


def test_an_exception_inside_the_file_object_reaches_info_unchanged(fixtures):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()
    error = OSError(5, "Input/output error")
    with pytest.raises(OSError) as caught:
        kpz.info(Source(data, chunk=100, fail_at=300, fail=error))
    assert caught.value is error


@pytest.mark.parametrize("result, cls, words", [
    ("text", TypeError, "kpz: the file object is in text mode: open it in binary mode ('rb')"),
    (7, TypeError, "kpz: the file object's read({n}) returned 'int', not bytes"),
    (b"\0" * 3, ValueError, "kpz: the file object's read({n}) returned more bytes than asked "
                            "for ({more})"),
])
def test_an_odd_answer_while_the_picture_is_read_is_said_in_words(large, result, cls, words):
    path, data = large
    raw = kpz.open(path)
    n = raw.screennail_size

    class OddInPicture(Source):
        def read(self, size=-1):
            if self.pos < raw.screennail_offset:
                return super().read(size)
            return b"\0" * (size + 3) if isinstance(result, bytes) else result

    with pytest.raises(cls) as caught:
        kpz.screennail(OddInPicture(data))
    assert type(caught.value) is cls
    assert str(caught.value) == words.format(n=n, more=n + 3)


@pytest.mark.parametrize("result, cls, words", [
    ("4", TypeError, "kpz: the file object's readinto() of 65536 bytes returned 'str', not an int"),
    (True, TypeError, "kpz: the file object's readinto() of 65536 bytes returned 'bool', not an "
                      "int"),
    (65537, ValueError, "kpz: the file object's readinto() of 65536 bytes returned 65537, which "
                        "is no count of bytes it read"),
    (-1, ValueError, "kpz: the file object's readinto() of 65536 bytes returned -1, which is no "
                     "count of bytes it read"),
])
def test_an_odd_answer_of_readinto_is_said_in_words(large, result, cls, words):
    _, data = large

    class OddInto(IntoSource):
        def readinto(self, buffer):
            return result

    for func in (kpz.screennail, kpz.info):
        with pytest.raises(cls) as caught:
            func(OddInto(data))
        assert str(caught.value) == words


def test_a_file_object_that_keeps_the_view_readinto_was_given_is_refused(large):
    _, data = large
    kept = []

    class Keeping(IntoSource):
        def readinto(self, buffer):
            kept.append(pickle.PickleBuffer(buffer))  # holds the view's buffer
            return super().readinto(buffer)

    with pytest.raises(BufferError, match="kept a view of the buffer") as caught:
        kpz.screennail(Keeping(data))
    assert len(kept) == 1  # nothing more was read
    assert isinstance(caught.value.__cause__, BufferError)


def test_a_text_mode_file_object_is_refused_before_anything_is_read(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    data = pathlib.Path(path).read_bytes()
    wrapped = io.TextIOWrapper(io.BytesIO(data), encoding="latin-1")
    for func in (kpz.screennail, kpz.thumbnail, kpz.info):
        with pytest.raises(TypeError) as caught:
            func(wrapped)
        assert str(caught.value) == \
            "kpz: the file object is in text mode: open it in binary mode ('rb')"
    assert wrapped.tell() == 0


@pytest.mark.parametrize("where", ["size", "head", "picture"])
def test_a_failing_seek_reaches_the_caller_unchanged(large, where):
    path, data = large
    raw = kpz.open(path)
    error = OSError(29, "Illegal seek")

    class BadSeek(Source):
        def seek(self, offset, whence=0):
            if {"size": whence == 2, "head": (offset, whence) == (0, 0),
                    "picture": offset == raw.screennail_offset}[where]:
                raise error
            return super().seek(offset, whence)

    for func in (kpz.screennail, kpz.info) if where != "picture" else (kpz.screennail,):
        with pytest.raises(OSError) as caught:
            func(BadSeek(data))
        assert caught.value is error


def test_file_objects_read_in_threads_at_once_give_the_bytes_of_the_path(fixtures):
    entries = [e for e in fixtures["files"] if e["preview"] == "ok"]
    expected = {e["path"]: kpz.screennail(e["path"]) for e in entries}
    datas = {e["path"]: pathlib.Path(e["path"]).read_bytes() for e in entries}

    def one(i):
        path = entries[i % len(entries)]["path"]
        cls = Source if i % 2 else IntoSource
        return kpz.screennail(cls(datas[path], chunk=1 + i * 997 % 9000)) == expected[path]

    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        assert all(pool.map(one, range(80)))
