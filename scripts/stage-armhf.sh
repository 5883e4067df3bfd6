#!/usr/bin/env bash
# 32-bit ARM stage (armhf, as armeabi-v7a): the library and every unit test
# cross-built and run under qemu-arm. See scripts/cross-stage.sh.
# Usage: scripts/stage-armhf.sh            (run by scripts/test.sh after the presets)
set -euo pipefail
exec bash "$(dirname "$0")/cross-stage.sh" armhf
