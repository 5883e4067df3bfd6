// KpzServePage.cpp - the gallery page's HTML, script and style, built into
// kpz (tools/kpz/serve). See the header. No external resource, no
// framework: the script fetches /list/DIR in pages as the page scrolls,
// shows each picture's thumbnail turned by the server (?upright=1), opens
// the preview with the file's metadata (/info) on a click or Enter, moves
// with the arrow keys (and a swipe), closes with Escape, and keeps the open
// preview in the address (#view=NAME) so it can be shared.
#include "kpz/serve/KpzServePage.h"

const char* KpzServePage::Policy() {
  return "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
         "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'";
}

const char* KpzServePage::Html() {
  return R"HTML(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="dark">
<title>kpz</title>
<link rel="stylesheet" href="/_/gallery.css">
<script src="/_/gallery.js" defer></script>
</head>
<body>
<header class="bar">
<nav id="crumbs" aria-label="folders"></nav>
<span id="count" aria-live="polite"></span>
</header>
<main>
<ul id="grid" aria-label="pictures"></ul>
<div id="more" aria-hidden="true"></div>
<p id="status" role="status"></p>
</main>
<div id="viewer" role="dialog" aria-modal="true" aria-label="preview" hidden>
<figure>
<img id="big" alt="">
<figcaption id="meta"></figcaption>
</figure>
<button id="prev" class="nav" type="button" aria-label="previous picture">&#8249;</button>
<button id="next" class="nav" type="button" aria-label="next picture">&#8250;</button>
<button id="close" type="button" aria-label="close">&#215;</button>
</div>
</body>
</html>
)HTML";
}

const char* KpzServePage::Style() {
  return R"CSS(:root {
  --bg: #111214; --panel: #1b1d21; --tile: #202328; --text: #e8e8e8; --dim: #9aa0a6;
  --accent: #f0b429; --gap: 10px;
}
* { box-sizing: border-box; }
html, body { margin: 0; background: var(--bg); color: var(--text);
  font: 15px/1.4 system-ui, -apple-system, "Segoe UI", Roboto, sans-serif; }
.bar { position: sticky; top: 0; z-index: 2; display: flex; align-items: center;
  justify-content: space-between; gap: 12px; padding: 10px 16px;
  background: rgba(17, 18, 20, 0.92); border-bottom: 1px solid #2a2d33; }
#crumbs { display: flex; flex-wrap: wrap; gap: 4px; font-weight: 600; min-width: 0; }
#crumbs a { color: var(--text); text-decoration: none; padding: 2px 6px; border-radius: 6px; }
#crumbs a:hover, #crumbs a:focus-visible { background: var(--tile); outline: none; }
#crumbs span.sep { color: var(--dim); }
#count { color: var(--dim); font-size: 13px; white-space: nowrap; }
main { padding: var(--gap); }
#grid { list-style: none; margin: 0; padding: 0; display: grid; gap: var(--gap);
  grid-template-columns: repeat(auto-fill, minmax(170px, 1fr)); }
#grid li { margin: 0; }
.tile { display: flex; flex-direction: column; width: 100%; padding: 0; border: 0;
  border-radius: 10px; overflow: hidden; background: var(--tile); color: var(--text);
  text-decoration: none; cursor: pointer; font: inherit; text-align: left;
  outline: 2px solid transparent; transition: transform .12s ease, outline-color .12s; }
.tile:hover { transform: translateY(-2px); }
.tile:focus-visible, .tile.current { outline-color: var(--accent); }
.tile .pic { position: relative; display: flex; align-items: center; justify-content: center;
  aspect-ratio: 4 / 3; background: #0b0c0d; }
.tile img { position: absolute; inset: 0; width: 100%; height: 100%; object-fit: contain;
  display: block; }
.tile .missing { color: var(--dim); font-size: 12px; padding: 0 8px; text-align: center; }
.tile .name { padding: 6px 9px 8px; font-size: 13px; white-space: nowrap; overflow: hidden;
  text-overflow: ellipsis; color: var(--dim); }
.tile.folder .pic { background: linear-gradient(160deg, #2b2f36, #1d2026); }
.tile.folder .icon { width: 44%; aspect-ratio: 4 / 3; border-radius: 4px 8px 8px 8px;
  background: var(--accent); opacity: .85; position: relative; }
.tile.folder .icon::before { content: ""; position: absolute; left: 0; top: -12%; width: 42%;
  height: 16%; border-radius: 4px 4px 0 0; background: var(--accent); }
.tile.folder .name { color: var(--text); font-weight: 600; }
#more { height: 1px; }
#status { color: var(--dim); text-align: center; min-height: 1.4em; }
#viewer { position: fixed; inset: 0; z-index: 5; display: flex; align-items: center;
  justify-content: center; background: rgba(6, 7, 8, 0.96); }
#viewer[hidden] { display: none; }
#viewer figure { margin: 0; display: flex; flex-direction: column; align-items: center;
  max-width: 100vw; max-height: 100vh; padding: 12px 64px; }
#big { max-width: calc(100vw - 128px); max-height: calc(100vh - 150px); object-fit: contain;
  border-radius: 4px; box-shadow: 0 10px 40px rgba(0, 0, 0, .6); background: #000; }
#meta { margin-top: 12px; display: flex; flex-wrap: wrap; justify-content: center; gap: 6px 18px;
  color: var(--dim); font-size: 14px; }
#meta b { color: var(--text); font-weight: 600; }
#viewer button { position: absolute; border: 0; color: var(--text); background: rgba(255,255,255,.08);
  cursor: pointer; font: 32px/1 system-ui, sans-serif; border-radius: 999px; width: 48px; height: 48px; }
#viewer button:hover, #viewer button:focus-visible { background: rgba(255,255,255,.2); outline: none; }
#prev { left: 8px; top: calc(50% - 24px); }
#next { right: 8px; top: calc(50% - 24px); }
#close { right: 8px; top: 8px; }
@media (max-width: 600px) {
  #grid { grid-template-columns: repeat(auto-fill, minmax(110px, 1fr)); }
  :root { --gap: 6px; }
  #viewer figure { padding: 56px 4px 12px; }
  #big { max-width: 100vw; max-height: calc(100vh - 200px); }
  #prev, #next { top: auto; bottom: 10px; }
}
)CSS";
}

const char* KpzServePage::Script() {
  return R"JS(// The gallery of kpz serve: a folder's entries in pages (/list), its
// pictures' thumbnails turned the right way up by the server (?upright=1),
// a preview with its metadata (/info) on click or Enter, arrow keys to
// move, Escape to close; #view=NAME in the address is the open preview.
"use strict";
(function () {
  const PAGE = 60;
  const grid = document.getElementById("grid");
  const more = document.getElementById("more");
  const status = document.getElementById("status");
  const count = document.getElementById("count");
  const viewer = document.getElementById("viewer");
  const big = document.getElementById("big");
  const meta = document.getElementById("meta");
  const params = new URLSearchParams(location.search);
  const pageSig = params.get("sig");

  // The folder shown: "" for /, "a/b" for /browse/a/b/.
  let dir = "";
  if (location.pathname.startsWith("/browse/")) {
    dir = decodeURIComponent(location.pathname.slice(8)).replace(/\/+$/, "");
  }
  const enc = (path) => path.split("/").map(encodeURIComponent).join("/");
  const rel = (name) => (dir ? dir + "/" : "") + name;
  const withSig = (url, sig, extra) => {
    const q = new URLSearchParams(extra || {});
    if (sig) q.set("sig", sig);
    const s = q.toString();
    return s ? url + "?" + s : url;
  };

  const pictures = [];   // {name, sig, tile}
  let next = "";          // where the next page starts; null: no more
  let loading = false;
  let current = -1;       // index into pictures of the open preview, -1: closed

  document.title = (dir || "/") + " - kpz";
  (function crumbs() {
    const nav = document.getElementById("crumbs");
    const parts = dir ? dir.split("/") : [];
    const add = (label, href) => {
      const a = document.createElement("a");
      a.textContent = label;
      a.href = href;
      nav.appendChild(a);
    };
    add("kpz", "/");
    let path = "";
    parts.forEach((p) => {
      const sep = document.createElement("span");
      sep.className = "sep";
      sep.textContent = "/";
      nav.appendChild(sep);
      path = path ? path + "/" + p : p;
      add(p, "/browse/" + enc(path) + "/");
    });
  })();

  function tileFor(entry) {
    const li = document.createElement("li");
    const a = document.createElement("a");
    a.className = "tile";
    const pic = document.createElement("span");
    pic.className = "pic";
    const label = document.createElement("span");
    label.className = "name";
    label.textContent = entry.name;
    a.title = entry.name;
    if (entry.dir) {
      a.classList.add("folder");
      a.href = withSig("/browse/" + enc(rel(entry.name)) + "/", entry.sig && entry.sig.browse);
      const icon = document.createElement("span");
      icon.className = "icon";
      pic.appendChild(icon);
    } else {
      const index = pictures.length;
      const img = document.createElement("img");
      img.loading = "lazy";
      img.decoding = "async";
      img.alt = entry.name;
      // A file without a thumbnail to show (not a KPZ file, none stored, cut
      // short) gets words in its tile, not the browser's broken-image mark.
      img.addEventListener("error", () => {
        const missing = document.createElement("span");
        missing.className = "missing";
        missing.textContent = "no thumbnail";
        img.replaceWith(missing);
      }, {once: true});
      img.src = withSig("/thumbnail/" + enc(rel(entry.name)), entry.sig && entry.sig.thumbnail,
                        {upright: "1"});
      pic.appendChild(img);
      a.href = "#view=" + encodeURIComponent(entry.name);
      a.addEventListener("click", (e) => { e.preventDefault(); open(index); });
      pictures.push({name: entry.name, sig: entry.sig || {}, tile: a});
    }
    a.append(pic, label);
    li.appendChild(a);
    return li;
  }

  async function loadMore() {
    if (loading || next === null) return;
    loading = true;
    status.textContent = "Loading...";
    try {
      const q = {limit: String(PAGE)};
      if (next) q.after = next;
      const r = await fetch(withSig("/list/" + enc(dir), pageSig, q));
      if (!r.ok) throw new Error(r.status === 404 ? "No such folder." : "Error " + r.status);
      const page = await r.json();
      const frag = document.createDocumentFragment();
      page.entries.forEach((e) => frag.appendChild(tileFor(e)));
      grid.appendChild(frag);
      next = page.next;
      count.textContent = pictures.length + (next === null ? "" : "+") +
                          (pictures.length === 1 ? " picture" : " pictures");
      status.textContent = next === null && grid.children.length === 0 ? "Nothing here." : "";
      loading = false;
      if (next !== null && more.getBoundingClientRect().top < innerHeight * 2) loadMore();
      else if (current < 0) fromHash();
    } catch (err) {
      status.textContent = String(err.message || err);
      loading = false;
    }
  }
  new IntersectionObserver((seen) => {
    if (seen.some((s) => s.isIntersecting)) loadMore();
  }, {rootMargin: "800px"}).observe(more);

  const frac = (v) => v && v.result === 0 && v.denominator ? v.numerator / v.denominator : null;
  const two = (n) => String(n).padStart(2, "0");
  function describe(info) {
    const items = [];
    const add = (label, value) => { if (value !== null && value !== undefined) items.push([label, value]); };
    add("", info.file ? info.file.split("/").pop() : null);
    add("Camera", info.model && info.model.result === 0 ? info.model.value : null);
    const d = info.dateTimeOriginal;
    add("Taken", d && d.result === 0 ? d.year + "-" + two(d.month) + "-" + two(d.day) + " " +
        two(d.hour) + ":" + two(d.minute) + ":" + two(d.second) : null);
    const t = frac(info.exposureTime);
    add("Exposure", t === null ? null : t >= 1 ? t + " s" : "1/" + Math.round(1 / t) + " s");
    const f = frac(info.fNumber);
    add("Aperture", f === null ? null : "f/" + (Math.round(f * 10) / 10));
    add("ISO", info.isoSpeed && info.isoSpeed.result === 0 ? info.isoSpeed.value : null);
    const fl = frac(info.focalLength);
    add("Focal length", fl === null ? null : Math.round(fl * 10) / 10 + " mm");
    const w = info.rawImageWidth, h = info.rawImageHeight;
    add("Image", w && h && w.result === 0 && h.result === 0 ? w.value + " x " + h.value : null);
    const s = info.screennail;
    add("Preview", s && s.result === 0 ? s.width + " x " + s.height + ", " +
        Math.round(s.size / 1024) + " KB" : null);
    return items;
  }
  function showMeta(items) {
    meta.textContent = "";
    items.forEach(([label, value]) => {
      const span = document.createElement("span");
      if (label) {
        const b = document.createElement("b");
        b.textContent = label + " ";
        span.appendChild(b);
      }
      span.appendChild(document.createTextNode(String(value)));
      meta.appendChild(span);
    });
  }

  function open(index) {
    if (index < 0 || index >= pictures.length) return;
    const p = pictures[index];
    if (current >= 0) pictures[current].tile.classList.remove("current");
    current = index;
    p.tile.classList.add("current");
    big.alt = p.name;
    big.src = withSig("/preview/" + enc(rel(p.name)), p.sig.preview, {upright: "1"});
    showMeta([["", p.name]]);
    fetch(withSig("/info/" + enc(rel(p.name)), p.sig.info))
      .then((r) => r.json())
      .then((info) => { if (current === index) showMeta(describe(info)); })
      .catch(() => {});
    viewer.hidden = false;
    const hash = "#view=" + encodeURIComponent(p.name);
    if (location.hash !== hash) history.replaceState(null, "", hash);
    document.getElementById("close").focus({preventScroll: true});
    if (index >= pictures.length - 3) loadMore();
  }
  function close() {
    if (current < 0) return;
    viewer.hidden = true;
    big.removeAttribute("src");
    const tile = pictures[current].tile;
    current = -1;
    history.replaceState(null, "", location.pathname + location.search);
    tile.focus();
  }
  function fromHash() {
    const m = /^#view=(.*)$/.exec(location.hash);
    if (!m) { close(); return; }
    const name = decodeURIComponent(m[1]);
    const i = pictures.findIndex((p) => p.name === name);
    if (i >= 0) open(i);
    else if (next !== null) loadMore();
  }
  addEventListener("hashchange", fromHash);

  document.getElementById("close").addEventListener("click", close);
  document.getElementById("prev").addEventListener("click", () => open(current - 1));
  document.getElementById("next").addEventListener("click", () => open(current + 1));
  viewer.addEventListener("click", (e) => { if (e.target === viewer) close(); });
  let touchX = null;
  viewer.addEventListener("touchstart", (e) => { touchX = e.touches[0].clientX; }, {passive: true});
  viewer.addEventListener("touchend", (e) => {
    if (touchX === null) return;
    const dx = e.changedTouches[0].clientX - touchX;
    touchX = null;
    if (Math.abs(dx) > 50) open(current + (dx < 0 ? 1 : -1));
  });

  // Keys: in the preview, arrows move and Escape closes; in the grid,
  // arrows move the focus from tile to tile and Enter opens (a link's own).
  function columns() {
    const tiles = grid.children;
    if (tiles.length < 2) return 1;
    const top = tiles[0].getBoundingClientRect().top;
    let n = 1;
    while (n < tiles.length && tiles[n].getBoundingClientRect().top === top) n++;
    return n;
  }
  document.addEventListener("keydown", (e) => {
    if (e.altKey || e.ctrlKey || e.metaKey) return;
    if (current >= 0) {
      if (e.key === "Escape") { close(); e.preventDefault(); }
      else if (e.key === "ArrowRight" || e.key === "ArrowDown") { open(current + 1); e.preventDefault(); }
      else if (e.key === "ArrowLeft" || e.key === "ArrowUp") { open(current - 1); e.preventDefault(); }
      return;
    }
    const moves = {ArrowRight: 1, ArrowLeft: -1, ArrowDown: columns(), ArrowUp: -columns()};
    if (!(e.key in moves)) return;
    const tiles = Array.from(grid.querySelectorAll(".tile"));
    if (!tiles.length) return;
    const at = tiles.indexOf(document.activeElement);
    const to = at < 0 ? 0 : Math.max(0, Math.min(tiles.length - 1, at + moves[e.key]));
    tiles[to].focus();
    tiles[to].scrollIntoView({block: "nearest"});
    if (to >= tiles.length - columns()) loadMore();
    e.preventDefault();
  });

  loadMore();
})();
)JS";
}
