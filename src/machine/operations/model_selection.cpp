#include "QZ/machine/operations/model_selection.h"

#include "instances/extern_templates.h"

namespace QZ {

// Every operation that needs a model links against these.
template AbstractMRF<unsigned char, unsigned char>* vm_t::getMOD(
    InferenceAlgorithm<unsigned char, unsigned char>*);
template AbstractMRF<unsigned char, float>* vm_t::getMOD(InferenceAlgorithm<unsigned char, float>*);
template AbstractMRF<unsigned char, double>* vm_t::getMOD(
    InferenceAlgorithm<unsigned char, double>*);
template AbstractMRF<unsigned short, unsigned short>* vm_t::getMOD(
    InferenceAlgorithm<unsigned short, unsigned short>*);
template AbstractMRF<unsigned short, float>* vm_t::getMOD(
    InferenceAlgorithm<unsigned short, float>*);
template AbstractMRF<unsigned short, double>* vm_t::getMOD(
    InferenceAlgorithm<unsigned short, double>*);
template AbstractMRF<unsigned int, unsigned int>* vm_t::getMOD(
    InferenceAlgorithm<unsigned int, unsigned int>*);
template AbstractMRF<unsigned int, float>* vm_t::getMOD(InferenceAlgorithm<unsigned int, float>*);
template AbstractMRF<unsigned int, double>* vm_t::getMOD(InferenceAlgorithm<unsigned int, double>*);
template AbstractMRF<unsigned long, unsigned long>* vm_t::getMOD(
    InferenceAlgorithm<unsigned long, unsigned long>*);
template AbstractMRF<unsigned long, float>* vm_t::getMOD(InferenceAlgorithm<unsigned long, float>*);
template AbstractMRF<unsigned long, double>* vm_t::getMOD(
    InferenceAlgorithm<unsigned long, double>*);

}  // namespace QZ
