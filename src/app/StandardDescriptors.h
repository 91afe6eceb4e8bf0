#pragma once

namespace ostrel {

/// Fills the places of closed standard input, output and error, so that no file or socket of ours lands there and gets
/// what was meant for a terminal. Reading and writing them goes on failing: closed input is not an empty value, and
/// what is printed into nothing has not been printed. First thing in main.
void fillClosedStandardDescriptors();

} // namespace ostrel
