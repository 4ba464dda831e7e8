#include <cstdlib>

#ifdef __GLIBCXX__
// Replaces libstdc++'s terminate handler, which prints the exception's type to stderr and links a demangler of 47 KB.
// Crash reporting has its own handler.
// NOLINTBEGIN(misc-use-internal-linkage,readability-identifier-naming,readability-redundant-declaration)
namespace __gnu_cxx
{
void __verbose_terminate_handler();

void __verbose_terminate_handler()
{
    std::abort();
}
} // namespace __gnu_cxx
// NOLINTEND(misc-use-internal-linkage,readability-identifier-naming,readability-redundant-declaration)
#endif
