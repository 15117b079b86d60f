#include "IndexFolder.h"

#include <cstring>

#include "Command.h"

namespace tool {
namespace {

void Put(std::string& out, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(static_cast<char>(value >> (8 * i)));
}

std::uint32_t Get(const std::string& in, std::size_t at) {
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | static_cast<unsigned char>(in[at + static_cast<std::size_t>(i)]);
    return value;
}

}  // namespace

std::string Encode(const Place& place) {
    std::string out;
    for (std::uint32_t v : {place.file, place.line, place.offset, place.length}) Put(out, v);
    return out;
}

Index::Index(const std::filesystem::path& where, bool writable) : folder(where) {
    std::optional<Manifest> m = ReadManifest(folder, Manifest::Kind::index);
    if (!m) throw Failure(kDataError, folder.string() + ": no index (no manifest.json)");
    manifest = *m;
    dorvik::OpenOptions options;
    options.read_only = !writable;
    dorvik::OpenOptions bulk = options;
    bulk.bulk = writable;
    words = dorvik::Dictionary(folder / IndexFiles::words, bulk);
    postings = dorvik::PostingsFile(folder / IndexFiles::postings, bulk);
    units = dorvik::RecordFile(folder / IndexFiles::units, bulk);
    files = dorvik::RecordFile(folder / IndexFiles::files, options);
    tree = dorvik::Tree(folder / IndexFiles::tree, 2);  // files and units: never more
    if (units.size() != manifest.units)
        throw Failure(kDataError, (folder / IndexFiles::units).string() +
                                      ": holds another number of units than the manifest says");
    // Files at level 0 and units at level 1, nothing else: then every unit has its file.
    if (tree.levels() > 2 || tree.count(0) != files.size() || tree.count(1) != units.size() ||
        tree.size() != files.size() + units.size() || (tree.size() > 0 && tree.level(0) != 0))
        throw Failure(kDataError, (folder / IndexFiles::tree).string() +
                                      ": does not match the files and units of the index");
}

Place Index::PlaceOf(std::uint32_t unit) {
    std::string record = units.read_string(unit);
    Place place;
    if (record.size() == 16) {
        place = {Get(record, 0), Get(record, 4), Get(record, 8), Get(record, 12)};
        if (place.file < files.size()) return place;
    }
    throw Failure(kDataError, (folder / IndexFiles::units).string() + ": damaged record " +
                                  std::to_string(unit));
}

std::vector<SourceFile> Index::Files() {
    std::vector<SourceFile> result;
    // Nodes run file, its units, the next file, ...: the node of file f less f is the
    // number of units before the file, and its units run up to the next file's node.
    // The constructor's checks keep these numbers within the units.
    std::uint32_t node = tree.node(0, 0).value_or(0);
    for (std::size_t f = 0; f < files.size(); ++f) {
        std::uint32_t next = tree.node(f + 1, 0).value_or(tree.size());
        result.push_back(
            {node - static_cast<std::uint32_t>(f), next - node - 1, files.read_string(f)});
        node = next;
    }
    return result;
}

}  // namespace tool
