#pragma once

/// The machine's vocabulary as data: registers, operations and the names behind each setter
/// keyword.
///
/// The constructor of the machine, its defaults and the reference documents are made from these
/// tables. The order of rows is part of the language: names are matched by prefix, and the first
/// row that fits wins.

#include <bit>
#include <cstddef>
#include <span>

#include "QZ/machine/enumerations.h"

namespace QZ::vocabulary {

struct Register {
  VarType var;
  const char* name;
  TypeType type;
  /// The word that the register starts with. `OMP` starts with the thread maximum of the machine.
  unsigned long initial;
  const char* meaning;
};

struct Operation {
  const char* name;
  OpType op;
  /// How many registers follow the name.
  unsigned operands;
  const char* meaning;
};

template <class enum_t>
struct Keyword {
  const char* name;
  enum_t value;
  const char* meaning;
};

/// A further name of a register. Aliases are accepted in program text only.
struct Alias {
  VarType var;
  const char* name;
};

/// The word of a real number.
constexpr unsigned long real(double number) { return std::bit_cast<unsigned long>(number); }

namespace tables {
using enum VarType;
using enum TypeType;

inline constexpr Register registers[] = {
    {EAP, "EAP", T_POINTER, 0, "caller's edge list for a graph of kind FILE; read by LDX GPT"},
    {EIP, "EIP", T_POINTER, 0, "stored, read by no operation"},
    {CBO, "CBO", T_POINTER, 0, "caller's function, called after each optimizer step"},
    {CBU, "CBU", T_POINTER, 0, "caller's function, called before each optimizer step"},
    {CPR, "CPR", T_POINTER, 0, "caller's proximal function of the optimizer"},
    {CBP, "CBP", T_POINTER, 0, "caller's progress function (done, total, tag)"},
    {EXT0, "EXT0", T_POINTER, 0, "caller's function that makes the engine of ALG EXTI"},
    {EXT1, "EXT1", T_POINTER, 0, "caller's function that makes the optimizer of ALG EXTO"},
    {EDP, "EDP", T_POINTER, 0,
     "caller's CSV text, or block of cells when NXX is set; read by LDX DPT"},
    {FMT, "FMT", T_UINT, 0, "form of a stored graph; see the keyword FMT"},
    {SNK, "SNK", T_UINT, 0, "number of sinks of a layered tree; used by BOLTZMANNTREE"},
    {OPT, "OPT", T_UINT, 0, "optimizer of ESTIMATE; see the keyword ALG"},
    {REP, "REP", T_UINT, 0, "parametrisation of the model; see the keyword REP"},
    {INF, "INF", T_UINT, 0, "inference engine; see the keyword ALG"},
    {GRA, "GRA", T_UINT, 0, "kind of the current or next graph; see the keyword GRA"},
    {CEN, "CEN", T_UINT, 0, "centre vertex of a STAR graph"},
    {GPX, "GPX", T_UINT, 0, "size in bytes of the caller's block of cells in EDP"},
    {SEED, "SEED", T_UINT, 0, "seed of the random engine; writing it reseeds"},
    {DEV, "DEV", T_UINT, 0, "device number; stored, read by no operation"},
    {MIO, "MIO", T_UINT, 1000, "iteration limit of the optimizer"},
    {MIL, "MIL", T_UINT, 1000, "iteration limit of iterative inference"},
    {KXX, "KXX", T_UINT, 4, "exclusive bound of an integer parameter, and order of cliques"},
    {DEG, "DEG", T_UINT, 8, "stored, read by no operation"},
    {TXX, "TXX", T_UINT, 1, "number of time slices"},
    {GNU, "GNU", T_UINT, 10, "number of rows that SAMPLE draws"},
    {GBR, "GBR", T_UINT, 10, "stored, read by no operation"},
    {GRE, "GRE", T_UINT, 10, "Gibbs sweeps per row of SAMPLE"},
    {OMP, "OMP", T_UINT, 0, "thread count; writing it sets the count of the OpenMP runtime"},
    {GVX, "GVX", T_UINT, 0, "vertices: of the graph if one is loaded, otherwise as written"},
    {ONE, "ONE", T_UINT, 0, "always reads as 1"},
    {DIM, "DIM", T_UINT, 0, "parameter dimension of the loaded model"},
    {GEX, "GEX", T_UINT, 0, "edges: of the graph if one is loaded, otherwise as written"},
    {PPX, "PPX", T_BOOL, 0, "PREDICT attaches probabilities to the cells"},
    {PGX, "PGX", T_BOOL, 0, "stored, read by no operation"},
    {YYC, "YYC", T_BOOL, 0, "all columns share one table of categories"},
    {HED, "HED", T_BOOL, 1, "the CSV text has a header line"},
    {DRP, "DRP", T_BOOL, 0, "stored, read by no operation"},
    {NOOP, "NOOP", T_BOOL, 0,
     "scratch register: target of an operand list that a blank has cut off"},
    {DRY, "DRY", T_BOOL, 0, "stored, read by no operation"},
    {RST, "RST", T_BOOL, 0, "ESTIMATE starts from zero weights"},
    {RET, "RET", T_BOOL, 0, "stored, read by no operation"},
    {LSN, "LSN", T_UINT, 2, "categories of a hidden column that INITLATENT adds"},
    {COL, "COL", T_UINT, 0, "stored, read by no operation"},
    {DBG, "DBG", T_UINT, 1, "stored, read by no operation"},
    {OVW, "OVW", T_BOOL, 0, "STORE may overwrite a file"},
    {SEP, "SEP", T_CHAR, ',', "separator of the adjacency text in GFN"},
    {MIS, "MIS", T_CHAR, '?', "first character of a missing CSV cell"},
    {LAM, "LAM", T_REAL, real(0.0), "weight of the regularization"},
    {ELAM, "ELAM", T_REAL, real(0.0), "second weight handed to the optimizer"},
    {EPL, "EPL", T_REAL, real(1e-06), "convergence bound of iterative inference"},
    {EPO, "EPO", T_REAL, real(1e-06), "convergence bound of the optimizer"},
    {STP, "STP", T_REAL, real(0.0), "step size of the optimizer"},
    {SDE, "SDE", T_REAL, real(1.0), "standard deviation of RND and INITGAUSS"},
    {PEL, "PEL", T_REAL, real(0.0), "parameter of the structure learners"},
    // The bare integer 255: read as a real number it is a denormal.
    {MVA, "MVA", T_REAL, 255, "stored, read by no operation; starts as the bare word 255"},
    {OVA, "OVA", T_REAL, real(0.0), "stored, read by no operation"},
    {GP0, "GP0", T_REAL, real(0.0), "free for programs"},
    {GP1, "GP1", T_REAL, real(0.0), "free for programs"},
    {GP2, "GP2", T_REAL, real(0.0), "free for programs"},
    {RND, "RND", T_REAL, real(0.0), "draws a normal variate at each read by an operation"},
    {UNI, "UNI", T_REAL, real(0.0), "draws a uniform variate at each read by an operation"},
    {RES, "RES", T_REAL, real(0.0),
     "result: a real after ESTIMATE and SCORE, a bare word after LDX DPT and BASEGRAPH"},
    {RNU, "RNU", T_UINT, 0, "stored, read by no operation"},
    {LNN, "LNN", T_UINT, 0, "program counter: the current line, counted from 0"},
    {MFN, "MFN", T_STRING, 0, "name of the model file"},
    {DFN, "DFN", T_STRING, 0, "name of the data file"},
    {OTHERFN, "OTHERFN", T_STRING, 0, "name of a further file"},
    {GFN, "GFN", T_STRING, 0, "name of the graph file"},
    {GPS, "GPS", T_STRING, 0, "text, free for programs"},
    {NAM, "NAM", T_STRING, 0, "text, free for programs; forgotten by a reset without release"},
    {MPT, "MPT", T_POINTER, 0, "the model container"},
    {GPT, "GPT", T_POINTER, 0, "the graph"},
    {DPT, "DPT", T_POINTER, 0, "the data table"},
    {LPT, "LPT", T_POINTER, 0, "list of layer sizes"},
    {PPT, "PPT", T_POINTER, 0, "marginals of the last INFER"},
    {HPT, "HPT", T_POINTER, 0, "stored, read by no operation"},
    {GP3, "GP3", T_REAL, real(0.0), "free for programs"},
    {GP4, "GP4", T_REAL, real(0.0), "free for programs"},
    {GP5, "GP5", T_REAL, real(0.0), "free for programs"},
    {GP6, "GP6", T_REAL, real(0.0), "free for programs"},
    {BRR, "BRR", T_UINT, 0, "stored, read by no operation"},
    {NXX, "NXX", T_UINT, 0, "number of data rows"},
    {GP7, "GP7", T_REAL, real(0.0), "free for programs"},
    {GP8, "GP8", T_REAL, real(0.0), "free for programs"},
    {GP9, "GP9", T_REAL, real(0.0), "free for programs"},
    {HP0, "HP0", T_REAL, real(0.0), "free for programs"},
    {HP1, "HP1", T_REAL, real(0.0), "free for programs"},
    {HP2, "HP2", T_REAL, real(0.0), "free for programs"},
    {HP3, "HP3", T_REAL, real(0.0), "free for programs"},
    {HP4, "HP4", T_REAL, real(0.0), "free for programs"},
    {HP5, "HP5", T_REAL, real(0.0), "free for programs"},
    {HP6, "HP6", T_REAL, real(0.0), "free for programs"},
    {HP7, "HP7", T_REAL, real(0.0), "free for programs"},
    {HP8, "HP8", T_REAL, real(0.0), "free for programs"},
    {HP9, "HP9", T_REAL, real(0.0), "free for programs"},
    {LFN, "LFN", T_STRING, 0, "text, free for programs; forgotten by a reset without release"},
    {ITR, "ITR", T_UINT, 0, "stored, read by no operation"},
    {NLL, "NLL", T_REAL, real(0.0), "stored, read by no operation"},
    {NNZ, "NNZ", T_UINT, 0, "stored, read by no operation"},
    {IDX, "IDX", T_UINT, 3, "index type of every typed operation; see the keyword idx_t"},
    {VAL, "VAL", T_UINT, 5, "value type of every typed operation; see the keyword val_t"},
    {RTT, "RTT", T_UINT, 0, "stored, read by no operation"},
    {NAB, "NAB", T_REAL, real(0.0), "stored, read by no operation"},
    {ERR, "ERR", T_REAL, real(0.0), "stored, read by no operation"},
    {LNZ, "LNZ", T_REAL, real(0.0), "log partition function of the last INFER or SCORE"},
    {PAM, "PAM", T_REAL, real(0.1), "perturbation scale of SAMPLE"},
    {INI, "INI", T_BOOL, 1, "stored, read by no operation"},
    {TREE, "TREE", T_BOOL, 0, "tells the choice of the engine that the graph is a tree"},
    {SLW, "SLW", T_BOOL, 0, "inference takes the slow, exact path"},
};

inline constexpr Alias aliases[] = {{DEV, "DEVICE"}};

inline constexpr Operation operations[] = {
    {"ESTIMATE", OpType::ESTIMATE, 0, "fit the weights of the model; RES gets the value"},
    {"STATS", OpType::STATS, 0, "count the statistics of the model's graph over the table"},
    {"MODEL", OpType::MODEL, 0, "make a model of graph and table, learning the graph if asked"},
    {"INFER", OpType::INFER, 0, "compute LNZ and the marginals in PPT"},
    {"PREDICT", OpType::PREDICT, 0, "fill in the missing cells of the table"},
    {"SCORE", OpType::SCORE, 0, "score the table under the model; RES gets the value"},
    {"SAMPLE", OpType::SAMPLE, 0, "draw a table from the model"},
    {"SET", OpType::SET, 0, "do nothing"},
    {"STGRAPH", OpType::STGRAPH, 0, "unroll the graph over TXX time slices"},
    {"BOLTZMANNTREE", OpType::BOLTZMANNTREE, 0, "turn the graph into a layered tree"},
    {"JUNCTIONTREE", OpType::JUNCTIONTREE, 0, "turn the graph into its junction tree"},
    {"BASEGRAPH", OpType::BASEGRAPH, 0, "write the source of a derived graph to RES"},
    {"CLEARSTACK", OpType::CLEARSTACK, 0, "empty the stack"},
    {"INITLATENT", OpType::INITLATENT, 0, "add hidden columns for the vertices without data"},
    {"CLOSEDFORM", OpType::CLOSEDFORM, 0, "set the weights of a tree in closed form"},
    {"INITGAUSS", OpType::INITGAUSS, 0, "draw normal weights with deviation SDE"},
    {"INITZERO", OpType::INITZERO, 0, "set all weights to zero"},
    {"INC", OpType::INC, 1, "add 1"},
    {"DEC", OpType::DEC, 1, "subtract 1; an integer stays at 0"},
    {"LDX", OpType::LDX, 1, "load MPT, GPT or DPT"},
    {"STORE", OpType::STORE, 1, "store MPT, GPT or DPT to its file"},
    {"DEL", OpType::DEL, 1, "release what the register holds"},
    {"BRA", OpType::BRA, 1, "go on behind the line in the register"},
    {"PUSH", OpType::PUSH, 1, "put the value on the stack"},
    {"POP", OpType::POP, 1, "take the last value from the stack"},
    {"MOV", OpType::MOV, 2, "copy the second to the first"},
    {"ADD", OpType::ADD, 2, "add the second to the first"},
    {"MUL", OpType::MUL, 2, "multiply the first by the second"},
    {"BNZ", OpType::BNZ, 2, "branch to the second if the first is not 0"},
    {"BLT", OpType::BLT, 3, "branch to the third if the first is below the second"},
    {"BNE", OpType::BNE, 3, "branch to the third if the first two differ"},
};

inline constexpr Keyword<InfType> engines[] = {
    {"LBP", InfType::LBP, "loopy belief propagation"},
    {"JT", InfType::JT, "exact propagation on a junction tree"},
    {"SQM", InfType::SQM, "sampled polynomial moments"},
    {"EXTI", InfType::EXTI, "the caller's engine, made by EXT0"},
};

inline constexpr Keyword<OptType> optimizers[] = {
    {"GD", OptType::GD, "gradient descent"},
    {"PL1", OptType::PL1, "proximal gradient"},
    {"FL1", OptType::FL1, "accelerated proximal gradient"},
    {"EA11", OptType::EA11, "evolutionary search over integers"},
    {"IGD", OptType::IGD, "integer gradient descent"},
    {"EXTO", OptType::EXTO, "the caller's optimizer, made by EXT1"},
};

inline constexpr Keyword<IdxType> index_types[] = {
    {"UINT8", IdxType::UINT8, "8-bit unsigned"},
    {"UINT16", IdxType::UINT16, "16-bit unsigned"},
    {"UINT32", IdxType::UINT32, "32-bit unsigned"},
    {"UINT64", IdxType::UINT64, "64-bit unsigned"},
};

inline constexpr Keyword<ValType> value_types[] = {
    {"UINT8", ValType::UINT8, "8-bit unsigned, with idx_t UINT8 only"},
    {"UINT16", ValType::UINT16, "16-bit unsigned, with idx_t UINT16 only"},
    {"UINT32", ValType::UINT32, "32-bit unsigned, with idx_t UINT32 only"},
    {"UINT64", ValType::UINT64, "64-bit unsigned, with idx_t UINT64 only"},
    {"FLT32", ValType::FLT32, "float"},
    {"FLT64", ValType::FLT64, "double"},
    {"FLTMPREC", ValType::FLTMPREC, "double"},
};

inline constexpr Keyword<ReparamType> parametrisations[] = {
    {"NONE", ReparamType::NONE, "one weight per pair of states of an edge"},
    {"STLINEAR", ReparamType::STLINEAR, "linear decay over time"},
    {"STQUAD", ReparamType::STQUAD, "quadratic decay over time"},
    {"STCUBIC", ReparamType::STCUBIC, "cubic decay over time"},
    {"STRATIONAL", ReparamType::STRATIONAL, "rational decay over time"},
    {"STEXPONENTIAL", ReparamType::STEXPONENTIAL, "exponential decay over time"},
    {"STINVQUAD", ReparamType::STINVQUAD, "inverse quadratic decay over time"},
    {"STINVCUBIC", ReparamType::STINVCUBIC, "inverse cubic decay over time"},
    {"STINVRATIONAL", ReparamType::STINVRATIONAL, "inverse rational decay over time"},
    {"STINVEXPONENTIAL", ReparamType::STINVEXPONENTIAL, "inverse exponential decay over time"},
    {"INTEGER", ReparamType::INTEGER, "integer weights"},
    {"DBT", ReparamType::DBT, "layered tree"},
    {"ISING", ReparamType::ISING, "compact weights of binary variables"},
};

inline constexpr Keyword<GraphExport> exports[] = {
    {"ADJ", GraphExport::ADJ, "adjacency matrix as text"},
    {"TGF", GraphExport::TGF, "trivial graph format"},
    {"FG", GraphExport::FG, "factor graph text"},
};

inline constexpr Keyword<GraphType> graphs[] = {
    {"FILE", GraphType::FILE, "adjacency text in GFN, or the caller's edge list in EAP"},
    {"CHAIN", GraphType::CHAIN, "path over all vertices"},
    {"GRID", GraphType::GRID, "square grid"},
    {"STAR", GraphType::STAR, "star around the vertex CEN"},
    {"RBM", GraphType::RBM, "layers of sizes LPT, neighbouring layers fully joined"},
    {"FULL", GraphType::FULL, "complete graph"},
    {"CHOWLIU", GraphType::CHOWLIU, "complete graph, from which MODEL learns the best tree"},
    {"ELEMGM", GraphType::ELEMGM, "complete graph, from which MODEL learns an elementary model"},
    {"OTHER", GraphType::OTHER, "none of the other kinds"},
    {"JT", GraphType::JT, "junction tree, made by JUNCTIONTREE"},
    {"DBT", GraphType::DBT, "layered tree, made by BOLTZMANNTREE"},
    {"ST", GraphType::ST, "graph over time slices, made by STGRAPH"},
    {"CLIQUES", GraphType::CLIQUES, "path, which MODEL replaces by learned cliques"},
    {"RNDCLIQUES", GraphType::RNDCLIQUES, "path, which MODEL replaces by cliques found at random"},
};
}  // namespace tables

inline constexpr std::span<const Register> registers = tables::registers;
inline constexpr std::span<const Alias> aliases = tables::aliases;
/// Operations without operand come first, then those with one, two and three.
inline constexpr std::span<const Operation> operations = tables::operations;
inline constexpr std::span<const Keyword<InfType>> engines = tables::engines;
inline constexpr std::span<const Keyword<OptType>> optimizers = tables::optimizers;
inline constexpr std::span<const Keyword<IdxType>> index_types = tables::index_types;
inline constexpr std::span<const Keyword<ValType>> value_types = tables::value_types;
inline constexpr std::span<const Keyword<ReparamType>> parametrisations = tables::parametrisations;
inline constexpr std::span<const Keyword<GraphExport>> exports = tables::exports;
inline constexpr std::span<const Keyword<GraphType>> graphs = tables::graphs;

}  // namespace QZ::vocabulary
