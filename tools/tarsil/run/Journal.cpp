#include "tools/tarsil/run/Journal.hpp"

#include <utility>

namespace tarsil::cli {

std::string_view nameOf(Role role) {
  switch (role) {
    case Role::session:
      return "session";
    case Role::exercise:
      return "exercise";
    case Role::pressure:
      return "pressure";
    case Role::oximeter:
      return "oximeter";
  }
  return "";
}

std::string_view nameOf(Entry::Kind kind) {
  switch (kind) {
    case Entry::Kind::asked:
      return "asked";
    case Entry::Kind::answered:
      return "answered";
    case Entry::Kind::event:
      return "event";
    case Entry::Kind::failure:
      return "failure";
  }
  return "";
}

void Journal::note(Role role, Entry::Kind kind, std::string what, std::vector<float> values,
                   std::string text) {
  const Entry entry{.at = Clock::now() - start_,
                    .role = role,
                    .kind = kind,
                    .what = std::move(what),
                    .values = std::move(values),
                    .text = std::move(text)};
  for (const Reader& reader : readers_) reader(entry);
}

}  // namespace tarsil::cli
