#!/usr/bin/env bash
# Admin pages through lighttpd: what the link costs a page, beside the same page without it.
#
#   page_bench [--quick] [--load N] [--requests N] [--idle-seconds S] [--json FILE]
#   (the build's bench/page_bench wrapper passes --ps, --page, --plain, --conf and --build-type:
#    cmake --preset release && cmake --build build-release --target page_bench &&
#    build-release/bench/page_bench --json page_bench.json)
#
# Prints, at 1, 4 and 16 pages at a time (ab), pages/s and the p50/p99 of a page's time for the
# page with the library and for the plain page, and their ratio; each page's outcome as the page
# itself recorded it (non-2xx, and pages handed another request's answer); the time inside one
# library page split into connect, send, wait and leave, from the records of the one-at-a-time
# run; and the server's CPU time over idle seconds on its readiness loop. --load N runs N busy
# processes during the whole run; --quick is a short run for CI. The figures are judged by the
# reader; the exit status is 1 only when a page was not answered (non-2xx, ab's failures) or
# was handed an answer that was not its own, or kept no record.
set -u

requests=600
idle_seconds=10
load=0
json=""
build_type=unknown
ps_program="" page_program="" plain_program="" template=""
while [ $# -gt 0 ]; do
  case $1 in
    --quick) requests=60; idle_seconds=2 ;;
    --load) load=$2; shift ;;
    --requests) requests=$2; shift ;;
    --idle-seconds) idle_seconds=$2; shift ;;
    --json) json=$2; shift ;;
    --ps) ps_program=$2; shift ;;
    --page) page_program=$2; shift ;;
    --plain) plain_program=$2; shift ;;
    --conf) template=$2; shift ;;
    --build-type) build_type=$2; shift ;;
    *) echo "page_bench: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done
for p in "$ps_program" "$page_program" "$plain_program" "$template"; do
  [ -e "$p" ] || { echo "page_bench: missing program or config '$p' (run the build's wrapper)" >&2; exit 2; }
done
lighttpd=${LIGHTTPD:-$(command -v lighttpd || echo /usr/sbin/lighttpd)}
ab=${AB:-ab}
curl=${CURL:-curl}

queue=$((60000 + $$ % 5000))
queue_glob="/dev/shm/conflink.$(id -u)._bin_ping.*.$queue"
work=$(mktemp -d "${TMPDIR:-/tmp}/conflink-page-bench.XXXXXX")
ps_pid="" lighttpd_pid="" watchdog_pid=""
busy_pids=()

cleanup() {
  local status=$?
  trap - EXIT INT TERM
  [ -n "$watchdog_pid" ] && kill "$watchdog_pid" 2>/dev/null
  for pid in "${busy_pids[@]}"; do kill -KILL "$pid" 2>/dev/null; done
  [ -n "$lighttpd_pid" ] && { kill -TERM "$lighttpd_pid" 2>/dev/null; wait "$lighttpd_pid" 2>/dev/null; }
  [ -n "$ps_pid" ] && { kill -TERM "$ps_pid" 2>/dev/null; wait "$ps_pid" 2>/dev/null; }
  rm -f $queue_glob
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT
trap 'exit 1' INT TERM
die() { echo "page_bench: $*" >&2; exit 1; }

# Bounded even when a step hangs: the run ends itself and cleans up.
limit=$((requests * 6 / 5 + idle_seconds + 60))
(
  sleep "$limit" >/dev/null 2>&1 &
  sleeper=$!
  trap 'kill $sleeper 2>/dev/null; exit 0' TERM
  wait $sleeper && echo "page_bench: over $limit s, stopping" >&2 && kill -TERM $$
) &
watchdog_pid=$!

# ---- lighttpd and the server ----
mkdir -p "$work/docroot"
ln -s "$(readlink -f "$page_program")" "$work/docroot/page.cgi"
ln -s "$(readlink -f "$plain_program")" "$work/docroot/plain.cgi"
records="$work/records"
"$ps_program" "$queue" >"$work/ps.out" 2>&1 &
ps_pid=$!
. "$(dirname "$template")/start_lighttpd.sh"
start_lighttpd || die "lighttpd did not start: $(cat "$work/lighttpd.out")"
for _ in $(seq 50); do grep -q "serving queue" "$work/ps.out" && break; sleep 0.1; done
grep -q "serving queue" "$work/ps.out" || die "the server did not start: $(cat "$work/ps.out")"
base="http://127.0.0.1:$port"
"$curl" -sf -o /dev/null --max-time 5 "$base/page.cgi?conf=7" || die "the library page fails"

for _ in $(seq 1 "$load"); do
  sh -c 'while :; do :; done' &
  busy_pids+=($!)
done

echo "page_bench: $build_type build, $(nproc) CPUs, $(uname -r), load average $(cut -d' ' -f1-3 /proc/loadavg)"
echo "  $requests pages per row through lighttpd on 127.0.0.1, $load busy process(es) beside"

# ---- Pages at 1, 4 and 16 at a time ----
# ab_row KIND CONCURRENCY: runs ab, leaves "pages/s p50 p99 non2xx failed" in $row and the
# pages' own records in $work/records.KIND.C.
ab_row() {
  local kind=$1 c=$2 url
  url="$base/$kind.cgi?conf=7&op=get&rec=1"
  : >"$records"
  "$ab" -q -s 10 -n "$requests" -c "$c" -e "$work/ab.csv" "$url" >"$work/ab.out" 2>&1 ||
    die "ab failed: $(tail -n 3 "$work/ab.out")"
  cp "$records" "$work/records.$kind.$c"
  local rps p50 p99 non2xx failed
  rps=$(sed -n 's/^Requests per second: *\([0-9.]*\).*/\1/p' "$work/ab.out")
  p50=$(awk -F, '$1 == 50 {print $2}' "$work/ab.csv")
  p99=$(awk -F, '$1 == 99 {print $2}' "$work/ab.csv")
  non2xx=$(sed -n 's/^Non-2xx responses: *//p' "$work/ab.out")
  failed=$(sed -n 's/^Failed requests: *//p' "$work/ab.out")
  row="$rps $p50 $p99 ${non2xx:-0} ${failed:-0}"
}
# Pages whose own record says they were not answered with their own answer, or saw another's.
wrong_answers() { awk '$3 != 200 || $4 != "own" || $5 != 0' "$1" | wc -l; }

for kind in page plain; do  # warm the caches and the server's store
  "$ab" -q -n 20 -c 2 "$base/$kind.cgi?conf=7&op=get" >/dev/null 2>&1
done
declare -A result
printf '\n  %-4s %-7s %8s %9s %9s %7s %7s %7s %8s\n' C page pages/s p50_ms p99_ms non2xx wrong kept ratio
for c in 1 4 16; do
  for kind in page plain; do
    ab_row "$kind" "$c"
    result[$kind.$c]="$row $(wrong_answers "$work/records.$kind.$c") $(wc -l <"$work/records.$kind.$c")"
  done
  read -r lib_rps _ <<<"${result[page.$c]}"
  read -r plain_rps _ <<<"${result[plain.$c]}"
  ratio=$(awk -v a="$lib_rps" -v b="$plain_rps" 'BEGIN { printf "%.2f", (b > 0 ? a / b : 0) }')
  result[ratio.$c]=$ratio
  for kind in page plain; do
    read -r rps p50 p99 non2xx failed wrong kept <<<"${result[$kind.$c]}"
    label=$([ "$kind" = page ] && echo library || echo plain)
    printf '  %-4s %-7s %8s %9s %9s %7s %7s %7s %8s\n' "$c" "$label" "$rps" "$p50" "$p99" \
      "$non2xx" "$wrong" "$kept" "$([ "$kind" = page ] && echo "${ratio}x" || echo 1)"
  done
done

# ---- Inside one page: connect, send, wait, leave (the one-at-a-time run's records) ----
# Fields 6-9 are nanoseconds; percentiles by rank over the pages that recorded.
split_stats() {
  awk -v col="$1" '$1 == "lib" && $3 == 200 {
      v = (col == 0) ? $6 + $7 + $8 + $9 : $col; print v / 1000.0 }' "$work/records.page.1" |
    sort -n | awk '{ v[NR] = $1 } END {
      if (NR == 0) { print "0 0 0"; exit }
      i50 = int(NR * 0.50 + 0.999999); i99 = int(NR * 0.99 + 0.999999)
      printf "%.1f %.1f %d\n", v[i50], v[i99], NR }'
}
echo
echo "  inside one library page (one at a time), microseconds:"
printf '  %-22s %9s %9s %7s\n' part p50_us p99_us pages
declare -A inside
for part in connect:6 send:7 wait:8 leave:9 total:0; do
  name=${part%%:*}
  inside[$name]=$(split_stats "${part##*:}")
  read -r p50 p99 n <<<"${inside[$name]}"
  label=$([ "$name" = total ] && echo "connect+send+wait+leave" || echo "$name")
  printf '  %-22s %9s %9s %7s\n' "$label" "$p50" "$p99" "$n"
done

# ---- The server idle on its readiness loop ----
cpu_ticks() { awk '{ print $14 + $15 }' "/proc/$ps_pid/stat"; }
cpu_ns() { awk '{ print $1 }' "/proc/$ps_pid/schedstat" 2>/dev/null || echo 0; }
sleep 1  # the last page's departure is taken
ticks0=$(cpu_ticks); ns0=$(cpu_ns)
sleep "$idle_seconds"
ticks1=$(cpu_ticks); ns1=$(cpu_ns)
hz=$(getconf CLK_TCK)
idle_ms=$(awk -v a="$ns0" -v b="$ns1" 'BEGIN { printf "%.3f", (b - a) / 1e6 }')
idle_tick_ms=$(awk -v a="$ticks0" -v b="$ticks1" -v hz="$hz" 'BEGIN { printf "%.0f", (b - a) * 1000 / hz }')
echo
echo "  server idle ${idle_seconds} s: ${idle_ms} ms CPU (schedstat), ${idle_tick_ms} ms by utime+stime (1/${hz} s ticks)"

# ---- Goals ----
read -r rps16 p50_16 p99_16 non2xx16 failed16 wrong16 kept16 <<<"${result[page.16]}"
read -r total_p50 _ <<<"${inside[total]}"
verdict() { if awk "BEGIN { exit !($1) }"; then echo met; else echo MISSED; fi; }
idle_per10=$(awk -v ms="$idle_ms" -v s="$idle_seconds" 'BEGIN { printf "%.3f", ms * 10 / s }')
echo
echo "  goals:"
goal() { printf '    %-58s %s\n' "$1" "$2"; }
goal "16 at a time: 0 non-2xx ($non2xx16)" "$(verdict "$non2xx16 == 0")"
goal "16 at a time: 0 wrong answers ($wrong16 of $kept16 pages recorded)" \
  "$(verdict "$wrong16 == 0 && $kept16 == $requests")"
goal "16 at a time: p99 <= 100 ms ($p99_16 ms)" "$(verdict "$p99_16 <= 100")"
goal "16 at a time: pages/s >= 0.8x plain (${result[ratio.16]}x)" \
  "$(verdict "${result[ratio.16]} >= 0.8")"
goal "one page: connect+send+wait+leave p50 <= 1 ms ($total_p50 us)" \
  "$(verdict "$total_p50 <= 1000")"
goal "server idle: <= 1 ms CPU in 10 s ($idle_per10 ms per 10 s)" "$(verdict "$idle_per10 <= 1")"

# ---- JSON ----
if [ -n "$json" ]; then
  {
    printf '{\n  "bench": "page_bench",\n  "build_type": "%s",\n' "$build_type"
    printf '  "machine": {"cpus": %s, "kernel": "%s", "loadavg_at_start": "%s"},\n' \
      "$(nproc)" "$(uname -r)" "$(cut -d' ' -f1-3 /proc/loadavg)"
    printf '  "requests_per_row": %s,\n  "busy_processes": %s,\n  "rows": [\n' "$requests" "$load"
    sep=""
    for c in 1 4 16; do
      for kind in page plain; do
        read -r rps p50 p99 non2xx failed wrong kept <<<"${result[$kind.$c]}"
        printf '%s    {"concurrency": %s, "page": "%s", "pages_per_s": %s, "p50_ms": %s, "p99_ms": %s, "non_2xx": %s, "failed": %s, "wrong_answers": %s, "records": %s}' \
          "$sep" "$c" "$([ "$kind" = page ] && echo library || echo plain)" "$rps" "$p50" "$p99" \
          "$non2xx" "$failed" "$wrong" "$kept"
        sep=$',\n'
      done
    done
    printf '\n  ],\n  "ratio_library_to_plain": {"1": %s, "4": %s, "16": %s},\n' \
      "${result[ratio.1]}" "${result[ratio.4]}" "${result[ratio.16]}"
    printf '  "inside_one_page_us": {'
    sep=""
    for name in connect send wait leave total; do
      read -r p50 p99 n <<<"${inside[$name]}"
      printf '%s"%s": {"p50": %s, "p99": %s, "pages": %s}' "$sep" "$name" "$p50" "$p99" "$n"
      sep=", "
    done
    printf '},\n  "server_idle": {"seconds": %s, "cpu_ms": %s, "cpu_ms_ticks": %s}\n}\n' \
      "$idle_seconds" "$idle_ms" "$idle_tick_ms"
  } >"$json"
  echo "  written to $json"
fi

# ---- Every page answered with its own answer? ----
unanswered=0
for key in "${!result[@]}"; do
  case $key in ratio.*) continue ;; esac
  read -r _ _ _ non2xx failed wrong kept <<<"${result[$key]}"
  if [ "$non2xx" != 0 ] || [ "$failed" != 0 ] || [ "$wrong" != 0 ] || [ "$kept" != "$requests" ]; then
    echo "page_bench: row $key: $non2xx non-2xx, $failed failed, $wrong wrong, $kept of $requests recorded" >&2
    unanswered=1
  fi
done
exit "$unanswered"
