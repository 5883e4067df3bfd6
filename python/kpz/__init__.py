"""Previews, thumbnails and metadata of KPZ camera raw files.

The preview (the "screennail") is the large JPEG a KPZ raw file carries; kpz
finds it from the file's first 64 KiB and reads only its own bytes, so a
preview costs two reads however large the file. The same native code as the
``kpz`` command-line tool does the work: the same bytes, the same metadata
(:func:`info` equals ``kpz info --json``) and the same words in errors.

    >>> import kpz
    >>> jpeg = kpz.screennail("IMG_0001.KPZ")            # bytes of the preview
    >>> kpz.thumbnail("IMG_0001.KPZ", upright=True)        # turned as the file says
    >>> kpz.info("IMG_0001.KPZ")["model"]["value"]
    'DSLR-M100'
    >>> with kpz.open("IMG_0001.KPZ") as raw:
    ...     raw.model, raw.orientation, raw.date_time_original
    ...     raw.set_orientation(1)                       # written in place

Sources. Every function takes:

* a path: ``str`` or ``os.PathLike``;
* a bytes-like object (``bytes``, ``bytearray``, ``memoryview``, ``mmap``,
  any C-contiguous buffer): the file's whole content;
* a binary file object with ``read()`` and ``seek()``: kpz asks its size
  (``seek(0, 2)``), reads its first 64 KiB and then the picture's range
  only, never the whole file. The object's position is left wherever those
  reads end.

Errors. A file that cannot be read raises the ``OSError`` subclass for its
errno with ``filename``, as ``open()`` does, and ``.code`` (the errno) and
``.words``; a file kpz cannot use raises a :class:`KpzError` subclass
(:class:`NotKpzError`, :class:`NoPreviewError`, :class:`BadPreviewError`,
:class:`OrientationError`) with ``.code`` and ``.words``; a source of the
wrong type raises ``TypeError``, a strided buffer ``BufferError``, a file
object that answers what no file does (a size that is not an int, more
bytes than asked) ``TypeError``/``ValueError``; what a file object's own
methods raise passes through. :func:`error_words` gives the ``kpz`` tool's
words for any of them.

``kpz.__version__`` is the package's version.

Threads. The interpreter lock is released while the native code reads,
parses, copies and turns, so threads run in parallel. The module functions
may be called from any number of threads at once. A :class:`RawFile` is
used by one thread at a time (separate objects: any number of threads).

The library's own diagnostic lines (what ``kpz -v`` shows) go to the logger
``"kpz.library"`` at DEBUG level, and nowhere when it does not listen.
"""

from __future__ import annotations

import datetime as _datetime
import json as _json
import os as _os
from typing import Any, Dict, Optional, Tuple, Union

from . import _kpz
from ._errors import (
    BadPreviewError,
    KpzError,
    NoPreviewError,
    NotKpzError,
    OrientationError,
    OrientationWriteError,
)

__all__ = [
    "screennail",
    "thumbnail",
    "info",
    "open",
    "RawFile",
    "error_words",
    "orientation_words",
    "KpzError",
    "NotKpzError",
    "NoPreviewError",
    "BadPreviewError",
    "OrientationError",
    "OrientationWriteError",
    "HEAD_SIZE",
    "__version__",
]

#: The package's version, as its wheel names it (``kpz-1.0.0-*.whl``).
__version__ = "1.0.0"

#: Bytes of a file's head that kpz parses (64 KiB).
HEAD_SIZE: int = _kpz.HEAD_SIZE

Source = Any  # str | os.PathLike | bytes-like | binary file object


def screennail(source: Source, *, upright: bool = False) -> bytes:
    """The preview JPEG (the "screennail") of a KPZ raw file, as bytes.

    The same bytes as ``kpz preview`` and the Java entry give. With
    ``upright=True`` the picture is turned as the file's orientation says,
    the same bytes as ``kpz preview --upright`` (lossless where its edges are
    whole JPEG blocks, else re-encoded at quality 95); a file whose
    orientation is normal or not recorded gives the stored bytes.

    Raises NotKpzError (not a KPZ raw file), NoPreviewError (none stored),
    BadPreviewError (it extends past the end of the file, lies beyond 2 GiB,
    or cannot be turned), an OSError subclass (the file cannot be read),
    TypeError (not a source).
    """
    return _kpz.screennail(source, upright=upright)


def thumbnail(source: Source, *, upright: bool = False) -> bytes:
    """The thumbnail JPEG (IFD1) of a KPZ raw file, as bytes: the same bytes
    as ``kpz thumbnail`` (``--upright`` with ``upright=True``). Raises as
    :func:`screennail` does."""
    return _kpz.thumbnail(source, upright=upright)


def info(source: Source) -> Dict[str, Any]:
    """Every metadata value of a KPZ raw file, as a dict equal, key for key,
    to the object ``kpz info --json`` prints for it (docs/KPZ-JSON.md): each
    value with the library's result code, fields None unless it is 0.

    ``"file"`` is the path as given, a file object's ``name``, or None for
    content given as bytes. A file that cannot be read raises the OSError
    subclass; one that is not a KPZ raw file raises NotKpzError, whose
    ``words`` are the ``"error"`` that ``kpz info --json`` prints for it.
    """
    data = _json.loads(_kpz.info_json(source))
    data["file"] = _name_of(source)
    return data


def error_words(exc: BaseException) -> str:
    """The ``kpz`` tool's words for an exception kpz raised (what ``kpz``
    prints after ``kpz: FILE:``): ``words`` where it carries them, the kit's
    words for an OSError's errno otherwise, else ``str(exc)``."""
    words = getattr(exc, "words", None)
    if isinstance(words, str):
        return words
    err = getattr(exc, "errno", None) if isinstance(exc, OSError) else None
    if isinstance(err, int) and not isinstance(err, bool):
        return _kpz.read_error_words(err)
    return str(exc)


def orientation_words(code: int) -> str:
    """A rotation code 0..7 in words, as ``kpz info`` prints it ("normal",
    "rotated 90° clockwise", ...). ValueError for any other int, however
    large; TypeError for anything that is not an int (a bool, a float)."""
    return _kpz.orientation_words(code)


def _name_of(source: Source) -> Optional[str]:
    if isinstance(source, str):
        return source
    if hasattr(source, "__fspath__"):
        return _os.fsdecode(_os.fspath(source))
    name = getattr(source, "name", None)
    if isinstance(name, (str, bytes)) and not _is_buffer(source):
        return _os.fsdecode(name)
    return None


def _is_buffer(source: Any) -> bool:
    try:
        memoryview(source)
    except TypeError:
        return False
    return True


def _value(entry: Dict[str, Any], field: str = "value") -> Any:
    return entry.get(field) if entry.get("result") == 0 else None


def _fraction(entry: Dict[str, Any]) -> Optional[Tuple[int, int]]:
    if entry.get("result") != 0:
        return None
    return (entry["numerator"], entry["denominator"])


class RawFile:
    """One KPZ raw file opened with :func:`open`: its metadata as typed
    properties, its pictures, and (for a path) its orientation to change.

    The metadata is read once, when the file is opened (and again after
    :meth:`set_orientation`). A property the file does not record is None.
    The pictures are read when asked for: a path is opened again for each,
    a file object is read at the picture's range (it must stay open), bytes
    are sliced.

    Use it as a context manager or call :meth:`close`; closing drops the
    source (a file object is not closed: it is the caller's). One thread at a
    time: a RawFile is not safe to share between threads without a lock
    (separate RawFile objects are independent).
    """

    def __init__(self, source: Source) -> None:
        if isinstance(source, str) or hasattr(source, "__fspath__"):
            self._path: Optional[Union[str, bytes]] = _os.fspath(source)
        else:
            self._path = None
        self._source: Any = source
        self._info: Dict[str, Any] = info(source)
        self._thumb_size: Optional[Tuple[int, int]] = None
        self._thumb_size_read = False

    # -- life -----------------------------------------------------------------
    def close(self) -> None:
        """Drops the source. Further picture reads raise ValueError."""
        self._source = None

    @property
    def closed(self) -> bool:
        """True once :meth:`close` was called (or the ``with`` block ended):
        the pictures can no longer be read; the metadata properties still
        answer from what was read at opening."""
        return self._source is None

    def __enter__(self) -> "RawFile":
        return self

    def __exit__(self, *exc: Any) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else "open"
        return f"<kpz.RawFile {self.file!r} {self.model!r} ({state})>"

    def _need_source(self) -> Any:
        if self._source is None:
            raise ValueError("kpz: the RawFile is closed")
        return self._source

    # -- pictures -------------------------------------------------------------
    def screennail(self, *, upright: bool = False) -> bytes:
        """The preview JPEG's bytes, as :func:`kpz.screennail`."""
        return _kpz.screennail(self._need_source(), upright=upright)

    def thumbnail(self, *, upright: bool = False) -> bytes:
        """The thumbnail JPEG's bytes, as :func:`kpz.thumbnail`."""
        return _kpz.thumbnail(self._need_source(), upright=upright)

    # -- metadata -------------------------------------------------------------
    @property
    def info(self) -> Dict[str, Any]:
        """The whole record, as :func:`kpz.info` gives it (a copy)."""
        return _json.loads(_json.dumps(self._info))

    @property
    def file(self) -> Optional[str]:
        """The path as given, a file object's name, or None."""
        return self._info.get("file")

    @property
    def make(self) -> Optional[str]:
        return _value(self._info["make"])

    @property
    def model(self) -> Optional[str]:
        return _value(self._info["model"])

    @property
    def screennail_offset(self) -> Optional[int]:
        """Where the preview starts, in bytes from the start of the file."""
        return _value(self._info["screennail"], "offset")

    @property
    def screennail_size(self) -> Optional[int]:
        """The preview's length in bytes."""
        return _value(self._info["screennail"], "size")

    @property
    def screennail_width(self) -> Optional[int]:
        """The preview's width in pixels as the file records it (0: not recorded)."""
        return _value(self._info["screennail"], "width")

    @property
    def screennail_height(self) -> Optional[int]:
        """The preview's height in pixels as the file records it (0: not recorded)."""
        return _value(self._info["screennail"], "height")

    @property
    def thumbnail_offset(self) -> Optional[int]:
        return _value(self._info["thumbnail"], "offset")

    @property
    def thumbnail_size(self) -> Optional[int]:
        return _value(self._info["thumbnail"], "size")

    def _thumbnail_pixels(self) -> Optional[Tuple[int, int]]:
        # The file does not record the thumbnail's size: its JPEG header does.
        # Read once, on first use (one read of the thumbnail's range).
        if not self._thumb_size_read:
            try:
                self._thumb_size = _kpz.jpeg_size(self.thumbnail())
            except KpzError:
                self._thumb_size = None
            self._thumb_size_read = True
        return self._thumb_size

    @property
    def thumbnail_width(self) -> Optional[int]:
        """The thumbnail's width in pixels, from its JPEG header (read on first
        use); None without a readable thumbnail."""
        size = self._thumbnail_pixels()
        return size[0] if size else None

    @property
    def thumbnail_height(self) -> Optional[int]:
        """The thumbnail's height in pixels, from its JPEG header."""
        size = self._thumbnail_pixels()
        return size[1] if size else None

    @property
    def orientation(self) -> Optional[int]:
        """The rotation code 0..7 (0 normal, 1 rotated 90° clockwise, 2 180°,
        3 90° counter-clockwise, 4-7 mirrored: see docs/KPZ-JSON.md)."""
        return _value(self._info["rotation"], "code")

    @property
    def exif_orientation(self) -> Optional[int]:
        """The same as an Exif orientation value 1..8."""
        return _value(self._info["rotation"], "exifOrientation")

    @property
    def orientation_words(self) -> Optional[str]:
        """The orientation in words ("normal", "rotated 90° clockwise", ...)."""
        code = self.orientation
        return None if code is None else _kpz.orientation_words(code)

    @property
    def upright_turn(self) -> Optional[str]:
        """The turn ``upright=True`` makes ("90° clockwise", ...), None for none."""
        return self._info["upright"]["turn"]

    @property
    def date_time_original(self) -> Optional[_datetime.datetime]:
        """When the picture was taken (Exif DateTimeOriginal, no time zone), or
        None when it is not recorded or is not a real date and time."""
        d = self._info["dateTimeOriginal"]
        if d.get("result") != 0:
            return None
        try:
            return _datetime.datetime(d["year"], d["month"], d["day"], d["hour"], d["minute"],
                                      d["second"])
        except ValueError:
            return None

    @property
    def exposure_time(self) -> Optional[Tuple[int, int]]:
        """(numerator, denominator) in seconds, reduced to 1/n as the library does."""
        return _fraction(self._info["exposureTime"])

    @property
    def f_number(self) -> Optional[Tuple[int, int]]:
        return _fraction(self._info["fNumber"])

    @property
    def iso_speed(self) -> Optional[int]:
        return _value(self._info["isoSpeed"])

    @property
    def exposure_bias(self) -> Optional[Tuple[int, int]]:
        """(numerator, denominator) in EV, signed."""
        return _fraction(self._info["exposureBias"])

    @property
    def exposure_program(self) -> Optional[int]:
        return _value(self._info["exposureProgram"])

    @property
    def focal_length(self) -> Optional[Tuple[int, int]]:
        """(numerator, denominator) in millimetres."""
        return _fraction(self._info["focalLength"])

    @property
    def focal_length_35mm(self) -> Optional[int]:
        """In millimetres; 0 means unknown."""
        f = _fraction(self._info["focalLength35mm"])
        return None if f is None else f[0]

    @property
    def exif_version(self) -> Optional[int]:
        """The Exif version's four digits as a number (230 is version 2.30)."""
        return _value(self._info["exifVersion"])

    @property
    def iob_version(self) -> Optional[int]:
        return _value(self._info["iobVersion"])

    @property
    def raw_image_width(self) -> Optional[int]:
        return _value(self._info["rawImageWidth"])

    @property
    def raw_image_height(self) -> Optional[int]:
        return _value(self._info["rawImageHeight"])

    # -- writing --------------------------------------------------------------
    def set_orientation(self, code: int) -> bool:
        """Writes rotation code ``code`` (0..7) into the file, in place, as
        ``kpz rotate --code`` does: only the orientation values change, the
        file never grows, its modification time is kept (its access time
        is that of the reads).
        Returns True when the file was changed, False when it already had
        that code. Needs a path (TypeError otherwise); ValueError for an int
        outside 0..7, TypeError for a code that is no int; OrientationError when the file records no orientation,
        OrientationWriteError when it cannot be changed; the OSError subclass
        when it cannot be read. The metadata is read again afterwards.
        """
        if self._path is None:
            raise TypeError("kpz: set_orientation writes into a file and needs its path")
        self._need_source()
        if isinstance(code, bool) or not isinstance(code, int):
            raise TypeError(f"kpz: a rotation code is an int, not {type(code).__name__!r}")
        try:
            result = _kpz.set_orientation(self._path, code)
        finally:
            # The view follows the file after any outcome (a refusal leaves
            # it as it was; a write whose times could not be set back
            # changed it).
            try:
                self._info = info(self._source)
            except Exception:  # noqa: BLE001 - the call's own error is raised
                pass
        return bool(result["written"])


def open(source: Source) -> RawFile:  # noqa: A001 - the package's own open
    """Opens a KPZ raw file: a :class:`RawFile` with its metadata read.
    Raises as :func:`info` does."""
    return RawFile(source)
