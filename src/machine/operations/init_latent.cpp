#include "QZ/machine/vm.h"
#include "QZ/support/unavailable.h"

namespace QZ {

void vm_t::initLatent() { not_available(); }

}  // namespace QZ
