#pragma once

#include <cstddef>

namespace bench {

/// How often this process has allocated so far, whoever did: a program that links this counts every
/// `operator new`. Any thread.
std::size_t allocations();

}  // namespace bench
