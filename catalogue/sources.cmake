# The sources of the catalogue; tests and a fuzzer compile them.
set(catalogue_sources addressing.cpp catalogue.cpp focus.cpp input.cpp metrics.cpp others.cpp panel_settings.cpp request.cpp
  service.cpp station_lists.cpp usb_lock.cpp viewer.cpp)
