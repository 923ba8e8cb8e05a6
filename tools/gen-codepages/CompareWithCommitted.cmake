# Runs the generator into WORK_DIR and fails unless every file it makes equals
# the committed one byte for byte (and no committed table is left unmade).
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${GENERATOR} ${WORK_DIR}/locale ${WORK_DIR}/Cns11643Tables.cpp
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "gen-codepages failed: ${result}")
endif()

file(GLOB made RELATIVE ${WORK_DIR}/locale ${WORK_DIR}/locale/*)
file(GLOB committed RELATIVE ${SOURCE_DIR}/locale/codepage ${SOURCE_DIR}/locale/codepage/*)
if(NOT made STREQUAL committed)
    message(FATAL_ERROR "generated files differ from the committed set:\n${made}\n${committed}")
endif()

set(pairs "")
foreach(name IN LISTS made)
    list(APPEND pairs "${WORK_DIR}/locale/${name}|${SOURCE_DIR}/locale/codepage/${name}")
endforeach()
list(APPEND pairs "${WORK_DIR}/Cns11643Tables.cpp|${SOURCE_DIR}/src/codepage/Cns11643Tables.cpp")
foreach(pair IN LISTS pairs)
    string(REPLACE "|" ";" files ${pair})
    list(GET files 0 generated)
    list(GET files 1 original)
    execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${generated} ${original}
                    RESULT_VARIABLE differs)
    if(differs)
        message(FATAL_ERROR "${original} is not what the generator makes (${generated})")
    endif()
endforeach()
