# cmake -P script behind the package_consumer test (see PackageTest.cmake for its inputs).
cmake_minimum_required(VERSION 3.20)
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")

# Only the public headers, all of them below fileaccess/.
function(check_headers prefix)
  file(GLOB_RECURSE headers RELATIVE ${prefix}/include ${prefix}/include/*)
  list(LENGTH headers count)
  if(count LESS 1)
    message(FATAL_ERROR "no headers installed under ${prefix}/include")
  endif()
  foreach(h ${headers})
    if(NOT h MATCHES "^fileaccess-${VERSION}/fileaccess/")
      message(FATAL_ERROR "installed outside fileaccess-${VERSION}/fileaccess/: ${h}")
    endif()
    if(h MATCHES "(FsInternal|SysCalls|OrvaneHandle|FileSys|MethodFrame|FileId)\\.h$")
      message(FATAL_ERROR "an internal header is installed: ${h}")
    endif()
  endforeach()
  message(STATUS "${count} public headers installed")
endfunction()

# A shared library carries its major version in its SONAME and exports the public classes only:
# every symbol it defines belongs to one of them (or is an instantiation of the standard
# library's templates).
function(check_shared prefix)
  string(REGEX MATCH "^[0-9]+" major ${VERSION})
  if(APPLE_HOST)
    set(lib_file libfileaccess.${VERSION}.dylib)
    set(link libfileaccess.${major}.dylib)
    set(list_exports -gU)  # Mach-O names carry one more leading underscore
  else()
    set(lib_file libfileaccess.so.${VERSION})
    set(link libfileaccess.so.${major})
    set(list_exports -D --defined-only)
  endif()
  file(GLOB_RECURSE so ${prefix}/*/${lib_file})
  file(GLOB_RECURSE soname ${prefix}/*/${link})
  if(NOT so OR NOT soname)
    message(FATAL_ERROR "${lib_file} and its soname link ${link} are not installed")
  endif()
  if(NOT NM)
    return()
  endif()
  # Judged by mangled name, where the outermost scope stands in one place: after the special
  # prefixes (vtable, typeinfo, thunk, guard, local entity) and the nesting and const marks
  # comes either the standard library ("St", "9__gnu_cxx") or "<length><name>".
  run("listing the exported symbols" ${NM} ${list_exports} ${so})
  string(REPLACE "\n" ";" lines "${last_output}")
  set(public ClsFileAccess ClsBase ClsBinData ClsStringBuilder ClsDateTime XString StringBuffer
      DataBuffer LogBase _ovLogger _ovCharset OrvaneSysTime OrvaneFileTime OrvaneCritSec
      RefCountedObject Psdk ov64 ovNewChar ovNewUnsignedChar)
  set(count 0)
  foreach(line ${lines})
    string(REGEX REPLACE "^[0-9a-f]+ [A-Za-z] " "" symbol "${line}")
    if(APPLE_HOST)
      string(REGEX REPLACE "^_" "" symbol "${symbol}")
    endif()
    string(REGEX REPLACE "^_Z(T[VIS]|Th[n0-9]+_|Tv[n0-9_]+_|GV)?Z?N?[KVr]*" "" scope "${symbol}")
    set(name "")
    if(scope MATCHES "^([0-9]+)")
      string(LENGTH "${CMAKE_MATCH_1}" digits)
      string(SUBSTRING "${scope}" ${digits} ${CMAKE_MATCH_1} name)
    endif()
    # The typeinfo of a function type (UBSan's function check emits them) has no scope of its
    # own; it is visible only where the types in its signature are.
    if(symbol MATCHES "^_ZT[IS]F" OR scope MATCHES "^(St|9__gnu_cxx)" OR name IN_LIST public)
      math(EXPR count "${count} + 1")
    else()
      message(FATAL_ERROR "exported but not public: ${line}")
    endif()
  endforeach()
  message(STATUS "${count} symbols exported, all public")
endfunction()

# The outside project through find_package, then the same program through pkg-config.
function(consume prefix shared tag)
  set(build ${WORK_DIR}/consumer-${tag})
  run("configuring the ${tag} consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${build}
      -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX}
      -DCMAKE_CXX_FLAGS=${EXTRA_FLAGS} -DCMAKE_BUILD_TYPE=Release)
  run("building the ${tag} consumer" ${CMAKE_COMMAND} --build ${build})
  run("running the ${tag} consumer" ${build}/consumer ${WORK_DIR}/run-${tag})
  message(STATUS "find_package, ${tag}: ${last_output}")
  if(NOT PKG_CONFIG)
    message(STATUS "pkg-config not found: that half is not run")
    return()
  endif()
  file(GLOB_RECURSE pc ${prefix}/*/fileaccess.pc)
  if(NOT pc)
    message(FATAL_ERROR "fileaccess.pc was not installed")
  endif()
  get_filename_component(pcdir ${pc} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pcdir})
  set(static "")
  if(NOT shared)
    set(static --static)
  endif()
  run("pkg-config" ${PKG_CONFIG} ${static} --cflags --libs fileaccess)
  string(STRIP "${last_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run("compiling with pkg-config's flags, ${tag}" ${CXX} -std=c++17 ${extra}
      ${CONSUMER_DIR}/main.cpp -o ${WORK_DIR}/consumer-pc-${tag} ${flags})
  # The shared library is found where pkg-config said it is.
  string(REGEX MATCH "-L([^;]+)" libdir "${flags}")
  run("running the pkg-config consumer, ${tag}" ${CMAKE_COMMAND} -E env
      LD_LIBRARY_PATH=${CMAKE_MATCH_1} DYLD_LIBRARY_PATH=${CMAKE_MATCH_1} ${WORK_DIR}/consumer-pc-${tag} ${WORK_DIR}/pc-run-${tag})
  message(STATUS "pkg-config, ${tag}: ${last_output}")
endfunction()

# This build, as it is.
set(this_prefix ${WORK_DIR}/prefix-this)
run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${this_prefix})

# The library built the other way, alone.
if(SHARED)
  set(other_shared OFF)
else()
  set(other_shared ON)
endif()
set(other_prefix ${WORK_DIR}/prefix-other)
run("configuring the library with BUILD_SHARED_LIBS=${other_shared}" ${CMAKE_COMMAND}
    -S ${SOURCE_DIR} -B ${WORK_DIR}/other-build -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DBUILD_SHARED_LIBS=${other_shared} -DFA_SANITIZE=${SANITIZE}
    -DFA_BUILD_TESTS=OFF -DFA_BUILD_TOOLS=OFF)
run("building the library with BUILD_SHARED_LIBS=${other_shared}" ${CMAKE_COMMAND} --build
    ${WORK_DIR}/other-build --parallel 2)
run("installing it" ${CMAKE_COMMAND} --install ${WORK_DIR}/other-build --prefix ${other_prefix})

foreach(kind this other)
  if(kind STREQUAL "this")
    set(shared ${SHARED})
  else()
    set(shared ${other_shared})
  endif()
  if(shared)
    set(tag shared)
  else()
    set(tag static)
  endif()
  check_headers(${${kind}_prefix})
  if(shared)
    check_shared(${${kind}_prefix})
  endif()
  consume(${${kind}_prefix} ${shared} ${tag})
endforeach()

# The program is installed beside the library when it was built, with its manual page when
# there is one.
if(EXISTS ${BUILD_DIR}/tools/fatool)
  run("installed fatool" ${this_prefix}/bin/fatool --version)
  if(NOT last_output STREQUAL "fatool ${VERSION}\n")
    message(FATAL_ERROR "fatool --version says '${last_output}', not fatool ${VERSION}")
  endif()
  if(EXISTS ${BUILD_DIR}/tools/fatool.1 AND NOT EXISTS ${this_prefix}/share/man/man1/fatool.1)
    message(FATAL_ERROR "fatool.1 was made but not installed")
  endif()
endif()
