#include "sim/SystemError.h"

#include <cstring>

namespace SystemError {

std::string Text(int errnum) {
  char buffer[256];
  // The GNU strerror_r returns the text, in `buffer` or in static storage.
  const char* text = strerror_r(errnum, buffer, sizeof(buffer));
  return text != nullptr ? text : "error " + std::to_string(errnum);
}

}  // namespace SystemError
