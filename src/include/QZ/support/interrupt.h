#pragma once

/// The request to stop.

/// The process-wide byte behind `stop_requested`, 1 until the exported interrupt handler clears it.
/// It is defined with the exported functions, and hosts may read or clear it by this name.
extern "C" __attribute__((visibility("default"))) unsigned char __run;

namespace QZ {

/// Whether the long loops have been asked to end. A signal handler or another thread may ask at any
/// moment, so every call reads the byte anew. Nothing takes the request back.
inline bool stop_requested() { return *static_cast<const volatile unsigned char*>(&__run) == 0; }

}  // namespace QZ
