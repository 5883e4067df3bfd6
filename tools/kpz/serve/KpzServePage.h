// KpzServePage.h - the gallery page kpz serve sends at / and /browse/DIR/:
// its HTML, script and style, built into the binary (no external resource,
// no framework), and the Content-Security-Policy that goes with them.
//
// Part of the kpz tool (tools/kpz/serve).
#ifndef KPZ_TOOLS_KPZ_SERVE_KPZSERVEPAGE_H
#define KPZ_TOOLS_KPZ_SERVE_KPZSERVEPAGE_H

class KpzServePage {
 public:
  static const char* Html();
  static const char* Script();  // served at /_/gallery.js
  static const char* Style();   // served at /_/gallery.css
  static const char* Policy();  // the page's Content-Security-Policy
};

#endif  // KPZ_TOOLS_KPZ_SERVE_KPZSERVEPAGE_H
