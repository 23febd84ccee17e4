#include "format/renderer.h"

#include <string_view>
#include <variant>

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

// Appends an argument according to its type.
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

}  // namespace

void renderer::add(const segment& part) {
  if (part.has(kLiteral)) {
    if (!conditions_.suppressed())
      append_literal(output_, part);
    return;
  }
  if (part.index >= arguments_.size())
    throw bad_extended_format_string();
  const argument& value = arguments_[part.index];
  if (part.has(kConditional))
    apply_condition(conditions_, part, value);
  else if (!conditions_.suppressed())
    std::visit(argument_writer{output_, part}, value);
}

}  // namespace tfmt::details
