# Finds nlohmann's JSON library, which is header-only. Links its folder: /usr/include also has the build machine's system
# headers. Defines the target NlohmannJson.
find_path(NLOHMANN_JSON_INCLUDE_DIR nlohmann/json.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(NlohmannJson REQUIRED_VARS NLOHMANN_JSON_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup, which installs nlohmann-json3-dev")

if(NlohmannJson_FOUND AND NOT TARGET NlohmannJson)
  set(folder ${NLOHMANN_JSON_INCLUDE_DIR})
  if(NOT CMAKE_HOST_WIN32)
    set(folder ${CMAKE_BINARY_DIR}/nlohmann)
    file(MAKE_DIRECTORY ${folder})
    file(CREATE_LINK ${NLOHMANN_JSON_INCLUDE_DIR}/nlohmann ${folder}/nlohmann SYMBOLIC COPY_ON_ERROR)
  endif()
  add_library(NlohmannJson INTERFACE)
  target_include_directories(NlohmannJson SYSTEM INTERFACE ${folder})
endif()
