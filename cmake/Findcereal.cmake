# Finds the header-only cereal serialisation library (an optional benchmark
# peer): sets cereal_FOUND and CEREAL_INCLUDE_DIR.
find_path(CEREAL_INCLUDE_DIR cereal/archives/xml.hpp)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(cereal REQUIRED_VARS CEREAL_INCLUDE_DIR)
mark_as_advanced(CEREAL_INCLUDE_DIR)
