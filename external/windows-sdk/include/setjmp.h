// What clang's headers need of Visual C++'s own.
#pragma once

typedef double jmp_buf[32];
