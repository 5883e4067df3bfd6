"""Previews and thumbnails of remote KPZ files, read at the link's speed.

A file costs two ranged GET requests and nothing else: its first 64 KiB,
then the picture's own range, which the kit finds in one parse of those
first bytes (the same entry, rules and words as ``kpz preview``).
Many files are in flight at once over one pool of kept-alive connections
(aiohttp), so a batch of N files costs a few round trips, not 3 N::

    import kpz.remote

    # Blocking, for a script: results in input order.
    for got in kpz.remote.fetch(urls, max_in_flight=64):
        if got.ok:
            use(got.data)               # the preview's bytes, as kpz preview writes them
        else:
            print("kpz: %s: %s" % (got.url, got.words))

    # Or to a directory, named as kpz names its outputs (x.kpz -> x.preview.jpg).
    kpz.remote.fetch(urls, out_dir="previews")

    # async, in a web service: one Reader (one connection pool) for many calls.
    async with kpz.remote.Reader(max_in_flight=64) as reader:
        got = await reader.read("https://store.example/a.kpz")

Faults of real storage are handled so (defaults in :class:`Settings`):

- HTTP 429, 500, 502, 503 and 504, a connection refused, reset or closed in
  the middle of a body, and a timeout are retried with exponential backoff
  and jitter, ``tries`` times in all; then the file fails in words naming
  the cause (``HTTP 503 Service Unavailable after 4 tries``).
- 401, 403, 404, 416 and other client errors fail at once, in words.
- A server that ignores ``Range`` (200 with the whole body) is noticed: a
  body larger than the range asked is never read (``the server does not
  serve byte ranges``); a whole file no larger than the head is taken.
- A body longer than the range asked fails; a shorter one is asked again
  for the rest, within the same number of tries.
- A connect timeout and a read timeout bound a stalled server, and a
  deadline bounds each file's whole time (``file_timeout``, 300 s: a server
  that dribbles bytes fails the file in words and frees its slot); one slow
  file never holds back the others (each file has its own tries).
- Redirects are followed ``max_redirects`` times, to the same scheme, host
  and port only unless ``other_hosts`` is set, and never to a scheme other
  than http:// and https:// (``file:///etc/passwd`` is refused in words).
- Any URL a user or a server can give (another scheme, a port out of range,
  a NUL, absurd lengths or headers) ends as that file's result in words,
  never as an exception out of the batch; the words never carry the file's
  bytes, and what a server says in them (a reason phrase) is cut short.
- Memory is bounded: at most ``max_in_flight`` files are in progress, each
  holding at most 64 KiB and its picture; a picture larger than
  ``max_picture`` bytes is refused in words.
- ``https://`` uses the system's CA store, or ``ca_file``.
- No cookies are kept or sent: a range of a file needs none.
- ``s3://bucket/key`` is read the same way from the store that
  ``Settings.s3`` or the environment names (``AWS_ENDPOINT_URL``, the
  profile ...), each request signed as it is sent (kpz._s3); the store's
  errors in its words (``NoSuchKey (HTTP 404): ...``), SlowDown and 5xx
  retried.

Nothing partial is ever written under a final name: outputs are written
whole or not at all (a temporary file renamed when complete). Output names
come from :func:`output_name`, as kpz.distributed names them.
"""

import asyncio
import dataclasses
import os
import random
import re
import ssl
import urllib.parse
from typing import AsyncIterator, Iterable, List, Optional, Sequence, Tuple

from kpz import _claims, _errors, _kpz, _s3
from kpz._kpz import HEAD_SIZE, kit

__all__ = ["Settings", "Result", "Reader", "read_many", "fetch", "fetch_async",
           "output_name"]

# Statuses that say "try again later"; every other 4xx is the file's own.
_TRANSIENT = frozenset({408, 425, 429, 500, 502, 503, 504})
_REDIRECTS = frozenset({301, 302, 303, 307, 308})

# The schemes read, each by its method of Reader that gets one range
# (other schemes fail in words).
_GETTERS = {"http": "_get", "https": "_get", "s3": "_get_s3"}

# The largest file size a server may tell (a signed 64-bit count of bytes).
_MOST_SIZE = 2 ** 63 - 1

# What a server says (a reason phrase, a Location) goes into words cut to
# this many characters.
_TOLD_MOST = 80


@dataclasses.dataclass(frozen=True)
class Settings:
    """How a :class:`Reader` talks to the storage.

    max_in_flight: files in progress at once, and connections in the pool
        (measured: 64 keeps a link of 50 ms busy; see docs/PERFORMANCE.md).
    tries: attempts per range before a transient failure is final (>= 1).
    connect_timeout, read_timeout: seconds to connect, and to wait for any
        bytes of an answer (headers or body) before the attempt times out.
    file_timeout: seconds a file may take in all (its ranges, retries and
        waits between them), counted from when it gets its slot; then it
        fails in words. None: no such deadline. The default, 300 s, reads a
        64 MiB picture over a link of 2 Mbit/s.
    backoff, backoff_max: the first wait before a retry in seconds, doubled
        each time up to backoff_max, each wait drawn between half and all of it.
    max_picture: the largest picture read, in bytes; larger ones are refused.
    max_redirects: redirects followed per request.
    other_hosts: follow redirects to another scheme, host or port.
    ca_file: a PEM file of the CAs to trust for https://, instead of the
        system's store.
    s3: where s3:// URLs are and how they are signed (kpz._s3.Options:
        endpoint, region, profile, unsigned); None: from the environment
        and the profile, as the AWS command line finds them.
    """

    max_in_flight: int = 64
    tries: int = 4
    connect_timeout: float = 10.0
    read_timeout: float = 30.0
    file_timeout: Optional[float] = 300.0
    backoff: float = 0.25
    backoff_max: float = 8.0
    max_picture: int = 64 * 1024 * 1024
    max_redirects: int = 5
    other_hosts: bool = False
    ca_file: Optional[str] = None
    s3: Optional[_s3.Options] = None

    def __post_init__(self) -> None:
        if not isinstance(self.max_in_flight, int) or self.max_in_flight < 1:
            raise ValueError("kpz: max_in_flight is a whole number of at least 1, not %r"
                             % (self.max_in_flight,))
        if not isinstance(self.tries, int) or self.tries < 1:
            raise ValueError("kpz: tries is a whole number of at least 1, not %r" % (self.tries,))
        for name in ("connect_timeout", "read_timeout"):
            value = getattr(self, name)
            if not isinstance(value, (int, float)) or not value > 0:
                raise ValueError("kpz: %s is a number of seconds above 0, not %r" % (name, value))
        if self.file_timeout is not None and (
                isinstance(self.file_timeout, bool) or
                not isinstance(self.file_timeout, (int, float)) or not self.file_timeout > 0):
            raise ValueError("kpz: file_timeout is a number of seconds above 0, or None, not %r"
                             % (self.file_timeout,))
        for name in ("backoff", "backoff_max"):
            value = getattr(self, name)
            if not isinstance(value, (int, float)) or value < 0:
                raise ValueError("kpz: %s is a number of seconds, 0 or more, not %r"
                                 % (name, value))
        if not isinstance(self.max_picture, int) or self.max_picture < 1:
            raise ValueError("kpz: max_picture is a number of bytes above 0, not %r"
                             % (self.max_picture,))
        if not isinstance(self.max_redirects, int) or self.max_redirects < 0:
            raise ValueError("kpz: max_redirects is a whole number, 0 or more, not %r"
                             % (self.max_redirects,))


@dataclasses.dataclass
class Result:
    """One file's outcome.

    ok: the picture was read (and written, with an output directory).
    data: the picture's bytes (None with an output directory or on failure).
    words: why it failed, in kpz's words ("" when ok).
    status: the exit status kpz gives such a failure (0 when ok; 1: the
        input; 3: the output).
    output: the file written, with an output directory.
    index: the file's place among the URLs given.
    requests: HTTP requests made for the file, retries included.
    received: body bytes received for the file, retries included.
    http_status: the HTTP status of the answer a failure came from (404,
        503, ...); None when it came from no answer (a timeout, a refused
        connection) or from the file's bytes (not a KPZ file, damaged).
    storage_failed: the storage failed to give the file's bytes (HTTP 5xx,
        408, 429, a timeout, a refused or broken connection, a reply not as
        asked for, a redirect not followed): trying again later may pass.
        False for a failure of the file itself (missing: HTTP 404 or 410;
        refused to us: 401 or 403; any other 4xx; not a KPZ file, damaged,
        a picture over max_picture; a URL that cannot be read) and of the
        output.
    note: with upright, the summary's remark about the turn, as kpz counts
        it ("re-encoded at quality 95: ..."; "" for a lossless turn or none).
    """

    url: str
    ok: bool = False
    data: Optional[bytes] = dataclasses.field(default=None, repr=False)  # megabytes
    words: str = ""
    status: int = 0
    output: Optional[str] = None
    index: int = 0
    requests: int = 0
    received: int = 0
    http_status: Optional[int] = None
    storage_failed: bool = False
    note: str = ""


class _Failed(Exception):
    """A range that cannot be had: `words` say why; `transient` ones may be
    retried."""

    def __init__(self, words: str, transient: bool, http_status: Optional[int] = None,
                 storage: bool = True) -> None:
        super().__init__(words)
        self.words = words
        self.transient = transient
        self.http_status = http_status
        self.storage = storage


_SCHEME = re.compile(r"([A-Za-z][A-Za-z0-9+.-]*):", re.ASCII)
_CONTENT_RANGE = re.compile(r"bytes[ ]+([0-9]+)-([0-9]+)/([0-9]+|[*])", re.ASCII | re.IGNORECASE)


def _content_range(value: Optional[str]) -> Optional[Tuple[int, int, Optional[int]]]:
    """(first, last, total) of a Content-Range "bytes a-b/n" (n may be "*");
    None when it cannot be read or cannot be true (a size over 2^63 - 1)."""
    if not value or len(value) > 64:
        return None
    m = _CONTENT_RANGE.fullmatch(value.strip())
    if m is None:
        return None
    a, b = int(m.group(1)), int(m.group(2))
    n = None if m.group(3) == "*" else int(m.group(3))
    if b < a or b > _MOST_SIZE or (n is not None and (b >= n or n > _MOST_SIZE)):
        return None
    return a, b, n


def _told(text: Optional[str], most: int = _TOLD_MOST) -> str:
    """What a server said (a reason phrase, a Location), as words may carry
    it: printable ASCII (anything else as '?'), cut to `most` characters
    ('...' ends a cut)."""
    text = "".join(c if " " <= c <= "~" else "?" for c in (text or "")[:most + 1])
    return text if len(text) <= most else text[:most] + "..."


def _parsed(url: str):
    """(the yarl URL as it will be requested, "") or (None, why it cannot
    be read, in words) for a URL given by a user or a server."""
    from yarl import URL

    if not isinstance(url, str):
        return None, "not a URL (a %s)" % type(url).__name__
    named = _SCHEME.match(url)
    if named is None:
        return None, "not a URL: it has no scheme (http:// or https://)"
    scheme = named.group(1).lower()
    if scheme not in _GETTERS:
        shown = scheme + ("://" if url[named.end():].startswith("//") else ":")
        return None, "the scheme %s is not supported (kpz.remote reads http://, https:// " \
            "and s3://)" % _told(shown, 24)
    try:
        port = urllib.parse.urlsplit(url).port
        parsed = URL(url)
    except ValueError as e:  # a port out of range, a broken IPv6 address
        return None, "not a URL that can be read (%s)" % _told(str(e))
    if not parsed.host:
        return None, "not a URL that can be read (it names no host)"
    if port == 0:
        return None, "not a URL that can be read (port 0 is no server's port)"
    return parsed, ""


def _origin(url) -> Tuple[str, str, Optional[int]]:
    return (url.scheme, url.host or "", url.port)


def output_name(source: str, suffix: str) -> str:
    """The output file's name for the input `source` as kpz names it: the
    last segment of its path with its last extension replaced by `suffix`
    (``.../a.kpz`` -> ``a.preview.jpg``; kit.default_path). A URL's segment is
    taken as it is written, never decoded (``%2F`` and ``%00`` stay three
    characters), without its query or fragment (http(s)://), a control
    character in the text (a NUL) written as %XX, and "index" for an empty
    one, "." or "..": a name that is one file name in the output directory,
    nothing else. kpz.remote and kpz.distributed both name outputs so."""
    if "://" not in source:
        return kit.default_path(source, suffix, True)
    text = source.split("://", 1)[1]
    if source.lower().startswith(("http://", "https://")):
        text = text.split("#", 1)[0].split("?", 1)[0]
    name = text.rsplit("/", 1)[-1] if "/" in text else ""
    if name in (".", ".."):
        name = ""  # the URL names a folder
    name = "".join(c if " " <= c != "\x7f" and not "\ud800" <= c <= "\udfff"
                   else "%%%02X" % (ord(c) & 0xFF) for c in name)
    return kit.default_path(name or "index", suffix, True)


class Reader:
    """Reads the pictures of remote KPZ files over one connection pool.

    Use it as an async context manager (the pool is closed on exit). Give
    either a :class:`Settings` or its fields as keywords. `rng` draws the
    backoff's jitter (a test gives a seeded one)."""

    def __init__(self, settings: Optional[Settings] = None, *, rng: Optional[random.Random] = None,
                 store: Optional[_s3.Store] = None, **fields) -> None:
        if settings is not None and fields:
            raise TypeError("kpz: give Settings or its fields, not both")
        self.settings = settings if settings is not None else Settings(**fields)
        self._rng = rng if rng is not None else random.Random()
        # s3://: the store (made at the first s3:// URL unless given), or why
        # it cannot be used.
        self._store: Optional[_s3.Store] = store
        self._store_failed: Optional[_s3.StoreError] = None
        self._session = None
        self._files = None

    async def __aenter__(self) -> "Reader":
        import aiohttp

        s = self.settings
        # The system's store is aiohttp's own default, made once per process
        # at the first https:// connection (loading it costs tens of ms).
        context = ssl.create_default_context(cafile=s.ca_file) if s.ca_file else None
        connector = aiohttp.TCPConnector(limit=s.max_in_flight, limit_per_host=0, ssl=context,
                                         keepalive_timeout=30)
        timeout = aiohttp.ClientTimeout(total=None, sock_connect=s.connect_timeout,
                                        sock_read=s.read_timeout)
        # No compression: a range of a compressed body is not the file's.
        # No cookies: a range of a file needs none, and aiohttp's jar costs
        # about a tenth of each request's CPU (filtered for every request,
        # updated from every answer; docs/PERFORMANCE.md).
        self._session = aiohttp.ClientSession(connector=connector, timeout=timeout,
                                              auto_decompress=False,
                                              headers={"Accept-Encoding": "identity"},
                                              cookie_jar=aiohttp.DummyCookieJar(),
                                              request_class=_s3.request_class(self.store))
        self._files = asyncio.Semaphore(s.max_in_flight)
        return self

    async def __aexit__(self, *exc) -> None:
        if self._session is not None:
            await self._session.close()
            self._session = None

    def store(self) -> _s3.Store:
        """The store of s3:// URLs (kpz._s3.Store), resolved at the first
        call from Settings.s3 and the environment; StoreError (one line) when
        it cannot be used: no credentials, a profile that is not there."""
        if self._store is None:
            if self._store_failed is None:
                try:
                    self._store = _s3.Store(self.settings.s3)
                except _s3.StoreError as e:
                    self._store_failed = e
            if self._store is None:
                raise self._store_failed
        return self._store

    async def read(self, url: str, kind: str = "preview", *, upright: bool = False,
                   index: int = 0) -> Result:
        """The picture of `kind` ("preview" or "thumbnail") of the KPZ file
        at `url`, turned as the file asks with `upright`. Never raises for
        the file's own failures, whatever the URL or the server's answers:
        they are in the result's words."""
        if kind not in ("preview", "thumbnail"):
            raise ValueError("kpz: kind is 'preview' or 'thumbnail', not %r" % (kind,))
        if self._session is None:
            raise RuntimeError("kpz: use the Reader as 'async with Reader(...) as reader'")
        r = Result(url=url, index=index)
        async with self._files:
            s = self.settings
            try:
                # The file's deadline: its ranges, retries and waits in all.
                data = await asyncio.wait_for(self._picture(r, kind, upright), s.file_timeout)
            except asyncio.TimeoutError:
                r.words, r.status = ("timed out: the file was not read within %g s "
                                     "(file_timeout)" % s.file_timeout
                                     if s.file_timeout is not None else "timed out",
                                     int(kit.ExitStatus.INPUT))
                r.storage_failed = True
                return r
            except _Failed as e:
                r.words, r.status = e.words, int(kit.ExitStatus.INPUT)
                r.http_status, r.storage_failed = e.http_status, e.storage
                return r
            except _s3.StoreError as e:  # s3:// named, and the store cannot be used
                r.words, r.status, r.storage_failed = str(e), int(kit.ExitStatus.INPUT), True
                return r
            except Exception as e:  # noqa: BLE001 - a failure not foreseen is the file's, in words
                # Its type only: a message may hold the file's bytes.
                r.words, r.status = ("cannot be read: an unforeseen failure (%s)"
                                     % type(e).__name__, int(kit.ExitStatus.INPUT))
                return r
        if data is not None:
            r.ok, r.data = True, data
        return r

    async def _picture(self, r: Result, kind: str, upright: bool) -> Optional[bytes]:
        """The picture's bytes, or None with the kit's words in `r`; raises
        _Failed."""
        url, why = _parsed(r.url)
        if why:
            raise _Failed(why, False, storage=False)
        get = getattr(self, _GETTERS[url.scheme.lower()])
        head, size = await self._range(r, get, url, 0, HEAD_SIZE, head=True)
        if size is None:
            raise _Failed("the server tells no file size (Content-Range without a "
                          "length)", False)
        # The one parse of the head, held in memory as the file's first bytes:
        # the range, and with upright the orientation the turn below uses.
        try:
            found: "_kpz.Picture" = _kpz.picture(head, kind, upright=upright, file_size=size)
        except (_errors.KpzError, OSError) as e:  # the file's failure, in the kit's words
            r.words, r.status = getattr(e, "words", str(e)), int(kit.ExitStatus.INPUT)
            return None
        del head
        if found.length > self.settings.max_picture:
            raise _Failed("the %s is %d bytes, more than the %d read at most "
                          "(max_picture)" % (kind, found.length,
                                             self.settings.max_picture), False,
                          storage=False)
        data, _ = await self._range(r, get, url, found.offset, found.length, head=False,
                                    size=size)
        if found.turns:
            # The turn as kpz makes it, with the summary's note: a decode and
            # an encode, off the event loop that other files' reads share.
            try:
                found = await asyncio.get_running_loop().run_in_executor(None, found.turn, data)
            except _errors.KpzError as e:
                r.words, r.status = e.words, int(kit.ExitStatus.INPUT)
                return None
            data, r.note = found.data, found.note
        return data

    async def put(self, url: str, data: bytes) -> str:
        """Sends `data` to `url` in one PUT: "" when the server took it (a
        2xx answer), else why not in words ("HTTP 405 Not Allowed",
        "connection refused", "timed out"). Not retried: a PUT that failed
        half way may have been taken. An s3:// URL is written by the
        store's client (signed, Content-Type image/jpeg) and retried when it
        may pass: the store makes a PUT whole or absent."""
        import aiohttp

        if self._session is None:
            raise RuntimeError("kpz: use the Reader as 'async with Reader(...) as reader'")
        if _s3.is_s3(url):  # s3://: signed, retried (a PUT is whole or absent), its words
            try:
                return await _s3.put(self, self.store(), url, data)
            except _s3.StoreError as e:
                return str(e)
        target, why = _parsed(url)
        if why:
            return why
        try:
            async with self._session.put(target, data=data, allow_redirects=False) as resp:
                if 200 <= resp.status < 300:
                    return ""
                return ("HTTP %d %s" % (resp.status, _told(resp.reason))).strip()
        except asyncio.TimeoutError:
            return "timed out"
        except aiohttp.ClientConnectorError as e:
            return "connection refused" if isinstance(e.os_error, ConnectionRefusedError) \
                else "cannot connect (%s)" % (e.os_error.strerror or e.os_error,)
        except (aiohttp.InvalidURL, ValueError):
            return "not a URL that can be written to"
        except (aiohttp.ClientError, ConnectionError) as e:
            return "the connection failed (%s)" % (_told(str(e)) or type(e).__name__)

    async def _range(self, r: Result, get, url, start: int, length: int, *, head: bool,
                     size: Optional[int] = None) -> Tuple[bytes, Optional[int]]:
        """`length` bytes at `start` (for the head: up to `length`, fewer for
        a shorter file) and the file's size, retrying what may pass."""
        s = self.settings
        got = b""    # one reply's body as it came; joined only when a reply was short
        total = size
        failures = 0  # attempts that failed and may pass on a retry
        short = 0     # replies that brought only part of what was asked
        while True:
            want = length - len(got)
            try:
                part, total_now = await get(r, url, start + len(got), want, head and not got)
            except _Failed as e:
                if not e.transient:
                    raise
                failures += 1
                if failures >= s.tries:
                    raise _Failed("%s after %d tries" % (e.words, failures), False,
                                  e.http_status)
                await self._wait(failures)
                continue
            if total is not None and total_now is not None and total_now != total:
                raise _Failed("the file changed while it was read (its size went from %d to "
                              "%d bytes)" % (total, total_now), False)
            total = total_now if total_now is not None else total
            got = got + part if got else part
            # The head of a file shorter than the head ends at the file's end.
            end = length if not head or total is None else min(length, total)
            if len(got) >= end:
                return got, total
            # A short reply: the rest is asked for again, a bounded number of times.
            short += 1
            if short >= s.tries:
                raise _Failed("the server sent %d of the %d bytes asked for in %d replies"
                              % (len(got), end, short), False)

    async def _wait(self, failures: int) -> None:
        s = self.settings
        delay = min(s.backoff_max, s.backoff * (2 ** (failures - 1)))
        if delay > 0:
            await asyncio.sleep(delay * (0.5 + self._rng.random() / 2))

    async def _get(self, r: Result, first, start: int, length: int,
                   head: bool) -> Tuple[bytes, Optional[int]]:
        """One ranged GET of the URL `first` (with its redirects): up to
        `length` bytes at `start` and the file's size from Content-Range."""
        import aiohttp

        s = self.settings
        # s3:// (_get_s3): the store's request, signed when sent; its errors
        # in its words; no redirects.
        s3 = self.store() if _s3.is_s3(r.url) else None
        url = first
        for _ in range(s.max_redirects + 1):
            r.requests += 1
            headers = {"Range": "bytes=%d-%d" % (start, start + length - 1)}
            if s3 is not None:
                headers.update(_s3.headers(s3, str(url)))
            try:
                async with self._session.get(url, headers=headers, allow_redirects=False) as resp:
                    if s3 is not None and resp.status == 416 and head and start == 0:
                        resp.release()  # no byte 0: an empty object (the kit tells what it is not)
                        return b"", 0
                    if s3 is not None and resp.status not in (200, 206):
                        words, transient = await _s3.read_error(resp)
                        raise _Failed(words, transient, resp.status)
                    if resp.status in _REDIRECTS:
                        url = self._redirect(resp, url, first)
                        continue
                    return await self._body(r, resp, start, length, head)
            except _Failed:
                raise
            except asyncio.TimeoutError:
                raise _Failed("timed out", True) from None
            except aiohttp.ClientConnectorCertificateError as e:
                reason = getattr(e.certificate_error, "verify_message", "") or str(
                    e.certificate_error)
                raise _Failed("the server's certificate cannot be trusted (%s)" % _told(reason),
                              False) from None
            except aiohttp.ClientSSLError as e:
                raise _Failed("the secure connection failed (%s)" % _told(str(e)),
                              False) from None
            except aiohttp.ClientConnectorError as e:
                words = "connection refused" if isinstance(e.os_error, ConnectionRefusedError) \
                    else "cannot connect (%s)" % _told(str(e.os_error.strerror or e.os_error))
                raise _Failed(words, True) from None
            except (aiohttp.ServerDisconnectedError, aiohttp.ClientPayloadError,
                    aiohttp.ClientOSError, ConnectionError):
                raise _Failed("the connection was closed in the middle of an answer",
                              True) from None
            except (aiohttp.InvalidURL, ValueError):
                raise _Failed("not a URL that can be read", False, storage=False) from None
            except aiohttp.ClientResponseError as e:
                raise _Failed("a reply that cannot be read (%s)" % _told(e.message),
                              True) from None
            except aiohttp.ClientError as e:
                raise _Failed("the request failed (%s)" % type(e).__name__, True) from None
        raise _Failed("too many redirects (more than %d)" % s.max_redirects, False)

    async def _get_s3(self, r: Result, first, start: int, length: int,
                      head: bool) -> Tuple[bytes, Optional[int]]:
        """One ranged GET of the s3:// object r.url (its key as written,
        never decoded) from the store (kpz._s3)."""
        from yarl import URL

        store = self.store()
        try:
            bucket, key = _s3.split(r.url)
        except ValueError as e:
            raise _Failed(str(e), False, storage=False) from None
        return await self._get(r, URL(store.url(bucket, key), encoded=True), start, length,
                               head)

    def _redirect(self, resp, url, first):
        """The URL a redirect of `url` leads to (`first`: the file's own),
        or _Failed when it is not followed: no Location, one that is no URL,
        a scheme other than http(s), another host unless other_hosts."""
        from yarl import URL

        target = resp.headers.get("Location")
        if not target:
            raise _Failed("HTTP %d %s without a Location"
                          % (resp.status, _told(resp.reason)), False)
        try:
            joined = url.join(URL(target))
        except ValueError:
            joined = None
        if joined is None:
            raise _Failed("redirected to %s, which is not a URL that can be read"
                          % _told(target), False)
        nxt, why = _parsed(str(joined))
        if not why and nxt.scheme.lower() not in ("http", "https"):
            why = "a redirect is followed to http:// and https:// only"
        if why:
            raise _Failed("redirected to %s, which is not followed: %s" % (_told(target), why),
                          False)
        if not self.settings.other_hosts and _origin(nxt) != _origin(first):
            raise _Failed("redirected to another host (%s), which is not followed"
                          % _told(str(nxt.origin())), False)
        return nxt

    async def _body(self, r: Result, resp, start: int, length: int,
                    head: bool) -> Tuple[bytes, Optional[int]]:
        status = resp.status
        if status == 206:
            span = _content_range(resp.headers.get("Content-Range"))
            if span is None:
                raise _Failed("a partial reply without a readable Content-Range (%s)"
                              % _told(resp.headers.get("Content-Range"), 40), False)
            first, last, total = span
            if first != start or last > start + length - 1:
                raise _Failed("the server sent bytes %d-%d for the range %d-%d"
                              % (first, last, start, start + length - 1), False)
            return await self._read(r, resp, last - first + 1), total
        if status == 200:
            # Range ignored: the whole file comes. Taken only when it is no
            # more than the head asked for (a small file); never read on.
            declared = resp.content_length
            if head and start == 0 and declared is not None and 0 <= declared <= length:
                return await self._read(r, resp, declared), declared
            resp.close()  # the body is not read: the connection is dropped
            raise _Failed("the server does not serve byte ranges (HTTP 200 to a ranged "
                          "request)", False)
        words = "HTTP %d %s" % (status, _told(resp.reason))
        resp.release()
        if status == 416 and head and start == 0:
            span = resp.headers.get("Content-Range", "")
            if span.replace(" ", "").lower() == "bytes*/0":
                return b"", 0  # an empty file: the kit tells what it is not
        if status == 416:
            raise _Failed(words.strip() + " (the file is shorter than its head)"
                          if head else words.strip(), False, status, storage=False)
        transient = status in _TRANSIENT or status >= 500
        # A 4xx other than "try again later" is the file's own: missing,
        # gone, refused to us.
        raise _Failed(words.strip(), transient, status,
                      storage=transient or not 400 <= status < 500)

    async def _read(self, r: Result, resp, n: int) -> bytes:
        """At most `n` bytes of the body; more fails, fewer is returned short
        (the caller asks for the rest)."""
        declared = resp.content_length
        if declared is not None and 0 <= declared <= n:
            # The parser stops at the declared length: the body is read
            # whole in one go, as large as the range and no larger.
            data = await resp.read()
            r.received += len(data)
            return data
        chunks = []
        have = 0
        while have <= n:  # each pass reads at least one byte or ends
            chunk = await resp.content.read(n + 1 - have)
            if not chunk:
                break
            chunks.append(chunk)
            have += len(chunk)
            r.received += len(chunk)
        if have > n:
            resp.close()
            raise _Failed("the server sent more bytes than the range asked for", False)
        return chunks[0] if len(chunks) == 1 else b"".join(chunks)


async def read_many(urls: Iterable[str], kind: str = "preview", *, upright: bool = False,
                    reader: Optional[Reader] = None,
                    settings: Optional[Settings] = None) -> AsyncIterator[Result]:
    """Reads every URL's picture, `max_in_flight` at a time, and yields each
    result as it is done (``result.index`` is its place among `urls`). The
    URLs are taken from the iterable as room frees up, so a long or endless
    iterable costs no more memory than the files in flight."""
    own = reader is None
    if own:
        reader = Reader(settings)
        await reader.__aenter__()
    # Each file's task puts its result on a queue as it ends: one wake per
    # file, whatever the number in flight.
    done: asyncio.Queue = asyncio.Queue()
    pending = set()

    def finished(task) -> None:
        pending.discard(task)
        done.put_nowait(task)

    try:
        limit = reader.settings.max_in_flight
        it = enumerate(urls)
        more = True
        while more or pending or not done.empty():
            # Results not yet taken count too: a slow consumer holds the reads back.
            while more and len(pending) + done.qsize() < limit:
                try:
                    i, url = next(it)
                except StopIteration:
                    more = False
                    break
                task = asyncio.ensure_future(reader.read(url, kind, upright=upright, index=i))
                pending.add(task)
                task.add_done_callback(finished)
            if not pending and done.empty():
                break
            task = await done.get()
            yield task.result()
    finally:
        for task in list(pending):
            task.cancel()
        if own:
            await reader.__aexit__(None, None, None)


async def fetch_async(urls: Sequence[str], kind: str = "preview", *, upright: bool = False,
                      out_dir: Optional[str] = None, sync: bool = False,
                      settings: Optional[Settings] = None, **fields) -> List[Result]:
    """The results of :func:`read_many` in input order. With `out_dir`,
    each picture is written there as kpz names it (``a.kpz`` ->
    ``a.preview.jpg``, :func:`output_name`), whole or not at all, and not
    kept in memory. URLs sharing an output name: as in kpz, the first of
    them in input order that is written owns it (one whose read fails takes
    nothing), the later ones fail in kpz's words ("not written: ... is
    already written by ..."); a later one read first waits, holding its
    picture, until the earlier ones of its name are settled."""
    if settings is not None and fields:
        raise TypeError("kpz: give Settings or its fields, not both")
    settings = settings if settings is not None else Settings(**fields)
    urls = list(urls)
    results: List[Optional[Result]] = [None] * len(urls)
    targets: List[str] = []
    if out_dir is not None:
        why = kit.make_output_directory(out_dir)
        if why:
            raise OSError("kpz: %s" % why)
        suffix = kit.picture_suffix(kind)
        targets = [os.path.join(out_dir, output_name(u if isinstance(u, str) else "", suffix))
                   for u in urls]
    claims = _claims.Claims(kept=len(urls))  # the first input written owns a name
    turns = _claims.InOrder(targets)
    loop = asyncio.get_running_loop()

    def turn(got: Result) -> None:
        """Input got.index's turn at its name; every earlier input of the
        name has had its own."""
        target = targets[got.index]
        if got.ok:
            refusal = claims.refusal(target, target)
            if refusal is not None:
                got.ok, got.status, got.words = False, int(kit.ExitStatus.OUTPUT), refusal
            else:
                why = kit.write_file(target, got.data, sync)
                if why:
                    got.ok, got.status, got.words = False, int(kit.ExitStatus.OUTPUT), why
                else:
                    claims.wrote(target, urls[got.index])
                    got.output = target
        got.data = None

    async for got in read_many(urls, kind, upright=upright, settings=settings):
        if out_dir is None:
            results[got.index] = got
            continue
        for ready in turns.ready(got.index, got):
            await loop.run_in_executor(None, turn, ready)
            results[ready.index] = ready
    return [r for r in results if r is not None]


def fetch(urls: Sequence[str], kind: str = "preview", *, upright: bool = False,
          out_dir: Optional[str] = None, sync: bool = False,
          settings: Optional[Settings] = None, **fields) -> List[Result]:
    """Blocking :func:`fetch_async`: the results in input order."""
    return asyncio.run(fetch_async(urls, kind, upright=upright, out_dir=out_dir, sync=sync,
                                   settings=settings, **fields))
