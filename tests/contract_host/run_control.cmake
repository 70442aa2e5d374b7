# Runs the host with a mismatch, and passes when the host fails and names the check. A crash counts as a failure, a hang
# does not.
execute_process(
    COMMAND ${EMULATOR} "${HOST}" "${LIBRARY}" "${ENGINE}" "${SCRIPT}"
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 120)
string(REGEX MATCHALL "FAILED [^\n\r]*" failed "${output}")
list(JOIN failed "\n" failed)
message("The host exits with ${result}. Checks that fail:\n${failed}")
if(result STREQUAL "0" OR result MATCHES "timeout")
    message(FATAL_ERROR "The host does not fail:\n${output}")
endif()
string(FIND "${failed}" "FAILED ${CHECK}" place)
if(place EQUAL -1)
    message(FATAL_ERROR "The check \"${CHECK}\" does not fail:\n${output}")
endif()
