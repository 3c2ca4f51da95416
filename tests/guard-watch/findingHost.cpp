// A host that ends with 0 when the watcher program that it finds is the one that it was told of.

#include <string_view>

#include "tarsil/guard/watch/detail/watcherProgram.hpp"

int main(int count, char** arguments) {
  return count == 2 && tarsil::detail::watcherProgram() == std::string_view(arguments[1]) ? 0 : 1;
}
