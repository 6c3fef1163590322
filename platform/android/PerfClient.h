// The perf daemon client's C interface (libzel-perfd-client), as the plug-in
// uses it. The vendor ships no header for it, so it is declared here.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#define PROP_VAL_LENGTH 92

typedef struct {
  char value[PROP_VAL_LENGTH];
} PropVal;

// The property's value, or `def_val` when it is not set.
PropVal perf_get_prop(const char* prop, const char* def_val);
// Acquires (handle 0) or renews a lock on the resources in `list`
// (opcode, value pairs; `numArgs` ints) for `duration` ms (0: until
// released). Returns the handle, 1 or more, or a failure value.
int perf_lock_acq_rel(int handle, int duration, int list[], int numArgs, int reserved);
int perf_lock_rel(int handle);

#ifdef __cplusplus
}
#endif
