# GTest::gmock and its relatives: as the system has them built, else from the sources that come with Debian's package, which a
# build for other machines than the system's own needs.
find_package(GTest CONFIG QUIET)
if(NOT GTest_FOUND)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
endif()
