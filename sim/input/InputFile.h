// Reads a user's input file (a scenario or a frame capture) whole, refusing
// what is not a regular file (a folder, a FIFO, a device such as /dev/zero)
// and anything larger than a limit, so that reading always ends and never
// needs more memory than the limit. TextLines then checks the bytes.
#pragma once

#include <cstddef>
#include <string>

namespace InputFile {

// Scenarios: a million triggers take about 40 MB.
inline constexpr size_t kMaxScenarioBytes = size_t{256} << 20;
// Captures: ten million SurfaceFlinger rows take about 600 MB.
inline constexpr size_t kMaxCaptureBytes = size_t{1} << 30;

// Reads `path` into `bytes`. On failure returns false and sets `error` to
// "PATH: cannot open the WHAT (reason)", "PATH: the WHAT is a folder,
// not a file" and the like; `what` names the file's role ("scenario").
bool Read(const std::string& path, const std::string& what, size_t maxBytes, std::string* bytes,
          std::string* error);
// The same checks, but only the first `headBytes` bytes are read (all of
// a shorter file): enough to tell what kind of file it is.
bool Read(const std::string& path, const std::string& what, size_t maxBytes, size_t headBytes,
          std::string* bytes, std::string* error);

}  // namespace InputFile
