#pragma once
// Warnings about configuration files, gathered while they are read and
// checked, then written sorted by file and line (in the order found within a
// line) as "file:line: warning: message".

#include <iosfwd>
#include <string>
#include <vector>

namespace Zet::Tool {

class Warnings {
 public:
  void add(std::string file, unsigned long line, std::string message);
  size_t count() const { return warnings_.size(); }
  void print(std::ostream& out) const;

 private:
  struct Warning {
    std::string file;
    unsigned long line;
    std::string message;
  };
  std::vector<Warning> warnings_;
};

}  // namespace Zet::Tool
