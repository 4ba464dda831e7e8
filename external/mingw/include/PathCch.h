// The real WIL includes the header by this name.
#include <pathcch.h>
