// The shared library's own translation unit; its code comes whole from the library's parts.
// It compiles the umbrella header alone, as an application does first, so an exported header
// that does not stand on its own breaks the library's build, not an application's.
#include "velcan/velcan.h"
