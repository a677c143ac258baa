/// A C++ host program: learns which columns of a table belong together. Stores the tree as a graph
/// with names, and prints its edges from the strongest to the weakest.
///
///   qz_tree [TABLE [GRAPH]]

#include <QZ/QZIO>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <numeric>
#include <string>
#include <vector>

#include "vm_wrapper.h"

namespace {

/// The types that a program gets if it does not choose any.
using Model = QZ::IO<unsigned long, double>;

void run(void* machine, const std::vector<std::string>& program) {
  std::vector<const char*> lines;
  for (const std::string& line : program) lines.push_back(line.c_str());
  ctx_set_code(machine, lines.data(), lines.size());
  run_ctx(machine);
}

/// The edges with their mutual information in nats, the largest first.
void print_edges(const Model& model) {
  const std::vector<double> information = QZ::mutual_information(model, {});
  std::vector<unsigned long> order(information.size());
  std::iota(order.begin(), order.end(), 0ul);
  std::stable_sort(order.begin(), order.end(), [&](unsigned long a, unsigned long b) {
    return information[a] > information[b];
  });
  for (const unsigned long e : order) {
    const auto [s, t] = QZ::endpoints(*model.graph, e);
    std::printf("%.6f %s - %s\n", information[e], model.vertex_name(s).c_str(),
                model.vertex_name(t).c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string table = argc > 1 ? argv[1] : "examples/titanic.csv";
  const std::string graph = argc > 2 ? argv[2] : "tree.tgf";
  try {
    void* machine = create_ctx();
    run(machine, {
                     "DFN '" + table + "';",
                     "LDX DPT;",
                     "GRA CHOWLIU;",
                     "LDX GPT;",
                     "MODEL;",
                     "OVW true;",
                     "FMT TGF;",
                     "GFN '" + graph + "';",
                     "STORE GPT;",
                     "DEL DFN;",
                     "DEL GFN;",
                 });
    // The container stays the machine's.
    print_edges(*reinterpret_cast<const Model*>(ctx_read_reg(machine, "MPT")));
    destroy_ctx(machine);
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
