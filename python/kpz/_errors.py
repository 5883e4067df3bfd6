"""The exceptions of the kpz package.

Every exception kpz raises for a file carries ``words``: the reason in the
words the ``kpz`` command-line tool prints after ``kpz: FILE:``. A file that
cannot be read raises the ``OSError`` subclass for its ``errno``
(``FileNotFoundError``, ``PermissionError``, ``IsADirectoryError``, ...)
with ``errno``, ``strerror`` and ``filename`` as ``open()`` sets them (the
same class and arguments), and two more attributes, as a KpzError has them:
``words`` and ``code`` (the errno again); a file kpz does not read because
it is no regular file (a named pipe, a socket, a device) raises
:class:`NotRegularFileError`, an ``OSError`` too. Everything else about a
file raises a :class:`KpzError`.

The library sorts every failure to read a picture into one of five kinds,
numbered as Java's ``KpzException.Kind``; :data:`_CLASS_OF_KIND` is the one
table from a kind to the class raised for it, and :func:`_error_for` makes
the exception. The extension module raises through it, so that Python, Java
and ``kpz`` tell the same file the same way.
"""

from __future__ import annotations

import errno
import os
from typing import Dict, Optional, Type, Union

__all__ = [
    "KpzError",
    "NotKpzError",
    "NoPictureError",
    "NoPreviewError",
    "NoThumbnailError",
    "BadPreviewError",
    "NotRegularFileError",
    "OrientationError",
    "OrientationWriteError",
]

_Name = Optional[Union[str, bytes, os.PathLike]]


def _told(exc) -> str:
    """str() of every exception kpz raises for a file: "FILE: words", or the
    words alone when it has no name."""
    if exc.filename is None:
        return exc.words
    return f"{os.fsdecode(exc.filename)}: {exc.words}"


def _pickled(exc):
    """How they pickle: made again from words, code and filename; attributes
    set after construction (``kind``) travel as its state."""
    return (type(exc), (exc.words, exc.code, exc.filename), exc.__dict__)


class KpzError(Exception):
    """A file kpz cannot use for what was asked.

    Attributes:
        words: the reason, as the ``kpz`` tool words it
            (``"not a KPZ raw file (no TIFF header)"``).
        code: the library's result code behind it (``-400``, ``-100``, ...),
            or None when the reason is the kit's own finding (a picture that
            extends past the end of the file, a JPEG that cannot be turned).
        filename: the path as given, the file object's ``name``, or None
            (for content given as bytes).
        kind: for a failure to read a picture, the library's kind of failure
            (``"not_kpz"``, ``"damaged"``, ``"no_preview"``,
            ``"no_thumbnail"``, ``"unreadable"``), as Java's
            ``KpzException.Kind`` names it; the OSErrors kpz raises carry it
            too.

    ``str()`` gives ``"FILE: words"`` when the file has a name, else the words.
    Instances pickle with all three attributes (they cross process
    boundaries, for example in a Dask cluster).
    """

    #: The library's kind of failure by name, None where it names none.
    kind: Optional[str] = None

    def __init__(self, words: str, code: Optional[int] = None, filename: _Name = None) -> None:
        super().__init__(words, code, filename)
        self.words = words
        self.code = code
        self.filename = filename

    __str__ = _told
    __reduce__ = _pickled


class NotKpzError(KpzError):
    """The file is not a KPZ raw file: its head does not parse as one.

    ``code`` is the library's result (-400 no TIFF header, -101 model, Exif
    data or maker note missing, -305/-306/-307 a directory or value out of
    reach); ``words`` say what a bounds-checked look at the head shows:
    ``"not a KPZ raw file (only one directory, no second one after IFD0)"``
    for an ordinary TIFF, ``"... (no camera model)"``, ``"... (IFD1 lies past
    the end of the file)"``, ... (the same words as the kpz tool).
    """


class NoPictureError(KpzError):
    """The file holds no picture of the kind asked for: none is recorded, or
    the one recorded is 0 bytes long. Catch this to fall back to the other
    picture whichever was asked for; :class:`NoPreviewError` and
    :class:`NoThumbnailError` tell which one is missing.

    ``code`` is -100 when none is recorded, 0 when one is recorded with a
    length of 0 bytes.
    """


class NoPreviewError(NoPictureError):
    """The file holds no preview: none is recorded (``"no preview stored in
    this file"``, ``code`` -100), or it is 0 bytes long (``code`` 0)."""


class NoThumbnailError(NoPictureError):
    """The file holds no thumbnail: none is recorded (``"no thumbnail stored
    in this file"``, ``code`` -100), or it is 0 bytes long (``code`` 0)."""


class BadPreviewError(KpzError):
    """The picture is recorded but cannot be used: it extends past the end of
    the file or lies beyond its first 2 GiB, a thumbnail is longer than
    ``kpz.THUMBNAIL_MAX_SIZE``, its location cannot be read (``code``: the
    library's result), or (with ``upright=True``) its JPEG cannot be turned.
    Raised for a preview and a thumbnail alike. ``code`` is None unless the
    library's result tells the reason.
    """


class NotRegularFileError(OSError):
    """The file is not a regular file (a named pipe, a socket, a device) and
    kpz does not read it: a pipe or socket cannot be read at an offset, and
    opening one must not wait for a writer. An ``OSError``, as every file
    that cannot be read raises, with ``filename`` and ``strerror`` (the
    words); ``errno`` is the system's error number where the library gives
    one (``ESPIPE`` for a pipe or socket), else None.

    Attributes ``words`` (``"not a regular file (a device, named pipe or
    socket), not read"``), ``code`` (the errno or None) and ``filename``, as
    a :class:`KpzError` has them; ``str()`` is ``"FILE: words"``.
    """

    kind: Optional[str] = "unreadable"

    def __init__(self, words: str, code: Optional[int] = None, filename: _Name = None) -> None:
        super().__init__(code, words, filename)
        self.words = words
        self.code = code

    __str__ = _told
    __reduce__ = _pickled


class OrientationError(KpzError):
    """A new orientation cannot be written: the file records none, or it
    cannot be read as a KPZ raw file for the change."""


class OrientationWriteError(OrientationError):
    """A new orientation cannot be written because the file cannot be changed
    (read-only, a failed write, or a place the change would write or copy
    that is not the file's own, in which case nothing is written)."""


# ---- the library's failure kinds -------------------------------------------

#: The kinds of failure, numbered as Java's ``KpzException.Kind``.
KIND_NOT_KPZ = 0  # laid out as something else: not a KPZ raw file
KIND_DAMAGED = 1  # a picture recorded that cannot be used (past the end, out of reach, ...)
KIND_NO_PREVIEW = 2  # no preview recorded, or an empty one
KIND_NO_THUMBNAIL = 3  # no thumbnail recorded, or an empty one
KIND_UNREADABLE = 4  # cannot be opened or read

#: Each kind's name, as an exception's ``kind`` attribute carries it.
_KIND_NAMES: Dict[int, str] = {
    KIND_NOT_KPZ: "not_kpz",
    KIND_DAMAGED: "damaged",
    KIND_NO_PREVIEW: "no_preview",
    KIND_NO_THUMBNAIL: "no_thumbnail",
    KIND_UNREADABLE: "unreadable",
}

#: The one table from a kind to the class raised for it. An unreadable file
#: raises the OSError subclass for its errno (as ``open()`` does), or
#: NotRegularFileError when kpz refused a file that is no regular file.
_CLASS_OF_KIND: Dict[int, Type[BaseException]] = {
    KIND_NOT_KPZ: NotKpzError,
    KIND_DAMAGED: BadPreviewError,
    KIND_NO_PREVIEW: NoPreviewError,
    KIND_NO_THUMBNAIL: NoThumbnailError,
    KIND_UNREADABLE: OSError,
}


def _error_for(kind: int, words: str, code: Optional[int] = None, filename: _Name = None,
               err: int = 0) -> BaseException:
    """The exception for a failure of `kind` (a KIND_* number), in `words`.

    `code` is the library's result where one applies (kept for a file that
    is no KPZ file and for a missing picture, where 0 means an empty one;
    else 0 means none); `err` the system's error number of an unreadable
    file, 0 when it gave none. An unreadable file with an errno is the
    OSError subclass Python raises for it (``FileNotFoundError`` for ENOENT,
    ...), with errno, strerror and filename as ``open()`` gives them, and
    ``words`` and ``code`` (the errno); without one, or with ``ESPIPE`` (a
    pipe or socket), :class:`NotRegularFileError`. Every exception made here carries the
    kind's name as ``kind`` (None for a kind outside the table).
    """
    cls = _CLASS_OF_KIND.get(kind)
    if code == 0 and kind not in (KIND_NOT_KPZ, KIND_NO_PREVIEW, KIND_NO_THUMBNAIL):
        code = None
    exc: BaseException
    if cls is None:
        exc = KpzError(words, code, filename)
    elif cls is OSError:
        if err in (0, errno.ESPIPE):  # refused unread: ESPIPE names a pipe or socket
            exc = NotRegularFileError(words, err or None, filename)
        else:
            exc = OSError(err, os.strerror(err), filename)
            exc.words = words  # type: ignore[attr-defined]
            exc.code = err  # type: ignore[attr-defined]
    else:
        exc = cls(words, code, filename)
    exc.kind = _KIND_NAMES.get(kind)  # type: ignore[attr-defined]
    return exc
