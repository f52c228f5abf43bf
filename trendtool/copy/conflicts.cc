#include "trendtool/copy/conflicts.h"

#include "trendtool/common/messages.h"

namespace {

/// How many conflicts of a series are named.
constexpr std::uint64_t NAMED = 20;

}  // namespace

void Conflicts::add(std::time_t time, const std::string& reason) {
  if (count() < NAMED) {
    texts_.push_back("conflict: " + series_ + ", " + clock_.text_of(time) + ": " + reason);
  }
  ++noted_;
}

void Conflicts::drop() {
  texts_.clear();
  noted_ = 0;
}

void Conflicts::print() {
  for (const std::string& text : texts_) print_message(text);
  printed_ += noted_;
  drop();
}

void Conflicts::finish() const {
  if (printed_ <= NAMED) return;
  print_message("conflict: " + series_ + ": " + std::to_string(printed_ - NAMED) +
                " more rows differ");
}
