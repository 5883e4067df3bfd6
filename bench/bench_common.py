"""What the Python benchmark scripts of bench/ share: the corpus manifest
(written by kpz_bench_run corpus, bench/BenchCorpus) and the geometric mean
of paired ratios."""

import math


def geomean(values):
    """The geometric mean of the positive `values`; NaN when there are none."""
    values = [v for v in values if v > 0]
    return math.exp(sum(math.log(v) for v in values) / len(values)) if values else float("nan")


def load_manifest(path):
    """The corpus's files: dicts with offset, size (the preview's), file_size and path."""
    files = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            parts = line.rstrip("\n").split("\t")
            if len(parts) >= 6:
                files.append({"offset": int(parts[0]), "size": int(parts[1]),
                              "file_size": int(parts[2]), "path": parts[5]})
    return files
