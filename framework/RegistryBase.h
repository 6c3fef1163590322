// Framework boundary: the class registry that plug-ins add their features to
// when they are loaded.
#pragma once

#include <mutex>
#include <new>
#include <string>
#include <unordered_map>

template <class Base, class Info>
class RegistryBase {
 public:
  using Factory = Base* (*)(Info);
  using Map = std::unordered_map<std::string, Factory>;

  // Created by whoever registers first (max load factor 1.0); may be null.
  static Map* classList;
  // Guards classList and the map.
  static std::mutex mMutex;
};

// The factory the registry stores: allocates without throwing (null when no
// memory can be had) and constructs Derived from a copy of `info`. Exceptions
// from Derived's constructor reach the caller.
template <class Base, class Info, class Derived>
Base* createClassObj(Info info) {
  return new (std::nothrow) Derived(info);
}
