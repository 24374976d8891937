#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kx::tool {

// Takes the parts out of a body of several, as its pieces come. Parts say how long they are, or end at the
// next boundary.
class MultipartReader {
 public:
  // Of a body's type; nothing when it is not of several parts.
  static std::optional<MultipartReader> ForType(std::string_view content_type);

  void Add(std::string_view piece) { text_.append(piece); }
  // The next whole part, without its head. Nothing: there is none yet. A ToolError for what never ends.
  std::optional<std::string> Next();

 private:
  explicit MultipartReader(std::string delimiter) : delimiter_(std::move(delimiter)) {}
  bool ReadHead();
  void Drop(std::size_t size);

  std::string delimiter_;  // the boundary with what stands before it
  std::string text_;       // that is not taken yet
  bool in_part_ = false;
  std::optional<std::size_t> length_;  // of the part
  std::size_t searched_ = 0;           // up to where text_ has no boundary
};

}  // namespace kx::tool
