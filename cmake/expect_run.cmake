# Runs one command and checks its exit status and what it printed, for the tools' tests:
#
#   cmake -DCOMMAND=prog|arg|... -DSTATUS=n [-DSTDOUT=regex] [-DSTDERR=regex] [-DINPUT=file]
#         -P expect_run.cmake
#
# The command's words are separated by '|', so that a word may hold spaces and semicolons.
# (CTest's own pass expressions ignore the exit status, which is half of what a tool promises.)
set(input_args)
if(DEFINED INPUT)
  set(input_args INPUT_FILE ${INPUT})
endif()
string(REPLACE "|" ";" words "${COMMAND}")
execute_process(COMMAND ${words} ${input_args} RESULT_VARIABLE status OUTPUT_VARIABLE out
                ERROR_VARIABLE err TIMEOUT 30)
set(problems "")
if(NOT "${status}" STREQUAL "${STATUS}")
  string(APPEND problems "exit status ${status}, expected ${STATUS}\n")
endif()
if(DEFINED STDOUT AND NOT out MATCHES "${STDOUT}")
  string(APPEND problems "standard output does not match: ${STDOUT}\n")
endif()
if(DEFINED STDERR AND NOT err MATCHES "${STDERR}")
  string(APPEND problems "standard error does not match: ${STDERR}\n")
endif()
if(problems)
  message(FATAL_ERROR "${problems}--- stdout:\n${out}--- stderr:\n${err}")
endif()
