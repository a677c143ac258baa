#include "QZ/machine/operations/sample.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::sampleFunc() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { sampleFunc0<I, V>(); });
}

}  // namespace QZ
