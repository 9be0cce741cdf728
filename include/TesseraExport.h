// Symbol visibility for libtessera.so.
//
// The library is built with hidden visibility; every public class and the C
// functions carry TESSERA_API so that their symbols and type information
// (needed to catch Tessera's exceptions by type) are exported.
#pragma once

#define TESSERA_API __attribute__((visibility("default")))
