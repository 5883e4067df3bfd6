"""A thumbnail is small: one that claims more than kpz.THUMBNAIL_MAX_SIZE
(here 600 MB, inside a sparse file of that size) is refused in the kpz tool's
words, from a path, a RawFile and a file object alike, before anything is
allocated or read for it."""

import io
import os
import shutil
import subprocess
import sys
import textwrap

import pytest

import kpz

CLAIMED = 600 * 1024 * 1024
WORDS = ("the thumbnail stored in this file is too large (629145600 bytes; a thumbnail is "
         "at most 262144)")


@pytest.fixture()
def huge(fixtures, tmp_path):
    """The fixture whose thumbnail claims 600 MB, grown (sparse) to hold it."""
    path = str(tmp_path / "huge.kpz")
    shutil.copyfile(fixtures["byname"]["thumbnail_claims_600mb"]["path"], path)
    os.truncate(path, CLAIMED + 0x20000)
    return path


class SparseReader(io.RawIOBase):
    """A 600 MB file object: the fixture's bytes, then zeros; it records the
    length of every read asked for."""

    def __init__(self, head: bytes, size: int) -> None:
        self._head = head
        self._size = size
        self._pos = 0
        self.asked = []

    def readable(self):
        return True

    def seekable(self):
        return True

    def seek(self, offset, whence=0):
        self._pos = {0: 0, 1: self._pos, 2: self._size}[whence] + offset
        return self._pos

    def tell(self):
        return self._pos

    def read(self, n=-1):
        self.asked.append(n)
        if n is None or n < 0:
            raise AssertionError("kpz must never read a whole file")
        end = min(self._pos + n, self._size)
        out = self._head[self._pos:end]
        out += bytes(max(0, end - max(self._pos, len(self._head))))
        self._pos = end
        return out


def test_the_bound_is_256_kib():
    assert kpz.THUMBNAIL_MAX_SIZE == 256 * 1024


def test_a_thumbnail_claiming_600_mb_is_refused_as_too_large_in_the_tools_words(
        huge, run_tool):
    with pytest.raises(kpz.BadPreviewError) as caught:
        kpz.thumbnail(huge)
    assert caught.value.words == WORDS
    assert caught.value.code is None
    assert kpz.error_words(caught.value) == WORDS
    with kpz.open(huge) as raw:
        with pytest.raises(kpz.BadPreviewError) as again:
            raw.thumbnail()
        assert again.value.words == WORDS
        assert raw.thumbnail_width is None
        # The preview of the same file is read as usual.
        assert raw.preview() == kpz.preview(huge)
    ran = run_tool("thumbnail", "-o", "-", huge, path=huge)
    assert ran.status == 1
    assert ran.words() == WORDS


def test_a_file_object_claiming_600_mb_is_refused_after_reading_its_head_only(huge):
    with open(huge, "rb") as f:
        head = f.read(kpz.HEAD_SIZE)
    reader = SparseReader(head, CLAIMED + 0x20000)
    with pytest.raises(kpz.BadPreviewError) as caught:
        kpz.thumbnail(reader)
    assert caught.value.words == WORDS
    assert reader.asked == [kpz.HEAD_SIZE]


def test_a_thumbnail_claiming_600_mb_is_refused_within_bounded_memory(huge):
    # In a child whose address space is capped 300 MB above what it uses
    # once kpz is imported: a read of the claimed 600 MB could not even be
    # allocated there (MemoryError); the refusal needs none of it.
    child = textwrap.dedent("""
        import resource, sys
        import kpz
        with open("/proc/self/status") as f:
            vm = next(int(line.split()[1]) for line in f if line.startswith("VmSize:"))
        cap = vm * 1024 + 300 * 1024 * 1024
        resource.setrlimit(resource.RLIMIT_AS, (cap, cap))
        try:
            kpz.thumbnail(sys.argv[1])
        except BaseException as e:
            print(type(e).__name__, getattr(e, "words", e))
        else:
            print("read")
    """)
    ran = subprocess.run([sys.executable, "-c", child, huge], capture_output=True, text=True,
                         timeout=120, check=False, env=dict(os.environ))
    assert ran.returncode == 0, ran.stderr
    assert ran.stdout == f"BadPreviewError {WORDS}\n"


def test_a_thumbnail_of_the_bound_is_read(fixtures, tmp_path):
    # The bound itself is allowed: the "large" fixture's thumbnail is small,
    # so its claim is raised to exactly THUMBNAIL_MAX_SIZE bytes, all inside
    # the file, and read whole.
    raw = kpz.open(fixtures["byname"]["large"]["path"])
    offset = raw.thumbnail_offset
    data = bytearray(open(fixtures["byname"]["large"]["path"], "rb").read())  # noqa: SIM115
    assert offset + kpz.THUMBNAIL_MAX_SIZE + 1 <= len(data)
    length_at = _thumbnail_length_field(bytes(data))
    for length, ok in ((kpz.THUMBNAIL_MAX_SIZE, True), (kpz.THUMBNAIL_MAX_SIZE + 1, False)):
        data[length_at:length_at + 4] = length.to_bytes(4, "little")
        if ok:
            assert kpz.thumbnail(bytes(data)) == bytes(data[offset:offset + length])
        else:
            with pytest.raises(kpz.BadPreviewError) as caught:
                kpz.thumbnail(bytes(data))
            assert caught.value.words == (
                "the thumbnail stored in this file is too large (262145 bytes; a thumbnail is "
                "at most 262144)")


def _thumbnail_length_field(data: bytes) -> int:
    """Where IFD1's thumbnail length (tag 0x0202) holds its value, in a
    little-endian file."""
    assert data[:2] == b"II"
    ifd0 = int.from_bytes(data[4:8], "little")
    count0 = int.from_bytes(data[ifd0:ifd0 + 2], "little")
    ifd1 = int.from_bytes(data[ifd0 + 2 + 12 * count0:ifd0 + 6 + 12 * count0], "little")
    count1 = int.from_bytes(data[ifd1:ifd1 + 2], "little")
    for i in range(count1):
        entry = ifd1 + 2 + 12 * i
        if int.from_bytes(data[entry:entry + 2], "little") == 0x0202:
            return entry + 8
    raise AssertionError("no thumbnail length in IFD1")
