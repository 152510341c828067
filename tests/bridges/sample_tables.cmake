# Makes the sample tables CLIEN01 and FACTU01 (examples/data) in OUT with the tqdb tool, as
# the tour does: cmake -DTOOL=... -DDATA=examples/data -DOUT=... -P sample_tables.cmake
file(REMOVE_RECURSE ${OUT})
file(MAKE_DIRECTORY ${OUT})
foreach(table CLIEN FACTU)
  foreach(step "create;${DATA}/${table}.schema;${OUT}/${table}01"
               "import;${OUT}/${table}01;${DATA}/${table}.csv")
    execute_process(COMMAND ${TOOL} ${step} RESULT_VARIABLE status OUTPUT_QUIET)
    if(NOT status EQUAL 0)
      message(FATAL_ERROR "tqdb ${step}: exit status ${status}")
    endif()
  endforeach()
endforeach()
