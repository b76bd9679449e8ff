#include "Warnings.h"

#include <algorithm>
#include <ostream>
#include <tuple>

#include "PrintableText.h"

namespace Zet::Tool {

void Warnings::add(std::string file, unsigned long line, std::string message) {
  warnings_.push_back({std::move(file), line, std::move(message)});
}

void Warnings::print(std::ostream& out) const {
  std::vector<Warning const*> sorted;
  for (Warning const& w : warnings_) sorted.push_back(&w);
  std::stable_sort(sorted.begin(), sorted.end(), [](Warning const* a, Warning const* b) {
    return std::tie(a->file, a->line) < std::tie(b->file, b->line);
  });
  for (Warning const* w : sorted)
    out << printable(w->file + ':' + std::to_string(w->line) + ": warning: " + w->message) << "\n";
  out.flush();
}

}  // namespace Zet::Tool
