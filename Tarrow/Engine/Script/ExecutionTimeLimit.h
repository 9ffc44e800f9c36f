#pragma once

// JavaScriptCore's execution time limit. The library exports these, but Debian's development
// package does not ship the header that declares them.

#include <JavaScriptCore/JavaScript.h>

extern "C" {

/// Called when a script has used up its time; true stops it with an uncatchable exception.
typedef bool (*JSShouldTerminateCallback)(JSContextRef context, void* data);

/// Limits each entry into the script engine from the API to `limit` seconds of the calling
/// thread's CPU time.
JS_EXPORT void JSContextGroupSetExecutionTimeLimit(JSContextGroupRef group, double limit,
                                                   JSShouldTerminateCallback callback, void* data);
JS_EXPORT void JSContextGroupClearExecutionTimeLimit(JSContextGroupRef group);
}
