# Makes the manual page fatool.1 from the program's own help, so the two never disagree:
# help2man reads `fatool --help` and `fatool --version`, and every command's `--help` is added
# as a section of its own.
#
#   cmake -DFATOOL=<program> -DHELP2MAN=<help2man> -DOUT=<fatool.1> -P ManPage.cmake
cmake_minimum_required(VERSION 3.16)

execute_process(COMMAND ${FATOOL} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${FATOOL} --help failed: ${status}")
endif()
# The command list: lines "  NAME   summary" between "Commands:" and the next blank line.
if(NOT help MATCHES "Commands:\n(([^\n]+\n)+)\n")
  message(FATAL_ERROR "no command list in the help")
endif()
string(REGEX MATCHALL "(^|\n)  [a-z]+ " names "${CMAKE_MATCH_1}")

get_filename_component(dir ${OUT} DIRECTORY)
set(include "${dir}/fatool-commands.h2m")
set(text "[COMMANDS IN DETAIL]\n")
foreach(name ${names})
  string(STRIP "${name}" name)
  execute_process(COMMAND ${FATOOL} ${name} --help OUTPUT_VARIABLE usage RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${FATOOL} ${name} --help failed: ${status}")
  endif()
  # Shown as written: backslashes escaped, and no line taken for a request.
  string(REPLACE "\\" "\\e" usage "${usage}")
  string(REGEX REPLACE "(^|\n)([.'])" "\\1\\\\&\\2" usage "${usage}")
  string(APPEND text ".SS ${name}\n.nf\n${usage}.fi\n")
endforeach()
file(WRITE ${include} "${text}")

execute_process(
  COMMAND ${HELP2MAN} --no-info --name "work with files and directories through the file-access library"
          --include ${include} --output ${OUT} ${FATOOL}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed: ${status}")
endif()
