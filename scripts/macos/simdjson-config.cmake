# What find_package(simdjson) finds in ../check-macos.
get_filename_component(root ${CMAKE_CURRENT_LIST_DIR}/../../.. ABSOLUTE)
add_library(simdjson::simdjson SHARED IMPORTED)
set_target_properties(simdjson::simdjson PROPERTIES
  IMPORTED_LOCATION ${root}/lib/libsimdjson.tbd
  INTERFACE_INCLUDE_DIRECTORIES ${root}/include)
