#include "sim/ErrorLine.h"

#include <iostream>

#include "sim/TextEscape.h"
#include "sim/output/HeldOutput.h"

namespace ErrorLine {

std::string Text(std::string_view message) {
  return "gorv-sim: " + TextEscape::Terminal(message) + "\n";
}

void Print(std::string_view message) { Stream() << Text(message) << std::flush; }

std::ostream& Stream() {
  HeldOutput* held = HeldOutput::Current();
  return held != nullptr ? held->errors() : std::cerr;
}

}  // namespace ErrorLine
