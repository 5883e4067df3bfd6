"""What a run of kpz.distributed gives: one Result per input, the Summary of
them all, and RunFailed for a run that cannot start (an output that cannot
be made, a cluster that cannot be reached or whose workers cannot work)."""

from typing import Optional

from kpz._kpz import kit

# The summary's remark for an output that was present under its name but was
# not a whole JPEG, and was written again (--skip-existing): the kit's words.
REWRITTEN_NOTE = kit.REWRITTEN_NOTE
# The summary's remark for an output already present and whole.
SKIPPED_NOTE = kit.SKIPPED_NOTE


class Result:
    """What became of one input: `status` 0 done, else kpz's exit status
    (kit.ExitStatus: 1 input, 2 usage, 3 output); `out` the tool's line for
    standard output ("wrote NAME (N bytes)"), `err` its line for standard
    error, `reason` the failure's words for the summary, `note` a remark
    about a file done, counted by the summary ("re-encoded at quality 95:
    ..."), `rewritten` an output present but not whole that was written
    again (--skip-existing). The lines show names as kpz shows them
    (kit.shown_name); `source` and `output` are the names themselves."""

    __slots__ = ("index", "source", "output", "status", "out", "err", "reason", "note",
                 "rewritten")

    def __init__(self, index: int, source: str, output: str, status: int = 0, out: str = "",
                 err: str = "", reason: str = "", note: str = "",
                 rewritten: bool = False) -> None:
        self.index = index
        self.source = source
        self.output = output
        self.status = status
        self.out = out
        self.err = err
        self.reason = reason
        self.note = note
        self.rewritten = rewritten

    def fail(self, status: "kit.ExitStatus", file: str, words: str,
             reason: Optional[str] = None) -> "Result":
        """Marks the input failed: 'kpz: FILE: words' on standard error."""
        self.status = int(status)
        self.err = "kpz: %s: %s\n" % (kit.shown_name(file), words)
        self.reason = words if reason is None else reason
        return self

    def __repr__(self) -> str:
        return "Result(%r, status=%d)" % (self.source, self.status)


class Summary:
    """A run's end: counts and the tool's summary lines (render()). It keeps
    the counts and the tallies of reasons and notes, as kpz's summary does,
    never the Results themselves (a run of millions of files would hold them
    all): extract()'s on_result gets each Result as it comes."""

    def __init__(self, noun: str) -> None:
        self._summary = kit.Summary()
        self._noun = noun

    def _add(self, r: Result) -> None:
        self._summary.add(r.status, r.reason)
        if r.status == 0:
            self._summary.add_note(self._noun, r.note)  # an empty note is not counted
            if r.rewritten:
                self._summary.add_note(self._noun, REWRITTEN_NOTE)

    @property
    def files(self) -> int:
        return self._summary.files

    @property
    def done(self) -> int:
        return self._summary.done

    @property
    def failed(self) -> int:
        return self._summary.failed

    @property
    def exit_status(self) -> int:
        """0 when nothing failed, else kpz's highest exit status among the files."""
        return self._summary.exit_status

    def render(self) -> str:
        """The summary's lines as kpz prints them on standard error."""
        return self._summary.render()


class RunFailed(Exception):
    """A run that cannot start or go on, told in one line as kpz tells it:
    str(e) is 'kpz: WHERE: WORDS' (or 'kpz: WORDS' when the words name the
    place themselves), `status` kpz's exit status (kit.ExitStatus): USAGE for
    an output URL or scheduler address that is not one, OUTPUT for an output
    that cannot be made or reached, INPUT for a cluster that cannot be reached
    or whose workers cannot work."""

    def __init__(self, status: "kit.ExitStatus", where: Optional[str], words: str) -> None:
        self.status = status
        self.where = where
        self.words = words
        line = words if where is None else "%s: %s" % (kit.shown_name(where), words)
        super().__init__("kpz: " + line)
