// Symbol visibility of the public contract.
#ifndef KORVANE_EXPORT_H
#define KORVANE_EXPORT_H

#define KORVANE_API __attribute__((visibility("default")))

#endif
