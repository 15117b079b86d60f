// JSON for the tool's --json output and for the manifest of a diacritizer folder: a
// writer that indents, and a reader that keeps the whole tree (for small documents).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tool {

// Writes one JSON value into a string, indented by two blanks per level. Strings are
// taken as UTF-8 and escaped as JSON requires; keys and values alternate in objects.
class JsonWriter {
public:
    std::string& Text() noexcept { return out_; }

    JsonWriter& BeginObject() { return Open('{'); }
    JsonWriter& EndObject() { return Close('}'); }
    JsonWriter& BeginArray() { return Open('['); }
    JsonWriter& EndArray() { return Close(']'); }
    JsonWriter& Key(std::string_view key);
    JsonWriter& String(std::string_view value);
    JsonWriter& Number(std::uint64_t value);
    JsonWriter& Number(std::int64_t value);
    // A fraction, with `digits` digits behind the point.
    JsonWriter& Fraction(double value, int digits);
    JsonWriter& Bool(bool value);

private:
    JsonWriter& Open(char bracket);
    JsonWriter& Close(char bracket);
    void BeforeValue();
    void NewLine();

    std::string out_;
    std::vector<bool> first_;  // per open level: nothing written in it yet
    bool afterKey_ = false;
};

struct JsonMember;

// A parsed JSON value.
struct JsonValue {
    enum class Type { null, boolean, number, string, array, object };
    Type type = Type::null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<JsonValue> items;
    std::vector<JsonMember> members;  // of an object, in the order of the text

    // The member `key` of an object; null when there is none or this is no object.
    const JsonValue* Find(std::string_view key) const;
};

// A member of an object. A struct of its own rather than std::pair, which must not be
// instantiated while JsonValue is still incomplete.
struct JsonMember {
    std::string name;
    JsonValue value;
};

// Parses a whole JSON text. Nesting deeper than 64 levels is refused. Empty, with the
// reason and its byte offset in `error`, when the text is no JSON.
std::optional<JsonValue> ParseJson(std::string_view text, std::string& error);

}  // namespace tool
