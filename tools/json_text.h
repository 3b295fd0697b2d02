// JSON as all outputs write it: in ASCII, so that nothing from the network reaches a terminal as it
// came, and whole, also where texts are no UTF-8.
#ifndef VT_TOOLS_JSON_TEXT_H_
#define VT_TOOLS_JSON_TEXT_H_

#include <nlohmann/json.hpp>

#include <string>

namespace vt::tools {

// JsonInline is a value without a line end, JsonLine one line of it, JsonDocument one for people,
// too, with members below each other.
inline std::string JsonInline(const nlohmann::ordered_json& json, int indent = -1) {
  return json.dump(indent, ' ', true, nlohmann::ordered_json::error_handler_t::replace);
}
inline std::string JsonLine(const nlohmann::ordered_json& json) { return JsonInline(json) + '\n'; }
inline std::string JsonDocument(const nlohmann::ordered_json& json) {
  return JsonInline(json, 2) + '\n';
}

}  // namespace vt::tools

#endif  // VT_TOOLS_JSON_TEXT_H_
