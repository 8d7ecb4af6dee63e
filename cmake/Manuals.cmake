# With KVO_BUILD_MANUALS the HTML reference and the manual pages are part of the build, in manuals/, and of the installation. The
# target "manuals" builds only them.
find_program(KVO_DOXYGEN doxygen)
find_program(KVO_PYTHON3 python3)

set(KVO_BUILD_MANUALS_COMMAND ${KVO_PYTHON3} ${PROJECT_SOURCE_DIR}/docs/reference/build_manuals.py --version ${PROJECT_VERSION})
if(TARGET kvoctl AND TARGET kvosim)
  list(APPEND KVO_BUILD_MANUALS_COMMAND --kvoctl $<TARGET_FILE:kvoctl> --kvosim $<TARGET_FILE:kvosim>)
endif()

if(KVO_BUILD_MANUALS)
  if(NOT KVO_DOXYGEN OR NOT KVO_PYTHON3)
    message(FATAL_ERROR "The manuals need doxygen and python3: scripts/setup.sh manuals installs them")
  endif()
  if(NOT TARGET kvoctl OR NOT TARGET kvosim)
    message(FATAL_ERROR "The manuals describe the commands of the tools: leave KVO_BUILD_TOOLS and KVO_BUILD_KVOCTL on, or "
      "switch KVO_BUILD_MANUALS off as well")
  endif()

  set(manuals ${PROJECT_BINARY_DIR}/manuals)
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/kvo_hws/*.h* ${PROJECT_SOURCE_DIR}/docs/*.md
    ${PROJECT_SOURCE_DIR}/docs/reference/* ${PROJECT_SOURCE_DIR}/docs/reference/man/* ${PROJECT_SOURCE_DIR}/examples/*.c*
    ${PROJECT_SOURCE_DIR}/examples/*/*.?pp)
  list(FILTER sources EXCLUDE REGEX "/(man|__pycache__)$")
  add_custom_command(OUTPUT ${manuals}/built COMMAND ${KVO_BUILD_MANUALS_COMMAND} --output ${manuals}
    COMMAND ${CMAKE_COMMAND} -E touch ${manuals}/built
    DEPENDS ${sources} ${PROJECT_SOURCE_DIR}/library/exports.map ${PROJECT_SOURCE_DIR}/README.md kvoctl kvosim
    COMMENT "Building the manuals" VERBATIM)
  add_custom_target(kvo_manuals ALL DEPENDS ${manuals}/built)
  if(PROJECT_IS_TOP_LEVEL)
    add_custom_target(manuals DEPENDS kvo_manuals)
  endif()

  if(KVO_INSTALL)
    install(DIRECTORY ${manuals}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR} COMPONENT manuals)
    install(DIRECTORY ${manuals}/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT manuals)
  endif()
endif()
