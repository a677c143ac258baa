#include "QZ/machine/operations/closed_form.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::closedForm() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { closedFormT<I, V>(); });
}

}  // namespace QZ
