# Sets the variables of scripts/versions, such as llvm_version.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../scripts/versions lines REGEX "^[a-z_]+=")
foreach(line IN LISTS lines)
  string(REGEX MATCH "^([a-z_]+)=([^ ]+)" assignment "${line}")
  set(${CMAKE_MATCH_1} ${CMAKE_MATCH_2})
endforeach()
