# All compile options. This project's targets link to CompilerOptions.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

add_library(CompilerOptions INTERFACE)
target_link_libraries(CompilerOptions INTERFACE Threads::Threads)
target_compile_definitions(CompilerOptions INTERFACE
  UNICODE _UNICODE STRICT NOMINMAX WIN32_LEAN_AND_MEAN
  WINVER=0x0A00 _WIN32_WINNT=0x0A00 NTDDI_VERSION=0x0A000008)
if(MSVC)
  # /wd4068: pragmas for other compilers.
  target_compile_options(CompilerOptions INTERFACE
    /WX /W4 /wd4068 /permissive- /utf-8 /EHsc /Zc:__cplusplus /Zc:preprocessor /guard:cf /bigobj
    $<$<CONFIG:Release>:/Zi> $<$<CONFIG:Release>:/Gy>)
  # DLLs from System32 only, as in LoadConfiguration.s.
  target_link_options(CompilerOptions INTERFACE /DEPENDENTLOADFLAG:0x800 /GUARD:CF /CETCOMPAT
    $<$<CONFIG:Release>:/DEBUG> $<$<CONFIG:Release>:/OPT:REF> $<$<CONFIG:Release>:/OPT:ICF> /INCREMENTAL:NO)
else()
  target_compile_options(CompilerOptions INTERFACE
    -Werror -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wcast-qual -Wcast-align
    -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wundef -Wextra-semi -Wimplicit-fallthrough
    -Wdouble-promotion -Wunused
    # g++ 14 finds one in its own std::vector.
    $<$<NOT:$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_GREATER_EQUAL:$<CXX_COMPILER_VERSION>,14>>>:-Wnull-dereference>)
  if(NOT VELMORA_COVERAGE) # gcov needs full paths
    # __FILE__ in recorded failures: relative to this folder.
    target_compile_options(CompilerOptions INTERFACE
      -ffile-prefix-map=${CMAKE_BINARY_DIR}/= -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)
    target_compile_options(CompilerOptions INTERFACE -ffunction-sections -fdata-sections)
    target_link_options(CompilerOptions INTERFACE -Wl,--gc-sections)
  endif()

  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ warns about Windows' functions as template arguments (their calling convention is the target's only one), and
    # about each class that implements a COM interface (these have no virtual destructor).
    target_compile_options(CompilerOptions INTERFACE -Wno-ignored-attributes -Wno-non-virtual-dtor)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(CompilerOptions INTERFACE
      -Wshadow-all -Wunreachable-code-aggressive -Wcomma -Wrange-loop-analysis -Wmissing-prototypes
      -Wmissing-variable-declarations -Wnewline-eof -Wzero-as-null-pointer-constant)
  endif()
endif()

if(VELMORA_SANITIZE)
  # There is no sanitizer runtime for this target: undefined behaviour traps. What the tests' own code is not asked takes a fifth of
  # the time that the compiler needs for them: a null pointer ends it anyway, and x64 takes any alignment.
  target_compile_options(CompilerOptions INTERFACE -fsanitize=undefined -fsanitize-trap=undefined
    $<$<BOOL:$<TARGET_PROPERTY:VELMORA_TEST_CODE>>:-fno-sanitize=null,alignment,object-size>)
  target_compile_definitions(CompilerOptions INTERFACE _GLIBCXX_ASSERTIONS)
endif()
if(VELMORA_COVERAGE)
  target_compile_options(CompilerOptions INTERFACE --coverage -g0)
  target_link_libraries(CompilerOptions INTERFACE gcov)
  # GNU ld takes more than a minute for the unit tests, lld a second.
  include(${CMAKE_CURRENT_LIST_DIR}/Versions.cmake)
  find_program(CLANG_LINKER clang++-${llvm_version} REQUIRED)
  set(CMAKE_CXX_LINK_EXECUTABLE
    "${CLANG_LINKER} --target=x86_64-w64-mingw32 -fuse-ld=lld-${llvm_version} -static -pthread <LINK_FLAGS> <OBJECTS> -o <TARGET> <LINK_LIBRARIES>")
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options(
    # For a .pdb, in which nothing tells of this folder.
    $<$<CONFIG:Release>:-g> $<$<CONFIG:Release>:-gcodeview>
    $<$<CONFIG:Release>:-gno-codeview-command-line> $<$<CONFIG:Release>:-ffile-compilation-dir=.>
    $<$<CONFIG:Release>:-Os>
    # No -mguard=cf: mingw-w64's runtime is built without it, so its functions are missing in the guard table.
    $<$<CONFIG:Release>:-fstack-protector-strong>)
endif()

# What nearly every source file includes: precompiled, each target with its own options. scripts/tidy sees to it that a file
# includes what it uses all the same; it would not know of a precompiled header which others this one stands for (IWYU pragma).
set(COMMON_HEADERS <windows.h> <algorithm> <memory> <optional> <string> <string_view> <utility> <vector>)

# For the tests' own code: fast to build, with line tables for a debugger.
define_property(TARGET PROPERTY VELMORA_TEST_CODE INITIALIZE_FROM_VARIABLE VELMORA_TEST_CODE)
macro(use_test_compile_options)
  set(VELMORA_TEST_CODE ON)
  if(NOT MSVC)
    add_compile_options(-O0 $<IF:$<CONFIG:Debug>,-g1,-g0> -fno-stack-protector)
  endif()
endmacro()

# Puts a stripped program at the top of the build folder, with its .pdb beside it.
function(ship_program target)
  # The generator expression keeps Visual Studio from adding a folder for each configuration.
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY $<1:${CMAKE_BINARY_DIR}>)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_link_options(${target} PRIVATE
      $<$<CONFIG:Release>:-s> $<$<CONFIG:Release>:-Wl,--pdb=${target}.pdb>
      $<$<CONFIG:Release>:-Wl,-Xlink=-pdbaltpath:${target}.pdb> $<$<CONFIG:Release>:-Wl,-Xlink=-pdbsourcepath:.>
      $<$<CONFIG:Release>:-Wl,-Xlink=-Brepro>) # a hash in place of the time
  endif()
endfunction()
