# The image's load configuration (IMAGE_LOAD_CONFIG_DIRECTORY64), which mingw-w64's runtime lacks. Its only non-zero fields
# are the size and DependentLoadFlags: imported DLLs, and those that they import, are loaded from System32 only.

    .equ    LOAD_LIBRARY_SEARCH_SYSTEM32, 0x800
    .equ    size, 0x140

    .section .rdata,"dr"
    .globl  _load_config_used
    .balign 8
_load_config_used:
    .long   size
    .fill   0x4A, 1, 0
    .short  LOAD_LIBRARY_SEARCH_SYSTEM32        # DependentLoadFlags, at 0x4E
    .fill   size - (. - _load_config_used), 1, 0
