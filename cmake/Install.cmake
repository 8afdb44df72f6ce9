# Installation: libtransfer.so with its SONAME links, the public headers under
# <includedir>/transfer, a pkg-config file (libtransfer.pc) and a CMake package
# (find_package(libtransfer) gives libtransfer::transfer). The bundled zlog-compatible
# library, when it is the one used, is installed too: libtransfer.so needs it at run time.
include(CMakePackageConfigHelpers)

set(TRANSFER_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/libtransfer)

file(GLOB TRANSFER_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${TRANSFER_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/transfer)

# pkg-config: zlog.h is included by sdk_log.h, so its directory goes into Cflags; the
# host itself calls no zlog or cJSON function, so both are private link dependencies.
if(TRANSFER_OWN_ZLOG)
  set(_export_targets transfer transfer_zlog zlog)
  # libtransfer.so finds the bundled libzlog installed beside it.
  set_target_properties(transfer PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(TRANSFER_PC_ZLOG_CFLAGS "-I\${includedir}")
  set(TRANSFER_PC_ZLOG_LIBS "-lzlog")
else()
  set(_export_targets transfer transfer_zlog)
  # A zlog outside the system's directories is found again at run time.
  set_target_properties(transfer PROPERTIES INSTALL_RPATH_USE_LINK_PATH ON)
  # The installed package finds the system zlog again (libtransfer::zlog) instead of
  # carrying this machine's paths.
  set_target_properties(transfer_zlog PROPERTIES
    INTERFACE_INCLUDE_DIRECTORIES "$<BUILD_INTERFACE:${ZLOG_INCLUDE_DIR}>"
    INTERFACE_LINK_LIBRARIES "$<BUILD_INTERFACE:${ZLOG_LIBRARY}>;$<INSTALL_INTERFACE:libtransfer::zlog>")
  get_filename_component(_zlog_libdir ${ZLOG_LIBRARY} DIRECTORY)
  set(TRANSFER_PC_ZLOG_CFLAGS "")
  if(NOT ZLOG_INCLUDE_DIR IN_LIST CMAKE_C_IMPLICIT_INCLUDE_DIRECTORIES)
    set(TRANSFER_PC_ZLOG_CFLAGS "-I${ZLOG_INCLUDE_DIR}")
  endif()
  set(TRANSFER_PC_ZLOG_LIBS "-lzlog")
  if(NOT _zlog_libdir IN_LIST CMAKE_C_IMPLICIT_LINK_DIRECTORIES)
    set(TRANSFER_PC_ZLOG_LIBS "-L${_zlog_libdir} -lzlog")
  endif()
endif()

install(TARGETS ${_export_targets} EXPORT libtransferTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT libtransferTargets NAMESPACE libtransfer:: DESTINATION ${TRANSFER_CMAKE_DIR})

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/libtransferConfig.cmake.in
  ${PROJECT_BINARY_DIR}/libtransferConfig.cmake INSTALL_DESTINATION ${TRANSFER_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/libtransferConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/libtransferConfig.cmake
              ${PROJECT_BINARY_DIR}/libtransferConfigVersion.cmake
        DESTINATION ${TRANSFER_CMAKE_DIR})

# The prefix of the .pc file is the one of the install step (cmake --install --prefix),
# so the file is completed then; everything else is filled in now.
foreach(_dir LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${_dir}}")
    set(TRANSFER_PC_${_dir} "${CMAKE_INSTALL_${_dir}}")
  else()
    set(TRANSFER_PC_${_dir} "\${prefix}/${CMAKE_INSTALL_${_dir}}")
  endif()
endforeach()
set(TRANSFER_PC_PREFIX "@CMAKE_INSTALL_PREFIX@")
configure_file(${CMAKE_CURRENT_LIST_DIR}/libtransfer.pc.in
               ${PROJECT_BINARY_DIR}/pkgconfig/libtransfer.pc.in @ONLY)
install(CODE "configure_file(\"${PROJECT_BINARY_DIR}/pkgconfig/libtransfer.pc.in\"
                             \"${PROJECT_BINARY_DIR}/pkgconfig/libtransfer.pc\" @ONLY)")
install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/libtransfer.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Host programs, those of them that this build has; they find the library in libdir.
file(RELATIVE_PATH _bin_to_lib /p/${CMAKE_INSTALL_BINDIR} /p/${CMAKE_INSTALL_LIBDIR})
foreach(_tool example_host board_sim isp_sim_pty transfer_tool mcu_upgrade)
  if(TARGET ${_tool})
    set_target_properties(${_tool} PROPERTIES INSTALL_RPATH "$ORIGIN/${_bin_to_lib}")
    install(TARGETS ${_tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  endif()
endforeach()

# Example configurations under <sysconfdir>/transfer (etc/transfer of the prefix): the
# installed tools' defaults transfer.json and zlog.conf (from the examples), and every
# example under its own name. A file that is already there is the user's: it is kept, never
# overwritten, and the install step says so.
if(IS_ABSOLUTE "${CMAKE_INSTALL_SYSCONFDIR}")
  set(_config_dir "${CMAKE_INSTALL_SYSCONFDIR}/transfer")
else()
  set(_config_dir "\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_SYSCONFDIR}/transfer")
endif()
install(CODE "set(_transfer_config_src \"${PROJECT_SOURCE_DIR}/config\")
              set(_transfer_config_dir \"\$ENV{DESTDIR}${_config_dir}\")")
install(CODE [[
  foreach(_pair example_transfer.json:transfer.json example_zlog.conf:zlog.conf
                example_transfer.json:example_transfer.json example_zlog.conf:example_zlog.conf
                demo_transfer.json:demo_transfer.json demo_zlog.conf:demo_zlog.conf)
    string(REPLACE ":" ";" _pair "${_pair}")
    list(GET _pair 0 _from)
    list(GET _pair 1 _to)
    set(_dest "${_transfer_config_dir}/${_to}")
    if(EXISTS "${_dest}")
      message(STATUS "Kept: ${_dest}")
    else()
      message(STATUS "Installing: ${_dest}")
      file(MAKE_DIRECTORY "${_transfer_config_dir}")
      file(COPY_FILE "${_transfer_config_src}/${_from}" "${_dest}")
      list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${_dest}")
    endif()
  endforeach()
]])
