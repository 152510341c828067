# Installs a TQDB build into a scratch prefix, then builds the client in this folder against
# that prefix twice, as outside projects would: with find_package(tqdb) (the CMake project
# here) and with the compiler alone and `pkg-config --cflags --libs tqdb`. A shared library
# must export the public interface only. Last, a project that adds TQDB's source tree with
# add_subdirectory is configured (subproject/): it must get the library alone.
#
#   cmake -DTQDB_BUILD_DIR=<build tree> -DCHECK_SOURCE_DIR=<this folder>
#         -DCHECK_WORK_DIR=<scratch folder> -DCHECK_CXX=<C++ compiler>
#         [-DCHECK_FLAGS=<compile and link flags>] -P run_install_check.cmake

function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}")
  endif()
  message(STATUS "${what}: ok")
  set(step_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${CHECK_WORK_DIR}")
set(prefix "${CHECK_WORK_DIR}/prefix")
separate_arguments(flags UNIX_COMMAND "${CHECK_FLAGS}")

run_step("install" ${CMAKE_COMMAND} --install "${TQDB_BUILD_DIR}" --prefix "${prefix}")
run_step("find_package: configure" ${CMAKE_COMMAND} -S "${CHECK_SOURCE_DIR}"
         -B "${CHECK_WORK_DIR}/build" "-DCMAKE_PREFIX_PATH=${prefix}"
         "-DCMAKE_CXX_COMPILER=${CHECK_CXX}" "-DCMAKE_CXX_FLAGS=${CHECK_FLAGS}"
         "-DCMAKE_EXE_LINKER_FLAGS=${CHECK_FLAGS}")
run_step("find_package: build" ${CMAKE_COMMAND} --build "${CHECK_WORK_DIR}/build")
run_step("find_package: run" "${CHECK_WORK_DIR}/build/install_check")

file(GLOB_RECURSE pc_file "${prefix}/*/tqdb.pc")
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
get_filename_component(lib_dir "${pc_dir}" DIRECTORY)
run_step("pkg-config" ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${pc_dir}"
         pkg-config --cflags --libs tqdb)
separate_arguments(pc_flags UNIX_COMMAND "${step_output}")
set(client "${CHECK_WORK_DIR}/pkg_config_check")
run_step("pkg-config: build" ${CHECK_CXX} -std=c++20 ${flags} "${CHECK_SOURCE_DIR}/main.cc"
         -o "${client}" ${pc_flags})
run_step("pkg-config: run" ${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${lib_dir}" "${client}")

# Every name of the library's namespace that a shared library exports belongs to the
# public interface (the classes, their type information, the free functions and types).
file(GLOB shared "${lib_dir}/libtqdb.so")
if(shared)
  run_step("exported names" nm -DC --defined-only "${shared}")
  string(REGEX MATCHALL "tqdb::[A-Za-z_]+[=]*" names "${step_output}")
  list(REMOVE_DUPLICATES names)
  list(REMOVE_ITEM names tqdb::TQFile tqdb::Variant tqdb::TQError tqdb::Date tqdb::VarType
       tqdb::MessageIcon tqdb::SeekEnum tqdb::SetMessageSink tqdb::operator== tqdb::BulkLoad)
  if(names)
    message(FATAL_ERROR "libtqdb.so exports names outside the public interface: ${names}")
  endif()
endif()

get_filename_component(source_dir "${CHECK_SOURCE_DIR}/../.." ABSOLUTE)
run_step("add_subdirectory: configure" ${CMAKE_COMMAND} -S "${CHECK_SOURCE_DIR}/subproject"
         -B "${CHECK_WORK_DIR}/subproject" "-DTQDB_SOURCE_DIR=${source_dir}"
         "-DCMAKE_CXX_COMPILER=${CHECK_CXX}")
