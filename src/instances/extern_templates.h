#pragma once

/// Keeps a source file of the library from compiling the class templates again that the files of
/// this folder compile. To be included behind the headers of the library.

#include "instances/templates.h"

#define QZ_PREFIX extern

#define QZ_INDEX unsigned char
#include "instances/index_width.inc"
#undef QZ_INDEX
#define QZ_INDEX unsigned short
#include "instances/index_width.inc"
#undef QZ_INDEX
#define QZ_INDEX unsigned int
#include "instances/index_width.inc"
#undef QZ_INDEX
#define QZ_INDEX unsigned long
#include "instances/index_width.inc"
#undef QZ_INDEX

#undef QZ_PREFIX
