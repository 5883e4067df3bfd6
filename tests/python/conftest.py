"""Shared fixtures of the kpz package's tests.

The tests run against the package found on PYTHONPATH (the build tree's,
<build>/python, as CTest sets it) and compare it with the kpz tool (KPZ_TOOL).
The KPZ files come from the test-data builder (KPZ_PY_FIXTURE_WRITER, made
from make_py_fixtures.cpp), written once per session into a temporary
directory.
"""

import json
import os
import subprocess
from pathlib import Path

import pytest


def _env(name: str) -> str:
    value = os.environ.get(name)
    if not value:
        pytest.exit(f"{name} is not set: run these tests through CTest (ctest -L python)", 2)
    return value


@pytest.fixture(scope="session")
def tool() -> str:
    return _env("KPZ_TOOL")


@pytest.fixture(scope="session")
def fixtures(tmp_path_factory):
    """The manifest of the generated files (see make_py_fixtures.cpp)."""
    out = tmp_path_factory.mktemp("kpz-fixtures")
    subprocess.run([_env("KPZ_PY_FIXTURE_WRITER"), str(out)], check=True, timeout=120)
    with open(out / "manifest.json", encoding="utf-8") as f:
        manifest = json.load(f)
    manifest["dir"] = out
    manifest["byname"] = {entry["name"]: entry for entry in manifest["files"]}
    return manifest


@pytest.fixture(scope="session")
def sample() -> Path:
    return Path(_env("KPZ_SOURCE_DIR")) / "samples" / "sample.kpz"


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
