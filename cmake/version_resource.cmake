# velcan_version_resource(TARGET FILENAME FILETYPE DESCRIPTION): on Windows, gives the target a
# VERSIONINFO resource made from the project's version (cmake/version.rc.in), so that file
# properties and installers see which version a file is.
function(velcan_version_resource target filename filetype description)
  if(NOT WIN32)
    return()
  endif()
  set(VELCAN_RC_FILENAME ${filename})
  set(VELCAN_RC_FILETYPE ${filetype})
  set(VELCAN_RC_DESCRIPTION ${description})
  get_filename_component(VELCAN_RC_INTERNAL ${filename} NAME_WE)
  set(rc ${PROJECT_BINARY_DIR}/version-${target}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${rc} @ONLY)
  target_sources(${target} PRIVATE ${rc})
endfunction()
