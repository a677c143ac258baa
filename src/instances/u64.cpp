#include "instances/templates.h"

#define QZ_PREFIX
#define QZ_INDEX unsigned long
#include "instances/index_width.inc"
