// The forms of a diacritizer folder that match a pattern, with their frequencies.
#include <algorithm>

#include "cxx/Boundary.h"
#include "dorvik/IXFile.h"
#include "index/IXRecords.h"

namespace dorvik {

std::vector<Diacritizer::Form> Diacritizer::forms(std::string_view pattern,
                                                  std::size_t limit) const {
    const std::filesystem::path& folder = this->folder();
    cxx::RequireOpen(!folder.empty(), {});
    OpenOptions readOnly;
    readOnly.read_only = true;
    Dictionary words(folder / Files::forms, readOnly);
    BitSet ids = words.match_ids(pattern);
    if (ids.empty()) return {};

    std::filesystem::path path = folder / Files::frequencies;
    std::vector<int> frequencies = cxx::Guard(path, [&] {
        CIXFile file(path.c_str(), CFile::shareDenyNone, 4);
        return ReadIXRecords(file);
    });
    std::vector<Form> found;
    for (std::uint32_t id : ids) {
        if (id >= frequencies.size() || frequencies[id] < 0) continue;  // never chosen
        Form form;
        form.id = id;
        form.frequency = static_cast<std::uint32_t>(frequencies[id]);
        found.push_back(std::move(form));
    }
    auto before = [](const Form& a, const Form& b) {
        return a.frequency != b.frequency ? a.frequency > b.frequency : a.id < b.id;
    };
    if (limit > 0 && limit < found.size()) {
        std::partial_sort(found.begin(), found.begin() + static_cast<std::ptrdiff_t>(limit),
                          found.end(), before);
        found.resize(limit);
    } else {
        std::sort(found.begin(), found.end(), before);
    }
    for (Form& form : found) form.text = words.word(form.id);
    return found;
}

}  // namespace dorvik
