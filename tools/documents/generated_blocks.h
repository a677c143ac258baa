#pragma once

/// The generated parts of a document.

#include <functional>
#include <map>
#include <string>

namespace documents {

/// What stands between `<!-- generated: NAME -->` and `<!-- end -->`, by NAME. Both the texts and
/// the documents end their lines by "\n".
using Generators = std::map<std::string, std::function<std::string()>>;

/// The tables of registers, operations and keywords.
Generators register_tables();

/// Small files as their writers lay them down, byte by byte.
Generators file_examples();

}  // namespace documents
