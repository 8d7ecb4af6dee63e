# The sources of this module. The tools and the fuzzers are built from this list.
set(common_sources
  control_client.cpp
  dotted_address.cpp
  listening_socket.cpp
  platform_check.cpp
  private_namespace.cpp
  service_probe.cpp
  station/properties.cpp
  station/property.cpp
  station/readers.cpp
  station/result.cpp
  station/state.cpp
)
