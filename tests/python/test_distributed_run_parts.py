"""The parts of a run on the client, without a cluster: output names held
by batches (NameHolds) and Results handed on in input order
(ResultsInOrder)."""

from kpz._claims import Claims
from kpz.distributed._in_order import ResultsInOrder
from kpz.distributed._name_holds import OPEN, NameHolds
from kpz.distributed._progress import Progress
from kpz.distributed._results import Result, Summary


def test_inputs_waiting_for_a_held_name_are_refused_when_it_was_written():
    claims = Claims()
    holds = NameHolds(claims)
    assert holds.holder("x") is None
    holds.open("x")
    assert holds.holder("x") == OPEN
    holds.hold(7, [(0, "a/x.kpz", "x"), (1, "a/y.kpz", "y")])
    assert (holds.holder("x"), holds.holder("y")) == (7, 7)
    holds.wait((2, "b/x.kpz", "x"))
    holds.wait((3, "b/y.kpz", "y"))
    holds.wait((4, "c/x.kpz", "x"))
    assert holds.waiting() == 2
    claims.wrote("x", "a/x.kpz")  # batch 7 wrote x; a/y.kpz failed
    refused, reopened = holds.release(7, ["x", "y", "x"])
    assert refused == [(2, "b/x.kpz", "x"), (4, "c/x.kpz", "x")]
    assert reopened == [(3, "b/y.kpz", "y")]
    assert (holds.holder("x"), holds.holder("y")) == (None, OPEN)
    assert holds.waiting() == 0


def test_a_later_batch_does_not_let_go_of_a_name_another_holds():
    holds = NameHolds(Claims())
    holds.hold(1, [(0, "a", "x")])
    holds.hold(2, [(5, "b", "x")])
    assert holds.release(1, ["x"]) == ([], [])
    assert holds.holder("x") == 2


def test_results_are_handed_on_in_input_order():
    seen = []
    results = ResultsInOrder(Summary("preview"), seen.append, Progress(0, None))
    for i in (2, 0, 3):
        results.put(Result(i, "in%d" % i, "out%d" % i))
    results.hand_on(found=4, more=True)
    assert [r.index for r in seen] == [0] and results.delivered == 1
    assert results.waiting() == 2
    results.put(Result(1, "in1", "out1").fail(1, "in1", "cannot read"))
    results.hand_on(found=4, more=False)
    assert [r.index for r in seen] == [0, 1, 2, 3] and results.waiting() == 0
    assert (results.summary.files, results.summary.failed) == (4, 1)
