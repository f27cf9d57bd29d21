# Installs the build tree into a scratch prefix (or takes PREFIX, an installed tree), builds the
# consumer project against it and runs the consumer host without LD_LIBRARY_PATH.
# cmake -DBUILD_DIR=|-DPREFIX= -DWORK_DIR= -DSOURCE_DIR= -DCONFIG= -DGENERATOR= -DCXX= [-DSANITIZERS=] -P RunConsumer.cmake
foreach(var WORK_DIR SOURCE_DIR GENERATOR CXX)
    if(NOT ${var})
        message(FATAL_ERROR "${var} is not set")
    endif()
endforeach()
if(NOT CONFIG)
    set(CONFIG Debug)
endif()

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "failed (${result}): ${ARGN}\n${out}\n${err}")
    endif()
endfunction()

set(build "${WORK_DIR}/build")
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${PREFIX}")
if(NOT PREFIX)
    set(prefix "${WORK_DIR}/prefix")
    run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}" --config "${CONFIG}")
endif()

set(flags "")
if(SANITIZERS)
    # A sanitized module loads only into a sanitized process.
    list(APPEND flags "-DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZERS}"
                      "-DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZERS}")
endif()
run("${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${build}" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_BUILD_TYPE=${CONFIG}" "-DCMAKE_PREFIX_PATH=${prefix}"
    -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF ${flags})
run("${CMAKE_COMMAND}" --build "${build}")

execute_process(COMMAND "${CMAKE_COMMAND}" -E env --unset=LD_LIBRARY_PATH "${build}/consumer-host"
    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT result EQUAL 0 OR NOT out STREQUAL "7c9e6679-7425-40de-944b-e07fc1f90ae7\n")
    message(FATAL_ERROR "consumer host (${result}) printed '${out}'\n${err}")
endif()
message(STATUS "installed module loaded: ${out}")
