#include "QZ/machine/operations/predict.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::predictFunc() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { predictFunc0<I, V>(); });
}

}  // namespace QZ
