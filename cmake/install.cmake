include(CMakePackageConfigHelpers)

set(VELCAN_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/velcan)

# Components, one per Debian package (scripts/build-debs): runtime (the shared library),
# development (headers, import library or .so link, CMake package, pkg-config file) and tool
# (the velcan program and the sample history).
install(TARGETS velcan EXPORT velcanTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
if(WIN32)
  # The MSVC import library of the C interface (src/CMakeLists.txt makes it).
  install(FILES ${PROJECT_BINARY_DIR}/velcan.lib DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT development)
endif()
# The headers as they lie under include/velcan, with the generated version.h beside them.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/velcan ${PROJECT_BINARY_DIR}/include/velcan
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(EXPORT velcanTargets NAMESPACE velcan:: DESTINATION ${VELCAN_CMAKE_DIR}
  COMPONENT development)
configure_package_config_file(cmake/velcanConfig.cmake.in
  ${PROJECT_BINARY_DIR}/velcanConfig.cmake INSTALL_DESTINATION ${VELCAN_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/velcanConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/velcanConfig.cmake
              ${PROJECT_BINARY_DIR}/velcanConfigVersion.cmake
        DESTINATION ${VELCAN_CMAKE_DIR} COMPONENT development)

# The .pc file finds its prefix from where it lies, so `cmake --install --prefix P` works.
file(RELATIVE_PATH VELCAN_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
configure_file(cmake/velcan.pc.in ${PROJECT_BINARY_DIR}/velcan.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velcan.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

if(VELCAN_BUILD_TOOLS)
  install(TARGETS velcan_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES examples/version-history.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/velcan
    COMPONENT tool)
  # The page's date: SOURCE_DATE_EPOCH's when set (releases and packages set it), else today's.
  string(TIMESTAMP VELCAN_MAN_DATE "%Y-%m-%d" UTC)
  configure_file(docs/velcan.1.in ${PROJECT_BINARY_DIR}/velcan.1 @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/velcan.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT tool)
  # The documentation the manual page's SEE ALSO names, with the examples it shows; its links
  # to the headers lead to where they are installed.
  file(GLOB velcan_docs RELATIVE ${PROJECT_SOURCE_DIR} README.md CHANGELOG.md docs/*.md)
  foreach(doc IN LISTS velcan_docs)
    get_filename_component(dir ${CMAKE_INSTALL_DOCDIR}/${doc} DIRECTORY)
    file(RELATIVE_PATH to_include /${dir} /${CMAKE_INSTALL_INCLUDEDIR})
    file(READ ${PROJECT_SOURCE_DIR}/${doc} text)
    string(REGEX REPLACE "\\]\\((\\.\\./)?include/" "](${to_include}/" text "${text}")
    file(WRITE ${PROJECT_BINARY_DIR}/doc/${doc} "${text}")
    set_property(DIRECTORY ${PROJECT_SOURCE_DIR} APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
      ${PROJECT_SOURCE_DIR}/${doc})
  endforeach()
  install(DIRECTORY ${PROJECT_BINARY_DIR}/doc/ DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool)
  install(DIRECTORY examples/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT tool)
  install(FILES tools/velcan.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME velcan COMPONENT tool)
endif()
