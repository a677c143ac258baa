#include "QZ/machine/operations/initial_weights.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::initZero() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { initZero0<I, V>(); });
}

void vm_t::initGauss() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { initGauss0<I, V>(); });
}

}  // namespace QZ
