#pragma once

namespace ostrel {

/// Ends the process with one line on standard error. For states that no correct run can reach and that a
/// continued run would turn into wrong records, such as a counter that wrapped.
[[noreturn]] void fatal(const char *what);

} // namespace ostrel
