"""Previews, thumbnails and metadata of KPZ camera raw files.

The preview is the large JPEG a KPZ raw file carries; kpz
finds it from the file's first 64 KiB and reads only its own bytes, so a
preview costs two reads however large the file. The same native code as the
``kpz`` command-line tool does the work: the same bytes, the same metadata
(:func:`info` equals ``kpz info --json``) and the same words in errors.

    >>> import kpz
    >>> jpeg = kpz.preview("IMG_0001.KPZ")               # bytes of the preview
    >>> kpz.thumbnail("IMG_0001.KPZ", upright=True)        # turned as the file says
    >>> kpz.info("IMG_0001.KPZ")["model"]["value"]
    'DSLR-M100'
    >>> kpz.read_info("IMG_0001.KPZ").model                # the same, typed
    'DSLR-M100'
    >>> with kpz.open("IMG_0001.KPZ") as raw:
    ...     raw.model, raw.orientation, raw.date_time_original
    ...     raw.set_orientation(1)                       # written in place

Names. "preview", as the ``kpz`` tool says it, is the name of the large
JPEG: :func:`preview`, :meth:`RawFile.preview`, :attr:`Info.preview_size`.
"screennail", the name the file format and earlier versions of this package
use, stays as an alias of each (the same function or property) and as the
key of the :func:`info` dict (the ``kpz info --json`` key).

Sources. Every function takes a :data:`Source`:

* a path: ``str`` or ``os.PathLike``;
* a bytes-like object (``bytes``, ``bytearray``, ``memoryview``, ``mmap``,
  any C-contiguous buffer): the file's whole content;
* a binary file object with ``read()`` and ``seek()``: kpz asks its size
  (``seek(0, 2)``), reads its first 64 KiB and then the picture's range
  only, never the whole file, with ``readinto()`` where the object's class
  has its own. The object's position is left wherever those reads end.

Errors. A file that cannot be read raises the ``OSError`` subclass for its
errno with ``filename``, as ``open()`` does, and ``.code`` (the errno) and
``.words``, or :class:`NotRegularFileError` (an ``OSError``) for a named
pipe, socket or device, which kpz does not read; a file kpz cannot use
raises a :class:`KpzError` subclass (:class:`NotKpzError`,
:class:`NoPreviewError` or :class:`NoThumbnailError`, both a
:class:`NoPictureError`, :class:`BadPreviewError`,
:class:`OrientationError`) with ``.code`` and ``.words``; a source of the
wrong type raises ``TypeError``, a strided buffer ``BufferError``, a file
object that answers what no file does (a size that is not an int, more
bytes than asked) ``TypeError``/``ValueError``; what a file object's own
methods raise passes through unchanged. :func:`error_words` gives the ``kpz`` tool's
words for any of them.

``kpz.__version__`` is the package's version, the one the compiled module
was built with (the project's version, which the wheel's metadata carries too).

Threads. The interpreter lock is released while the native code reads,
parses, copies and turns, so threads run in parallel. The module functions
may be called from any number of threads at once. A :class:`RawFile` is
used by one thread at a time (separate objects: any number of threads).

The library's own diagnostic lines (what ``kpz -v`` shows) go to the logger
``"kpz.library"`` at DEBUG level, and nowhere when it does not listen.
"""

from __future__ import annotations

import dataclasses as _dataclasses
import datetime as _datetime
import json as _json
import mmap as _mmap
import os as _os
from typing import Any, Dict, Optional, Protocol, Tuple, Union

from . import _errors, _kpz
from ._errors import (
    BadPreviewError,
    KpzError,
    NoPictureError,
    NoPreviewError,
    NoThumbnailError,
    NotKpzError,
    NotRegularFileError,
    OrientationError,
    OrientationWriteError,
)

__all__ = [
    "preview",
    "screennail",
    "thumbnail",
    "info",
    "read_info",
    "Info",
    "Source",
    "BinaryReader",
    "open",
    "RawFile",
    "error_words",
    "orientation_words",
    *_errors.__all__,  # the exceptions
    "HEAD_SIZE",
    "THUMBNAIL_MAX_SIZE",
    "__version__",
]

#: The package's version: the project's, compiled into the module (the
#: wheel's metadata carries the same, ``importlib.metadata.version("kpz")``).
__version__: str = _kpz.__version__

#: Bytes of a file's head that kpz parses (64 KiB).
HEAD_SIZE: int = _kpz.HEAD_SIZE

#: The largest thumbnail kpz reads, in bytes (256 KiB): a thumbnail is a
#: small picture (a few KB; in a JPEG file the Exif segment holding it cannot
#: exceed 64 KiB). A file claiming a larger one raises BadPreviewError before
#: anything is read or allocated for it, as ``kpz thumbnail`` refuses it.
THUMBNAIL_MAX_SIZE: int = _kpz.THUMBNAIL_MAX_SIZE

class BinaryReader(Protocol):
    """A binary file object kpz can read: ``read(n)`` returning bytes (or any
    bytes-like object) and ``seek(offset, whence)``; ``open(path, "rb")``,
    ``io.BytesIO``, an fsspec file."""

    def read(self, size: int = ..., /) -> Any: ...

    def seek(self, offset: int, whence: int = ..., /) -> Any: ...


#: What every function of kpz reads: a path, the file's whole content as a
#: bytes-like object, or a binary file object.
Source = Union[str, _os.PathLike[str], _os.PathLike[bytes], bytes, bytearray, memoryview,
               _mmap.mmap, BinaryReader]


def preview(source: Source, *, upright: bool = False) -> bytes:
    """The preview JPEG of a KPZ raw file, as bytes (``screennail`` is the
    same function under the file format's name).

    The same bytes as ``kpz preview`` and the Java entry give. With
    ``upright=True`` the picture is turned as the file's orientation says,
    the same bytes as ``kpz preview --upright`` (lossless where its edges are
    whole JPEG blocks, else re-encoded at quality 95); a file whose
    orientation is normal or not recorded gives the stored bytes.

    Raises NotKpzError (not a KPZ raw file), NoPreviewError (none stored,
    or an empty one), BadPreviewError (it extends past the end of the file,
    lies beyond 2 GiB, or cannot be turned), an OSError subclass (the file
    cannot be read; NotRegularFileError for a pipe, socket or device),
    TypeError (not a source).
    """
    return _kpz.picture(source, "preview", upright=upright)


#: The same function as :func:`preview`, under the file format's name.
screennail = preview


def thumbnail(source: Source, *, upright: bool = False) -> bytes:
    """The thumbnail JPEG (IFD1) of a KPZ raw file, as bytes: the same bytes
    as ``kpz thumbnail`` (``--upright`` with ``upright=True``). Raises as
    :func:`screennail` does, but NoThumbnailError where the file holds no
    thumbnail (or an empty one); a thumbnail longer than
    :data:`THUMBNAIL_MAX_SIZE` raises BadPreviewError before any of it is
    read."""
    return _kpz.picture(source, "thumbnail", upright=upright)


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
    data["file"] = _kpz.source_kind(source)[1]
    return data


def read_info(source: Source) -> "Info":
    """The metadata of a KPZ raw file as an :class:`Info`: typed fields with
    snake_case names, None for a value the file does not record. The same
    values as :func:`info` (``Info.as_dict()`` is that dict); raises as it."""
    return Info.from_dict(info(source))


def error_words(exc: BaseException) -> str:
    """The ``kpz`` tool's words for an exception kpz raised (what ``kpz``
    prints after ``kpz: FILE:``): ``words`` where it carries them, the kit's
    words for an OSError's errno otherwise, else ``str(exc)`` without the
    ``"kpz: "`` that kpz's own TypeError and ValueError messages begin with
    ("the file object is in text mode: open it in binary mode ('rb')"), so
    that every phrase reads alike after ``kpz: FILE:``."""
    words = getattr(exc, "words", None)
    if isinstance(words, str):
        return words
    err = getattr(exc, "errno", None) if isinstance(exc, OSError) else None
    if isinstance(err, int) and not isinstance(err, bool):
        return _kpz.read_error_words(err)
    text = str(exc)
    return text[len(_OWN_PREFIX):] if text.startswith(_OWN_PREFIX) else text


# What kpz's own TypeError and ValueError messages begin with.
_OWN_PREFIX = "kpz: "


def orientation_words(code: int) -> str:
    """A rotation code 0..7 in words, as ``kpz info`` prints it ("normal",
    "rotated 90° clockwise", ...). ValueError for any other int, however
    large; TypeError for anything that is not an int (a bool, a float)."""
    return _kpz.orientation_words(code)


def _value(entry: Dict[str, Any], field: str = "value") -> Any:
    return entry.get(field) if entry.get("result") == 0 else None


def _fraction(entry: Dict[str, Any]) -> Optional[Tuple[int, int]]:
    if entry.get("result") != 0:
        return None
    return (entry["numerator"], entry["denominator"])


def _date_time(entry: Dict[str, Any]) -> Optional[_datetime.datetime]:
    if entry.get("result") != 0:
        return None
    try:
        return _datetime.datetime(entry["year"], entry["month"], entry["day"], entry["hour"],
                                  entry["minute"], entry["second"])
    except ValueError:
        return None


@_dataclasses.dataclass(frozen=True)
class Info:
    """The metadata of a KPZ raw file, typed (:func:`read_info`,
    :attr:`RawFile.metadata`). A value the file does not record is None.
    ``as_dict()`` gives the dict :func:`info` gives (``kpz info --json``)."""

    #: The path as given, a file object's name, or None for bytes.
    file: Optional[str]
    make: Optional[str]
    model: Optional[str]
    #: Where the preview starts, in bytes from the start of the file.
    preview_offset: Optional[int]
    #: The preview's length in bytes.
    preview_size: Optional[int]
    #: The preview's size in pixels as the file records it (0: not recorded).
    preview_width: Optional[int]
    preview_height: Optional[int]
    thumbnail_offset: Optional[int]
    thumbnail_size: Optional[int]
    #: The rotation code 0..7 (0 normal, 1 rotated 90° clockwise, 2 180°, 3 90°
    #: counter-clockwise, 4-7 mirrored: see docs/KPZ-JSON.md).
    orientation: Optional[int]
    #: The same as an Exif orientation value 1..8.
    exif_orientation: Optional[int]
    #: The turn ``upright=True`` makes ("90° clockwise", ...), None for none.
    upright_turn: Optional[str]
    #: When the picture was taken (no time zone); None when not recorded or
    #: not a real date and time.
    date_time_original: Optional[_datetime.datetime]
    #: (numerator, denominator) in seconds, reduced to 1/n as the library does.
    exposure_time: Optional[Tuple[int, int]]
    f_number: Optional[Tuple[int, int]]
    iso_speed: Optional[int]
    #: (numerator, denominator) in EV, signed.
    exposure_bias: Optional[Tuple[int, int]]
    exposure_program: Optional[int]
    #: (numerator, denominator) in millimetres.
    focal_length: Optional[Tuple[int, int]]
    #: In millimetres; 0 means unknown.
    focal_length_35mm: Optional[int]
    #: The Exif version's four digits as a number (230 is version 2.30).
    exif_version: Optional[int]
    iob_version: Optional[int]
    raw_image_width: Optional[int]
    raw_image_height: Optional[int]
    _record: Dict[str, Any] = _dataclasses.field(repr=False, compare=False)

    @property
    def screennail_offset(self) -> Optional[int]:
        """:attr:`preview_offset` under the file format's name."""
        return self.preview_offset

    @property
    def screennail_size(self) -> Optional[int]:
        """:attr:`preview_size` under the file format's name."""
        return self.preview_size

    @classmethod
    def from_dict(cls, d: Dict[str, Any]) -> "Info":
        """The typed form of a dict as :func:`info` gives it."""
        f35 = _fraction(d["focalLength35mm"])
        return cls(
            file=d.get("file"),
            make=_value(d["make"]),
            model=_value(d["model"]),
            preview_offset=_value(d["screennail"], "offset"),
            preview_size=_value(d["screennail"], "size"),
            preview_width=_value(d["screennail"], "width"),
            preview_height=_value(d["screennail"], "height"),
            thumbnail_offset=_value(d["thumbnail"], "offset"),
            thumbnail_size=_value(d["thumbnail"], "size"),
            orientation=_value(d["rotation"], "code"),
            exif_orientation=_value(d["rotation"], "exifOrientation"),
            upright_turn=d["upright"]["turn"],
            date_time_original=_date_time(d["dateTimeOriginal"]),
            exposure_time=_fraction(d["exposureTime"]),
            f_number=_fraction(d["fNumber"]),
            iso_speed=_value(d["isoSpeed"]),
            exposure_bias=_fraction(d["exposureBias"]),
            exposure_program=_value(d["exposureProgram"]),
            focal_length=_fraction(d["focalLength"]),
            focal_length_35mm=None if f35 is None else f35[0],
            exif_version=_value(d["exifVersion"]),
            iob_version=_value(d["iobVersion"]),
            raw_image_width=_value(d["rawImageWidth"]),
            raw_image_height=_value(d["rawImageHeight"]),
            _record=_json.loads(_json.dumps(d)),
        )

    def as_dict(self) -> Dict[str, Any]:
        """The dict :func:`info` gives for the same file (a copy)."""
        return _json.loads(_json.dumps(self._record))


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
        self._meta: Info = read_info(source)
        # The kind of source as the native code decides it.
        is_path = _kpz.source_kind(source)[0] == "path"
        self._path: Optional[Union[str, bytes]] = _os.fspath(source) if is_path else None  # type: ignore[arg-type]
        self._source: Any = source
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
    def preview(self, *, upright: bool = False) -> bytes:
        """The preview JPEG's bytes, as :func:`kpz.preview`."""
        return _kpz.picture(self._need_source(), "preview", upright=upright)

    #: The same method as :meth:`preview`, under the file format's name.
    screennail = preview

    def thumbnail(self, *, upright: bool = False) -> bytes:
        """The thumbnail JPEG's bytes, as :func:`kpz.thumbnail`."""
        return _kpz.picture(self._need_source(), "thumbnail", upright=upright)

    # -- metadata -------------------------------------------------------------
    @property
    def info(self) -> Dict[str, Any]:
        """The whole record, as :func:`kpz.info` gives it (a copy)."""
        return self._meta.as_dict()

    @property
    def metadata(self) -> Info:
        """The whole record, typed, as :func:`kpz.read_info` gives it."""
        return self._meta

    @property
    def file(self) -> Optional[str]:
        """The path as given, a file object's name, or None."""
        return self._meta.file

    @property
    def make(self) -> Optional[str]:
        return self._meta.make

    @property
    def model(self) -> Optional[str]:
        return self._meta.model

    @property
    def preview_offset(self) -> Optional[int]:
        """Where the preview starts, in bytes from the start of the file."""
        return self._meta.preview_offset

    @property
    def preview_size(self) -> Optional[int]:
        """The preview's length in bytes."""
        return self._meta.preview_size

    @property
    def preview_width(self) -> Optional[int]:
        """The preview's width in pixels as the file records it (0: not recorded)."""
        return self._meta.preview_width

    @property
    def preview_height(self) -> Optional[int]:
        """The preview's height in pixels as the file records it (0: not recorded)."""
        return self._meta.preview_height

    # The file format's name for the same values.
    screennail_offset = preview_offset
    screennail_size = preview_size
    screennail_width = preview_width
    screennail_height = preview_height

    @property
    def thumbnail_offset(self) -> Optional[int]:
        return self._meta.thumbnail_offset

    @property
    def thumbnail_size(self) -> Optional[int]:
        return self._meta.thumbnail_size

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
        return self._meta.orientation

    @property
    def exif_orientation(self) -> Optional[int]:
        """The same as an Exif orientation value 1..8."""
        return self._meta.exif_orientation

    @property
    def orientation_words(self) -> Optional[str]:
        """The orientation in words ("normal", "rotated 90° clockwise", ...)."""
        code = self.orientation
        return None if code is None else _kpz.orientation_words(code)

    @property
    def upright_turn(self) -> Optional[str]:
        """The turn ``upright=True`` makes ("90° clockwise", ...), None for none."""
        return self._meta.upright_turn

    @property
    def date_time_original(self) -> Optional[_datetime.datetime]:
        """When the picture was taken (Exif DateTimeOriginal, no time zone), or
        None when it is not recorded or is not a real date and time."""
        return self._meta.date_time_original

    @property
    def exposure_time(self) -> Optional[Tuple[int, int]]:
        """(numerator, denominator) in seconds, reduced to 1/n as the library does."""
        return self._meta.exposure_time

    @property
    def f_number(self) -> Optional[Tuple[int, int]]:
        return self._meta.f_number

    @property
    def iso_speed(self) -> Optional[int]:
        return self._meta.iso_speed

    @property
    def exposure_bias(self) -> Optional[Tuple[int, int]]:
        """(numerator, denominator) in EV, signed."""
        return self._meta.exposure_bias

    @property
    def exposure_program(self) -> Optional[int]:
        return self._meta.exposure_program

    @property
    def focal_length(self) -> Optional[Tuple[int, int]]:
        """(numerator, denominator) in millimetres."""
        return self._meta.focal_length

    @property
    def focal_length_35mm(self) -> Optional[int]:
        """In millimetres; 0 means unknown."""
        return self._meta.focal_length_35mm

    @property
    def exif_version(self) -> Optional[int]:
        """The Exif version's four digits as a number (230 is version 2.30)."""
        return self._meta.exif_version

    @property
    def iob_version(self) -> Optional[int]:
        return self._meta.iob_version

    @property
    def raw_image_width(self) -> Optional[int]:
        return self._meta.raw_image_width

    @property
    def raw_image_height(self) -> Optional[int]:
        return self._meta.raw_image_height

    # -- writing --------------------------------------------------------------
    def set_orientation(self, code: int) -> bool:
        """Writes rotation code ``code`` (0..7) into the file, in place, as
        ``kpz rotate --code`` does: only the orientation values change, the
        file never grows, its modification time is kept (its access time
        is that of the reads).
        Returns True when the file was changed, False when it already had
        that code. Needs a path (TypeError otherwise); ValueError for an int
        outside 0..7, TypeError for a code that is no int; OrientationError
        when the file records no orientation, OrientationWriteError when it
        cannot be changed (read-only, a failed write, or a place it would
        write or copy that is not the file's own: past its end, over its
        TIFF header or a directory entry; then nothing is written); the
        OSError subclass when it cannot be read. The metadata is read again
        afterwards.
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
            # changed it). If the file cannot be read again, the call's own
            # error is the one raised, and the view stays as it was.
            try:
                self._meta = read_info(self._source)
            except (KpzError, OSError):
                pass
        return bool(result["written"])


def open(source: Source) -> RawFile:  # noqa: A001 - the package's own open
    """Opens a KPZ raw file: a :class:`RawFile` with its metadata read.
    Raises as :func:`info` does."""
    return RawFile(source)
