#include "instances/templates.h"

#define QZ_PREFIX
#define QZ_INDEX unsigned int
#include "instances/index_width.inc"
