#include "sim/ErrorLine.h"

#include <iostream>

#include "sim/TextEscape.h"

namespace ErrorLine {

std::string Text(std::string_view message) {
  return "gorv-sim: " + TextEscape::Terminal(message) + "\n";
}

void Print(std::string_view message) { std::cerr << Text(message) << std::flush; }

}  // namespace ErrorLine
