# vcpkg's triplet of this name, with sentry-native's in-process backend. Its usual one on Windows needs a second program,
# crashpad_handler.exe, beside the uninstaller; without the feature "backend" there would be no reports of crashes.
set(VCPKG_TARGET_ARCHITECTURE x64)
set(VCPKG_CRT_LINKAGE static)
set(VCPKG_LIBRARY_LINKAGE static)
set(SENTRY_BACKEND inproc)
