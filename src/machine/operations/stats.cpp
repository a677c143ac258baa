#include "QZ/machine/operations/stats.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::statsFunc() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { statsFunc0<I, V>(); });
}

}  // namespace QZ
