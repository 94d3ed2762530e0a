// JSON, written as text at once.
//
// A tree of values is freed by code that allocates, in the library that is used for it, which ends
// the process where memory is short; texts are not.
#pragma once

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace corvane {

class JsonText {
public:
    using Member = std::pair<std::string, JsonText>;

    /// null
    JsonText() = default;

    /// A string in ASCII: everything else is escaped, also U+0080 to U+009F, which a terminal may
    /// take for commands. Bytes that are not UTF-8 become U+FFFD.
    JsonText(const std::string& text);

    /// true, false or a whole number
    template <typename Whole, typename = std::enable_if_t<std::is_integral_v<Whole>>>
    JsonText(Whole value) : m_text(Written(value)) {}

    static JsonText Object(const std::vector<Member>& members);
    static JsonText Array(const std::vector<JsonText>& values);

    /// Without blanks and newlines.
    const std::string& Text() const { return m_text; }

private:
    static std::string Written(bool value) { return value ? "true" : "false"; }
    template <typename Whole>
    static std::string Written(Whole value) {
        return std::to_string(value);
    }

    std::string m_text = "null";
};

}  // namespace corvane
