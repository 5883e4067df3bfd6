"""python3 -m kpz loads only what its sources need: a run over local files
loads no network library (aiohttp, botocore, Dask ...), a run over http(s)://
loads aiohttp but not botocore. Each run is python3 -m kpz itself (runpy, as
-m runs it) in a fresh interpreter, whose modules are then listed."""

import json
import socket
import subprocess
import sys

# Loaded by python3 -m kpz only for the sources that need them.
NETWORK = ("aiohttp", "yarl", "multidict", "botocore", "requests", "urllib3", "dask",
           "distributed", "fsspec")

_AS_MAIN = r"""
import json, runpy, sys
report, args = sys.argv[1], sys.argv[2:]
sys.argv = ["kpz"] + args
status = 0
try:
    runpy.run_module("kpz", run_name="__main__", alter_sys=True)
except SystemExit as e:
    status = e.code
with open(report, "w") as f:
    json.dump({"status": status, "modules": sorted(sys.modules)}, f)
"""


def _run(tmp_path, *args):
    """(exit status, top-level modules loaded, stdout, stderr) of python3 -m
    kpz ARGS."""
    report = tmp_path / "modules.json"
    done = subprocess.run([sys.executable, "-c", _AS_MAIN, str(report), *args],
                          capture_output=True, text=True, timeout=120)
    got = json.loads(report.read_text())
    return got["status"], {m.split(".")[0] for m in got["modules"]}, done.stdout, done.stderr


def _closed_port() -> int:
    """A port of 127.0.0.1 where nothing listens (bound, then let go)."""
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def test_a_local_run_loads_no_network_library(sample, tmp_path):
    status, modules, out, err = _run(tmp_path, "preview", str(sample), "-o",
                                     str(tmp_path / "out"))
    assert status in (0, None), err
    assert out.startswith("wrote ") and (tmp_path / "out" / "sample.preview.jpg").is_file()
    assert "kpz" in modules
    assert not modules & set(NETWORK), sorted(modules & set(NETWORK))


def test_help_loads_no_network_library(tmp_path):
    status, modules, out, err = _run(tmp_path, "--help")
    assert status == 0 and "s3://" in out, err
    assert not modules & set(NETWORK), sorted(modules & set(NETWORK))


def test_an_http_run_loads_aiohttp_but_not_botocore(tmp_path):
    url = "http://127.0.0.1:%d/a.kpz" % _closed_port()
    status, modules, out, err = _run(tmp_path, "preview", "--tries", "1", url, "-o",
                                     str(tmp_path / "out"))
    assert status == 1 and "connection refused" in err, err
    assert "aiohttp" in modules
    assert not modules & {"botocore", "requests", "urllib3", "dask", "distributed",
                          "fsspec"}, sorted(modules)
