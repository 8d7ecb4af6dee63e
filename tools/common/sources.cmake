# The sources of common, common/station, common/recording and common/tap. The tools and the fuzzers are built from this list.
set(common_sources
  acceptor.cpp
  control_client.cpp
  dotted_address.cpp
  event_loop.cpp
  listening_socket.cpp
  lock_file.cpp
  new_file.cpp
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
  tap/attached_tap.cpp
  tap/ending.cpp
  tap/event_listener.cpp
  tap/folder_watch.cpp
  tap/link.cpp
  tap/links.cpp
  tap/listening.cpp
  tap/peer.cpp
  tap/program_tap.cpp
  tap/server_watch.cpp
  tap/socket_place.cpp
  tap/tap_guardian.cpp
  tap/tapped_socket.cpp
)

# The sources that the tests' sandbox and the benchmarks use.
set(private_namespace_sources
  guardian.cpp
  private_namespace.cpp
  run_folder.cpp
  socket_folder.cpp
)
list(APPEND common_sources ${private_namespace_sources})
