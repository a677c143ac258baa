/// The installed copy as a C++ program sees it: the class `vm_wrapper`, and the templates.

#include <QZ/QZGRAPH>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "vm_wrapper.h"

int main() {
  const QZ::Grid<unsigned> grid(3);
  std::cout << grid.vertices() << " vertices, " << grid.edges() << " edges\n";
  vm_wrapper machine;
  machine.setCode(new std::vector<std::string>{"GVX 3", "GRA CHAIN;", "LDX GPT;", "INFER;"});
  try {
    machine.run();
  } catch (const std::logic_error& error) {
    std::cout << error.what() << '\n';
    return 0;
  }
  return 1;
}
