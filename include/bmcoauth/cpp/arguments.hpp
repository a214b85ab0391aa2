// SPDX-License-Identifier: Apache-2.0
#pragma once

/* The arguments of a call: borrowed texts and bytes, and the copies of them that the library is
 * given. */

#include <bmcoauth/cpp/refusal.hpp>

#include <climits>

#include <array>
#include <charconv>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <ranges>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

namespace bmcoauth
{
inline namespace v1
{

/** Texts that are borrowed for a call. */
using TextSpan = std::span<const std::string_view>;
/** Bytes that are borrowed for a call. */
using ByteSpan = std::span<const unsigned char>;

namespace detail
{

/** The ranges that a view may refer to after the statement that makes the view. */
template <typename Range, typename T>
concept Lasting = std::ranges::contiguous_range<Range> && std::ranges::borrowed_range<Range> &&
    std::constructible_from<std::span<const T>, Range>;

} // namespace detail

/** Borrowed is a span in an object that may outlive the statement that makes it. It is made from
 *  arrays and containers that have a name, and from other views, but not from temporaries. */
template <typename T>
class Borrowed : public std::span<const T>
{
public:
    Borrowed() noexcept = default;
    /** Looks into `range`. Of another Borrowed it makes what the copy constructor makes. */
    template <detail::Lasting<T> Range> // NOLINTNEXTLINE(bugprone-forwarding-reference-overload)
    Borrowed(Range&& range BMCOAUTH_LIFETIMEBOUND) noexcept
        : std::span<const T>{std::forward<Range>(range)}
    {
    }
};

/** Implementation of these headers; not for callers. */
namespace detail
{

/** Clears memory that is not looked at any more, which a compiler would leave out. */
inline void wipe(void* data, std::size_t size) noexcept
{
    if (data == nullptr)
    {
        return;
    }
#if defined(__GNUC__)
    std::memset(data, 0, size);
    // The memory counts as read here.
    __asm__ __volatile__("" : : "r"(data) : "memory");
#else
    volatile unsigned char* byte = static_cast<unsigned char*>(data);
    for (; size != 0; --size)
    {
        *byte++ = 0;
    }
#endif
}

/** Arguments holds the copies that a call passes on, with a zero byte behind each text, and wipes
 *  them afterwards. The first thing that goes wrong is kept, with the name of the argument: ask
 *  `failed` once, before the call, since everything that is made after a failure is null. */
class Arguments
{
public:
    Arguments() noexcept = default;
    Arguments(const Arguments&) = delete;
    Arguments(Arguments&&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    Arguments& operator=(Arguments&&) = delete;
    ~Arguments()
    {
        while (chunks != nullptr)
        {
            Chunk* const next = chunks->next;
            wipe(chunks, chunks->size);
            std::free(chunks);
            chunks = next;
        }
        wipe(first.data(), firstUsed);
    }

    /** A copy of `text`, the argument `name` or one of its texts. */
    [[nodiscard]] char* text(const char* name, std::string_view text, int index = -1) noexcept
    {
        if (text.find('\0') != std::string_view::npos)
        {
            return fail(BMCOAUTH_RULE_ARGUMENT_ZERO_BYTE, name, index);
        }
        if (text.size() >= static_cast<std::size_t>(INT_MAX))
        {
            return fail(BMCOAUTH_RULE_ARGUMENT_LENGTH, name, index);
        }
        auto* const copy = static_cast<char*>(take(text.size() + 1, 1));
        if (copy != nullptr)
        {
            if (!text.empty())
            {
                std::memcpy(copy, text.data(), text.size());
            }
            copy[text.size()] = '\0';
        }
        return copy;
    }
    /** Null for an absent text. */
    [[nodiscard]] char* maybe(const char* name,
                              const std::optional<std::string_view>& given) noexcept
    {
        return given ? text(name, *given) : nullptr;
    }

    /** The decimal text of `number`. */
    [[nodiscard]] char* decimal(std::uint64_t number) noexcept
    {
        std::array<char, 20> digits{};
        const std::to_chars_result end =
            std::to_chars(digits.data(), digits.data() + digits.size(), number);
        return text("", {digits.data(), static_cast<std::size_t>(end.ptr - digits.data())});
    }

    /** `count` zeroed objects for the argument `name` and one more, which ends the array. */
    template <typename T>
    [[nodiscard]] T* array(const char* name, std::size_t count) noexcept
    {
        static_assert(std::is_trivially_default_constructible_v<T> &&
                      std::is_trivially_destructible_v<T>);
        // NOLINTNEXTLINE(bugprone-sizeof-expression): some are arrays of pointers.
        constexpr std::size_t one = sizeof(T);
        if (count > static_cast<std::size_t>(INT_MAX) / one - 1)
        {
            return fail(BMCOAUTH_RULE_ARGUMENT_LENGTH, name);
        }
        void* const objects = take((count + 1) * one, alignof(T));
        if (objects == nullptr)
        {
            return nullptr;
        }
        std::memset(objects, 0, (count + 1) * one);
        return static_cast<T*>(objects);
    }

    /** A null-ended array of these texts, of `char*` or `const char*`. */
    template <typename Pointer = char*>
    [[nodiscard]] Pointer* texts(const char* name, TextSpan texts) noexcept
    {
        Pointer* const copies = array<Pointer>(name, texts.size());
        for (std::size_t i = 0; copies != nullptr && i < texts.size(); ++i)
        {
            copies[i] = text(name, texts[i], static_cast<int>(i));
        }
        return copies;
    }
    /** The same, and null for none, where the library takes a null pointer for that. */
    template <typename Pointer = char*>
    [[nodiscard]] Pointer* textsOrNull(const char* name, TextSpan list) noexcept
    {
        return list.empty() ? nullptr : texts<Pointer>(name, list);
    }

    /** The length of the argument `name`, as the library counts it. */
    template <typename Count>
    [[nodiscard]] Count length(const char* name, std::size_t size) noexcept
    {
        if (size > static_cast<std::size_t>(INT_MAX))
        {
            fail(BMCOAUTH_RULE_ARGUMENT_LENGTH, name);
            return 0;
        }
        return static_cast<Count>(size);
    }

    /** Null, for the callers here that give back a pointer. */
    std::nullptr_t fail(Rule rule, const char* name = "", int index = -1) noexcept
    {
        if (!failed())
        {
            problem = rule;
            subject = name;
            place = index;
        }
        return nullptr;
    }

    /** Whether something has gone wrong. */
    [[nodiscard]] bool failed() const noexcept
    {
        return problem != Rule{};
    }
    /** The failure. */
    [[nodiscard]] Error failure() const noexcept
    {
        return Error{problem, subject, place};
    }

private:
    struct Chunk
    {
        Chunk* next;
        std::size_t size;
    };

    /** Room for `wanted` bytes. */
    [[nodiscard]] void* take(std::size_t wanted, std::size_t alignment) noexcept
    {
        if (failed())
        {
            return nullptr;
        }
        std::size_t start = (used + alignment - 1) & ~(alignment - 1);
        if (start > room || wanted > room - start)
        {
            if (!enlarge(wanted))
            {
                return nullptr;
            }
            start = 0;
        }
        used = start + wanted;
        if (chunks == nullptr)
        {
            firstUsed = used;
        }
        return current + start;
    }

    [[nodiscard]] bool enlarge(std::size_t wanted) noexcept
    {
        // Malloc aligns for everything, and this header of a chunk keeps the alignment.
        constexpr std::size_t header =
            (sizeof(Chunk) + alignof(std::max_align_t) - 1) & ~(alignof(std::max_align_t) - 1);
        constexpr std::size_t usual = 4096 - header;
        const std::size_t size = wanted > usual ? wanted : usual;
        void* const block = std::malloc(header + size);
        if (block == nullptr)
        {
            fail(BMCOAUTH_RULE_MEMORY_EXHAUSTED);
            return false;
        }
        chunks = new (block) Chunk{chunks, header + size};
        current = static_cast<unsigned char*>(block) + header;
        room = size;
        used = 0;
        return true;
    }

    // Most calls need no more, and so no memory of the heap.
    alignas(std::max_align_t) std::array<unsigned char, 1024> first{};
    std::size_t firstUsed = 0;
    unsigned char* current = first.data();
    std::size_t room = first.size();
    std::size_t used = 0;
    Chunk* chunks = nullptr;
    // The parts of an Error: a whole one on the stack of every call would be large.
    Rule problem{};
    const char* subject = "";
    int place = -1;
};

} // namespace detail

} // namespace v1
} // namespace bmcoauth
