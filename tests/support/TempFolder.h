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

 private:
  std::string mPath;
};
