#include "app/command_line/command_line_help.h"

#include <algorithm>
#include <string_view>

#include "format/format.h"

namespace Tamrin {
namespace {

constexpr std::size_t kIndent = 4;  // before the names, and between them and the description
constexpr std::size_t kMinDescription = 16;
constexpr std::size_t kFallbackDescription = 20;  // for a console too narrow for kMinDescription

struct help_layout {
  std::size_t names_width;        // of the longest names text
  std::size_t description_width;  // a line reaches this length only when it is one long word

  [[nodiscard]] std::size_t description_column() const { return names_width + 2 * kIndent; }
};

// "-s, --long VALUE", reduced to the parts that the option has.
std::wstring names_text(const command_line& line, const command_line_option& row) {
  const auto& option = row.kind == option_kind::reference ? line.at(row.long_name) : row;
  const std::wstring names =
      tfmt::format(L"{0?<}-{1}{2?<}, {2?>}{0?>}{2?<}--{3}{2?>}", !option.short_name.empty(),
                   option.short_name, !option.long_name.empty(), option.long_name);
  const bool named_value = option.kind == option_kind::valued && !option.value_name.empty();
  return tfmt::format(L"{0}{1?<} {2}{1?>}", names, named_value, option.value_name);
}

help_layout measure(const command_line& line, std::size_t console_width) {
  help_layout layout{};
  for (const command_line_option& option : line.options())
    layout.names_width = std::max(layout.names_width, names_text(line, option).size());
  const std::size_t column = layout.description_column();
  layout.description_width =
      column + kMinDescription > console_width ? kFallbackDescription : console_width - column;
  return layout;
}

// Breaks a description into lines and appends them, all but the first indented to its column.
class description_writer {
 public:
  description_writer(std::wstring& output, std::wstring_view text, const help_layout& layout)
      : output_(output), text_(text), layout_(layout) {}

  void write() {
    std::size_t previous_word_end = 0;
    for (std::size_t at = 0; at < text_.size();) {
      const std::size_t word_end = std::min(text_.find_first_of(L" \n", at), text_.size());
      const bool is_word = word_end > at;
      // A word alone on its line that does not fit would fit no line: it is not broken.
      if (is_word && word_end - line_start_ >= layout_.description_width &&
          previous_word_end > line_start_) {
        break_at(previous_word_end);
      }
      if (is_word)
        previous_word_end = word_end;
      if (word_end < text_.size() && text_[word_end] == L'\n')
        break_at(word_end);
      at = word_end + 1;
    }
    if (line_start_ < text_.size() || text_.empty())
      break_at(text_.size());
  }

 private:
  // Ends the line before `end` and skips the one character there.
  void break_at(std::size_t end) {
    output_.append(text_.substr(line_start_, end - line_start_)).push_back(L'\n');
    line_start_ = end + 1;
    if (line_start_ < text_.size())
      output_.append(layout_.description_column(), L' ');
  }

  std::wstring& output_;
  const std::wstring_view text_;
  const help_layout& layout_;
  std::size_t line_start_ = 0;
};

std::wstring option_text(const command_line& line, const command_line_option& option,
                         const help_layout& layout) {
  std::wstring text = names_text(line, option);
  text.resize(layout.names_width + kIndent, L' ');
  description_writer(text, option.description, layout).write();
  return text;
}

}  // namespace

std::wstring format_help(const command_line& line, std::size_t console_width) {
  const help_layout layout = measure(line, console_width);
  std::wstring help;
  for (const command_line_option& option : line.options()) {
    help += tfmt::format(L"{0?<}\n{1}\n{0?>}    {2}", !option.group_header.empty(),
                         option.group_header, option_text(line, option, layout));
  }
  return help;
}

}  // namespace Tamrin
