#include "app/command_line/command_line.h"

#include <algorithm>
#include <utility>

namespace Tamrin {
namespace {

constexpr wchar_t kSpace = L' ';
constexpr wchar_t kQuote = L'"';

// Removes and returns the first token of `text`, which must not begin with a space.
std::wstring_view take_token(std::wstring_view& text) {
  const bool quoted = text.starts_with(kQuote);
  if (quoted)
    text.remove_prefix(1);
  const auto token = text.substr(0, text.find(quoted ? kQuote : kSpace));
  // The delimiter belongs to no token.
  text.remove_prefix(std::min(token.size() + 1, text.size()));
  return token;
}

// Removes a final "+" or "-" from an option's name and returns the value that it gives a flag.
bool take_flag_value(std::wstring_view& name) {
  const bool negative = name.ends_with(L'-');
  if (negative || name.ends_with(L'+'))
    name.remove_suffix(1);
  return !negative;
}

void store_text(command_line_option& option, std::wstring_view text) {
  if (!option.multi_value) {
    option.value = text;
    return;
  }
  using list = std::vector<std::wstring_view>;
  if (!std::holds_alternative<list>(option.value))
    option.value.emplace<list>();
  std::get<list>(option.value).push_back(text);
}

}  // namespace

std::vector<std::wstring> split(std::wstring_view text) {
  std::vector<std::wstring> tokens;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(kSpace), text.size()));
    if (text.empty())
      return tokens;
    tokens.emplace_back(take_token(text));
  }
}

command_line_option& command_line::add_flag(std::wstring long_name, std::wstring short_name) {
  return add(option_kind::flag, std::move(long_name), std::move(short_name));
}

command_line_option& command_line::add_valued(std::wstring long_name) {
  return add(option_kind::valued, std::move(long_name), {});
}

command_line_option& command_line::add_reference(std::wstring long_name) {
  return add(option_kind::reference, std::move(long_name), {});
}

command_line_option& command_line::add(option_kind kind, std::wstring long_name,
                                       std::wstring short_name) {
  command_line_option& option = options_.emplace_back();
  option.kind = kind;
  option.long_name = std::move(long_name);
  option.short_name = std::move(short_name);
  if (kind == option_kind::reference)
    return option;
  if (!option.long_name.empty())
    by_long_name_.emplace(option.long_name, &option);
  if (!option.short_name.empty())
    by_short_name_.emplace(option.short_name, &option);
  return option;
}

void command_line::parse(std::wstring_view text) {
  reset();
  tokens_ = split(text);
  if (tokens_.empty())
    tokens_.emplace_back();
  for (auto token = tokens_.cbegin() + 1; token != tokens_.cend(); ++token) {
    if (token->starts_with(L'-'))
      token = parse_option(token);
    else
      positional_.emplace_back(*token);
  }
  const auto missing = [](const auto& option) { return option.required && !option.present; };
  if (std::ranges::any_of(options_, missing))
    throw cmd_line_syntax_error("Missing required parameters");
  completed_ = true;
}

const command_line_option& command_line::at(std::wstring_view long_name) const {
  return find(by_long_name_, long_name, long_name);
}

void command_line::reset() {
  completed_ = false;
  positional_.clear();
  for (command_line_option& option : options_) {
    option.present = false;
    option.value = {};
  }
}

// Returns the option's last token: `token` itself or its value.
command_line::token_iterator command_line::parse_option(token_iterator token) {
  std::wstring_view name(*token);
  const bool is_long = name.starts_with(L"--");
  name.remove_prefix(is_long ? 2 : 1);
  const bool flag_value = take_flag_value(name);

  command_line_option& option = find(is_long ? by_long_name_ : by_short_name_, name, *token);
  option.present = true;
  if (option.kind == option_kind::flag) {
    option.value = flag_value;
    return token;
  }
  if (token + 1 == tokens_.cend())
    throw cmd_line_syntax_error("Command line argument's value is missing", *token);
  ++token;
  store_text(option, *token);
  return token;
}

command_line_option& command_line::find(const option_map& map, std::wstring_view name,
                                        std::wstring_view token) {
  const auto found = map.find(name);
  if (found == map.end())
    throw cmd_line_syntax_error("Invalid command line argument specified", token);
  return *found->second;
}

}  // namespace Tamrin
