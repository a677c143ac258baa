/// Whole programs of real operations on small tables, by the calls that cannot throw. Each byte
/// chooses a statement; the program runs to its end, or fails with a text and a line.

#include <iterator>
#include <vector>

#include "target.h"
#include "vm_wrapper.h"

namespace {

using qz_fuzz::claim;
using Lines = std::vector<std::string>;

/// Types are chosen first and kept: objects in registers are known by the types that made them.
const Lines type_pairs[] = {
    {"idx_t UINT32;", "val_t FLT64;"},  {"idx_t UINT32;", "val_t UINT32;"},
    {"idx_t UINT32;", "val_t FLT32;"},  {"idx_t UINT64;", "val_t FLT64;"},
    {"idx_t UINT64;", "val_t UINT64;"}, {"idx_t UINT16;", "val_t UINT16;"},
    {"idx_t UINT16;", "val_t FLT32;"},  {"idx_t UINT8;", "val_t UINT8;"},
    {"idx_t UINT8;", "val_t FLT64;"},   {"idx_t UINT32;", "val_t UINT8;"},
};

const char* const tables[] = {
    "a,b,c,d\n\nx,u,0,1\ny,v,1,1\nx,v,2,0\ny,u,2,1\nx,u,1,0\n",
    "a,b,c,d\n\nx,?,0,1\n?,v,?,?\nx,v,2,0\n?,?,?,?\n",
    "a,b,c,d\n\n0,0,1,1\n1,1,0,0\n0,1,1,0\n1,1,1,1\n",
    "a,b\n\n0,0\n1,1\n2,1\n3,0\n4,1\n",
    "a\n\nx\n",
    "a,b,c\n\n",
    "\n0,1,1,0\n1,0,1,0\n",
};
constexpr std::size_t table_count = std::size(tables);

/// Every object is released before another takes its place. A model holds on to its graph.
const Lines release_table{"DEL DPT;"};
const Lines release_graph{"DEL PPT;", "DEL MPT;", "DEL GPT;"};

const Lines statements[] = {
    {"LDX DPT;"},        {"LDX GPT;"},
    {"MODEL;"},          {"STATS;"},
    {"ESTIMATE;"},       {"INFER;"},
    {"PREDICT;"},        {"SCORE;"},
    {"SAMPLE;"},         {"STGRAPH;"},
    {"JUNCTIONTREE;"},   {"BOLTZMANNTREE;"},
    {"BASEGRAPH;"},      {"INITLATENT;"},
    {"CLOSEDFORM;"},     {"INITGAUSS;"},
    {"INITZERO;"},       release_table,
    release_graph,       {"DEL LPT;"},
    {"STORE MPT;"},      {"PPT 0", "MPT 0", "GPT 0", "LDX MPT;"},
    {"GRA FILE;"},       {"GRA CHAIN;"},
    {"GRA GRID;"},       {"GRA STAR;"},
    {"GRA RBM;"},        {"GRA FULL;"},
    {"GRA CHOWLIU;"},    {"GRA ELEMGM;"},
    {"GRA JT;"},         {"GRA DBT;"},
    {"GRA ST;"},         {"GRA CLIQUES;"},
    {"GRA RNDCLIQUES;"}, {"ALG LBP;"},
    {"ALG JT;"},         {"ALG SQM;"},
    {"ALG GD;"},         {"ALG PL1;"},
    {"ALG FL1;"},        {"ALG EA11;"},
    {"ALG IGD;"},        {"REP NONE;"},
    {"REP ISING;"},      {"REP INTEGER;"},
    {"REP DBT;"},        {"REP STLINEAR;"},
    {"REP STRATIONAL;"}, {"REP STINVEXPONENTIAL;"},
    {"YYC true;"},       {"HED false;"},
    {"PPX true;"},       {"RST true;"},
    {"TREE true;"},      {"SLW true;"},
    {"KXX 1"},           {"KXX 2"},
    {"KXX 3"},           {"KXX 8"},
    {"TXX 0"},           {"TXX 2"},
    {"TXX 3"},           {"LSN 0"},
    {"LSN 3"},           {"GRE 0"},
    {"GRE 2"},           {"MIO 0"},
    {"MIL 0"},           {"PAM 0"},
    {"PAM 2.5"},         {"PEL 0.5"},
    {"PEL 0"},           {"PEL -1"},
    {"LAM 0.1"},         {"ELAM 0.5"},
    {"SDE 100"},         {"SDE 1000"},
    {"STP 1"},           {"STP -1"},
    {"EPL -1"},          {"EPO -1"},
    {"CEN 1"},           {"CEN 9"},
    {"SNK 1"},           {"SNK 2"},
    {"GVX 0"},           {"GVX 1"},
    {"GVX 7"},           {"FMT ADJ;"},
    {"FMT TGF;"},        {"FMT FG;"},
    {"STORE GPT;"},      {"STORE DPT;"},
};

constexpr std::size_t most_statements = 48;

/// Short loops, one thread, and files that may be written over.
const Lines opening{"SEED 1", "OMP 1", "MIO 3", "MIL 6", "EPO 0", "OVW true", "KXX 2", "STP 0.5"};

/// Fresh copies for every input: programs store tables, and what is stored must not be read later.
struct Files {
  qz_fuzz::MemoryFile data[table_count]{
      qz_fuzz::MemoryFile(tables[0]), qz_fuzz::MemoryFile(tables[1]),
      qz_fuzz::MemoryFile(tables[2]), qz_fuzz::MemoryFile(tables[3]),
      qz_fuzz::MemoryFile(tables[4]), qz_fuzz::MemoryFile(tables[5]),
      qz_fuzz::MemoryFile(tables[6])};
  qz_fuzz::MemoryFile graph{"0,1,0,1\n1,0,1,0\n0,1,0,1\n1,0,1,0\n"};
  qz_fuzz::MemoryFile model;
};

void append(Lines& lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
}

Lines program_of(qz_fuzz::Input& input, const Files& files) {
  Lines lines = type_pairs[input.byte() % std::size(type_pairs)];
  append(lines, opening);
  append(lines, {"GFN '" + files.graph.path() + "'", "MFN '" + files.model.path() + "'"});
  append(lines, {"DFN '" + files.data[input.byte() % table_count].path() + "'"});
  for (std::size_t count = 0; count < most_statements && !input.empty(); ++count) {
    const std::size_t choice = input.byte() % (std::size(statements) + table_count);
    if (choice < std::size(statements)) {
      append(lines, statements[choice]);
    } else {
      const auto& file = files.data[choice - std::size(statements)];
      append(lines, {"DEL DFN;", "DFN '" + file.path() + "'"});
    }
  }
  return lines;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qz_fuzz::Input input(data, size);
  const Files files;
  const Lines lines = program_of(input, files);
  std::vector<const char*> texts;
  for (const std::string& line : lines) texts.push_back(line.c_str());
  void* const context = try_create_ctx();
  try_ctx_set_code(context, texts.data(), texts.size());
  // Layers of hidden vertices over as many columns as most of the tables have.
  auto* const layers = new std::vector<unsigned long>{3, 2, 1};
  try_ctx_write_reg(context, "LPT", reinterpret_cast<std::uint64_t>(layers));
  if (try_run_ctx(context) != QZ_DONE) {
    claim(*ctx_error_text(context) != '\0', "a failure has a text");
    const auto line = ctx_error_line(context);
    claim(line >= 0 && line < static_cast<std::int64_t>(lines.size()), "a failure has a line");
  }
  destroy_ctx(context);
  return 0;
}
