// The name by which the real WIL includes it.
#include <pathcch.h>
