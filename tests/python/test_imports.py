"""Every module the package imports, on any of its paths, is on this machine.

A module imported only inside a function (or by a library we call, such as
fsspec's HTTP back end) is missed by a plain `import kpz`: a fresh machine
without it passes every other test and fails a user's first remote run. These
tests fail on such a machine instead of skipping, so the next missing step in
scripts/install-deps.sh is caught here.
"""

import ast
import importlib
import importlib.util
import pathlib
import subprocess
import sys

import pytest

import kpz

PACKAGE_DIR = pathlib.Path(kpz.__file__).parent

# Remote file systems a user may name (-o s3://...) whose back ends are
# optional extras: their absence is told in words at run time, not a fault
# of the install.
OPTIONAL = {"s3fs", "gcsfs", "adlfs"}


def _modules_imported_by(path):
    tree = ast.parse(path.read_text(encoding="utf-8"), filename=str(path))
    for node in ast.walk(tree):
        if isinstance(node, ast.Import):
            for alias in node.names:
                yield alias.name.split(".")[0], node.lineno
        elif isinstance(node, ast.ImportFrom) and node.level == 0 and node.module:
            yield node.module.split(".")[0], node.lineno


def _package_sources():
    return sorted(p for p in PACKAGE_DIR.rglob("*.py"))


def test_the_package_has_python_sources_to_check():
    names = {p.relative_to(PACKAGE_DIR).as_posix() for p in _package_sources()}
    assert "__init__.py" in names and "remote.py" in names
    assert any(n.startswith("distributed/") for n in names)


@pytest.mark.parametrize("source", _package_sources(),
                         ids=lambda p: p.relative_to(PACKAGE_DIR).as_posix())
def test_every_module_a_source_imports_is_installed(source):
    missing = []
    for name, line in _modules_imported_by(source):
        if name in OPTIONAL or name in ("kpz", "__future__"):
            continue
        if importlib.util.find_spec(name) is None:
            missing.append(f"{name} (line {line})")
    assert not missing, (f"{source.name} imports modules this machine lacks: "
                         f"{', '.join(missing)}; scripts/install-deps.sh must install them")


@pytest.mark.parametrize("module", ["kpz", "kpz.remote", "kpz.distributed",
                                    "kpz.distributed.__main__"])
def test_each_entry_point_imports_in_a_fresh_interpreter(module):
    # A fresh interpreter: nothing imported by the test run itself helps.
    code = f"import importlib; importlib.import_module({module!r})"
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True,
                          timeout=120)
    assert done.returncode == 0, done.stderr


def test_the_http_back_end_of_fsspec_has_what_it_needs():
    # fsspec's registry knows the class by name; loading it imports aiohttp
    # and requests, and says which is missing when one is.
    fsspec = importlib.import_module("fsspec")
    cls = fsspec.get_filesystem_class("http")
    assert cls.__name__ == "HTTPFileSystem"
    for name in ("aiohttp", "requests"):
        assert importlib.util.find_spec(name) is not None, name
