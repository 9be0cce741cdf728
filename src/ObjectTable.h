// Tessera's object identifiers in OpenSSL's object table (internal).
#pragma once

#include <cstddef>

namespace TesseraLib {
namespace objects {

struct ObjectEntry {
    const char* oid;
    const char* shortName;  // may be null
    const char* longName;   // may be null
};

// Registers the library's table once per start-up. Returns true when the
// table is (or already was) registered.
bool EnsureRegistered();
// Registers `count` entries in order, stopping at the first failure. An OID
// OpenSSL already knows counts as registered. Returns false on failure.
bool Register(const ObjectEntry* table, std::size_t count);
bool IsRegistered();
// Cleared at shut-down so that the next start-up registers the table again.
void ClearRegisteredFlag();

}  // namespace objects
}  // namespace TesseraLib
