#pragma once

#include <memory>

namespace tarsil::detail {

class Reactor;

/// The reactor of every queue but the main one: the worker threads', or the `VirtualTime`'s while one exists.
std::shared_ptr<Reactor> backgroundReactor();

}  // namespace tarsil::detail
