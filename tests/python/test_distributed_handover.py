"""A worker's task and its reads of the web: the pictures read on the
worker's event loop are handed to the task's thread each once, whole, and a
task that stops taking them leaves no read waiting on the loop."""

from pathlib import Path

from remote_support import FaultyServer

from kpz.distributed import _pool, _task
from kpz.remote import Settings


def test_each_picture_read_is_handed_to_the_task_once_and_whole(fixtures):
    paths = fixtures["many"][:12]
    files = {"/f%02d.kpz" % i: Path(p).read_bytes() for i, p in enumerate(paths)}
    server = FaultyServer(files)
    try:
        settings = Settings(max_in_flight=3)
        items = [(10 + i, server.url(name), "n%d" % i) for i, name in enumerate(sorted(files))]
        got = list(_task._from_web(items, "preview", False, settings))
        assert sorted(index for index, _ in got) == [index for index, _, _ in items]
        for index, result in got:
            assert result.ok, result.words
            want, _, why = _task._picture(str(paths[index - 10]), "preview", False)
            assert not why and result.data == want
        assert all(server.requests["/f%02d.kpz" % i] == 2 for i in range(len(paths)))
    finally:
        server.close()


def test_a_task_that_stops_taking_pictures_leaves_no_read_waiting(fixtures):
    paths = fixtures["many"][:12]
    files = {"/f%02d.kpz" % i: Path(p).read_bytes() for i, p in enumerate(paths)}
    server = FaultyServer(files)
    try:
        settings = Settings(max_in_flight=2)
        items = [(i, server.url(name), "n%d" % i) for i, name in enumerate(sorted(files))]
        taking = _task._from_web(items, "preview", False, settings)
        next(taking)
        taking.close()  # the reads past the places handed over are cancelled

        async def reads_left(reader):
            import asyncio

            me = asyncio.current_task()
            left = [t for t in asyncio.all_tasks() if t is not me and not t.done()]
            for _ in range(100):  # cancellation runs in a few turns of the loop
                if not left:
                    break
                await asyncio.sleep(0)
                left = [t for t in left if not t.done()]
            return len(left)

        assert _pool.run(settings, reads_left) == 0
        # The worker's pool serves the task after it.
        again = dict(_task._from_web(items[:3], "preview", False, settings))
        assert sorted(again) == [0, 1, 2] and all(r.ok for r in again.values())
    finally:
        server.close()
