# The newest released entry of CHANGELOG.md is the project's version.
#   cmake -DCHANGELOG=<CHANGELOG.md> -DVERSION=<x.y.z> -P CheckChangelog.cmake
file(READ ${CHANGELOG} text)
if(NOT text MATCHES "\n## \\[([0-9]+\\.[0-9]+\\.[0-9]+)\\] - [0-9][0-9][0-9][0-9]-[0-9][0-9]-[0-9][0-9]\n")
  message(FATAL_ERROR "${CHANGELOG} has no released entry '## [x.y.z] - YYYY-MM-DD'")
endif()
if(NOT CMAKE_MATCH_1 STREQUAL VERSION)
  message(FATAL_ERROR "the newest entry of ${CHANGELOG} is ${CMAKE_MATCH_1}, the project is ${VERSION}")
endif()
