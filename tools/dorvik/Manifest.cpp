#include "Manifest.h"

#include <cstdio>
#include <ctime>
#include <system_error>

#include "Command.h"
#include "Io.h"
#include "Json.h"

namespace tool {
namespace {

std::string_view FormatOf(Manifest::Kind kind) {
    return kind == Manifest::Kind::index ? "dorvik index folder" : "dorvik diacritizer folder";
}
constexpr std::uintmax_t kMaxManifest = std::uintmax_t{1} << 20;

std::string CodePointName(char32_t c) {
    char name[16];
    std::snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(c));
    return name;
}

std::uint64_t Count(const JsonValue* value) {
    if (!value || value->type != JsonValue::Type::number || value->number < 0) return 0;
    return static_cast<std::uint64_t>(value->number);
}

std::string Text(const JsonValue* value) {
    return value && value->type == JsonValue::Type::string ? value->text : std::string();
}

}  // namespace

std::string ToJson(const Manifest& m) {
    JsonWriter json;
    json.BeginObject();
    json.Key("format").String(FormatOf(m.kind));
    json.Key("version").Number(static_cast<std::int64_t>(m.version));
    json.Key("created").String(m.created);
    json.Key("encoding").String(m.encoding);
    json.Key("sources").BeginArray();
    for (const Manifest::Source& source : m.sources) {
        json.BeginObject();
        json.Key("name").String(source.name);
        json.Key("bytes").Number(source.bytes);
        json.EndObject();
    }
    json.EndArray();
    if (m.kind == Manifest::Kind::index) {
        json.Key("unit").String(m.unit);
        json.Key("units").Number(m.units);
    }
    json.Key("tokens").Number(m.tokens);
    json.Key("forms").Number(m.forms);
    json.Key("pairs").Number(m.pairs);
    json.Key("mapped_characters").Number(m.mapped);
    json.Key("dropped_characters").Number(m.dropped);
    json.Key("dropped").BeginObject();
    for (const auto& [c, n] : m.dropped_by_character) json.Key(CodePointName(c)).Number(n);
    json.EndObject();
    json.EndObject();
    return json.Text();
}

std::string UtcNow() {
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::optional<Manifest> ReadManifest(const std::filesystem::path& folder, Manifest::Kind kind) {
    std::filesystem::path path = folder / dorvik::Diacritizer::Files::manifest;
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return std::nullopt;
    std::string name = path.string();
    if (std::filesystem::file_size(path, error) > kMaxManifest)
        throw Failure(kDataError, name + ": larger than a manifest is");
    std::string why;
    std::optional<JsonValue> root = ParseJson(ReadFile(path), why);
    if (!root) throw Failure(kDataError, name + ": no JSON: " + why);
    if (Text(root->Find("format")) != FormatOf(kind))
        throw Failure(kDataError, name + ": no manifest of " +
                                      (kind == Manifest::Kind::index ? "an index folder"
                                                                     : "a diacritizer folder"));
    const JsonValue* version = root->Find("version");
    if (!version || version->type != JsonValue::Type::number || version->number < 1)
        throw Failure(kDataError, name + ": no format version");
    Manifest m;
    m.kind = kind;
    if (version->number > Manifest::kVersion)
        throw Failure(kDataError, name + ": format version " +
                                      std::to_string(static_cast<long long>(version->number)) +
                                      " is newer than this dorvik reads (" +
                                      std::to_string(Manifest::kVersion) + ")");
    m.version = static_cast<int>(version->number);
    m.created = Text(root->Find("created"));
    m.encoding = Text(root->Find("encoding"));
    if (const JsonValue* sources = root->Find("sources"))
        for (const JsonValue& item : sources->items)
            m.sources.push_back({Text(item.Find("name")), Count(item.Find("bytes"))});
    m.unit = Text(root->Find("unit"));
    m.units = Count(root->Find("units"));
    m.tokens = Count(root->Find("tokens"));
    m.forms = Count(root->Find("forms"));
    m.pairs = Count(root->Find("pairs"));
    m.mapped = Count(root->Find("mapped_characters"));
    m.dropped = Count(root->Find("dropped_characters"));
    if (const JsonValue* dropped = root->Find("dropped")) {
        for (const auto& [key, value] : dropped->members) {
            unsigned c = 0;
            if (std::sscanf(key.c_str(), "U+%X", &c) == 1)
                m.dropped_by_character[c] = Count(&value);
        }
    }
    return m;
}

}  // namespace tool
