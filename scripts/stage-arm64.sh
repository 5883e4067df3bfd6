#!/usr/bin/env bash
# 64-bit ARM stage (arm64, as arm64-v8a): the library and every unit test
# cross-built and run under qemu-aarch64. See scripts/cross-stage.sh.
# Usage: scripts/stage-arm64.sh            (run by scripts/test.sh after the presets)
set -euo pipefail
exec bash "$(dirname "$0")/cross-stage.sh" arm64
