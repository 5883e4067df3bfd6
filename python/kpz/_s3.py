"""kpz's object-store client: ``s3://bucket/key`` for kpz.remote (reads),
kpz.distributed (sources, listings, outputs) and ``python3 -m kpz``.

Requests go over kpz.remote's connection pool (aiohttp), each signed with
AWS Signature Version 4 by botocore (``S3SigV4Auth``) when it is sent: the
request class of the pool signs a request in ``send``, once the pool has
given it a connection, so a request that waited for a connection is never
sent with a signature older than its wait. The credentials are botocore's
chain (the environment, ``AWS_PROFILE`` with ``~/.aws/credentials`` and
``~/.aws/config``, roles ...), asked for at each signature
(``get_frozen_credentials()``: refreshable credentials are refreshed).

Where the store is:

- endpoint: ``--endpoint-url`` (Options.endpoint_url) when given, else
  ``AWS_ENDPOINT_URL_S3``, ``AWS_ENDPOINT_URL``, the profile's
  ``endpoint_url`` (or its ``s3 = endpoint_url = ...``), else AWS
  (``https://s3.REGION.amazonaws.com``);
- region: ``AWS_REGION``, ``AWS_DEFAULT_REGION``, the profile's ``region``,
  else us-east-1;
- addressing: path-style (``http://host/bucket/key``) for an endpoint that
  is an IP address or ``localhost``, for a bucket name that is no DNS name,
  or when asked (Options.path_style, or the profile's ``s3 =
  addressing_style = path``); virtual-hosted (``https://bucket.host/key``)
  otherwise.

The store's errors are read from its XML error document (at most 64 KiB of
it) and told in its words: ``AccessDenied (HTTP 403): Access Denied``.
"""

import dataclasses
import datetime
import fnmatch
import hashlib
import ipaddress
import os
import re
import sys
import urllib.parse
import xml.etree.ElementTree as ElementTree
from typing import Any, AsyncIterator, Callable, List, Optional, Sequence, Tuple

SCHEME = "s3://"

# Codes of the store that say "try again later" (with any 5xx status).
TRANSIENT_CODES = frozenset({"SlowDown", "InternalError", "RequestTimeout",
                             "ServiceUnavailable", "Throttling", "ThrottlingException",
                             "RequestLimitExceeded", "TooManyRequests"})

# The largest error document or listing page read (a page of 1,000 keys is
# about 300 KB).
MAX_ERROR_DOCUMENT = 64 * 1024
MAX_LISTING_PAGE = 16 * 1024 * 1024

# The header every request to the store carries (the hash of its body): the
# pool's request class signs exactly the requests that have it.
_PAYLOAD = "X-Amz-Content-SHA256"
EMPTY_SHA256 = hashlib.sha256(b"").hexdigest()

_BUCKET = re.compile(r"^[A-Za-z0-9._-]{1,255}$")
_DNS_BUCKET = re.compile(r"^[a-z0-9][a-z0-9-]{1,61}[a-z0-9]$")
_GLOB_CHARS = "*?["


class StoreError(Exception):
    """The store cannot be used at all (no credentials, a profile that does
    not exist, an endpoint that is no URL): str() is one line saying why."""


@dataclasses.dataclass(frozen=True)
class Options:
    """How to reach the store; None: from the environment and the profile.

    endpoint_url: the store's URL (``http://127.0.0.1:9000``), overriding
        the environment's and the profile's.
    region: the region requests are signed for.
    profile: the profile of ~/.aws/config and ~/.aws/credentials
        (default: AWS_PROFILE, else "default").
    sign: False sends requests unsigned (public buckets: --no-sign-request).
    path_style: True: path-style addressing always; None: as the endpoint
        needs it.
    """

    endpoint_url: Optional[str] = None
    region: Optional[str] = None
    profile: Optional[str] = None
    sign: bool = True
    path_style: Optional[bool] = None


def is_s3(url: Any) -> bool:
    return isinstance(url, str) and url[:5].lower() == SCHEME


def split(url: str) -> Tuple[str, str]:
    """(bucket, key) of ``s3://bucket/key``; the key is taken as written (no
    %-decoding, '?' and '#' are part of it). ValueError in words for a URL
    without a bucket name that can be one."""
    rest = url[len(SCHEME):]
    bucket, _, key = rest.partition("/")
    if not _BUCKET.match(bucket):
        raise ValueError("not an s3:// URL with a bucket name (s3://BUCKET/KEY)")
    return bucket, key


def _quote(text: str, safe: str = "/~") -> str:
    return urllib.parse.quote(text, safe=safe)


# Imported by botocore.httpsession (for botocore's own HTTP client, which the
# signer never uses) only to take from it urllib3's original SSLContext,
# which urllib3.util.ssl_ gives as well: botocore falls back to that when the
# import fails. Left out, it spares pyOpenSSL's and cryptography's imports,
# 0.05 to 0.09 s of CPU of a command's start-up (docs/PERFORMANCE.md).
_PYOPENSSL = "urllib3.contrib.pyopenssl"


def import_botocore(lean: bool = False) -> None:
    """Imports what the store needs of botocore: its session, whose
    credential chain the store uses, and its signer.

    With `lean` (kpz's command lines only, before any work starts), without
    pyOpenSSL: while they are imported, urllib3.contrib.pyopenssl cannot
    be, so botocore.httpsession takes urllib3.util.ssl_.SSLContext, the
    same class. Done only when neither botocore.httpsession nor pyopenssl
    is loaded yet (a process that loaded pyopenssl may have put it into
    urllib3, and then botocore's own choice stands); afterwards pyopenssl
    can be imported as ever. A program of its own that uses kpz as a
    library never gets this: another of its threads importing pyopenssl in
    that window would be refused it."""
    if lean and "botocore.httpsession" not in sys.modules and _PYOPENSSL not in sys.modules:
        sys.modules[_PYOPENSSL] = None  # type: ignore[assignment]
        try:
            import botocore.httpsession  # noqa: F401
        finally:
            if _PYOPENSSL in sys.modules and sys.modules[_PYOPENSSL] is None:
                del sys.modules[_PYOPENSSL]
    import botocore.auth  # noqa: F401
    import botocore.awsrequest  # noqa: F401
    import botocore.session  # noqa: F401


def prepare_command_line(names: Sequence[str]) -> None:
    """For kpz's command lines: when any of `names` is an s3:// URL,
    botocore imported the lean way (import_botocore) before the store is
    made."""
    if any(is_s3(os.fspath(n)) for n in names):
        import_botocore(lean=True)


def _utcnow() -> datetime.datetime:
    return datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None)


class Store:
    """One store resolved from Options: endpoint, region, addressing and
    credentials. `clock` gives the signatures' time (naive UTC datetime; a
    test gives its own). StoreError when it cannot be used."""

    def __init__(self, options: Optional[Options] = None,
                 clock: Callable[[], datetime.datetime] = _utcnow) -> None:
        import_botocore()
        import botocore.exceptions
        import botocore.session

        options = options or Options()
        self.options = options
        self.clock = clock
        session = botocore.session.Session(profile=options.profile)
        self.profile = options.profile or os.environ.get("AWS_PROFILE") or "default"
        try:
            scoped = session.get_scoped_config()
        except botocore.exceptions.ProfileNotFound:
            raise StoreError("the profile '%s' is in neither ~/.aws/config nor "
                             "~/.aws/credentials" % self.profile) from None
        s3conf = scoped.get("s3") if isinstance(scoped.get("s3"), dict) else {}
        endpoint = (options.endpoint_url or os.environ.get("AWS_ENDPOINT_URL_S3")
                    or os.environ.get("AWS_ENDPOINT_URL") or s3conf.get("endpoint_url")
                    or scoped.get("endpoint_url"))
        self.region = (options.region or os.environ.get("AWS_REGION")
                       or session.get_config_variable("region") or "us-east-1")
        if not endpoint:
            endpoint = "https://s3.%s.amazonaws.com" % self.region
        parts = urllib.parse.urlsplit(endpoint)
        if parts.scheme not in ("http", "https") or not parts.hostname:
            raise StoreError("the endpoint %s is not an http:// or https:// URL" % endpoint)
        self.scheme = parts.scheme
        self.host = parts.hostname
        try:
            self.port = parts.port
        except ValueError:
            raise StoreError("the endpoint %s has a port that is not one" % endpoint) from None
        self.base = parts.path.rstrip("/")
        self.endpoint = endpoint
        self.path_style = bool(options.path_style) or s3conf.get("addressing_style") == "path" \
            or self.host == "localhost" or _is_ip(self.host)
        self._credentials = None
        if options.sign:
            self._credentials = session.get_credentials()
            if self._credentials is None:
                raise StoreError(
                    "no credentials for s3:// (looked for them in the environment: "
                    "AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY; in the profile '%s' of "
                    "~/.aws/credentials and ~/.aws/config; and for a container's or "
                    "instance's role); for a public bucket give --no-sign-request"
                    % self.profile)
        self._auth = None

    # -- where an object is --------------------------------------------------

    def _netloc(self, bucket: Optional[str]) -> str:
        host = self.host if ":" not in self.host else "[%s]" % self.host
        if bucket is not None:
            host = "%s.%s" % (bucket, host)
        default = 443 if self.scheme == "https" else 80
        return host if self.port in (None, default) else "%s:%d" % (host, self.port)

    def url(self, bucket: str, key: str = "", query: Optional[List[Tuple[str, str]]] = None
            ) -> str:
        """The request URL of `key` in `bucket` (or of the bucket, with
        `query`), %-encoded as it is signed and sent."""
        vhost = not self.path_style and _DNS_BUCKET.match(bucket) and \
            not (self.scheme == "https" and "." in bucket)
        if vhost:
            netloc, path = self._netloc(bucket), "%s/%s" % (self.base, _quote(key))
        else:
            netloc = self._netloc(None)
            path = "%s/%s/%s" % (self.base, bucket, _quote(key)) if key or query is None \
                else "%s/%s" % (self.base, bucket)
        text = "%s://%s%s" % (self.scheme, netloc, path)
        if query:
            text += "?" + "&".join("%s=%s" % (_quote(k, "-_.~"), _quote(v, "-_.~"))
                                   for k, v in sorted(query))
        return text

    # -- signing -----------------------------------------------------------------

    def sign(self, method: str, url: str, headers: Any, payload: str) -> None:
        """Signs a request about to be sent: adds to `headers` (a mutable
        mapping holding Host and, for a range, Range) X-Amz-Date,
        X-Amz-Content-SHA256 (`payload`, the hash of the body),
        X-Amz-Security-Token with temporary credentials, and Authorization;
        the time is the clock's now. Nothing is added when requests are
        not signed."""
        if self._credentials is None:
            headers[_PAYLOAD] = payload
            return
        from botocore.auth import SIGV4_TIMESTAMP
        from botocore.awsrequest import AWSRequest

        signed = {"Host": headers["Host"]}
        for name in ("Range", "Content-Type", "Content-Length"):
            if name in headers:
                signed[name] = headers[name]
        request = AWSRequest(method=method, url=url, headers=signed)
        request.context["timestamp"] = self.clock().strftime(SIGV4_TIMESTAMP)
        request.context["kpz_payload"] = payload
        auth = _auth_class()(self._credentials.get_frozen_credentials(), "s3", self.region)
        # botocore's S3SigV4Auth.add_auth, with the time from our clock.
        auth._modify_request_before_signing(request)
        canonical = auth.canonical_request(request)
        auth._inject_signature_to_request(
            request, auth.signature(auth.string_to_sign(request, canonical), request))
        for name, value in request.headers.items():
            if name not in signed:
                headers[name] = value


def _is_ip(host: str) -> bool:
    try:
        ipaddress.ip_address(host)
        return True
    except ValueError:
        return False


_AUTH = None


def _auth_class():
    """botocore's S3SigV4Auth, taking the payload's hash as given (the body
    is hashed once, as the request is made) instead of reading the body."""
    global _AUTH
    if _AUTH is None:
        from botocore.auth import S3SigV4Auth

        class Auth(S3SigV4Auth):
            def payload(self, request):
                return request.context["kpz_payload"]

        _AUTH = Auth
    return _AUTH


def request_class(store_of: Callable[[], Store]):
    """aiohttp's request class for a pool whose requests to the store are
    signed as they are sent: ``send`` is called once the pool has given the
    request its connection (after any wait for one), and signs the requests
    that carry X-Amz-Content-SHA256 with the store `store_of()` gives."""
    from aiohttp import ClientRequest

    class SignedWhenSent(ClientRequest):
        async def send(self, conn):
            payload = self.headers.get(_PAYLOAD)
            if payload is not None:
                store_of().sign(self.method, str(self.url), self.headers, payload)
            return await super().send(conn)

    return SignedWhenSent


def headers(store: Store, url: str, payload: str = EMPTY_SHA256) -> dict:
    """The headers a request to the store is made with: its Host, and the
    hash of its body, which marks it to be signed when sent."""
    host = urllib.parse.urlsplit(url).netloc
    return {"Host": host, _PAYLOAD: payload}


# -- the store's words ------------------------------------------------------------


def _children(node: Any, name: str) -> List[Any]:
    """The children of `node` named `name` in any XML namespace (stores
    differ in the one they give)."""
    return [c for c in node if isinstance(c.tag, str) and c.tag.rsplit("}", 1)[-1] == name]


def _text(node: Any, name: str) -> str:
    found = _children(node, name)
    return (found[0].text or "").strip() if found else ""


def _when(text: str) -> Optional[datetime.datetime]:
    for form in ("%Y-%m-%dT%H:%M:%S.%fZ", "%Y-%m-%dT%H:%M:%SZ", "%Y%m%dT%H%M%SZ",
                 "%a, %d %b %Y %H:%M:%S GMT"):
        try:
            return datetime.datetime.strptime(text.strip(), form)
        except ValueError:
            continue
    return None


def _span(seconds: float) -> str:
    seconds = int(round(abs(seconds)))
    h, rest = divmod(seconds, 3600)
    m, s = divmod(rest, 60)
    if h:
        return "%d h %d min %d s" % (h, m, s)
    return "%d min %d s" % (m, s) if m else "%d s" % s


def error_words(status: int, reason: str, document: bytes, date: Optional[str] = None,
                now: Optional[datetime.datetime] = None) -> Tuple[str, bool]:
    """(words, transient) of an answer of the store that is not a success,
    from its XML error document: "NoSuchKey (HTTP 404): The specified key
    does not exist."; without a readable document "HTTP 404 Not Found".
    RequestTimeTooSkewed tells how far this machine's clock is from the
    store's (its ServerTime, else its Date header)."""
    code = message = ""
    root = None
    if document:
        try:
            root = ElementTree.fromstring(document)
        except ElementTree.ParseError:
            root = None
    if root is not None:
        code, message = _text(root, "Code"), _text(root, "Message")
    if not code:
        words = ("HTTP %d %s" % (status, reason or "")).strip()
    else:
        words = "%s (HTTP %d)" % (code, status)
        if message:
            words += ": " + message
    if code == "RequestTimeTooSkewed":
        server = _when(_text(root, "ServerTime")) if root is not None else None
        if server is None and date:
            server = _when(date)
        here = now or _utcnow()
        if server is not None:
            delta = (here - server).total_seconds()
            words += "; this machine's clock is %s %s the store's: set it right" % (
                _span(delta), "ahead of" if delta > 0 else "behind")
        else:
            words += "; this machine's clock is off: set it right"
    transient = code in TRANSIENT_CODES or status >= 500 or \
        (not code and status in (408, 425, 429))
    return words, transient


async def _read_upto(resp: Any, limit: int) -> bytes:
    """The body, up to `limit` + 1 bytes (one more says it is longer)."""
    chunks: List[bytes] = []
    have = 0
    while have <= limit:
        chunk = await resp.content.read(limit + 1 - have)
        if not chunk:
            break
        chunks.append(chunk)
        have += len(chunk)
    return b"".join(chunks)


async def read_error(resp: Any) -> Tuple[str, bool]:
    """error_words() of an aiohttp answer, its document read up to
    MAX_ERROR_DOCUMENT bytes (the connection is then released or dropped)."""
    try:
        document = await _read_upto(resp, MAX_ERROR_DOCUMENT)
    except Exception:  # noqa: BLE001 - a broken error document: the status alone
        document = b""
    if len(document) > MAX_ERROR_DOCUMENT or not resp.content.at_eof():
        document = b""  # cut off: the status alone
        resp.close()
    else:
        resp.release()
    return error_words(resp.status, resp.reason or "", document, resp.headers.get("Date"))


# -- requests with tries ------------------------------------------------------------


def connection_words(e: BaseException) -> Optional[str]:
    """The words of a failed connection or request (aiohttp's errors, a
    timeout), or None for an error that is none of those."""
    import asyncio

    import aiohttp

    if isinstance(e, asyncio.TimeoutError):
        return "timed out"
    if isinstance(e, aiohttp.ClientConnectorError):
        return "connection refused" if isinstance(e.os_error, ConnectionRefusedError) \
            else "cannot connect (%s)" % (e.os_error.strerror or e.os_error,)
    if isinstance(e, (aiohttp.ServerDisconnectedError, aiohttp.ClientPayloadError,
                      aiohttp.ClientOSError, ConnectionError)):
        return "the connection was closed in the middle of an answer"
    if isinstance(e, aiohttp.ClientError):
        return "the request failed (%s)" % (str(e) or type(e).__name__)
    return None


async def _request(reader: Any, store: Store, method: str, url: str, *, data: bytes = b"",
                   content_type: Optional[str] = None, limit: int) -> bytes:
    """One request to the store, tried reader.settings.tries times when it
    fails in a way that may pass (backoff and jitter as kpz.remote's): the
    body of the 2xx answer (at most `limit` bytes). OSError in words when it
    fails for good."""
    from yarl import URL

    payload = hashlib.sha256(data).hexdigest() if data else EMPTY_SHA256
    tries = reader.settings.tries
    for attempt in range(1, tries + 1):
        head = headers(store, url, payload)
        if content_type:
            head["Content-Type"] = content_type
        try:
            async with reader._session.request(method, URL(url, encoded=True), headers=head,
                                               data=data or None,
                                               allow_redirects=False) as resp:
                if 200 <= resp.status < 300:
                    body = await _read_upto(resp, limit)
                    if len(body) > limit:
                        resp.close()
                        raise OSError("the store's answer is larger than %d bytes" % limit)
                    return body
                words, transient = await read_error(resp)
        except OSError:
            raise
        except Exception as e:  # noqa: BLE001 - aiohttp's errors, in words
            words = connection_words(e)
            if words is None:
                raise
            transient = True
        if not transient:
            raise OSError(words)
        if attempt == tries:
            raise OSError("%s after %d tries" % (words, tries))
        await reader._wait(attempt)
    raise AssertionError("unreachable")


async def put(reader: Any, store: Store, url: str, data: bytes) -> str:
    """Writes `data` as the object `url` (s3://) in one PUT, image/jpeg:
    "" when the store took it, else why not in words. The store makes a PUT
    whole or absent, so a PUT that failed in a way that may pass is tried
    again."""
    try:
        bucket, key = split(url)
        await _request(reader, store, "PUT", store.url(bucket, key), data=data,
                       content_type="image/jpeg", limit=MAX_ERROR_DOCUMENT)
    except (OSError, ValueError) as e:
        return str(e)
    return ""


# -- listings -------------------------------------------------------------------------


@dataclasses.dataclass
class Page:
    """One page of a listing: objects (key, size), and the prefixes that end
    at the delimiter."""

    objects: List[Tuple[str, int]]
    prefixes: List[str]
    token: Optional[str]  # the continuation token of the next page; None: the last


def parse_page(document: bytes) -> Page:
    """A ListObjectsV2 page. OSError in words when it is not one."""
    try:
        root = ElementTree.fromstring(document)
    except ElementTree.ParseError as e:
        raise OSError("the store's listing cannot be read (%s)" % e) from None
    objects = []
    for node in _children(root, "Contents"):
        key = _text(node, "Key")
        try:
            size = int(_text(node, "Size") or "0")
        except ValueError:
            size = 0
        if key:
            objects.append((key, size))
    prefixes = [_text(n, "Prefix") for n in _children(root, "CommonPrefixes")]
    truncated = _text(root, "IsTruncated").lower() == "true"
    token = _text(root, "NextContinuationToken") if truncated else None
    if truncated and not token:
        raise OSError("the store's listing says it goes on but gives no continuation token")
    return Page(objects, [p for p in prefixes if p], token)


async def pages(reader: Any, store: Store, bucket: str, prefix: str,
                delimiter: Optional[str]) -> AsyncIterator[Page]:
    """The listing of `prefix` in `bucket` (ListObjectsV2, 1,000 keys a
    page), a page at a time as the store gives them: no more than one page
    is held."""
    token: Optional[str] = None
    while True:
        query = [("list-type", "2"), ("prefix", prefix)]
        if delimiter:
            query.append(("delimiter", delimiter))
        if token:
            query.append(("continuation-token", token))
        body = await _request(reader, store, "GET", store.url(bucket, query=query),
                              limit=MAX_LISTING_PAGE)
        page = parse_page(body)
        yield page
        if page.token is None:
            return
        if page.token == token:
            raise OSError("the store's listing gives the same continuation token twice")
        token = page.token


def glob_prefix(key: str) -> Optional[int]:
    """Where the first glob character of `key` is, or None."""
    first = min((key.find(c) for c in _GLOB_CHARS if c in key), default=-1)
    return None if first < 0 else first


def glob_matches(pattern: str, key: str) -> bool:
    """`key` matches `pattern` as a shell glob matches paths: '*', '?' and
    '[...]' within one '/'-separated part."""
    a, b = pattern.split("/"), key.split("/")
    return len(a) == len(b) and all(fnmatch.fnmatchcase(k, p) for p, k in zip(a, b))


async def sources(reader: Any, store: Store, url: str, recursive: bool,
                  wanted: Callable[[str], bool], ext_words: str
                  ) -> AsyncIterator[List[Tuple[str, str]]]:
    """The objects named by the s3:// `url`, as lists of (url, error) a
    listing page at a time: a key ending in '/' (or the bucket alone) is a
    folder (its objects whose name `wanted` takes; with `recursive` every
    object under it, else those directly in it), a key with a glob
    character lists its literal prefix and keeps the keys the glob matches,
    any other key is one object. A listing that finds none, or fails, gives
    the url and why."""
    try:
        bucket, key = split(url)
    except ValueError as e:
        yield [(url, str(e))]
        return
    first = glob_prefix(key)
    if first is None and key and not key.endswith("/"):
        yield [(url, "")]
        return
    if first is not None:
        prefix = key[:first]
        folder = prefix[:prefix.rfind("/") + 1]
        delimiter = None if "/" in key[len(folder):] else "/"

        def keep(k: str) -> bool:
            # A pattern the user typed: its matches are taken as named, as
            # kpz takes them (the extensions choose a folder's objects only).
            return glob_matches(key, k) and not k.endswith("/")
    else:
        prefix = key
        delimiter = None if recursive else "/"

        def keep(k: str) -> bool:
            return not k.endswith("/") and wanted(k.rsplit("/", 1)[-1])
    found = 0
    try:
        async for page in pages(reader, store, bucket, prefix, delimiter):
            got = [("s3://%s/%s" % (bucket, k), "") for k, _ in page.objects if keep(k)]
            found += len(got)
            if got:
                yield got
    except OSError as e:
        yield [(url, "cannot read the directory: %s" % e)]
        return
    if not found and first is not None:
        yield [(url, "the glob matches no file")]
    elif not found:
        yield [(url, "the directory holds no file ending in %s" % ext_words)]


async def listing(reader: Any, store: Store, url: str) -> AsyncIterator[Tuple[str, int]]:
    """(name, size) of the objects directly under the folder `url` (an
    output directory), a page at a time; nothing for a folder that is not
    there."""
    bucket, key = split(url)
    prefix = key.rstrip("/") + "/" if key.strip("/") else ""
    async for page in pages(reader, store, bucket, prefix, "/"):
        for k, size in page.objects:
            yield k[len(prefix):], size


# -- the command lines' flags ------------------------------------------------------


def add_arguments(parser: Any) -> None:
    """The s3:// flags of kpz's Python command lines (python3 -m kpz,
    python3 -m kpz.distributed), named as the AWS command line names them."""
    group = parser.add_argument_group(
        "s3:// sources and outputs (signed with the credentials of the environment or "
        "the profile)")
    group.add_argument("--endpoint-url", metavar="URL",
                       help="the store's URL (default: AWS_ENDPOINT_URL_S3, AWS_ENDPOINT_URL, "
                            "the profile's endpoint_url, else AWS)")
    group.add_argument("--region", metavar="NAME",
                       help="the region signed for (default: AWS_REGION, AWS_DEFAULT_REGION, "
                            "the profile's, else us-east-1)")
    group.add_argument("--profile", metavar="NAME",
                       help="the profile of ~/.aws/config and ~/.aws/credentials "
                            "(default: AWS_PROFILE, else default)")
    group.add_argument("--no-sign-request", action="store_true",
                       help="send requests unsigned (a public bucket)")
    group.add_argument("--path-style", action="store_true",
                       help="address buckets in the path (http://host/bucket/key), not the "
                            "host name (automatic for an IP address or localhost)")


def options_of(args: Any) -> Options:
    return Options(endpoint_url=args.endpoint_url, region=args.region, profile=args.profile,
                   sign=not args.no_sign_request, path_style=True if args.path_style else None)
