#pragma once

#include <string>
#include <vector>

namespace integrity_check_tool::generate {

// A glob over a relative path whose separator is '/':
//   *      any run of characters inside one path segment
//   ?      one character other than '/'
//   [a-z]  one character of the set ([!...] or [^...] negates it)
//   **     any run of characters across segments; "**/" also matches no segment
// A pattern without '/' is matched against the last segment only, so "*.pdb"
// means every .pdb at any depth. Backslashes in the pattern count as '/', so a
// pattern may be written the Windows way. Matching is case-sensitive.
class GlobPattern {
public:
    // Throws Exception "Invalid pattern %1%: %2%" for an empty pattern or an
    // unterminated character set.
    explicit GlobPattern(const std::string& pattern);

    const std::string& GetText() const { return text_; }
    bool Matches(const std::string& relativePath) const;

private:
    enum class Kind { Literal, AnyChar, Set, Star, AnySegments, AnyText };
    struct Token {
        Kind kind = Kind::Literal;
        char literal = 0;
        std::string set;  // ranges expanded into single characters
        bool negated = false;
    };

    void Compile(const std::string& pattern);
    std::size_t CompileSet(const std::string& pattern, std::size_t open);
    bool MatchTokens(const std::string& text) const;
    static bool MatchesOne(const Token& token, char character);

    std::string text_;
    std::vector<Token> tokens_;
    bool lastSegmentOnly_ = false;
};

// True when any of the patterns matches the path.
bool MatchesAny(const std::vector<GlobPattern>& patterns, const std::string& relativePath);

}  // namespace integrity_check_tool::generate
