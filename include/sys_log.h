// The system log of the platform.
#pragma once

extern "C" {

/// Writes one entry. Callable from any thread; never fails.
/// @param priority syslog severity: 3 error, 4 warning, 6 information, 7 debug.
/// @param source   name of the writing component, such as "mqtt_adapter".
/// @param function name of the writing function.
/// @param line     line in its source file.
/// @param format   as for printf; the texts are copied before the call returns.
__attribute__((format(printf, 5, 6))) void __sys_log(int priority, const char* source,
                                                     const char* function, int line,
                                                     const char* format, ...);

}  // extern "C"
