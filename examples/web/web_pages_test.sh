#!/usr/bin/env bash
# Admin pages under a real lighttpd, against a real server of the CGI link:
#   1. pages one after the other, each showing its own answer with the right data;
#   2. 400 pages, 16 at a time: every one answered (2xx) with its own answer;
#   3. pages killed (SIGKILL, SIGTERM) while they wait for a slow answer, each followed at once
#      by pages that must all show their own answer and never be handed the killed page's;
#   4. nothing left: no page process, lighttpd stopped, the server ended cleanly and the queue
#      object gone from /dev/shm.
#
#   web_pages_test.sh PS_PROGRAM PAGE_PROGRAM PLAIN_PAGE_PROGRAM LIGHTTPD_CONF_TEMPLATE
#   (LIGHTTPD, AB and CURL name the programs; by default they are looked up on PATH; the build
#    registers it as the test web_pages: ctest --preset default -R web_pages)
set -u

ps_program=$(readlink -f "$1")
page_program=$(readlink -f "$2")
plain_program=$(readlink -f "$3")
template=$4
lighttpd=${LIGHTTPD:-lighttpd}
ab=${AB:-ab}
curl=${CURL:-curl}

slow_ms=1500                         # what a slow request costs the server
queue=$((40000 + $$ % 20000))         # one of its own, so that parallel runs do not meet
queue_glob="/dev/shm/conflink.$(id -u)._bin_ping.*.$queue"
work=$(mktemp -d "${TMPDIR:-/tmp}/conflink-web-test.XXXXXX")
ps_pid=""
lighttpd_pid=""
watchdog_pid=""

say() { printf '%s %s\n' "$(date +%H:%M:%S.%N | cut -c1-12)" "$*"; }
fail() {
  say "FAIL: $*"
  exit 1
}

# The page processes lighttpd is running now.
pages_running() {
  [ -n "$lighttpd_pid" ] && pgrep -P "$lighttpd_pid" 2>/dev/null
}

cleanup() {
  local status=$?
  trap - EXIT INT TERM
  [ -n "$watchdog_pid" ] && kill "$watchdog_pid" 2>/dev/null
  if [ -n "$lighttpd_pid" ]; then
    for pid in $(pages_running); do kill -KILL "$pid" 2>/dev/null; done
    kill -TERM "$lighttpd_pid" 2>/dev/null
    wait "$lighttpd_pid" 2>/dev/null
  fi
  if [ -n "$ps_pid" ]; then
    kill -TERM "$ps_pid" 2>/dev/null
    for _ in $(seq 50); do kill -0 "$ps_pid" 2>/dev/null || break; sleep 0.1; done
    kill -KILL "$ps_pid" 2>/dev/null
    wait "$ps_pid" 2>/dev/null
  fi
  # Only a run that failed leaves its queue object behind; it is this run's own.
  rm -f $queue_glob
  if [ "$status" -ne 0 ]; then
    say "lighttpd's error log:"
    tail -n 20 "$work/lighttpd-error.log" 2>/dev/null
    say "server's output:"
    cat "$work/ps.out" 2>/dev/null
  fi
  rm -rf "$work"
  exit "$status"
}
trap cleanup EXIT
trap 'exit 1' INT TERM

# Bounded even when a step hangs: the run ends itself (and cleans up) before ctest would kill it.
(
  sleep 120 >/dev/null 2>&1 &
  sleeper=$!
  trap 'kill $sleeper 2>/dev/null; exit 0' TERM
  wait $sleeper && say "FAIL: the run took over 120 s" && kill -TERM $$
) &
watchdog_pid=$!

# ---- Start lighttpd, then the server ----
mkdir -p "$work/docroot"
ln -s "$page_program" "$work/docroot/page.cgi"
ln -s "$plain_program" "$work/docroot/plain.cgi"
records="$work/records"
. "$(dirname "$template")/start_lighttpd.sh"
start_lighttpd || fail "lighttpd did not start: $(cat "$work/lighttpd.out")"
base="http://127.0.0.1:$port"
say "lighttpd pid $lighttpd_pid on $base"

# ---- One page, checked ----
# fetch QUERY: the page's lines in the array `page` (by their first word), its HTTP status in
# $code. Read with the shell's own means: starting processes is what costs most here.
declare -A page
fetch() {
  code=$("$curl" -s -o "$work/page" -w '%{http_code}' --max-time 10 "$base/page.cgi?$1")
  page=()
  local key rest
  while IFS=' ' read -r key rest; do
    [ -n "$key" ] && [ -z "${page[$key]+set}" ] && page[$key]=$rest
  done <"$work/page"
}
# check_page QUERY CONF KIND TITLE VALUE: the page answered 200 with its own answer, of KIND,
# with that conference's data, and saw no answer of another request.
check_page() {
  fetch "$1"
  local sent=${page[sent]:-} answer=${page[answer]:-}
  [ "$code" = 200 ] || fail "page $1: HTTP $code: $(cat "$work/page")"
  [ -n "$sent" ] && [ "$answer" = "$sent $3" ] ||
    fail "page $1 sent $sent but shows the answer '$answer' (expected '$sent $3')"
  [ "${page[conf]:-}" = "$2" ] || fail "page $1 shows conference '${page[conf]:-}'"
  [ "${page[title]:-}" = "$4" ] || fail "page $1 shows title '${page[title]:-}', expected '$4'"
  [ "${page[value]:-}" = "$5" ] || fail "page $1 shows value '${page[value]:-}', expected '$5'"
  [ "${page[passed-over]:-}" = 0 ] ||
    fail "page $1 was handed ${page[passed-over]:-?} answer(s) of other requests"
}

# ---- 0. No server yet: the page says so at once, and leaves no queue behind ----
fetch "conf=1&op=get"
[ "$code" = 502 ] || fail "a page with no server answered HTTP $code: $(cat "$work/page")"
for f in $queue_glob; do [ -e "$f" ] && fail "a page with no server left $f behind"; done
"$ps_program" "$queue" "$slow_ms" >"$work/ps.out" 2>&1 &
ps_pid=$!
for _ in $(seq 50); do
  grep -q "serving queue" "$work/ps.out" 2>/dev/null && break
  sleep 0.1
done
grep -q "serving queue" "$work/ps.out" || fail "the server did not start: $(cat "$work/ps.out")"
say "no server: 502 (${page[note]:-}); server pid $ps_pid started on queue $queue"

# ---- 1. Pages one after the other ----
# Every fifth conference is saved with a title of its own first; the others keep the defaults.
t0=$SECONDS
for i in $(seq 1 50); do
  if [ $((i % 5)) -eq 0 ]; then
    check_page "conf=$i&op=set&title=Room+$i" "$i" saved "" 0
  else
    check_page "conf=$i&op=get" "$i" settings "Conference $i" "$i"
  fi
done
for i in 5 25 50; do check_page "conf=$i" "$i" settings "Room $i" "$i"; done
say "53 pages one after the other: each its own answer with its conference's data ($((SECONDS - t0)) s)"

# ---- 2. 400 pages, 16 at a time ----
: >"$records"
"$ab" -q -s 10 -n 400 -c 16 "$base/page.cgi?conf=7&op=get&rec=1" >"$work/ab.out" 2>&1 ||
  fail "ab failed: $(tail -n 5 "$work/ab.out")"
complete=$(sed -n 's/^Complete requests: *//p' "$work/ab.out")
failed=$(sed -n 's/^Failed requests: *//p' "$work/ab.out")
non2xx=$(sed -n 's/^Non-2xx responses: *//p' "$work/ab.out")
[ "$complete" = 400 ] || fail "ab completed '$complete' of 400 pages"
[ "${non2xx:-0}" = 0 ] || fail "$non2xx of 400 pages were not 2xx"
[ "$failed" = 0 ] || fail "ab counted $failed failed pages: $(grep -A3 '^Failed' "$work/ab.out")"
# Each page's own account of its answer.
kept=$(wc -l <"$records")
others=$(awk '$4 != "own" || $5 != 0 || $3 != 200' "$records" | wc -l)
[ "$kept" = 400 ] || fail "$kept of 400 pages kept a record"
[ "$others" = 0 ] || fail "$others of 400 pages got another request's answer or none"
say "400 pages 16 at a time: all 2xx, each its own answer ($(sed -n 's/^Requests per second: *//p' "$work/ab.out"))"

# ---- 3. Pages killed while they wait ----
# wait_for_page: the pid of the page lighttpd runs, once it has been running for 0.3 s (it has
# sent its request by then: the server takes 1.5 s over it).
wait_for_page() {
  local pid=""
  for _ in $(seq 100); do
    pid=$(pages_running | head -n 1)
    [ -n "$pid" ] && break
    sleep 0.02
  done
  [ -n "$pid" ] || fail "the slow page did not start"
  sleep 0.3
  echo "$pid"
}
killed=0
for round in 1 2 3 4 5; do
  # The visitor waits; the page is killed under it. (lighttpd does not end a page whose visitor
  # gave up: it runs until its answer comes or its wait ends.)
  signal=KILL
  [ $((round % 2)) -eq 0 ] && signal=TERM
  "$curl" -s -o /dev/null --max-time 10 "$base/page.cgi?conf=99&op=slow" &
  visitor=$!
  slow_page=$(wait_for_page)
  kill -"$signal" "$slow_page" 2>/dev/null || fail "the slow page $slow_page had already ended"
  how=SIG$signal
  killed=$((killed + 1))
  # Right away, while the server is still at the killed page's request, the next pages.
  for j in $(seq 1 10); do
    c=$((100 + round * 10 + j))
    check_page "conf=$c" "$c" settings "Conference $c" "$c"
  done
  wait "$visitor" 2>/dev/null
  kill -0 "$slow_page" 2>/dev/null && fail "the killed page $slow_page ($how) still runs"
  say "round $round: a page killed while waiting ($how), the 10 pages after it each had their own answer"
done

# ---- 4. Nothing left behind ----
left=$(pages_running)
[ -z "$left" ] || fail "page processes left running: $left"
kill -TERM "$lighttpd_pid"
wait "$lighttpd_pid"
lighttpd_pid=""
kill -TERM "$ps_pid"
ps_status=0
wait "$ps_pid" || ps_status=$?
ps_pid=""
[ "$ps_status" = 0 ] || fail "the server ended with status $ps_status: $(cat "$work/ps.out")"
# It answered each killed page after the page was gone; the queue refused those answers at the
# send (or dropped them on arrival): none of the 50 pages after them was handed one.
grep -q "$killed slow request" "$work/ps.out" ||
  fail "the server did not see the $killed slow requests: $(tail -n 1 "$work/ps.out")"
say "$(tail -n 1 "$work/ps.out")"
for f in $queue_glob; do [ -e "$f" ] && fail "the queue object $f is still there"; done
for proc in /proc/[0-9]*; do
  exe=$(readlink "$proc/exe" 2>/dev/null) || continue
  if [ "$exe" = "$page_program" ]; then fail "a page process is left: $proc"; fi
done
say "PASS: nothing left (no page process, lighttpd and the server stopped, queue $queue removed)"
