// A fresh temporary folder for a test's files, removed with everything in it
// when the object goes.
#pragma once

#include <string>

class TempFolder {
 public:
  TempFolder();
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::string& path() const { return mPath; }
  // Writes `text` to `name` (below the folder; parent folders created) and
  // returns the file's path.
  std::string Write(const std::string& name, const std::string& text) const;
  // The content of `name`, "" when it cannot be read.
  std::string Read(const std::string& name) const;

  struct Outcome {
    int status;  // the command's exit status
    std::string out, err;
  };
  // Runs the shell command line `command` in the folder, its standard error
  // to "stderr" there and its standard output to "stdout" (or as
  // `stdoutTo`, a redirection or a pipe, says).
  Outcome Run(const std::string& command, const std::string& stdoutTo = "") const;

 private:
  std::string mPath;
};
