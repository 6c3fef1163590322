// The prefix the plug-in puts before each log message: "TAG: function() LINE: "
// (or "function() LINE: " for the database's SQL errors). Host tools compare
// messages with the source line masked, since it moves with every edit.
#pragma once

#include <string>

namespace gorv {

class LogPrefix {
 public:
  // "X: f() 123: text" -> "X: f() N: text"; "f() 12: text" -> "f() N: text";
  // any other message unchanged.
  static std::string MaskLine(const std::string& message);
};

}  // namespace gorv
