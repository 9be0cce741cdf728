// Symbol visibility for the qorstd container library.
//
// The library is compiled with hidden visibility and linked into libtessera.so;
// only the types applications use are given default visibility, so that their
// type information (needed to catch exceptions by type) crosses the boundary.
#pragma once

#define QORSTL_API __attribute__((visibility("default")))
