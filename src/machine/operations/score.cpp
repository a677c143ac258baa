#include "QZ/machine/vm.h"
#include "QZ/support/unavailable.h"

namespace QZ {

void vm_t::scoreFunc() { not_available(); }

}  // namespace QZ
