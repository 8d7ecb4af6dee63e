# Installs the Python module into PREFIX/lib/python3/dist-packages, which PYTHONPATH has to name. The module finds the library of
# its own prefix. The Debian packages use Debian's tools for Python modules instead.
option(KVO_INSTALL_PYTHON "Install the Python module below lib/python3/dist-packages" ON)

if(KVO_INSTALL_PYTHON)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/kvo_hws DESTINATION lib/python3/dist-packages COMPONENT python
    PATTERN __pycache__ EXCLUDE PATTERN result.h EXCLUDE)
  # In the sources, the module's result.h is a symbolic link to this header.
  install(FILES ${PROJECT_SOURCE_DIR}/include/kvo_hws/result.h DESTINATION lib/python3/dist-packages/kvo_hws COMPONENT python)
endif()
