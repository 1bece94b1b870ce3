# Registers the package test: install this build into a scratch prefix, then build and run a
# small outside project against it, once through find_package and once through pkg-config.
# It needs the install rules, which the root CMakeLists brings in from cmake/Install.cmake.
if(NOT EXISTS ${PROJECT_SOURCE_DIR}/cmake/Install.cmake)
  return()
endif()
find_program(FA_PKG_CONFIG pkg-config)
set(FA_CONSUMER_FLAGS "")
if(FA_SANITIZE)
  # The installed library is instrumented; its consumer must link the same runtime.
  set(FA_CONSUMER_FLAGS "-fsanitize=${FA_SANITIZE}")
endif()
add_test(NAME package_consumer
         COMMAND ${CMAKE_COMMAND}
           -DBUILD_DIR=${PROJECT_BINARY_DIR}
           -DCONSUMER_DIR=${CMAKE_CURRENT_LIST_DIR}/consumer
           -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/package-test
           -DCXX=${CMAKE_CXX_COMPILER}
           -DGENERATOR=${CMAKE_GENERATOR}
           -DEXTRA_FLAGS=${FA_CONSUMER_FLAGS}
           -DPKG_CONFIG=${FA_PKG_CONFIG}
           -P ${CMAKE_CURRENT_LIST_DIR}/run_package_test.cmake)
set_tests_properties(package_consumer PROPERTIES TIMEOUT 600 SKIP_RETURN_CODE 77)
