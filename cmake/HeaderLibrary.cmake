# add_header_library(TARGET INCLUDE_DIR NAME): the library whose headers are in INCLUDE_DIR/NAME. Links that folder: /usr/include also
# has the build machine's system headers.
function(add_header_library target include_dir name)
  set(folder ${include_dir})
  if(NOT CMAKE_HOST_WIN32)
    set(folder ${CMAKE_BINARY_DIR}/${name})
    file(MAKE_DIRECTORY ${folder})
    file(CREATE_LINK ${include_dir}/${name} ${folder}/${name} SYMBOLIC COPY_ON_ERROR)
  endif()
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${folder})
endfunction()
