# Packaging: `cmake --install` puts the plug-in in a plug-in directory, the public C header and
# the producer helper under include/, the programs in bin/, and describes the result to hosts
# and compiler back ends twice: as a CMake package (find_package(MonoDebuggerHandling)) and as a
# pkg-config file. Both are relocatable: every path is computed from where the file itself lies.
include(CMakePackageConfigHelpers)
include(${CMAKE_CURRENT_LIST_DIR}/InstallLayout.cmake)

install(TARGETS MonoDebuggerHandling LIBRARY DESTINATION ${MDH_PLUGIN_INSTALL_DIR})
install(FILES include/mono_debugger_handling.h include/quarn_debug_producer.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
if(TARGET quarn-debug-session)
  install(TARGETS quarn-debug-session quarn-debug-inspect RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS quarn_sample LIBRARY DESTINATION ${MDH_SAMPLE_INSTALL_DIR})
endif()

# The header-only target, imported by the package as MonoDebuggerHandling::headers.
set_target_properties(mdh_headers PROPERTIES EXPORT_NAME headers)
install(TARGETS mdh_headers EXPORT MonoDebuggerHandlingTargets)
install(EXPORT MonoDebuggerHandlingTargets NAMESPACE MonoDebuggerHandling::
        DESTINATION ${MDH_CMAKE_INSTALL_DIR})

configure_package_config_file(cmake/MonoDebuggerHandlingConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/MonoDebuggerHandlingConfig.cmake
  INSTALL_DESTINATION ${MDH_CMAKE_INSTALL_DIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR MDH_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(
  ${CMAKE_CURRENT_BINARY_DIR}/MonoDebuggerHandlingConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/MonoDebuggerHandlingConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/MonoDebuggerHandlingConfigVersion.cmake
  DESTINATION ${MDH_CMAKE_INSTALL_DIR})

# pkg-config: the prefix is found from ${pcfiledir}, the directory of the .pc file.
if(IS_ABSOLUTE "${MDH_PKGCONFIG_INSTALL_DIR}")
  set(MDH_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH MDH_PC_TO_PREFIX /${MDH_PKGCONFIG_INSTALL_DIR} /)
  string(REGEX REPLACE "/$" "" MDH_PC_TO_PREFIX "${MDH_PC_TO_PREFIX}")
  set(MDH_PC_PREFIX "\${pcfiledir}/${MDH_PC_TO_PREFIX}")
endif()
configure_file(cmake/MonoDebuggerHandling.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/MonoDebuggerHandling.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/MonoDebuggerHandling.pc
        DESTINATION ${MDH_PKGCONFIG_INSTALL_DIR})
