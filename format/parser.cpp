#include "format/parser.h"

#include <algorithm>
#include <cstddef>

#include "format/cursor.h"
#include "format/placeholder.h"

namespace tfmt::details {
namespace {

// The text up to the next "{" that is not doubled, or to the end.
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

segment_table parse(std::wstring_view pattern) {
  segment_table table;
  const auto braces = static_cast<std::size_t>(std::ranges::count(pattern, L'{'));
  table.reserve(2 * braces + 1);

  std::uint16_t next_index = 0;
  for (cursor at(pattern); !at.at_end();) {
    if (const segment literal = take_literal(at); !literal.text.empty())
      table.push_back(literal);
    if (!at.take_if(L'{'))
      break;
    table.push_back(take_placeholder(at, next_index));
    next_index = static_cast<std::uint16_t>(table.back().index + 1);
  }
  return table;
}

}  // namespace tfmt::details
