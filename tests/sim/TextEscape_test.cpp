// JSON string literals written without a JSON library must be byte for byte
// what nlohmann writes (recorded events files are compared with new ones):
// every escape, and each kind of broken UTF-8 sequence, anywhere in a text.
#include "sim/TextEscape.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

namespace {

TEST(TextEscapeTest, JsonLiteralsAreWhatNlohmannWrites) {
  const std::string broken[] = {"\xFF",         "\x80",         "\xC0\xAF", "\xC3",
                                "\xC3(",        "\xE0\x80\x80", "\xE0\xA0", "\xED\xA0\x80",
                                "\xED\x9F\xBF", "\xF0\x8F",     "\xF0\x90", "\xF0\x90\x80",
                                "\xF4\x90\x80", "\xF4\x8F\xBF", "\xF5\x80", "\xE2\x82\xAC"};
  for (const std::string& bytes : broken) {
    for (const std::string& text : {bytes, "a" + bytes + "b", bytes + bytes + "\xC3\xA9"}) {
      std::string wanted =
          nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
      EXPECT_EQ(TextEscape::Json(text), wanted)
          << nlohmann::json(text).dump(-1, ' ', true, nlohmann::json::error_handler_t::replace);
    }
  }
  const std::string controls = std::string("q\"b\\s/\x01\b\f\n\r\t\x1F\x7F é") + '\0';
  EXPECT_EQ(TextEscape::Json(controls), nlohmann::json(controls).dump());
}

}  // namespace
