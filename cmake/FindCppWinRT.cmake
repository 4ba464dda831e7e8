# Finds the C++/WinRT headers: CPPWINRT_INCLUDE_DIR, or the NuGet package that scripts/setup restores. Defines the target
# CppWinRT.
include(${CMAKE_CURRENT_LIST_DIR}/Versions.cmake)
string(REGEX REPLACE "[0-9]+$" "0" windows_sdk_folder ${windows_sdk_version})
set(packages "$ENV{NUGET_PACKAGES}")
if(NOT packages)
  set(packages "$ENV{HOME}/.nuget/packages")
endif()
if(CMAKE_HOST_WIN32) # vcpkg's, or those of the Windows SDK
  find_path(CPPWINRT_INCLUDE_DIR winrt/base.h)
endif()
find_path(CPPWINRT_INCLUDE_DIR winrt/base.h
  PATHS ${packages}/microsoft.windows.sdk.cpp/${windows_sdk_version}/c/Include/${windows_sdk_folder}/cppwinrt
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CppWinRT REQUIRED_VARS CPPWINRT_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup, which restores them from NuGet")

if(CppWinRT_FOUND AND NOT TARGET CppWinRT)
  # The file names are lower case, the #includes mixed case: create links for a case-sensitive file system.
  set(names ${CMAKE_BINARY_DIR}/cppwinrt)
  if(CMAKE_HOST_WIN32)
    set(names ${CPPWINRT_INCLUDE_DIR})
  elseif(NOT EXISTS ${names}/all_names)
    file(GLOB_RECURSE headers RELATIVE ${CPPWINRT_INCLUDE_DIR} ${CPPWINRT_INCLUDE_DIR}/winrt/*.h)
    foreach(header IN LISTS headers)
      file(STRINGS ${CPPWINRT_INCLUDE_DIR}/${header} lines REGEX "^#include \"winrt/.*[A-Z].*\"")
      list(APPEND includes ${lines})
    endforeach()
    # Public headers that no other header includes take their case from their implementation headers.
    list(TRANSFORM includes REPLACE "winrt/impl/(.*)\\.[012]\\.h" "winrt/\\1.h" OUTPUT_VARIABLE public_includes)
    list(APPEND includes ${public_includes})
    list(REMOVE_DUPLICATES includes)
    foreach(header IN LISTS headers)
      get_filename_component(folder ${names}/${header} DIRECTORY)
      file(MAKE_DIRECTORY ${folder})
      file(CREATE_LINK ${CPPWINRT_INCLUDE_DIR}/${header} ${names}/${header} SYMBOLIC)
    endforeach()
    foreach(include IN LISTS includes)
      string(REGEX REPLACE ".*\"(.*)\".*" "\\1" mixed "${include}")
      string(TOLOWER ${mixed} lower)
      file(CREATE_LINK ${CPPWINRT_INCLUDE_DIR}/${lower} ${names}/${mixed} SYMBOLIC)
    endforeach()
    file(TOUCH ${names}/all_names)
  endif()

  add_library(CppWinRT INTERFACE)
  target_include_directories(CppWinRT SYSTEM INTERFACE ${names})
  target_link_libraries(CppWinRT INTERFACE oleaut32 ole32 runtimeobject)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # Skips clang's <cpuid.h>, which defines __cpuidex like mingw's <intrin.h>, and its deprecated <mm3dnow.h>.
    target_compile_definitions(CppWinRT INTERFACE __CPUID_H _MM3DNOW_H_INCLUDED)
  elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Its templates need more sections than a plain COFF object can have.
    target_compile_options(CppWinRT INTERFACE -Wa,-mbig-obj)
  endif()
endif()
