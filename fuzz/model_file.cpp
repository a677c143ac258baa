/// Model files. The reader ends well; the model's arrays belong to its graph, it can be exported,
/// and stored twice with a reading between it is the same file.

#include <cstdlib>
#include <memory>

#include "QZ/io/model_container.h"
#include "target.h"

namespace {

using qz_fuzz::claim;
using qz_fuzz::MemoryFile;

/// A container together with what it points to.
template <class idx_t, class val_t>
class Model {
 public:
  explicit Model(const std::string& path) : container_(path) {}
  ~Model() {
    delete container_.graph;
    delete container_.baseGraph;
    delete[] container_.weights;
    delete[] container_.stats;
    delete[] container_.states;
    delete[] container_.offsets;
  }
  Model(const Model&) = delete;
  Model& operator=(const Model&) = delete;

  const QZ::IO<idx_t, val_t>* operator->() const { return &container_; }

 private:
  QZ::IO<idx_t, val_t> container_;
};

template <class idx_t, class val_t>
void check(const std::string& content) {
  const MemoryFile file(content);
  std::unique_ptr<Model<idx_t, val_t>> model;
  const bool read =
      qz_fuzz::ends_well([&] { model = std::make_unique<Model<idx_t, val_t>>(file.path()); });
  if (!read) return;
  (*model)->require_matching_arrays();
  const MemoryFile stored;
  const bool kept = qz_fuzz::ends_well([&] { (*model)->store(stored.path()); });
  if (kept) {
    const Model<idx_t, val_t> again(stored.path());
    const MemoryFile stored_again;
    again->store(stored_again.path());
    claim(stored.content() == stored_again.content(), "a stored model reads back the same");
  }
  const MemoryFile exported;
  (*model)->storeADJ(exported.path());
  (*model)->storeTGF(exported.path());
  (*model)->storeFG(exported.path());
}

template <class idx_t>
void check_values(unsigned value, const std::string& content) {
  switch (value) {
    case 0:
      return check<idx_t, idx_t>(content);
    case 1:
      return check<idx_t, float>(content);
    default:
      return check<idx_t, double>(content);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  qz_fuzz::Input input(data, size);
  const unsigned pair = input.byte();
  const unsigned value = pair / 4 % 3;
  switch (pair % 4) {
    case 0:
      check_values<unsigned char>(value, input.rest());
      break;
    case 1:
      check_values<unsigned short>(value, input.rest());
      break;
    case 2:
      check_values<unsigned int>(value, input.rest());
      break;
    default:
      check_values<unsigned long>(value, input.rest());
  }
  return 0;
}
