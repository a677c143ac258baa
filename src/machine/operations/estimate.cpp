#include "QZ/machine/operations/estimate.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::estimateFunc() {
  for_type_pair(
      [this]<class idx_t, class val_t>(type_pair<idx_t, val_t>) { estimateFunc0<idx_t, val_t>(); });
}

}  // namespace QZ
