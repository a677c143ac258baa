#pragma once

/// The marginals that INFER leaves behind, with the model's names.

#include <ostream>

#include "model_names.h"

namespace qz_tool {

/// Writes one line per vertex and state: vertex name, state name, probability. `marginals` is the
/// block in `PPT`: as many edge entries as the model has parameters, then vertex after vertex.
void write_marginals(std::ostream& out, const ModelNames& names, const double* marginals);

}  // namespace qz_tool
