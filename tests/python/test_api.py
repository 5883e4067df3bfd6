"""The package's API as users of imaging libraries expect it: one name for
one thing (preview, with screennail as its alias), the metadata also as a
typed object, the source type decided by the native code, the version
compiled in, and which exceptions can be caught as what."""

import dataclasses
import datetime
import io
import pathlib
import subprocess

import pytest

import kpz
from kpz import _kpz


def test_preview_is_the_name_and_screennail_the_same_function(fixtures):
    assert kpz.screennail is kpz.preview
    assert kpz.RawFile.screennail is kpz.RawFile.preview
    assert kpz.RawFile.screennail_size is kpz.RawFile.preview_size
    path = fixtures["byname"]["plain"]["path"]
    with kpz.open(path) as raw:
        assert raw.preview() == kpz.preview(path)
        assert raw.preview_size == len(kpz.preview(path)) == raw.screennail_size


def test_read_info_is_info_typed_with_snake_case_fields(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    d = kpz.info(path)
    got = kpz.read_info(path)
    assert isinstance(got, kpz.Info)
    assert got.as_dict() == d  # the JSON form is kept, whole
    assert got.file == path
    assert got.model == d["model"]["value"]
    assert got.preview_offset == d["screennail"]["offset"] == got.screennail_offset
    assert got.preview_size == d["screennail"]["size"]
    assert got.orientation == d["rotation"]["code"]
    assert got.exif_orientation == d["rotation"]["exifOrientation"]
    assert got.exposure_time == (d["exposureTime"]["numerator"], d["exposureTime"]["denominator"])
    assert isinstance(got.date_time_original, datetime.datetime)
    names = [f.name for f in dataclasses.fields(kpz.Info) if not f.name.startswith("_")]
    assert all(n == n.lower() and " " not in n for n in names), names
    with pytest.raises(dataclasses.FrozenInstanceError):
        got.model = "x"  # type: ignore[misc]
    with kpz.open(path) as raw:
        assert raw.metadata == got
        assert raw.info == d


def test_read_info_gives_none_for_what_is_not_recorded(fixtures):
    got = kpz.read_info(fixtures["byname"]["no_orientation"]["path"])
    assert got.orientation is None and got.exif_orientation is None
    got = kpz.read_info(fixtures["byname"]["no_preview"]["path"])
    assert got.preview_offset is None and got.preview_size is None


def test_read_info_raises_as_info(fixtures, tmp_path):
    with pytest.raises(FileNotFoundError):
        kpz.read_info(str(tmp_path / "absent.kpz"))
    with pytest.raises(kpz.NotKpzError):
        kpz.read_info(fixtures["byname"]["not_tiff"]["path"])


def test_the_kind_of_a_source_is_decided_by_the_native_code(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    data = pathlib.Path(path).read_bytes()
    assert _kpz.source_kind(path) == ("path", path)
    assert _kpz.source_kind(pathlib.Path(path)) == ("path", path)
    assert _kpz.source_kind(path.encode()) == ("buffer", None)  # bytes are content, not a name
    assert _kpz.source_kind(memoryview(data)) == ("buffer", None)
    with open(path, "rb") as f:
        assert _kpz.source_kind(f) == ("stream", path)
    assert _kpz.source_kind(io.BytesIO(data)) == ("stream", None)
    with pytest.raises(TypeError):
        _kpz.source_kind(42)
    # What info() names the file follows the same decision.
    assert kpz.info(data)["file"] is None
    with open(path, "rb") as f:
        assert kpz.info(f)["file"] == path
    # And only a path can be written to.
    with kpz.open(data) as raw, pytest.raises(TypeError):
        raw.set_orientation(1)


def test_version_is_the_compiled_one_and_the_tool_s(tool):
    assert kpz.__version__ == _kpz.__version__
    assert kpz.__version__[0].isdigit() and kpz.__version__.count(".") == 2
    proc = subprocess.run([tool, "--version"], capture_output=True, text=True, timeout=60,
                          check=False)
    assert proc.returncode == 0
    assert proc.stdout.strip() == "kpz " + kpz.__version__


def test_kpz_error_is_not_an_os_error_and_every_class_is_caught_as_before(fixtures, tmp_path):
    # docs/PYTHON.md says why: an OSError is the system's refusal, with an errno.
    assert not issubclass(kpz.KpzError, OSError)
    for cls in (kpz.NotKpzError, kpz.NoPreviewError, kpz.BadPreviewError, kpz.OrientationError,
                kpz.OrientationWriteError):
        assert issubclass(cls, kpz.KpzError) and issubclass(cls, Exception)
    assert issubclass(kpz.OrientationWriteError, kpz.OrientationError)
    with pytest.raises(kpz.NotKpzError):
        kpz.preview(fixtures["byname"]["not_tiff"]["path"])
    with pytest.raises(kpz.NoPreviewError):
        kpz.preview(fixtures["byname"]["no_preview"]["path"])
    with pytest.raises(FileNotFoundError) as e:
        kpz.preview(str(tmp_path / "absent.kpz"))
    assert e.value.words == "file not found" and e.value.code == e.value.errno
