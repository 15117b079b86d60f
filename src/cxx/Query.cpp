#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "bits/CompressedForm.h"

#include "cxx/Boundary.h"
#include "dorvik/dorvik.hpp"

namespace dorvik {

QueryError::QueryError(ErrorCode code, const std::string& message, std::size_t offset)
    : Error(code, message), offset_(offset) {}

namespace {

constexpr int kMaxDepth = 64;

// A node of a parsed query; node 0 is the root.
struct Node {
    // A word, an AND or an OR of the children, or the negation of the one child.
    enum class Kind { word, all_of, any_of, negated };
    Kind kind = Kind::word;             // what the node is
    std::string pattern;                // kind word
    std::size_t offset = 0;             // of the word or operator in the text
    std::vector<std::size_t> children;  // indexes into the node table; one for negated
};

using Kind = Node::Kind;

struct Token {
    enum class Type { word, bar, minus, open, close, end } type;
    std::size_t offset;
    std::string_view text;
};

bool EndsWord(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '|' || c == '(' || c == ')';
}

// The 1-based character (not byte) at `offset`, for messages a person reads.
std::size_t CharacterAt(std::string_view text, std::size_t offset) {
    std::size_t n = 1;
    for (std::size_t i = 0; i < offset && i < text.size(); ++i)
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++n;
    return n;
}

std::vector<Token> Lex(std::string_view text) {
    std::vector<Token> tokens;
    std::size_t i = 0;
    while (i < text.size()) {
        char c = text[i];
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
            ++i;
        } else if (c == '|') {
            tokens.push_back({Token::Type::bar, i++, {}});
        } else if (c == '(') {
            tokens.push_back({Token::Type::open, i++, {}});
        } else if (c == ')') {
            tokens.push_back({Token::Type::close, i++, {}});
        } else if (c == '-') {
            // A '-' where a word would start negates; the word (or group) follows it.
            tokens.push_back({Token::Type::minus, i++, {}});
        } else {
            std::size_t start = i;
            while (i < text.size() && !EndsWord(text[i])) ++i;
            tokens.push_back({Token::Type::word, start, text.substr(start, i - start)});
        }
    }
    tokens.push_back({Token::Type::end, text.size(), {}});
    return tokens;
}

class Parser {
public:
    Parser(std::string_view text, std::vector<Node>& nodes)
        : text_(text), tokens_(Lex(text)), nodes_(nodes) {}

    void Run() {
        nodes_.emplace_back();  // the root, filled in below
        std::size_t root = ParseAny(0);
        if (Peek().type == Token::Type::close) Fail("')' without '('", Peek().offset);
        nodes_[0] = nodes_[root];
        if (root == nodes_.size() - 1) nodes_.pop_back();
    }

private:
    const Token& Peek() const { return tokens_[at_]; }

    [[noreturn]] void Fail(const std::string& what, std::size_t offset) const {
        std::string where = offset >= text_.size()
                                ? std::string(" at the end")
                                : " at character " + std::to_string(CharacterAt(text_, offset));
        throw QueryError(ErrorCode::invalid_argument, what + where, offset);
    }

    std::size_t Add(Node node) {
        nodes_.push_back(std::move(node));
        return nodes_.size() - 1;
    }

    static bool StartsOperand(Token::Type type) {
        return type == Token::Type::word || type == Token::Type::minus || type == Token::Type::open;
    }

    std::size_t ParseAny(int depth) {
        std::vector<std::size_t> children{ParseAll(depth)};
        std::size_t offset = Peek().offset;
        while (Peek().type == Token::Type::bar) {
            std::size_t bar = Peek().offset;
            ++at_;
            if (!StartsOperand(Peek().type)) Fail("'|' with nothing after it", bar);
            children.push_back(ParseAll(depth));
        }
        if (children.size() == 1) return children[0];
        return Add({Kind::any_of, {}, offset, std::move(children)});
    }

    std::size_t ParseAll(int depth) {
        std::vector<std::size_t> children;
        std::size_t offset = Peek().offset;
        while (StartsOperand(Peek().type)) children.push_back(ParseOne(depth));
        if (children.empty()) {
            const Token& t = Peek();
            if (t.type == Token::Type::bar) Fail("'|' with nothing before it", t.offset);
            if (t.type == Token::Type::close && depth > 0) Fail("empty parentheses", t.offset);
            if (t.type == Token::Type::close) Fail("')' without '('", t.offset);
            Fail("empty query", t.offset);
        }
        if (children.size() == 1) return children[0];
        return Add({Kind::all_of, {}, offset, std::move(children)});
    }

    std::size_t ParseOne(int depth) {
        const Token t = Peek();
        if (depth >= kMaxDepth) Fail("nested deeper than 64 levels", t.offset);
        ++at_;
        switch (t.type) {
            case Token::Type::minus: {
                // The operand must follow at once: "a - b" is a slip, not "a -b".
                if (!StartsOperand(Peek().type) || Peek().offset != t.offset + 1)
                    Fail("'-' with nothing after it", t.offset);
                std::size_t child = ParseOne(depth + 1);
                return Add({Kind::negated, {}, t.offset, {child}});
            }
            case Token::Type::open: {
                std::size_t inner = ParseAny(depth + 1);
                if (Peek().type != Token::Type::close) Fail("'(' without ')'", t.offset);
                ++at_;
                return inner;
            }
            default:
                return Add({Kind::word, std::string(t.text), t.offset, {}});
        }
    }

    std::string_view text_;
    std::vector<Token> tokens_;
    std::size_t at_ = 0;
    std::vector<Node>& nodes_;
};

// look_up(), with a pattern the look-up refuses reported as a QueryError at its word.
template <class LookUp>
auto Refused(std::string_view text, const Node& node, LookUp&& look_up) {
    try {
        return look_up();
    } catch (const Error& e) {
        if (e.code() != ErrorCode::bad_text && e.code() != ErrorCode::invalid_argument) throw;
        throw QueryError(ErrorCode::bad_text,
                         "'" + node.pattern + "' at character " +
                             std::to_string(CharacterAt(text, node.offset)) + ": " + e.what(),
                         node.offset);
    }
}

// Refuses a word that no dictionary can hold before anything is looked up, so that a
// query is refused whatever the index holds and however far an evaluation goes.
void CheckWords(std::string_view text, const std::vector<Node>& nodes) {
    for (const Node& node : nodes)
        if (node.kind == Kind::word)
            Refused(text, node, [&] { return cxx::EncodeWord(node.pattern, "pattern"); });
}

// Units 0 .. units - 1.
BitSet Universe(std::uint32_t units) {
    std::vector<std::byte> bitmap((units + 7) / 8, std::byte{0xFF});
    if (units % 8 != 0) bitmap.back() = std::byte((1u << (units % 8)) - 1);
    return BitSet::from_bitmap(bitmap);
}

struct Evaluation {
    const std::vector<Node>& nodes;
    std::string_view text;
    Dictionary& words;
    PostingsFile& postings;
    const BitSet& universe;

    BitSet Forms(const Node& node) const {
        return Refused(text, node, [&] { return words.match_ids(node.pattern); });
    }

    // Recursion is bounded by the nesting the parser allows.
    BitSet Run(std::size_t index) const {
        const Node& node = nodes[index];
        switch (node.kind) {
            case Kind::word: {
                BitSet forms = Forms(node);
                std::vector<std::size_t> terms(forms.begin(), forms.end());
                return postings.unite(terms);
            }
            case Kind::negated:
                return universe - Run(node.children[0]);
            case Kind::any_of: {
                BitSet result;
                for (std::size_t child : node.children) result |= Run(child);
                return result;
            }
            case Kind::all_of:
                break;
        }
        // The wanted parts first, so that the unwanted ones only ever thin a result.
        std::optional<BitSet> result;
        for (std::size_t child : node.children) {
            if (nodes[child].kind == Kind::negated) continue;
            BitSet part = Run(child);
            if (result)
                *result &= part;
            else
                result = std::move(part);
            if (result->empty()) return *result;
        }
        if (!result) result = universe;
        for (std::size_t child : node.children) {
            if (nodes[child].kind != Kind::negated) continue;
            *result -= Run(nodes[child].children[0]);
            if (result->empty()) break;
        }
        return *result;
    }
};

}  // namespace

struct Query::Parsed {
    std::vector<Node> nodes;
};

Query::Query(std::string_view text) : text_(text) {
    auto parsed = std::make_shared<Parsed>();
    Parser(text_, parsed->nodes).Run();
    parsed_ = std::move(parsed);
}

std::vector<std::string> Query::wanted() const {
    std::vector<std::string> patterns;
    // Depth-first from the root in the order written, skipping negated subtrees.
    std::vector<std::size_t> stack{0};
    while (!stack.empty()) {
        const Node& node = parsed_->nodes[stack.back()];
        stack.pop_back();
        if (node.kind == Node::Kind::word) patterns.push_back(node.pattern);
        if (node.kind == Node::Kind::negated) continue;
        for (auto it = node.children.rbegin(); it != node.children.rend(); ++it)
            stack.push_back(*it);
    }
    return patterns;
}

BitSet Query::evaluate(Dictionary& words, PostingsFile& postings, std::uint32_t units) const {
    CheckWords(text_, parsed_->nodes);
    BitSet universe = Universe(units);
    Evaluation evaluation{parsed_->nodes, text_, words, postings, universe};
    BitSet result = evaluation.Run(0);
    result &= universe;
    return result;
}

BitSet Query::wanted_forms(Dictionary& words) const {
    BitSet forms;
    for (const std::string& pattern : wanted()) forms |= words.match_ids(pattern);
    return forms;
}

// ---- Searcher ------------------------------------------------------------------------

namespace {

static_assert(std::endian::native == std::endian::little,
              "a stored record is laid over the bitmap's 64-bit words byte by byte");

// The wildcard index leaves letters after the 1024th of a word out, so only words
// within that agree with their unmarked form letter for letter.
constexpr std::size_t kMaxViewLetters = 1024;

std::size_t Letters(std::string_view utf8) {
    std::size_t n = 0;
    for (char c : utf8) n += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return n;
}

// A set of units while a query is answered: a rising list of unit numbers while it is
// smaller than a bitmap would be, else the bitmap (bit u in word u / 64).
struct UnitSet {
    bool dense = false;
    std::vector<std::uint32_t> list;
    std::vector<std::uint64_t> words;
};

// The records of the forms of one word, as stored, and their total size.
struct WordRecords {
    std::vector<std::vector<std::byte>> records;
    std::size_t bytes = 0;
};

// The operations on the sets of units 0 .. n - 1. No set ever holds a unit at or past n.
class Units {
public:
    explicit Units(std::uint32_t n) : n_(n), wordCount_((std::size_t{n} + 63) / 64) {}

    UnitSet All() const {
        UnitSet all;
        all.dense = true;
        all.words.assign(wordCount_, ~std::uint64_t{0});
        Trim(all);
        return all;
    }

    // Adds the units of a record in its stored form: listed one by one while the set
    // stays small, else laid over the bitmap item by item (runs as memset).
    void Add(UnitSet& set, std::span<const std::byte> stored) const {
        if (stored.size() <= 1) return;
        const auto* form = reinterpret_cast<const unsigned char*>(stored.data());
        int length = static_cast<int>(std::min<std::size_t>(stored.size(), INT32_MAX));
        if (!set.dense &&
            (stored.size() > wordCount_ * 4 ||
             set.list.size() + static_cast<std::size_t>(form::CountSetBits(form, length)) >
                 Limit()))
            MakeDense(set);
        if (!set.dense) {
            // Each record rises: merged into the list so far, which then rises too.
            auto middle = static_cast<std::ptrdiff_t>(set.list.size());
            form::ForEachSetBit(form, length, [&](long long bit) {
                if (bit < n_) set.list.push_back(static_cast<std::uint32_t>(bit));
            });
            std::inplace_merge(set.list.begin(), set.list.begin() + middle, set.list.end());
            return;
        }
        auto* bytes = reinterpret_cast<unsigned char*>(set.words.data());
        std::size_t room = set.words.size() * 8, done = 0;
        form::WalkItems(form, stored.size(), 1, [&](const form::Item& item) {
            if (done >= room) return false;
            std::size_t take = std::min(item.plain, room - done);
            if (!item.run) {
                std::size_t k = 0;
                for (; k + 8 <= take; k += 8) {
                    std::uint64_t a, b;
                    std::memcpy(&a, bytes + done + k, 8);
                    std::memcpy(&b, form + item.pos + k, 8);
                    a |= b;
                    std::memcpy(bytes + done + k, &a, 8);
                }
                for (; k < take; ++k) bytes[done + k] |= form[item.pos + k];
            } else if (item.value) {
                std::memset(bytes + done, 0xFF, take);
            }
            done += item.plain;
            return true;
        });
        Trim(set);
    }

    // The units of a word: the union of its records.
    UnitSet Make(const WordRecords& word) const {
        UnitSet set;
        for (const auto& record : word.records) Add(set, record);
        if (!set.dense && word.records.size() > 1)
            set.list.erase(std::unique(set.list.begin(), set.list.end()), set.list.end());
        return set;
    }

    // a becomes a & word (`keep`) or a - word (not `keep`). A list is matched against
    // the stored records item by item, never expanding them: the cost follows the
    // items up to the last listed unit plus the list.
    void Filter(UnitSet& a, const WordRecords& word, bool keep) const {
        if (a.dense) {
            UnitSet b = Make(word);
            if (keep)
                And(a, std::move(b));
            else
                Minus(a, b);
            return;
        }
        std::vector<char> in(a.list.size(), 0);
        for (const auto& record : word.records)
            form::MarkHeldBits(reinterpret_cast<const unsigned char*>(record.data()), record.size(),
                               a.list, in.data());
        std::size_t kept = 0;
        for (std::size_t i = 0; i < a.list.size(); ++i)
            if ((in[i] != 0) == keep) a.list[kept++] = a.list[i];
        a.list.resize(kept);
    }

    // a becomes a | b.
    void Or(UnitSet& a, UnitSet&& b) const {
        if (!a.dense && a.list.empty()) {
            a = std::move(b);
            return;
        }
        if (!a.dense && !b.dense && a.list.size() + b.list.size() <= Limit()) {
            std::vector<std::uint32_t> both;
            both.reserve(a.list.size() + b.list.size());
            std::set_union(a.list.begin(), a.list.end(), b.list.begin(), b.list.end(),
                           std::back_inserter(both));
            a.list = std::move(both);
            return;
        }
        if (!a.dense && b.dense) std::swap(a, b);
        MakeDense(a);
        if (b.dense) {
            for (std::size_t i = 0; i < wordCount_; ++i) a.words[i] |= b.words[i];
        } else {
            for (std::uint32_t u : b.list) a.words[u / 64] |= std::uint64_t{1} << (u % 64);
        }
    }

    // a becomes a & b; a list stays a list.
    static void And(UnitSet& a, UnitSet&& b) {
        if (a.dense && !b.dense) std::swap(a, b);
        if (a.dense) {
            for (std::size_t i = 0; i < a.words.size(); ++i) a.words[i] &= b.words[i];
        } else if (b.dense) {
            std::erase_if(a.list, [&](std::uint32_t u) { return !Test(b, u); });
        } else {
            std::vector<std::uint32_t> both;
            std::set_intersection(a.list.begin(), a.list.end(), b.list.begin(), b.list.end(),
                                  std::back_inserter(both));
            a.list = std::move(both);
        }
    }

    // a becomes a - b.
    static void Minus(UnitSet& a, const UnitSet& b) {
        if (!a.dense && b.dense) {
            std::erase_if(a.list, [&](std::uint32_t u) { return Test(b, u); });
        } else if (!a.dense) {
            std::vector<std::uint32_t> rest;
            std::set_difference(a.list.begin(), a.list.end(), b.list.begin(), b.list.end(),
                                std::back_inserter(rest));
            a.list = std::move(rest);
        } else if (b.dense) {
            for (std::size_t i = 0; i < a.words.size(); ++i) a.words[i] &= ~b.words[i];
        } else {
            for (std::uint32_t u : b.list) a.words[u / 64] &= ~(std::uint64_t{1} << (u % 64));
        }
    }

    static bool Empty(const UnitSet& set) {
        if (!set.dense) return set.list.empty();
        return std::all_of(set.words.begin(), set.words.end(),
                           [](std::uint64_t w) { return w == 0; });
    }

    static std::vector<std::uint32_t> Listed(UnitSet&& set) {
        if (!set.dense) return std::move(set.list);
        std::vector<std::uint32_t> units;
        for (std::size_t i = 0; i < set.words.size(); ++i)
            for (std::uint64_t w = set.words[i]; w; w &= w - 1)
                units.push_back(static_cast<std::uint32_t>(i * 64) +
                                static_cast<std::uint32_t>(std::countr_zero(w)));
        return units;
    }

private:
    // The size at which a list of 4-byte units is as large as the bitmap.
    std::size_t Limit() const { return wordCount_ * 2; }

    static bool Test(const UnitSet& set, std::uint32_t u) {
        return (set.words[u / 64] >> (u % 64)) & 1;
    }

    void MakeDense(UnitSet& set) const {
        if (set.dense) return;
        set.words.assign(wordCount_, 0);
        for (std::uint32_t u : set.list) set.words[u / 64] |= std::uint64_t{1} << (u % 64);
        set.list = {};
        set.dense = true;
    }

    // Clears the bits at and past n in the last word.
    void Trim(UnitSet& set) const {
        if (n_ % 64 != 0 && !set.words.empty())
            set.words.back() &= (std::uint64_t{1} << (n_ % 64)) - 1;
    }

    std::uint32_t n_;
    std::size_t wordCount_;
};

// The units of node `index` of a parsed query; `fetch` gives the records of a word.
// In an AND the parts that are no single word come first, then the words from the
// smallest records up: once the result is a short list, every further word (wanted or
// not) only filters it. Recursion is bounded by the nesting the parser allows.
template <class Fetch>
UnitSet Answer(const std::vector<Node>& nodes, std::size_t index, const Units& sets, Fetch& fetch) {
    const Node& node = nodes[index];
    switch (node.kind) {
        case Kind::word:
            return sets.Make(fetch(node));
        case Kind::negated: {
            UnitSet all = sets.All();
            Units::Minus(all, Answer(nodes, node.children[0], sets, fetch));
            return all;
        }
        case Kind::any_of: {
            UnitSet result;
            for (std::size_t child : node.children)
                sets.Or(result, Answer(nodes, child, sets, fetch));
            return result;
        }
        case Kind::all_of:
            break;
    }
    std::optional<UnitSet> result;
    auto narrow = [&](UnitSet part) {
        if (result)
            Units::And(*result, std::move(part));
        else
            result = std::move(part);
        return !Units::Empty(*result);
    };
    struct Part {
        WordRecords word;
        bool wanted;
    };
    std::vector<Part> words;
    for (std::size_t child : node.children) {
        bool wanted = nodes[child].kind != Kind::negated;
        std::size_t inner = wanted ? child : nodes[child].children[0];
        if (nodes[inner].kind == Kind::word) {
            words.push_back({fetch(nodes[inner]), wanted});
        } else if (wanted && !narrow(Answer(nodes, child, sets, fetch))) {
            return std::move(*result);
        }
    }
    std::stable_sort(words.begin(), words.end(), [](const Part& a, const Part& b) {
        return a.wanted != b.wanted ? a.wanted : a.word.bytes < b.word.bytes;
    });
    for (const Part& part : words) {
        if (!part.wanted) break;
        if (result)
            sets.Filter(*result, part.word, true);
        else
            result = sets.Make(part.word);
        if (Units::Empty(*result)) return std::move(*result);
    }
    if (!result) result = sets.All();
    for (const Part& part : words)
        if (!part.wanted) sets.Filter(*result, part.word, false);
    for (std::size_t child : node.children) {
        if (nodes[child].kind != Kind::negated) continue;
        std::size_t inner = nodes[child].children[0];
        if (nodes[inner].kind == Kind::word) continue;
        Units::Minus(*result, Answer(nodes, inner, sets, fetch));
        if (Units::Empty(*result)) break;
    }
    return std::move(*result);
}

}  // namespace

Searcher::Searcher(Dictionary& words, PostingsFile& postings, std::uint32_t units)
    : words_(&words), postings_(&postings), units_(units) {
    for (auto it = words.begin(); it != words.end(); ++it) {
        std::string key = strip_marks(*it);
        if (Letters(key) > kMaxViewLetters) {
            viewsUsable_ = false;
            forwards_ = {};
            backwards_ = {};
            return;
        }
        auto id = static_cast<std::uint32_t>(it.id());
        auto size = static_cast<std::uint32_t>(key.size());
        forwards_.entries.push_back({static_cast<std::uint32_t>(forwards_.keys.size()), size, id});
        forwards_.keys += key;
        std::reverse(key.begin(), key.end());
        backwards_.entries.push_back(
            {static_cast<std::uint32_t>(backwards_.keys.size()), size, id});
        backwards_.keys += key;
    }
    for (View* view : {&forwards_, &backwards_})
        std::sort(view->entries.begin(), view->entries.end(),
                  [view](const View::Entry& a, const View::Entry& b) {
                      return view->Key(a) < view->Key(b);
                  });
}

// A whole word, "ab*" or "*ab" without marks and without `?`: the ids from the views.
// False for any other pattern, which the wildcard index answers.
bool Searcher::Lookup(std::string_view pattern, std::vector<std::uint32_t>& ids) const {
    if (!viewsUsable_ || pattern.empty()) return false;
    cxx::EncodeWord(pattern, "pattern");  // refuses what match_ids() refuses
    if (pattern.find('?') != std::string_view::npos ||
        pattern.find("\xD8\x9F") != std::string_view::npos)  // the Arabic question mark
        return false;
    std::string_view core = pattern;
    bool prefix = false, suffix = false;
    std::size_t star = core.find('*');
    if (star == core.size() - 1) {
        prefix = true;
        core.remove_suffix(1);
    } else if (star != std::string_view::npos) {
        // Leading stars, however many, try every start: a suffix.
        core.remove_prefix(core.find_first_not_of('*') == std::string_view::npos
                               ? core.size()
                               : core.find_first_not_of('*'));
        if (star != 0 || core.find('*') != std::string_view::npos) return false;
        suffix = true;
    }
    if (core.empty() || strip_marks(core).size() != core.size()) return false;
    const View& view = suffix ? backwards_ : forwards_;
    std::string key(core);
    if (suffix) std::reverse(key.begin(), key.end());
    auto at =
        std::lower_bound(view.entries.begin(), view.entries.end(), std::string_view(key),
                         [&](const View::Entry& e, std::string_view k) { return view.Key(e) < k; });
    for (; at != view.entries.end(); ++at) {
        std::string_view k = view.Key(*at);
        if (prefix || suffix ? !k.starts_with(key) : k != key) break;
        ids.push_back(at->id);
    }
    return true;
}

BitSet Searcher::forms(std::string_view pattern) {
    std::vector<std::uint32_t> ids;
    if (!Lookup(pattern, ids)) return words_->match_ids(pattern);
    BitSet set;
    for (std::uint32_t id : ids) set.set(id);
    return set;
}

std::vector<std::uint32_t> Searcher::search(const Query& query) {
    CheckWords(query.text_, query.parsed_->nodes);
    Units sets(units_);
    std::vector<std::uint32_t> ids;
    auto fetch = [&](const Node& node) {
        ids.clear();
        Refused(query.text_, node, [&] {
            if (!Lookup(node.pattern, ids)) {
                BitSet found = words_->match_ids(node.pattern);
                ids.assign(found.begin(), found.end());
            }
            return 0;
        });
        WordRecords word;
        for (std::uint32_t id : ids) {
            word.records.push_back(postings_->read_compressed(id));
            word.bytes += word.records.back().size();
        }
        return word;
    };
    return Units::Listed(Answer(query.parsed_->nodes, 0, sets, fetch));
}

}  // namespace dorvik
