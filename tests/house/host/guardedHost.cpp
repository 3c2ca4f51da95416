#include <iostream>
#include <tarsil/guard/GuardedStation.hpp>

int main() {
  const auto opened = tarsil::GuardedStation::open({.exercise = {"LodeTreadmill", "/dev/no-port"}});
  std::cout << tarsil::name(opened.answer().code()) << "\n";
}
