#pragma once

/// What an examined file says of itself and what is wrong with it.

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace qz_tool {

class Findings {
 public:
  /// Which kind of file it is and how much it holds, in a few words.
  void summary(std::string text) { summary_ = std::move(text); }
  /// Something that would end a program, or that it would read as something else.
  void problem(std::string text) { add({std::move(text), true}); }
  /// Something that is lawful, and seldom meant.
  void note(std::string text) { add({std::move(text), false}); }

  /// The file was followed to its last byte.
  void whole() { whole_ = true; }
  bool is_whole() const { return whole_; }

  bool sound() const { return problems_ == 0; }
  /// The file is sound and raises no question.
  bool plain() const { return problems_ + notes_ == 0; }

  /// Writes a line each, with `name` in front.
  void write(std::ostream& out, const std::string& name) const {
    out << name << ": " << summary_ << '\n';
    for (const Line& line : kept_) {
      out << name << ": " << (line.is_problem ? "" : "note: ") << line.text << '\n';
    }
    const std::size_t left = problems_ + notes_ - kept_.size();
    if (left > 0) out << name << ": and " << left << " more of this\n";
    if (sound()) out << name << ": in order\n";
  }

 private:
  struct Line {
    std::string text;
    bool is_problem;
  };
  static constexpr std::size_t most_kept = 20;

  void add(Line line) {
    ++(line.is_problem ? problems_ : notes_);
    if (kept_.size() < most_kept) kept_.push_back(std::move(line));
  }

  std::string summary_;
  std::vector<Line> kept_;
  bool whole_ = false;
  std::size_t problems_ = 0;
  std::size_t notes_ = 0;
};

/// "1 row", "2 rows".
inline std::string counted(unsigned long long count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

/// "1 vertex", "2 vertices".
inline std::string counted(unsigned long long count, const std::string& one,
                           const std::string& many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace qz_tool
