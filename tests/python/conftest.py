"""Shared fixtures of the kpz package's tests.

The tests run against the package Python imports: the build tree's
(<build>/python, which CTest puts on PYTHONPATH) or an installed wheel. They
compare it with the kpz tool and read KPZ files written by the test-data
builder (make_py_fixtures.cpp), once per session, into a temporary directory.

CTest names both (KPZ_TOOL, KPZ_PY_FIXTURE_WRITER). Under plain `pytest`
they are looked for: the tool on PATH, then in build/default of this
checkout, the fixture writer in build/default. A test that needs one that
cannot be found is skipped, saying which and how to get it.
"""

import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

SOURCE_DIR = Path(os.environ.get("KPZ_SOURCE_DIR") or Path(__file__).resolve().parents[2])
BUILD_DIR = SOURCE_DIR / "build" / "default"


def _found(name: str, *candidates) -> str:
    """The path named by the environment variable `name`, else the first
    existing candidate; skips the test that needs it when there is none."""
    value = os.environ.get(name)
    if value:
        return value
    for candidate in candidates:
        if candidate and Path(candidate).is_file() and os.access(candidate, os.X_OK):
            return str(candidate)
    pytest.skip(f"{name} is not set and none was found (looked in: "
                f"{', '.join(str(c) for c in candidates if c)}); build it with "
                "`cmake --build build/default` or run these tests through CTest")


@pytest.fixture(scope="session")
def tool() -> str:
    return _found("KPZ_TOOL", shutil.which("kpz"), BUILD_DIR / "bin" / "kpz")


@pytest.fixture(scope="session")
def fixtures(tmp_path_factory):
    """The manifest of the generated files (see make_py_fixtures.cpp)."""
    writer = _found("KPZ_PY_FIXTURE_WRITER",
                    BUILD_DIR / "tests" / "python" / "kpz_py_fixtures")
    out = tmp_path_factory.mktemp("kpz-fixtures")
    subprocess.run([writer, str(out)], check=True, timeout=120)
    with open(out / "manifest.json", encoding="utf-8") as f:
        manifest = json.load(f)
    manifest["dir"] = out
    manifest["byname"] = {entry["name"]: entry for entry in manifest["files"]}
    return manifest


@pytest.fixture(scope="session")
def sample() -> Path:
    return SOURCE_DIR / "samples" / "sample.kpz"


class ToolRun:
    """What one run of the kpz tool gave."""

    def __init__(self, proc: subprocess.CompletedProcess, path: str) -> None:
        self.status = proc.returncode
        self.stdout = proc.stdout
        self.stderr = proc.stderr.decode("utf-8", "replace")
        self.path = path

    def words(self) -> str:
        """The reason kpz printed for the file ("kpz: FILE: words")."""
        prefix = f"kpz: {self.path}: "
        for line in self.stderr.splitlines():
            if line.startswith(prefix):
                return line[len(prefix):]
        raise AssertionError(f"no line for {self.path} in kpz's output: {self.stderr!r}")


@pytest.fixture(scope="session")
def run_tool(tool):
    def run(*args: str, path: str = "") -> ToolRun:
        proc = subprocess.run([tool, *args], capture_output=True, timeout=60, check=False)
        return ToolRun(proc, path)
    return run
