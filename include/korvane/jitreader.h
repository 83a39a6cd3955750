// The public contract of korvane jitreader: include this header alone.
#ifndef KORVANE_JITREADER_H
#define KORVANE_JITREADER_H

#include <korvane/convert.h>
#include <korvane/export.h>
#include <korvane/generic_iterator.h>
#include <korvane/interfaces.h>
#include <korvane/types.h>

#endif
