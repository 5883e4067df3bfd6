"""The differential test's judge fails when it should: every kind of
disagreement between front ends is found and said, and agreement passes.
Run by pytest (CTest differential/judge) on answers made up here."""

import errno
import os
import sys

import pytest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

import front_ends_check as check  # noqa: E402

import kpz  # noqa: E402


def failure(java: str, words: str, cls: str, errno_: int = 0, status: int = 1) -> check.Row:
    row = check.Row("f", "thumbnail")
    row.answers = {
        "java-path": check.Answer(kind=check._BY_JAVA.get(java), shown=java, words=words,
                                  errno=errno_ if java == "UNREADABLE" else None),
        "java-fd": check.Answer(kind=check._BY_JAVA.get(java), shown=java, words=words,
                                errno=errno_ if java == "UNREADABLE" else None),
        "kpz": check.Answer(shown="exit", words=words, status=status),
        "python-path": check.Answer(kind=check._BY_CLASS.get(cls), shown=cls, words=words),
    }
    return row


def judged(row: check.Row) -> list:
    check.judge(row)
    return row.problems


def test_agreement_passes():
    assert judged(failure("NO_THUMBNAIL", "no thumbnail stored in this file",
                          "NoThumbnailError")) == []
    assert judged(failure("NOT_KPZ", "not a KPZ raw file (no TIFF header)", "NotKpzError")) == []
    assert judged(failure("UNREADABLE", "file not found", "OSError", errno.ENOENT)) == []


def test_kinds_that_differ_are_told_with_every_front_end():
    problems = judged(failure("NO_THUMBNAIL", "no thumbnail stored in this file",
                              "NoPreviewError"))
    assert any(p.startswith("kinds differ: java-path NO_THUMBNAIL, java-fd NO_THUMBNAIL, "
                            "python-path NO_PREVIEW") for p in problems), problems
    assert "python-path says NO_PREVIEW where its words say NO_THUMBNAIL" in problems


def test_a_kind_other_than_the_words_name_is_told_even_where_all_agree():
    row = failure("DAMAGED", "not a KPZ raw file (IFD0 runs past the end of the file)",
                  "BadPreviewError")
    problems = judged(row)
    assert "java-path says DAMAGED where its words say NOT_KPZ" in problems
    assert not any(p.startswith("kinds differ") for p in problems)


def test_words_that_differ_are_told():
    row = failure("UNREADABLE", "file not found", "OSError", errno.ENOENT)
    row.answers["kpz"].words = "the file cannot be read"
    assert "words differ" in judged(row)


def test_a_class_outside_the_table_is_told():
    row = failure("UNREADABLE", "not a regular file", "KpzError")
    assert "python-path: KpzError is no kind of the table" in judged(row)


def test_an_exit_status_other_than_the_kinds_is_told():
    row = failure("NOT_KPZ", "not a KPZ raw file (no TIFF header)", "NotKpzError", status=3)
    assert "kpz exits 3, the kind NOT_KPZ says 1" in judged(row)


def test_errnos_that_differ_are_told():
    row = failure("UNREADABLE", "not a regular file", "OSError", errno.ESPIPE)
    row.answers["python-path"].errno = 0
    assert any(p.startswith("errno differs") for p in judged(row))


def test_pictures_that_differ_are_told():
    row = check.Row("f", "preview")
    for end in ("java-path", "kpz", "python-path"):
        row.answers[end] = check.Answer(kind="ok", shown="OK", picture="3 abc", status=0)
    row.answers["python-path"].picture = "3 abd"
    row.answers["kpz"].kind = None
    assert any(p.startswith("pictures differ") for p in judged(row))
    row = check.Row("f", "preview")
    row.answers["java-path"] = check.Answer(kind="ok", shown="OK", picture="3 abc")
    row.answers["python-path"] = check.Answer(kind="not-kpz", shown="NotKpzError",
                                              words="not a KPZ raw file (no TIFF header)")
    assert any(p.startswith("kinds differ") for p in judged(row))


def test_skipped_answers_are_not_compared():
    row = failure("UNREADABLE", "file not found", "OSError", errno.ENOENT)
    row.answers["java-fd"] = check.Answer(skipped="no descriptor: cannot be opened")
    assert judged(row) == []


@pytest.mark.parametrize("cls, kind", [
    (kpz.NotKpzError, "not-kpz"), (kpz.BadPreviewError, "damaged"),
    (kpz.NoPreviewError, "no-preview"), (kpz.NoThumbnailError, "no-thumbnail"),
    (FileNotFoundError, "unreadable"), (kpz.NotRegularFileError, "unreadable"),
])
def test_python_classes_are_read_through_the_table(cls, kind):
    exc = cls(errno.ENOENT, "x", "f") if cls is FileNotFoundError else cls("words", None, "f")
    assert check.python_kind(exc) == kind


def test_a_bare_kpz_error_or_a_foreign_class_has_no_kind():
    assert check.python_kind(kpz.KpzError("words")) is None
    assert check.python_kind(ValueError("x")) is None
