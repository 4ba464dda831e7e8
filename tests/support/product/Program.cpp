// A plain program of the sample product, MODE EVENT on its command line: it runs until somebody ends it.
#include "support/product/Product.h"
#include "support/product/Start.h"

#include <windows.h>

// The program's entry point.
int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t*, int)
{
    using namespace Testing;
    const auto arguments = Arguments();
    const auto mode = arguments.size() == 2 ? ModeFrom(arguments[0], ProgramMode::CannotBeEnded) : std::nullopt;
    if (!mode || (*mode == ProgramMode::CannotBeEnded && !ForbidToEnd()))
    {
        return static_cast<int>(c_wronglyStarted);
    }
    TellThatItRuns(arguments[1]);
    Sleep(INFINITE);
    return static_cast<int>(c_endedByItself);
}
