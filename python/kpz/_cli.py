"""The arguments the package's command lines share.

python3 -m kpz (one machine) and python3 -m kpz.distributed (a Dask cluster)
take the same run: a kind, sources, an output, the same selection and output
flags, and the same settings for remote reads (kpz.remote.Settings) and for
s3:// (kpz._s3). They are declared here once, and the settings made from
them here once, so the two command lines cannot drift apart.
"""

import argparse
import os
from typing import Any, List, Optional

import sys

from kpz import _s3, remote
from kpz._kpz import kit


def add_run_arguments(parser: argparse.ArgumentParser, sources_help: str,
                      output_help: str) -> None:
    """The kind, SOURCES, -o OUT and the flags that choose inputs and shape
    outputs."""
    parser.add_argument("kind", choices=["preview", "thumbnail"],
                        help="the embedded preview, or the thumbnail")
    parser.add_argument("sources", nargs="+", metavar="SOURCES", help=sources_help)
    parser.add_argument("-o", "--output", required=True, metavar="OUT", help=output_help)
    parser.add_argument("-r", "--recursive", action="store_true",
                        help="enter the subdirectories of directories")
    parser.add_argument("--ext", action="append", default=[], metavar="EXT[,EXT...]",
                        help="file name extensions taken from directories (default: .kpz; '*': all)")
    parser.add_argument("--upright", action="store_true",
                        help="write each picture turned the right way up, as kpz --upright")
    parser.add_argument("--skip-existing", action="store_true",
                        help="do not read inputs whose output is already in OUT")
    parser.add_argument("--sync", action="store_true",
                        help="flush each local output to the disk before it is reported written")


def add_remote_arguments(parser: argparse.ArgumentParser, title: str, per_worker: bool) -> None:
    """The settings of remote reads (http(s)://, s3://) and the s3:// flags.
    per_worker: the in-flight limit is each worker's, not the process's."""
    web = parser.add_argument_group(title)
    web.add_argument("--max-in-flight", type=int, metavar="N",
                     help="files read at once%s (default: %d)"
                          % (" per worker" if per_worker else "", remote.Settings.max_in_flight))
    web.add_argument("--tries", type=int, metavar="N",
                     help="attempts per request before a transient failure (HTTP 429, 5xx, "
                          "SlowDown, a reset, a timeout) is final (default: %d)"
                          % remote.Settings.tries)
    web.add_argument("--connect-timeout", type=float, metavar="SECONDS",
                     help="to connect (default: %g)" % remote.Settings.connect_timeout)
    web.add_argument("--read-timeout", type=float, metavar="SECONDS",
                     help="to wait for any bytes of an answer (default: %g)"
                          % remote.Settings.read_timeout)
    web.add_argument("--file-timeout", type=float, metavar="SECONDS",
                     help="the most one file may take in all, its retries included; then it "
                          "fails in words (default: %g)" % remote.Settings.file_timeout)
    web.add_argument("--ca-file", metavar="PEM",
                     help="the CAs to trust for https://, instead of the system's")
    _s3.add_arguments(parser)


def settings_of(parser: argparse.ArgumentParser, args: Any) -> remote.Settings:
    """kpz.remote.Settings from the flags given (the others keep their
    defaults); a value out of range is a usage error, in the flag's name."""
    given = {name: getattr(args, name) for name in
             ("max_in_flight", "tries", "connect_timeout", "read_timeout", "file_timeout",
              "ca_file")
             if getattr(args, name) is not None}
    try:
        return remote.Settings(s3=_s3.options_of(args), **given)
    except ValueError as e:  # its words: "kpz: tries is a whole number of at least 1, not 0"
        parser.error(str(e).replace("kpz: ", "--", 1).replace("_", "-"))
        raise  # parser.error exits; for the type checker


def extensions_of(args: Any) -> List[str]:
    """--ext given once or more, each a comma-separated list."""
    return [e for value in args.ext for e in value.split(",")]


class Lines:
    """Each file's lines as kpz writes them: its 'wrote' line on standard
    output, its error line on standard error, each flushed at once. When
    standard output cannot be written (a pipe closed by its reader, a full
    disk), the rest of it is dropped and the run's end says so once, in
    kpz's words, with kpz's status for a failed output (status())."""

    def __init__(self) -> None:
        self.lost: Optional[str] = None

    def write(self, r: Any) -> None:
        if r.out and self.lost is None:
            try:
                sys.stdout.write(r.out)
                sys.stdout.flush()
            except OSError as e:
                self._lose(e)
        if r.err:
            sys.stderr.write(r.err)
            sys.stderr.flush()

    def _lose(self, e: OSError) -> None:
        self.lost = e.strerror or str(e)
        # What is still buffered goes nowhere, so that no later flush (the
        # interpreter's at its end) fails again.
        try:
            null = os.open(os.devnull, os.O_WRONLY)
            try:
                os.dup2(null, sys.stdout.fileno())
            finally:
                os.close(null)
        except (OSError, ValueError):
            pass

    def status(self, status: int) -> int:
        """The run's exit status, past a lost standard output."""
        if self.lost is None:
            return status
        sys.stderr.write("kpz: cannot write to standard output: %s\n" % self.lost)
        return max(status, int(kit.ExitStatus.OUTPUT))


def finish(summary: Any, extensions: List[str]) -> int:
    """The end of a run as kpz ends it: no input found is told (status 1);
    with more than one file the summary goes to standard error; the status
    is the highest of the files'."""
    if summary.files == 0:
        sys.stderr.write("kpz: %s\n" % kit.no_files_words(extensions))
        return int(kit.ExitStatus.INPUT)
    if summary.files > 1:
        sys.stderr.write(summary.render())
    return summary.exit_status
