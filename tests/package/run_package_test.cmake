# cmake -P script behind the package_consumer test (see PackageTest.cmake for its inputs).
function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
file(GLOB_RECURSE header ${prefix}/include/*/fileaccess/ClsFileAccess.h)
if(NOT header)
  message(FATAL_ERROR "ClsFileAccess.h is not under ${prefix}/include/fileaccess-<version>/")
endif()

# The outside project through find_package.
run("configuring the consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/cmake-build
    -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX}
    -DCMAKE_CXX_FLAGS=${EXTRA_FLAGS} -DCMAKE_BUILD_TYPE=Release)
run("building the consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-build)
run("running the consumer" ${WORK_DIR}/cmake-build/consumer ${WORK_DIR}/cmake-run)
message(STATUS "find_package consumer: ${last_output}")

# The same program through pkg-config.
if(PKG_CONFIG)
  file(GLOB_RECURSE pc ${prefix}/*/fileaccess.pc)
  if(NOT pc)
    message(FATAL_ERROR "fileaccess.pc was not installed")
  endif()
  get_filename_component(pcdir ${pc} DIRECTORY)
  set(ENV{PKG_CONFIG_PATH} ${pcdir})
  run("pkg-config" ${PKG_CONFIG} --cflags --libs fileaccess)
  string(STRIP "${last_output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
  run("compiling with pkg-config's flags" ${CXX} -std=c++20 ${extra} ${CONSUMER_DIR}/main.cpp
      -o ${WORK_DIR}/consumer-pc ${flags})
  run("running the pkg-config consumer" ${WORK_DIR}/consumer-pc ${WORK_DIR}/pc-run)
  message(STATUS "pkg-config consumer: ${last_output}")
else()
  message(STATUS "pkg-config not found: that half is not run")
endif()

# The program is installed beside the library when it was built.
if(EXISTS ${BUILD_DIR}/tools/fatool)
  run("installed fatool" ${prefix}/bin/fatool --version)
endif()
