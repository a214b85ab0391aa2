// SPDX-License-Identifier: Apache-2.0
#include "common/plain_json.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <optional>
#include <utility>

namespace bmcoauth
{

namespace
{

/** The characters that stand for themselves behind a backslash or for a control character there, and
 *  what they stand for. */
constexpr std::string_view escapeLetters = "\"\\bfnrt/";
constexpr std::string_view escapedCharacters = "\"\\\b\f\n\r\t/";

/** The slash may be escaped, but is not when it is written. */
constexpr std::string_view writtenEscapes = escapedCharacters.substr(0, 7);

constexpr bool isControl(char c)
{
    return static_cast<unsigned char>(c) < 0x20;
}

/** Whether @p c ends a run of characters that a reader takes as they are. */
constexpr bool endsRun(char c)
{
    return c == '"' || c == '\\' || isControl(c);
}

class PlainReader
{
public:
    explicit PlainReader(std::string_view text) noexcept
        : begin{text.data()}, next{begin}, end{begin + text.size()}
    {
    }

    bool readDocument(Json::Value& tree)
    {
        skipSpace();
        if (peek() != '{' || !readValue(tree, 0))
        {
            return false;
        }
        skipSpace();
        return next == end;
    }

private:
    /** jsoncpp nests deeper; nothing that is signed or registered does. */
    static constexpr unsigned int deepest = 32;

    /** As many digits as fit into an integer of 64 bits whatever they are. */
    static constexpr std::ptrdiff_t mostDigits = 18;

    [[nodiscard]] char peek() const noexcept
    {
        return next == end ? '\0' : *next;
    }

    /** Passes over @p expected; false when something else is next. */
    bool take(char expected) noexcept
    {
        if (peek() != expected)
        {
            return false;
        }
        ++next;
        return true;
    }

    bool take(std::string_view expected) noexcept
    {
        if (!std::string_view{next, end}.starts_with(expected))
        {
            return false;
        }
        next += expected.size();
        return true;
    }

    void skipSpace() noexcept
    {
        while (peek() == ' ' || peek() == '\n' || peek() == '\r' || peek() == '\t')
        {
            ++next;
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readValue(Json::Value& value, unsigned int depth)
    {
        const char* const start = next;
        if (!readContent(value, depth))
        {
            return false;
        }
        value.setOffsetStart(start - begin);
        value.setOffsetLimit(next - begin);
        return true;
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readContent(Json::Value& value, unsigned int depth)
    {
        switch (peek())
        {
            case '{':
                return depth < deepest && readObject(value, depth);
            case '[':
                return depth < deepest && readArray(value, depth);
            case '"':
                return readText(value);
            case 't':
                value = true;
                return take("true");
            case 'f':
                value = false;
                return take("false");
            case 'n':
                value = Json::Value{};
                return take("null");
            default:
                return readInteger(value);
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readObject(Json::Value& value, unsigned int depth)
    {
        value = Json::Value{Json::objectValue};
        ++next;
        skipSpace();
        if (take('}'))
        {
            return true;
        }
        do
        {
            skipSpace();
            const std::optional<std::string_view> name = readString();
            if (!name)
            {
                return false;
            }
            // Before the value is read, which may use the room of the name. Of two members of one
            // name the later holds.
            Json::Value& member = *value.demand(name->data(), name->data() + name->size());
            skipSpace();
            if (!take(':'))
            {
                return false;
            }
            skipSpace();
            if (!readValue(member, depth + 1))
            {
                return false;
            }
            skipSpace();
        } while (take(','));
        return take('}');
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readArray(Json::Value& value, unsigned int depth)
    {
        value = Json::Value{Json::arrayValue};
        ++next;
        skipSpace();
        if (take(']'))
        {
            return true;
        }
        do
        {
            skipSpace();
            if (!readValue(value.append(Json::Value{}), depth + 1))
            {
                return false;
            }
            skipSpace();
        } while (take(','));
        return take(']');
    }

    bool readText(Json::Value& value)
    {
        const std::optional<std::string_view> text = readString();
        if (!text)
        {
            return false;
        }
        value = Json::Value{text->data(), text->data() + text->size()};
        return true;
    }

    /** The next string, as long as no other is read. */
    std::optional<std::string_view> readString()
    {
        if (!take('"'))
        {
            return std::nullopt;
        }
        const char* run = next;
        next = std::find_if(next, end, endsRun);
        if (peek() == '"')
        {
            return std::string_view{run, next++};
        }
        unescaped.clear();
        while (take('\\'))
        {
            const std::size_t letter = escapeLetters.find(peek());
            if (letter == std::string_view::npos)
            {
                return std::nullopt;
            }
            unescaped.append(run, next - 1) += escapedCharacters[letter];
            run = ++next;
            next = std::find_if(next, end, endsRun);
        }
        unescaped.append(run, next);
        return take('"') ? std::optional<std::string_view>{unescaped} : std::nullopt;
    }

    bool readInteger(Json::Value& value)
    {
        const char* const start = next;
        next = std::find_if_not(next, end, [](char c) { return c >= '0' && c <= '9'; });
        const std::ptrdiff_t digits = next - start;
        if (digits == 0 || digits > mostDigits || (digits > 1 && *start == '0'))
        {
            return false;
        }
        Json::LargestInt number = 0;
        std::from_chars(start, next, number);
        value = number;
        return true;
    }

    const char* begin;
    const char* next;
    const char* end;
    std::string unescaped;
};

bool appendString(std::string_view text, std::string& out)
{
    out += '"';
    while (true)
    {
        const auto plain = [](char c) {
            return !endsRun(c) && static_cast<unsigned char>(c) < 0x80;
        };
        const std::size_t run =
            static_cast<std::size_t>(std::ranges::find_if_not(text, plain) - text.begin());
        out += text.substr(0, run);
        if (run == text.size())
        {
            break;
        }
        const char c = text[run];
        const std::size_t letter = writtenEscapes.find(c);
        if (letter != std::string_view::npos)
        {
            out += '\\';
            out += escapeLetters[letter];
        }
        else if (isControl(c))
        {
            constexpr std::string_view digits = "0123456789abcdef";
            out.append("\\u00") += c < 0x10 ? '0' : '1';
            out += digits[static_cast<unsigned char>(c) & 0x0FU];
        }
        else
        {
            return false;
        }
        text.remove_prefix(run + 1);
    }
    out += '"';
    return true;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which jsoncpp writes recursively too
bool appendObject(const Json::Value& object, std::string& out)
{
    char separator = '{';
    for (auto entry = object.begin(); entry != object.end(); ++entry)
    {
        out += std::exchange(separator, ',');
        const char* nameEnd = nullptr;
        const char* const name = entry.memberName(&nameEnd);
        if (!appendString({name, nameEnd}, out))
        {
            return false;
        }
        out += ':';
        if (!appendPlainJson(*entry, out))
        {
            return false;
        }
    }
    out += separator == '{' ? "{}" : "}";
    return true;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which jsoncpp writes recursively too
bool appendArray(const Json::Value& array, std::string& out)
{
    char separator = '[';
    Json::ArrayIndex next = 0;
    for (auto element = array.begin(); element != array.end(); ++element)
    {
        out += std::exchange(separator, ',');
        // A program may leave gaps, which are written as well.
        if (element.index() != next++ || !appendPlainJson(*element, out))
        {
            return false;
        }
    }
    out += separator == '[' ? "[]" : "]";
    return true;
}

} // namespace

bool readPlainJson(std::string_view text, Json::Value& tree)
{
    Json::Value read;
    if (!PlainReader{text}.readDocument(read))
    {
        return false;
    }
    tree = std::move(read);
    return true;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which jsoncpp writes recursively too
bool appendPlainJson(const Json::Value& tree, std::string& text)
{
    for (const Json::CommentPlacement place :
         {Json::commentBefore, Json::commentAfterOnSameLine, Json::commentAfter})
    {
        if (tree.hasComment(place))
        {
            return false;
        }
    }
    const char* begin = nullptr;
    const char* end = nullptr;
    switch (tree.type())
    {
        case Json::nullValue:
            text += "null";
            return true;
        case Json::booleanValue:
            text += tree.asBool() ? "true" : "false";
            return true;
        case Json::intValue:
            text += std::to_string(tree.asLargestInt());
            return true;
        case Json::uintValue:
            text += std::to_string(tree.asLargestUInt());
            return true;
        case Json::stringValue:
            return tree.getString(&begin, &end) && appendString({begin, end}, text);
        case Json::objectValue:
            return appendObject(tree, text);
        case Json::arrayValue:
            return appendArray(tree, text);
        default:
            return false;
    }
}

} // namespace bmcoauth
