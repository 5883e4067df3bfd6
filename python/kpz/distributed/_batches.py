"""The inputs of a run cut into batches, one task each, and what a task
gave back read as Results."""

from typing import Any, Dict, List, Optional, Tuple

from kpz._kpz import kit

from ._outputs import Output
from ._results import Result

# Files per task. Measured (docs/PERFORMANCE.md, "Bulk extraction over
# Dask"): the scheduler's cost per task is about a millisecond, a preview
# costs well under one; from a few dozen files per task on, that cost
# is a few per cent of the work. Smaller batches are used when the run is
# too short to give every worker thread several tasks.
DEFAULT_BATCH_SIZE = 64

Job = Tuple[int, str, str]  # (index of the input, source, output name)


def cut_into_batches(jobs: List[Job], size: int) -> List[List[Job]]:
    """Cuts jobs into batches of about `size`, inputs sharing an output name
    kept together in input order."""
    groups: Dict[str, List[Job]] = {}
    for job in jobs:
        groups.setdefault(job[2], []).append(job)  # dicts keep the first input's order
    batches: List[List[Job]] = []
    current: List[Job] = []
    for group in groups.values():
        current.extend(group)
        if len(current) >= size:
            batches.append(current)
            current = []
    if current:
        batches.append(current)
    return batches


# The words for a file whose own task killed its workers as often as Dask
# allows (distributed.scheduler.allowed-failures).
KILLED_WORDS = ("the workers reading it died, as often as Dask allows "
           "(distributed.scheduler.allowed-failures); not written")


def holds_several_names(batch: List[Job]) -> bool:
    """True when `batch` holds inputs of more than one output name."""
    return len({name for _, _, name in batch}) > 1


def failed_batch_results(batch: List[Job], out: Output, exc: BaseException) -> List[Result]:
    """The Results of a batch whose task failed as a whole (a worker that
    cannot import kpz, or an error of the task's own): each input fails in
    words."""
    if isinstance(exc, ImportError):
        words = "the worker cannot import the kpz package (%s)" % exc
    else:
        # The error's own text cut short: it may carry anything.
        text = str(exc)
        words = "the worker's task failed: %s: %s" % (
            type(exc).__name__, text if len(text) <= 200 else text[:200] + "...")
    return [Result(i, source, out.shown(name)).fail(kit.ExitStatus.INPUT, source, words)
            for i, source, name in batch]


def task_outcome(future: Any, value: Any) -> Tuple[Any, Optional[BaseException]]:
    """(the task's Results, None) or (None, why it failed), from what
    as_completed gave with it: the task's return value (a list), the
    exception of a task that failed (as Dask gives it, (type, exception,
    traceback)), or CancelledError. Anything else (a task whose result was
    lost with its worker as it ended, and is being computed again) is asked
    of the future itself, which waits for Dask's second run."""
    if isinstance(value, list):
        return value, None
    if isinstance(value, tuple) and len(value) == 3 and isinstance(value[1], BaseException):
        return None, value[1]
    if isinstance(value, BaseException):
        return None, value
    try:
        return future.result(), None
    except Exception as e:  # noqa: BLE001 - whatever Dask raises is the batch's failure
        return None, e
