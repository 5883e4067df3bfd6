"""kpz.distributed's client stays small however many inputs there are: the
scheduler never holds more tasks than the window, the client's memory does
not grow with the number of inputs, directories are walked as the run goes,
and the rule for inputs sharing an output name holds across batches. A
scheduler and two workers started with Debian's commands on 127.0.0.1."""

import os
import shutil
import subprocess
import sys
from pathlib import Path

import pytest

import kpz.distributed
from kpz.distributed._inputs import iter_sources
from distributed_support import DaskCluster, python_env, run_measured, same_tree

THREADS = 2  # the cluster's: two workers of one thread each


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    c = DaskCluster(tmp_path_factory.mktemp("dask"), THREADS, python_env())
    yield c
    c.close()


def links(fixtures, root: Path, count: int, per_folder: int = 1000) -> Path:
    """`count` hard links of the 64 valid test files under distinct names, in
    folders of `per_folder` (as a camera fills its folders): the disk holds
    the 64 files once."""
    many = fixtures["many"]
    for i in range(count):
        folder = root / ("%03d" % (i // per_folder))
        if i % per_folder == 0:
            folder.mkdir(parents=True)
        os.link(many[i % len(many)], folder / ("IMG_%07d.kpz" % i))
    return root


def test_the_scheduler_never_holds_more_tasks_than_the_window(cluster, fixtures, tool, tmp_path):
    from distributed import Client

    inputs = links(fixtures, tmp_path / "in", 1200, per_folder=300)
    seen = []
    count = [0]
    with Client(cluster.address, timeout=60) as client:
        def sample(r):
            count[0] += 1
            if count[0] % 20 == 0:
                seen.append(client.run_on_scheduler(lambda dask_scheduler:
                                                    len(dask_scheduler.tasks)))

        summary = kpz.distributed.extract([str(inputs)], str(tmp_path / "out"), kind="thumbnail",
                                          recursive=True, cluster=client, batch_size=4,
                                          on_result=sample)
    assert (summary.files, summary.done, summary.failed) == (1200, 1200, 0)
    assert count[0] == 1200 and len(seen) == 60
    # 300 batches of 4; never more than WINDOW_PER_THREAD per worker thread on
    # the scheduler (all 300 at once before the window).
    window = kpz.distributed.WINDOW_PER_THREAD * THREADS
    assert 0 < max(seen) <= window, seen
    assert not hasattr(summary, "results")  # counts, not every input's Result
    want = subprocess.run([tool, "thumbnail", "-r", str(inputs), "-o", str(tmp_path / "ref")],
                          capture_output=True, timeout=300)
    assert want.returncode == 0
    same_tree(tmp_path / "out", tmp_path / "ref")


def _run_measured(cluster, inputs: Path, out: Path) -> int:
    """The client's peak resident memory in KiB, as a process of its own."""
    status, peak, err = run_measured([sys.executable, "-m", "kpz.distributed", "thumbnail", "-r",
                                      str(inputs), "-o", str(out), "--scheduler",
                                      cluster.address], python_env())
    assert status == 0, err[-2000:]
    return peak


def test_the_clients_memory_does_not_grow_with_the_inputs(cluster, fixtures, tmp_path):
    small = links(fixtures, tmp_path / "small", 2000)
    large = links(fixtures, tmp_path / "large", 20000)
    peak_small = _run_measured(cluster, small, tmp_path / "out-small")
    peak_large = _run_measured(cluster, large, tmp_path / "out-large")
    assert len(os.listdir(tmp_path / "out-large")) == 20000
    # A client that kept each input's Result, or listed every input first,
    # grew by about 1.2 KB per input (21 MiB more for 18,000 more inputs).
    # What may grow: the names written, 12 to 32 bytes each (kit.NameSet).
    growth = (peak_large - peak_small) * 1024
    print("client peak: %d KiB at 2,000 inputs, %d KiB at 20,000" % (peak_small, peak_large))
    assert growth < 18000 * 200, (peak_small, peak_large)


def test_directories_are_walked_as_the_run_goes(tmp_path):
    (tmp_path / "a").mkdir()
    (tmp_path / "a" / "1.kpz").write_bytes(b"x")
    (tmp_path / "b").mkdir()
    walk = iter_sources([str(tmp_path)], recursive=True)
    assert next(walk) == (str(tmp_path / "a" / "1.kpz"), "")
    # Made after the first file was given: a list made first would miss it.
    (tmp_path / "b" / "2.kpz").write_bytes(b"x")
    assert list(walk) == [(str(tmp_path / "b" / "2.kpz"), "")]


def test_inputs_sharing_a_name_in_batches_of_their_own(cluster, fixtures, tool, tmp_path):
    """With one file per task, the inputs of one output name are in
    different batches: the first that is written owns it all the same, and
    the lines are kpz's own."""
    many = fixtures["many"]
    named = []
    for d, src in (("a", fixtures["byname"]["not_tiff"]["path"]), ("b", many[0]), ("c", many[1]),
                   ("d", many[2])):
        (tmp_path / d).mkdir()
        shutil.copy(src, tmp_path / d / "x.kpz")
        named.append(str(tmp_path / d / "x.kpz"))
        shutil.copy(many[3], tmp_path / d / ("other-%s.kpz" % d))
        named.append(str(tmp_path / d / ("other-%s.kpz" % d)))
    got = subprocess.run([sys.executable, "-m", "kpz.distributed", "preview", *named, "-o",
                          str(tmp_path / "out"), "--scheduler", cluster.address,
                          "--batch-size", "1"], capture_output=True, text=True, timeout=120,
                         env=python_env())
    want = subprocess.run([tool, "preview", *named, "-o", str(tmp_path / "ref")],
                          capture_output=True, text=True, timeout=60)
    assert got.returncode == want.returncode == 3
    assert got.stdout == want.stdout.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    assert got.stderr == want.stderr.replace(str(tmp_path / "ref"), str(tmp_path / "out"))
    same_tree(tmp_path / "out", tmp_path / "ref")


def test_a_remote_tree_is_walked_one_directory_at_a_time_in_kpz_order(tmp_path):
    """An fsspec store (the in-memory one) walked with -r: the files of
    kpz -r's order over the same tree on disk, each directory listed when
    it is reached, a subdirectory that cannot be listed told at its place."""
    import fsspec

    fs = fsspec.filesystem("memory")
    root = "/kpz-walk-%d" % os.getpid()
    names = ["b.kpz", "a/z.kpz", "a/b/y.kpz", "a/b.kpz", "a.kpz", "c/notes.txt", "d/e/f/x.KPZ"]
    try:
        for n in names:
            fs.pipe_file("%s/%s" % (root, n), b"x")
            local = tmp_path / n
            local.parent.mkdir(parents=True, exist_ok=True)
            local.write_bytes(b"x")
        listed = []
        real_ls = fs.ls

        def ls(path, detail=True, **kw):
            listed.append(path)
            return real_ls(path, detail=detail, **kw)

        fs.ls = ls
        try:
            walk = iter_sources(["memory://%s/" % root], recursive=True)
            first = next(walk)
            assert len(listed) <= 3  # the root, a/, a/b/: not the whole tree
            got = [first] + list(walk)
        finally:
            del fs.ls
        want = [(p[len(str(tmp_path)):], e) for p, e in
                iter_sources([str(tmp_path)], recursive=True)]
        assert [(u[len("memory://" + root):], e) for u, e in got] == want
        assert all(e == "" for _, e in got)
    finally:
        fs.rm(root, recursive=True)


def test_a_remote_tree_without_files_fails_in_words(tmp_path):
    import fsspec

    fs = fsspec.filesystem("memory")
    root = "/kpz-walk-empty-%d" % os.getpid()
    fs.pipe_file(root + "/sub/notes.txt", b"x")
    try:
        url = "memory://%s/" % root
        assert list(iter_sources([url], recursive=True)) == [
            (url, "the directory holds no file ending in .kpz")]
    finally:
        fs.rm(root, recursive=True)


def test_what_an_ended_task_gave_is_read_from_its_value_not_its_state():
    """A task's future may be computed again after it ended (its worker died
    holding the result) and show another state by the time the client looks:
    the outcome is read from what came with it, and only a value of no known
    kind is asked of the future again."""
    from kpz.distributed._batches import task_outcome

    class Future:
        def __init__(self, result=None, error=None):
            self.asked = 0
            self._result, self._error = result, error

        def result(self):
            self.asked += 1
            if self._error is not None:
                raise self._error
            return self._result

    results = [object()]
    f = Future(error=AssertionError("not to be asked"))
    assert task_outcome(f, results) == (results, None) and f.asked == 0
    boom = ValueError("boom")
    assert task_outcome(f, (ValueError, boom, None)) == (None, boom) and f.asked == 0
    cancelled = RuntimeError("cancelled")
    assert task_outcome(f, cancelled) == (None, cancelled) and f.asked == 0
    again = Future(result=results)
    assert task_outcome(again, None) == (results, None) and again.asked == 1
    lost = OSError("lost")
    assert task_outcome(Future(error=lost), None) == (None, lost)
