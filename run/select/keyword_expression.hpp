// A `run -k` expression, read as pytest reads its own: words joined by `and`, `or`, `not` and
// parentheses (`bgp and not v6`, `(ospf or isis) and not slow`). A word holds when it is a part of
// one of the names a file goes by, letters compared without regard to case.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pc::runner {

class KeywordExpression {
public:
    // The expression `text` stands for, or nullopt with `error` naming the column (from 1) where
    // it goes wrong: "at column 9: expected a word, not or (; found the end of the expression".
    // An expression of blanks only holds for every file.
    static std::optional<KeywordExpression> parse(std::string_view text, std::string &error);

    // Whether the expression holds, `has(word)` telling whether a word holds. Words are asked
    // for only as far as the answer needs them (`a or b` does not ask for b when a holds).
    bool holds(const std::function<bool(std::string_view word)> &has) const;

    // Whether `word` is a part of `name`, ASCII letters compared without regard to case.
    static bool part_of(std::string_view word, std::string_view name);

private:
    enum class Op { word, not_, and_, or_, always };
    struct Node {
        Op op;
        std::string word;
        int left = -1, right = -1;
    };
    bool holds(int node, const std::function<bool(std::string_view)> &has) const;

    std::vector<Node> nodes_;
    int root_ = -1;
    friend class KeywordParser;
};

} // namespace pc::runner
