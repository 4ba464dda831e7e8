# clang and lld for 64-bit Windows, with the C++ runtime and the import libraries of mingw-w64.
include(${CMAKE_CURRENT_LIST_DIR}/Versions.cmake)
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(CMAKE_C_COMPILER clang-${llvm_version})
set(CMAKE_CXX_COMPILER clang++-${llvm_version})
set(CMAKE_C_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_CXX_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_ASM_COMPILER clang-${llvm_version})
set(CMAKE_ASM_COMPILER_TARGET x86_64-w64-mingw32)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_AR llvm-ar-${llvm_version} CACHE STRING "")
set(CMAKE_RANLIB llvm-ranlib-${llvm_version} CACHE STRING "")

set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld-${llvm_version} -static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld-${llvm_version} -static")

set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
