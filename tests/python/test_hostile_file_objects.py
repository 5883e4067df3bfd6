"""Buffers and file objects that answer oddly: strided, reversed, 0-d,
multi-dimensional and non-byte buffers, sizes that are no file size, read()
results that are no bytes or more or fewer bytes than asked, text mode.
Every case: no crash, never a byte outside a buffer, a documented exception
in words that say what is wrong."""

import array
import io
import mmap
import pathlib
import random
import subprocess
import sys
import textwrap

import pytest

import kpz

# What kpz raises for an odd source besides its KpzError classes.
ARGUMENT_ERRORS = (TypeError, ValueError, BufferError)


class Reader(io.RawIOBase):
    """A binary file object over `data` whose read() gives `wrap(bytes)`
    (which may give fewer bytes: a short read), at most `chunk` bytes at a
    time, and whose seek(0, 2) reports `size` (the data's length unless
    given; with `tell` set, seek returns None and tell() that)."""

    def __init__(self, data, wrap=bytes, chunk=0, size=None, tell=None):
        self._data = data
        self._pos = 0
        self._wrap = wrap
        self._chunk = chunk
        self._size = len(data) if size is None else size
        self._tell = tell

    def readable(self):
        return True

    def seekable(self):
        return True

    def seek(self, offset, whence=0):
        self._pos = {0: 0, 1: self._pos, 2: len(self._data)}[whence] + offset
        if whence == 2:
            return self._size if self._tell is None else None
        return self._pos

    def tell(self):
        return self._pos if self._tell is None else self._tell

    def read(self, n=-1):
        assert n is not None and n >= 0, "kpz must never read a whole file"
        give = n if self._chunk <= 0 else min(n, self._chunk)
        result = self._wrap(self._data[self._pos:self._pos + give])
        self._pos += memoryview(result).nbytes if result is not None else 0
        return result


def strided(b):
    """A view with a step of 2 whose elements are `b`."""
    doubled = bytearray(2 * len(b))
    doubled[::2] = b
    return memoryview(doubled)[::2]


def reversed_view(b):
    """A view with a negative stride whose elements are `b`."""
    return memoryview(b[::-1])[::-1]


def whole_items(b, size):
    """`b` cut to whole items of `size` bytes (all of it when shorter)."""
    k = len(b) - len(b) % size
    return b[:k] if k else b


def items(fmt):
    """A view of format `fmt` over `b`'s whole items (a short read), or the
    bytes of a piece shorter than one item."""
    def wrap(b):
        b = whole_items(b, array.array(fmt).itemsize)
        return memoryview(b).cast(fmt) if len(b) % array.array(fmt).itemsize == 0 and b else b
    return wrap


def two_d(b):
    return memoryview(b).cast("B", shape=[1, len(b)]) if b else b""


def reversed_items(b):
    """A reversed view of 4-byte items whose bytes, in order, are `b`."""
    b = whole_items(b, 4)
    if len(b) % 4:
        return b
    words = memoryview(b).cast("i").tolist()
    return memoryview(array.array("i", reversed(words)))[::-1]


WRAPS = {
    "bytes": (bytes, 0),
    "bytearray": (bytearray, 0),
    "readonly memoryview": (memoryview, 0),
    "writable memoryview": (lambda b: memoryview(bytearray(b)), 0),
    "array of B": (lambda b: array.array("B", b), 0),
    "strided": (strided, 0),
    "negative stride": (reversed_view, 0),
    "format i": (items("i"), 0),
    "format d": (items("d"), 0),
    "reversed items of format i": (reversed_items, 0),
    "two-dimensional": (two_d, 0),
}


def outcome(func, source):
    """What `func(source)` gave: ("ok", value) or (class name, words)."""
    try:
        return ("ok", func(source))
    except kpz.KpzError as e:
        assert e.words, e
        return (type(e).__name__, e.words)


@pytest.fixture(scope="module")
def large(fixtures):
    entry = fixtures["byname"]["large"]
    return entry["path"], pathlib.Path(entry["path"]).read_bytes()


@pytest.mark.parametrize("kind", sorted(WRAPS))
def test_read_results_of_every_layout_give_their_own_bytes(large, kind):
    path, data = large
    wrap, chunk = WRAPS[kind]
    data = data + b"\0" * (-len(data) % 8)  # whole items of 'd' to the end
    for func in (kpz.screennail, kpz.thumbnail, kpz.info):
        expected = func(data)
        assert func(Reader(data, wrap=wrap, chunk=chunk)) == expected, (kind, func)
    assert kpz.screennail(Reader(data, wrap=wrap, chunk=chunk), upright=True) == \
        kpz.screennail(path, upright=True)


def test_a_read_that_returns_zero_dimensional_views_one_byte_each(fixtures):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()
    zero_d = Reader(data, wrap=lambda b: memoryview(b).cast("B", shape=[]) if b else b"",
                    chunk=1)
    assert kpz.info(zero_d) == kpz.info(data)


def test_a_read_that_returns_a_reversed_view_reads_nothing_outside_it(fixtures):
    # The reversed view's first element is the last byte before a page that
    # cannot be read (PROT_NONE): a copy of the view's length from that
    # address faults. Run in a child: a crash must be reported, not take the
    # test run with it.
    path = fixtures["byname"]["plain"]["path"]
    code = textwrap.dedent(f"""
        import ctypes, io, json, mmap, kpz
        data = open({path!r}, "rb").read()
        libc = ctypes.CDLL(None, use_errno=True)
        libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]

        class Reversed(io.RawIOBase):
            def __init__(self):
                self.pos = 0
                self.keep = []
            def seekable(self):
                return True
            def seek(self, offset, whence=0):
                self.pos = offset + (len(data) if whence == 2 else 0)
                return self.pos
            def read(self, n):
                out = data[self.pos:self.pos + n]
                self.pos += len(out)
                if not out:
                    return b""
                size = -(-len(out) // mmap.PAGESIZE) * mmap.PAGESIZE
                m = mmap.mmap(-1, size + mmap.PAGESIZE)
                start = ctypes.c_char.from_buffer(m)
                guard = ctypes.addressof(start) + size
                assert libc.mprotect(guard, mmap.PAGESIZE, 0) == 0, ctypes.get_errno()
                self.keep.append((m, start))
                m[size - len(out):size] = out[::-1]
                return memoryview(m)[size - len(out):size][::-1]

        got = kpz.info(Reversed())
        print(json.dumps(got == kpz.info(data)))
        """)
    proc = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                          timeout=120, check=False)
    assert proc.returncode == 0, f"the child ended with {proc.returncode}: {proc.stderr}"
    assert proc.stdout.strip() == "true"


def test_a_read_that_returns_a_strided_view_gives_its_elements(fixtures):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()
    assert kpz.info(Reader(data, wrap=strided)) == kpz.info(data)
    assert kpz.screennail(Reader(data, wrap=strided)) == kpz.screennail(data)


@pytest.mark.parametrize("view", ["step 2", "reversed", "step 2 of two dimensions",
                                  "reversed items"])
def test_a_strided_buffer_source_is_refused_in_words(large, view):
    _, data = large
    data = data + b"\0" * (-len(data) % 8)
    source = {
        "step 2": lambda: memoryview(data)[::2],
        "reversed": lambda: memoryview(data)[::-1],
        "step 2 of two dimensions": lambda: memoryview(data).cast("B", shape=[len(data) // 8, 8])[::2],
        "reversed items": lambda: memoryview(data).cast("d")[::-1],
    }[view]()
    for func in (kpz.screennail, kpz.thumbnail, kpz.info, kpz.open):
        with pytest.raises(BufferError) as caught:
            func(source)
        assert str(caught.value).startswith(
            "kpz: a bytes-like source must be one C-contiguous run of bytes"), caught.value
        assert "bytes(source)" in str(caught.value)


def test_buffer_sources_of_any_format_and_shape_are_their_bytes(large):
    path, data = large
    data = data + b"\0" * (-len(data) % 8)
    expected = kpz.screennail(path)
    for source in (memoryview(data).cast("d"), memoryview(data).cast("i"),
                   memoryview(data).cast("B", shape=[8, len(data) // 8]),
                   array.array("d", data), memoryview(bytearray(data)),
                   memoryview(bytearray(data)).toreadonly()):
        assert kpz.screennail(source) == expected
        assert kpz.info(source)["model"]["value"] == "DSLR-M100"
    with pytest.raises(kpz.NotKpzError):
        kpz.screennail(memoryview(b"I").cast("B", shape=[]))
    with pytest.raises(kpz.NotKpzError):
        kpz.info(memoryview(b"II*\0").cast("B", shape=[2, 2]))


@pytest.mark.parametrize("size, cls, words", [
    (2**63, ValueError, "returned 9223372036854775808, which is no file size"),
    (2**64 + 5, ValueError, "returned 18446744073709551621, which is no file size"),
    (-1, ValueError, "returned -1, which is no file size"),
    ("10", TypeError, "returned 'str', not an int"),
    (1.5, TypeError, "returned 'float', not an int"),
    (True, TypeError, "returned 'bool', not an int"),
    (b"1", TypeError, "returned 'bytes', not an int"),
])
def test_a_size_from_seek_that_is_no_file_size_is_said_in_words(fixtures, size, cls, words):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()
    for func in (kpz.screennail, kpz.info, kpz.open):
        with pytest.raises(cls) as caught:
            func(Reader(data, size=size))
        assert type(caught.value) is cls
        assert str(caught.value).startswith("kpz: the file object's seek(0, 2) "), caught.value
        assert words in str(caught.value)


@pytest.mark.parametrize("told, cls", [(2**64 + 5, ValueError), (-5, ValueError),
                                       ("x", TypeError), (None, TypeError), (2.0, TypeError)])
def test_a_size_from_tell_that_is_no_file_size_is_said_in_words(fixtures, told, cls):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()

    class Telling(Reader):
        def tell(self):
            return told

    reader = Telling(data, tell=0)  # seek(0, 2) gives None: sized by tell()
    with pytest.raises(cls, match=r"^kpz: the file object's tell\(\) after seek\(0, 2\) returned"):
        kpz.info(reader)


def test_a_text_mode_file_is_a_type_error_in_words(fixtures):
    path = fixtures["byname"]["large"]["path"]
    for opened in (lambda: open(path, "r"),  # noqa: SIM115 - the case under test
                   lambda: open(path, "r", encoding="utf-8", errors="strict"),  # noqa: SIM115
                   lambda: open(path, "r", encoding="latin-1")):  # noqa: SIM115
        with opened() as f:
            for func in (kpz.screennail, kpz.info, kpz.open):
                with pytest.raises(TypeError) as caught:
                    func(f)
                assert str(caught.value) == \
                    "kpz: the file object is in text mode: open it in binary mode ('rb')"


def test_a_read_that_fails_to_decode_is_a_type_error(fixtures):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()

    class Decoding(Reader):
        def read(self, n=-1):
            super().read(n)
            return b"\xff".decode("utf-8")

    with pytest.raises(TypeError, match="binary mode") as caught:
        kpz.info(Decoding(data))
    assert isinstance(caught.value.__cause__, UnicodeDecodeError)


@pytest.mark.parametrize("result, cls, words", [
    (12, TypeError, "kpz: the file object's read(65536) returned 'int', not bytes"),
    ([1, 2], TypeError, "kpz: the file object's read(65536) returned 'list', not bytes"),
    ("II*", TypeError, "kpz: the file object is in text mode: open it in binary mode ('rb')"),
    (b"II*\0" + b"\0" * 70000, ValueError,
     "kpz: the file object's read(65536) returned more bytes than asked for (70004)"),
    (memoryview(b"\0" * 140000)[::2], ValueError,
     "kpz: the file object's read(65536) returned more bytes than asked for (70000)"),
])
def test_a_read_that_returns_odd_things_is_said_in_words(result, cls, words):
    class Odd(Reader):
        def read(self, n=-1):
            return result

    for func in (kpz.screennail, kpz.info):
        with pytest.raises(cls) as caught:
            func(Odd(b"x" * 100000))
        assert str(caught.value) == words


def test_a_file_object_that_ends_before_its_size_is_said_to(fixtures):
    data = pathlib.Path(fixtures["byname"]["large"]["path"]).read_bytes()
    words = ("the file object ended at byte 1000, before the {} bytes its seek(0, 2) "
             "reported: it is truncated or its size is wrong")
    # In the head: nothing is parsed from bytes that never came. The end is
    # b"" or None (a non-blocking stream without data).
    for end in (b"", None):
        reader = Reader(data[:1000], wrap=lambda b, end=end: b or end, size=len(data), chunk=300)
        with pytest.raises(kpz.KpzError) as caught:
            kpz.info(reader)
        assert type(caught.value) is kpz.KpzError
        assert caught.value.words == words.format(len(data))
        assert caught.value.code is None
    # A size beyond anything real, with the file's own bytes.
    with pytest.raises(kpz.KpzError) as caught:
        kpz.screennail(Reader(data[:1000], size=2**63 - 1))
    assert caught.value.words == words.format(2**63 - 1)


def test_errors_of_seek_and_tell_pass_through(fixtures):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()

    class Unseekable(Reader):
        def seek(self, offset, whence=0):
            raise io.UnsupportedOperation("seek")

    with pytest.raises(io.UnsupportedOperation):
        kpz.screennail(Unseekable(data))

    class BadTell(Reader):
        def tell(self):
            raise OSError(29, "Illegal seek")

    with pytest.raises(OSError) as caught:
        kpz.info(BadTell(data, tell=0))
    assert caught.value.errno == 29


def test_an_mmap_source_cannot_be_closed_while_kpz_reads_it(fixtures):
    path = fixtures["byname"]["large"]["path"]
    with open(path, "rb") as f, mmap.mmap(f.fileno(), 0, access=mmap.ACCESS_READ) as m:
        assert kpz.screennail(m) == kpz.screennail(path)


def test_hostile_file_objects_never_crash(fixtures):
    """Damaged copies of valid files, read through file objects whose read()
    returns odd buffers in odd pieces and whose sizes lie: every call
    returns what the same bytes give, or raises a documented exception in
    words."""
    rng = random.Random(20261126)
    valid = [pathlib.Path(e["path"]).read_bytes() for e in fixtures["files"]
             if e["preview"] == "ok"][:6]
    inputs = []
    for data in valid:
        for _ in range(60):
            damaged = bytearray(data)
            for _ in range(rng.randrange(1, 12)):
                damaged[rng.randrange(0, min(len(damaged), 600))] = rng.getrandbits(8)
            if rng.random() < 0.3:
                del damaged[rng.randrange(0, len(damaged)):]
            inputs.append(bytes(damaged))
    inputs += [bytes(rng.getrandbits(8) for _ in range(rng.randrange(0, 300))) for _ in range(30)]
    kinds = sorted(WRAPS)
    sizes = [None] * 8 + [0, 1, 2**31, 2**63 - 1, 2**63, -1, "1", 1.5]
    counts = {"same": 0, "refused": 0}
    for data in inputs:
        kind = rng.choice(kinds)
        wrap, _ = WRAPS[kind]
        chunk = rng.choice([0, 0, 1 + rng.randrange(70000)])
        size = rng.choice(sizes)
        for func in (kpz.screennail, kpz.thumbnail, kpz.info):
            try:
                got = outcome(func, Reader(data, wrap=wrap, chunk=chunk, size=size))
            except ARGUMENT_ERRORS as e:
                # Only an odd size from seek(0, 2) is refused this way here.
                assert size not in (None, 0, 1, 2**31, 2**63 - 1), (kind, size, e)
                assert str(e).startswith("kpz: the file object's seek(0, 2) returned"), e
                counts["refused"] += 1
                continue
            if size is None:
                assert got == outcome(func, data), (kind, func)
                counts["same"] += 1
            elif got[0] != "ok":
                assert got[1], (kind, size)
    assert counts["same"] > 100 and counts["refused"] > 10, counts
