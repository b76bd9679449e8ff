# Headers, libraries, the CMake package and pkg-config files.
install(TARGETS zet zetAgentEnv EXPORT ZetAgentEnvTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${ZET_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Zet)
install(FILES ${AGENTENV_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/AgentEnv)

set(ZET_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZetAgentEnv)
install(EXPORT ZetAgentEnvTargets NAMESPACE ZetAgentEnv:: DESTINATION ${ZET_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZetAgentEnvConfig.cmake.in
  ${PROJECT_BINARY_DIR}/ZetAgentEnvConfig.cmake INSTALL_DESTINATION ${ZET_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZetAgentEnvConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZetAgentEnvConfig.cmake ${PROJECT_BINARY_DIR}/ZetAgentEnvConfigVersion.cmake
  DESTINATION ${ZET_CMAKE_DIR})

# pkg-config files find the prefix from their own place (${pcfiledir}), so an
# install under any prefix, or moved later, still points at itself.
file(RELATIVE_PATH ZET_PC_RELATIVE_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" ZET_PC_RELATIVE_PREFIX "${ZET_PC_RELATIVE_PREFIX}")
foreach(pc zet zetAgentEnv)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
