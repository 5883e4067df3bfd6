#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, skipping those
# already present. Needs root for apt-get; without root it only reports what
# is missing. Usage: scripts/install-deps.sh [extra-package ...]
set -euo pipefail

packages=(
  cmake g++ make
  libgtest-dev libgmock-dev
  openjdk-17-jdk-headless  # JNI headers, javac and the JVM the Java tests run on
  android-liblog-dev     # the Android log library for the JNI entry (prints to stderr)
  libcli11-dev           # argument parsing for the kpz tool
  nlohmann-json3-dev     # JSON output of the kpz tool
  pkg-config dpkg-dev    # the package tests: pkg-config consumer, Debian packages (dpkg-shlibdeps)
  help2man               # the kpz manual page, from kpz --help
  libturbojpeg0-dev libjpeg62-turbo-dev  # kpz --upright: TurboJPEG turns JPEGs; its tests read DCT coefficients with libjpeg
  python3 python3-dev pybind11-dev       # the Python package kpz (Debian's /usr/bin/python3)
  python3-pytest python3-pip python3-setuptools python3-wheel python3-venv  # its tests and its wheel
  "$@"
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages (run as root to install): ${missing[*]}" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
