#include "instances/templates.h"

#define QZ_PREFIX
#define QZ_INDEX unsigned short
#include "instances/index_width.inc"
