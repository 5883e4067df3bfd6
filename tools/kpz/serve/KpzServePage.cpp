// KpzServePage.cpp - the gallery page's HTML, script and style, built into
// kpz (tools/kpz/serve). See the header.
#include "serve/KpzServePage.h"

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
<title>kpz</title>
<link rel="stylesheet" href="/_/gallery.css">
<script src="/_/gallery.js" defer></script>
</head>
<body>
<header><nav id="crumbs"></nav><span id="count"></span></header>
<main id="grid" aria-label="pictures"></main>
<p id="status"></p>
</body>
</html>
)HTML";
}

const char* KpzServePage::Style() { return ""; }

const char* KpzServePage::Script() { return ""; }
