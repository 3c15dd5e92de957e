# Runs noxsim on a scenario that must fail: checks the exit status (STATUS) and that standard
# error holds the text of the scenario's first line after "# stderr: ".
#   cmake -DNOXSIM=... -DSCENARIO=... -DSTATUS=1 -P RunFailing.cmake
file(STRINGS ${SCENARIO} first LIMIT_COUNT 1)
if(NOT first MATCHES "^# stderr: (.+)$")
  message(FATAL_ERROR "${SCENARIO}: the first line must be '# stderr: TEXT'")
endif()
set(expected "${CMAKE_MATCH_1}")
execute_process(COMMAND ${NOXSIM} --quiet ${SCENARIO}
                RESULT_VARIABLE status OUTPUT_QUIET ERROR_VARIABLE stderr)
if(NOT status EQUAL STATUS)
  message(FATAL_ERROR "exit status ${status}, expected ${STATUS}; standard error:\n${stderr}")
endif()
string(FIND "${stderr}" "${expected}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "standard error lacks '${expected}':\n${stderr}")
endif()
message(STATUS "exit status ${status} with: ${expected}")
