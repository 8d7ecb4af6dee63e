# The sources of this module. The tools and the fuzzers are built from this list.
set(common_sources
  dotted_address.cpp
  listening_socket.cpp
  private_namespace.cpp
)
