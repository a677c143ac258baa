#pragma once

#include "QZ/machine/vm.h"
#include "QZ/support/type_pairs.h"

namespace qz_test {

template <class idx_t, class val_t>
void select_pair(QZ::vm_t& vm) {
  vm.set(QZ::VarType::IDX, static_cast<unsigned long>(QZ::idx_code<idx_t>()));
  vm.set(QZ::VarType::VAL, static_cast<unsigned long>(QZ::val_code<val_t>()));
}

}  // namespace qz_test
