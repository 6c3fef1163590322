#include "host/platform/LogPrefix.h"

#include <cctype>

namespace gorv {

std::string LogPrefix::MaskLine(const std::string& message) {
  size_t call = message.find("() ");
  if (call == std::string::npos) return message;
  size_t digits = call + 3;
  size_t end = digits;
  while (end < message.size() && std::isdigit(static_cast<unsigned char>(message[end]))) ++end;
  if (end == digits || end >= message.size() || message[end] != ':') return message;
  return message.substr(0, digits) + "N" + message.substr(end);
}

}  // namespace gorv
