#include "keyword_expression.hpp"

#include <fmt/format.h>

#include <cctype>

namespace pc::runner {
namespace {

enum class Token { word, and_, or_, not_, open, close, end, bad };

// The bytes a word is made of: pytest's (letters, digits, _ : + - . [ ] \ /), and every byte of a
// name that is not ASCII, so that a file's own name can be a word.
bool word_byte(unsigned char c) {
    return std::isalnum(c) || c >= 0x80 || std::string_view("_:+-.[]\\/").find(char(c)) != std::string_view::npos;
}

struct Lexeme {
    Token token = Token::end;
    std::string_view text;
    size_t at = 0; // where it starts in the expression, from 0
};

class Lexer {
public:
    explicit Lexer(std::string_view text) : text_(text) { advance(); }
    const Lexeme &peek() const { return current_; }
    Lexeme take() {
        Lexeme taken = current_;
        advance();
        return taken;
    }

private:
    void advance() {
        while (at_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[at_]))) ++at_;
        current_ = {Token::end, {}, at_};
        if (at_ == text_.size()) return;
        char c = text_[at_];
        if (c == '(' || c == ')') {
            current_ = {c == '(' ? Token::open : Token::close, text_.substr(at_, 1), at_};
            ++at_;
            return;
        }
        size_t end = at_;
        while (end < text_.size() && word_byte(static_cast<unsigned char>(text_[end]))) ++end;
        if (end == at_) {
            current_ = {Token::bad, text_.substr(at_, 1), at_};
            return;
        }
        std::string_view word = text_.substr(at_, end - at_);
        // as in pytest, the three operators are lower case; `AND` is a word
        Token token = word == "and" ? Token::and_ : word == "or" ? Token::or_ : word == "not" ? Token::not_ : Token::word;
        current_ = {token, word, at_};
        at_ = end;
    }

    std::string_view text_;
    size_t at_ = 0;
    Lexeme current_;
};

std::string found(const Lexeme &l) {
    switch (l.token) {
    case Token::end: return "the end of the expression";
    case Token::word: return fmt::format("the word '{}'", l.text);
    case Token::bad: return fmt::format("the character '{}', which no word holds", l.text);
    default: return std::string(l.text);
    }
}

} // namespace

// Recursive descent over the grammar
//   expression := or ; or := and ("or" and)* ; and := not ("and" not)* ;
//   not := "not" not | "(" or ")" | word
class KeywordParser {
public:
    KeywordParser(std::string_view text, KeywordExpression &into) : lexer_(text), into_(into) {}

    bool parse(std::string &error) {
        if (lexer_.peek().token == Token::end) {
            into_.root_ = add({KeywordExpression::Op::always, {}});
            return true;
        }
        into_.root_ = parse_or();
        if (into_.root_ >= 0 && lexer_.peek().token != Token::end) fail("and, or or the end of the expression");
        error = error_;
        return error_.empty();
    }

private:
    using Op = KeywordExpression::Op;

    int parse_or() { return parse_chain(Token::or_, Op::or_, &KeywordParser::parse_and); }
    int parse_and() { return parse_chain(Token::and_, Op::and_, &KeywordParser::parse_not); }

    int parse_chain(Token joiner, Op op, int (KeywordParser::*operand)()) {
        int left = (this->*operand)();
        while (left >= 0 && lexer_.peek().token == joiner) {
            lexer_.take();
            int right = (this->*operand)();
            if (right < 0) return -1;
            left = add({op, {}, left, right});
        }
        return left;
    }

    int parse_not() {
        const Lexeme &next = lexer_.peek();
        if (next.token == Token::not_) {
            lexer_.take();
            int operand = parse_not();
            return operand < 0 ? -1 : add({Op::not_, {}, operand});
        }
        if (next.token == Token::open) {
            lexer_.take();
            int inner = parse_or();
            if (inner < 0) return -1;
            if (lexer_.peek().token != Token::close) return fail(")");
            lexer_.take();
            return inner;
        }
        if (next.token == Token::word) return add({Op::word, std::string(lexer_.take().text)});
        return fail("a word, not or (");
    }

    int add(KeywordExpression::Node node) {
        into_.nodes_.push_back(std::move(node));
        return int(into_.nodes_.size() - 1);
    }

    int fail(const char *expected) {
        const Lexeme &at = lexer_.peek();
        if (error_.empty()) error_ = fmt::format("at column {}: expected {}; found {}", at.at + 1, expected, found(at));
        return -1;
    }

    Lexer lexer_;
    KeywordExpression &into_;
    std::string error_;
};

std::optional<KeywordExpression> KeywordExpression::parse(std::string_view text, std::string &error) {
    KeywordExpression expression;
    if (!KeywordParser(text, expression).parse(error)) return std::nullopt;
    return expression;
}

bool KeywordExpression::holds(const std::function<bool(std::string_view)> &has) const { return holds(root_, has); }

bool KeywordExpression::holds(int node, const std::function<bool(std::string_view)> &has) const {
    const Node &n = nodes_[size_t(node)];
    switch (n.op) {
    case Op::always: return true;
    case Op::word: return has(n.word);
    case Op::not_: return !holds(n.left, has);
    case Op::and_: return holds(n.left, has) && holds(n.right, has);
    case Op::or_: return holds(n.left, has) || holds(n.right, has);
    }
    return false;
}

bool KeywordExpression::part_of(std::string_view word, std::string_view name) {
    auto lower = [](char c) { return char(std::tolower(static_cast<unsigned char>(c))); };
    if (word.size() > name.size()) return false;
    for (size_t at = 0; at + word.size() <= name.size(); ++at) {
        size_t i = 0;
        while (i < word.size() && lower(word[i]) == lower(name[at + i])) ++i;
        if (i == word.size()) return true;
    }
    return false;
}

} // namespace pc::runner
