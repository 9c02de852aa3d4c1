# Shared by check.sh and update.sh (sourced).

# Whether abidiff's report `$1` and exit status `$2` show a change that breaks programs built
# against the old side. abidiff sets its incompatible bit (8) for removed functions and symbols
# only; a changed function or type (a moved virtual function, a field of another type) it
# reports under "Changed" with status 4. So a removal or a change of anything the old side had
# breaks; additions alone do not.
abi_breaks() {
  local report=$1 rc=$2
  ((rc & 8)) && return 0
  grep -Eq 'summary: ([1-9][0-9]* Removed|[0-9]+ Removed( \([0-9]+ filtered out\))?, [1-9][0-9]* Changed)' \
    <<<"$report"
}
