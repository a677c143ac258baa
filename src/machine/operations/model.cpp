#include "QZ/machine/operations/model.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::modelFunc() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { modelFunc0<I, V>(); });
}

}  // namespace QZ
