// Makes text from the user or the plug-in safe where it is written: any
// bytes may arrive (a file name, a log line), and none may break the
// terminal or the XML of the plot. JSON outputs rely on nlohmann's escaping
// with invalid UTF-8 replaced, or on Json() where they write text directly.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace TextEscape {

// A JSON string literal, quotes included, byte for byte what nlohmann's
// dump writes with invalid UTF-8 replaced: valid UTF-8 kept, each broken
// sequence replaced by one U+FFFD, '"' and '\\' escaped, control characters
// as \n, \t, ... or \u00xx.
std::string Json(std::string_view text);

// The length of the well-formed UTF-8 sequence at the start of `text`
// (shortest form, no surrogates, at most U+10FFFF), or 0.
size_t Utf8Sequence(std::string_view text);
// Valid UTF-8 kept as is; a line feed shown as \n, a tab as a tab, every
// other control character (C0, DEL, C1) and each byte of an invalid
// sequence as \xNN. Idempotent: escaped text is printable and stays as is.
std::string Terminal(std::string_view text);
// Terminal(), then & < > " ' as XML entities: well-formed in an XML text
// or attribute value.
std::string Xml(std::string_view text);

}  // namespace TextEscape
