"""python3 -m kpz.distributed preview|thumbnail [options] SOURCES... -o OUT

The same output names, 'wrote' lines, error lines, summary, progress bar and
exit statuses as `kpz preview`/`kpz thumbnail` with several files, the work
done on a Dask cluster (--scheduler ADDRESS), or on a LocalCluster started on
this machine when no address is given.
"""

import argparse
import sys
from typing import List, Optional

from kpz import _cli, distributed
from kpz._kpz import kit

EPILOG = """\
SOURCES are files, directories (their files ending in .kpz, in any case;
--ext EXT[,EXT...] chooses others, '*' takes all; -r enters subdirectories),
globs, s3://bucket/key, s3://bucket/prefix/ and s3://bucket/prefix/*.kpz
(listed a page of 1,000 keys at a time; -r: every key under the prefix),
or fsspec URLs (http(s)://host/dir/x.kpz, http://host/dir/*.kpz, ... where
fsspec's back end for them is installed). A glob's matches are taken as
named, whatever --ext says ('dir/*.xyz'). A path
must name the same file on every worker. A remote file is read with two
range reads: its first 64 KiB, then the picture's own bytes.

OUT is a directory (made when missing), local, s3://bucket/prefix/ (one
PUT per output, Content-Type image/jpeg) or an fsspec URL; it receives
x.preview.jpg (preview) or x.thumb.jpg (thumbnail) for every input x.kpz
(a URL: the last segment of its path as written, never decoded).
When several inputs would give the same name, the first of them in input
order that is written owns it; a later one fails ('already written by').
An existing file of that name is replaced, unless --skip-existing is given:
then inputs whose output is already in OUT, whole, are not read again (a run
that was stopped can be resumed so). Whole: a regular file (links followed)
that begins with a JPEG's start marker (FF D8 FF) and ends with its end
marker (FF D9); an empty, cut or foreign file, a folder or a dangling link
under the name is written again, and the summary counts those. Every output is written whole or not at all:
locally a temporary file renamed when complete; on an object store one PUT;
elsewhere a temporary name moved into place by the store's own move.

After writing a file the command prints 'wrote <name> (<n> bytes)' on
standard output, in input order; errors are one line on standard error,
'kpz: <file>: <what went wrong>'; with more than one file the run ends with
kpz's summary on standard error. A progress bar is shown on standard error
when it is a terminal and the run is long (over 50 files or over 1 s):
files done of all (local files named counted at once, local directories and
globs by a walk ahead of the work; with a remote source, the number found
so far, '+'), the rate and the time left.

Without --scheduler a LocalCluster of --workers processes (default: the
number of processors) is started on 127.0.0.1 (every server of it listens
there only) and stopped at the end. The workers must be able to import the
kpz package (PYTHONPATH or installed): workers that cannot, or that do not
start within --start-timeout seconds, are told in one line, exit status 1.

Exit status: 0 all done; 1 a file cannot be read, is not a KPZ raw file,
holds no such picture, or the picture is cut off; 2 wrong usage (also an
OUT URL of no known kind, a scheduler address that is not one); 3 an output
cannot be written (also OUT that cannot be made, or whose file system is
not installed). The highest applies. A cluster that cannot be reached or
started: one line saying so, exit status 1. A file whose reading kills the
workers (as often as Dask allows) fails in words; the others are done.
"""


def main(argv: Optional[List[str]] = None) -> int:
    parser = argparse.ArgumentParser(
        prog="python3 -m kpz.distributed",
        description="Write the previews or thumbnails of many KPZ raw files on a Dask cluster.",
        epilog=EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter)
    _cli.add_run_arguments(parser, sources_help="files, directories, globs or fsspec URLs",
                           output_help="output directory, local or an fsspec URL")
    parser.add_argument("--scheduler", metavar="ADDRESS",
                        help="the Dask scheduler (tcp://host:8786); default: a LocalCluster here")
    parser.add_argument("--workers", type=int, metavar="N",
                        help="worker processes of the LocalCluster (default: the number of "
                             "processors); not with --scheduler")
    parser.add_argument("--batch-size", type=int, metavar="N",
                        help="files per task (default: %d, fewer when the run is short)"
                             % distributed.DEFAULT_BATCH_SIZE)
    parser.add_argument("--start-timeout", type=float, default=distributed.START_TIMEOUT,
                        metavar="SECONDS",
                        help="how long to wait for the workers to start, or with --scheduler "
                             "for one to be there (default: %g)" % distributed.START_TIMEOUT)
    _cli.add_remote_arguments(
        parser, "remote inputs and outputs (read two ranges per file, many files at once per "
        "worker)", per_worker=True)
    args = parser.parse_args(argv)
    settings = _cli.settings_of(parser, args)
    if not args.start_timeout > 0:
        parser.error("--start-timeout takes a number of seconds above 0")
    if args.batch_size is not None and args.batch_size < 1:
        parser.error("--batch-size takes a number of files, at least 1")
    if args.workers is not None and (args.workers < 1 or args.scheduler):
        parser.error("--workers takes a number of at least 1, and not with --scheduler")
    extensions = _cli.extensions_of(args)

    where = args.scheduler or "the local cluster"
    lines = _cli.Lines()
    from kpz import _s3

    _s3.prepare_command_line(list(args.sources) + [args.output])
    try:
        summary = distributed.extract(
            args.sources, args.output, kind=args.kind, upright=args.upright,
            cluster=args.scheduler, recursive=args.recursive, extensions=extensions,
            batch_size=args.batch_size, skip_existing=args.skip_existing, sync=args.sync,
            workers=args.workers, start_timeout=args.start_timeout, remote=settings,
            on_result=lines.write,
            progress=sys.stderr)
    except distributed.RunFailed as e:
        sys.stderr.write("%s\n" % e)
        return int(e.status)
    except OSError as e:  # the cluster lost during the run
        sys.stderr.write("kpz: %s: %s\n" % (kit.shown_name(where), e.strerror or e))
        return int(kit.ExitStatus.INPUT)
    return lines.status(_cli.finish(summary, extensions))


if __name__ == "__main__":
    sys.exit(main())
