#include "inputs/agent_document.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <pugixml.hpp>

#include "database/ascii.h"
#include "database/text.h"
#include "inputs/observation.h"
#include "plant/plant.h"

namespace kx::tool {
namespace {

// Of elements and of attributes: each takes many times the memory that it has as a text.
constexpr std::ptrdiff_t kMostElements = 3'000'000;

// A name without the prefix of its namespace.
std::string_view LocalName(const pugi::xml_node& node) {
  const std::string_view name = node.name();
  const std::size_t colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

pugi::xml_node Child(const pugi::xml_node& parent, std::string_view name) {
  return parent.find_child([&](const pugi::xml_node& node) { return LocalName(node) == name; });
}

std::string Attribute(const pugi::xml_node& node, const char* name) {
  return PlainText(node.attribute(name).value());
}

std::optional<std::uint64_t> Number(const pugi::xml_node& node, const char* name) {
  const std::string_view text = node.attribute(name).value();
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// "PartCount" is of the type PART_COUNT.
std::string TypeOf(std::string_view element) {
  std::string type;
  for (std::size_t i = 0; i < element.size(); ++i) {
    const char c = element[i];
    const bool is_capital = c >= 'A' && c <= 'Z';
    if (is_capital && i > 0 && (element[i - 1] < 'A' || element[i - 1] > 'Z')) type += '_';
    type += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  }
  return type;
}

// What no document can be, in words for people.
ToolError NoDocument(std::string_view text, std::string_view why) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  const std::string beginning = PlainText(start == std::string_view::npos ? "" : text.substr(start, 60));
  const std::string lower = ToLowerAscii(beginning);
  if (lower.starts_with("<html") || lower.starts_with("<!doctype html"))
    return ToolError("the agent answered with a page for people (HTML), not with a document");
  return ToolError(Concat("what the agent sent is no document of an agent: ", why,
                          beginning.empty() ? "" : Concat("; it begins with ", beginning)));
}

class Reader {
 public:
  explicit Reader(AgentDocument& document) : document_(document) {}

  void ReadDevice(const pugi::xml_node& device) {
    for (const pugi::xml_node& component : device) {
      for (const pugi::xml_node& category : component) {
        const std::string_view kind = LocalName(category);
        for (const pugi::xml_node& item : category) {
          if (item.type() == pugi::node_element) ReadItem(device, component, item, kind == "Condition");
        }
      }
    }
  }

 private:
  void ReadItem(const pugi::xml_node& device, const pugi::xml_node& component, const pugi::xml_node& item,
                bool is_condition) {
    const auto sequence = Number(item, "sequence");
    if (!sequence) return;
    AgentObservation told;
    told.sequence = *sequence;
    told.time = Attribute(item, "timestamp");
    told.id = Attribute(item, "dataItemId");
    told.name = Attribute(item, "name");
    told.sub_type = Attribute(item, "subType");
    told.device = Attribute(device, "name");
    told.device_uuid = Attribute(device, "uuid");
    if (Attribute(component, "component") == "Path") told.path = Attribute(component, "componentId");
    told.is_condition = is_condition;
    if (is_condition) {
      const std::string code = Attribute(item, "nativeCode");
      told.type = Attribute(item, "type");
      told.value = Concat(TypeOf(LocalName(item)), code.empty() ? "" : " ", code);
    } else {
      told.type = TypeOf(LocalName(item));
      told.value = PlainText(item.child_value());
      if (const std::string reset = Attribute(item, "resetTriggered"); !reset.empty())
        Append(told.value, ":", reset);
    }
    document_.observations.push_back(std::move(told));
  }

  AgentDocument& document_;
};

}  // namespace

AgentDocument AgentDocument::Parse(std::string_view text) {
  if (text.size() > kLargestDocument || std::ranges::count(text, '<') > kMostElements ||
      std::ranges::count(text, '=') > kMostElements)
    throw ToolError("the agent's document is too large");
  // No entity but the five of every document is known, and a document type is skipped: nothing grows.
  pugi::xml_document xml;
  const pugi::xml_parse_result parsed = xml.load_buffer(text.data(), text.size());
  if (!parsed) throw NoDocument(text, parsed.description());
  const pugi::xml_node root = xml.document_element();
  const pugi::xml_node header = Child(root, "Header");
  AgentDocument document;
  document.instance = Number(header, "instanceId").value_or(0);
  document.time = Attribute(header, "creationTime");
  const pugi::xml_node errors = Child(root, "Errors");
  if (const pugi::xml_node error = errors ? errors.first_child() : Child(root, "Error")) {
    document.error = Attribute(error, "errorCode");
    const pugi::xml_node message = Child(error, "ErrorMessage");
    document.error_text = PlainText(message ? message.child_value() : error.child_value());
    if (document.error.empty()) document.error = "an error";
    return document;
  }
  const pugi::xml_node streams = Child(root, "Streams");
  const auto next = Number(header, "nextSequence");
  if (!streams || !next) throw NoDocument(text, "streams or the next sequence are missing");
  document.next = *next;
  document.first = Number(header, "firstSequence").value_or(0);
  document.has_more = Number(header, "lastSequence").value_or(0) >= *next;
  Reader reader(document);
  for (const pugi::xml_node& device : streams) reader.ReadDevice(device);
  return document;
}

}  // namespace kx::tool
