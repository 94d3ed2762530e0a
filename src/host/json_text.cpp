#include "json_text.h"

#include <nlohmann/json.hpp>

#include "utf8.h"

namespace corvane {

namespace {

/// Ends a list in whose place a comma stands behind the last value.
void Close(std::string& text, char end) {
    if (text.back() == ',') {
        text.back() = end;
    } else {
        text += end;
    }
}

}  // namespace

JsonText::JsonText(const std::string& text)
    : m_text(nlohmann::json(ValidUtf8(text)).dump(-1, ' ', true)) {}

JsonText JsonText::Object(const std::vector<Member>& members) {
    JsonText object;
    object.m_text = "{";
    for (const auto& [name, value] : members) {
        object.m_text += JsonText(name).m_text + ":" + value.m_text + ",";
    }
    Close(object.m_text, '}');
    return object;
}

JsonText JsonText::Array(const std::vector<JsonText>& values) {
    JsonText array;
    array.m_text = "[";
    for (const JsonText& value : values) {
        array.m_text += value.m_text + ",";
    }
    Close(array.m_text, ']');
    return array;
}

}  // namespace corvane
