#!/usr/bin/env bash
# Runs the whole performance comparison and prints the table: the library's
# preview path (as the JNI entry runs it) against the floor (the same system
# calls with the offsets known in advance), locating only, parsing from
# memory, libexiv2's PreviewManager; instructions (callgrind), system calls
# (strace) and peak memory per file; cost against preview length and number
# of files; and the kpz tool against `exiv2 -ep2` and `exiftool -b -OtherImage
# -w` over 1,000 files: files per second in one process (-j 1, -j 2) and with
# one process per file, wall and CPU time, several rounds in alternating
# order, kpz's ratio to each peer as the geometric mean of the rounds' paired
# ratios, every output compared byte for byte, and against preview length.
# Never part of the unit tests or CI.
#
# Installs what it needs as root (scripts/install-deps.sh), builds the
# `bench` configuration (Release) in build/bench, generates the corpora in a
# temporary directory under /tmp ($KPZ_BENCH_TMPDIR when set; removed at
# exit) and writes everything it
# measured into the report directory: table.md (the table printed at the
# end), facts.txt, the Google Benchmark JSON files, the strace and callgrind
# outputs and two plots (PNG, when gnuplot is installed).
#
#   scripts/bench.sh                       # full run, report in build/bench/report
#   scripts/bench.sh --wait-quiet 30       # first wait up to 30 min for a quiet machine
#   scripts/bench.sh --quick               # small and fast: checks the harness only
#   scripts/bench.sh --cli-only            # only the command-line comparison (section 6)
#   scripts/bench.sh --cli-only --quick    # the same, small: checks that part of the harness
#   scripts/bench.sh --cli-only --cli-files 300 --cli-rounds 3   # a narrower comparison
#   scripts/bench.sh --upright             # only `kpz preview --upright` against plain preview
#                                          # and exiftool + jpegtran (bench/bench_upright.py), over
#                                          # 1,000 files with real JPEG previews; --quick, --cli-files,
#                                          # --cli-rounds and --peer-files N narrow it
#   scripts/bench.sh --python              # only the Python package kpz against py3exiv2, GExiv2
#                                          # and the Python floor (bench/bench_python.py), 60 files
#                                          # of ~14 MB with 1.5 MB previews; --quick narrows it
#   scripts/bench.sh --distributed         # only kpz.distributed (Dask) against kpz preview -j 1/-j 2,
#                                          # over HTTP from nginx, and its growth with the number of
#                                          # files and the batch size (bench/bench_distributed.py);
#                                          # 1,000 files of ~14 MB with 1.5 MB previews; --quick narrows it
#   scripts/bench.sh --scale               # only kpz.distributed's client at 10^4, 10^5 and 10^6
#                                          # inputs (hard links in folders of 1,000): its peak
#                                          # memory, the scheduler's task count, wall time; resuming
#                                          # with --skip-existing over 10^5 outputs, and a 10^6-input
#                                          # run killed at random points and restarted until done
#                                          # (bench/bench_distributed_scale.py); --quick: 10^4 and
#                                          # 10^5, the killed run at 10^5; the trees are kept in
#                                          # OUT/work; --pythonpath DIR measures the kpz package in
#                                          # DIR instead of this build's; --docs also writes
#                                          # docs/perf-client-memory.png; --scale-before JSON adds an
#                                          # earlier run's scale.json to the table and the plot
#   scripts/bench.sh --remote              # only kpz.remote against the floor (one asyncio process,
#                                          # two ranged GETs per file, 64 in flight) from nginx through
#                                          # a latency proxy: paired at an added RTT of 0 and 50 ms,
#                                          # files/s against RTT and against the in-flight limit, and
#                                          # kpz.distributed (2 workers) against the same floor
#                                          # (bench/bench_remote.py); 240 files of ~14 MB with 1.5 MB
#                                          # previews; --quick narrows it
#   scripts/bench.sh --s3                  # only s3://: kpz.remote, python3 -m kpz and kpz.distributed
#                                          # (2 workers) against the floor (one asyncio process
#                                          # signing each request with botocore, two ranged GETs per
#                                          # object, 64 in flight), from s3rver on 127.0.0.1 direct and
#                                          # through the latency proxy at 50 ms; files/s, CPU per file
#                                          # and bytes per object (bench/bench_s3.py); 240 objects of
#                                          # 1.3 MB with 256 KiB previews; s3.md and perf-s3.png;
#                                          # --quick narrows it
#   scripts/bench.sh --serve               # only kpz serve against nginx sending the same previews
#                                          # and thumbnails extracted as files (sendfile on): wrk at
#                                          # 64 connections, requests/s and p99, warm and cold, in
#                                          # alternating order (bench/bench_serve.py); 300 files with
#                                          # 1.5 MB previews; --quick narrows it
#   scripts/bench.sh --cold                # only the cold page cache: bytes read from the disk and
#                                          # wall time per file for kpz preview, the library's main
#                                          # path, locate only, exiv2, exiftool and the floor, over
#                                          # 60 files of ~12 MB really on the disk, the corpus'
#                                          # page cache emptied before each pass
#                                          # (bench/bench_cold.py); --quick, --cli-files and
#                                          # --cli-rounds narrow it, --readahead-kb 8192,128 repeats
#                                          # it for each read_ahead_kb of the disk (as root),
#                                          # --before REV adds kpz and the library as they were
#   scripts/bench.sh --before REV          # also count the library as it was at git revision REV
#                                          # (built with this harness): the before/after table
#   scripts/bench.sh --out /tmp/report
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${KPZ_BENCH_BUILD_DIR:-$root/build/bench}"
out="$build/report"
quick=0
cli_only=0
cli_files_arg=""
cli_rounds_arg=""
wait_minutes=0
before_rev=""
upright=0
python_only=0
distributed_only=0
remote_only=0
s3_only=0
serve_only=0
scale_only=0
scale_docs=0
pythonpath_arg=""
scale_before_arg=""
cold=0
readahead_arg=""
peer_files_arg=""

usage() {
  sed -n '2,/^set -euo/p' "$0" | sed '$d' | sed 's/^# \{0,1\}//'
  exit "${1:-0}"
}
while [ $# -gt 0 ]; do
  case "$1" in
    --quick) quick=1 ;;
    --cli-only) cli_only=1 ;;
    --upright) upright=1 ;;
    --python) python_only=1 ;;
    --distributed) distributed_only=1 ;;
    --remote) remote_only=1 ;;
    --s3) s3_only=1 ;;
    --serve) serve_only=1 ;;
    --scale) scale_only=1 ;;
    --docs) scale_docs=1 ;;
    --pythonpath) pythonpath_arg="$2"; shift ;;
    --scale-before) scale_before_arg="$2"; shift ;;
    --cold) cold=1 ;;
    --readahead-kb) readahead_arg="$2"; shift ;;
    --peer-files) peer_files_arg="$2"; shift ;;
    --cli-files) cli_files_arg="$2"; shift ;;
    --cli-rounds) cli_rounds_arg="$2"; shift ;;
    --out) out="$2"; shift ;;
    --wait-quiet) wait_minutes="$2"; shift ;;
    --before) before_rev="$2"; shift ;;
    -h|--help) usage 0 ;;
    *) echo "bench.sh: unknown argument '$1'" >&2; usage 2 ;;
  esac
  shift
done

# ---- sizes ------------------------------------------------------------------
if [ "$quick" -eq 1 ]; then
  paired_passes=3; ifd0_totals="7 4096"; ifd0_rounds=20
  main_files=8;  reps=1; min_time=0.05; cg_files=4;  st_files=4
  cli_files=50;  sweep_sizes="65536 1048576"; sweep_files="10 50"; sweep_reps=1
  cli_rounds=2;  cli_size_bytes=$((16 * 1048576))
else
  paired_passes=20; ifd0_totals="7 16 64 256 1024 4096 5400 16384 65535"; ifd0_rounds=500
  main_files=48; reps=9; min_time=0.3;  cg_files=16; st_files=16
  cli_files=1000; sweep_sizes="65536 262144 1048576 4194304 16777216"
  sweep_files="10 100 1000"; sweep_reps=3
  cli_rounds=5;  cli_size_bytes=$((512 * 1048576))
fi
[ -n "$cli_files_arg" ] && cli_files="$cli_files_arg"
[ -n "$cli_rounds_arg" ] && cli_rounds="$cli_rounds_arg"
# The preview lengths of the command-line sweep (the same as the library's).
cli_sizes="$sweep_sizes"
jobs=$(nproc 2>/dev/null || echo 2)
# Without rep-string instructions glibc's memset/memcpy use vector loops, whose
# instructions callgrind counts as a processor retires them.
norep="glibc.cpu.x86_rep_stosb_threshold=0x7fffffffffffffff:glibc.cpu.x86_rep_movsb_threshold=0x7fffffffffffffff"

log() { echo "bench: $*" >&2; }

# ---- dependencies and build --------------------------------------------------
if ! "$root/scripts/install-deps.sh" libbenchmark-dev libexiv2-dev exiv2 \
    libimage-exiftool-perl strace valgrind gnuplot-nox time python3 pkg-config \
    libturbojpeg0-dev libjpeg-turbo-progs python3-py3exiv2 gir1.2-gexiv2-0.10 python3-gi \
    linux-perf wrk nginx-light; then
  log "some packages are missing (run as root to install them); parts needing them are skipped"
fi

mkdir -p "$out"
rm -f "$out"/*.json "$out"/*.txt "$out"/*.md "$out"/*.dat "$out"/*.png "$out"/callgrind.*
log "building in $build (log: $out/build.log)"
targets="kpz_bench kpz_bench_run"
[ "$cli_only" -eq 1 ] && targets="kpz_bench_run"
[ "$upright" -eq 1 ] && targets="kpz_bench_run"
[ "$python_only" -eq 1 ] && targets="kpz_bench_run kpz_python"
[ "$distributed_only" -eq 1 ] && targets="kpz_bench_run kpz_python"
[ "$remote_only" -eq 1 ] && targets="kpz_bench_run kpz_python"
[ "$s3_only" -eq 1 ] && targets="kpz_bench_run kpz_python"
[ "$scale_only" -eq 1 ] && targets="kpz_bench_run kpz_python"
[ "$cold" -eq 1 ] && targets="kpz_bench_run"
[ "$serve_only" -eq 1 ] && targets="kpz_bench_run kpz"
# Every option that matters is set here, so that a build directory
# configured otherwise earlier (say without the tool) is brought back in line.
if ! { cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DKPZ_BUILD_BENCH=ON \
         -DKPZ_BUILD_TESTS=OFF -DKPZ_BUILD_TOOLS=ON -DKPZ_WERROR=ON -DCMAKE_CXX_FLAGS= &&
       cmake --build "$build" --target $targets -j "$jobs"; } >"$out/build.log" 2>&1; then
  cat "$out/build.log" >&2
  log "the build failed"
  exit 1
fi
# The kpz tool needs CLI11; without it the CLI comparison is skipped.
cmake --build "$build" --target kpz -j "$jobs" >>"$out/build.log" 2>&1 || true
bin="$build/bin"
kpz="$bin/kpz"

mkdir -p "${KPZ_BENCH_TMPDIR:-/tmp}"
work="$(mktemp -d "${KPZ_BENCH_TMPDIR:-/tmp}/kpzbench-XXXXXX")"
trap 'rm -rf "$work"' EXIT
facts="$out/facts.txt"
: >"$facts"
fact() { printf '%s=%s\n' "$1" "$2" >>"$facts"; }
have() { command -v "$1" >/dev/null 2>&1; }
load1() { cut -d' ' -f1 /proc/loadavg; }
now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }

# ---- a quiet machine ---------------------------------------------------------
if [ "$wait_minutes" -gt 0 ]; then
  log "waiting up to $wait_minutes min for the 1-minute load to stay below 0.8 for a minute"
  deadline=$(( $(date +%s) + wait_minutes * 60 ))
  quiet_since=0
  while [ "$(date +%s)" -lt "$deadline" ]; do
    if awk -v l="$(load1)" 'BEGIN { exit !(l < 0.8) }'; then
      [ "$quiet_since" -eq 0 ] && quiet_since=$(date +%s)
      [ $(( $(date +%s) - quiet_since )) -ge 60 ] && break
    else
      quiet_since=0
    fi
    sleep 5
  done
fi

# ---- the machine ------------------------------------------------------------
fact machine.nproc "$jobs"
fact machine.cpu "$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
fact machine.kernel "$(uname -srm)"
fact machine.mem_total "$(awk '/MemTotal/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo)"
fact machine.compiler "$(c++ --version | head -1)"
fact machine.date "$(date -u '+%Y-%m-%d %H:%M UTC')"
fact load.start "$(cut -d' ' -f1-3 /proc/loadavg)"
have exiv2 && fact version.exiv2 "$(exiv2 --version | head -1)"
have exiftool && fact version.exiftool "$(exiftool -ver)"
fact quick "$quick"
fact cli_only "$cli_only"

# ---- --upright: the turned preview against the plain one and the peers ---------
# 1,000 files (--cli-files) whose previews are one real 1616x1080 4:2:0 JPEG
# at quality 92, encoded once; IFD0's orientation mixed as
# BenchCorpus::OrientationFor says (a quarter portrait, a few upside down).
# 1080 rows are not whole 16-row blocks: the files rotated 90° clockwise or
# 180° are re-encoded by default, those rotated 90° counter-clockwise are
# turned losslessly. bench/bench_upright.py times and writes upright.md.
if [ "$upright" -eq 1 ]; then
  ucorpus="$work/upright"
  mkdir -p "$ucorpus"
  gen="$("$bin/kpz_bench_run" corpus --out "$ucorpus" --files "$cli_files" --sparse \
    --real-jpeg 1616x1080@92 --orientation-mix)"
  log "$gen"
  peer_files="${peer_files_arg:-100}"
  pair_files="$cli_files"
  [ "$quick" -eq 1 ] && { peer_files="${peer_files_arg:-10}"; }
  have jpegtran && fact version.jpegtran "$(jpegtran -version 2>&1 | head -1)"
  fact load.before_upright "$(load1)"
  python3 "$root/bench/bench_upright.py" --kpz "$kpz" --corpus "$ucorpus" --out "$out" \
    --work "$work/upright-work" --rounds "$cli_rounds" --pair-files "$pair_files" \
    --peer-files "$peer_files" | tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --python: the Python package against its peers and the floor ------------
# 60 files (8 with --quick) of the realistic corpus (1.5 MB previews, 12 MB of
# filler as a hole), the page cache warm. bench/bench_python.py compares every
# output with kpz preview's, times in pairs and writes python.md.
if [ "$python_only" -eq 1 ]; then
  pcorpus="$work/python"
  mkdir -p "$pcorpus"
  py_files=60; py_rounds=10; py_repeat=5
  [ "$quick" -eq 1 ] && { py_files=8; py_rounds=2; py_repeat=1; }
  gen="$("$bin/kpz_bench_run" corpus --out "$pcorpus" --files "$py_files" --sparse)"
  log "$gen"
  fact load.before_python "$(load1)"
  PYTHONPATH="$build/python" /usr/bin/python3 "$root/bench/bench_python.py" \
    --manifest "$pcorpus/manifest.tsv" --kpz "$kpz" --bench-run "$bin/kpz_bench_run" \
    --out "$out" --rounds "$py_rounds" --repeat "$py_repeat" | tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --distributed: kpz.distributed on a LocalCluster, locally and over HTTP ---
# 1,000 files (60 with --quick) of the realistic corpus (1.5 MB previews, 12 MB
# of filler as a hole), the page cache warm; 10,000 files are hard links of
# them (the same inodes). bench/bench_distributed.py compares outputs with
# kpz preview's, times in alternating pairs and writes distributed.md.
if [ "$distributed_only" -eq 1 ]; then
  dcorpus="$work/distributed"
  mkdir -p "$dcorpus"
  d_files=1000; d_rounds=7; d_http=300; d_counts="1000,3000,10000"; d_batch_files=3000
  d_batches="1,8,64,256"
  if [ "$quick" -eq 1 ]; then
    d_files=60; d_rounds=1; d_http=20; d_counts="60,120"; d_batch_files=120; d_batches="1,64"
  fi
  gen="$("$bin/kpz_bench_run" corpus --out "$dcorpus" --files "$d_files" --sparse)"
  log "$gen"
  fact load.before_distributed "$(load1)"
  PYTHONPATH="$build/python" /usr/bin/python3 "$root/bench/bench_distributed.py" \
    --manifest "$dcorpus/manifest.tsv" --kpz "$kpz" --tests-dir "$root/tests/python" \
    --work "$work/distributed-work" --out "$out" --rounds "$d_rounds" --http-files "$d_http" \
    --counts "$d_counts" --batch-files "$d_batch_files" --batch-sizes "$d_batches" \
    | tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --scale: kpz.distributed's client against the number of inputs -----------
# Hard links of 4 small generated files (1 KiB thumbnails) in folders of
# 1,000; the trees are built once and kept in $out/work (10^6 links take a
# while), as are the outputs of each run while it lasts (one 4 KiB block
# each: about 4 GB at 10^6). A scheduler and 2 workers of one thread each
# (Debian's dask) on 127.0.0.1; the client's command line as a child process.
# bench/bench_distributed_scale.py writes scale.md, scale.json and
# perf-client-memory.png.
if [ "$scale_only" -eq 1 ]; then
  s_counts="10000,100000,1000000"; s_kill=1000000
  [ "$quick" -eq 1 ] && { s_counts="10000,100000"; s_kill=100000; }
  s_docs=()
  [ "$scale_docs" -eq 1 ] && s_docs=(--docs-png "$root/docs/perf-client-memory.png")
  [ -n "$scale_before_arg" ] && s_docs+=(--before "$scale_before_arg")
  fact load.before_scale "$(load1)"
  /usr/bin/python3 "$root/bench/bench_distributed_scale.py" \
    --pythonpath "${pythonpath_arg:-$build/python}" --bench-run "$bin/kpz_bench_run" \
    --tests-dir "$root/tests/python" --work "$out/work" --out "$out" \
    --counts "$s_counts" --kill-inputs "$s_kill" "${s_docs[@]}" | tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --serve: kpz serve against nginx over the same pictures -----------------
# 300 files (30 with --quick) of the realistic corpus (1.5 MB previews, 10 KiB
# thumbnails, filler as a hole); bench/bench_serve.py extracts their pictures
# for nginx, checks both send the same bytes, runs wrk against each in
# alternating order and writes serve.md, serve.json and serve.png.
if [ "$serve_only" -eq 1 ]; then
  scorpus="$work/serve"
  mkdir -p "$scorpus"
  s_files=300; s_rounds=3; s_seconds=10
  [ "$quick" -eq 1 ] && { s_files=30; s_rounds=1; s_seconds=3; }
  [ -n "$cli_files_arg" ] && s_files="$cli_files_arg"
  [ -n "$cli_rounds_arg" ] && s_rounds="$cli_rounds_arg"
  gen="$("$bin/kpz_bench_run" corpus --out "$scorpus" --files "$s_files" --sparse)"
  log "$gen"
  fact load.before_serve "$(load1)"
  /usr/bin/python3 "$root/bench/bench_serve.py" --kpz "$kpz" --corpus "$scorpus" \
    --work "$work/serve-work" --out "$out" --rounds "$s_rounds" --seconds "$s_seconds" |
    tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --remote: kpz.remote against the floor through a latency proxy ----------
# 240 files (24 with --quick) of the realistic corpus (1.5 MB previews, 12 MB
# of filler as a hole) served by nginx on 127.0.0.1; bench/bench_remote.py
# pairs kpz.remote with the floor at each RTT and writes remote.md.
if [ "$remote_only" -eq 1 ]; then
  rcorpus="$work/remote"
  mkdir -p "$rcorpus"
  r_files=240; r_rounds=4; r_rtts="0,10,50,100"; r_limits="1,8,64,256"; r_drounds=3
  if [ "$quick" -eq 1 ]; then
    r_files=24; r_rounds=2; r_rtts="0,50"; r_limits="8,64"; r_drounds=1
  fi
  gen="$("$bin/kpz_bench_run" corpus --out "$rcorpus" --files "$r_files" --sparse)"
  log "$gen"
  fact load.before_remote "$(load1)"
  PYTHONPATH="$build/python" /usr/bin/python3 "$root/bench/bench_remote.py" \
    --manifest "$rcorpus/manifest.tsv" --tests-dir "$root/tests/python" \
    --work "$work/remote-work" --out "$out" --files "$r_files" --rounds "$r_rounds" \
    --rtts "$r_rtts" --limits "$r_limits" --distributed-rounds "$r_drounds" | tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --s3: s3:// against the floor, from s3rver on 127.0.0.1 --------------------
# 240 objects (48 with --quick) of 1.3 MB with 256 KiB previews, put into
# s3rver (.deps/s3rver, scripts/install-deps.sh); bench/bench_s3.py pairs
# each of kpz.remote, python3 -m kpz and kpz.distributed with the floor at
# each added RTT and writes s3.md.
if [ "$s3_only" -eq 1 ]; then
  scorpus="$work/s3"
  mkdir -p "$scorpus"
  s_files3=240; s_rounds3=3
  if [ "$quick" -eq 1 ]; then s_files3=48; s_rounds3=1; fi
  gen="$("$bin/kpz_bench_run" corpus --out "$scorpus" --files "$s_files3" \
           --preview-bytes 262144 --filler-bytes 1048576)"
  log "$gen"
  fact load.before_s3 "$(load1)"
  PYTHONPATH="$build/python" KPZ_SOURCE_DIR="$root" /usr/bin/python3 "$root/bench/bench_s3.py" \
    --manifest "$scorpus/manifest.tsv" --tests-dir "$root/tests/python" \
    --work "$work/s3-work" --out "$out" --files "$s_files3" --rounds "$s_rounds3" \
    --rtts 0,50 | tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

# ---- --cold: bytes read from the disk with an empty page cache -----------------
# 60 files (--cli-files) of about 12 MB with previews of about 1.5 MB, written
# out for real (not sparse: a hole is never read from the disk), in a
# directory on a disk-backed file system. bench/bench_cold.py empties their
# page cache before every pass and counts pgpgin; cold.md is the table.
if [ "$cold" -eq 1 ]; then
  ccorpus="$work/cold"
  mkdir -p "$ccorpus"
  fstype="$(stat -f -c %T "$ccorpus")"
  fact cold.fstype "$fstype"
  case "$fstype" in
    tmpfs|ramfs)
      log "$ccorpus is on $fstype: nothing is read from a disk there; set KPZ_BENCH_TMPDIR to a disk"
      exit 1 ;;
  esac
  cold_files="${cli_files_arg:-60}"
  cold_rounds="${cli_rounds_arg:-3}"
  [ "$quick" -eq 1 ] && { cold_files="${cli_files_arg:-8}"; cold_rounds="${cli_rounds_arg:-1}"; }
  gen="$("$bin/kpz_bench_run" corpus --out "$ccorpus" --files "$cold_files" \
    --filler-bytes 10485760)"
  log "$gen"
  fact cold.files "$cold_files"
  fact cold.rounds "$cold_rounds"
  fact cold.corpus_bytes "$(du -sb "$ccorpus" | cut -f1)"
  before_args=()
  if [ -n "$before_rev" ]; then
    # The tool and the library at REV, with REV's own bench/ (its main and
    # locate jobs are the library's steps as they were then).
    log "building kpz and kpz_bench_run at $before_rev for the before/after rows"
    rev="$(git -C "$root" rev-parse --short "$before_rev")"
    fact before.rev "$rev"
    mkdir -p "$work/before-src"
    git -C "$root" archive "$before_rev" | tar -x -C "$work/before-src"
    if { cmake -S "$work/before-src" -B "$work/before-build" -DCMAKE_BUILD_TYPE=Release \
           -DKPZ_BUILD_BENCH=ON -DKPZ_BUILD_TESTS=OFF -DKPZ_BUILD_TOOLS=ON &&
         cmake --build "$work/before-build" --target kpz_bench_run kpz -j "$jobs"; } \
         >"$out/build-before.log" 2>&1; then
      before_args=(--before-bin "$work/before-build/bin" --before-kpz "$work/before-build/bin/kpz"
                   --before-label "$rev")
    else
      log "kpz at $before_rev did not build (see $out/build-before.log); no before rows"
    fi
  fi
  fact load.before_cold "$(cut -d' ' -f1-3 /proc/loadavg)"
  /usr/bin/python3 "$root/bench/bench_cold.py" --bin "$bin" --kpz "$kpz" \
    --manifest "$ccorpus/manifest.tsv" --out "$out" --work "$work/cold-work" \
    --rounds "$cold_rounds" --readahead-kb "$readahead_arg" "${before_args[@]}" |
    tee "$out/table.md"
  fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"
  exit 0
fi

if [ "$cli_only" -eq 0 ]; then
# ---- 1. the main corpus and the timed jobs -----------------------------------
corpus="$work/corpus"
mkdir -p "$corpus"
gen="$("$bin/kpz_bench_run" corpus --out "$corpus" --files "$main_files")"
log "$gen"
fact corpus.files "$main_files"
fact corpus.bytes "$(du -sb "$corpus" | cut -f1)"
fact corpus.seconds "$(echo "$gen" | sed -n 's/.*, \([0-9.]*\) s$/\1/p')"
manifest="$corpus/manifest.tsv"

log "timing the jobs (Google Benchmark, $reps repetitions)"
fact load.before_timing "$(load1)"
# Repetitions run in random order, so that a change of load during the run
# touches every job alike.
"$bin/kpz_bench" --kpz_corpus="$manifest" --benchmark_repetitions="$reps" \
  --benchmark_enable_random_interleaving=true \
  --benchmark_min_time="$min_time" --benchmark_out="$out/bench-main.json" \
  --benchmark_out_format=json 2>/dev/null | tee "$out/bench-main.txt" >&2
fact load.after_timing "$(load1)"

# ---- 2. instructions per file (callgrind) ------------------------------------
# Counted only inside the job functions; the first round is subtracted so
# that one-time costs (first allocations, symbol binding) do not count.
cg_function() {  # <job> -> the function whose instructions count
  case "$1" in
    main) echo 'BenchJobs::MainPath(*' ;;
    fd) echo 'BenchDescriptorJob::Preview(*' ;;
    locate) echo 'BenchJobs::Locate(*' ;;
    parse) echo 'BenchJobs::ParseBuffer(*' ;;
    record) echo 'BenchJobs::RecordLocate(*' ;;
    gallery) echo 'BenchJobs::Gallery(*' ;;
    floor) echo 'BenchJobs::Floor(*' ;;
    floorhead) echo 'BenchJobs::FloorHead(*' ;;
    exiv2) echo 'BenchExiv2Job::Preview(*' ;;
  esac
}
cg_total() {  # <tunables> <job> <rounds> -> instructions in the job function
  local file="$work/cg.out"
  GLIBC_TUNABLES="$1" LD_BIND_NOW=1 valgrind --tool=callgrind --callgrind-out-file="$file" \
    --collect-atstart=no --toggle-collect="$(cg_function "$2")" \
    "$bin/kpz_bench_run" "$2" "$manifest" --files "$cg_files" --rounds "$3" >/dev/null 2>&1
  callgrind_annotate "$file" 2>/dev/null | awk '/PROGRAM TOTALS/ { gsub(",", "", $1); print $1 }'
}
cg_jobs="locate parse main floor floorhead"
run_usage="$("$bin/kpz_bench_run" 2>&1 || true)"
case "$run_usage" in *" record gallery"*) cg_jobs="$cg_jobs record gallery" ;; esac
case "$run_usage" in *" fd"*) cg_jobs="$cg_jobs fd" ;; esac
case "$run_usage" in *exiv2*) cg_jobs="$cg_jobs exiv2" ;; esac
if have valgrind; then
  log "counting instructions (callgrind, $cg_files files)"
  # Without rep-string instructions glibc's memset/memcpy use vector loops,
  # whose instructions callgrind counts as a processor retires them
  # (callgrind counts every iteration of a rep-prefixed instruction).
  for job in $cg_jobs; do
    for variant in default norep; do
      tun=""; [ "$variant" = norep ] && tun="$norep"
      one="$(cg_total "$tun" "$job" 1)"
      three="$(cg_total "$tun" "$job" 3)"
      fact "instr.$job.$variant" "$(( (three - one) / (2 * cg_files) ))"
    done
  done
  for job in locate main; do
    GLIBC_TUNABLES="$norep" LD_BIND_NOW=1 valgrind --tool=callgrind \
      --callgrind-out-file="$out/callgrind.$job" --collect-atstart=no \
      --toggle-collect="$(cg_function "$job")" "$bin/kpz_bench_run" "$job" "$manifest" \
      --files "$cg_files" --rounds 3 >/dev/null 2>&1
    callgrind_annotate --inclusive=yes "$out/callgrind.$job" >"$out/callgrind-$job-inclusive.txt" 2>/dev/null
    callgrind_annotate "$out/callgrind.$job" >"$out/callgrind-$job-self.txt" 2>/dev/null
  done
else
  log "valgrind is missing: no instruction counts"
fi

# ---- 3. system calls per file (strace) ---------------------------------------
# Like the instructions, counted in the steady state: the calls of a run of
# three rounds over the files less those of a run of one round.
st_calls() {  # <job> <rounds> -> system calls of the whole process
  strace -c -f -o "$work/st.out" "$bin/kpz_bench_run" "$1" "$manifest" --files "$st_files" \
    --rounds "$2" >/dev/null 2>&1
  awk '$NF == "total" { print $4 }' "$work/st.out"
}
st_jobs="main locate floor floorhead"
case "$run_usage" in *exiv2*) st_jobs="$st_jobs exiv2" ;; esac
if have strace; then
  log "counting system calls (strace, $st_files files)"
  for job in $st_jobs; do
    one="$(st_calls "$job" 1)"
    three="$(st_calls "$job" 3)"
    fact "syscalls.$job" "$(awk -v a="$one" -v b="$three" -v n="$st_files" 'BEGIN { printf "%.1f", (b - a) / (2 * n) }')"
    cp "$work/st.out" "$out/strace-c-$job.txt"
    # The calls of one file (the last of two rounds), as strace shows them.
    strace -f -o "$work/st.one" "$bin/kpz_bench_run" "$job" "$manifest" --files 1 --rounds 2 \
      --marker >/dev/null 2>&1
    sed -n '/kpz-bench-marker\/begin/,/kpz-bench-marker\/end/p' "$work/st.one" |
      sed '1d;$d' | sed 's/^[0-9]* *//' >"$out/strace-$job-one-file.txt"
    fact "syscalls.$job.one_file" "$(wc -l <"$out/strace-$job-one-file.txt")"
    if [ "$job" = main ]; then
      # What the Android log library spends on the entry's own lines.
      fact "syscalls.main.entry_log" "$(grep -cE '^(gettid|getpid)\(|^write\(2, "KpzInterface' \
        "$out/strace-main-one-file.txt" || true)"
    fi
  done
else
  log "strace is missing: no system call counts"
fi

# ---- 4. peak memory -----------------------------------------------------------
for job in none $st_jobs; do
  if [ "$job" = none ]; then
    line="$("$bin/kpz_bench_run" floor "$manifest" --files 0 2>/dev/null)"
  else
    line="$("$bin/kpz_bench_run" "$job" "$manifest" 2>/dev/null)"
  fi
  fact "maxrss_kib.$job" "$(echo "$line" | sed -n 's/.*maxrss_kib=\([0-9]*\).*/\1/p')"
done

# ---- 4b. heap allocations per job ---------------------------------------------
# Counted by the bench binary's own malloc (the library has no hook), from the
# second of three rounds on: the steady state of one Initialize + Finalize.
allocs_of() {  # <bin dir> <job> <manifest> -> allocations per job
  "$1/kpz_bench_run" "$2" "$3" --files "$cg_files" --rounds 3 --any-result 2>/dev/null |
    sed -n 's/.*allocs_per_job=\([0-9.]*\).*/\1/p'
}
log "counting heap allocations"
for job in $cg_jobs; do
  fact "allocs.$job" "$(allocs_of "$bin" "$job" "$manifest")"
done

# ---- 4c. the main path against the floor, file by file in pairs ----------------
# Library then floor, floor then library, alternating by file and pass: the
# second of a pair profits from the first, so single ratios are bimodal and
# only the geometric mean over both orders says which is faster.
paired_of() {  # <bin dir> <prefix>: facts <prefix>.geomean, .median, .q1, .q3, .main_us, .floor_us
  local line
  line="$("$1/kpz_bench_run" paired "$manifest" --passes "$paired_passes" 2>/dev/null || true)"
  for key in pairs geomean median q1 q3 main_us floor_us; do
    fact "$2.$key" "$(echo "$line" | sed -n "s/.*[ ,]$key=\([0-9.]*\).*/\1/p")"
  done
  fact "$2.pairs" "$(echo "$line" | sed -n 's/^paired: \([0-9]*\) pairs.*/\1/p')"
}
log "timing the main path against the floor in pairs ($paired_passes passes)"
fact load.before_paired "$(load1)"
paired_of "$bin" paired

# ---- 4d. locating against the number of entries in IFD0 ------------------------
# 8 files whose IFD0 carries further entries (tags the library does not keep)
# before its own 7; beyond about 5,400 entries IFD0 no longer fits the 64 KiB
# head and every locate fails (-307) after reading what is there.
cg_locate_in() {  # <bin dir> <manifest> <rounds> -> instructions inside Locate
  GLIBC_TUNABLES="$norep" LD_BIND_NOW=1 valgrind --tool=callgrind --callgrind-out-file="$work/cg.ifd0" \
    --collect-atstart=no --toggle-collect='BenchJobs::Locate(*' "$1/kpz_bench_run" locate "$2" \
    --files 4 --rounds "$3" --any-result >/dev/null 2>&1
  callgrind_annotate "$work/cg.ifd0" 2>/dev/null | awk '/PROGRAM TOTALS/ { gsub(",", "", $1); print $1 }'
}
log "locating against IFD0 entries: $ifd0_totals"
for total in $ifd0_totals; do
  dir="$work/ifd0-$total"
  mkdir -p "$dir"
  "$bin/kpz_bench_run" corpus --out "$dir" --files 8 --preview-bytes 65536 --filler-bytes 0 \
    --sparse --ifd0-entries $((total - 7)) >/dev/null
  line="$("$bin/kpz_bench_run" locate "$dir/manifest.tsv" --rounds "$ifd0_rounds" --any-result 2>/dev/null || true)"
  fact "ifd0.$total.us" "$(echo "$line" | sed -n 's/.*, \([0-9.]*\) us\/job.*/\1/p')"
  fact "ifd0.$total.failed" "$(echo "$line" | sed -n 's/.* \([0-9]*\) failed.*/\1/p')"
  fact "ifd0.$total.jobs" "$(echo "$line" | sed -n 's/^locate: \([0-9]*\) jobs.*/\1/p')"
  if have valgrind; then
    one="$(cg_locate_in "$bin" "$dir/manifest.tsv" 1)"
    three="$(cg_locate_in "$bin" "$dir/manifest.tsv" 3)"
    fact "ifd0.$total.instr" "$(( (three - one) / 8 ))"
  fi
  rm -rf "$dir"
done

# ---- 4e. the library as it was (--before REV), counted the same way -------------
# Its sources at REV with this harness (bench/ and the test-data builder of
# now), built alike; instructions, allocations, system calls and the paired
# ratio over the same corpus.
if [ -n "$before_rev" ]; then
  log "building the library at $before_rev for the before/after table"
  fact before.rev "$(git -C "$root" rev-parse --short "$before_rev")"
  git -C "$root" worktree add --detach "$work/before-src" "$before_rev" >/dev/null 2>&1
  rm -rf "$work/before-src/bench"
  cp -r "$root/bench" "$work/before-src/bench"
  cp "$root/tests/support/KpzFileBuilder.cpp" "$root/tests/support/KpzFileBuilder.h" \
    "$work/before-src/tests/support/"
  if { cmake -S "$work/before-src" -B "$work/before-build" -DCMAKE_BUILD_TYPE=Release \
         -DKPZ_BUILD_BENCH=ON -DKPZ_BUILD_TESTS=OFF -DKPZ_BUILD_TOOLS=OFF &&
       cmake --build "$work/before-build" --target kpz_bench_run -j "$jobs"; } \
       >"$out/build-before.log" 2>&1; then
    bbin="$work/before-build/bin"
    for job in locate main; do
      if have valgrind; then
        one="$(bin="$bbin" cg_total "$norep" "$job" 1)"
        three="$(bin="$bbin" cg_total "$norep" "$job" 3)"
        fact "before.instr.$job.norep" "$(( (three - one) / (2 * cg_files) ))"
      fi
      fact "before.allocs.$job" "$(allocs_of "$bbin" "$job" "$manifest")"
      if have strace; then
        one="$(bin="$bbin" st_calls "$job" 1)"
        three="$(bin="$bbin" st_calls "$job" 3)"
        fact "before.syscalls.$job" "$(awk -v a="$one" -v b="$three" -v n="$st_files" 'BEGIN { printf "%.1f", (b - a) / (2 * n) }')"
      fi
      fact "before.us.$job" "$("$bbin/kpz_bench_run" "$job" "$manifest" --rounds 20 2>/dev/null | sed -n 's/.*, \([0-9.]*\) us\/job.*/\1/p')"
      fact "after.us.$job" "$("$bin/kpz_bench_run" "$job" "$manifest" --rounds 20 2>/dev/null | sed -n 's/.*, \([0-9.]*\) us\/job.*/\1/p')"
    done
    fact "before.us.floorhead" "$("$bin/kpz_bench_run" floorhead "$manifest" --rounds 20 2>/dev/null | sed -n 's/.*, \([0-9.]*\) us\/job.*/\1/p')"
    paired_of "$bbin" before.paired
  else
    log "the library at $before_rev did not build with this harness (see $out/build-before.log)"
  fi
  git -C "$root" worktree remove --force "$work/before-src" >/dev/null 2>&1 || true
fi

# ---- 5. cost against preview length -----------------------------------------
log "cost against preview length: $sweep_sizes bytes"
for size in $sweep_sizes; do
  dir="$work/size-$size"
  mkdir -p "$dir"
  "$bin/kpz_bench_run" corpus --out "$dir" --files 8 --preview-bytes "$size" --sparse >/dev/null
  "$bin/kpz_bench" --kpz_corpus="$dir/manifest.tsv" --benchmark_filter='^(MainPath|Floor|LocateOnly|Exiv2PreviewManager)/' \
    --benchmark_repetitions="$sweep_reps" --benchmark_min_time="$min_time" \
    --benchmark_enable_random_interleaving=true --benchmark_out="$out/bench-size-$size.json" --benchmark_out_format=json >/dev/null 2>&1
  rm -rf "$dir"
done

fi  # cli_only

# ---- 6. the 1,000-file corpus: cost against number of files, CLI throughput ----
# The filler of these files is a hole (sparse files): 1,000 x 13.5 MB of
# written filler would cost 13 GB of disk and page cache, and no tool
# measured here reads it.
cli="$work/cli"
mkdir -p "$cli"
gen="$("$bin/kpz_bench_run" corpus --out "$cli" --files "$cli_files" --sparse)"
log "$gen"
fact cli.files "$cli_files"
fact cli.corpus_seconds "$(echo "$gen" | sed -n 's/.*, \([0-9.]*\) s$/\1/p')"
fact cli.corpus_disk "$(du -sh "$cli" | cut -f1)"
fact cli.corpus_apparent "$(du -sh --apparent-size "$cli" | cut -f1)"
cut -f6 "$cli/manifest.tsv" >"$work/cli.list"

if [ "$cli_only" -eq 0 ]; then
  log "cost against number of files: $sweep_files"
  for n in $sweep_files; do
    "$bin/kpz_bench" --kpz_corpus="$cli/manifest.tsv" --kpz_files="$n" \
      --benchmark_filter='^(MainPath|Floor)/' --benchmark_repetitions="$sweep_reps" \
      --benchmark_enable_random_interleaving=true \
      --benchmark_min_time="$min_time" --benchmark_out="$out/bench-files-$n.json" \
      --benchmark_out_format=json >/dev/null 2>&1
  done
fi

# ---- 7. the command-line tools over the 1,000 files ----------------------------
# Every pass starts alike: the outputs of the previous pass removed and every
# dirty page written back (sync; neither is timed). GNU time then gives the
# user and system CPU time of everything the pass ran
# (xargs and each process it started). One process for all files is xargs -n
# <all>; at -j 2 kpz reads two files at once in its one process, while exiv2
# and exiftool, which have no such option, run as two processes of half the
# files each. One process per file is xargs -n 1 -P <jobs>.
out_dir="$work/out"
clean_outputs() {
  [ -d "$cli" ] && find "$cli" -name '*.jpg' -delete
  rm -rf "$out_dir"; mkdir -p "$out_dir"
}
count_outputs() {
  { [ -d "$cli" ] && find "$cli" -name '*.jpg'; find "$out_dir" -name '*.jpg'; } | wc -l
}
tfile="$work/time.txt"
pass() {  # <key> <command...>: one timed pass; facts cli.<key>.{wall,cpu,outputs,load}
  local key="$1"; shift
  clean_outputs
  sync
  local t0 t1
  t0="$(now)"
  /usr/bin/time -f '%U %S' -o "$tfile" "$@" >/dev/null 2>&1 || true
  t1="$(now)"
  # With a non-zero exit GNU time adds a line before the figures.
  local user sys
  read -r user sys < <(tail -1 "$tfile")
  fact "cli.$key.wall" "$(elapsed "$t0" "$t1")"
  fact "cli.$key.cpu" "$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.2f", u + s }')"
  fact "cli.$key.outputs" "$(count_outputs)"
  fact "cli.$key.load" "$(load1)"
}
have_kpz=0
[ -x "$kpz" ] && have_kpz=1
have exiv2 && have_exiv2=1 || have_exiv2=0
have exiftool && have_exiftool=1 || have_exiftool=0
fact cli.jobs "$jobs"
fact cli.rounds "$cli_rounds"
cmd=()
command_of() {  # <tool> <how> <list> <files>: sets cmd to the command of one pass
  local tool="$1" how="$2" list="$3" n="$4"
  local h=$(( (n + jobs - 1) / jobs ))
  case "$tool.$how" in
    kpz.batch.j1)      cmd=(xargs -a "$list" -n "$n" -P 1 "$kpz" preview -j 1 -o "$out_dir") ;;
    kpz.batch.jN)      cmd=(xargs -a "$list" -n "$n" -P 1 "$kpz" preview -j "$jobs" -o "$out_dir") ;;
    kpzsync.batch.j1)  cmd=(xargs -a "$list" -n "$n" -P 1 "$kpz" preview --sync -j 1 -o "$out_dir") ;;
    kpzsync.batch.jN)  cmd=(xargs -a "$list" -n "$n" -P 1 "$kpz" preview --sync -j "$jobs" -o "$out_dir") ;;
    kpz.each.j1)       cmd=(xargs -a "$list" -n 1 -P 1 "$kpz" preview) ;;
    kpz.each.jN)       cmd=(xargs -a "$list" -n 1 -P "$jobs" "$kpz" preview) ;;
    exiv2.batch.j1)    cmd=(xargs -a "$list" -n "$n" -P 1 exiv2 -q -ep2 -f -l "$out_dir") ;;
    exiv2.batch.jN)    cmd=(xargs -a "$list" -n "$h" -P "$jobs" exiv2 -q -ep2 -f -l "$out_dir") ;;
    exiv2.each.j1)     cmd=(xargs -a "$list" -n 1 -P 1 exiv2 -q -ep2 -f -l "$out_dir") ;;
    exiv2.each.jN)     cmd=(xargs -a "$list" -n 1 -P "$jobs" exiv2 -q -ep2 -f -l "$out_dir") ;;
    exiftool.batch.j1) cmd=(xargs -a "$list" -n "$n" -P 1 exiftool -q -b -OtherImage -w "$out_dir/%f.other.jpg") ;;
    exiftool.batch.jN) cmd=(xargs -a "$list" -n "$h" -P "$jobs" exiftool -q -b -OtherImage -w "$out_dir/%f.other.jpg") ;;
  esac
}
tools_for() {  # <how>: the tools measured that way, in this round's order (<round>)
  local how="$1" round="$2" list=""
  [ "$have_kpz" -eq 1 ] && list="kpz"
  [ "$have_exiv2" -eq 1 ] && list="$list exiv2"
  case "$how" in batch.*) [ "$have_exiftool" -eq 1 ] && list="$list exiftool" ;; esac
  if [ $((round % 2)) -eq 1 ]; then
    echo "$list" | tr ' ' '\n' | tac | tr '\n' ' '
  else
    echo "$list"
  fi
}

log "CLI: every output compared byte for byte ($cli_files files)"
# Warm page cache: the floor job reads exactly the head and the preview.
"$bin/kpz_bench_run" floor "$cli/manifest.tsv" >/dev/null
cmp_dir="$work/cmp"
rm -rf "$cmp_dir"; mkdir -p "$cmp_dir/kpz" "$cmp_dir/exiv2" "$cmp_dir/exiftool"
if [ "$have_kpz" -eq 1 ]; then
  xargs -a "$work/cli.list" -n "$cli_files" "$kpz" preview -o "$cmp_dir/kpz" >/dev/null 2>&1 || true
  fact cli.kpz.written "$(find "$cmp_dir/kpz" -name '*.preview.jpg' | wc -l)"
  for peer in exiv2 exiftool; do
    [ "$peer" = exiv2 ] && [ "$have_exiv2" -eq 0 ] && continue
    [ "$peer" = exiftool ] && [ "$have_exiftool" -eq 0 ] && continue
    if [ "$peer" = exiv2 ]; then
      xargs -a "$work/cli.list" -n "$cli_files" exiv2 -q -ep2 -f -l "$cmp_dir/exiv2" >/dev/null 2>&1 || true
    else
      xargs -a "$work/cli.list" -n "$cli_files" exiftool -q -b -OtherImage \
        -w "$cmp_dir/exiftool/%f.other.jpg" >/dev/null 2>&1 || true
    fi
    same=0
    while read -r f; do
      b="$(basename "$f" .kpz)"
      theirs="$cmp_dir/exiv2/$b-preview2.jpg"
      [ "$peer" = exiftool ] && theirs="$cmp_dir/exiftool/$b.other.jpg"
      cmp -s "$cmp_dir/kpz/$b.preview.jpg" "$theirs" && same=$((same + 1))
    done <"$work/cli.list"
    fact "cli.$peer.same" "$same"
  done
fi
rm -rf "$cmp_dir"

log "CLI throughput over $cli_files files: $cli_rounds rounds, -j 1 and -j $jobs"
fact load.before_cli "$(load1)"
for round in $(seq 0 $((cli_rounds - 1))); do
  for how in batch.j1 batch.jN each.j1 each.jN; do
    for tool in $(tools_for "$how" "$round"); do
      command_of "$tool" "$how" "$work/cli.list" "$cli_files"
      pass "r$round.$tool.$how" "${cmd[@]}"
    done
  done
  # What --sync costs; once is enough to show it.
  if [ "$round" -eq 0 ] && [ "$have_kpz" -eq 1 ]; then
    for how in batch.j1 batch.jN; do
      command_of kpzsync "$how" "$work/cli.list" "$cli_files"
      pass "r0.kpzsync.$how" "${cmd[@]}"
    done
  fi
  log "CLI round $((round + 1)) of $cli_rounds done (load $(load1))"
done
clean_outputs

# ---- 8. the command-line tools against preview length --------------------------
# One process for all files at -j 1, kpz and exiv2 in alternating order; as
# many files as fit in $cli_size_bytes of previews (at most 200).
size_rounds=3; size_cap=200
[ "$quick" -eq 1 ] && { size_rounds=1; size_cap=20; }
if [ "$have_kpz" -eq 1 ]; then
  log "CLI against preview length: $cli_sizes bytes"
  rm -rf "$cli"  # the 1,000 files are done with
  for size in $cli_sizes; do
    n=$(( cli_size_bytes / size )); [ "$n" -gt "$size_cap" ] && n=$size_cap; [ "$n" -lt 4 ] && n=4
    sdir="$work/clisize"
    rm -rf "$sdir"; mkdir -p "$sdir"
    "$bin/kpz_bench_run" corpus --out "$sdir" --files "$n" --preview-bytes "$size" --sparse >/dev/null
    cut -f6 "$sdir/manifest.tsv" >"$work/size.list"
    "$bin/kpz_bench_run" floor "$sdir/manifest.tsv" >/dev/null
    fact "cli.size.$size.files" "$n"
    for round in $(seq 0 $((size_rounds - 1))); do
      tools="kpz"; [ "$have_exiv2" -eq 1 ] && tools="kpz exiv2"
      [ $((round % 2)) -eq 1 ] && tools="$(echo "$tools" | tr ' ' '\n' | tac | tr '\n' ' ')"
      for tool in $tools; do
        command_of "$tool" batch.j1 "$work/size.list" "$n"
        pass "size.$size.r$round.$tool" "${cmd[@]}"
      done
    done
    rm -rf "$sdir"
  done
fi
clean_outputs
fact load.end "$(cut -d' ' -f1-3 /proc/loadavg)"

# ---- the report -------------------------------------------------------------
python3 "$root/bench/bench_report.py" "$out" | tee "$out/table.md"
