# Real dependencies on the host. scripts/setup installs them on Debian 12.
find_package(Threads REQUIRED)
find_package(SQLite3 REQUIRED)

find_path(ANDROID_LOG_INCLUDE_DIR android/log.h PATHS /usr/include/android REQUIRED)
find_library(ANDROID_LOG_LIBRARY log PATH_SUFFIXES android REQUIRED)
add_library(Android::log UNKNOWN IMPORTED)
set_target_properties(Android::log PROPERTIES
  IMPORTED_LOCATION ${ANDROID_LOG_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_LOG_INCLUDE_DIR})

find_path(ANDROID_BASE_INCLUDE_DIR android-base/properties.h PATHS /usr/include/android REQUIRED)
find_library(ANDROID_BASE_LIBRARY base PATH_SUFFIXES android REQUIRED)
add_library(Android::base UNKNOWN IMPORTED)
set_target_properties(Android::base PROPERTIES
  IMPORTED_LOCATION ${ANDROID_BASE_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${ANDROID_BASE_INCLUDE_DIR}
  INTERFACE_LINK_LIBRARIES Android::log)

if(GORV_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(GORV_BUILD_BENCH)
  find_package(benchmark REQUIRED)
endif()

find_path(ANDROID_CUTILS_INCLUDE_DIR cutils/properties.h PATHS /usr/include/android)
