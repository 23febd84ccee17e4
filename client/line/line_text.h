// Changes that a user may ask for in the text of a line. Blocks of bytes come one after another; a
// line end, or a line, may lie across several.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace tarnwheel::client {

// The bytes of a line end by its name: none, cr, lf or crlf. Throws cmd_line_syntax_error for another
// name, and for "none" unless `may_be_none`.
[[nodiscard]] std::string_view parse_line_end(std::wstring_view name, bool may_be_none);

// Gives each LF, with the CR before it if there is one, another form; a CR alone stays.
class line_end_converter {
 public:
  // `end` must outlive this, and is not empty.
  explicit line_end_converter(std::string_view end) : end_(end) {}

  // A CR at the end of the block is kept back until the next one.
  [[nodiscard]] std::vector<std::byte> convert(std::span<const std::byte> block);
  // What is kept back, at the end of the text.
  [[nodiscard]] std::vector<std::byte> finish();

 private:
  const std::string_view end_;
  bool kept_cr_ = false;
};

// Puts a CR before each LF that has none, and keeps nothing back.
class cr_inserter {
 public:
  [[nodiscard]] std::vector<std::byte> convert(std::span<const std::byte> block);

 private:
  std::byte last_{};
};

// Puts the local time, "hh:mm:ss.mmm " in ASCII, before the first byte of each line.
class time_stamper {
 public:
  // The block's bytes have come just now.
  [[nodiscard]] std::vector<std::byte> convert(std::span<const std::byte> block);

 private:
  bool begins_line_ = true;
};

}  // namespace tarnwheel::client
