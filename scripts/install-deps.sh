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
  python3-dask python3-distributed      # kpz.distributed: bulk extraction over a Dask cluster
  python3-fsspec python3-aiohttp python3-requests  # its remote sources and outputs (fsspec; its HTTP back end imports aiohttp and requests)
  nginx-light                            # its tests serve files over HTTP on 127.0.0.1 (never left running)
  iproute2                               # its hosts test builds network namespaces (ip netns), as root
  libmicrohttpd-dev libssl-dev           # kpz serve: HTTP (libmicrohttpd) and signed URLs (libcrypto's HMAC)
  chromium chromium-driver python3-selenium  # kpz serve's gallery page, tested in headless Chromium
  wrk                                    # scripts/bench.sh --serve
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

# A package's install must not leave a service running (nginx-light's
# postinst starts nginx through invoke-rc.d): a policy-rc.d that refuses
# every start (exit 101) is in place during the install, an existing one is
# kept aside and put back, and an nginx started all the same is stopped.
policy=/usr/sbin/policy-rc.d
kept=""
if [ -e "$policy" ]; then
  kept="$(mktemp "${policy}.kept.XXXXXX")"
  cp -p "$policy" "$kept"
fi
restore_policy() {
  if [ -n "$kept" ]; then mv -f "$kept" "$policy"; else rm -f "$policy"; fi
}
trap restore_policy EXIT
printf '#!/bin/sh\n# install-deps.sh: no service is started during the install\nexit 101\n' >"$policy"
chmod 755 "$policy"
nginx_before=""
[ -r /run/nginx.pid ] && nginx_before="$(cat /run/nginx.pid 2>/dev/null || true)"

apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

if [ -r /run/nginx.pid ]; then
  pid="$(cat /run/nginx.pid 2>/dev/null || true)"
  if [ -n "$pid" ] && [ "$pid" != "$nginx_before" ] &&
     [ "$(cat "/proc/$pid/comm" 2>/dev/null || true)" = nginx ]; then
    echo "install-deps: stopping the nginx the install started (pid $pid)" >&2
    kill -QUIT "$pid" 2>/dev/null || true
  fi
fi
