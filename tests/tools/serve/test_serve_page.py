"""kpz serve's gallery page in a real browser (headless Chromium through
Selenium): every thumbnail decoded and the right way up, a preview opened
with its metadata, moved with the arrow keys, closed with Escape, its
address shareable, and a phone-sized window without sideways scrolling.
The server is started on 127.0.0.1 port 0 and stopped by its pid.
With KPZ_SERVE_SCREENSHOT_DIR set, screenshots are saved there (docs/)."""
import os
import shutil
import sys

import pytest

sys.path.insert(0, os.path.dirname(__file__))
from serve_support import Server, make_fixtures  # noqa: E402

webdriver = pytest.importorskip("selenium.webdriver")
from selenium.webdriver.chrome.options import Options  # noqa: E402
from selenium.webdriver.chrome.service import Service  # noqa: E402
from selenium.webdriver.common.by import By  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402
from selenium.webdriver.support.ui import WebDriverWait  # noqa: E402

CHROMEDRIVER = shutil.which("chromedriver") or "/usr/bin/chromedriver"
WAIT = 60  # seconds: a loaded machine starts a browser slowly


@pytest.fixture(scope="module")
def gallery(tmp_path_factory):
    base = tmp_path_factory.mktemp("page")
    manifest = make_fixtures(base)
    # Only files whose pictures a browser can show: every thumbnail must
    # decode.
    root = os.path.join(str(base), "gallery")
    os.makedirs(os.path.join(root, "sub"))
    for name in manifest["good"]:
        if name != manifest["large"]:
            shutil.copy(os.path.join(manifest["root"], name), os.path.join(root, name))
    with Server(root) as server:
        yield server


@pytest.fixture(scope="module")
def browser():
    if not os.path.exists(CHROMEDRIVER):
        pytest.skip("chromium-driver is not installed")
    options = Options()
    for arg in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                "--window-size=1280,860", "--hide-scrollbars", "--force-device-scale-factor=1"):
        options.add_argument(arg)
    driver = webdriver.Chrome(service=Service(CHROMEDRIVER), options=options)
    driver.set_page_load_timeout(WAIT)
    try:
        yield driver
    finally:
        driver.quit()


def wait(driver, what, message):
    return WebDriverWait(driver, WAIT, poll_frequency=0.1).until(lambda d: what(d), message)


def images_decoded(driver, expected):
    return driver.execute_script(
        "const imgs = Array.from(document.querySelectorAll('#grid img'));"
        "imgs.forEach(i => i.scrollIntoView());"
        "return imgs.length === arguments[0] && imgs.every(i => i.complete && i.naturalWidth > 0);",
        expected)


def shot(driver, name):
    out = os.environ.get("KPZ_SERVE_SCREENSHOT_DIR")
    if out:
        driver.save_screenshot(os.path.join(out, name))


def test_every_thumbnail_is_decoded_and_upright(gallery, browser):
    browser.get(gallery.base + "/")
    wait(browser, lambda d: images_decoded(d, 6), "thumbnails not all decoded")
    sizes = browser.execute_script(
        "return Array.from(document.querySelectorAll('#grid img')).map("
        "i => [i.alt, i.naturalWidth, i.naturalHeight]);")
    by_name = {n: (w, h) for n, w, h in sizes}
    # Thumbnails of 160 x 120; the files of orientation 6 and 8 are turned.
    assert by_name["shot 01.kpz"] == (160, 120)
    assert by_name["shot02.kpz"] == (120, 160)
    assert by_name["shot03.kpz"] == (160, 120)
    assert by_name["shot04.kpz"] == (120, 160)
    folders = browser.find_elements(By.CSS_SELECTOR, "#grid .tile.folder")
    assert [f.text for f in folders] == ["sub"]
    browser.execute_script("window.scrollTo(0, 0)")
    shot(browser, "serve-gallery.png")


def test_a_click_opens_the_preview_with_metadata_and_keys_move(gallery, browser):
    browser.get(gallery.base + "/")
    wait(browser, lambda d: images_decoded(d, 6), "thumbnails not all decoded")
    browser.find_elements(By.CSS_SELECTOR, "#grid img")[0].click()
    viewer = browser.find_element(By.ID, "viewer")
    wait(browser, lambda d: viewer.is_displayed(), "the preview did not open")
    wait(browser, lambda d: d.execute_script(
        "const b = document.getElementById('big'); return b.complete && b.naturalWidth > 0;"),
        "the preview did not decode")
    wait(browser, lambda d: "DSLR-M100" in d.find_element(By.ID, "meta").text, "no metadata")
    meta = browser.find_element(By.ID, "meta").text
    assert "2010-05-01 12:34:56" in meta and "1/60 s" in meta and "f/2.8" in meta
    assert browser.current_url.endswith("#view=shot%2001.kpz")
    shot(browser, "serve-preview.png")
    body = browser.find_element(By.TAG_NAME, "body")
    body.send_keys(Keys.ARROW_RIGHT)
    wait(browser, lambda d: d.current_url.endswith("#view=shot02.kpz"), "ArrowRight did not move")
    wait(browser, lambda d: d.execute_script(
        "const b = document.getElementById('big'); return b.complete && b.naturalWidth > 0 "
        "&& b.naturalHeight > b.naturalWidth;"), "the next preview is not upright")
    body.send_keys(Keys.ARROW_LEFT)
    wait(browser, lambda d: d.current_url.endswith("#view=shot%2001.kpz"), "ArrowLeft did not move")
    body.send_keys(Keys.ESCAPE)
    wait(browser, lambda d: not viewer.is_displayed(), "Escape did not close")
    assert "#view" not in browser.current_url


def test_enter_opens_the_focused_tile(gallery, browser):
    browser.get(gallery.base + "/")
    wait(browser, lambda d: images_decoded(d, 6), "thumbnails not all decoded")
    browser.find_element(By.TAG_NAME, "body").send_keys(Keys.ARROW_RIGHT)  # the first tile
    active = browser.switch_to.active_element
    active.send_keys(Keys.ARROW_RIGHT)
    active = browser.switch_to.active_element
    name = active.get_attribute("title")
    active.send_keys(Keys.ENTER)
    wait(browser, lambda d: d.find_element(By.ID, "viewer").is_displayed(), "Enter did not open")
    assert browser.execute_script("return document.getElementById('big').alt") == name


def test_a_shared_address_opens_its_preview(gallery, browser):
    browser.get(gallery.base + "/#view=shot03.kpz")
    wait(browser, lambda d: d.find_element(By.ID, "viewer").is_displayed(), "not opened")
    assert browser.execute_script("return document.getElementById('big').alt") == "shot03.kpz"


def test_a_folder_opens_as_its_own_page(gallery, browser):
    browser.get(gallery.base + "/")
    wait(browser, lambda d: d.find_elements(By.CSS_SELECTOR, "#grid .tile.folder"), "no folder")
    browser.find_element(By.CSS_SELECTOR, "#grid .tile.folder").click()
    wait(browser, lambda d: d.current_url.endswith("/browse/sub/"), "the folder did not open")
    wait(browser, lambda d: images_decoded(d, 2), "the folder's thumbnails did not decode")


def test_usable_on_a_phone(gallery, browser):
    browser.set_window_size(390, 844)
    try:
        browser.get(gallery.base + "/")
        wait(browser, lambda d: images_decoded(d, 6), "thumbnails not all decoded")
        assert browser.execute_script(
            "return document.documentElement.scrollWidth <= window.innerWidth")
        columns = browser.execute_script(
            "return getComputedStyle(document.getElementById('grid'))"
            ".gridTemplateColumns.split(' ').length")
        assert columns >= 2
        browser.find_elements(By.CSS_SELECTOR, "#grid img")[1].click()
        wait(browser, lambda d: d.execute_script(
            "const b = document.getElementById('big'); return b.complete && b.naturalWidth > 0;"),
            "the preview did not decode")
        assert browser.execute_script(
            "const r = document.getElementById('big').getBoundingClientRect();"
            "return r.left >= 0 && r.right <= window.innerWidth;")
    finally:
        browser.set_window_size(1280, 860)


def test_a_file_without_a_thumbnail_shows_words_not_a_broken_image(tmp_path, browser):
    manifest = make_fixtures(tmp_path / "fixtures")
    root = tmp_path / "mixed"
    root.mkdir()
    shutil.copy(os.path.join(manifest["root"], "shot 01.kpz"), str(root / "good.kpz"))
    shutil.copy(os.path.join(manifest["root"], "not_tiff.kpz"), str(root / "bad.kpz"))
    with Server(str(root)) as server:
        browser.get(server.base + "/")
        wait(browser, lambda d: images_decoded(d, 1) and d.execute_script(
            "return document.querySelectorAll('#grid .missing').length === 1;"),
            "the bad file's tile did not say it has no thumbnail")
        tiles = browser.execute_script(
            "return Array.from(document.querySelectorAll('#grid .tile')).map("
            "t => [t.title, t.querySelector('img') !== null, "
            "(t.querySelector('.missing') || {}).textContent || null]);")
        assert sorted(tiles) == [["bad.kpz", False, "no thumbnail"], ["good.kpz", True, None]]
