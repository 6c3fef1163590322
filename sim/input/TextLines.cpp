#include "sim/input/TextLines.h"

#include <cstdio>

#include "sim/TextEscape.h"

TextLines::TextLines(const std::string& name, std::string_view text)
    : mName(TextEscape::Terminal(name)), mText(text) {
  if (mText.substr(0, 3) == "\xEF\xBB\xBF") mPos = 3;
}

bool TextLines::Next(std::string_view* line) {
  if (mPos >= mText.size() || !mError.empty()) return false;
  size_t end = mText.find_first_of("\r\n", mPos);
  if (end == std::string_view::npos) end = mText.size();
  *line = mText.substr(mPos, end - mPos);
  mPos = end;
  if (mPos < mText.size()) {
    bool carriageReturn = mText[mPos++] == '\r';
    if (carriageReturn && mPos < mText.size() && mText[mPos] == '\n') ++mPos;
  }
  ++mNumber;
  std::string problem = Check(*line);
  if (problem.empty()) return true;
  mError = Where() + problem;
  return false;
}

std::string TextLines::Where() const { return mName + ":" + std::to_string(mNumber) + ": "; }

std::string TextLines::Check(std::string_view line) const {
  for (size_t i = 0; i < line.size();) {
    auto byte = static_cast<unsigned char>(line[i]);
    if (byte >= 0x20 && byte < 0x7F) {
      ++i;
      continue;
    }
    if (byte == 0) return "a NUL byte: this is not a text file";
    if (byte < 0x80 && byte != '\t') {
      char text[80];
      std::snprintf(text, sizeof(text), "control character 0x%02X (only tabs are allowed)", byte);
      return text;
    }
    size_t length = byte == '\t' ? 1 : TextEscape::Utf8Sequence(line.substr(i));
    if (length == 0) return "bytes that are not UTF-8 text";
    i += length;
  }
  return "";
}
