#include "instances/templates.h"

#define QZ_PREFIX
#define QZ_INDEX unsigned char
#include "instances/index_width.inc"
