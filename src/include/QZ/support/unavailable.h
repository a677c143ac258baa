#pragma once

/// The answer of a target that the vocabulary names and this build does not contain.

#include <stdexcept>

namespace QZ {

[[noreturn]] inline void not_available() { throw std::logic_error("not available in this build"); }

}  // namespace QZ
