#include "sim/ErrorLine.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <iostream>
#include <streambuf>

#include "sim/TextEscape.h"
#include "sim/output/HeldOutput.h"
#include "sim/run/Interrupts.h"

namespace {

// std::cerr's buffer once installed: nothing held, every write at once.
class StandardErrorBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    char byte = traits_type::to_char_type(c);
    ErrorLine::WriteRaw(std::string_view(&byte, 1));
    return c;
  }
  std::streamsize xsputn(const char* data, std::streamsize size) override {
    ErrorLine::WriteRaw(std::string_view(data, static_cast<size_t>(size)));
    return size;
  }
};

}  // namespace

namespace ErrorLine {

std::string Text(std::string_view message) {
  return "gorv-sim: " + TextEscape::Terminal(message) + "\n";
}

void Print(std::string_view message) { Stream() << Text(message) << std::flush; }

void Install() {
  // Never destroyed: std::cerr is flushed at exit, after static objects go.
  static auto* buffer = new StandardErrorBuffer();
  std::cerr.rdbuf(buffer);
}

void WriteRaw(std::string_view bytes) {
  for (size_t done = 0; done < bytes.size();) {
    if (!Interrupts::WaitWritable(STDERR_FILENO, Interrupts::kGraceMs)) return;
    // Room for PIPE_BUF bytes is what a pipe that polls writable promises.
    ssize_t wrote =
        write(STDERR_FILENO, bytes.data() + done, std::min<size_t>(bytes.size() - done, PIPE_BUF));
    if (wrote < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (wrote <= 0) return;  // closed or failing: nowhere left to say so
    done += static_cast<size_t>(wrote);
  }
}

std::ostream& Stream() {
  HeldOutput* held = HeldOutput::Current();
  return held != nullptr ? held->errors() : std::cerr;
}

}  // namespace ErrorLine
