# The sources of common, common/station and common/recording. The tools and the fuzzers are built from this list.
set(common_sources
  control_client.cpp
  dotted_address.cpp
  event_loop.cpp
  listening_socket.cpp
  lock_file.cpp
  platform_check.cpp
  recording/anonymizer.cpp
  recording/escape.cpp
  recording/line.cpp
  recording/private_fields.cpp
  recording/recording.cpp
  recording/replacements.cpp
  recording/writer.cpp
  service_probe.cpp
  signals.cpp
  station/properties.cpp
  station/property.cpp
  station/readers.cpp
  station/result.cpp
  station/state.cpp
  supervised_command.cpp
)

# The sources that the tests' sandbox and the benchmarks use.
set(private_namespace_sources
  guardian.cpp
  private_namespace.cpp
  run_folder.cpp
  socket_folder.cpp
)
list(APPEND common_sources ${private_namespace_sources})
