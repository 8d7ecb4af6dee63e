# GTest::gmock and its relatives: as the system has them built, else from the sources that come with Debian's package, which a
# build for other machines than the system's own needs.
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
