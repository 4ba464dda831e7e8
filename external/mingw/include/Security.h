// The name by which others include it.
#include <security.h>
