#include "generate/glob_pattern.h"

#include <algorithm>

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool::generate {
namespace {

const char* InvalidPattern() {
    return "Invalid pattern %1%: %2%";
}
const char* EmptyPattern() {
    return "the pattern is empty";
}
const char* UnterminatedSet() {
    return "'[' without its closing ']'";
}

std::string LastSegment(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

GlobPattern::GlobPattern(const std::string& pattern) : text_(pattern) {
    std::string normalized = pattern;
    std::replace(normalized.begin(), normalized.end(), '\\', '/');
    // A leading '/' anchors at the root, which every pattern with '/' already is.
    while (!normalized.empty() && normalized.front() == '/') {
        normalized.erase(0, 1);
    }
    // "logs/" names a directory: everything below it.
    if (!normalized.empty() && normalized.back() == '/') {
        normalized += "**";
    }
    if (normalized.empty()) {
        ICT_THROW(Exception(MessageFormat(InvalidPattern(), pattern, EmptyPattern())));
    }
    lastSegmentOnly_ = normalized.find('/') == std::string::npos;
    Compile(normalized);
}

void GlobPattern::Compile(const std::string& pattern) {
    for (std::size_t index = 0; index < pattern.size(); ++index) {
        const char character = pattern[index];
        Token token;
        if (character == '*') {
            if (index + 1 < pattern.size() && pattern[index + 1] == '*') {
                ++index;
                while (index + 1 < pattern.size() && pattern[index + 1] == '*') {
                    ++index;
                }
                if (index + 1 < pattern.size() && pattern[index + 1] == '/') {
                    ++index;
                    token.kind = Kind::AnySegments;
                } else {
                    token.kind = Kind::AnyText;
                }
            } else {
                token.kind = Kind::Star;
            }
        } else if (character == '?') {
            token.kind = Kind::AnyChar;
        } else if (character == '[') {
            index = CompileSet(pattern, index);
            continue;
        } else {
            token.literal = character;
        }
        tokens_.push_back(std::move(token));
    }
}

// Reads the set that opens at `open` and returns the index of its ']'.
std::size_t GlobPattern::CompileSet(const std::string& pattern, std::size_t open) {
    Token token;
    token.kind = Kind::Set;
    std::size_t index = open + 1;
    if (index < pattern.size() && (pattern[index] == '!' || pattern[index] == '^')) {
        token.negated = true;
        ++index;
    }
    const std::size_t first = index;
    for (; index < pattern.size(); ++index) {
        const char character = pattern[index];
        // A ']' right after the opening stands for itself.
        if (character == ']' && index != first) {
            tokens_.push_back(std::move(token));
            return index;
        }
        if (index + 2 < pattern.size() && pattern[index + 1] == '-' && pattern[index + 2] != ']') {
            const char last = pattern[index + 2];
            for (int member = static_cast<unsigned char>(character);
                 member <= static_cast<unsigned char>(last); ++member) {
                token.set.push_back(static_cast<char>(member));
            }
            index += 2;
        } else {
            token.set.push_back(character);
        }
    }
    ICT_THROW(Exception(MessageFormat(InvalidPattern(), text_, UnterminatedSet())));
}

bool GlobPattern::MatchesOne(const Token& token, char character) {
    switch (token.kind) {
        case Kind::Literal:
            return character == token.literal;
        case Kind::AnyChar:
            return character != '/';
        case Kind::Set:
            return character != '/' &&
                   (token.set.find(character) != std::string::npos) != token.negated;
        default:
            return false;
    }
}

bool GlobPattern::Matches(const std::string& relativePath) const {
    return MatchTokens(lastSegmentOnly_ ? LastSegment(relativePath) : relativePath);
}

// Walks the tokens once, keeping the set of text positions reachable so far:
// linear in tokens times text length, whatever the stars.
bool GlobPattern::MatchTokens(const std::string& text) const {
    const std::size_t size = text.size();
    std::vector<char> reachable(size + 1, 0);
    std::vector<char> next(size + 1, 0);
    reachable[0] = 1;
    for (const Token& token : tokens_) {
        switch (token.kind) {
            case Kind::Star:
                for (std::size_t position = 0; position <= size; ++position) {
                    next[position] = reachable[position] || (position > 0 && next[position - 1] &&
                                                             text[position - 1] != '/');
                }
                break;
            case Kind::AnyText:
                for (std::size_t position = 0; position <= size; ++position) {
                    next[position] = reachable[position] || (position > 0 && next[position - 1]);
                }
                break;
            case Kind::AnySegments: {
                // Either nothing, or anything that ends with '/'.
                bool seen = false;
                for (std::size_t position = 0; position <= size; ++position) {
                    next[position] =
                        reachable[position] || (seen && position > 0 && text[position - 1] == '/');
                    seen = seen || reachable[position];
                }
                break;
            }
            default:
                next[0] = 0;
                for (std::size_t position = 1; position <= size; ++position) {
                    next[position] =
                        reachable[position - 1] && MatchesOne(token, text[position - 1]);
                }
                break;
        }
        reachable.swap(next);
        if (std::find(reachable.begin(), reachable.end(), 1) == reachable.end()) {
            return false;
        }
    }
    return reachable[size] != 0;
}

bool MatchesAny(const std::vector<GlobPattern>& patterns, const std::string& relativePath) {
    return std::any_of(
        patterns.begin(), patterns.end(),
        [&relativePath](const GlobPattern& pattern) { return pattern.Matches(relativePath); });
}

}  // namespace integrity_check_tool::generate
