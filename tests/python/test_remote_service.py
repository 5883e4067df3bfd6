"""The web service of docs/PYTHON.md, as written there, run on 127.0.0.1
in front of a server of the tests' own: a preview, a file the store does
not have, a store that fails, and a file that is not a KPZ file each get
the answer the docs promise."""

import asyncio
import pathlib
import re
import types

import pytest

import kpz
from conftest import SOURCE_DIR
from remote_support import FaultyServer

DOCS = SOURCE_DIR / "docs" / "PYTHON.md"


def _service_module(store: str) -> types.ModuleType:
    text = DOCS.read_text(encoding="utf-8")
    blocks = re.findall(r"```python\n(.*?)```", text, re.S)
    code = next(b for b in blocks if "async def preview(" in b)
    assert 'STORE = "https://store.example/photos/"' in code
    code = code.replace('"https://store.example/photos/"', repr(store))
    module = types.ModuleType("docs_service")
    exec(compile(code, str(DOCS), "exec"), module.__dict__)
    return module


def test_the_documented_web_service_answers_as_the_docs_say(fixtures):
    aiohttp_test = pytest.importorskip("aiohttp.test_utils")
    if not DOCS.exists():
        pytest.skip(f"{DOCS} is not here (the tests were copied without the checkout's docs)")
    good = next(e for e in fixtures["files"] if e["name"] == "plain")
    with open(good["path"], "rb") as f:
        good_bytes = f.read()
    files = {"/photos/a.kpz": good_bytes, "/photos/down.kpz": good_bytes,
             "/photos/text.kpz": b"this is not a raw file\n" * 100}
    # The store answers 503 to every try of down.kpz (4 tries by default).
    faults = {"/photos/down.kpz": ["503"] * 8}
    want = kpz.screennail(good["path"])

    async def run(store):
        service = _service_module(store)
        server = aiohttp_test.TestServer(service.make_app(), host="127.0.0.1", port=0)
        async with aiohttp_test.TestClient(server) as client:
            answers = {}
            for name in ("a.kpz", "missing.kpz", "down.kpz", "text.kpz"):
                resp = await client.get("/preview/" + name)
                answers[name] = (resp.status, await resp.read())
            return answers

    with FaultyServer(files, faults) as store:
        answers = asyncio.run(asyncio.wait_for(run(store.url("/photos/")), 120))
    assert answers["a.kpz"] == (200, want)
    assert answers["missing.kpz"][0] == 404
    assert answers["missing.kpz"][1].startswith(b"HTTP 404")
    assert answers["down.kpz"][0] == 502
    assert b"HTTP 503" in answers["down.kpz"][1] and b"after 4 tries" in answers["down.kpz"][1]
    assert answers["text.kpz"][0] == 422
    assert answers["text.kpz"][1].decode() == kpz.error_words(_error_of(b"this is not a raw file\n" * 100))


def _error_of(data: bytes):
    try:
        kpz.screennail(data)
    except (kpz.KpzError, OSError) as e:
        return e
    raise AssertionError("the text file read as a KPZ file")
