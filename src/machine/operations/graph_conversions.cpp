#include "QZ/machine/vm.h"
#include "QZ/support/unavailable.h"

namespace QZ {

void vm_t::convertGraphST() { not_available(); }

void vm_t::convertGraphJT() { not_available(); }

void vm_t::convertGraphDBT() { not_available(); }

void vm_t::getBaseGraph() { not_available(); }

}  // namespace QZ
