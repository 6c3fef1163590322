#include "sim/TextEscape.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

namespace {

bool Continuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

void AppendHex(unsigned char byte, std::string* out) {
  char text[8];
  std::snprintf(text, sizeof(text), "\\x%02X", byte);
  *out += text;
}

// The bytes at the start of `text` (not a well-formed sequence) that one
// U+FFFD stands for, as nlohmann's "replace" counts them: a lead byte and
// the continuation bytes that could still have completed it, or one byte
// that cannot start a sequence.
size_t BrokenSequence(std::string_view text) {
  auto lead = static_cast<unsigned char>(text[0]);
  size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (length == 0 || lead > 0xF4) return 1;
  size_t taken = 1;
  for (; taken < length && taken < text.size(); ++taken) {
    auto byte = static_cast<unsigned char>(text[taken]);
    bool second = taken == 1;
    unsigned char low = second && lead == 0xE0 ? 0xA0 : second && lead == 0xF0 ? 0x90 : 0x80;
    unsigned char high = second && lead == 0xED ? 0x9F : second && lead == 0xF4 ? 0x8F : 0xBF;
    if (byte < low || byte > high) break;
  }
  return taken;
}

}  // namespace

namespace TextEscape {

size_t Utf8Sequence(std::string_view text) {
  if (text.empty()) return 0;
  auto byte = [&text](size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (length == 0 || lead > 0xF4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if (!Continuation(byte(i))) return 0;
  }
  unsigned char second = byte(1);
  if (lead == 0xE0 && second < 0xA0) return 0;   // overlong
  if (lead == 0xED && second >= 0xA0) return 0;  // surrogate
  if (lead == 0xF0 && second < 0x90) return 0;   // overlong
  if (lead == 0xF4 && second >= 0x90) return 0;  // above U+10FFFF
  return length;
}

std::string Terminal(std::string_view text) {
  // Most texts are plain printable ASCII: copied whole.
  size_t plain = 0;
  while (plain < text.size() &&
         (text[plain] == '\t' || (text[plain] >= 0x20 && text[plain] < 0x7F))) {
    ++plain;
  }
  std::string out(text.substr(0, plain));
  if (plain == text.size()) return out;
  out.reserve(text.size() + 16);
  for (size_t i = plain; i < text.size();) {
    auto byte = static_cast<unsigned char>(text[i]);
    size_t length = Utf8Sequence(text.substr(i));
    bool c1 = length == 2 && byte == 0xC2 && static_cast<unsigned char>(text[i + 1]) < 0xA0;
    if (byte == '\n') {
      out += "\\n";
    } else if (length == 0 || c1 || (byte < 0x20 && byte != '\t') || byte == 0x7F) {
      for (size_t k = 0; k < (length == 0 ? 1 : length); ++k) {
        AppendHex(static_cast<unsigned char>(text[i + k]), &out);
      }
    } else {
      out.append(text.substr(i, length));
    }
    i += length == 0 ? 1 : length;
  }
  return out;
}

std::string Json(std::string_view text) {
  static constexpr std::pair<char, const char*> kShort[] = {
      {'"', "\\\""}, {'\\', "\\\\"}, {'\b', "\\b"}, {'\f', "\\f"},
      {'\n', "\\n"}, {'\r', "\\r"},  {'\t', "\\t"}};
  std::string out = "\"";
  out.reserve(text.size() + 2);
  for (size_t i = 0; i < text.size();) {
    auto byte = static_cast<unsigned char>(text[i]);
    if (byte >= 0x20 && byte < 0x80 && byte != '"' && byte != '\\') {
      out += text[i++];
      continue;
    }
    size_t length = byte < 0x80 ? 1 : Utf8Sequence(text.substr(i));
    const auto* escaped = std::find_if(std::begin(kShort), std::end(kShort),
                                       [&](const auto& pair) { return pair.first == text[i]; });
    if (length == 0) {
      out += "\xEF\xBF\xBD";  // U+FFFD for the broken sequence
      i += BrokenSequence(text.substr(i));
      continue;
    }
    if (escaped != std::end(kShort)) {
      out += escaped->second;
    } else if (byte < 0x20) {
      char code[8];
      std::snprintf(code, sizeof(code), "\\u%04x", byte);
      out += code;
    } else {
      out.append(text.substr(i, length));
    }
    i += length;
  }
  return out + "\"";
}

std::string Xml(std::string_view text) {
  std::string out;
  for (char c : Terminal(text)) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace TextEscape
