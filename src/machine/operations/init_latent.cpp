#include "QZ/machine/operations/init_latent.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::initLatent() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { initLatent0<I>(); });
}

}  // namespace QZ
