"""The exceptions of the kpz package.

Every exception kpz raises for a file carries ``words``: the reason in the
words the ``kpz`` command-line tool prints after ``kpz: FILE:``. A file that
cannot be read raises the ``OSError`` subclass for its ``errno``
(``FileNotFoundError``, ``PermissionError``, ``IsADirectoryError``, ...)
with ``errno``, ``strerror`` and ``filename`` as ``open()`` sets them (the
same class and arguments), and two more attributes, as a KpzError has them:
``words`` and ``code`` (the errno again). Everything else about a file
raises a :class:`KpzError`.
"""

from __future__ import annotations

import os
from typing import Optional, Union

__all__ = [
    "KpzError",
    "NotKpzError",
    "NoPreviewError",
    "BadPreviewError",
    "OrientationError",
    "OrientationWriteError",
]

_Name = Optional[Union[str, bytes, os.PathLike]]


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

    ``str()`` gives ``"FILE: words"`` when the file has a name, else the words.
    Instances pickle with all three attributes (they cross process
    boundaries, for example in a Dask cluster).
    """

    def __init__(self, words: str, code: Optional[int] = None, filename: _Name = None) -> None:
        super().__init__(words, code, filename)
        self.words = words
        self.code = code
        self.filename = filename

    def __str__(self) -> str:
        if self.filename is None:
            return self.words
        return f"{os.fsdecode(self.filename)}: {self.words}"

    def __reduce__(self):
        return (type(self), (self.words, self.code, self.filename))


class NotKpzError(KpzError):
    """The file is not a KPZ raw file: its head does not parse as one.

    ``code`` is the library's result (-400 no TIFF header, -101 model, Exif
    data or maker note missing, -305/-306/-307 a directory or value out of
    reach); ``words`` say what a bounds-checked look at the head shows:
    ``"not a KPZ raw file (only one directory, no second one after IFD0)"``
    for an ordinary TIFF, ``"... (no camera model)"``, ``"... (IFD1 lies past
    the end of the file)"``, ... (the same words as the kpz tool).
    """


class NoPreviewError(KpzError):
    """The file holds no picture of the kind asked for.

    ``code`` is -100 when none is recorded, 0 when one is recorded with a
    length of 0 bytes.
    """


class BadPreviewError(KpzError):
    """The picture is recorded but cannot be used: it extends past the end of
    the file or lies beyond its first 2 GiB, a thumbnail is longer than
    ``kpz.THUMBNAIL_MAX_SIZE``, or (with ``upright=True``) its JPEG cannot be
    turned. ``code`` is None.
    """


class OrientationError(KpzError):
    """A new orientation cannot be written: the file records none, or it
    cannot be read as a KPZ raw file for the change."""


class OrientationWriteError(OrientationError):
    """A new orientation cannot be written because the file cannot be changed
    (read-only, a failed write, or a place the change would write or copy
    that is not the file's own, in which case nothing is written)."""
