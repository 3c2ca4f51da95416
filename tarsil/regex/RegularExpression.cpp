#include "tarsil/regex/RegularExpression.hpp"

#include "tarsil/regex/detail/RegexParser.hpp"
#include "tarsil/regex/detail/RegexProgram.hpp"
#include "tarsil/regex/detail/RegexRun.hpp"

namespace tarsil {

using detail::RegexProgram;
using detail::RegexRun;

RegularExpression::RegularExpression(std::string_view pattern)
    : pattern_(pattern),
      program_(std::make_shared<const RegexProgram>(detail::RegexParser(pattern).parse())) {}

bool RegularExpression::matchesWhole(std::string_view text) const {
  return program_->mayMatch(text) && RegexRun(*program_, text).matches(RegexRun::Extent::whole);
}

bool RegularExpression::matchesPrefix(std::string_view text) const {
  return program_->mayMatch(text) && RegexRun(*program_, text).matches(RegexRun::Extent::prefix);
}

}  // namespace tarsil
