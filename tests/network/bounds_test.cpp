// What failures must not cost: descriptors, and more attempts than there are to be.

#include "platform/http.h"
#include "platform/json.h"
#include "tests/network/network_test.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/raw_server.h"
#include "tests/support/refusing_port.h"

namespace pelmar::test {
namespace {}  // namespace
}  // namespace pelmar::test
