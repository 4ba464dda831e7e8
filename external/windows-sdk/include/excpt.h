// What the Windows SDK's headers need of Visual C++'s own.
#pragma once

enum EXCEPTION_DISPOSITION
{
    ExceptionContinueExecution,
    ExceptionContinueSearch,
    ExceptionNestedException,
    ExceptionCollidedUnwind
};

#define EXCEPTION_EXECUTE_HANDLER 1
#define EXCEPTION_CONTINUE_SEARCH 0
#define EXCEPTION_CONTINUE_EXECUTION (-1)
#define GetExceptionInformation() ((struct _EXCEPTION_POINTERS*)_exception_info())
