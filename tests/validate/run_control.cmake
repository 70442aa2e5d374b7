# cmake -DHOST=... -DEMULATOR=... -DCORRECT=... -DLIBRARY=... -DENGINE=... -DFAULT=... -DCASE=... -DREASON=... -DLIMIT=...
#     -P run_control.cmake
#
# Runs one case on a correct library, where it must hold, and on one with a fault, where it must fail for that reason.

function(run library fault expected_status expected_output)
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -E env "VEXLANE_FAULT=${fault}" ${EMULATOR} "${HOST}" validate
            --plugin "${library}" --engine "${ENGINE}" --case "${CASE}" --time-limit ${LIMIT}
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors TIMEOUT 120)
    if(NOT status STREQUAL expected_status OR NOT output MATCHES "${expected_output}")
        message(FATAL_ERROR "With the fault \"${fault}\" the exit status is ${status}:\n${output}${errors}")
    endif()
    message("${output}")
endfunction()

string(REGEX REPLACE "([][+.*()^$?|\\\\])" "\\\\\\1" sentence "${CASE}")
run("${CORRECT}" "" 0 "^ok     ${sentence}\r?\n$")
run("${LIBRARY}" "${FAULT}" 2 "^fails  ${sentence}: ${REASON}")
