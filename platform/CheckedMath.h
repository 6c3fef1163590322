// Checked arithmetic for counters and sizes: an overflow ends the process
// (abort) instead of wrapping, because a wrapped counter would silently
// corrupt scheduling.
#pragma once

#include <cstdlib>
#include <type_traits>

namespace gorv {

template <typename T>
T CheckedAdd(T a, T b) {
  static_assert(std::is_integral_v<T>, "integers only");
  T result;
  if (__builtin_add_overflow(a, b, &result)) std::abort();
  return result;
}

template <typename T>
T CheckedSub(T a, T b) {
  static_assert(std::is_integral_v<T>, "integers only");
  T result;
  if (__builtin_sub_overflow(a, b, &result)) std::abort();
  return result;
}

}  // namespace gorv
