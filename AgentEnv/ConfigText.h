#pragma once
// ConfigText: a text value of the configuration grammar — an identifier, a
// string, or a string being built by concatenation.
//
// The grammar joins "a" + "b" + "c" from the right, so a long chain prepends
// again and again to the text built so far. ConfigText keeps spare room in
// front of its characters and doubles it when it runs out, which makes a
// chain of any length cost time linear in its total size. The scanner makes
// one per identifier and string; the grammar owns it through its value
// stack and hands it back to the reader, which reuses it. Not thread-safe.

#include <algorithm>
#include <string>
#include <string_view>

namespace Zet {

class ConfigText {
 public:
  explicit ConfigText(std::string_view text) : buffer_(text) {}
  ConfigText(ConfigText const&) = delete;
  ConfigText& operator=(ConfigText const&) = delete;

  std::string_view view() const { return std::string_view(buffer_).substr(start_); }
  size_t capacity() const { return buffer_.capacity(); }
  // Replaces the text, reusing the memory held.
  void assign(std::string_view text) {
    buffer_.assign(text);
    start_ = 0;
  }
  bool startsWith(char c) const { return start_ < buffer_.size() && buffer_[start_] == c; }

  void dropFirst() {
    if (start_ < buffer_.size()) ++start_;
  }
  void prepend(std::string_view front) {
    if (front.size() > start_) makeRoomInFront(front.size());
    start_ -= front.size();
    std::copy(front.begin(), front.end(), buffer_.begin() + static_cast<std::ptrdiff_t>(start_));
  }

 private:
  void makeRoomInFront(size_t needed) {
    size_t size = buffer_.size() - start_;
    size_t room = std::max(needed, size + needed);
    std::string grown(room + size, '\0');
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(start_), buffer_.end(),
              grown.begin() + static_cast<std::ptrdiff_t>(room));
    buffer_ = std::move(grown);
    start_ = room;
  }

  std::string buffer_;  // the text is buffer_[start_, end); what precedes it is spare room
  size_t start_ = 0;
};

}  // namespace Zet
