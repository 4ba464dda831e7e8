# Product settings. A release sets its own values on CMake's command line (-D NAME=VALUE); the defaults lead nowhere.
set(VELMORA_SUPPORT_EMAIL "support@velmora.example" CACHE STRING "Support e-mail address, named in messages")
set(VELMORA_DOWNLOAD_SITE "https://velmora.example/download" CACHE STRING "Download site of the latest version")
set(VELMORA_SUPPORT_SITE "https://velmora.example/support"
  CACHE STRING "Support site, named in the confirmation")
# Hosts in the domain "invalid" are never resolved.
set(VELMORA_CRASH_REPORT_DSN "https://0123456789abcdef0123456789abcdef@crash.velmora.invalid/1234567890123456"
  CACHE STRING "DSN of the crash reports")

configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/ProductSettings.h.in
  ${CMAKE_BINARY_DIR}/generated/ProductSettings.h @ONLY)
add_library(ProductSettings INTERFACE)
target_include_directories(ProductSettings INTERFACE ${CMAKE_BINARY_DIR}/generated)
