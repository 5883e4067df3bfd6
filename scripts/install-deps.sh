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
  python3-botocore                       # s3://: the credential chain and the request signer (AWS Signature Version 4)
  libmicrohttpd-dev libssl-dev           # kpz serve: HTTP (libmicrohttpd) and signed URLs (libcrypto's HMAC)
  chromium chromium-driver python3-selenium  # kpz serve's gallery page, tested in headless Chromium
  wrk                                    # scripts/bench.sh --serve
  "$@"
)
# The tests' S3 API server (s3rver, a pinned npm package; Debian has none)
# runs on Node.js: Debian's nodejs and npm where the machine has no node or
# npm of its own (a Node.js from elsewhere brings its own npm).
command -v node >/dev/null 2>&1 || packages+=(nodejs)
command -v npm >/dev/null 2>&1 || packages+=(npm)

root="$(cd "$(dirname "$0")/.." && pwd)"
# s3rver, at the versions of scripts/s3rver/package-lock.json, into
# .deps/s3rver of the checkout (ignored by git), unless it is there already.
install_s3rver() {
  local dir="$root/.deps/s3rver"
  if cmp -s "$root/scripts/s3rver/package-lock.json" "$dir/package-lock.json" &&
     [ -f "$dir/node_modules/s3rver/bin/s3rver.js" ]; then
    return 0
  fi
  if ! command -v npm >/dev/null 2>&1; then
    echo "install-deps: npm is missing (run as root to install it); s3rver not installed" >&2
    return 1
  fi
  echo "install-deps: installing s3rver into $dir" >&2
  mkdir -p "$dir"
  cp "$root/scripts/s3rver/package.json" "$root/scripts/s3rver/package-lock.json" "$dir/"
  (cd "$dir" && npm ci --no-audit --no-fund --loglevel=error >/dev/null)
}

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

# s3rver serves the S3 tests only: where it cannot be installed (no npm, the
# registry out of reach), the rest of the run goes on, and those tests fail
# saying that s3rver is missing.
s3rver_or_say() {
  install_s3rver || echo "install-deps: s3rver could not be installed into .deps/s3rver; the S3 tests will fail saying so" >&2
}

if [ ${#missing[@]} -eq 0 ]; then
  s3rver_or_say
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

s3rver_or_say
