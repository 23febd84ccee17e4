#include "format/renderer.h"

#include <cstddef>
#include <string_view>
#include <variant>

#include "format/condition_stack.h"
#include "format/exceptions.h"
#include "format/fitting.h"
#include "format/integers.h"

namespace tfmt::details {
namespace {

void append_literal(std::wstring& output, const segment& literal) {
  auto text = literal.text;
  if (!literal.has_escapes) {
    output.append(text);
    return;
  }
  // Within a literal every "{" is the first of a pair.
  for (auto brace = text.find(L'{'); brace != text.npos; brace = text.find(L'{')) {
    output.append(text.substr(0, brace + 1));
    text.remove_prefix(brace + 2);
  }
  output.append(text);
}

// Appends an argument by its type.
struct argument_writer {
  std::wstring& output;
  const segment& placeholder;

  void operator()(std::int32_t value) const { write(integer_text(value, placeholder).view()); }
  void operator()(std::uint32_t value) const { write(integer_text(value, placeholder).view()); }
  void operator()(bool) const { write({}); }
  void operator()(std::wstring_view text) const { write(text); }
  void write(std::wstring_view text) const { append_fitted(output, text, placeholder); }
};

void apply_condition(condition_stack& conditions, const segment& placeholder,
                     const argument& value) {
  if (placeholder.has(kClose))
    return conditions.pop();
  if (placeholder.has(kElse))
    return conditions.invert_top();
  const bool* condition = std::get_if<bool>(&value);
  if (condition == nullptr)
    throw bad_extended_format_string();
  conditions.push(*condition);
}

// What the result needs when no integer is long and nothing is padded: a guess that usually makes
// one allocation do.
std::size_t estimate_length(std::span<const segment> table, std::span<const argument> arguments) {
  constexpr std::size_t kTypicalInteger = 10;
  std::size_t length = 0;
  for (const segment& part : table) {
    if (part.has(kLiteral)) {
      length += part.text.size();
    } else if (!part.has(kConditional) && part.index < arguments.size()) {
      const auto* text = std::get_if<std::wstring_view>(&arguments[part.index]);
      length += text != nullptr ? text->size() : kTypicalInteger;
    }
  }
  return length;
}

}  // namespace

std::wstring render(std::span<const segment> table, std::span<const argument> arguments) {
  std::wstring output;
  output.reserve(estimate_length(table, arguments));
  condition_stack conditions;
  for (const segment& part : table) {
    if (part.has(kLiteral)) {
      if (!conditions.suppressed())
        append_literal(output, part);
      continue;
    }
    if (part.index >= arguments.size())
      throw bad_extended_format_string();
    const argument& value = arguments[part.index];
    if (part.has(kConditional)) {
      apply_condition(conditions, part, value);
    } else if (!conditions.suppressed()) {
      std::visit(argument_writer{output, part}, value);
    }
  }
  return output;
}

}  // namespace tfmt::details
