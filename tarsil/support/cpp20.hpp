#pragma once

// First in the headers that a host's includes come to before any C++20, so that this is the first line it
// reads.
#if __cplusplus < 202002L
#error "Tarsil needs C++20: compile with -std=c++20, or set CMAKE_CXX_STANDARD to 20"
#endif
