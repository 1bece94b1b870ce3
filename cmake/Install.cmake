# Installation: the library, its public headers, the command-line program and its manual page,
# a CMake package config (find_package(fileaccess) gives the target fileaccess::fileaccess) and
# a pkg-config file.
#
#   cmake --install <build dir> [--prefix <dir>]
#
# Only the public headers are installed: ClsFileAccess.h and the headers of the types it names.
# They all go under include/fileaccess-<version>/fileaccess/, so a program includes
# "fileaccess/ClsFileAccess.h" exactly as inside this tree; their includes of the foundation
# layers are rewritten to point below fileaccess/ as well.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(FA_INSTALL_INCLUDEDIR include/fileaccess-${PROJECT_VERSION})
set(FA_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/fileaccess)
set(FA_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(header ${FA_PUBLIC_HEADERS})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${header})
  file(READ ${PROJECT_SOURCE_DIR}/src/${header} text)
  string(REPLACE "#include \"foundation/" "#include \"fileaccess/foundation/" text "${text}")
  string(REGEX REPLACE "^fileaccess/" "" below ${header})
  set(staged ${PROJECT_BINARY_DIR}/public-headers/fileaccess/${below})
  set(old "")
  if(EXISTS ${staged})
    file(READ ${staged} old)
  endif()
  if(NOT old STREQUAL text)
    file(WRITE ${staged} "${text}")
  endif()
  get_filename_component(subdir ${below} DIRECTORY)
  install(FILES ${staged} DESTINATION ${FA_INSTALL_INCLUDEDIR}/fileaccess/${subdir})
endforeach()

install(TARGETS fileaccess EXPORT fileaccessTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(TARGET fatool)
  install(TARGETS fatool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
if(FATOOL_MAN_PAGE)
  install(FILES ${FATOOL_MAN_PAGE} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()

install(EXPORT fileaccessTargets NAMESPACE fileaccess:: DESTINATION ${FA_INSTALL_CMAKEDIR})
# The package config re-finds what the library's interface links: threads always, iconv
# where it is a library of its own.
if(Iconv_FOUND AND NOT Iconv_IS_BUILT_IN)
  set(FA_NEEDS_ICONV TRUE)
else()
  set(FA_NEEDS_ICONV FALSE)
endif()
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/fileaccessConfig.cmake.in
  ${PROJECT_BINARY_DIR}/fileaccessConfig.cmake INSTALL_DESTINATION ${FA_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/fileaccessConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/fileaccessConfig.cmake
              ${PROJECT_BINARY_DIR}/fileaccessConfigVersion.cmake
        DESTINATION ${FA_INSTALL_CMAKEDIR})

# The .pc file finds the prefix from its own place, so the install can be moved or put under
# another prefix at install time (cmake --install --prefix) and still be right.
file(RELATIVE_PATH FA_PC_TO_PREFIX /fa-root/${FA_INSTALL_PKGCONFIGDIR} /fa-root)
string(REGEX REPLACE "/$" "" FA_PC_TO_PREFIX "${FA_PC_TO_PREFIX}")
set(FA_PC_LIBS "-L\${libdir} -lfileaccess -pthread")
if(FA_NEEDS_ICONV)
  string(APPEND FA_PC_LIBS " -liconv")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/fileaccess.pc.in ${PROJECT_BINARY_DIR}/fileaccess.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/fileaccess.pc DESTINATION ${FA_INSTALL_PKGCONFIGDIR})
