# The sources of each module. The program and the fuzzers are built from these lists.
set(kvosim_modules base net plant commands events remote plant_file control compare replay)
set(kvosim_base
  arguments.cpp
  exchange_log.cpp
)
set(kvosim_net
  line_server.cpp
  received_request.cpp
  request_line.cpp
  stream.cpp
  tcp_socket.cpp
  udp_socket.cpp
)
set(kvosim_plant
  faults.cpp
  plant.cpp
  registry.cpp
  station_keys.cpp
  usb_device.cpp
  usb_ports.cpp
)
set(kvosim_commands
  address_commands.cpp
  command_table.cpp
  commands.cpp
  focus_commands.cpp
  input_commands.cpp
  list_commands.cpp
  metric_commands.cpp
  panel_commands.cpp
  service_commands.cpp
  usb_commands.cpp
  viewer_commands.cpp
)
set(kvosim_events
  deliveries.cpp
  embedded_events.cpp
  usb_events.cpp
  usb_storm.cpp
)
set(kvosim_remote
  agent_lines.cpp
  remote_log.cpp
  remote_script.cpp
  remote_script_run.cpp
  remote_session.cpp
  remote_side.cpp
)
set(kvosim_plant_file
  station_splitter.cpp
  plant_file.cpp
  plant_generator.cpp
  table_reader.cpp
)
set(kvosim_control
  control.cpp
  event_control.cpp
  remote_control.cpp
  usb_control.cpp
)
set(kvosim_compare
  comparison.cpp
  comparison_text.cpp
  recorded_requests.cpp
  simulated_service.cpp
)
set(kvosim_replay
  contents.cpp
  replay.cpp
  report.cpp
  script.cpp
  speed.cpp
  timeline.cpp
  unmatched.cpp
  usb_sender.cpp
)

# kvosim_sources(VARIABLE): the full paths of the sources of all modules, of service.cpp and of what it shares with replay.
function(kvosim_sources variable)
  set(sources ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/plant_exchange.cpp ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/service.cpp)
  foreach(module ${kvosim_modules})
    list(TRANSFORM kvosim_${module} PREPEND ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/${module}/ OUTPUT_VARIABLE paths)
    list(APPEND sources ${paths})
  endforeach()
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()
