# Finds the C++/WinRT headers that `dotnet restore` brought (scripts/setup), or those of CPPWINRT_INCLUDE_DIR.
# Defines the target CppWinRT.
set(packages "$ENV{NUGET_PACKAGES}")
if(NOT packages)
  set(packages "$ENV{HOME}/.nuget/packages")
endif()
file(STRINGS ${CMAKE_SOURCE_DIR}/external/cppwinrt/cppwinrt.csproj version REGEX "Microsoft.Windows.SDK.CPP")
string(REGEX REPLACE ".*Version=\"\\[(.*)\\]\".*" "\\1" version "${version}")
if(CMAKE_HOST_WIN32) # vcpkg's, or those of the Windows SDK
  find_path(CPPWINRT_INCLUDE_DIR winrt/base.h)
endif()
find_path(CPPWINRT_INCLUDE_DIR winrt/base.h
  PATHS ${packages}/microsoft.windows.sdk.cpp/${version}/c/Include/10.0.26100.0/cppwinrt
  NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(CppWinRT REQUIRED_VARS CPPWINRT_INCLUDE_DIR
  REASON_FAILURE_MESSAGE "run scripts/setup, which restores them from NuGet")

if(CppWinRT_FOUND AND NOT TARGET CppWinRT)
  # The files are named in lower case but include each other in mixed case.
  set(names ${CMAKE_BINARY_DIR}/cppwinrt)
  if(CMAKE_HOST_WIN32) # which does not care
    set(names ${CPPWINRT_INCLUDE_DIR})
  elseif(NOT EXISTS ${names}/all_names)
    file(GLOB_RECURSE headers RELATIVE ${CPPWINRT_INCLUDE_DIR} ${CPPWINRT_INCLUDE_DIR}/winrt/*.h)
    foreach(header IN LISTS headers)
      file(STRINGS ${CPPWINRT_INCLUDE_DIR}/${header} lines REGEX "^#include \"winrt/.*[A-Z].*\"")
      list(APPEND includes ${lines})
    endforeach()
    # Most of the public ones are included by nobody here: their names are those of their parts.
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
    # clang's <cpuid.h> and mingw's <intrin.h> both define __cpuidex, and the latter brings a header of clang's that does
    # nothing but warn: leave both out.
    target_compile_definitions(CppWinRT INTERFACE __CPUID_H _MM3DNOW_H_INCLUDED)
  elseif(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Its templates make more sections than an ordinary object file can have.
    target_compile_options(CppWinRT INTERFACE -Wa,-mbig-obj)
  endif()
endif()
