// JSON string literals written without a JSON library: whatever the bytes,
// a parser reads back the text with each invalid byte as U+FFFD.
#include "sim/TextEscape.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace {

TEST(TextEscapeTest, JsonLiteralsReadBackWithInvalidBytesReplaced) {
  const std::string text = std::string("q\"b\\s/\x01\b\f\n\r\t\x7F é \xFF\xC3(\xED\xA0\x80") + '\0';
  std::string literal = TextEscape::Json(text);
  EXPECT_EQ(literal,
            "\"q\\\"b\\\\s/\\u0001\\b\\f\\n\\r\\t\x7F é \xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD"
            "\xEF\xBF\xBD\xEF\xBF\xBD\\u0000\"");
  EXPECT_EQ(nlohmann::json::parse(literal).get<std::string>(),
            std::string("q\"b\\s/\x01\b\f\n\r\t\x7F é \xEF\xBF\xBD\xEF\xBF\xBD(\xEF\xBF\xBD"
                        "\xEF\xBF\xBD\xEF\xBF\xBD") +
                '\0');
}

}  // namespace
