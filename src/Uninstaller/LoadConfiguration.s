# The program's load configuration, which Windows' loader reads before the first instruction runs. Microsoft's runtime
# brings one; that of mingw-w64 has none. Its layout is IMAGE_LOAD_CONFIG_DIRECTORY64 of Windows' headers.
#
# The libraries that the program imports, and those that they import, come from System32 and from nowhere else. Nothing
# else of what Windows does by itself is changed: all other fields are zero.

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
