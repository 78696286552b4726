/* The C header alone, as a C compiler of any standard sees it. */
#include <velcan/c.h>

velcan_status (*const velcan_header_check)(velcan_history**) = 0;
