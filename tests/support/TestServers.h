// Where tests find the servers that CTest fixtures started (tests/servers/).
#pragma once

#include <string>

namespace tessera_test {

// The folder of server `name` below $TESSERA_TEST_SERVERS; empty when the
// variable is not set.
std::string ServerDir(const std::string& name);

// The first line of file `file` in that folder (e.g. "url"); empty when the
// server is not running.
std::string ServerFile(const std::string& name, const std::string& file);

}  // namespace tessera_test
