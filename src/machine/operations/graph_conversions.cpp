#include "QZ/machine/operations/graph_conversions.h"

#include "instances/extern_templates.h"

namespace QZ {

void vm_t::convertGraphST() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { convertGraphST0<I, V>(); });
}

void vm_t::convertGraphJT() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { convertGraphJT0<I, V>(); });
}

void vm_t::convertGraphDBT() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { convertGraphDBT0<I, V>(); });
}

void vm_t::getBaseGraph() {
  for_type_pair([this]<class I, class V>(type_pair<I, V>) { getBaseGraph0<I>(); });
}

}  // namespace QZ
