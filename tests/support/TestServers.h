// Where tests find the servers that CTest fixtures started (tests/servers/).
#pragma once

#include <openssl/x509.h>

#include <cstdint>
#include <string>

namespace tessera_test {

// The folder of server `name` below $TESSERA_TEST_SERVERS; empty when the
// variable is not set.
std::string ServerDir(const std::string& name);

// The first line of file `file` in that folder (e.g. "url"); empty when the
// server is not running.
std::string ServerFile(const std::string& name, const std::string& file);

// Puts `crl` (thisUpdate `thisUpdate`) into the crlservice fixture's folder,
// named as the service looks CRLs up: Base64url of the issuer name's DER
// without padding, then thisUpdate.
void PublishToCrlService(X509_CRL* crl, std::int64_t thisUpdate);

// A loopback port nobody listens on now (taken from the system, then
// released): for a server to start on, or a connection to be refused.
int FreeLoopbackPort();

}  // namespace tessera_test
