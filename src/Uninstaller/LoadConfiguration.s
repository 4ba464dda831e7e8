# The program's load configuration, which Windows' loader reads before the first instruction runs. Microsoft's runtime
# brings one; that of mingw-w64 has none. Its layout is IMAGE_LOAD_CONFIG_DIRECTORY64 of Windows' headers.
#
# - The libraries that the program imports, and those that they import, come from System32 and from nowhere else.
# - Control flow guard: an indirect call goes only to the start of a function whose address is taken somewhere. The
#   compiler calls through one of the two pointers below, which a Windows that has the guard replaces by its own check;
#   the linker makes the table of those functions.

    .equ    LOAD_LIBRARY_SEARCH_SYSTEM32, 0x800
    .equ    size, 0x140

    .section .rdata,"dr"
    .globl  _load_config_used
    .balign 8
_load_config_used:
    .long   size
    .fill   0x4A, 1, 0                          # nothing of what a Windows does by itself is changed
    .short  LOAD_LIBRARY_SEARCH_SYSTEM32        # DependentLoadFlags
    .fill   0x20, 1, 0
    .quad   __guard_check_icall_fptr            # GuardCFCheckFunctionPointer
    .quad   __guard_dispatch_icall_fptr         # GuardCFDispatchFunctionPointer
    .quad   __guard_fids_table                  # GuardCFFunctionTable
    .quad   __guard_fids_count                  # GuardCFFunctionCount
    .long   __guard_flags                       # GuardFlags
    .fill   0x0C, 1, 0
    .quad   __guard_iat_table                   # GuardAddressTakenIatEntryTable
    .quad   __guard_iat_count                   # GuardAddressTakenIatEntryCount
    .quad   __guard_longjmp_table               # GuardLongJumpTargetTable
    .quad   __guard_longjmp_count               # GuardLongJumpTargetCount
    .fill   size - (. - _load_config_used), 1, 0

    .globl  __guard_check_icall_fptr
__guard_check_icall_fptr:
    .quad   let_pass
    .globl  __guard_dispatch_icall_fptr
__guard_dispatch_icall_fptr:
    .quad   jump_there

    .text
let_pass:                                       # the function is in rcx; the caller calls it
    ret
jump_there:                                     # the function is in rax
    jmp     *%rax
