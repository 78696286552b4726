include(CMakePackageConfigHelpers)

set(VELCAN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/velcan)

install(TARGETS velcan EXPORT velcanTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${VELCAN_PUBLIC_HEADERS_TOP} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velcan)
install(FILES ${VELCAN_PUBLIC_HEADERS_XML} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velcan/xml)
install(FILES ${VELCAN_PUBLIC_HEADERS_HISTORY}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velcan/history)
if(VELCAN_PUBLIC_HEADERS_PROCESS)
  install(FILES ${VELCAN_PUBLIC_HEADERS_PROCESS}
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/velcan/process)
endif()

install(EXPORT velcanTargets NAMESPACE velcan:: DESTINATION ${VELCAN_CMAKE_DIR})
configure_package_config_file(cmake/velcanConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velcanConfig.cmake INSTALL_DESTINATION ${VELCAN_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velcanConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velcanConfig.cmake
              ${PROJECT_BINARY_DIR}/velcanConfigVersion.cmake
        DESTINATION ${VELCAN_CMAKE_DIR})

# The .pc file finds its prefix from where it lies, so `cmake --install --prefix P` works.
file(RELATIVE_PATH VELCAN_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
configure_file(cmake/velcan.pc.in ${PROJECT_BINARY_DIR}/velcan.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velcan.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(VELCAN_BUILD_TOOLS)
  install(TARGETS velcan_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
