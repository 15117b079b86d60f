#include <optional>
#include <utility>
#include <vector>

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
        try {
            return words.match_ids(node.pattern);
        } catch (const Error& e) {
            if (e.code() != ErrorCode::bad_text && e.code() != ErrorCode::invalid_argument) throw;
            throw QueryError(ErrorCode::bad_text,
                             "'" + node.pattern + "' at character " +
                                 std::to_string(CharacterAt(text, node.offset)) + ": " + e.what(),
                             node.offset);
        }
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

}  // namespace dorvik
