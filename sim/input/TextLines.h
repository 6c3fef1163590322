// The lines of a text file from the user, checked on the way: lines end in
// \n, \r\n or a lone \r (old Mac files); the last line needs no end; a
// UTF-8 byte-order mark at the start is skipped. A NUL byte, bytes that are
// not UTF-8, or a control character other than a tab stop the reading with
// "NAME:LINE: what was found", so nothing is silently cut short.
#pragma once

#include <string>
#include <string_view>

class TextLines {
 public:
  // `text` must outlive the reader; `name` is used in errors.
  TextLines(const std::string& name, std::string_view text);

  // The next line, without its end. False at the end of the text, or at a
  // bad line (then error() says why).
  bool Next(std::string_view* line);
  int number() const { return mNumber; }  // of the line last returned, from 1
  const std::string& error() const { return mError; }
  // "NAME:LINE: " for messages about the line last returned.
  std::string Where() const;

 private:
  std::string Check(std::string_view line) const;

  std::string mName;
  std::string_view mText;
  size_t mPos = 0;
  int mNumber = 0;
  std::string mError;
};
