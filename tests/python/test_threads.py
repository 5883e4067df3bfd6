"""Module functions from many threads at once give what one thread gives, and
memory does not grow over many calls."""

import concurrent.futures
import gc
import os
import random

import kpz


def _rss_kib() -> int:
    with open("/proc/self/statm", encoding="ascii") as f:
        return int(f.read().split()[1]) * os.sysconf("SC_PAGE_SIZE") // 1024


def test_eight_threads_over_many_files_agree_with_one(fixtures):
    paths = fixtures["many"] + [e["path"] for e in fixtures["files"]]
    expected = {}
    for p in paths:
        for upright in (False, True):
            try:
                expected[(p, upright)] = kpz.screennail(p, upright=upright)
            except kpz.KpzError as e:
                expected[(p, upright)] = ("error", type(e).__name__, e.words)
    work = [(p, u) for p in paths for u in (False, True)] * 6
    random.Random(8).shuffle(work)

    def one(item):
        p, upright = item
        sources = [p, open(p, "rb").read()]  # noqa: SIM115
        results = []
        for src in sources:
            try:
                results.append(kpz.screennail(src, upright=upright))
            except kpz.KpzError as e:
                results.append(("error", type(e).__name__, e.words))
        return item, results

    with concurrent.futures.ThreadPoolExecutor(max_workers=8) as pool:
        for item, results in pool.map(one, work):
            for got in results:
                assert got == expected[item], item


def test_info_from_eight_threads(fixtures):
    paths = fixtures["many"]
    expected = {p: kpz.info(p) for p in paths}
    with concurrent.futures.ThreadPoolExecutor(max_workers=8) as pool:
        for p, got in zip(paths * 4, pool.map(kpz.info, paths * 4)):
            assert got == expected[p]


def test_memory_stays_flat_over_ten_thousand_calls(fixtures):
    paths = fixtures["many"]
    data = open(paths[0], "rb").read()  # noqa: SIM115
    bad = open(fixtures["byname"]["not_tiff"]["path"], "rb").read()  # noqa: SIM115

    def calls(n):
        for i in range(n):
            p = paths[i % len(paths)]
            kpz.screennail(p)
            if i % 4 == 0:
                kpz.thumbnail(data, upright=True)
            if i % 8 == 0:
                kpz.info(p)
            if i % 16 == 0:
                try:
                    kpz.screennail(bad)
                except kpz.NotKpzError:
                    pass
                try:
                    kpz.screennail(p + ".missing")
                except FileNotFoundError:
                    pass

    calls(1000)  # warm up: allocator pools, caches
    gc.collect()
    before = _rss_kib()
    calls(10000)
    gc.collect()
    grown = _rss_kib() - before
    # A leak of even 100 bytes per call would show as ~1 MB.
    assert grown < 1024, f"resident memory grew by {grown} KiB over 10,000 calls"
