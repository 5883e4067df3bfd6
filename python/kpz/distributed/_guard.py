"""The refusal to start a LocalCluster from the top level of a script
without `if __name__ == "__main__":` (Dask's worker processes run the main
module again as they start)."""

import sys
from typing import Any, Optional, Tuple


def _is_main_guard(test: Any) -> bool:
    """True for the test of `if __name__ == "__main__":` (either order, also
    as part of a larger test: `if __name__ == "__main__" and args:`)."""
    import ast

    for node in ast.walk(test):
        if isinstance(node, ast.Compare) and len(node.ops) == 1 and \
                isinstance(node.ops[0], ast.Eq):
            sides = [node.left, node.comparators[0]]
            names = [s.id for s in sides if isinstance(s, ast.Name)]
            texts = [s.value for s in sides if isinstance(s, ast.Constant)]
            if names == ["__name__"] and texts == ["__main__"]:
                return True
    return False


def _unguarded_line() -> Optional[Tuple[str, int]]:
    """(file, line) of the main script's top-level statement that led to
    this call, when that statement is not under `if __name__ ==
    "__main__":`; else None (a guarded call, an interactive session or
    `python -c`)."""
    import ast
    import inspect

    main = sys.modules.get("__main__")
    path = getattr(main, "__file__", None)
    if not path:
        return None
    frame = inspect.currentframe()
    while frame is not None and not (frame.f_globals is vars(main) and
                                     frame.f_code.co_name == "<module>"):
        frame = frame.f_back
    if frame is None:
        return None
    line = frame.f_lineno
    try:
        with open(path, "rb") as f:
            tree = ast.parse(f.read(), path)
    except (OSError, SyntaxError, ValueError):  # the script's source cannot be had
        return None
    for node in ast.walk(tree):
        if isinstance(node, ast.If) and _is_main_guard(node.test) and \
                node.body[0].lineno <= line <= (node.body[-1].end_lineno or line):
            return None
    return path, line


def refuse_recursive_start() -> None:
    """Raises, in words, rather than start a LocalCluster from the top level
    of a script that lacks `if __name__ == "__main__":`: Dask starts its
    worker processes by running the main module again ("spawn"), so each
    worker would start a cluster of its own, and so on without end. Checked
    in the script's own process (its source read), and in a worker process
    that imports the main module again (the module __mp_main__, in a process
    not named "MainProcess"), in case the first check could not tell."""
    import multiprocessing

    guard = 'put the calls under \'if __name__ == "__main__":\''
    unguarded = _unguarded_line()
    if unguarded is not None:
        raise RuntimeError(
            "kpz.distributed: %s, line %d: extract() starts a local cluster, whose worker "
            "processes run the main module again, from the top level of the script: %s"
            % (unguarded[0], unguarded[1], guard))
    main = sys.modules.get("__mp_main__")
    if main is not None and multiprocessing.current_process().name != "MainProcess":
        raise RuntimeError(
            "kpz.distributed: extract() was called while a worker process of the local "
            "cluster was importing the main module %s again: %s"
            % (getattr(main, "__file__", None) or "", guard))
