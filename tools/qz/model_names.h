#pragma once

/// The names in a model, read from the model file.

#include <cstdint>
#include <string>
#include <vector>

#include "type_widths.h"

namespace qz_tool {

struct VertexNames {
  std::string name;
  std::vector<std::string> states;
};

struct ModelNames {
  std::vector<VertexNames> vertices;
  /// Parameter count: the length of the edge part that leads a block of marginals.
  std::uint64_t parameters = 0;
};

/// Names and sizes from the model file at `path`. Throws runtime_error if the file ends early.
ModelNames read_model_names(const std::string& path, const TypeWidths& widths);

/// The names of the model in `MPT`. Registers hand out no names, but a stored model holds them: a
/// follow-up program stores the model in a temporary file, which is gone afterwards. Uses the
/// registers `MFN` and `OVW` of the context.
ModelNames names_of_loaded_model(Context& context);

}  // namespace qz_tool
