// A general command-line parser. A program registers its options, parses, and reads them back.
//
// Tokens are separated by spaces only. A token that begins with a double quote runs to the next
// quote; there is no escape character. "--name" selects an option by its long name, "-name" by its
// short one. A "+" or "-" at the end of a name gives a flag the value true or false; without either
// it is true. The token after a valued option is its value, even if it looks like an option.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/command_line/cmd_line_syntax_error.h"

namespace Tamrin {

enum class option_kind {
  flag,       // no value
  valued,     // takes the next token
  reference,  // a row of the help that repeats the names of another option
};

// Nothing, a flag's value, the value of an option, or all values of a multi-value option. The views
// point into tokens that live until the next parse.
using option_value =
    std::variant<std::monostate, bool, std::wstring_view, std::vector<std::wstring_view>>;

// One registered option. The program may set everything but the names, the kind and the results of
// the parse.
struct command_line_option {
  std::wstring short_name;  // used after "-"; may be empty
  std::wstring long_name;   // used after "--"; may be empty; for a reference, its target
  option_kind kind = option_kind::flag;
  bool required = false;
  bool multi_value = false;    // a valued option that collects every occurrence
  option_value default_value;  // a view here must outlive the parser

  // For the help.
  std::wstring value_name;
  std::wstring description;
  std::wstring group_header;  // a heading before this option, when not empty

  // Results of the parse.
  bool present = false;
  option_value value;

  // The value given to a flag, or false when it is absent. Throws std::bad_variant_access for a
  // present option of another kind.
  [[nodiscard]] bool flag() const { return present && std::get<bool>(value); }

  // The value given, or the default. Throws std::bad_variant_access when that is not one text.
  [[nodiscard]] std::wstring_view text() const {
    return std::get<std::wstring_view>(present ? value : default_value);
  }
};

// The tokens of a command line, without their quotes; the first is the program's path.
[[nodiscard]] std::vector<std::wstring> split(std::wstring_view text);

// Owns its options and tokens; references to both are valid as long as it lives (tokens: until the
// next parse). Not synchronised.
class command_line {
 public:
  command_line() = default;
  command_line(const command_line&) = delete;
  command_line& operator=(const command_line&) = delete;

  // Names are compared exactly, by code units; each long and each short name is registered once.
  command_line_option& add_flag(std::wstring long_name, std::wstring short_name = {});
  command_line_option& add_valued(std::wstring long_name);
  command_line_option& add_reference(std::wstring long_name);

  // Parses a whole command line, whose first token (the program's path) is skipped. Replaces the
  // results of an earlier parse. Throws cmd_line_syntax_error, and keeps the results until then.
  void parse(std::wstring_view text);

  // True when the last parse succeeded.
  [[nodiscard]] bool completed() const noexcept { return completed_; }

  // Throws cmd_line_syntax_error when there is no option of this long name.
  [[nodiscard]] const command_line_option& at(std::wstring_view long_name) const;

  // All options and references, in the order of their registration.
  [[nodiscard]] const std::deque<command_line_option>& options() const noexcept { return options_; }

  // Tokens that are neither options nor values of options.
  [[nodiscard]] const std::vector<std::wstring_view>& positional() const noexcept {
    return positional_;
  }

 private:
  using option_map = std::map<std::wstring, command_line_option*, std::less<>>;
  using token_iterator = std::vector<std::wstring>::const_iterator;

  command_line_option& add(option_kind kind, std::wstring long_name, std::wstring short_name);
  void reset();
  token_iterator parse_option(token_iterator token);
  [[nodiscard]] static command_line_option& find(const option_map& map, std::wstring_view name,
                                                 std::wstring_view token);

  std::deque<command_line_option> options_;  // never moves its elements: the maps point to them
  option_map by_long_name_;
  option_map by_short_name_;

  std::vector<std::wstring> tokens_;
  std::vector<std::wstring_view> positional_;
  bool completed_ = false;
};

}  // namespace Tamrin
