# Registers the package test: install this build into a scratch prefix, build the library the
# other way too (shared when this build is static, static when it is shared) into another, and
# build and run a small outside project against each, through find_package and through
# pkg-config, compiled as C++17. It needs the install rules, which the root CMakeLists brings in
# from cmake/Install.cmake.
if(NOT EXISTS ${PROJECT_SOURCE_DIR}/cmake/Install.cmake)
  return()
endif()
find_program(FA_PKG_CONFIG pkg-config)
find_program(FA_NM nm)
set(FA_CONSUMER_FLAGS "")
if(FA_SANITIZE)
  # The installed library is instrumented; its consumer must link the same runtime.
  set(FA_CONSUMER_FLAGS "-fsanitize=${FA_SANITIZE}")
endif()
add_test(NAME package_consumer
         COMMAND ${CMAKE_COMMAND}
           -DSOURCE_DIR=${PROJECT_SOURCE_DIR}
           -DBUILD_DIR=${PROJECT_BINARY_DIR}
           -DSHARED=${BUILD_SHARED_LIBS}
           -DBUILD_TYPE=${CMAKE_BUILD_TYPE}
           -DSANITIZE=${FA_SANITIZE}
           -DVERSION=${PROJECT_VERSION}
           -DCONSUMER_DIR=${CMAKE_CURRENT_LIST_DIR}/consumer
           -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/package-test
           -DCXX=${CMAKE_CXX_COMPILER}
           -DGENERATOR=${CMAKE_GENERATOR}
           -DEXTRA_FLAGS=${FA_CONSUMER_FLAGS}
           -DPKG_CONFIG=${FA_PKG_CONFIG}
           -DNM=${FA_NM}
           -DAPPLE_HOST=${APPLE}
           -P ${CMAKE_CURRENT_LIST_DIR}/run_package_test.cmake)
set_tests_properties(package_consumer PROPERTIES TIMEOUT 900 SKIP_RETURN_CODE 77)
