// The JUnit report's escaping: what XML 1.0 can carry, and where.
#include "sim/JUnitReport.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(JUnitReportTest, EscapesMarkupAndReplacesWhatXmlCannotCarry) {
  struct Row {
    std::string text, inText, inAttribute;
  };
  const std::string fffd = "\xef\xbf\xbd";
  const Row rows[] = {
      {"a&b<c>d\"e'f", "a&amp;b&lt;c&gt;d&quot;e&apos;f", "a&amp;b&lt;c&gt;d&quot;e&apos;f"},
      {"1\t2\n3\r4", "1\t2\n3&#13;4", "1&#9;2&#10;3&#13;4"},
      {std::string("\0\x1b\x7f", 3), fffd + fffd + "\x7f", fffd + fffd + "\x7f"},
      {"\xc3\xa9\xf0\x9f\x8e\xae", "\xc3\xa9\xf0\x9f\x8e\xae", "\xc3\xa9\xf0\x9f\x8e\xae"},
      {"\xff\xc3(\xed\xa0\x80", fffd + fffd + "(" + fffd + fffd + fffd,
       fffd + fffd + "(" + fffd + fffd + fffd},
      {"\xef\xbf\xbe\xef\xbf\xbf\xef\xbf\xbd", fffd + fffd + fffd, fffd + fffd + fffd},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(JUnitReport::Escape(row.text, false), row.inText) << row.text;
    EXPECT_EQ(JUnitReport::Escape(row.text, true), row.inAttribute) << row.text;
  }
}

}  // namespace
