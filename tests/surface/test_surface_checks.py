"""The surface checks fail when they should: run on a copy of VERSION and
CHANGELOG.md with descriptions written afresh from this build (KPZ_BUILD_DIR;
the copy's root is KPZ_SURFACE_ROOT), then changed as a careless change would
leave them. Whether the tree's own descriptions are current is the other
surface/* tests' business, not this one's."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

SOURCE = Path(__file__).resolve().parents[2]
SCRIPT = SOURCE / "scripts" / "surface.py"
BUILD = Path(os.environ.get("KPZ_BUILD_DIR", SOURCE / "build" / "default"))


@pytest.fixture()
def tree(tmp_path):
    root = tmp_path / "tree"
    (root / "docs").mkdir(parents=True)
    shutil.copyfile(SOURCE / "VERSION", root / "VERSION")
    shutil.copyfile(SOURCE / "CHANGELOG.md", root / "CHANGELOG.md")
    written = run(root, "update")
    assert written.returncode == 0, written.stderr
    return root


def run(root, *args):
    env = dict(os.environ, KPZ_SURFACE_ROOT=str(root), PYTHONDONTWRITEBYTECODE="1")
    return subprocess.run([sys.executable, str(SCRIPT), args[0], str(BUILD), *args[1:]],
                          capture_output=True, text=True, env=env, timeout=300)


def edit(path: Path, old: str, new: str) -> None:
    text = path.read_text(encoding="utf-8")
    assert old in text
    path.write_text(text.replace(old, new, 1), encoding="utf-8")


def test_the_copy_passes_as_the_tree_does(tree):
    got = run(tree, "check", "python", "java")
    assert got.returncode == 0, got.stderr


def test_a_changed_signature_fails_naming_it_and_the_update_command(tree):
    python = tree / "docs" / "surface" / "python.txt"
    line = next(l for l in python.read_text().splitlines() if l.startswith("def kpz.thumbnail("))
    edit(python, line, line.replace("upright", "turned"))
    got = run(tree, "check", "python")
    assert got.returncode == 1
    assert "kpz.thumbnail" in got.stderr
    assert "scripts/surface.py update %s" % BUILD in got.stderr


def test_an_update_without_a_changelog_entry_fails_until_the_name_is_mentioned(tree):
    python = tree / "docs" / "surface" / "python.txt"
    line = next(l for l in python.read_text().splitlines() if l.startswith("kpz.HEAD_SIZE = "))
    edit(python, line, "kpz.HEAD_SIZE = 1")        # as the description was before a change
    changelog = tree / "CHANGELOG.md"
    assert not re.search(r"\bHEAD_SIZE\b", changelog.read_text())
    updated = run(tree, "update", "python")
    assert updated.returncode == 0, updated.stderr
    assert "mention in CHANGELOG.md's section" in updated.stdout and "kpz.HEAD_SIZE" in updated.stdout
    assert re.search(r"^# changed in [\d.]+: .*kpz\.HEAD_SIZE", python.read_text(), re.M)
    got = run(tree, "check", "python")
    assert got.returncode == 1
    assert "not mentioned in CHANGELOG.md" in got.stderr and "kpz.HEAD_SIZE" in got.stderr
    version = (tree / "VERSION").read_text().strip()
    edit(changelog, "## [%s]" % version, "## [%s]\n\n### Changed\n- `HEAD_SIZE` is larger.\n" % version)
    got = run(tree, "check", "python")
    assert got.returncode == 0, got.stderr


def test_a_new_version_needs_its_changelog_section_and_new_descriptions(tree):
    edit(tree / "VERSION", (tree / "VERSION").read_text(), "9.8.7\n")
    got = run(tree, "check", "java")
    assert got.returncode == 1
    assert "CHANGELOG.md: its top release section is" in got.stderr and "9.8.7" in got.stderr
    assert "describes version" in got.stderr
    assert run(tree, "update", "java").returncode == 0
    assert "# version: 9.8.7" in (tree / "docs" / "surface" / "java.txt").read_text()
    edit(tree / "CHANGELOG.md", "\n## [", "\n## [9.8.7] - unreleased\n\n## [")
    got = run(tree, "check", "java")
    assert got.returncode == 0, got.stderr


def test_a_symbol_gone_is_an_abi_break_and_a_new_one_is_reported(tree):
    symbols = tree / "docs" / "surface" / "symbols.txt"
    lines = symbols.read_text().splitlines()
    entry = next(l for l in lines if l.startswith("Java_"))
    # The description holds one symbol the library lacks, and lacks one it has.
    edit(symbols, entry + "\n", "_ZN10DtNlGoneAway4OpenEv  # DtNlGoneAway::Open()\n")
    got = run(tree, "check", "symbols")
    assert got.returncode == 1
    assert "symbol(s) the library exported are gone: an ABI break" in got.stderr
    assert "_ZN10DtNlGoneAway4OpenEv" in got.stderr and "SONAME" in got.stderr
    assert "1 new symbol(s) (compatible additions; record them)" in got.stderr and entry in got.stderr
    # Under the same SONAME the update refuses to forget the symbol ...
    refused = run(tree, "update", "symbols")
    assert refused.returncode == 1 and "an ABI break" in refused.stderr
    assert "_ZN10DtNlGoneAway4OpenEv" in symbols.read_text()
    # ... unless told.
    assert run(tree, "update", "symbols", "--accept-abi-break").returncode == 0
    assert run(tree, "check", "symbols").returncode == 0
