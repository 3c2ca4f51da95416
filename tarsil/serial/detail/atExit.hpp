#pragma once

namespace tarsil::detail {

/// Registers a handler of the process's end; not 0 when the system refuses.
using AtExit = int (*)(void (*handler)());

/// std::atexit, unless a test put a function that refuses in its place.
AtExit atExit();
AtExit exchangeAtExit(AtExit registration);

}  // namespace tarsil::detail
