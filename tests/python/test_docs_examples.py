"""The examples of README.md and docs/ run as written: every `kpz` command
line of the README's command block (the tool built here standing in for
scripts/kpz.sh, which builds the same tool and runs it), the jq recipes of
docs/KPZ-JSON.md, and the Python snippets of README.md and docs/PYTHON.md,
each in a scratch directory holding the files the examples name."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

import pytest

from conftest import SOURCE_DIR

README = SOURCE_DIR / "README.md"
DOCS = SOURCE_DIR / "docs"


def _blocks(path: pathlib.Path, lang: str):
    return re.findall(r"```%s\n(.*?)```" % lang, path.read_text(encoding="utf-8"), re.S)


def _lines(block: str):
    """The commands of a shell block: comments dropped, one per line."""
    for line in block.splitlines():
        line = line.split(" # ")[0].strip()
        if line and not line.startswith("#"):
            yield line


@pytest.fixture
def scratch(tmp_path, sample):
    """A directory with the files the examples name: a.kpz, IMG_0001.KPZ
    and shots/ holding two KPZ files."""
    shutil.copy(sample, tmp_path / "a.kpz")
    shutil.copy(sample, tmp_path / "IMG_0001.KPZ")
    (tmp_path / "shots").mkdir()
    for name in ("one.kpz", "two.kpz"):
        shutil.copy(sample, tmp_path / "shots" / name)
    return tmp_path


def _tool_block():
    for block in _blocks(README, "sh"):
        if "scripts/kpz.sh info" in block and "rotate" in block:
            return block
    raise AssertionError("README.md has no block of kpz commands")


def test_every_command_of_the_readme_runs_as_written(scratch, tool):
    commands = list(_lines(_tool_block()))
    assert len(commands) >= 8, commands
    for command in commands:
        args = shlex.split(command)
        assert args[0] == "scripts/kpz.sh", command
        done = subprocess.run([tool, *args[1:]], cwd=scratch, capture_output=True,
                              timeout=60)
        assert done.returncode == 0, (command, done.stderr.decode(errors="replace"))
    # What the comments promise was made.
    assert (scratch / "sample.preview.jpg").exists()
    assert (scratch / "a.thumb.jpg").exists()
    assert (scratch / "a.preview.jpg").exists()
    assert (scratch / "out" / "a.preview.jpg").exists()
    assert sorted(os.listdir(scratch / "out")) == ["a.preview.jpg", "one.preview.jpg",
                                                   "two.preview.jpg"]


def test_the_jq_recipes_of_the_json_docs_run_as_written(scratch, tool):
    if shutil.which("jq") is None:
        pytest.skip("jq is not installed (the recipes are for users who have it)")
    block = _blocks(DOCS / "KPZ-JSON.md", "sh")
    commands = [c for b in block for c in _lines(b) if c.startswith("kpz ")]
    assert len(commands) >= 4, commands
    # One file turned, so that the recipes that pick turned files find one.
    subprocess.run([tool, "rotate", str(scratch / "shots" / "two.kpz"), "--cw"], check=True,
                   capture_output=True, timeout=60)
    bindir = scratch / "bin"
    bindir.mkdir()
    os.symlink(tool, bindir / "kpz")
    env = dict(os.environ, PATH=f"{bindir}:{os.environ.get('PATH', '')}")
    for command in commands:
        done = subprocess.run(["/bin/bash", "-o", "pipefail", "-c", command],
                              cwd=scratch, capture_output=True, timeout=60, env=env)
        assert done.returncode == 0, (command, done.stderr.decode(errors="replace"))
        assert done.stdout.strip(), command


@pytest.mark.parametrize("where,marker", [(README, "kpz.screennail(\"a.kpz\")"),
                                          (DOCS / "PYTHON.md", "IMG_0001.KPZ")])
def test_the_python_snippets_run_as_written(scratch, where, marker):
    code = next(b for b in _blocks(where, "python") if marker in b)
    done = subprocess.run([sys.executable, "-c", code], cwd=scratch, capture_output=True,
                          text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    assert done.stdout.strip(), "the snippet prints the file's model and orientation"
