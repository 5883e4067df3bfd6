"""Every kind of source, and how a file object is read: its size, its head
and the picture's range, nothing else."""

import io
import mmap
import os
import pathlib

import pytest

import kpz


class CountingReader(io.RawIOBase):
    """A binary file object over bytes that records every read as (offset,
    length asked, length given) and every seek."""

    def __init__(self, data: bytes, chunk: int = 0) -> None:
        self._data = data
        self._pos = 0
        self._chunk = chunk  # > 0: read() gives at most this much (short reads)
        self.reads = []
        self.seeks = []

    def readable(self):
        return True

    def seekable(self):
        return True

    def seek(self, offset, whence=0):
        self.seeks.append((offset, whence))
        base = {0: 0, 1: self._pos, 2: len(self._data)}[whence]
        self._pos = base + offset
        return self._pos

    def tell(self):
        return self._pos

    def read(self, n=-1):
        if n is None or n < 0:
            raise AssertionError("kpz must never read a whole file")
        give = n if self._chunk <= 0 else min(n, self._chunk)
        out = self._data[self._pos:self._pos + give]
        self.reads.append((self._pos, n, len(out)))
        self._pos += len(out)
        return out


def test_paths_str_pathlib_and_pathlike(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    expected = kpz.screennail(path)

    class Custom:
        def __fspath__(self):
            return path

    assert kpz.screennail(pathlib.Path(path)) == expected
    assert kpz.screennail(Custom()) == expected
    assert kpz.info(pathlib.Path(path))["file"] == path


def test_buffers_of_every_kind(fixtures):
    path = fixtures["byname"]["large"]["path"]
    expected = kpz.screennail(path)
    data = pathlib.Path(path).read_bytes()
    with open(path, "rb") as f, mmap.mmap(f.fileno(), 0, access=mmap.ACCESS_READ) as mapped:
        assert kpz.screennail(mapped) == expected
    assert kpz.screennail(bytearray(data)) == expected
    assert kpz.screennail(memoryview(data)) == expected
    import array
    assert kpz.screennail(array.array("B", data)) == expected
    # A slice of a larger buffer is its own content.
    view = memoryview(b"\0" * 10 + data)[10:]
    assert kpz.screennail(view) == expected


def test_a_buffer_that_is_not_contiguous_is_refused(fixtures):
    data = pathlib.Path(fixtures["byname"]["plain"]["path"]).read_bytes()
    with pytest.raises(BufferError):
        kpz.screennail(memoryview(data)[::2])


def test_a_file_object_is_read_at_its_head_and_the_picture_only(fixtures):
    entry = fixtures["byname"]["large"]
    data = pathlib.Path(entry["path"]).read_bytes()
    raw = kpz.open(entry["path"])
    reader = CountingReader(data)
    assert kpz.screennail(reader) == kpz.screennail(entry["path"])
    assert reader.reads == [(0, kpz.HEAD_SIZE, kpz.HEAD_SIZE),
                            (raw.screennail_offset, raw.screennail_size, raw.screennail_size)]
    assert reader.seeks == [(0, 2), (0, 0), (raw.screennail_offset, 0)]
    assert sum(given for _, _, given in reader.reads) < len(data) / 4

    reader = CountingReader(data)
    kpz.thumbnail(reader)
    assert reader.reads[1] == (raw.thumbnail_offset, raw.thumbnail_size, raw.thumbnail_size)


def test_short_reads_are_repeated(fixtures):
    path = fixtures["byname"]["large"]["path"]
    data = pathlib.Path(path).read_bytes()
    reader = CountingReader(data, chunk=1000)
    assert kpz.screennail(reader) == kpz.screennail(path)
    assert kpz.info(CountingReader(data, chunk=777)) == {**kpz.info(path), "file": None}


def test_a_file_shorter_than_the_head_is_read_whole_with_zeros_after_it(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    data = pathlib.Path(path).read_bytes()
    assert len(data) < kpz.HEAD_SIZE
    reader = CountingReader(data)
    assert kpz.screennail(reader) == kpz.screennail(path)
    # Up to the size it told: no read is spent on finding the end.
    assert reader.reads[0] == (0, len(data), len(data))


def test_a_stream_that_ends_before_the_picture_is_a_bad_preview(fixtures):
    path = fixtures["byname"]["large"]["path"]
    data = pathlib.Path(path).read_bytes()

    class Lying(CountingReader):
        """Claims the full size but holds only the first 3.1 MB."""

        def seek(self, offset, whence=0):
            pos = super().seek(offset, whence)
            return len(data) if whence == 2 else pos

    reader = Lying(data[:3100000])
    with pytest.raises(kpz.BadPreviewError) as caught:
        kpz.screennail(reader)
    assert caught.value.words == (
        "preview extends past the end of the file: the file object ended at byte 3100000, "
        f"before the {len(data)} bytes its seek(0, 2) reported: it is truncated or its size "
        "is wrong")
    assert caught.value.code is None


def test_a_file_object_whose_seek_returns_none_is_sized_by_tell(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    data = pathlib.Path(path).read_bytes()

    class OldStyle(CountingReader):
        def seek(self, offset, whence=0):
            super().seek(offset, whence)
            return None

    assert kpz.screennail(OldStyle(data)) == kpz.screennail(path)


def test_a_text_file_object_is_refused(fixtures):
    with open(fixtures["byname"]["plain"]["path"], encoding="latin-1") as f:
        with pytest.raises(TypeError, match="binary mode"):
            kpz.screennail(f)


def test_errors_of_a_file_object_pass_through(fixtures):
    class Broken(CountingReader):
        def read(self, n=-1):
            raise OSError(5, "Input/output error")

    with pytest.raises(OSError) as caught:
        kpz.screennail(Broken(b"x" * 100))
    assert caught.value.errno == 5


def test_a_read_that_gives_more_than_asked_is_refused():
    class Greedy(CountingReader):
        def read(self, n=-1):
            return b"II*\0" + b"\0" * (n + 10)

    with pytest.raises(ValueError, match="more bytes than asked"):
        kpz.screennail(Greedy(b"x" * 100))


@pytest.mark.parametrize("bad", [12, 1.5, None, object(), ["a.kpz"], {"a": 1}])
def test_wrong_types_raise_type_error(bad):
    for func in (kpz.screennail, kpz.thumbnail, kpz.info, kpz.open):
        with pytest.raises(TypeError, match="a source is a path"):
            func(bad)


def test_upright_is_keyword_only(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    with pytest.raises(TypeError):
        kpz.screennail(path, True)  # noqa: FBT003 - the call under test


def test_the_caller_s_file_object_stays_open(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    with open(path, "rb") as f:
        kpz.screennail(f)
        kpz.info(f)
        assert not f.closed
        f.seek(0)
        assert f.read(2) in (b"II", b"MM")


def test_embedded_null_in_a_path_is_a_value_error():
    with pytest.raises(ValueError):
        kpz.screennail("a\0b.kpz")


def test_non_utf8_path_names_work(fixtures, tmp_path):
    src = fixtures["byname"]["plain"]["path"]
    odd = os.path.join(os.fsencode(str(tmp_path)), b"caf\xe9.kpz")
    with open(src, "rb") as f, open(odd, "wb") as g:
        g.write(f.read())
    assert kpz.screennail(odd.decode("utf-8", "surrogateescape")) == kpz.screennail(src)

    class BytesPath:
        def __fspath__(self):
            return odd

    assert kpz.screennail(BytesPath()) == kpz.screennail(src)
