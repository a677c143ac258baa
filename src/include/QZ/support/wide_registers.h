#pragma once

/// Loops in several copies, for the register widths that processors have.

namespace QZ {

#ifdef __x86_64__
/// Claims that the machine has registers of 256 bits, and of 512 bits.
inline bool has_wide_registers() {
  static const bool found = __builtin_cpu_supports("avx2");
  return found;
}
inline bool has_widest_registers() {
  static const bool found = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq");
  return found;
}

namespace wide_registers {

template <class Loop>
[[gnu::target("avx2"), gnu::flatten]] void run_wide(const Loop& loop) {
  loop();
}
template <class Loop>
[[gnu::target("avx512f,avx512dq"), gnu::flatten]] void run_widest(const Loop& loop) {
  loop();
}

}  // namespace wide_registers

/// Runs a loop in the copy for the widest registers of the machine. The copies differ in speed
/// alone: operations are neither fused nor taken in another order. What the loop calls must be
/// inline for the copies to reach it.
template <class Loop>
void on_widest_registers(const Loop& loop) {
  if (has_widest_registers()) {
    wide_registers::run_widest(loop);
  } else if (has_wide_registers()) {
    wide_registers::run_wide(loop);
  } else {
    loop();
  }
}
#else
constexpr bool has_wide_registers() { return false; }
constexpr bool has_widest_registers() { return false; }

template <class Loop>
void on_widest_registers(const Loop& loop) {
  loop();
}
#endif

}  // namespace QZ
