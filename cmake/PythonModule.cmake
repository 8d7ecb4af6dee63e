# The Python module as a part of a folder installation: PREFIX/lib/python3/dist-packages, which PYTHONPATH has to name. It finds the
# library of its folder by itself. Packages install it with Debian's tools for Python modules instead.
option(KVO_INSTALL_PYTHON "Install the Python module below lib/python3/dist-packages" ON)

if(KVO_INSTALL_PYTHON)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/kvo_hws DESTINATION lib/python3/dist-packages COMPONENT python
    PATTERN __pycache__ EXCLUDE PATTERN result.h EXCLUDE)
  # Among the sources it is a symbolic link to the header.
  install(FILES ${PROJECT_SOURCE_DIR}/include/kvo_hws/result.h DESTINATION lib/python3/dist-packages/kvo_hws COMPONENT python)
endif()
