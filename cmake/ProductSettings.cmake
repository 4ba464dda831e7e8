# What belongs to the product and not to its uninstaller's logic. A release sets its own values on CMake's command line
# (-D NAME=VALUE); the defaults lead nowhere.
set(VELMORA_SUPPORT_EMAIL "support@velmora.example" CACHE STRING "Support e-mail address, named in messages")
set(VELMORA_DOWNLOAD_SITE "https://velmora.example/download" CACHE STRING "Where the latest version can be downloaded")
set(VELMORA_SUPPORT_SITE "https://velmora.example/support"
  CACHE STRING "Where users find help, named in the confirmation")
# A host below "invalid" is never looked up.
set(VELMORA_CRASH_REPORT_DSN "https://0123456789abcdef0123456789abcdef@crash.velmora.invalid/1234567890123456"
  CACHE STRING "Where crash reports go")

configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/ProductSettings.h.in
  ${CMAKE_BINARY_DIR}/generated/ProductSettings.h @ONLY)
add_library(ProductSettings INTERFACE)
target_include_directories(ProductSettings INTERFACE ${CMAKE_BINARY_DIR}/generated)
