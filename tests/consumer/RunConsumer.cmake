# Script mode: see CMakeLists.txt beside it.
file(REMOVE_RECURSE ${WORK})
set(prefix ${WORK}/prefix)

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "failed: ${ARGN}\n${out}\n${err}")
    endif()
    set(last_output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${QUILLET_BUILD} --prefix ${prefix})

# find_package(Quillet)
run(${CMAKE_COMMAND} -S ${CONSUMER_SOURCE} -B ${WORK}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX})
run(${CMAKE_COMMAND} --build ${WORK}/build)
set(ENV{LD_LIBRARY_PATH} ${prefix}/lib)
set(ENV{QUILLET_HOME} ${prefix}/share/quillet)
run(${WORK}/build/consumer)
message(STATUS "find_package consumer: ${last_output}")

# pkg-config
file(GLOB pcdir ${prefix}/lib*/pkgconfig)
set(ENV{PKG_CONFIG_PATH} ${pcdir})
run(pkg-config --cflags --libs quillet)
string(STRIP "${last_output}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
run(${CXX} ${CONSUMER_SOURCE}/main.cpp -o ${WORK}/consumer-pc ${flags})
run(${WORK}/consumer-pc)
message(STATUS "pkg-config consumer: ${last_output}")
