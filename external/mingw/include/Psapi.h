// The name by which others include it.
#include <psapi.h>
