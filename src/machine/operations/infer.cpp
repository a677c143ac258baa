#include "QZ/machine/operations/infer.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::inferFunc() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { inferFunc0<I, V>(); });
}

}  // namespace QZ
