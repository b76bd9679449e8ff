# Every header of a folder is either installed (public) or internal, by
# decision: one that is in neither list stops the configuration, so a new
# header cannot be left out of the installed API, or put in it, by accident.
function(check_header_lists folder public internal)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/*.h)
  foreach(header ${headers})
    if(NOT header IN_LIST public AND NOT header IN_LIST internal)
      message(FATAL_ERROR "${header} is in neither the installed nor the internal headers of ${folder}/: "
                          "list it, or move it to an internal sub-folder")
    endif()
  endforeach()
endfunction()
