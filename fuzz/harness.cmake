# The fuzz harnesses and how they are linked; used by fuzz/ (the libFuzzer programs) and
# by tests/security (the replay of regressions and seeds through the same harnesses).
set(TRANSFER_FUZZ_DIR ${CMAKE_CURRENT_LIST_DIR})
set(TRANSFER_FUZZ_TARGETS uart_cut net_datagram config_load frame_data cmd_parse)

# A static copy of the library: the harnesses call internal entry points, and the
# endpoint openers are replaced at link time.
function(transfer_static_copy name)
  add_library(${name} STATIC ${TRANSFER_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/include
                                            ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${name} PRIVATE TRANSFER_BUILDING_LIBRARY)
  target_link_libraries(${name} PUBLIC transfer_zlog cjson_dep Threads::Threads)
  transfer_warnings(${name})
endfunction()

# Links the program against the static copy, with the shared harness code, the host
# globals and the endpoint stubs (no socket is bound, no device path from an input opened).
function(transfer_fuzz_link exe copy)
  target_sources(${exe} PRIVATE ${TRANSFER_FUZZ_DIR}/fuzz_support.cpp
                                ${TRANSFER_FUZZ_DIR}/endpoint_stubs.cpp
                                ${PROJECT_SOURCE_DIR}/tests/support/host_globals.c)
  target_include_directories(${exe} PRIVATE ${TRANSFER_FUZZ_DIR})
  target_link_libraries(${exe} PRIVATE ${copy})
  target_link_options(${exe} PRIVATE -Wl,--wrap=sdk_udp_init,--wrap=sdk_uart_init)
  transfer_warnings(${exe})
endfunction()
