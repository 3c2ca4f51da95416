#include "tarsil/serial/Peeping.hpp"

#include "tarsil/runtime/detail/Reactor.hpp"
