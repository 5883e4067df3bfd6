"""The package and the kpz tool give the same bytes, metadata and words for
every generated file, from every kind of source."""

import io
import json

import pytest

import kpz

KINDS = [("preview", kpz.screennail), ("thumbnail", kpz.thumbnail)]


def sources(path):
    """The same file as each kind of source."""
    with open(path, "rb") as f:
        data = f.read()
    return {
        "str": path,
        "bytes": data,
        "bytearray": bytearray(data),
        "memoryview": memoryview(data),
        "BytesIO": io.BytesIO(data),
        "open file": open(path, "rb"),  # noqa: SIM115 - closed below
    }


def close_all(srcs):
    srcs["open file"].close()


@pytest.mark.parametrize("upright", [False, True], ids=["stored", "upright"])
@pytest.mark.parametrize("kind,func", KINDS, ids=[k for k, _ in KINDS])
def test_pictures_match_the_tool(fixtures, run_tool, kind, func, upright):
    checked = 0
    for entry in fixtures["files"]:
        path = entry["path"]
        args = [kind, path, "-o", "-"] + (["--upright"] if upright else [])
        ran = run_tool(*args, path=path)
        srcs = sources(path)
        try:
            for label, src in srcs.items():
                if ran.status == 0:
                    got = func(src, upright=upright)
                    assert got == ran.stdout, f"{entry['name']} from {label}"
                    assert len(got) > 0
                else:
                    with pytest.raises(kpz.KpzError) as caught:
                        func(src, upright=upright)
                    err = caught.value
                    assert err.words == ran.words(), f"{entry['name']} from {label}"
                    assert kpz.error_words(err) == ran.words()
                    if label == "str":
                        assert err.filename == path
                        assert str(err) == f"{path}: {ran.words()}"
                    elif label != "open file":
                        assert err.filename is None
                        assert str(err) == ran.words()
            checked += 1
        finally:
            close_all(srcs)
        # What the fixture was made to be, unless upright turns a picture
        # that is not a JPEG.
        made = entry[kind]
        if not (upright and ran.status != 0 and made == "ok"):
            assert (ran.status == 0) == (made == "ok"), entry["name"]
    assert checked == len(fixtures["files"])


def test_failure_classes_are_the_ones_the_files_were_made_for(fixtures):
    for entry in fixtures["files"]:
        for kind, func in KINDS:
            made = entry[kind]
            if made == "ok":
                assert func(entry["path"])
                continue
            with pytest.raises(getattr(kpz, made)):
                func(entry["path"])


def test_upright_of_a_picture_that_is_not_a_jpeg_is_a_bad_preview(fixtures):
    path = fixtures["byname"]["orient6_not_jpeg"]["path"]
    stored = kpz.screennail(path)
    assert stored
    with pytest.raises(kpz.BadPreviewError) as caught:
        kpz.screennail(path, upright=True)
    assert caught.value.words.startswith("the preview cannot be turned upright: ")
    assert caught.value.code is None


def test_upright_of_a_picture_bomb_is_refused_in_words(fixtures):
    entry = fixtures["byname"].get("orient6_bomb")
    if entry is None:
        pytest.skip("this libjpeg cannot write arithmetic-coded JPEGs")
    with pytest.raises(kpz.BadPreviewError) as caught:
        kpz.screennail(entry["path"], upright=True)
    assert caught.value.words.startswith("the preview cannot be turned upright: the JPEG "
                                         "declares 9999x9999 pixels, too large for its ")
    # Read as stored, it is the file's preview.
    assert len(kpz.screennail(entry["path"])) == 49 * 1024


def test_info_matches_kpz_info_json_key_for_key(fixtures, run_tool):
    for entry in fixtures["files"]:
        path = entry["path"]
        ran = run_tool("info", "--json", path, path=path)
        line = json.loads(ran.stdout.decode("utf-8"))
        if line["error"] is None:
            assert ran.status == 0
            got = kpz.info(path)
            assert got == line, entry["name"]
            assert list(got) == list(line)
            with open(path, "rb") as f:
                data = f.read()
            from_bytes = kpz.info(data)
            assert from_bytes["file"] is None
            assert {**from_bytes, "file": path} == line, entry["name"]
            with open(path, "rb") as f:
                assert kpz.info(f) == line, entry["name"]
        else:
            with pytest.raises(kpz.NotKpzError) as caught:
                kpz.info(path)
            assert caught.value.words == line["error"], entry["name"]
            assert caught.value.code == line["result"], entry["name"]
            with open(path, "rb") as f:
                data = f.read()
            with pytest.raises(kpz.NotKpzError) as caught:
                kpz.info(data)
            assert caught.value.code == line["result"], entry["name"]


def test_sample_preview_is_the_one_the_tool_writes(sample, run_tool, tmp_path):
    out = tmp_path / "sample.preview.jpg"
    ran = run_tool("preview", str(sample), "-o", str(out))
    assert ran.status == 0
    assert kpz.screennail(sample) == out.read_bytes()
    assert kpz.screennail(str(sample)) == out.read_bytes()
