// A recorded conversation between the program and whatever sits at the far end of its line (a
// terminal, or a modem with a terminal behind it), as a small text file:
//
//   # what the conversation shows (comment lines)
//   line: direct                     settings of the replay, "key: value", before the first step
//   = Waiting for next event         wait until the program shows this text
//   > \x05\r\n                       bytes the far end sends
//   < \x05                           bytes the program must answer
//
// Bytes are written with printable ASCII as is and \\, \r, \n and \xHH for the rest (a trailing
// space as \x20), the escapes printf %b understands. Consecutive lines of one direction are one
// turn; the line breaks inside a turn only keep packets apart for the reader.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace clockcomm::sim {

struct TranscriptStep {
  enum class Kind {
    kFarEnd,   // '>': the terminal (or modem) sends
    kProgram,  // '<': the program sends
    kSync,     // '=': the program has shown a text (it is ready for what follows)
  };
  Kind kind;
  std::string text;  // the bytes, or the text to wait for
  friend bool operator==(const TranscriptStep&, const TranscriptStep&) = default;
};

struct Transcript {
  std::vector<std::string> header;  // the comment lines at the top, without "# "
  std::map<std::string, std::string> settings;
  std::vector<TranscriptStep> steps;

  // Adds to the last step when it is bytes of the same direction, else starts a new one.
  void Add(TranscriptStep::Kind kind, std::string_view text);
  // A setting, or fallback when the transcript has none.
  std::string Setting(const std::string& key, const std::string& fallback = "") const;
};

std::string EscapeBytes(std::string_view bytes);
// Throws core::FormatException for an escape it does not know.
std::string UnescapeBytes(std::string_view text);

// Throws core::FormatException naming the line that is neither comment, setting nor step.
Transcript ParseTranscript(std::string_view text);
std::string FormatTranscript(const Transcript& transcript);

}  // namespace clockcomm::sim
