"""The inputs of a run, as kpz expands its arguments: local files,
directories and globs through the kit's own expansion, fsspec URLs listed
through their file system. Runs on the client."""

import itertools
import os
import posixpath
import urllib.parse
from typing import Any, Iterable, Iterator, List, Sequence, Tuple

from kpz._kpz import kit

_GLOB_CHARS = "*?["


def is_url(s: str) -> bool:
    """True for an fsspec URL other than file://."""
    return "://" in s and not s.startswith("file://")


def local_path(s: str) -> str:
    return s[len("file://"):] if s.startswith("file://") else s


def protocol_of(fs) -> str:
    return fs.protocol if isinstance(fs.protocol, str) else fs.protocol[0]


def _normal(url: str) -> str:
    """`url` with its path's '.' and '..' resolved, as a server resolves them.
    An http(s):// URL as the URL library will request it (yarl: its path
    decoded where it may be, '%2e%2e' a '..' like any other, dot-segments
    resolved, then quoted again), so that a check made on it is a check of
    what will be read."""
    if url.lower().startswith(("http://", "https://")):
        from yarl import URL

        try:
            return str(URL(url))
        except ValueError:  # no URL that can be read: kpz.remote tells why
            return url
    parts = urllib.parse.urlsplit(url)
    if not parts.path:
        return url
    path = posixpath.normpath(parts.path)
    if parts.path.endswith("/") and not path.endswith("/"):
        path += "/"
    if not parts.netloc and "://" in url:
        # A store without hosts (memory:///dir/x): urlunsplit would drop the
        # '//' and give 'memory:/dir/x', which fsspec takes for a local path.
        rest = urllib.parse.urlunsplit(parts._replace(scheme="", path=path))
        return "%s://%s" % (parts.scheme, rest)
    return urllib.parse.urlunsplit(parts._replace(path=path))


def _inside(url: str, folder: str) -> bool:
    """True when `url` (made _normal) lies inside `folder` (made _normal,
    ending in '/'), also for a server that decodes every escape of its path
    first ('%2F' a '/') and resolves '..' after: a link that leaves the
    folder read either way is not taken."""
    if not url.startswith(folder):
        return False
    if not url.lower().startswith(("http://", "https://")):
        return True
    path = urllib.parse.unquote(urllib.parse.urlsplit(url).path).replace("\\", "/")
    top = urllib.parse.unquote(urllib.parse.urlsplit(folder).path)
    return posixpath.normpath(path).startswith(top) and "\x00" not in path


def _walked(fs: Any, path: str, folder: str, url_of: Any, normalised: List[str],
            url: str) -> Iterator[Tuple[str, str]]:
    """The files under the remote directory `path`, listed one directory at a
    time as they are given (the order of kpz -r: each directory's entries in
    name order, subdirectories entered where they fall), inside `folder`
    only, each directory once (a web server's links may loop). A
    subdirectory that cannot be listed is told at its place; the top one's
    failure is raised at the first entry, and a walk that finds no file
    fails as a listing that holds none. Gives at least one entry."""
    seen = {folder}
    found = 0

    def level(p: str) -> Iterator[Tuple[str, str]]:
        nonlocal found
        entries = sorted(fs.ls(p, detail=True),
                         key=lambda e: e["name"].rstrip("/").rsplit("/", 1)[-1])
        for e in entries:
            u = _normal(url_of(e["name"]))
            if not _inside(u, folder):
                continue
            if e.get("type") == "directory":
                d = u.rstrip("/") + "/"
                if d in seen:
                    continue
                seen.add(d)
                try:
                    yield from level(e["name"])
                except OSError as err:
                    yield d, "cannot read the directory: %s" % (err.strerror or err)
            elif kit.extension_matches(u.rsplit("/", 1)[-1], normalised):
                found += 1
                yield u, ""

    yield from level(path)
    if not found:
        wanted_ext = " ".join(kit.shown_name(e) for e in normalised)
        yield url, "the directory holds no file ending in %s" % wanted_ext


def _globbed(found: Any, folder: str, url_of: Any, recursive: bool, normalised: List[str],
             url: str) -> List[Tuple[str, str]]:
    """The matches of a glob the user typed, inside `folder` only, in name
    order, taken as named, as kpz takes a pattern's: --ext chooses the files
    of directories, never the matches of a pattern; a directory matched
    gives its files as a directory named does. None at all is the URL's
    failure."""
    out: List[Tuple[str, str]] = []
    for name in sorted(found):
        u = _normal(url_of(name))
        if not _inside(u, folder):
            continue
        info = found[name] if isinstance(found, dict) else {}
        if info.get("type") == "directory" or u.endswith("/"):
            out.extend(_remote_inputs(u.rstrip("/") + "/", recursive, normalised))
        else:
            out.append((u, ""))
    return out or [(url, "the glob matches no file")]


def _remote_inputs(url: str, recursive: bool,
                   normalised: List[str]) -> Iterable[Tuple[str, str]]:
    """(url, error) pairs for one fsspec URL: a glob, a directory (ending in
    '/', or any directory of a store that has them) or one file."""
    if url.startswith(("http://", "https://")) and "::" not in url and not url.endswith("/") \
            and not any(c in url.split("?", 1)[0] for c in _GLOB_CHARS if c != "?"):
        # One file of the web (fsspec's path of it is the URL itself, and
        # no glob, no folder: nothing to list): read by kpz.remote, with no
        # file system loaded for it.
        return [(url, "")]
    import fsspec

    try:
        fs, path = fsspec.core.url_to_fs(url)
    except (ImportError, ValueError) as e:  # no such protocol, or its back end is missing
        return [(url, "cannot read: %s" % e)]
    protocol = protocol_of(fs)
    web = protocol in ("http", "https")

    def url_of(p: str) -> str:
        return p if "://" in p else "%s://%s" % (protocol, p)

    def wanted(found: List[str], folder: str, what: str) -> List[Tuple[str, str]]:
        """The files found with a wanted extension, inside `folder` only (a
        listing that names '../x.kpz' or another host does not take the run
        there); none at all is the URL's failure."""
        inside = [u for u in (_normal(url_of(p)) for p in found) if _inside(u, folder)]
        files = [(p, "") for p in inside
                 if kit.extension_matches(p.rstrip("/").rsplit("/", 1)[-1], normalised)]
        if files:
            return files
        wanted_ext = " ".join(kit.shown_name(e) for e in normalised)
        return [(url, "%s no file ending in %s" % (what, wanted_ext))]

    try:
        chars, scope = _GLOB_CHARS, path
        if web:
            # In a URL, '?' begins the query (a signed URL's, say): it is no
            # glob character, and nothing after it is a pattern.
            chars, scope = tuple(c for c in _GLOB_CHARS if c != "?"), path.split("?", 1)[0]
        first = min((scope.find(c) for c in chars if c in scope), default=-1)
        if first >= 0:
            folder = _normal(url_of(path[:path.rfind("/", 0, first) + 1]))
            if web:
                # fsspec's glob over HTTP takes a listing that cannot be
                # read (a server down, a 404) for an empty one: the folder
                # is read first, so that its failure is told as such.
                fs.ls(path[:path.rfind("/", 0, first) + 1], detail=False)
            return _globbed(fs.glob(path, detail=True), folder, url_of, recursive,
                            normalised, url)
        if url.endswith("/") or (not web and fs.isdir(path)):
            folder = _normal(url_of(path.rstrip("/") + "/"))
            if recursive:
                walk = _walked(fs, path, folder, url_of, normalised, url)
                # The first entry read here: the top directory's failure is
                # told as the listing's (below).
                return itertools.chain([next(walk)], walk)
            return wanted(sorted(e["name"] for e in fs.ls(path, detail=True)
                                 if e.get("type") != "directory"), folder,
                          "the directory holds")
    except FileNotFoundError as e:  # fsspec's HTTP file system: the URL alone, no errno
        return [(url, "cannot read the directory: %s" % (e.strerror or "not found"))]
    except OSError as e:  # fsspec's and aiohttp's errors of the listing
        return [(url, "cannot read the directory: %s" % (e.strerror or e))]
    return [(url, "")]


def _s3_inputs(url: str, recursive: bool, normalised: List[str],
               settings: Any) -> Iterator[Tuple[str, str]]:
    """(url, error) pairs for one s3:// URL, listed by kpz's object-store
    client a page at a time (kpz._s3.sources) over this process's pool
    (_pool): a page of at most 1,000 keys is held, never the listing."""
    from kpz import _s3, remote

    from . import _pool

    settings = settings if settings is not None else remote.Settings()
    ext_words = " ".join(kit.shown_name(e) for e in normalised)
    pages: List[Any] = []

    async def start(reader: Any) -> None:
        pages.append(_s3.sources(reader, reader.store(), url, recursive,
                                 lambda name: kit.extension_matches(name, normalised),
                                 ext_words))

    async def next_page(reader: Any) -> Any:
        try:
            return await pages[0].__anext__()
        except StopAsyncIteration:
            return None

    try:
        _pool.run(settings, start)
    except _s3.StoreError as e:
        yield url, str(e)
        return
    while True:
        page = _pool.run(settings, next_page)
        if page is None:
            return
        yield from page


def iter_sources(sources: Iterable[str], recursive: bool = False,
                 extensions: Sequence[str] = (),
                 settings: Any = None) -> Iterator[Tuple[str, str]]:
    """The files named by `sources`, as kpz expands its arguments (directories
    give their files with the wanted extensions, -r enters subdirectories),
    globs expanded, their matches taken as named whatever their extension
    (a directory matched as a directory named), and fsspec URLs listed
    through their file system:
    (source, error) pairs in argument order, given as they are found. A
    local directory is walked one directory at a time (kit.InputWalk), so
    that millions of files in folders are never listed at once; a glob's
    matches, and a URL's listing, are held while they are given (fsspec
    lists a directory or a glob in one piece); an s3:// URL is listed by
    kpz's own client a page at a time (`settings`: kpz.remote.Settings)."""
    from kpz import _s3

    normalised = kit.normalise_extensions(list(extensions))
    for s in sources:
        s = os.fspath(s)
        if _s3.is_s3(s):
            yield from _s3_inputs(s, recursive, normalised, settings)
            continue
        if is_url(s):
            yield from _remote_inputs(s, recursive, normalised)
            continue
        # A local pattern ('dir/*.xyz') is expanded by the kit's walk, its
        # matches taken as named, as kpz takes them.
        yield from kit.InputWalk([local_path(s)], recursive, list(extensions))


def expand_sources(sources: Sequence[str], recursive: bool = False,
                   extensions: Sequence[str] = ()) -> List[Tuple[str, str]]:
    """iter_sources(), as a list."""
    return list(iter_sources(sources, recursive, extensions))
