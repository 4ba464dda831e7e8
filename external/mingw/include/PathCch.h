// The name by which others include it.
#include <pathcch.h>
