#include "format/parser.h"

#include <algorithm>

#include "format/placeholder.h"

namespace tfmt::details {
namespace {

// Takes the text up to the next "{" that is not doubled, or to the end.
segment take_literal(cursor& at) {
  segment literal;
  literal.flags = kLiteral;
  const auto rest = at.rest();
  std::size_t end = rest.find(L'{');
  while (end != rest.npos && rest.substr(end + 1).starts_with(L'{')) {
    literal.has_escapes = true;
    end = rest.find(L'{', end + 2);
  }
  literal.text = at.take(std::min(end, rest.size()));
  return literal;
}

}  // namespace

bool parser::next(segment& result) {
  if (at_.at_end())
    return false;
  result = take_literal(at_);
  if (!result.text.empty())
    return true;
  at_.take();  // the "{" that ended the literal
  result = take_placeholder(at_, next_index_);
  next_index_ = static_cast<std::uint16_t>(result.index + 1);
  return true;
}

}  // namespace tfmt::details
