"""Preloaded into one Dask worker of a test (`dask worker --preload
kill_point_preload.py`): once the worker's tasks have written at least
KPZ_TEST_KILL_AFTER outputs, the worker tells the test so (a line on the
Unix socket KPZ_TEST_KILL_SOCKET) and waits, in the middle of its task, to
be killed. The test then kills it at that point, not at a moment found by
polling. The task's results are never reported: Dask runs the batch again
on another worker."""

import os
import socket
import time

import kpz.distributed._task as task

_run_batch = task.run_batch
_written = 0


def run_batch(items, *args, **kwargs):
    global _written
    results = _run_batch(items, *args, **kwargs)
    _written += sum(1 for r in results if r.status == 0)
    if _written >= int(os.environ["KPZ_TEST_KILL_AFTER"]):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as s:
            s.connect(os.environ["KPZ_TEST_KILL_SOCKET"])
            s.sendall(b"%d %d\n" % (os.getpid(), _written))
        time.sleep(300)  # killed here; the test's own bound is shorter
    return results


def dask_setup(worker):
    # The client sends the task as a reference to kpz.distributed._task.run_batch,
    # which this worker resolves to the function above.
    task.run_batch = run_batch
