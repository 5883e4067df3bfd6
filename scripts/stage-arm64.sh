#!/usr/bin/env bash
# 64-bit ARM stage (arm64, as arm64-v8a): the library and every unit test
# cross-built and run under qemu-aarch64, and the library's loadable segments
# checked for 16 KB alignment (64-bit Android devices with 16 KB pages). See
# scripts/cross-stage.sh and scripts/check-elf-align.sh.
# Usage: scripts/stage-arm64.sh            (run by scripts/test.sh after the presets)
set -euo pipefail
exec bash "$(dirname "$0")/cross-stage.sh" arm64
