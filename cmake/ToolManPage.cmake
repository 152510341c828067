# Writes the tool's manual page (roff) from its own help: "tqdb --help", then
# "tqdb COMMAND --help" for every command that help lists.
#
#   cmake -DTOOL=<tqdb executable> -DOUTPUT=<tqdb.1> -DVERSION=<version> -P ToolManPage.cmake

function(tool_help out)
  execute_process(COMMAND "${TOOL}" ${ARGN} --help RESULT_VARIABLE rc OUTPUT_VARIABLE text)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${TOOL} ${ARGN} --help failed (${rc})")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

# Help text as a preformatted roff block: backslashes escaped, no line read as a request.
function(roff_block out text)
  string(REPLACE "\\" "\\e" text "${text}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" text "${text}")
  set(${out} ".nf\n${text}\n.fi\n" PARENT_SCOPE)
endfunction()

tool_help(main_help)
roff_block(page_text "${main_help}")
string(CONCAT page ".TH TQDB 1 \"\" \"tqdb ${VERSION}\" \"User Commands\"\n"
                ".SH NAME\ntqdb \\- create, inspect, query, repair and diagnose TQDB tables\n"
                ".SH SYNOPSIS\n.B tqdb\n.I COMMAND\n[\\fIOPTIONS\\fR] [\\fIARGUMENTS\\fR]\n"
                ".SH DESCRIPTION\n${page_text}.SH COMMANDS\n")

# The commands are the indented words of the help's "Subcommands:" section.
string(REGEX REPLACE ".*\nSubcommands:\n" "" commands_section "${main_help}")
string(REGEX MATCHALL "(^|\n)  [a-z][a-z-]*" commands "${commands_section}")
if(NOT commands)
  message(FATAL_ERROR "no commands found in the help of ${TOOL}")
endif()
foreach(command IN LISTS commands)
  string(STRIP "${command}" command)
  tool_help(command_help ${command})
  roff_block(command_text "${command_help}")
  string(APPEND page ".SS ${command}\n${command_text}")
endforeach()
file(WRITE "${OUTPUT}" "${page}")
