# Defines GTest::gmock and the other GoogleTest targets: from the system's libraries, otherwise built from the sources in Debian's
# package. Cross builds need the second way.
find_package(GTest CONFIG QUIET)
if(NOT GTest_FOUND)
  set(sources /usr/src/googletest)
  if(NOT EXISTS ${sources})
    message(FATAL_ERROR "The tests need GoogleTest with its mocks (Debian: libgtest-dev, libgmock-dev): install it, or leave the "
      "tests out with -DBUILD_TESTING=OFF")
  endif()
  block()
    set(INSTALL_GTEST OFF)
    set(CMAKE_COMPILE_WARNING_AS_ERROR OFF)
    add_subdirectory(${sources} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  endblock()
endif()
