#include <cstdlib>

#ifdef __GLIBCXX__
// libstdc++ would tell the type of the exception that ends the program on a console that it does not have, and needs
// 47 KB to write it as a person would. Crash reporting has a handler of its own.
// The name is its own, which this one replaces:
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
