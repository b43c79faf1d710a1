#include "sim/transcript.h"

#include <cstdio>

#include "core/errors.h"
#include "core/text.h"

namespace clockcomm::sim {
namespace {

using Kind = TranscriptStep::Kind;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

char Marker(Kind kind) {
  switch (kind) {
    case Kind::kFarEnd:
      return '>';
    case Kind::kProgram:
      return '<';
    case Kind::kSync:
      return '=';
  }
  return '?';
}

}  // namespace

void Transcript::Add(TranscriptStep::Kind kind, std::string_view text) {
  if (kind != Kind::kSync && !steps.empty() && steps.back().kind == kind) {
    steps.back().text += text;
  } else {
    steps.push_back({kind, std::string(text)});
  }
}

std::string Transcript::Setting(const std::string& key, const std::string& fallback) const {
  const auto found = settings.find(key);
  return found == settings.end() ? fallback : found->second;
}

std::string EscapeBytes(std::string_view bytes) {
  std::string out;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const auto c = static_cast<unsigned char>(bytes[i]);
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c < 0x20 || c > 0x7E || (c == ' ' && i + 1 == bytes.size())) {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", c);
      out += hex;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string UnescapeBytes(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      out += text[i];
      continue;
    }
    const char next = i + 1 < text.size() ? text[i + 1] : '\0';
    if (next == '\\' || next == 'r' || next == 'n') {
      out += next == 'r' ? '\r' : next == 'n' ? '\n' : '\\';
      ++i;
    } else if (next == 'x' && i + 3 < text.size() && HexDigit(text[i + 2]) >= 0 &&
               HexDigit(text[i + 3]) >= 0) {
      out += static_cast<char>(HexDigit(text[i + 2]) * 16 + HexDigit(text[i + 3]));
      i += 3;
    } else {
      throw core::FormatException("Unknown escape in \"" + std::string(text) + "\".");
    }
  }
  return out;
}

Transcript ParseTranscript(std::string_view text) {
  Transcript transcript;
  int number = 0;
  for (std::string line : core::Split(text, '\n')) {
    ++number;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) continue;
    if (line[0] == '#') {
      if (transcript.steps.empty() && transcript.settings.empty()) {
        transcript.header.push_back(core::Trim(line.substr(1)));
      }
      continue;
    }
    const bool step = line.size() >= 2 && line[1] == ' ';
    if (step && (line[0] == '>' || line[0] == '<')) {
      transcript.Add(line[0] == '>' ? Kind::kFarEnd : Kind::kProgram,
                     UnescapeBytes(line.substr(2)));
    } else if (step && line[0] == '=') {
      transcript.Add(Kind::kSync, line.substr(2));
    } else if (const auto colon = line.find(": ");
               colon != std::string::npos && transcript.steps.empty()) {
      transcript.settings[line.substr(0, colon)] = core::Trim(line.substr(colon + 2));
    } else {
      throw core::FormatException("Transcript line " + std::to_string(number) +
                                  " is no comment, setting or step.");
    }
  }
  return transcript;
}

std::string FormatTranscript(const Transcript& transcript) {
  std::string out;
  for (const auto& line : transcript.header) out += "# " + line + "\n";
  for (const auto& [key, value] : transcript.settings) out += key + ": " + value + "\n";
  for (const auto& step : transcript.steps) {
    const std::string marker = std::string(1, Marker(step.kind)) + " ";
    if (step.kind == Kind::kSync) {
      out += marker + step.text + "\n";
      continue;
    }
    // One line per packet: a line break after each LF.
    size_t start = 0;
    while (start < step.text.size()) {
      size_t end = step.text.find('\n', start);
      end = end == std::string::npos ? step.text.size() : end + 1;
      out += marker + EscapeBytes(std::string_view(step.text).substr(start, end - start)) + "\n";
      start = end;
    }
  }
  return out;
}

}  // namespace clockcomm::sim
