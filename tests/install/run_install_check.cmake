# Installs a TQDB build into a scratch prefix, then configures, builds and runs the
# outside project in this folder against that prefix.
#
#   cmake -DTQDB_BUILD_DIR=<build tree> -DCHECK_SOURCE_DIR=<this folder>
#         -DCHECK_WORK_DIR=<scratch folder> [-DCHECK_FLAGS=<compile and link flags>]
#         -P run_install_check.cmake

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}")
  endif()
  message(STATUS "${what}: ok")
endfunction()

file(REMOVE_RECURSE "${CHECK_WORK_DIR}")
set(prefix "${CHECK_WORK_DIR}/prefix")

run_step("install" ${CMAKE_COMMAND} --install "${TQDB_BUILD_DIR}" --prefix "${prefix}")
run_step("configure" ${CMAKE_COMMAND} -S "${CHECK_SOURCE_DIR}" -B "${CHECK_WORK_DIR}/build"
         "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_FLAGS=${CHECK_FLAGS}"
         "-DCMAKE_EXE_LINKER_FLAGS=${CHECK_FLAGS}")
run_step("build" ${CMAKE_COMMAND} --build "${CHECK_WORK_DIR}/build")
run_step("run" "${CHECK_WORK_DIR}/build/install_check")
