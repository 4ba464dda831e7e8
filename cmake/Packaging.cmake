# The files of `cmake --install` and `cpack`: see scripts/package.
install(TARGETS Velmora.Uninstaller DESTINATION .)
install(FILES $<TARGET_FILE_DIR:Velmora.Uninstaller>/Velmora.Uninstaller.pdb DESTINATION .)
install(FILES README.md CHANGELOG.md DESTINATION .)
install(DIRECTORY docs DESTINATION .)
install(CODE "
  set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}\")
  execute_process(COMMAND \"${CMAKE_SOURCE_DIR}/scripts/sbom\" \"${CMAKE_BINARY_DIR}\"
    OUTPUT_FILE \"\${folder}/Velmora.Uninstaller.cdx.json\" COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND \"${CMAKE_SOURCE_DIR}/scripts/third-party-notices\"
    OUTPUT_FILE \"\${folder}/THIRD-PARTY-NOTICES.txt\" COMMAND_ERROR_IS_FATAL ANY)")

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_FILE_NAME ${PROJECT_NAME}-${PROJECT_VERSION})
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
