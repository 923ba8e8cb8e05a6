# Script mode: see CMakeLists.txt beside it.
#
# The installed copy must work on its own: the source tree's code page tables
# are hidden while the installed programs run, QUILLET_HOME is unset, and the
# prefix is not the one the build was configured for.
set(locale ${SOURCE_DIR}/locale)
set(hidden ${SOURCE_DIR}/locale.hidden-by-consumer-test)
# A run that was killed half way leaves the tables hidden: put them back.
if(EXISTS ${hidden} AND NOT EXISTS ${locale})
    file(RENAME ${hidden} ${locale})
endif()
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)
unset(ENV{QUILLET_HOME})
unset(ENV{LD_LIBRARY_PATH})

# Runs a command; on failure remembers the first error instead of stopping,
# so that the tables are always put back.
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err
                    INPUT_FILE ${input})
    if(NOT rc EQUAL 0 AND NOT failure)
        set(failure "failed: ${ARGN}\n${out}\n${err}" PARENT_SCOPE)
    endif()
    set(last_output "${out}" PARENT_SCOPE)
    set(last_error "${err}" PARENT_SCOPE)
endfunction()
function(expect text output what)
    string(FIND "${output}" "${text}" at)
    if(at EQUAL -1 AND NOT failure)
        set(failure "${what}: expected \"${text}\" in:\n${output}" PARENT_SCOPE)
    endif()
endfunction()

# The README's example program, cut out exactly as it stands there.
file(READ ${SOURCE_DIR}/README.md readme)
string(REGEX MATCH "<!-- consumer-test: layer_tour.cpp -->\n```cpp\n(.*)" example "${readme}")
string(FIND "${CMAKE_MATCH_1}" "\n```" end)
if(end EQUAL -1)
    message(FATAL_ERROR "README.md: no example marked consumer-test: layer_tour.cpp")
endif()
string(SUBSTRING "${CMAKE_MATCH_1}" 0 ${end} example)
file(WRITE ${WORK}/layer_tour.cpp "${example}\n")

set(input /dev/null)
run(${CMAKE_COMMAND} --install ${QUILLET_BUILD} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} -DEXAMPLE=${WORK}/layer_tour.cpp)
run(${CMAKE_COMMAND} --build ${WORK}/build)
file(GLOB pcdir ${prefix}/lib*/pkgconfig)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
run(pkg-config --cflags --libs quillet)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} ${CONSUMER_SOURCE}/main.cpp -o ${WORK}/consumer-pc ${flags})
# "Moskva" in code page 866.
string(ASCII 140 174 225 170 162 160 moskva)
file(WRITE ${WORK}/866.txt "${moskva}\n")

if(NOT failure)
    file(RENAME ${locale} ${hidden})
    run(${WORK}/build/consumer)
    message(STATUS "find_package consumer: ${last_output}")
    # Linked through pkg-config alone: the library is found through the rpath.
    run(${WORK}/consumer-pc)
    message(STATUS "pkg-config consumer: ${last_output}")
    # The example on a layer another program wrote, indexed by the installed tool.
    if(EXISTS ${SAMPLES}/gdal_point.shp)
        file(COPY ${SAMPLES}/gdal_point.shp ${SAMPLES}/gdal_point.shx ${SAMPLES}/gdal_point.dbf
             DESTINATION ${WORK}/layer)
        run(${prefix}/bin/quillet sbn build ${WORK}/layer/gdal_point.shp)
        run(${WORK}/build/layer_tour ${WORK}/layer/gdal_point.shp)
        expect("features in bins that meet" "${last_output}" "the README's example")
    else()
        message(STATUS "no ${SAMPLES}: the README's example is built but not run")
    endif()
    # The manual page and the completion, made from the tool's help.
    file(READ ${prefix}/share/man/man1/quillet.1 man)
    expect(".SS \"quillet sbn build SHP...\"" "${man}" "the installed manual page")
    run(bash -c "source ${prefix}/share/bash-completion/completions/quillet && COMP_WORDS=(quillet sbn bu) COMP_CWORD=2 && _quillet && echo \${COMPREPLY[*]}")
    expect("build" "${last_output}" "the installed bash completion")
    set(input ${WORK}/866.txt)
    run(${prefix}/bin/quillet codepage decode 866)
    expect("Москва" "${last_output}" "installed quillet codepage decode 866")
    # With the installed tables gone too, the debug output says so (and the
    # tool may refuse the code page it can no longer convert).
    file(RENAME ${prefix}/share/quillet ${prefix}/share/quillet.gone)
    set(ENV{QUILLET_DEBUG} 1)
    execute_process(COMMAND ${prefix}/bin/quillet codepage decode 866 INPUT_FILE ${input}
                    OUTPUT_QUIET ERROR_VARIABLE debug)
    expect("no code page table folder" "${debug}" "QUILLET_DEBUG without tables")
    file(RENAME ${hidden} ${locale})
endif()
if(failure)
    message(FATAL_ERROR "${failure}")
endif()
