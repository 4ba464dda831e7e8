# Finds nlohmann's JSON library, which is header-only. Defines the target NlohmannJson.
find_path(NLOHMANN_JSON_INCLUDE_DIR nlohmann/json.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(NlohmannJson REQUIRED_VARS NLOHMANN_JSON_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup, which installs nlohmann-json3-dev")

if(NlohmannJson_FOUND AND NOT TARGET NlohmannJson)
  include(HeaderLibrary)
  add_header_library(NlohmannJson ${NLOHMANN_JSON_INCLUDE_DIR} nlohmann)
endif()
