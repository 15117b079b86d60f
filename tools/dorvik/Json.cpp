#include "Json.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "dorvik/dorvik.hpp"

namespace tool {

// ---- Writing -------------------------------------------------------------------------

void JsonWriter::NewLine() {
    out_ += '\n';
    out_.append(2 * first_.size(), ' ');
}

void JsonWriter::BeforeValue() {
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (first_.empty()) return;
    if (!first_.back()) out_ += ',';
    first_.back() = false;
    NewLine();
}

JsonWriter& JsonWriter::Open(char bracket) {
    BeforeValue();
    out_ += bracket;
    first_.push_back(true);
    return *this;
}

JsonWriter& JsonWriter::Close(char bracket) {
    bool empty = first_.back();
    first_.pop_back();
    if (!empty) NewLine();
    out_ += bracket;
    if (first_.empty()) out_ += '\n';
    return *this;
}

JsonWriter& JsonWriter::Key(std::string_view key) {
    String(key);
    out_ += ": ";
    afterKey_ = true;
    return *this;
}

JsonWriter& JsonWriter::String(std::string_view value) {
    BeforeValue();
    out_ += '"';
    for (char c : value) {
        auto byte = static_cast<unsigned char>(c);
        switch (c) {
            case '"':
                out_ += "\\\"";
                break;
            case '\\':
                out_ += "\\\\";
                break;
            case '\n':
                out_ += "\\n";
                break;
            case '\r':
                out_ += "\\r";
                break;
            case '\t':
                out_ += "\\t";
                break;
            default:
                if (byte < 0x20) {
                    char escaped[8];
                    std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
                    out_ += escaped;
                } else {
                    out_ += c;
                }
        }
    }
    out_ += '"';
    return *this;
}

JsonWriter& JsonWriter::Number(std::uint64_t value) {
    BeforeValue();
    out_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Number(std::int64_t value) {
    BeforeValue();
    out_ += std::to_string(value);
    return *this;
}

JsonWriter& JsonWriter::Fraction(double value, int digits) {
    BeforeValue();
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, std::isfinite(value) ? value : 0.0);
    out_ += text;
    return *this;
}

JsonWriter& JsonWriter::Bool(bool value) {
    BeforeValue();
    out_ += value ? "true" : "false";
    return *this;
}

// ---- Reading -------------------------------------------------------------------------

const JsonValue* JsonValue::Find(std::string_view key) const {
    for (const auto& [name, value] : members)
        if (name == key) return &value;
    return nullptr;
}

namespace {

constexpr int kMaxDepth = 64;

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    bool Parse(JsonValue& value, std::string& error) {
        bool ok =
            Value(value, 0) && (Blanks(), at_ == text_.size() || Fail("text behind the value"));
        if (!ok) error = error_ + " at byte " + std::to_string(at_);
        return ok;
    }

private:
    bool Fail(const char* why) {
        if (error_.empty()) error_ = why;
        return false;
    }

    void Blanks() {
        while (at_ < text_.size() && (text_[at_] == ' ' || text_[at_] == '\t' ||
                                      text_[at_] == '\n' || text_[at_] == '\r'))
            ++at_;
    }

    bool Literal(std::string_view word) {
        if (text_.substr(at_, word.size()) != word) return Fail("an unknown word");
        at_ += word.size();
        return true;
    }

    bool Value(JsonValue& value, int depth) {
        if (depth > kMaxDepth) return Fail("nesting too deep");
        Blanks();
        if (at_ >= text_.size()) return Fail("the text ends where a value should stand");
        char c = text_[at_];
        switch (c) {
            case '{':
                return Object(value, depth);
            case '[':
                return Array(value, depth);
            case '"':
                value.type = JsonValue::Type::string;
                return String(value.text);
            case 't':
                value.type = JsonValue::Type::boolean;
                value.boolean = true;
                return Literal("true");
            case 'f':
                value.type = JsonValue::Type::boolean;
                return Literal("false");
            case 'n':
                return Literal("null");
            default:
                return Number(value);
        }
    }

    bool Object(JsonValue& value, int depth) {
        value.type = JsonValue::Type::object;
        ++at_;
        Blanks();
        if (at_ < text_.size() && text_[at_] == '}') return ++at_, true;
        for (;;) {
            Blanks();
            if (at_ >= text_.size() || text_[at_] != '"') return Fail("a key should stand here");
            JsonMember member;
            if (!String(member.name)) return false;
            Blanks();
            if (at_ >= text_.size() || text_[at_] != ':') return Fail("':' should stand here");
            ++at_;
            if (!Value(member.value, depth + 1)) return false;
            value.members.push_back(std::move(member));
            Blanks();
            if (at_ < text_.size() && text_[at_] == ',') {
                ++at_;
                continue;
            }
            if (at_ < text_.size() && text_[at_] == '}') return ++at_, true;
            return Fail("',' or '}' should stand here");
        }
    }

    bool Array(JsonValue& value, int depth) {
        value.type = JsonValue::Type::array;
        ++at_;
        Blanks();
        if (at_ < text_.size() && text_[at_] == ']') return ++at_, true;
        for (;;) {
            JsonValue item;
            if (!Value(item, depth + 1)) return false;
            value.items.push_back(std::move(item));
            Blanks();
            if (at_ < text_.size() && text_[at_] == ',') {
                ++at_;
                continue;
            }
            if (at_ < text_.size() && text_[at_] == ']') return ++at_, true;
            return Fail("',' or ']' should stand here");
        }
    }

    bool Hex4(unsigned& value) {
        if (text_.size() - at_ < 4) return Fail("a cut \\u escape");
        value = 0;
        for (int k = 0; k < 4; ++k) {
            char c = text_[at_++];
            value <<= 4;
            if (c >= '0' && c <= '9')
                value |= static_cast<unsigned>(c - '0');
            else if (c >= 'a' && c <= 'f')
                value |= static_cast<unsigned>(c - 'a' + 10);
            else if (c >= 'A' && c <= 'F')
                value |= static_cast<unsigned>(c - 'A' + 10);
            else
                return Fail("a bad \\u escape");
        }
        return true;
    }

    bool String(std::string& out) {
        ++at_;  // the opening quote
        for (;;) {
            if (at_ >= text_.size()) return Fail("a string without its closing quote");
            char c = text_[at_++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20)
                return Fail("a control character in a string");
            if (c != '\\') {
                out += c;
                continue;
            }
            if (at_ >= text_.size()) return Fail("a string without its closing quote");
            char e = text_[at_++];
            switch (e) {
                case '"':
                case '\\':
                case '/':
                    out += e;
                    break;
                case 'b':
                    out += '\b';
                    break;
                case 'f':
                    out += '\f';
                    break;
                case 'n':
                    out += '\n';
                    break;
                case 'r':
                    out += '\r';
                    break;
                case 't':
                    out += '\t';
                    break;
                case 'u': {
                    unsigned c1 = 0;
                    if (!Hex4(c1)) return false;
                    if (c1 >= 0xD800 && c1 < 0xDC00 && text_.substr(at_, 2) == "\\u") {
                        at_ += 2;
                        unsigned c2 = 0;
                        if (!Hex4(c2)) return false;
                        if (c2 < 0xDC00 || c2 >= 0xE000) return Fail("a lone surrogate");
                        c1 = 0x10000 + ((c1 - 0xD800) << 10) + (c2 - 0xDC00);
                    } else if (c1 >= 0xD800 && c1 < 0xE000) {
                        return Fail("a lone surrogate");
                    }
                    dorvik::append_utf8(out, c1);
                    break;
                }
                default:
                    return Fail("an unknown escape");
            }
        }
    }

    bool Number(JsonValue& value) {
        std::size_t start = at_;
        if (at_ < text_.size() && text_[at_] == '-') ++at_;
        auto digits = [&] {
            std::size_t from = at_;
            while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9') ++at_;
            return at_ > from;
        };
        if (!digits()) return Fail("a value should stand here");
        if (at_ < text_.size() && text_[at_] == '.' && (++at_, !digits()))
            return Fail("a number without digits behind its point");
        if (at_ < text_.size() && (text_[at_] == 'e' || text_[at_] == 'E')) {
            ++at_;
            if (at_ < text_.size() && (text_[at_] == '+' || text_[at_] == '-')) ++at_;
            if (!digits()) return Fail("a number without digits in its exponent");
        }
        value.type = JsonValue::Type::number;
        value.number = std::strtod(std::string(text_.substr(start, at_ - start)).c_str(), nullptr);
        return true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string error_;
};

}  // namespace

std::optional<JsonValue> ParseJson(std::string_view text, std::string& error) {
    JsonValue value;
    if (!Parser(text).Parse(value, error)) return std::nullopt;
    return value;
}

}  // namespace tool
