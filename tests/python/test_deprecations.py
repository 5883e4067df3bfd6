"""Names of an earlier release that were renamed keep working, with a
DeprecationWarning naming the new one (docs/COMPATIBILITY.md).

kpz 1.0.0's kpz.distributed.extract(client=) (a distributed.Client) and
extract(scheduler=) (an address) are cluster= since 1.1.0."""

import inspect
import shutil
import warnings

import pytest

import kpz.distributed
from kpz._deprecation import renamed_keywords


def _inputs(sample, tmp_path):
    where = tmp_path / "in"
    where.mkdir()
    shutil.copyfile(sample, where / "a.kpz")
    return where


def test_extract_client_runs_as_in_1_0_0_with_a_warning_naming_cluster(sample, tmp_path):
    distributed = pytest.importorskip("distributed")
    inputs = _inputs(sample, tmp_path)
    # A cluster in this process (threads, in-process transport: no port).
    with distributed.Client(processes=False, n_workers=1, threads_per_worker=1,
                            dashboard_address=None) as client:
        with pytest.warns(DeprecationWarning) as caught:
            summary = kpz.distributed.extract([str(inputs)], str(tmp_path / "out"), client=client)
    assert (summary.done, summary.failed) == (1, 0)
    assert (tmp_path / "out" / "a.preview.jpg").read_bytes() == kpz.preview(sample)
    ours = [w for w in caught if w.category is DeprecationWarning and "extract()" in str(w.message)]
    assert [str(w.message) for w in ours] == [
        "extract(): client= is deprecated since kpz 1.1.0 and will be removed in kpz 2.0.0; use "
        "cluster= (it takes the same values)"]
    assert ours[0].filename == __file__  # the warning points at the caller's line


def test_extract_scheduler_is_taken_as_cluster_with_a_warning(sample, tmp_path):
    inputs = _inputs(sample, tmp_path)
    with pytest.warns(DeprecationWarning, match=r"scheduler= is deprecated .* use cluster="):
        with pytest.raises(kpz.distributed.RunFailed) as failed:
            kpz.distributed.extract([str(inputs)], str(tmp_path / "out"), scheduler="garbage")
    # The same line and status as cluster="garbage" gives.
    with pytest.raises(kpz.distributed.RunFailed) as wanted:
        kpz.distributed.extract([str(inputs)], str(tmp_path / "out"), cluster="garbage")
    assert (str(failed.value), failed.value.status) == (str(wanted.value), wanted.value.status)
    assert str(failed.value).startswith("kpz: garbage: not a scheduler's address")


@pytest.mark.parametrize("old", ["client", "scheduler"])
def test_extract_old_and_new_name_together_is_a_type_error_in_words(sample, tmp_path, old):
    inputs = _inputs(sample, tmp_path)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        with pytest.raises(TypeError) as e:
            kpz.distributed.extract([str(inputs)], str(tmp_path / "out"),
                                    cluster="tcp://127.0.0.1:1", **{old: "tcp://127.0.0.1:2"})
    assert str(e.value) == (f"extract(): {old}= and cluster= were both given; {old}= is the "
                            f"deprecated name of cluster=: give cluster= only")
    assert not (tmp_path / "out").exists()  # refused before anything was made


def test_extract_signature_shows_only_the_current_names():
    params = inspect.signature(kpz.distributed.extract).parameters
    assert "cluster" in params and "client" not in params and "scheduler" not in params
    assert "client=" in kpz.distributed.extract.__doc__


def test_renamed_keywords_first_old_name_wins_and_none_is_not_a_value():
    @renamed_keywords(since="9.1.0", removed_in="10.0.0", a="x", b="x")
    def f(*, x=None):
        return x

    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        assert f(a=1, b=2) == 1          # as the release before the rename did
        assert f(a=None, x=3) == 3       # an old name given as None is no conflict
        assert f(x=4) == 4
    assert len(caught) == 3 and all(w.category is DeprecationWarning for w in caught)
