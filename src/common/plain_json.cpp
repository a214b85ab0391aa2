// SPDX-License-Identifier: Apache-2.0
#include "common/plain_json.hpp"

#include "common/hex.hpp"
#include "common/text.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <utility>

namespace bmcoauth::internal
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
    return c == '"' || c == '\\';
}

/** The number of characters at the beginning of @p text, each from the space to DEL, that neither a
 *  quotation mark nor a backslash interrupts: JSON's form of them is what they are. Looks at a word
 *  at a time. */
std::size_t plainRun(std::string_view text) noexcept
{
    using Word = std::size_t;
    constexpr Word ones = ~Word{0} / 0xff; // one in each byte
    std::size_t length = 0;
    for (; text.size() - length >= sizeof(Word); length += sizeof(Word))
    {
        Word word = 0;
        std::memcpy(&word, text.data() + length, sizeof word);
        // The highest bit of a byte is set in one of these if the byte ends the run.
        const Word found = word | (word - ones * ' ') | ((word ^ ones * '"') - ones) |
                           ((word ^ ones * '\\') - ones);
        if ((found & ones * 0x80) != 0)
        {
            break;
        }
    }
    const auto endsPlain = [](char c) {
        return endsRun(c) || isControl(c) || static_cast<unsigned char>(c) >= 0x80;
    };
    return static_cast<std::size_t>(std::ranges::find_if(text.substr(length), endsPlain) -
                                    text.begin());
}

/** Appends the UTF-8 form of @p point, at most 0x10ffff; also of half a surrogate pair. */
void appendUtf8(char32_t point, SecretString& out)
{
    const auto append = [&out](char32_t byte) {
        out += static_cast<char>(byte);
    };
    if (point < 0x80)
    {
        append(point);
        return;
    }
    const unsigned int more = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
    append(((0xff00U >> (more + 1)) & 0xffU) | (point >> (6 * more)));
    for (unsigned int left = more; left != 0; --left)
    {
        append(0x80U | ((point >> (6 * (left - 1))) & 0x3fU));
    }
}

class PlainReader
{
public:
    explicit PlainReader(std::string_view text) noexcept
        : begin{text.data()}, next{begin}, end{begin + text.size()}
    {
    }

    bool readDocument(Json::Value* tree)
    {
        skipSpace();
        if (peek() != '{' || !readValue(tree, 0))
        {
            return false;
        }
        skipSpace();
        return next == end;
    }

    /** Reads a document without a tree; gives the number of its members, 0 for none that fit. */
    std::size_t readMembers(std::span<PlainMember> members)
    {
        room = members;
        return readDocument(nullptr) ? members.size() - room.size() : 0;
    }

    /** Reads a text that is a single value. */
    bool readWhole(Json::Value& value)
    {
        return readValue(&value, 1) && next == end;
    }

private:
    /** jsoncpp nests deeper; nothing that is signed or registered does. */
    static constexpr unsigned int deepest = 32;

    /** As many digits as fit into an integer of 64 bits whatever they are. */
    static constexpr std::ptrdiff_t longestInteger = 18;

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

    /** Reads the next value into @p value; passes over it if that is null. */
    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readValue(Json::Value* value, unsigned int depth)
    {
        const char* const start = next;
        if (!readContent(value, depth))
        {
            return false;
        }
        if (value != nullptr)
        {
            value->setOffsetStart(start - begin);
            value->setOffsetLimit(next - begin);
        }
        return true;
    }

    /** Makes @p content of @p value, unless that is null. */
    template <typename Content>
    static void store(Json::Value* value, Content content)
    {
        if (value != nullptr)
        {
            *value = content;
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readContent(Json::Value* value, unsigned int depth)
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
                store(value, true);
                return take("true");
            case 'f':
                store(value, false);
                return take("false");
            case 'n':
                store(value, Json::nullValue);
                return take("null");
            default:
                return readInteger(value);
        }
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readObject(Json::Value* value, unsigned int depth)
    {
        store(value, Json::objectValue);
        ++next;
        skipSpace();
        if (take('}'))
        {
            return true;
        }
        do
        {
            skipSpace();
            if (!readMember(value, depth))
            {
                return false;
            }
            skipSpace();
        } while (take(','));
        return take('}');
    }

    /** Reads a member of the object @p object, or of one that is passed over. */
    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readMember(Json::Value* object, unsigned int depth)
    {
        const std::optional<std::string_view> name = readString();
        if (!name)
        {
            return false;
        }
        // Before the value is read, which may use the room of the name.
        Json::Value* const member = object == nullptr ? nullptr : &emptyMember(*object, *name);
        skipSpace();
        if (!take(':'))
        {
            return false;
        }
        skipSpace();
        const char* const start = next;
        return readValue(member, depth + 1) &&
               (object != nullptr || depth != 0 || note({*name, {start, next}}));
    }

    /** The member @p name of @p object. Of two members of one name the later holds. */
    static Json::Value& emptyMember(Json::Value& object, std::string_view name)
    {
        Json::Value& member = *object.demand(name.data(), name.data() + name.size());
        if (!member.isNull())
        {
            wipeTexts(member);
        }
        return member;
    }

    /** Puts @p member into the room for the members of the document; false if there is none. */
    bool note(const PlainMember& member) noexcept
    {
        if (room.empty())
        {
            return false;
        }
        room.front() = member;
        room = room.subspan(1);
        return true;
    }

    // NOLINTNEXTLINE(misc-no-recursion): as deep as `deepest`
    bool readArray(Json::Value* value, unsigned int depth)
    {
        store(value, Json::arrayValue);
        ++next;
        skipSpace();
        if (take(']'))
        {
            return true;
        }
        do
        {
            skipSpace();
            if (!readValue(value == nullptr ? nullptr : &value->append(Json::Value{}), depth + 1))
            {
                return false;
            }
            skipSpace();
        } while (take(','));
        return take(']');
    }

    bool readText(Json::Value* value)
    {
        const std::optional<std::string_view> text = readString();
        if (text && value != nullptr)
        {
            *value = Json::Value{text->data(), text->data() + text->size()};
        }
        return text.has_value();
    }

    /** The next string, as long as no other is read. */
    std::optional<std::string_view> readString()
    {
        if (!take('"'))
        {
            return std::nullopt;
        }
        const char* run = next;
        passRun();
        if (peek() == '"')
        {
            return std::string_view{run, next++};
        }
        unescaped.clear();
        while (peek() == '\\')
        {
            unescaped.append(run, next++);
            if (!readEscape())
            {
                return std::nullopt;
            }
            run = next;
            passRun();
        }
        unescaped.append(run, next);
        return take('"') ? std::optional<std::string_view>{unescaped} : std::nullopt;
    }

    /** Passes over what a string holds up to its end or to an escape sequence. */
    void passRun() noexcept
    {
        next = std::ranges::find_if(next + plainRun({next, end}), end, endsRun);
    }

    /** Appends the character of the escape sequence whose backslash has been passed over. */
    bool readEscape()
    {
        const std::size_t letter = next == end ? std::string_view::npos : escapeLetters.find(*next);
        if (letter != std::string_view::npos)
        {
            ++next;
            unescaped += escapedCharacters[letter];
            return true;
        }
        char32_t point = 0;
        if (!readUnit(point))
        {
            return false;
        }
        if (point >= 0xd800 && point <= 0xdbff)
        {
            // The other half of the pair; whether it is one jsoncpp does not ask either.
            char32_t half = 0;
            if (!take('\\') || !readUnit(half))
            {
                return false;
            }
            point = 0x10000 + ((point & 0x3ffU) << 10U) + (half & 0x3ffU);
        }
        appendUtf8(point, unescaped);
        return true;
    }

    /** Reads the number of "u" and four hexadecimal digits into @p unit, which is 0. */
    bool readUnit(char32_t& unit) noexcept
    {
        constexpr std::size_t digits = 4;
        if (!take('u') || static_cast<std::size_t>(end - next) < digits)
        {
            return false;
        }
        for (const char c : std::string_view{next, digits})
        {
            const std::size_t digit = std::min(lowerCaseDigits.find(c), upperCaseDigits.find(c));
            if (digit == std::string_view::npos)
            {
                return false;
            }
            unit = unit << 4U | static_cast<char32_t>(digit);
        }
        next += digits;
        return true;
    }

    bool readInteger(Json::Value* value)
    {
        const char* const start = next;
        next = std::ranges::find_if_not(next, end, [](char c) { return c >= '0' && c <= '9'; });
        const std::ptrdiff_t digits = next - start;
        if (digits == 0 || digits > longestInteger || (digits > 1 && *start == '0'))
        {
            return false;
        }
        store(value, static_cast<Json::LargestInt>(*readDecimal({start, next})));
        return true;
    }

    const char* begin;
    const char* next;
    const char* end;
    std::span<PlainMember> room;
    SecretString unescaped;
};

/** Takes the first code point off @p text, which begins with a byte that is not ASCII. Bytes that
 *  are not UTF-8 give U+FFFD; which of them are one character is jsoncpp's choice. */
char32_t takeCodePoint(std::string_view& text) noexcept
{
    constexpr char32_t replacement = 0xfffd;
    const auto lead = static_cast<unsigned char>(text.front());
    const std::size_t length = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    if (lead >= 0xf8 || text.size() < length)
    {
        text.remove_prefix(1);
        return replacement;
    }
    char32_t point = lead & (0x7fU >> length);
    for (const char next : text.substr(1, length - 1))
    {
        point = (point << 6U) | (static_cast<unsigned char>(next) & 0x3fU);
    }
    text.remove_prefix(length);
    constexpr std::array<char32_t, 3> smallest{0x80, 0x800, 0x10000};
    const bool valid = point >= smallest[length - 2] && (point < 0xd800 || point > 0xdfff);
    return valid ? point : replacement;
}

void appendUnit(char32_t unit, SecretString& out)
{
    out += "\\u";
    for (const unsigned int shift : {12U, 8U, 4U, 0U})
    {
        out += lowerCaseDigits[(unit >> shift) & 0x0fU];
    }
}

/** Appends the escape sequence of the first character of @p text and takes it off. */
void appendEscaped(std::string_view& text, SecretString& out)
{
    const char c = text.front();
    const std::size_t letter = writtenEscapes.find(c);
    if (letter != std::string_view::npos)
    {
        out += '\\';
        out += escapeLetters[letter];
        text.remove_prefix(1);
        return;
    }
    if (isControl(c))
    {
        appendUnit(static_cast<unsigned char>(c), out);
        text.remove_prefix(1);
        return;
    }
    char32_t point = takeCodePoint(text);
    if (point >= 0x10000)
    {
        point -= 0x10000;
        appendUnit(0xd800 + ((point >> 10U) & 0x3ffU), out);
        point = 0xdc00 + (point & 0x3ffU);
    }
    appendUnit(point, out);
}

void appendString(std::string_view text, SecretString& out)
{
    out += '"';
    while (true)
    {
        const std::size_t run = plainRun(text);
        out += text.substr(0, run);
        text.remove_prefix(run);
        if (text.empty())
        {
            break;
        }
        appendEscaped(text, out);
    }
    out += '"';
}

void appendInteger(Json::LargestInt number, SecretString& out)
{
    if (number < 0)
    {
        out += '-';
        // The smallest number has no positive counterpart.
        out += decimal(static_cast<Json::LargestUInt>(-(number + 1)) + 1);
        return;
    }
    out += decimal(static_cast<Json::LargestUInt>(number));
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which jsoncpp writes recursively too
bool appendObject(const Json::Value& object, SecretString& out)
{
    char separator = '{';
    for (auto entry = object.begin(); entry != object.end(); ++entry)
    {
        out += std::exchange(separator, ',');
        const char* nameEnd = nullptr;
        const char* const name = entry.memberName(&nameEnd);
        appendString({name, nameEnd}, out);
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
bool appendArray(const Json::Value& array, SecretString& out)
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
    SecretTree read;
    if (!PlainReader{text}.readDocument(&read.root))
    {
        return false;
    }
    tree.swap(read.root);
    return true;
}

std::size_t readPlainMembers(std::string_view text, std::span<PlainMember> members)
{
    return text.find('\\') == std::string_view::npos ? PlainReader{text}.readMembers(members) : 0;
}

bool readPlainValue(std::string_view text, Json::Value& value)
{
    return PlainReader{text}.readWhole(value);
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which jsoncpp writes recursively too
bool appendPlainJson(const Json::Value& tree, SecretString& text)
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
            appendInteger(tree.asLargestInt(), text);
            return true;
        case Json::uintValue:
            text += decimal(tree.asLargestUInt());
            return true;
        case Json::stringValue:
            if (!tree.getString(&begin, &end))
            {
                return false;
            }
            appendString({begin, end}, text);
            return true;
        case Json::objectValue:
            return appendObject(tree, text);
        case Json::arrayValue:
            return appendArray(tree, text);
        default:
            return false;
    }
}

} // namespace bmcoauth::internal
