#include "trcontext.h"

#include <algorithm>
#include <cstring>
#include <string_view>

// The signature is read left to right with a count of open template angle
// brackets; only what lies outside template arguments decides where the
// function's qualified name starts and ends.

namespace {

using Text = std::string_view;

constexpr Text kOperator = "operator";
// Clang's spelling of an unnamed namespace; it holds a space and parentheses
// that must not be taken for a separator or a parameter list.
constexpr Text kAnonymousNamespace = "(anonymous namespace)";

bool isIdentifierChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

bool isOperatorSymbol(char c) {
    return c != '\0' && std::strchr("<>=!+-*/%^&|~,[]", c) != nullptr;
}

bool startsWithAt(Text text, size_t pos, Text prefix) {
    return pos <= text.size() && text.substr(pos, prefix.size()) == prefix;
}

bool isOperatorKeywordAt(Text text, size_t pos) {
    if (!startsWithAt(text, pos, kOperator))
        return false;
    if (pos > 0 && isIdentifierChar(text[pos - 1]))
        return false;
    const size_t end = pos + kOperator.size();
    return end >= text.size() || !isIdentifierChar(text[end]);
}

Text trimmed(Text text) {
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// Index just past the name of an operator whose keyword ends at pos:
// "<<", "()", "[]", or a conversion / new / delete / literal operator,
// whose name runs up to its parameter list.
size_t skipOperatorName(Text text, size_t pos) {
    while (pos < text.size() && text[pos] == ' ')
        ++pos;
    if (startsWithAt(text, pos, "()"))
        return pos + 2;
    if (pos < text.size() && isOperatorSymbol(text[pos])) {
        while (pos < text.size() && isOperatorSymbol(text[pos]))
            ++pos;
        return pos;
    }
    int depth = 0;
    for (; pos < text.size(); ++pos) {
        const char c = text[pos];
        if (c == '<')
            ++depth;
        else if (c == '>' && depth > 0)
            --depth;
        else if (c == '(' && depth == 0)
            break;
    }
    return pos;
}

// The qualified name of the function: what precedes the first parameter list
// outside template arguments, after the last space, '*' or '&' that ends the
// return type. Without a parameter list, the last such word of the text.
Text qualifiedFunctionName(Text text) {
    size_t nameStart = 0;
    int depth = 0;
    size_t i = 0;
    while (i < text.size()) {
        if (depth == 0 && startsWithAt(text, i, kAnonymousNamespace)) {
            i += kAnonymousNamespace.size();
            continue;
        }
        if (depth == 0 && isOperatorKeywordAt(text, i)) {
            i = skipOperatorName(text, i + kOperator.size());
            while (i < text.size() && text[i] == ' ')
                ++i;
            continue;
        }
        switch (text[i]) {
        case '<':
            ++depth;
            break;
        case '>':
            if (depth > 0)
                --depth;
            break;
        case '(':
            if (depth == 0)
                return trimmed(text.substr(nameStart, i - nameStart));
            break;
        case ' ':
        case '\t':
        case '\n':
        case '*':
        case '&':
            if (depth == 0)
                nameStart = i + 1;
            break;
        default:
            break;
        }
        ++i;
    }
    return trimmed(text.substr(std::min(nameStart, text.size())));
}

QByteArray withoutTemplateArguments(Text text) {
    QByteArray result;
    result.reserve(static_cast<int>(text.size()));
    int depth = 0;
    for (const char c : text) {
        if (c == '<')
            ++depth;
        else if (c == '>')
            depth = depth > 0 ? depth - 1 : 0;
        else if (depth == 0)
            result.append(c);
    }
    return result.trimmed();
}

// A function's own name as context: an operator keeps its symbols.
QByteArray functionNameContext(Text name) {
    name = trimmed(name);
    if (isOperatorKeywordAt(name, 0))
        return QByteArray(name.data(), static_cast<int>(name.size()));
    return withoutTemplateArguments(name);
}

QByteArray contextOfName(Text name) {
    size_t lastSeparator = Text::npos;
    int depth = 0;
    for (size_t i = 0; i < name.size(); ++i) {
        // An operator's name (or a conversion operator's type) is no scope.
        if (depth == 0 && isOperatorKeywordAt(name, i))
            break;
        const char c = name[i];
        if (c == '<') {
            ++depth;
        } else if (c == '>') {
            depth = depth > 0 ? depth - 1 : 0;
        } else if (depth == 0 && c == ':' && i + 1 < name.size() && name[i + 1] == ':') {
            lastSeparator = i;
            ++i;
        }
    }
    if (lastSeparator == Text::npos)
        return functionNameContext(name);
    const QByteArray scope = withoutTemplateArguments(name.substr(0, lastSeparator));
    if (!scope.isEmpty())
        return scope;
    // "::f" and the like: a function of the global scope.
    return functionNameContext(name.substr(lastSeparator + 2));
}

} // namespace

QByteArray trExtractContext(const char* functionSignature) {
    if (!functionSignature)
        return QByteArray();
    return contextOfName(qualifiedFunctionName(Text(functionSignature)));
}
