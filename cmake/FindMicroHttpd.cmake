# MicroHttpd::microhttpd, GNU libmicrohttpd.
find_path(MICROHTTPD_INCLUDE_DIR microhttpd.h)
find_library(MICROHTTPD_LIBRARY microhttpd)
mark_as_advanced(MICROHTTPD_INCLUDE_DIR MICROHTTPD_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(MicroHttpd REQUIRED_VARS MICROHTTPD_LIBRARY MICROHTTPD_INCLUDE_DIR)

if(MicroHttpd_FOUND AND NOT TARGET MicroHttpd::microhttpd)
  add_library(MicroHttpd::microhttpd UNKNOWN IMPORTED)
  set_target_properties(MicroHttpd::microhttpd PROPERTIES IMPORTED_LOCATION ${MICROHTTPD_LIBRARY}
                                                          INTERFACE_INCLUDE_DIRECTORIES ${MICROHTTPD_INCLUDE_DIR})
endif()
