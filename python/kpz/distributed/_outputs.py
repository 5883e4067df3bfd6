"""The output directory of a run: local (written as kpz writes, by the kit)
or an fsspec URL. Its names, its making, the check of outputs already
present (--skip-existing) and the writing of one output, whole or not at
all. Made on the client (which makes the directory and looks for outputs
present) and on each worker (which writes)."""

import os
from typing import Any, Dict, Optional

from kpz import _s3
from kpz._kpz import kit

from ._inputs import is_url, local_path, protocol_of
from ._results import RunFailed

# The kinds of picture: (suffix of the output name, noun in the summary).
# Each kind's output suffix (the kit's) and the summary's noun.
KINDS = {kind: (kit.picture_suffix(kind), kind) for kind in ("preview", "thumbnail")}

# Object stores: one PUT makes an object whole or leaves it absent.
_ATOMIC_PUT = {"s3", "s3a", "gs", "gcs", "abfs", "az", "adl"}


class Output:
    """The directory `out`: a local path (fs None) or an fsspec URL. An URL
    whose protocol fsspec does not know raises RunFailed (USAGE), one whose
    back end is not installed RunFailed (OUTPUT)."""

    def __init__(self, out: str, settings: Optional[Any] = None) -> None:
        self.out = out
        self.settings = settings  # kpz.remote.Settings of an http(s):// output's PUTs
        self.fs: Optional[Any] = None
        self._sizes: Optional[Dict[str, Optional[int]]] = None  # a remote listing, once read
        self.root = local_path(out)
        self.s3 = _s3.is_s3(out)  # s3://: kpz's object-store client, one PUT per output
        if self.s3:
            try:
                _s3.split(out)
            except ValueError as e:
                raise RunFailed(kit.ExitStatus.USAGE, out, str(e)) from None
            self.root = out
        elif is_url(out):
            import fsspec

            try:
                self.fs, self.root = fsspec.core.url_to_fs(out)
            except ValueError as e:  # fsspec: "Protocol not known: bogus"
                raise RunFailed(kit.ExitStatus.USAGE, out,
                                "not a URL that can be written to (%s)" % e) from None
            except ImportError as e:  # fsspec: "Please install gcsfs to access Google Storage"
                raise RunFailed(kit.ExitStatus.OUTPUT, out,
                                "cannot write there: its file system is not installed (%s)"
                                % e) from None

    @property
    def local(self) -> bool:
        return self.fs is None and not self.s3

    def path(self, name: str) -> str:
        """Where the output `name` is written."""
        if self.s3:
            return self.root.rstrip("/") + "/" + name
        if self.fs is None:
            return os.path.join(self.root, name)
        return self.root.rstrip("/") + "/" + name

    def shown(self, name: str) -> str:
        """The output's name as the lines give it (before kit.shown_name)."""
        if self.fs is None and not self.s3:
            return self.path(name)
        return self.out.rstrip("/") + "/" + name

    def make(self) -> None:
        """Makes the directory and its parents; RunFailed (OUTPUT) in kpz's
        words when it cannot be made."""
        if self.s3:
            self._sizes = None  # an object store has no directories to make
            return
        if self.fs is None:
            why = kit.make_output_directory(self.root)
            if why:
                raise RunFailed(kit.ExitStatus.OUTPUT, None, why)
            return
        try:
            self.fs.makedirs(self.root, exist_ok=True)
        except NotImplementedError:
            pass  # a file system without directories
        except OSError as e:
            if protocol_of(self.fs) not in _ATOMIC_PUT:  # object stores have no directories
                raise RunFailed(kit.ExitStatus.OUTPUT, self.out,
                                "cannot make the output directory: %s"
                                % (e.strerror or e)) from None

    def state(self, name: str) -> str:
        """What is under the output `name` now: "whole", "broken" (present
        but not whole) or "absent". Whole: locally kit.output_is_whole (a
        regular file, links followed, that begins with a JPEG's SOI and a
        marker and ends with EOI), one look at the one file, so that a run
        over a million outputs present starts at once; remotely the same
        checks on the object's first 3 and last 2 bytes and its size
        (kit.jpeg_ends_whole), the directory listed once, at the first
        question, and its names and sizes held for the run; where the
        listing tells no size (a web server's), the size is asked of the
        server for each output present. On s3:// a listed object that is
        not empty is whole: the store makes a PUT whole or absent."""
        if self.fs is None and not self.s3:
            path = self.path(name)
            if kit.output_is_whole(path):
                return "whole"
            return "broken" if os.path.lexists(path) else "absent"
        if self._sizes is None:
            self._sizes = self._listing()
        if name not in self._sizes:
            return "absent"
        if self.s3:
            return "whole" if self._sizes[name] else "broken"
        return "whole" if self._is_whole(name, self._sizes[name]) else "broken"

    def _listing(self) -> Dict[str, Optional[int]]:
        """{name: size or None} of what is in the remote directory now (one listing)."""
        if self.s3:
            return self._s3_listing()
        try:
            return {e["name"].rstrip("/").rsplit("/", 1)[-1]: e.get("size")
                    for e in self.fs.ls(self.root, detail=True)}
        except FileNotFoundError:
            return {}
        except OSError as e:
            raise RunFailed(kit.ExitStatus.OUTPUT, self.out,
                            "cannot read the output directory: %s" % (e.strerror or e)) from None

    def _s3_listing(self) -> Dict[str, Optional[int]]:
        """The s3:// output folder's listing, read page by page (its names
        and sizes are what is held)."""
        from kpz import remote

        from . import _pool

        async def listed(reader: Any) -> Dict[str, Optional[int]]:
            return {name: size async for name, size in
                    _s3.listing(reader, reader.store(), self.out)}

        try:
            return _pool.run(self.settings or remote.Settings(), listed)
        except (OSError, _s3.StoreError) as e:
            raise RunFailed(kit.ExitStatus.OUTPUT, self.out,
                            "cannot read the output directory: %s" % e) from None

    def _is_whole(self, name: str, size: Optional[int]) -> bool:
        path = self.path(name)
        if self.fs is None:
            return kit.output_is_whole(path)
        if size is None and protocol_of(self.fs) in ("http", "https"):
            # A web listing tells no sizes: the server is asked for this one
            # (fsspec: a HEAD, or a GET whose body is not read when the
            # HEAD tells none).
            try:
                size = self.fs.info(path).get("size")
            except (OSError, ValueError):
                return False  # cannot be asked: written again
        if not isinstance(size, int) or size < 4:
            return False
        try:
            head = self.fs.cat_file(path, start=0, end=3)
            tail = self.fs.cat_file(path, start=size - 2, end=size)
        except OSError:
            return False  # cannot be read back: written again
        return kit.jpeg_ends_whole(head, tail, size)

    def write(self, name: str, data: bytes, sync: bool) -> str:
        """Writes `data` as the output `name`, whole or not at all: "" when
        written, else what failed in words."""
        path = self.path(name)
        if self.fs is None and not self.s3:
            return kit.write_file(path, data, sync)
        if self.s3 or protocol_of(self.fs) in ("http", "https"):
            return self._put_http(self.shown(name), data)
        try:
            self._put(path, data)
        except (OSError, NotImplementedError, ValueError) as e:
            return "cannot write the file: %s" % (getattr(e, "strerror", None) or str(e) or
                                                  type(e).__name__)
        return ""

    def _put_http(self, url: str, data: bytes) -> str:
        """An output on a web server: one PUT over the worker's connections
        (a web server has no rename: whole as far as the server makes a PUT
        whole). fsspec's HTTP file system cannot write."""
        from kpz import remote

        from . import _pool

        why = _pool.run(self.settings or remote.Settings(), lambda r: r.put(url, data))
        return "cannot write the file: %s" % why if why else ""

    def _put(self, path: str, data: bytes) -> None:
        fs = self.fs
        if protocol_of(fs) in _ATOMIC_PUT:
            fs.pipe_file(path, data)
            return
        head, _, name = path.rpartition("/")
        tmp = "%s/.%s.%d-%s" % (head, name, os.getpid(), os.urandom(4).hex())
        fs.pipe_file(tmp, data)
        try:
            fs.mv(tmp, path)
        except (OSError, NotImplementedError):
            try:
                fs.rm(tmp)
            except OSError:
                pass  # the move's failure is the one told; a temporary name may be left
            raise
