# Finds {fmt} as a header-only library. Defines the target FmtHeaders.
find_path(FMT_INCLUDE_DIR fmt/format.h PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(FmtHeaders REQUIRED_VARS FMT_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup, which installs libfmt-dev")

if(FmtHeaders_FOUND AND NOT TARGET FmtHeaders)
  include(HeaderLibrary)
  add_header_library(FmtHeaders ${FMT_INCLUDE_DIR} fmt)
  # Strings and integers only: floating point and locales would add half a megabyte.
  target_compile_definitions(FmtHeaders INTERFACE FMT_HEADER_ONLY FMT_STATIC_THOUSANDS_SEPARATOR=1
    FMT_USE_FLOAT=0 FMT_USE_DOUBLE=0 FMT_USE_LONG_DOUBLE=0 FMT_USE_FLOAT128=0)
endif()
