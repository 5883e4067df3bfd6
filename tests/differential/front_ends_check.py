#!/usr/bin/python3
"""The differential test: the same files through every front end.

Every hostile file the test-data builder writes (kpz_diff_corpus, from
make_corpus.cpp), and what the builder cannot write (a named pipe, a Unix
socket, a directory, a symbolic link loop, a missing path, a device, a file
without read permission), is asked for its preview and its thumbnail by

* Java: the real JVM entry (KpzFrontEndCheck.java), by path and through a
  descriptor this process opened and handed down;
* the kpz tool: ``kpz preview`` / ``kpz thumbnail``, its words on standard
  error and its exit status;
* Python: ``kpz.preview`` / ``kpz.thumbnail``, by path, as a file object and
  as the file's bytes.

Each answer is either the picture (its length and SHA-256) or a failure: a
kind and words. The kinds are read through one table, KINDS below (a kind ->
Java's KpzException kind, kpz's exit status, Python's exception class). A
row agrees when every front end gave the same picture, or failed with the
same words and the same kind, and that kind is the one the words name where
they name one ("not a KPZ raw file ..." is NOT_KPZ). On any disagreement the
whole table of rows that disagree is printed, each with every front end's
answer and every reason, and the check fails.

Not applicable, and so left blank with the reason: a descriptor or a file
object for what cannot be opened (a missing path, a link loop, no
permission); a file object or bytes for what is not a regular file (open()
of a pipe waits for a writer, of a directory fails, of a device reads its
stream); bytes for a sparse file of hundreds of megabytes;
kpz given a directory, which it takes as a batch of the files in it.
"""

from __future__ import annotations

import argparse
import hashlib
import os
import shutil
import socket
import stat
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from typing import Dict, List, Optional

import kpz

# The one table of failure kinds: kind -> (Java's KpzException.Kind, the kpz
# tool's exit status, the Python exception class's name). "ok" is the picture.
KINDS: Dict[str, tuple] = {
    "ok": ("OK", 0, None),
    "not-kpz": ("NOT_KPZ", 1, "NotKpzError"),
    "damaged": ("DAMAGED", 1, "BadPreviewError"),
    "no-preview": ("NO_PREVIEW", 1, "NoPreviewError"),
    "no-thumbnail": ("NO_THUMBNAIL", 1, "NoThumbnailError"),
    "unreadable": ("UNREADABLE", 1, "OSError"),
}
_BY_JAVA = {java: kind for kind, (java, _status, _cls) in KINDS.items()}
_BY_CLASS = {cls: kind for kind, (_java, _status, cls) in KINDS.items() if cls}

# The columns of the table, in order.
FRONT_ENDS = ("java-path", "java-fd", "kpz", "python-path", "python-file", "python-bytes")

PICTURES = ("preview", "thumbnail")

# Files read whole for Python's bytes form: not the sparse ones of hundreds of MB.
BYTES_AT_MOST = 64 << 20


@dataclass
class Answer:
    """One front end's answer: a picture, a failure, or not applicable."""

    kind: Optional[str] = None  # a key of KINDS; None: none of them
    shown: str = ""  # what the front end gave, as the table shows it
    words: str = ""  # the failure's words
    picture: str = ""  # "<length> <sha-256>" of the picture
    status: Optional[int] = None  # kpz's exit status
    errno: Optional[int] = None  # the system's error number of an unreadable file, 0 for none
    skipped: str = ""  # why not applicable

    def cell(self) -> str:
        if self.skipped:
            return "-- " + self.skipped
        return self.shown


@dataclass
class Row:
    name: str
    picture: str
    answers: Dict[str, Answer] = field(default_factory=dict)
    problems: List[str] = field(default_factory=list)


def kind_named_by(words: str, picture: str) -> Optional[str]:
    """The kind that words name, where they name one."""
    if words.startswith("not a KPZ raw file"):
        return "not-kpz"
    if words in (f"no {picture} stored in this file",
                 f"the {picture} stored in this file is empty (0 bytes)"):
        return "no-" + picture
    return None


def python_kind(exc: BaseException) -> Optional[str]:
    """The kind of a Python exception: its class's, the most derived listed."""
    for cls in type(exc).__mro__:
        if cls.__name__ in _BY_CLASS and (cls is OSError or cls.__module__.startswith("kpz")):
            return _BY_CLASS[cls.__name__]
    return None


def digest(data: bytes) -> str:
    return f"{len(data)} {hashlib.sha256(data).hexdigest()}"


def unescape(text: str) -> str:
    out, i = [], 0
    while i < len(text):
        if text[i] == "\\" and i + 1 < len(text):
            out.append({"t": "\t", "n": "\n", "r": "\r"}.get(text[i + 1], text[i + 1]))
            i += 2
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


# ---- the files ---------------------------------------------------------------


@dataclass
class Input:
    name: str
    path: str
    descriptor: Optional[int] = None  # opened here, handed to the JVM
    why_no_descriptor: str = ""
    regular: bool = False  # a regular file: a file object too
    is_directory: bool = False


def make_inputs(work: str, corpus_writer: str) -> tuple:
    """Writes the corpus and the special files into `work`; returns the
    inputs and the things to close at the end."""
    subprocess.run([corpus_writer, work], check=True)
    with open(os.path.join(work, "corpus.txt"), encoding="utf-8") as listing:
        names = [line.strip() for line in listing if line.strip()]
    inputs = [Input(n[:-len(".kpz")], os.path.join(work, n)) for n in names]
    keep: list = []

    good = os.path.join(work, "le-good.kpz")
    fifo = os.path.join(work, "fifo.kpz")
    os.mkfifo(fifo)
    inputs.append(Input("fifo", fifo))
    sock_path = os.path.join(work, "socket.kpz")
    sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    # Bound by its name in its directory: a socket's whole path may hold at
    # most 107 bytes, and a build tree's path can be longer.
    here = os.getcwd()
    os.chdir(work)
    try:
        sock.bind(os.path.basename(sock_path))
    finally:
        os.chdir(here)
    sock.listen(1)
    keep.append(sock)
    inputs.append(Input("socket", sock_path, descriptor=sock.fileno()))
    directory = os.path.join(work, "directory.kpz")
    os.mkdir(directory)
    inputs.append(Input("directory", directory, is_directory=True))
    loop_a = os.path.join(work, "loop-a.kpz")
    os.symlink("loop-b.kpz", loop_a)
    os.symlink("loop-a.kpz", os.path.join(work, "loop-b.kpz"))
    inputs.append(Input("symlink-loop", loop_a))
    inputs.append(Input("missing", os.path.join(work, "missing.kpz")))
    link = os.path.join(work, "link-to-good.kpz")
    os.symlink("le-good.kpz", link)
    inputs.append(Input("symlink-to-good", link))
    if os.path.exists("/dev/null"):
        inputs.append(Input("device", "/dev/null"))
    if os.geteuid() != 0:
        locked = os.path.join(work, "no-permission.kpz")
        shutil.copyfile(good, locked)
        os.chmod(locked, 0)
        inputs.append(Input("no-permission", locked))
    else:
        print("front_ends_check: the file without read permission is left out: running as "
              "root, every file can be read")

    for item in inputs:
        if item.descriptor is not None:
            continue
        try:
            item.descriptor = os.open(item.path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
            keep.append(item.descriptor)
        except OSError as exc:
            item.why_no_descriptor = f"cannot be opened ({exc.strerror})"
            continue
        item.regular = stat.S_ISREG(os.fstat(item.descriptor).st_mode)
    return inputs, keep


# ---- the front ends ----------------------------------------------------------


def ask_java(args, inputs: List[Input], rows: Dict[tuple, Row]) -> None:
    requests, fds = [], []
    for item in inputs:
        for picture in PICTURES:
            requests.append(f"{item.name}/{picture}/path\t{picture}\tpath\t{item.path}")
            if item.descriptor is not None:
                requests.append(f"{item.name}/{picture}/fd\t{picture}\tfd\t{item.descriptor}")
                fds.append(item.descriptor)
            else:
                rows[(item.name, picture)].answers["java-fd"] = Answer(
                    skipped="no descriptor: " + item.why_no_descriptor)
    done = subprocess.run(
        [args.java, f"-Djava.library.path={args.library_dir}", "-cp", args.classpath,
         "kpztest.KpzFrontEndCheck"],
        input="\n".join(requests) + "\n", capture_output=True, text=True, encoding="utf-8",
        pass_fds=sorted(set(fds)), timeout=120)
    if done.returncode != 0:
        sys.exit(f"front_ends_check: the JVM check failed ({done.returncode}):\n{done.stderr}")
    for line in done.stdout.splitlines():
        ident, rest = line.split("\t", 1)
        name, picture, how = ident.split("/")
        fields = rest.split("\t")
        answer = Answer()
        if fields[0] == "OK":
            answer.kind = "ok"
            answer.picture = f"{fields[1]} {fields[2]}"
            answer.shown = f"OK {fields[1]} bytes"
        else:
            answer.kind = _BY_JAVA.get(fields[0])
            answer.words = unescape(fields[2])
            answer.errno = int(fields[1])
            errno_part = f" errno {fields[1]}" if fields[1] != "0" else ""
            answer.shown = f"{fields[0]}{errno_part}: {answer.words}"
        rows[(name, picture)].answers["java-" + how] = answer


def ask_kpz(args, item: Input, picture: str, out_dir: str) -> Answer:
    if item.is_directory:
        return Answer(skipped="kpz takes a directory as a batch of its files")
    output = os.path.join(out_dir, f"{item.name}.{picture}.jpg")
    # From the file's own directory, by its plain name: kpz shows a name with
    # unusual characters quoted, and the build tree's path may have them.
    where, name = os.path.split(item.path)
    done = subprocess.run([args.kpz, picture, "-q", "-j", "1", name, "-o", output],
                          capture_output=True, timeout=60, cwd=where)
    stderr = done.stderr.decode("utf-8", "replace")
    answer = Answer(status=done.returncode)
    if done.returncode == 0:
        with open(output, "rb") as got:
            answer.picture = digest(got.read())
        answer.kind = "ok"
        answer.shown = f"OK {answer.picture.split()[0]} bytes"
        return answer
    prefix = f"kpz: {name}: "
    lines = stderr.splitlines()
    told = [line[len(prefix):] for line in lines if line.startswith(prefix)]
    answer.words = told[0] if len(told) == 1 else stderr.strip()
    answer.shown = f"exit {done.returncode}: {answer.words}"
    # The exit status names no kind by itself: the row's kind is checked
    # against it (KINDS).
    return answer


def ask_python(item: Input, picture: str, how: str) -> Answer:
    """Python's answer, given the path, a file object or the bytes (`how`)."""
    call = kpz.preview if picture == "preview" else kpz.thumbnail
    if how != "path" and item.why_no_descriptor:
        return Answer(skipped=f"no {how}: {item.why_no_descriptor}")
    if how != "path" and not item.regular:
        return Answer(skipped=f"no {how}: not a regular file")
    if how == "bytes" and os.path.getsize(item.path) > BYTES_AT_MOST:
        return Answer(skipped=f"no bytes: larger than {BYTES_AT_MOST >> 20} MiB (sparse)")
    try:
        if how == "file object":
            with open(item.path, "rb") as stream:
                data = call(stream)
        elif how == "bytes":
            with open(item.path, "rb") as stream:
                data = call(stream.read())
        else:
            data = call(item.path)
    except Exception as exc:  # every failure is an answer to compare
        answer = Answer(kind=python_kind(exc), words=kpz.error_words(exc))
        errno_part = ""
        if isinstance(exc, OSError):
            answer.errno = exc.errno or 0
            if exc.errno:
                errno_part = f" errno {exc.errno}"
        answer.shown = f"{type(exc).__name__}{errno_part}: {answer.words}"
        return answer
    answer = Answer(kind="ok", picture=digest(data))
    answer.shown = f"OK {len(data)} bytes"
    return answer


# ---- the comparison ----------------------------------------------------------


def judge(row: Row) -> None:
    given = {end: a for end, a in row.answers.items() if not a.skipped}
    kinds = {end: a.kind for end, a in given.items() if end != "kpz"}
    for end, kind in kinds.items():
        if kind is None:
            row.problems.append(f"{end}: {given[end].shown.split(':')[0]} is no kind of the table")
    known = {k for k in kinds.values() if k is not None}
    if len(known) > 1:
        row.problems.append("kinds differ: " + ", ".join(
            f"{end} {KINDS[k][0] if k else '?'}" for end, k in kinds.items()))
    kind = next(iter(known)) if len(known) == 1 else None
    if kind is not None and "kpz" in given:
        status = KINDS[kind][1]
        if given["kpz"].status != status:
            row.problems.append(
                f"kpz exits {given['kpz'].status}, the kind {KINDS[kind][0]} says {status}")
    if kind == "ok" or any(a.kind == "ok" or a.status == 0 for a in given.values()):
        pictures = {a.picture for a in given.values()}
        if len(pictures) > 1:
            row.problems.append("pictures differ: " + ", ".join(
                f"{end} {a.picture[:20] or 'none'}" for end, a in given.items()))
        return
    words = {a.words for a in given.values()}
    if len(words) > 1:
        row.problems.append("words differ")
    if kind == "unreadable":
        errnos = {end: a.errno for end, a in given.items() if a.errno is not None}
        if len(set(errnos.values())) > 1:
            row.problems.append("errno differs: " + ", ".join(
                f"{end} {err}" for end, err in errnos.items()))
    for end, a in given.items():
        named = kind_named_by(a.words, row.picture)
        mine = kinds.get(end)
        if named is not None and mine is not None and mine != named:
            row.problems.append(
                f"{end} says {KINDS[mine][0]} where its words say {KINDS[named][0]}")


def print_table(rows: List[Row], title: str) -> None:
    print(title)
    for row in rows:
        print(f"  {row.name} / {row.picture}")
        for end in FRONT_ENDS:
            answer = row.answers.get(end)
            print(f"    {end:<12} {answer.cell() if answer else '(no answer)'}")
        for problem in row.problems:
            print(f"    !! {problem}")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--corpus-writer", required=True)
    parser.add_argument("--kpz", required=True)
    parser.add_argument("--java", required=True)
    parser.add_argument("--classpath", required=True)
    parser.add_argument("--library-dir", required=True)
    parser.add_argument("--work", default=None, help="where the test's own directory is made")
    parser.add_argument("--all", action="store_true", help="print every row, not only disagreements")
    args = parser.parse_args()
    args.kpz = os.path.abspath(args.kpz)  # run from the files' directory

    work = tempfile.mkdtemp(prefix="kpz-differential-", dir=args.work)
    keep: list = []
    try:
        files = os.path.join(work, "files")
        outputs = os.path.join(work, "outputs")
        os.mkdir(outputs)
        inputs, keep = make_inputs(files, args.corpus_writer)
        rows = {(item.name, picture): Row(item.name, picture)
                for item in inputs for picture in PICTURES}
        ask_java(args, inputs, rows)
        for item in inputs:
            for picture in PICTURES:
                row = rows[(item.name, picture)]
                row.answers["kpz"] = ask_kpz(args, item, picture, outputs)
                row.answers["python-path"] = ask_python(item, picture, "path")
                row.answers["python-file"] = ask_python(item, picture, "file object")
                row.answers["python-bytes"] = ask_python(item, picture, "bytes")
                missing = [end for end in FRONT_ENDS if end not in row.answers]
                if missing:
                    row.problems.append("no answer from " + ", ".join(missing))
                judge(row)
        ordered = list(rows.values())
        bad = [row for row in ordered if row.problems]
        if args.all:
            print_table(ordered, f"All {len(ordered)} rows:")
        if bad:
            print_table(bad, f"{len(bad)} of {len(ordered)} rows disagree "
                             f"({len(inputs)} files, {len(PICTURES)} pictures each):")
            print("In short:")
            for row in bad:
                print(f"  {row.name + ' / ' + row.picture:<36} {'; '.join(row.problems)}")
            print(f"{len(bad)} of {len(ordered)} rows disagree")
            return 1
        print(f"{len(ordered)} rows ({len(inputs)} files x {len(PICTURES)} pictures): "
              f"every front end gives the same words and the same kind")
        return 0
    finally:
        for thing in keep:
            if isinstance(thing, int):
                os.close(thing)
            else:
                thing.close()
        locked = os.path.join(work, "files", "no-permission.kpz")
        if os.path.exists(locked):
            os.chmod(locked, 0o600)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
