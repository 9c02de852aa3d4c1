# Sourced by the web pages' test and benchmark: starts lighttpd on a free port of 127.0.0.1 with
# the configuration made from the template.
#
# start_lighttpd: reads $lighttpd, $curl, $template, $work, $queue and $records; on success sets
# $port and $lighttpd_pid (for the caller's cleanup) and returns 0; otherwise returns 1 with
# lighttpd's own words in $work/lighttpd.out. A port already taken makes lighttpd exit: another
# is tried, eight at most.
start_lighttpd() {
  local attempt started=""
  for attempt in 1 2 3 4 5 6 7 8; do
    port=$((20000 + (RANDOM * 7 + $$ + attempt * 101) % 40000))
    sed -e "s|@PORT@|$port|" -e "s|@DOCROOT@|$work/docroot|" -e "s|@LOGDIR@|$work|" \
      -e "s|@QUEUE@|$queue|" -e "s|@RECORDS@|$records|" "$template" >"$work/lighttpd.conf"
    "$lighttpd" -D -f "$work/lighttpd.conf" >"$work/lighttpd.out" 2>&1 &
    lighttpd_pid=$!
    for _ in $(seq 50); do
      if "$curl" -sf -o /dev/null --max-time 2 "http://127.0.0.1:$port/plain.cgi"; then
        started=yes
        break
      fi
      kill -0 "$lighttpd_pid" 2>/dev/null || break
      sleep 0.1
    done
    [ -n "$started" ] && return 0
    kill -TERM "$lighttpd_pid" 2>/dev/null
    wait "$lighttpd_pid" 2>/dev/null
    lighttpd_pid=""
  done
  return 1
}
