#include "run_monitor.h"

#include <cstring>

#include "type_widths.h"

namespace qz_tool {

RunMonitor* RunMonitor::current_ = nullptr;

namespace {

std::uint64_t number_at(const unsigned char* place, std::size_t width) {
  std::uint64_t number = 0;
  std::memcpy(&number, place, width);
  return number;
}

}  // namespace

RunMonitor::RunMonitor(Context& context, ProgressBar& bar) : context_(context), bar_(bar) {
  current_ = this;
  context_.write("CBP", reinterpret_cast<std::uint64_t>(&RunMonitor::on_progress));
  context_.write("CBO", reinterpret_cast<std::uint64_t>(&RunMonitor::on_step));
}

RunMonitor::~RunMonitor() {
  context_.write("CBP", 0);
  context_.write("CBO", 0);
  current_ = nullptr;
}

void RunMonitor::on_progress(std::size_t done, std::size_t total, const char* tag) {
  current_->bar_.show(done, total, tag);
}

void RunMonitor::on_step(void* record) {
  current_->step(static_cast<const unsigned char*>(record));
}

// The record starts with six values and goes on with `iter` and `max_iter`. No type pair needs
// padding between them: an index is at most eight bytes wide, and six values of any width are a
// multiple of every index width that goes with it.
void RunMonitor::step(const unsigned char* record) {
  const TypeWidths widths = type_widths(context_);
  const unsigned char* iter = record + 6 * widths.value;
  iterations_ = number_at(iter, widths.index);
  bar_.show(iterations_, number_at(iter + widths.index, widths.index), "ESTIMATE");
}

}  // namespace qz_tool
