// The transcripts of docs/protocol.md.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/wire.h"

namespace system_test {

// The page's whole text, line ends as "\n".
std::string ProtocolPage();

struct TranscriptLine {
  char direction = ' ';  // '>' to the server, '<' from it
  Bytes bytes;
  std::string note;
};

// A block that begins with "```transcript CONNECTION NAME", of lines of hexadecimal numbers with a
// note behind "#". Blocks of the same connection follow each other on it.
struct Transcript {
  std::string connection;
  std::string name;
  std::vector<TranscriptLine> lines;

  // Puts `bytes` in the place of those of the lines from `first` up to `last`, divided into lines
  // of the same sizes as long as they last.
  void Replace(std::size_t first, std::size_t last, const Bytes& bytes);

  // As it stands in the page.
  [[nodiscard]] std::string Text() const;
};

// A line that is none throws std::runtime_error.
std::vector<Transcript> TranscriptsOf(const std::string& page);

// The bytes of each "```datagram NAME" block, by the name.
std::map<std::string, Bytes> DatagramsOf(const std::string& page);

// The table's control codes, by their names.
std::map<std::string, std::uint32_t> ControlCodesOf(const std::string& page);

}  // namespace system_test
