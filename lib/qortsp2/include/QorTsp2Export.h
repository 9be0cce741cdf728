// Symbol visibility for the time-stamp library.
//
// The library is compiled with hidden visibility and linked into
// libtessera.so; its public classes carry QORTSP2_API so that their symbols
// and type information (needed to catch TspException by type) are exported.
#pragma once

#define QORTSP2_API __attribute__((visibility("default")))
