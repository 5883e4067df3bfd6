"""python3 -m kpz preview|thumbnail [options] SOURCES... -o OUT

kpz's command line for many files, local or remote, on one machine: the
same output names, 'wrote' lines, error lines, summary, progress bar and
exit statuses as `kpz preview`/`kpz thumbnail` with several files, in one
process, remote files read over kpz.remote's connection pool (two ranged
GETs each, many at once). No cluster: for that, python3 -m kpz.distributed.

The run is kpz.distributed's without Dask: its input expansion, its output
directory and the batch a worker runs (run_batch). Up to BATCHES_AT_ONCE
batches run at once, each in a thread of its own, their remote files
sharing one pool of max_in_flight reads: while the oldest batch waits for
its slowest file, the later ones keep the pool full. Lines are told in
input order, a batch's once every earlier batch's are.
"""

import atexit
import os
import sys

# The status python3 -m kpz ends with, once main() has returned or exited.
_EXIT_STATUS: list = []


def _end_without_teardown() -> None:
    """Ends python3 -m kpz with its status once the interpreter has done
    what it does for the command at its end (threads other than daemons
    waited for, the atexit handlers registered after this one run, and
    logging's, registered before it, called here), less the teardown of
    every module it loaded: with aiohttp and botocore loaded, that costs
    0.06 to 0.08 s of CPU and about a quarter of a second of a short run on
    a busy machine (docs/PERFORMANCE.md). The standard streams are flushed
    first; when that fails the status is 120, as the interpreter's would
    be. Does nothing when the command ended otherwise (an exception, ^C
    before main() ran): the interpreter then ends as ever."""
    if not _EXIT_STATUS:
        return
    status = _EXIT_STATUS[0]
    if "logging" in sys.modules:
        sys.modules["logging"].shutdown()
    for stream in (sys.stdout, sys.stderr):
        try:
            if stream is not None:
                stream.flush()
        except (OSError, ValueError):
            status = 120
    os._exit(status)


if __name__ == "__main__":
    # Before any other registration from here on, so run after them.
    atexit.register(_end_without_teardown)

import argparse  # noqa: E402 - after the handler above is registered
import threading  # noqa: E402
from collections import Counter, deque  # noqa: E402
from typing import Dict, List, Optional, Tuple  # noqa: E402

from kpz import _cli  # noqa: E402
from kpz._kpz import kit  # noqa: E402

EPILOG = """\
SOURCES are files, directories (their files ending in .kpz, in any case;
--ext EXT[,EXT...] chooses others, '*' takes all; -r enters subdirectories),
globs, http(s):// URLs, or s3://bucket/key, s3://bucket/prefix/ and
s3://bucket/prefix/*.kpz (listed a page of 1,000 keys at a time as the run
goes; -r: every key under the prefix, else those directly in it). A glob's
matches are taken as named, whatever --ext says ('dir/*.xyz'). A remote
file is read with two ranged GETs: its first 64 KiB, then the picture's own
bytes; --max-in-flight files at once.

OUT is a directory (made when missing), local, or s3://bucket/prefix/ (one
PUT per output, Content-Type image/jpeg: the store makes it whole or
absent); it receives x.preview.jpg (preview) or x.thumb.jpg (thumbnail) for
every input x.kpz. When several inputs would give the same name, the first
of them in input order that is written owns it; a later one fails
('already written by'). An existing output is replaced, unless
--skip-existing is given: then inputs whose output is already in OUT, whole,
are not read again (locally: a regular file that begins and ends as a JPEG
does; on s3://: a listed object that is not empty, as a PUT is whole or
absent).

s3:// requests are signed (AWS Signature Version 4) with the credentials
the AWS command line would use: AWS_ACCESS_KEY_ID and AWS_SECRET_ACCESS_KEY,
AWS_PROFILE with ~/.aws/credentials and ~/.aws/config, a role. The store is
--endpoint-url, else AWS_ENDPOINT_URL_S3, AWS_ENDPOINT_URL, the profile's
endpoint_url, else AWS. No credentials found: one line saying where they
were looked for, exit status 1, before any work.

After writing a file the command prints 'wrote <name> (<n> bytes)' on
standard output, in input order; errors are one line on standard error,
'kpz: <file>: <what went wrong>' (the store's errors in its words:
'AccessDenied (HTTP 403): Access Denied'); with more than one file the run
ends with kpz's summary on standard error. A progress bar is shown on
standard error when it is a terminal and the run is long: files done of all
(local files named counted at once, local directories and globs by a walk
ahead of the work; with a remote source, the number found so far, '+'), the
rate and the time left.

Exit status: 0 all done; 1 a file cannot be read, is not a KPZ raw file,
holds no such picture, or the picture is cut off (also no credentials);
2 wrong usage; 3 an output cannot be written. The highest applies.
"""

# Files per batch: several rounds of max_in_flight, so that a batch's cost
# (its thread, its hand-over of results) is spread over many files.
ROUNDS_PER_BATCH = 8

# Batches running at once. A file that is slow to come holds its own batch's
# lines (told in input order) but not the reads of the others: the pool
# stays full until (BATCHES_AT_ONCE - 1) * ROUNDS_PER_BATCH * max_in_flight
# files past it are done.
BATCHES_AT_ONCE = 4


class _Batch(threading.Thread):
    """One batch run in a thread of its own (a daemon: a run stopped with
    Ctrl-C does not wait for its reads)."""

    def __init__(self, work) -> None:
        super().__init__(name="kpz-batch", daemon=True)
        self._work = work
        self.results: list = []
        self.error: Optional[BaseException] = None

    def run(self) -> None:
        try:
            self.results = self._work()
        except BaseException as e:  # noqa: BLE001 - raised again where the batch is told
            self.error = e


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m kpz",
        description="Write the previews or thumbnails of many KPZ raw files, local or remote, "
                    "on this machine.",
        epilog=EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter)
    _cli.add_run_arguments(parser,
                           sources_help="files, directories, globs, http(s):// or s3:// URLs",
                           output_help="output directory, local or s3://bucket/prefix/")
    _cli.add_remote_arguments(parser, "remote inputs and outputs (http(s):// and s3://)",
                              per_worker=False)
    return parser


def main(argv: Optional[List[str]] = None) -> int:
    from kpz._claims import REASON, Claims
    from kpz.distributed import _client, _pool
    from kpz.distributed._inputs import iter_sources
    from kpz.distributed._outputs import KINDS, Output
    from kpz.distributed._progress import Progress
    from kpz.distributed._results import SKIPPED_NOTE, Result, RunFailed, Summary
    from kpz.distributed._task import run_batch

    parser = _parser()
    args = parser.parse_args(argv)
    settings = _cli.settings_of(parser, args)
    extensions = _cli.extensions_of(args)
    suffix, noun = KINDS[args.kind]
    try:
        from kpz import _s3

        _s3.prepare_command_line(list(args.sources) + [args.output])
        output = Output(args.output, settings)
        _pool.use_store(settings, _client._s3_check(list(args.sources) + [args.output],
                                                    settings))
        output.make()
    except RunFailed as e:
        sys.stderr.write("%s\n" % e)
        return int(e.status)

    summary = Summary(noun)
    bar = Progress(0, sys.stderr)
    bar.count_ahead(list(args.sources), args.recursive, extensions)
    size = ROUNDS_PER_BATCH * settings.max_in_flight
    # The first input written owns a name; the latest writers are named, past
    # those "an earlier input".
    claims = Claims(kept=4 * size)
    state = {"found": 0, "delivered": 0}

    lines = _cli.Lines()

    def show(r: Result) -> None:
        bar.clear()
        summary._add(r)
        lines.write(r)
        state["delivered"] += 1

    def taken(index: int, source: str, name: str) -> Result:
        shown = output.shown(name)
        return Result(index, source, shown).fail(kit.ExitStatus.OUTPUT, source,
                                                 claims.refusal(name, shown), REASON)

    # Each input is told in input order: those settled as they are found (an
    # error of their own, an output present) wait behind the batch being
    # filled, whose files are read and written together, and behind the
    # batches still running.
    pending: List[Tuple[int, Optional[Result], Optional[Tuple[int, str, str]]]] = []
    rewritten = set()
    # Batches started and not yet told, oldest first: (thread or None,
    # what to tell, inputs replacing a broken output, output names).
    running: deque = deque()
    names_running: Counter = Counter()  # output names of the running batches

    def start_pending() -> None:
        jobs = [job for _, r, job in pending if job is not None]
        batch = None
        if jobs:
            batch = _Batch(lambda: run_batch(jobs, args.kind, args.upright, args.output,
                                             args.sync, settings))
            batch.start()
        names = {job[0]: job[2] for job in jobs}
        names_running.update(names.values())
        running.append((batch, list(pending), set(rewritten), names))
        pending.clear()
        rewritten.clear()

    def tell_oldest() -> None:
        batch, told, replaced, names = running.popleft()
        got: Dict[int, Result] = {}
        if batch is not None:
            batch.join()
            if batch.error is not None:
                raise batch.error
            got = {r.index: r for r in batch.results}
        names_running.subtract(names.values())
        for name in names.values():
            if names_running[name] <= 0:
                del names_running[name]
        for index, r, job in told:
            if r is None:
                r = got[index]
                r.rewritten = index in replaced
                if r.status == 0 and r.out:
                    claims.wrote(names[index], r.source)
            show(r)
        bar.update(state["delivered"], state["found"], True)

    def tell_done(room: int) -> None:
        """Tells the batches that have ended, oldest first, and waits for
        the oldest while more than `room` are running."""
        while running and (len(running) > room or running[0][0] is None
                           or not running[0][0].is_alive()):
            tell_oldest()

    in_batch: Dict[str, bool] = {}
    try:
        for source, error in iter_sources(list(args.sources), args.recursive, extensions,
                                          settings):
            index = state["found"]
            state["found"] += 1
            if error:
                pending.append((index, Result(index, source, "").fail(
                    kit.ExitStatus.INPUT, source, error), None))
            else:
                name = kit.default_path(source, suffix, True)
                if name in names_running and name not in in_batch:
                    # An earlier input of this name is in a running batch:
                    # whether it was written is known once it is told.
                    in_batch.clear()
                    start_pending()
                    tell_done(0)
                if name in claims:
                    pending.append((index, taken(index, source, name), None))
                elif name in in_batch:
                    pending.append((index, None, (index, source, name)))
                else:
                    state_now = output.state(name) if args.skip_existing else "absent"
                    if state_now == "whole":
                        pending.append((index, Result(index, source, output.shown(name),
                                                      note=SKIPPED_NOTE), None))
                    else:
                        if state_now == "broken":
                            rewritten.add(index)
                        in_batch[name] = True
                        pending.append((index, None, (index, source, name)))
            if len(in_batch) >= size or len(pending) >= 4 * size:
                in_batch.clear()
                start_pending()
                tell_done(BATCHES_AT_ONCE - 1)
        in_batch.clear()
        if pending:
            start_pending()
        tell_done(0)
    except RunFailed as e:
        bar.clear()
        sys.stderr.write("%s\n" % e)
        return int(e.status)
    except KeyboardInterrupt:
        bar.clear()
        return 130
    finally:
        bar.close()  # the count ahead ends with the run
    return lines.status(_cli.finish(summary, extensions))


if __name__ == "__main__":
    try:
        _status = main()
    except SystemExit as e:  # a usage error (argparse), or --help
        _EXIT_STATUS.append(e.code if isinstance(e.code, int) else 0 if e.code is None else 1)
        raise
    _EXIT_STATUS.append(_status)
    sys.exit(_status)
