#include "QZ/machine/operations/engine_selection.h"

#include "instances/extern_templates.h"

namespace QZ {

// Every operation that needs an engine links against these.
template InferenceAlgorithm<unsigned char, unsigned char>* vm_t::getIA();
template InferenceAlgorithm<unsigned char, float>* vm_t::getIA();
template InferenceAlgorithm<unsigned char, double>* vm_t::getIA();
template InferenceAlgorithm<unsigned short, unsigned short>* vm_t::getIA();
template InferenceAlgorithm<unsigned short, float>* vm_t::getIA();
template InferenceAlgorithm<unsigned short, double>* vm_t::getIA();
template InferenceAlgorithm<unsigned int, unsigned int>* vm_t::getIA();
template InferenceAlgorithm<unsigned int, float>* vm_t::getIA();
template InferenceAlgorithm<unsigned int, double>* vm_t::getIA();
template InferenceAlgorithm<unsigned long, unsigned long>* vm_t::getIA();
template InferenceAlgorithm<unsigned long, float>* vm_t::getIA();
template InferenceAlgorithm<unsigned long, double>* vm_t::getIA();

}  // namespace QZ
