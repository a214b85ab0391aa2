// SPDX-License-Identifier: Apache-2.0
#include "crypto/lenient_base64.hpp"

#include "common/secret.hpp"
#include "crypto/base64.hpp"

#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

namespace bmcoauth::internal::crypto
{

namespace
{

/** A text is read in blocks of this length. */
constexpr std::size_t blockLength = 1024;

constexpr char pad = '=';
/** Stands for a pad once that is counted: a digit of value 0. */
constexpr char zeroDigit = 'A';

bool isDigit(char c) noexcept
{
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/-_";
    return digits.find(c) != std::string_view::npos;
}

bool isSpace(char c) noexcept
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/** The number of pads at the end of @p text, at most two. */
std::size_t padsAtTheEnd(std::string_view text) noexcept
{
    return text.ends_with("==") ? 2 : text.ends_with(pad) ? 1 : 0;
}

/** Decodes one block of a text without line feeds and returns the number of bytes; 0 on failure.
 *  Only white space at either end is passed over, and pads may be anywhere. */
std::size_t decodeBlock(std::span<char> block, unsigned char* out) noexcept
{
    std::string_view digits{block.data(), block.size()};
    const std::size_t pads = padsAtTheEnd(digits);
    digits.remove_prefix(std::min(digits.find_first_not_of(" \t"), digits.size()));
    while (digits.size() > 3 && isSpace(digits.back()))
    {
        digits.remove_suffix(1);
    }
    std::ranges::replace(block, pad, zeroDigit);
    const bool decoded = digits.size() % 4 == 0 && decodeDigits(digits, out);
    return decoded ? decodedLength(digits.size()) - pads : 0;
}

std::size_t decodeBlocks(std::span<char> text, unsigned char* out) noexcept
{
    std::size_t size = 0;
    while (!text.empty())
    {
        const std::size_t length = std::min(text.size(), blockLength);
        const std::size_t decoded = decodeBlock(text.first(length), out + size);
        if (decoded == 0)
        {
            break;
        }
        size += decoded;
        text = text.subspan(length);
    }
    return size;
}

/** Decodes a text with line feeds, part by part. */
class LineDecoder
{
public:
    enum Outcome
    {
        failed,
        ended, /**< with pads: nothing may follow */
        open
    };

    /** Decodes @p part to @p out, and adds the number of bytes to @p size, including those before
     *  an error. Digits at the end of @p part that are not a whole group wait for the next part. */
    Outcome decode(std::string_view part, unsigned char* out, std::size_t& size) noexcept
    {
        std::size_t pads = padsAtTheEnd(waitingDigits());
        for (const char c : part)
        {
            if (isSpace(c))
            {
                continue;
            }
            pads += c == pad ? 1 : 0;
            if (c == pad ? pads > 2 : pads > 0 || !isDigit(c))
            {
                return failed;
            }
            waiting[count++] = static_cast<unsigned char>(c);
            if (count == waiting.size())
            {
                size += decodeWaiting(pads, out + size);
            }
        }
        if (count != 0 && count % 4 == 0)
        {
            size += decodeWaiting(pads, out + size);
        }
        return count == 0 && pads > 0 ? ended : open;
    }

private:
    [[nodiscard]] std::string_view waitingDigits() const noexcept
    {
        return {reinterpret_cast<const char*>(waiting.data()), count};
    }

    std::size_t decodeWaiting(std::size_t pads, unsigned char* out) noexcept
    {
        std::ranges::replace(waiting, static_cast<unsigned char>(pad),
                             static_cast<unsigned char>(zeroDigit));
        // There are only digits now, so that it cannot fail.
        static_cast<void>(decodeDigits(waitingDigits(), out));
        const std::size_t decoded = decodedLength(count) - pads;
        count = 0;
        return decoded;
    }

    SecretBytes<64> waiting;
    std::size_t count = 0;
};

/** Where the Base64 begins in a text with line feeds: lines before it that are not Base64 are passed
 *  over. */
class Beginning
{
public:
    /** @p scratch has room for what @p whole decodes to. */
    Beginning(std::string_view whole, unsigned char* scratch) noexcept : text{whole}, out{scratch}
    {
    }

    /** The first block from the first line of Base64 on; nothing if there is none. */
    std::optional<std::string_view> find() noexcept
    {
        for (;;)
        {
            const std::size_t next = std::min(text.size(), begin + blockLength);
            const bool grown = next != end;
            end = next;
            std::size_t line = begin;
            if (const auto block = findLine(line))
            {
                return block;
            }
            if (!grown)
            {
                return std::nullopt;
            }
            if (line == begin && end - begin == blockLength)
            {
                // The rest of a line that is longer than a block is not looked at.
                withinLongLine = true;
                begin = end;
            }
            else if (line != end)
            {
                begin = line;
            }
        }
    }

private:
    /** The rest of the text, from its first line of Base64 on; nothing if there is no such line.
     *  Moves @p line behind the lines that are skipped. */
    std::optional<std::string_view> findLine(std::size_t& line) noexcept
    {
        const std::string_view read = text.substr(0, end);
        for (std::size_t feed = 0; (feed = read.find('\n', line)) != std::string_view::npos;)
        {
            const std::string_view content = text.substr(line, feed + 1 - line);
            std::size_t size = 0;
            if (!std::exchange(withinLongLine, false) &&
                (LineDecoder{}.decode(content, out, size) == LineDecoder::open || size != 0))
            {
                // Where these lengths meet, the filter passes over as many bytes once more.
                return size == 0 && feed - begin == end - line
                           ? text.substr(line + (line - begin), blockLength - 1)
                           : text.substr(line, end - line);
            }
            line = feed + 1;
        }
        return std::nullopt;
    }

    std::string_view text;
    unsigned char* out;
    std::size_t begin = 0; /**< the block that is looked at: from here */
    std::size_t end = 0;   /**< to here */
    bool withinLongLine = false;
};

std::size_t decodeLines(std::string_view text, unsigned char* out) noexcept
{
    std::size_t size = 0;
    LineDecoder decoder;
    for (std::optional<std::string_view> block = Beginning{text, out}.find();
         block && !block->empty();)
    {
        std::size_t decoded = 0;
        const LineDecoder::Outcome outcome = decoder.decode(*block, out + size, decoded);
        size += outcome == LineDecoder::failed ? 0 : decoded;
        if (outcome != LineDecoder::open)
        {
            break;
        }
        const auto read = static_cast<std::size_t>(block->data() + block->size() - text.data());
        block = text.substr(read, blockLength);
    }
    return size;
}

} // namespace

std::size_t decodeLeniently(std::span<char> text, unsigned char* out) noexcept
{
    return std::ranges::find(text, '\n') == text.end()
               ? decodeBlocks(text, out)
               : decodeLines({text.data(), text.size()}, out);
}

} // namespace bmcoauth::internal::crypto
