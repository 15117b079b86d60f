#include "Command.h"

#include <CLI/CLI.hpp>
#include <map>

#include "Manifest.h"

namespace tool {

std::string Describe(const dorvik::Error& error, const std::string& file) {
    std::string message = error.what();
    std::string where = file;
    if (!error.path().empty()) {
        // "not found: /x/forms.freq (...)" reads "/x/forms.freq: not found (...)".
        std::string path = error.path().string();
        std::size_t at = message.find(": " + path);
        if (at != std::string::npos) message.erase(at, 2 + path.size());
        where = path;
    }
    return where.empty() ? message : where + ": " + message;
}

dorvik::Diacritizer OpenFolder(const std::filesystem::path& folder) {
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error))
        throw Failure(kDataError,
                      folder.string() + (std::filesystem::exists(folder, error) ? ": is no folder"
                                                                                : ": not found"));
    ReadManifest(folder);
    try {
        return dorvik::Diacritizer(folder);
    } catch (const dorvik::Error& e) {
        throw Failure(kDataError, Describe(e) + " (no usable diacritizer folder)");
    }
}

dorvik::ContextDiacritizer OpenContext(const std::filesystem::path& folder,
                                       dorvik::ContextDiacritizer::Steps steps) {
    OpenFolder(folder);
    try {
        return dorvik::ContextDiacritizer(folder, steps);
    } catch (const dorvik::Error& e) {
        throw Failure(kDataError, Describe(e) + " (no usable diacritizer folder)");
    }
}

void AddDictOption(CLI::App& app, std::string& folder) {
    app.add_option("-d,--dict", folder, "the diacritizer folder made by build")
        ->required()
        ->option_text("DICTDIR");
}

void AddEncodingOption(CLI::App& app, Encoding& encoding) {
    static const std::map<std::string, Encoding> names = {{"utf-8", Encoding::utf8},
                                                          {"utf8", Encoding::utf8},
                                                          {"cp1256", Encoding::cp1256},
                                                          {"windows-1256", Encoding::cp1256}};
    app.add_option("--encoding", encoding, "utf-8 (the default) or cp1256 (raw Windows-1256 bytes)")
        ->transform(CLI::CheckedTransformer(names, CLI::ignore_case))
        ->option_text("ENCODING");
}

std::string Thousands(std::uint64_t n) {
    std::string digits = std::to_string(n), out;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0) out += ',';
        out += digits[i];
    }
    return out;
}

std::string_view NameOf(Encoding encoding) {
    return encoding == Encoding::utf8 ? "utf-8" : "cp1256";
}

}  // namespace tool
