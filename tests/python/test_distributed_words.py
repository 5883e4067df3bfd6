"""kpz.distributed says what kpz says: names shown escaped on every line, the
--upright summary's re-encoding count, an output folder that cannot be made,
an output URL or scheduler address that is not one, and --skip-existing
that counts only whole outputs as present. On a scheduler and one worker
started with Debian's commands on 127.0.0.1."""

import importlib.util
import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

from kpz._kpz import kit
from distributed_support import DaskCluster, python_env, run_cli, same_tree

ORIENTED = [f"orient{n}_{part}" for n in range(1, 9) for part in ("whole", "partial")]


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    c = DaskCluster(tmp_path_factory.mktemp("dask"), 1, python_env())
    yield c
    c.close()


def cli(cluster, *args):
    return run_cli([*args, "--scheduler", cluster.address])


def copy_in(fixtures, where: Path, names) -> Path:
    where.mkdir()
    for name in names:
        shutil.copy(fixtures["byname"][name]["path"], where / f"{name}.kpz")
    return where


def test_upright_summary_counts_the_re_encoded_as_kpz_does(cluster, fixtures, tool, tmp_path):
    inputs = copy_in(fixtures, tmp_path / "in", ORIENTED)
    want = subprocess.run([tool, "preview", "--upright", str(inputs), "-o", str(tmp_path / "ref")],
                          capture_output=True, text=True, timeout=120)
    got = cli(cluster, "preview", "--upright", str(inputs), "-o", str(tmp_path / "out"))
    assert "re-encoded at quality 95" in want.stderr  # the files hold such pictures
    assert got.returncode == want.returncode == 0
    assert got.stderr == want.stderr
    assert got.stdout == want.stdout.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    same_tree(tmp_path / "out", tmp_path / "ref")


def test_names_shown_escaped_one_line_per_event(cluster, fixtures, tool, tmp_path):
    inputs = tmp_path / "in"
    inputs.mkdir()
    good = fixtures["byname"]["orient1_whole"]["path"]
    forged = "evil\nwrote out-fake.preview.jpg (1 bytes)\nkpz: x.kpz"
    shutil.copy(good, inputs / forged)
    shutil.copy(good, inputs / "clear\x1b[2Jscreen.kpz")
    shutil.copy(fixtures["byname"]["not_tiff"]["path"], inputs / "bad\nline.kpz")
    want = subprocess.run([tool, "preview", str(inputs), "-o", str(tmp_path / "ref")],
                          capture_output=True, timeout=120)
    got = subprocess.run([sys.executable, "-m",
                          "kpz.distributed", "preview", str(inputs), "-o", str(tmp_path / "out"),
                          "--scheduler", cluster.address], capture_output=True, timeout=120,
                         env=python_env())
    ref, out = str(tmp_path / "ref").encode(), str(tmp_path / "out").encode()
    assert got.returncode == want.returncode == 1
    assert got.stdout == want.stdout.replace(ref, out)
    assert got.stderr == want.stderr
    assert b"\x1b" not in got.stdout + got.stderr
    lines = got.stdout.decode().splitlines()
    assert len(lines) == 2 and all(line.startswith("wrote '") for line in lines), lines
    bad = kit.shown_name(str(inputs / "bad\nline.kpz"))
    assert bad.startswith("'") and "bad\\nline" in bad
    assert [line for line in got.stderr.decode().splitlines() if "bad" in line] == \
        [line for line in want.stderr.decode().splitlines() if line.startswith(f"kpz: {bad}: ")]
    same_tree(tmp_path / "out", tmp_path / "ref")


def test_output_folder_that_cannot_be_made_as_kpz_says(cluster, fixtures, tool, tmp_path):
    inputs = copy_in(fixtures, tmp_path / "in", ORIENTED[:2])
    afile = tmp_path / "afile"
    afile.write_bytes(b"x")
    for out in (afile, afile / "sub"):
        want = subprocess.run([tool, "preview", str(inputs), "-o", str(out)],
                              capture_output=True, text=True, timeout=60)
        got = cli(cluster, "preview", str(inputs), "-o", str(out))
        assert want.stderr == f"kpz: {out}: cannot make the output directory: Not a directory\n"
        assert (got.returncode, got.stderr, got.stdout) == (3, want.stderr, "")
        assert want.returncode == 3
    assert afile.read_bytes() == b"x"


@pytest.mark.parametrize("args,status,line", [
    (["-o", "bogus://x/"], 2,
     "kpz: bogus://x/: not a URL that can be written to (Protocol not known: bogus)\n"),
    (["-o", "OUT", "--scheduler", "garbage"], 2,
     "kpz: garbage: not a scheduler's address (tcp://HOST:PORT): missing port number in "
     "address 'garbage'\n"),
])
def test_an_output_url_or_address_that_is_not_one_in_one_line(fixtures, tmp_path, args, status,
                                                              line):
    inputs = copy_in(fixtures, tmp_path / "in", ORIENTED[:1])
    args = [a.replace("OUT", str(tmp_path / "out")) for a in args]
    got = run_cli(["preview", str(inputs), *args], timeout=60)
    assert (got.returncode, got.stderr, got.stdout) == (status, line, "")


@pytest.mark.skipif(importlib.util.find_spec("gcsfs") is not None, reason="gcsfs is installed")
def test_an_object_store_without_its_back_end_in_one_line(fixtures, tmp_path):
    # (s3:// is kpz's own: test_distributed_s3.py)
    inputs = copy_in(fixtures, tmp_path / "in", ORIENTED[:1])
    got = run_cli(["preview", str(inputs), "-o", "gs://bucket/previews/"], timeout=60)
    assert (got.returncode, got.stdout) == (3, "")
    assert got.stderr.startswith("kpz: gs://bucket/previews/: cannot write there: its file "
                                 "system is not installed (")
    assert got.stderr.count("\n") == 1 and got.stderr.endswith(")\n")


def test_skip_existing_counts_only_whole_outputs(cluster, fixtures, tool, tmp_path):
    names = [n for n in ORIENTED if n.endswith("_whole")]
    inputs = copy_in(fixtures, tmp_path / "in", names)
    subprocess.run([tool, "preview", str(inputs), "-o", str(tmp_path / "ref")], check=True,
                   capture_output=True, timeout=60)
    out = tmp_path / "out"
    assert cli(cluster, "preview", str(inputs), "-o", str(out)).returncode == 0
    outputs = sorted(p.name for p in out.iterdir())
    assert all(kit.output_is_whole(str(out / n)) for n in outputs)
    # What a crash or a hostile neighbour can leave under an output's name.
    empty, garbage, cut, dangling, folder = outputs[:5]
    (out / empty).write_bytes(b"")
    (out / garbage).write_bytes(b"not a JPEG at all, but long enough" * 10)
    whole = (out / cut).read_bytes()
    (out / cut).write_bytes(whole[:len(whole) // 2])
    (out / dangling).unlink()
    os.symlink(tmp_path / "nowhere" / "x.jpg", out / dangling)
    (out / folder).unlink()
    (out / folder).mkdir()
    kept = {n: (out / n).stat().st_mtime_ns for n in outputs[5:]}

    again = cli(cluster, "preview", "--skip-existing", str(inputs), "-o", str(out))
    written = sorted(Path(line.split(" ", 2)[1]).name for line in again.stdout.splitlines())
    assert written == sorted([empty, garbage, cut])
    # The link's target does not exist in a folder that does not exist: not
    # written; the folder is no file: not written. Each told in one line.
    assert again.returncode == 3
    errors = [line for line in again.stderr.splitlines() if not line.startswith("kpz:   ")
              and not line.startswith("kpz: 8 files")]
    assert len(errors) == 2 and all(line.startswith(f"kpz: {out}/") for line in errors), errors
    assert f"kpz:   {len(kept)} previews already present, not written again (--skip-existing)" \
        in again.stderr
    assert "kpz:   3 previews written again, as the file present was not a whole JPEG " \
        "(--skip-existing)" in again.stderr
    for n in kept:
        assert (out / n).stat().st_mtime_ns == kept[n], n
    for n in (empty, garbage, cut):
        assert (out / n).read_bytes() == (tmp_path / "ref" / n).read_bytes(), n
