// The generated descriptions of the protocols are C. As C++ they are the same, once their headers have said that these
// constants are visible elsewhere.
#include <outputs-client.h>
#include <screencopy-client.h>

extern "C" {
#include <outputs-code.inc>
#include <screencopy-code.inc>
}
