#include "QZ/machine/operations/score.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::scoreFunc() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { scoreFunc0<I, V>(); });
}

}  // namespace QZ
