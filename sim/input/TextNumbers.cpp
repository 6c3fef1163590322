#include "sim/input/TextNumbers.h"

#include <charconv>

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

std::string_view TextNumbers::Trimmed(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

bool TextNumbers::ToInteger(std::string_view text, int64_t* value, int64_t min, int64_t max) {
  text = Trimmed(text);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  if (text.empty()) return false;
  int64_t parsed = 0;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (error != std::errc() || end != text.data() + text.size() || parsed < min || parsed > max) {
    return false;
  }
  *value = parsed;
  return true;
}

size_t TextNumbers::IntegerWords(std::string_view line, int64_t values[4]) {
  size_t count = 0;
  for (size_t pos = 0;;) {
    while (pos < line.size() && IsBlank(line[pos])) ++pos;
    if (pos == line.size()) return count;
    size_t end = pos;
    while (end < line.size() && !IsBlank(line[end])) ++end;
    int64_t value;
    if (!ToInteger(line.substr(pos, end - pos), &value)) return 0;
    if (count < 4) values[count] = value;
    ++count;
    pos = end;
  }
}
