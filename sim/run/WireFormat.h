// The bytes that pass between gorv-sim and its run processes (RunChannel's
// records, RunRequest's request): fixed-size numbers in the machine's
// order, since both ends are the same program, and texts as a 32-bit
// length then the bytes.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace WireFormat {

template <typename T>
void Put(std::string* out, T value) {
  out->append(reinterpret_cast<const char*>(&value), sizeof(value));
}

inline void PutText(std::string* out, std::string_view text) {
  Put(out, static_cast<uint32_t>(text.size()));
  out->append(text);
}

// Reads fields in order; any shortfall makes ok() false and every later
// field zero or empty, so a loop over a count read from damaged bytes ends
// as soon as the bytes do.
class Cursor {
 public:
  explicit Cursor(std::string_view data) : mData(data) {}
  template <typename T>
  T Get() {
    T value{};
    if (!mOk || mData.size() < sizeof(T)) {
      mOk = false;
      return value;
    }
    std::memcpy(&value, mData.data(), sizeof(T));
    mData.remove_prefix(sizeof(T));
    return value;
  }
  std::string Text() {
    auto size = Get<uint32_t>();
    if (!mOk || mData.size() < size) {
      mOk = false;
      return "";
    }
    std::string text(mData.substr(0, size));
    mData.remove_prefix(size);
    return text;
  }
  bool ok() const { return mOk; }
  // True when every byte has been read.
  bool done() const { return mOk && mData.empty(); }

 private:
  std::string_view mData;
  bool mOk = true;
};

}  // namespace WireFormat
