// The numbers of the text inputs (scenario lines, text captures) read in one
// way: decimal integers in the 64-bit range, blanks around them allowed.
// Stateless; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>

namespace TextNumbers {

// `text` without its leading and trailing blanks (spaces and tabs).
std::string_view Trimmed(std::string_view text);

// The integer `text` holds (blanks around it allowed), if it lies in
// [min, max]; false for anything else (a sign alone, a fraction, text after
// the digits, a value out of range).
bool ToInteger(std::string_view text, int64_t* value,
               int64_t min = std::numeric_limits<int64_t>::min(),
               int64_t max = std::numeric_limits<int64_t>::max());

// The line's blank-separated words, all integers: how many (the first 4 are
// stored in `values`), or 0 when a word is not an integer.
size_t IntegerWords(std::string_view line, int64_t values[4]);

}  // namespace TextNumbers
