# Finds libcyaml (an optional benchmark peer): sets cyaml_FOUND,
# CYAML_INCLUDE_DIR and CYAML_LIBRARY.
find_path(CYAML_INCLUDE_DIR cyaml/cyaml.h)
find_library(CYAML_LIBRARY cyaml)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(cyaml REQUIRED_VARS CYAML_INCLUDE_DIR CYAML_LIBRARY)
mark_as_advanced(CYAML_INCLUDE_DIR CYAML_LIBRARY)
