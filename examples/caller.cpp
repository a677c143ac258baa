/// A C++ host program: fits a model through the class `vm_wrapper`, which hands its results on in
/// files, and shows what an error looks like.

#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "vm_wrapper.h"

namespace {

void run(const std::vector<std::string>& lines) {
  vm_wrapper machine;
  // The machine takes the list over.
  machine.setCode(new std::vector<std::string>(lines));
  machine.run();
}

}  // namespace

int main() {
  run({
      "DFN 'examples/hair_eye_color.csv';",
      "LDX DPT;",
      "GRA STAR;",
      "LDX GPT;",
      "MODEL;",
      "CLOSEDFORM;",
      "FMT TGF;",
      "OVW true;",
      "GFN 'caller.tgf';",
      "STORE GPT;",
  });
  std::cout << std::ifstream("caller.tgf").rdbuf();

  // A machine whose run has thrown is finished, but other machines are not.
  try {
    run({"INFER;"});
  } catch (const std::exception& error) {
    std::cout << "error: " << error.what() << '\n';
    return EXIT_SUCCESS;
  }
  return EXIT_FAILURE;
}
