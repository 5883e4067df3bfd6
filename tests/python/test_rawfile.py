"""kpz.open: typed properties, pictures, and the orientation written in place
exactly as `kpz rotate` writes it."""

import datetime
import io
import os
import shutil

import pytest

import kpz


def test_properties_are_the_info_values_typed(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    d = kpz.info(path)
    with kpz.open(path) as raw:
        assert raw.file == path
        assert raw.make == d["make"]["value"] == "KAVI"
        assert raw.model == d["model"]["value"] == "DSLR-M100"
        assert raw.screennail_offset == d["screennail"]["offset"]
        assert raw.screennail_size == d["screennail"]["size"] == len(raw.screennail())
        assert (raw.screennail_width, raw.screennail_height) == (1616, 1080)
        assert raw.thumbnail_offset == d["thumbnail"]["offset"]
        assert raw.thumbnail_size == d["thumbnail"]["size"] == len(raw.thumbnail())
        assert raw.orientation == 0
        assert raw.exif_orientation == 1
        assert raw.orientation_words == "normal"
        assert raw.upright_turn is None
        assert raw.date_time_original == datetime.datetime(2010, 5, 1, 12, 34, 56)
        assert raw.exposure_time == (1, 60)
        assert raw.f_number == (28, 10)
        assert raw.iso_speed == 200
        assert raw.exposure_bias == (-1, 3)
        assert raw.exposure_program == 2
        assert raw.focal_length == (500, 10)
        assert raw.focal_length_35mm == 75
        assert raw.exif_version == 230
        assert raw.iob_version == 100
        assert raw.raw_image_width == 6000 and raw.raw_image_height == 4000
        assert raw.info == d
        assert "DSLR-M100" in repr(raw)
    assert raw.closed
    with pytest.raises(ValueError, match="closed"):
        raw.screennail()


def test_thumbnail_pixels_come_from_its_jpeg(fixtures):
    with kpz.open(fixtures["byname"]["orient6_whole"]["path"]) as raw:
        assert (raw.thumbnail_width, raw.thumbnail_height) == (40, 30)
        assert raw.orientation == 1
        assert raw.orientation_words == "rotated 90° clockwise"
        assert raw.upright_turn == "90° clockwise"
    with kpz.open(fixtures["byname"]["plain"]["path"]) as raw:
        # FakeJpeg thumbnails carry no picture size: unknown, not an error.
        assert raw.thumbnail_width in (None, 32)


def test_values_not_recorded_are_none(fixtures):
    with kpz.open(fixtures["byname"]["no_orientation"]["path"]) as raw:
        assert raw.orientation is None
        assert raw.orientation_words is None
    with kpz.open(fixtures["byname"]["no_preview"]["path"]) as raw:
        assert raw.screennail_offset is None
        with pytest.raises(kpz.NoPreviewError):
            raw.screennail()


def test_open_from_bytes_and_file_objects(fixtures):
    path = fixtures["byname"]["large"]["path"]
    data = open(path, "rb").read()  # noqa: SIM115
    with kpz.open(data) as raw:
        assert raw.file is None
        assert raw.screennail() == kpz.screennail(path)
        with pytest.raises(TypeError, match="needs its path"):
            raw.set_orientation(1)
    with open(path, "rb") as f, kpz.open(f) as raw:
        assert raw.file == path
        assert raw.screennail(upright=True) == kpz.screennail(path, upright=True)
    with kpz.open(io.BytesIO(data)) as raw:
        assert raw.model == "DSLR-M100"


def test_open_raises_as_info(fixtures, tmp_path):
    with pytest.raises(FileNotFoundError):
        kpz.open(str(tmp_path / "none.kpz"))
    with pytest.raises(kpz.NotKpzError):
        kpz.open(fixtures["byname"]["not_tiff"]["path"])


@pytest.mark.parametrize("code", range(8))
def test_set_orientation_writes_what_kpz_rotate_writes(fixtures, run_tool, tmp_path, code):
    src = fixtures["byname"]["plain"]["path"]
    ours = str(tmp_path / "ours.kpz")
    theirs = str(tmp_path / "theirs.kpz")
    shutil.copyfile(src, ours)
    shutil.copyfile(src, theirs)
    os.utime(ours, (1000000000, 1100000000))
    os.utime(theirs, (1000000000, 1100000000))
    before = os.stat(ours)
    with kpz.open(ours) as raw:
        written = raw.set_orientation(code)
        assert written == (code != 0)
        assert raw.orientation == code
        assert raw.orientation_words == kpz.orientation_words(code)
    ran = run_tool("rotate", "--code", str(code), theirs, path=theirs)
    assert ran.status == 0, ran.stderr
    with open(ours, "rb") as a, open(theirs, "rb") as b:
        assert a.read() == b.read()
    after = os.stat(ours)
    assert after.st_size == before.st_size
    # The modification time is kept, as kpz rotate keeps it (reading the
    # file may move its access time, for both).
    assert after.st_mtime == 1100000000
    assert os.stat(theirs).st_mtime == 1100000000
    assert kpz.open(ours).orientation == code


def test_set_orientation_checks_its_argument(fixtures, tmp_path):
    path = str(tmp_path / "a.kpz")
    shutil.copyfile(fixtures["byname"]["plain"]["path"], path)
    with kpz.open(path) as raw:
        for bad in (-1, 8, 255):
            with pytest.raises(ValueError, match="0 to 7"):
                raw.set_orientation(bad)
        for bad in ("1", 1.0, True, None):
            with pytest.raises(TypeError):
                raw.set_orientation(bad)
    with open(path, "rb") as f:
        assert f.read() == open(fixtures["byname"]["plain"]["path"], "rb").read()  # noqa: SIM115


def test_set_orientation_without_an_orientation_fails_in_words(fixtures, tmp_path, run_tool):
    path = str(tmp_path / "a.kpz")
    shutil.copyfile(fixtures["byname"]["no_orientation"]["path"], path)
    with kpz.open(path) as raw:
        with pytest.raises(kpz.OrientationError) as caught:
            raw.set_orientation(2)
    ran = run_tool("rotate", "--code", "2", path, path=path)
    assert ran.status != 0
    assert caught.value.words == ran.words()


def test_set_orientation_with_the_date_to_copy_at_a_negative_offset_changes_nothing(
    fixtures, tmp_path, run_tool
):
    # IFD0's date and time claimed at 2 GiB: once, the file's TIFF header was
    # copied over the thumbnail's date and time and the call succeeded.
    src = fixtures["byname"]["date_at_2gib"]["path"]
    path = str(tmp_path / "a.kpz")
    shutil.copyfile(src, path)
    os.utime(path, (1000000000, 1100000000))
    with open(src, "rb") as f:
        before = f.read()
    with kpz.open(path) as raw:
        with pytest.raises(kpz.OrientationWriteError) as caught:
            raw.set_orientation(1)
        assert raw.orientation == 0
    assert caught.value.words == (
        "the date and time to be copied to the thumbnail's (IFD0's date and time, 20 bytes at "
        f"byte 2147483648) lies past the end of the file ({len(before)} bytes); not changed"
    )
    with open(path, "rb") as f:
        assert f.read() == before
    assert os.stat(path).st_mtime == 1100000000
    ran = run_tool("rotate", "--code", "1", path, path=path)
    assert ran.status == 3
    assert ran.words() == caught.value.words
    with open(path, "rb") as f:
        assert f.read() == before


def test_set_orientation_on_a_file_removed_meanwhile(fixtures, tmp_path):
    path = str(tmp_path / "a.kpz")
    shutil.copyfile(fixtures["byname"]["plain"]["path"], path)
    raw = kpz.open(path)
    os.unlink(path)
    with pytest.raises(FileNotFoundError):
        raw.set_orientation(1)


def test_set_orientation_with_a_code_of_any_size_is_a_value_error_in_words(fixtures, tmp_path):
    path = str(tmp_path / "a.kpz")
    shutil.copyfile(fixtures["byname"]["plain"]["path"], path)
    with kpz.open(path) as raw:
        for huge in (2**31, 2**40, 2**64 + 5, -(2**70)):
            with pytest.raises(ValueError) as caught:
                raw.set_orientation(huge)
            assert str(caught.value) == f"kpz: a rotation code is 0 to 7, not {huge}"
    with open(path, "rb") as f:
        assert f.read() == open(fixtures["byname"]["plain"]["path"], "rb").read()  # noqa: SIM115


def test_closed_says_whether_the_pictures_can_still_be_read(fixtures):
    path = fixtures["byname"]["plain"]["path"]
    assert kpz.RawFile.closed.__doc__ and "close" in kpz.RawFile.closed.__doc__
    with kpz.open(path) as raw:
        assert raw.closed is False
    assert raw.closed is True
    assert raw.model == "DSLR-M100"
    with pytest.raises(ValueError, match="closed"):
        raw.screennail()
