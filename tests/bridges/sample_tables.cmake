# Makes the sample client table CLIEN01 (examples/data) in OUT with the tqdb tool, as the
# tour does: cmake -DTOOL=... -DDATA=examples/data -DOUT=... -P sample_tables.cmake
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT})
foreach(step "create;${DATA}/CLIEN.schema;${OUT}/CLIEN01" "import;${OUT}/CLIEN01;${DATA}/CLIEN.csv")
  execute_process(COMMAND ${TOOL} ${step} RESULT_VARIABLE status OUTPUT_QUIET)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "tqdb ${step}: exit status ${status}")
  endif()
endforeach()
