"""The inputs of a run, as kpz expands its arguments: local files,
directories and globs through the kit's own expansion, fsspec URLs listed
through their file system. Runs on the client."""

import glob
import os
from typing import List, Sequence, Tuple

from kpz._kpz import kit

_GLOB_CHARS = "*?["


def is_url(s: str) -> bool:
    """True for an fsspec URL other than file://."""
    return "://" in s and not s.startswith("file://")


def local_path(s: str) -> str:
    return s[len("file://"):] if s.startswith("file://") else s


def protocol_of(fs) -> str:
    return fs.protocol if isinstance(fs.protocol, str) else fs.protocol[0]


def _remote_inputs(url: str, recursive: bool, normalised: List[str]) -> List[Tuple[str, str]]:
    """(url, error) pairs for one fsspec URL: a glob, a directory (ending in
    '/', or any directory of a store that has them) or one file."""
    import fsspec

    try:
        fs, path = fsspec.core.url_to_fs(url)
    except (ImportError, ValueError) as e:  # no such protocol, or its back end is missing
        return [(url, "cannot read: %s" % e)]
    protocol = protocol_of(fs)
    web = protocol in ("http", "https")

    def url_of(p: str) -> str:
        return p if "://" in p else "%s://%s" % (protocol, p)

    def wanted(found: List[str]) -> List[Tuple[str, str]]:
        return [(url_of(p), "") for p in found
                if kit.extension_matches(p.rstrip("/").rsplit("/", 1)[-1], normalised)]

    try:
        if any(c in path for c in _GLOB_CHARS):
            return wanted(sorted(fs.glob(path)))
        if url.endswith("/") or (not web and fs.isdir(path)):
            if recursive:
                return wanted(sorted(fs.find(path)))
            return wanted(sorted(e["name"] for e in fs.ls(path, detail=True)
                                 if e.get("type") != "directory"))
    except OSError as e:
        return [(url, "cannot read the directory: %s" % (e.strerror or e))]
    return [(url, "")]


def expand_sources(sources: Sequence[str], recursive: bool = False,
                   extensions: Sequence[str] = ()) -> List[Tuple[str, str]]:
    """The files named by `sources`, as kpz expands its arguments (directories
    give their files with the wanted extensions, -r enters subdirectories),
    local globs expanded, and fsspec URLs listed through their file system:
    (source, error) pairs in argument order."""
    normalised = kit.normalise_extensions(list(extensions))
    out: List[Tuple[str, str]] = []
    local: List[str] = []

    def flush() -> None:
        if local:
            out.extend(kit.expand_inputs(local, recursive, list(extensions)))
            local.clear()

    for s in sources:
        s = os.fspath(s)
        if is_url(s):
            flush()
            out.extend(_remote_inputs(s, recursive, normalised))
        else:
            s = local_path(s)
            if any(c in s for c in _GLOB_CHARS) and not os.path.exists(s):
                matches = sorted(glob.glob(s))
                local.extend(matches if matches else [s])
            else:
                local.append(s)
    flush()
    return out
