# The demo session end to end: runs conflink_demo with tracing to a file on queue numbers of its
# own, then checks what the three programs said, what the trace shows of the exchange, and the
# clean end (status 0, no demo process and no queue object of those numbers left). Whatever it
# finds left behind it removes, so that a failure does not leak into later runs.
#
#   cmake -DDEMO=path/to/conflink_demo -DWORK=dir -P demo_session_test.cmake
string(RANDOM LENGTH 4 ALPHABET 0123456789 random)
math(EXPR cc "46000 + 2 * ${random}")
math(EXPR cgi "${cc} + 1")
file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
set(trace "${WORK}/trace.txt")
set(ENV{CONFLINK_TRACE} "${trace}")
execute_process(COMMAND ${DEMO} ${cc} RESULT_VARIABLE status OUTPUT_VARIABLE out
                ERROR_VARIABLE err TIMEOUT 60)
file(WRITE "${WORK}/output.txt" "${out}")

set(problems "")
macro(expect text what)
  string(FIND "${${what}}" "${text}" at)
  if(at EQUAL -1)
    string(APPEND problems "${what} lacks: ${text}\n")
  endif()
endmacro()

if(NOT status EQUAL 0)
  string(APPEND problems "conflink_demo ended with ${status}\n")
endif()
# What the programs said: each kind of step of the session, and its clean end.
foreach(line
    "CGI  conference 1001 created: ok"
    "CGI  general settings saved and read back: ok"
    "CGI  gain control saved and read back: ok"
    "PS   ada joins conference 1001 as party 100"
    "PS   party 100: active -> held"
    "CC   party 100 has left"
    "CC   a participant without a SIP address cannot be called: refusing"
    "CGI  reservation added and listed: ok"
    "CGI  two registered users listed: ok"
    "CGI  saving into an unknown conference refused: ok"
    "CGI  session complete"
    "demo: exchange complete, every program ended cleanly, no queue left")
  expect("${line}" out)
endforeach()
# What the trace shows: both links, both directions, a command refused, the peers leaving.
if(EXISTS "${trace}")
  file(READ "${trace}" traced)
else()
  set(traced "")
endif()
foreach(line
    " cgi queue ${cgi} send CreateConference(1, 7, ConferenceParams{general=ConfGeneralParams{text1=\"Weekly staff meeting\""
    " cgi queue ${cgi} recv CreateConference(1, 7, "
    " cgi queue ${cgi} send ConferenceCreated(1, ConfIDString{id=\"1001\"}) [type 287, mark 2] -> 1"
    " cc queue ${cc} send SetupConference(9001, ConfIDString{id=\"1001\"}, "
    " cc queue ${cc} recv JoinAccept("
    " cc queue ${cc} send ReportError(9003, 420) [type 113, mark 0] -> 1"
    " cgi queue ${cgi} recv CgiReportError("
    " cc queue ${cc} recv queue event: the peer left"
    " cgi queue ${cgi} recv queue event: the peer left")
  expect("${line}" traced)
endforeach()

# The clean end, checked and enforced.
file(GLOB left /dev/shm/conflink.*.${cc} /dev/shm/conflink.*.${cgi})
if(left)
  string(APPEND problems "queue objects left: ${left}\n")
  file(REMOVE ${left})
endif()
execute_process(COMMAND pgrep -f "conflink_demo_(ps|cc|cgi) (${cc}|${cgi})( |$)"
                OUTPUT_VARIABLE pids OUTPUT_STRIP_TRAILING_WHITESPACE)
if(pids)
  string(REPLACE "\n" ";" pids "${pids}")
  string(APPEND problems "demo processes left: ${pids}\n")
  execute_process(COMMAND kill -9 ${pids})
endif()

if(problems)
  message(FATAL_ERROR "${problems}--- output:\n${out}--- errors:\n${err}")
endif()
